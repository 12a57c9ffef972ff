// tz3 layer BASE OVER OUT [options]: TZ3Layer, OVER laid on BASE by its top-left corner, one pixel
// to one, with a key colour that lets the base show through; the result is a 24-bit image.
//
//   --at X,Y          base column and row (from the top) of OVER's top-left pixel (default 0,0)
//   --key R,G,B       OVER's colour that lets the base through, matched exactly (default 255,0,255);
//                     beyond the base's edge a keyed pixel keeps its colour
//   --opacity N       0 (base only) .. 255 (OVER only, the default); the low byte counts
//   --back R,G,B      colour where neither image lies (default 0,0,0)
//   --keep-size       the result keeps the base's size; otherwise it grows to hold both
#include <string>

#include "cli.h"
#include "image_file.h"

namespace tz3cli {
namespace {

void TakeList(ArgReader &reader, int32_t *values, size_t count, const char *form) {
    const std::string name = reader.OptionName();
    const std::string text = reader.TakeValue();
    std::vector<int32_t> parsed;
    if (!ParseIntList(text, parsed) || parsed.size() != count) {
        throw UsageError(name + " needs " + form + " (got '" + text + "')");
    }
    for (size_t i = 0; i < count; ++i) values[i] = parsed[i];
}

}  // namespace

int RunLayer(const std::vector<std::string> &args) {
    int32_t opacity[1] = {255};
    bool keepSize[1] = {false};
    int32_t key[3] = {255, 0, 255};
    int32_t back[3] = {0, 0, 0};
    int32_t at[2] = {0, 0};
    const std::vector<std::string> files = ReadArguments(args, [&](ArgReader &reader) {
        if (TakeIntOption(reader, {"--opacity"}, opacity)) return true;
        if (TakeFlagOption(reader, {"--keep-size"}, keepSize)) return true;
        const std::string name = reader.OptionName();
        if (name == "--key") {
            TakeList(reader, key, 3, "R,G,B");
        } else if (name == "--back") {
            TakeList(reader, back, 3, "R,G,B");
        } else if (name == "--at") {
            TakeList(reader, at, 2, "X,Y");
        } else {
            return false;
        }
        return true;
    });
    ExpectPositionals(files, 3);
    OutputFormatFor(files[2]);

    const LoadedImage base = LoadImageFile(files[0]);
    const LoadedImage over = LoadImageFile(files[1]);
    const DibOwner result =
        TakeResult(TZ3Layer(base.dib.Get(), over.dib.Get(), opacity[0], key[0], key[1], key[2], back[0],
                            back[1], back[2], at[0], at[1], keepSize[0], 1, 0, 0, 0),
                   "layer");
    SaveImageFile(files[2], result.Get());
    return 0;
}

}  // namespace tz3cli
