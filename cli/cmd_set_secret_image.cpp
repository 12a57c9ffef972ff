// tz3 set-secret-image IN OUT: TZ3SetSecretImage, a faint mark of shifted luma in a 24-bit image.
//
// The mark is a text (--text, drawn fitted into --box, the whole image by default) or a 1-bit
// stamp read from a file (--stamp FILE, placed with its top-left corner at --at X,Y). --strength
// is the shift of luma, 8 by default.
#include <cstring>

#include "cli.h"
#include "image_file.h"

namespace tz3cli {

int RunSetSecretImage(const std::vector<std::string> &args) {
    std::string text;
    std::string face = "DejaVu Sans";
    std::string stampFile;
    bool haveText = false;
    std::vector<int32_t> box;
    std::vector<int32_t> at;
    // size, direction, angle, strength
    int32_t numbers[4] = {12, 0, 0, 8};
    bool flags[4] = {false, false, false, false};  // bold, italic, underline, strikeout
    const std::vector<std::string> files = ReadArguments(args, [&](ArgReader &reader) {
        const std::string name = reader.OptionName();
        if (name == "--text") {
            text = reader.TakeValue();
            haveText = true;
            return true;
        }
        if (name == "--face") {
            face = reader.TakeValue();
            return true;
        }
        if (name == "--stamp") {
            stampFile = reader.TakeValue();
            return true;
        }
        if (name == "--box" || name == "--at") {
            std::vector<int32_t> &list = name == "--box" ? box : at;
            const size_t want = name == "--box" ? 4 : 2;
            if (!ParseIntList(reader.TakeValue(), list) || list.size() != want) {
                throw UsageError(name + " takes " + (want == 4 ? "X0,Y0,X1,Y1" : "X,Y"));
            }
            return true;
        }
        if (TakeIntOption(reader, {"--size", "--direction", "--angle", "--strength"}, numbers)) return true;
        return TakeFlagOption(reader, {"--bold", "--italic", "--underline", "--strikeout"}, flags);
    });
    ExpectPositionals(files, 2);
    if (haveText == !stampFile.empty()) throw UsageError("give either --text or --stamp");
    if (haveText && !at.empty()) throw UsageError("--at places a --stamp; a text goes into --box");
    if (!haveText && !box.empty()) throw UsageError("--box sizes a --text; a stamp is placed with --at");
    if (std::strlen(text.c_str()) != text.size()) throw UsageError("--text holds a zero byte");
    OutputFormatFor(files[1]);
    const LoadedImage image = LoadImageFile(files[0]);
    DibOwner result;
    if (haveText) {
        if (box.empty()) box = {0, 0, image.info.width - 1, image.info.height - 1};
        result = TakeResult(TZ3SetSecretImage(image.dib.Get(), nullptr, text.c_str(), face.c_str(), numbers[0],
                                              flags[0], flags[1], flags[2], flags[3], numbers[1], numbers[2],
                                              numbers[3], box[0], box[1], box[2], box[3], 1, 0, 0, 0),
                            "set-secret-image");
    } else {
        const LoadedImage stamp = LoadImageFile(stampFile);
        if (at.empty()) at = {0, 0};
        result = TakeResult(TZ3SetSecretImage(image.dib.Get(), stamp.dib.Get(), nullptr, nullptr, 0, 0, 0, 0, 0, 0, 0,
                                              numbers[3], at[0], at[1], 0, 0, 1, 0, 0, 0),
                            "set-secret-image");
    }
    SaveImageFile(files[1], result.Get());
    return 0;
}

}  // namespace tz3cli
