// tz3 paste-image TARGET SOURCE OUT [options]: TZ3PasteImage, SOURCE laid over TARGET by its centre
// pixel, turned, mirrored, flipped and faded as asked; the result is a 24-bit image.
//
//   --at X,Y          target column and row (from the top) of the source's centre pixel; default
//                     the target's centre
//   --angle N         hundredths of a degree, counter-clockwise (-35999..35999; beyond is clamped)
//   --mirror --flip   mirror left to right, flip top to bottom, before turning
//   --opacity N       0 (target only) .. 255 (source only, the default); the low byte counts
//   --back R,G,B      colour where neither image lies (default 0,0,0)
//   --mask FILE       a 1-bit image of the source's size: only set bits are pasted
//   --keep-size       the result keeps the target's size; otherwise it grows to hold both
#include <string>
#include <utility>

#include "cli.h"
#include "image_file.h"

namespace tz3cli {
namespace {

void TakeTriple(ArgReader &reader, int32_t *rgb) {
    const std::string name = reader.OptionName();
    const std::string text = reader.TakeValue();
    std::vector<int32_t> values;
    if (!ParseIntList(text, values) || values.size() != 3) {
        throw UsageError(name + " needs R,G,B (got '" + text + "')");
    }
    for (int i = 0; i < 3; ++i) rgb[i] = values[static_cast<size_t>(i)];
}

void TakePair(ArgReader &reader, int32_t *xy) {
    const std::string name = reader.OptionName();
    const std::string text = reader.TakeValue();
    std::vector<int32_t> values;
    if (!ParseIntList(text, values) || values.size() != 2)
        throw UsageError(name + " needs X,Y (got '" + text + "')");
    xy[0] = values[0];
    xy[1] = values[1];
}

}  // namespace

int RunPasteImage(const std::vector<std::string> &args) {
    int32_t numbers[2] = {0, 255};          // angle, opacity
    bool flags[3] = {false, false, false};  // mirror, flip, keep size
    int32_t back[3] = {0, 0, 0};
    int32_t at[2] = {0, 0};
    bool atGiven = false;
    std::string maskPath;
    const std::vector<std::string> files = ReadArguments(args, [&](ArgReader &reader) {
        if (TakeIntOption(reader, {"--angle", "--opacity"}, numbers)) return true;
        if (TakeFlagOption(reader, {"--mirror", "--flip", "--keep-size"}, flags)) return true;
        const std::string name = reader.OptionName();
        if (name == "--back") {
            TakeTriple(reader, back);
        } else if (name == "--at") {
            TakePair(reader, at);
            atGiven = true;
        } else if (name == "--mask") {
            maskPath = reader.TakeValue();
            if (maskPath.empty()) throw UsageError("--mask needs a file name");
        } else {
            return false;
        }
        return true;
    });
    ExpectPositionals(files, 3);
    OutputFormatFor(files[2]);

    const LoadedImage target = LoadImageFile(files[0]);
    const LoadedImage source = LoadImageFile(files[1]);
    DibOwner mask;
    if (!maskPath.empty()) {
        LoadedImage m = LoadImageFile(maskPath);
        const ImageInfo &s = source.info;
        if (m.info.bitCount != 1 || m.info.width != s.width || m.info.height != s.height) {
            throw Failure(maskPath + ": mask must be a 1-bit image of the source's " +
                          std::to_string(s.width) + " x " + std::to_string(s.height) + " (it is " +
                          std::to_string(m.info.width) + " x " + std::to_string(m.info.height) + ", " +
                          std::to_string(m.info.bitCount) + " bits)");
        }
        mask = std::move(m.dib);
    }
    if (!atGiven) {
        at[0] = target.info.width / 2;
        at[1] = target.info.height / 2;
    }
    const DibPair pair{source.dib.Get(), mask.Get()};
    const DibOwner result =
        TakeResult(TZ3PasteImage(target.dib.Get(), &pair, numbers[0], flags[0], flags[1], numbers[1], back[0],
                                 back[1], back[2], at[0], at[1], flags[2], 1, 0, 0, 0),
                   "paste-image");
    SaveImageFile(files[2], result.Get());
    return 0;
}

}  // namespace tz3cli
