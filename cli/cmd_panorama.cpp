// tz3 panorama FIRST SECOND OUT --first X,Y,X,Y --second X,Y,X,Y [--seam none|left|right]
// [--back R,G,B]: TZ3Panorama, the second picture scaled, turned and pasted over the first so that
// the segment marked on it lies on the segment marked on the first; with a seam side, only the part
// of the second picture left or right of its segment's direction is pasted.
#include "region_options.h"

namespace tz3cli {
namespace {

std::vector<int32_t> TakeList(ArgReader &reader, const std::string &name, size_t count, const char *form) {
    const std::string text = reader.TakeValue();
    std::vector<int32_t> values;
    if (!ParseIntList(text, values) || values.size() != count)
        throw UsageError(name + " needs " + form + " (got '" + text + "')");
    return values;
}

}  // namespace

int RunPanorama(const std::vector<std::string> &args) {
    std::vector<int32_t> first, second, back = {0, 0, 0};
    int32_t seam = 0;
    const std::vector<std::string> files = ReadArguments(args, [&](ArgReader &reader) {
        const std::string name = reader.OptionName();
        if (name == "--first" || name == "--second") {
            (name == "--first" ? first : second) = TakeList(reader, name, 4, "X,Y,X,Y");
            return true;
        }
        if (name == "--back") {
            back = TakeList(reader, name, 3, "R,G,B");
            return true;
        }
        if (name == "--seam") {
            const std::string side = reader.TakeValue();
            if (side == "none") {
                seam = 0;
            } else if (side == "left") {
                seam = 1;
            } else if (side == "right") {
                seam = 2;
            } else {
                throw UsageError("--seam takes none, left or right (got '" + side + "')");
            }
            return true;
        }
        return false;
    });
    ExpectPositionals(files, 3);
    if (first.empty() || second.empty()) throw UsageError("--first and --second are required");
    OutputFormatFor(files[2]);
    const LoadedImage one = LoadImageFile(files[0]);
    const LoadedImage two = LoadImageFile(files[1]);
    const DibOwner result = TakeResult(
        TZ3Panorama(one.dib.Get(), two.dib.Get(), seam, first[0], first[1], first[2], first[3], second[0],
                    second[1], second[2], second[3], back[0], back[1], back[2], 1, 0, 0, 0),
        "panorama");
    SaveImageFile(files[2], result.Get());
    return 0;
}

}  // namespace tz3cli
