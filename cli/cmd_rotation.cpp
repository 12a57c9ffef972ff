// tz3 rotation IN OUT --angle N [--flip-h] [--flip-v] [--interpolate] [--background R,G,B]
// [--keep-size] [--mask FILE] [--mask-out FILE]: TZ3Rotation, the picture turned counter-clockwise by
// N hundredths of a degree about its centre. The mask, a 1-bit image of the input's size, turns with
// it; --mask-out saves the turned mask. Both outputs are encoded before either file is written.
#include "cli.h"
#include "image_file.h"
#include "region_options.h"

namespace tz3cli {
namespace {

std::vector<uint8_t> Encode(const std::string &path, DibHandle dib) {
    return OutputFormatFor(path) == FileFormat::kBmp ? EncodeBmp(dib) : EncodePng(dib);
}

}  // namespace

int RunRotation(const std::vector<std::string> &args) {
    int32_t angle = 0;
    bool angleGiven = false;
    bool flags[4] = {false, false, false, false};  // flip-h, flip-v, interpolate, keep-size
    std::vector<int32_t> background{255, 255, 255};
    std::string maskPath, maskOutPath;
    const std::vector<std::string> files = ReadArguments(args, [&](ArgReader &reader) {
        if (TakeIntOption(reader, {"--angle"}, &angle)) return angleGiven = true;
        if (TakeFlagOption(reader, {"--flip-h", "--flip-v", "--interpolate", "--keep-size"}, flags)) return true;
        const std::string name = reader.OptionName();
        if (name == "--background") {
            if (!ParseIntList(reader.TakeValue(), background) || background.size() != 3)
                throw UsageError("--background needs three whole numbers R,G,B");
            return true;
        }
        if (name == "--mask" || name == "--mask-out") {
            std::string &path = name == "--mask" ? maskPath : maskOutPath;
            path = reader.TakeValue();
            if (path.empty()) throw UsageError(name + " needs a file name");
            return true;
        }
        return false;
    });
    ExpectPositionals(files, 2);
    if (!angleGiven) throw UsageError("--angle is required");
    if (!maskOutPath.empty() && maskPath.empty()) throw UsageError("--mask-out needs --mask");
    OutputFormatFor(files[1]);
    if (!maskOutPath.empty()) OutputFormatFor(maskOutPath);

    const LoadedImage image = LoadImageFile(files[0]);
    RegionOptions maskOption;
    if (!maskPath.empty()) {
        maskOption.kind = 0;
        maskOption.maskPath = maskPath;
    }
    const RegionCall source = MakeRegionCall(maskOption, image.dib.Get());
    const DibPair result = TZ3Rotation(&source.pair, angle, flags[0], flags[1], flags[2], background[0],
                                       background[1], background[2], flags[3], 1, 0, 0, 0);
    const DibOwner turnedMask(result.mask);
    const DibOwner turned = TakeResult(result.image, "rotation");
    const std::vector<uint8_t> imageBytes = Encode(files[1], turned.Get());
    std::vector<uint8_t> maskBytes;
    if (!maskOutPath.empty()) maskBytes = Encode(maskOutPath, turnedMask.Get());
    WriteFileAtomically(files[1], imageBytes);
    if (!maskOutPath.empty()) WriteFileAtomically(maskOutPath, maskBytes);
    return 0;
}

}  // namespace tz3cli
