// tz3 resize IN OUT --width W --height H [--interpolate] [--mask FILE [--mask-out FILE]]: TZ3Resize,
// the image (and its 1-bit mask) made W x H, replicating pixels or, with --interpolate, averaging
// and spreading them where the depth holds real levels.
#include "region_options.h"

namespace tz3cli {

int RunResize(const std::vector<std::string> &args) {
    int32_t size[2] = {0, 0};
    bool given[2] = {false, false};
    bool interpolate[1] = {false};
    std::string maskPath, maskOutPath;
    const std::vector<std::string> files = ReadArguments(args, [&](ArgReader &reader) {
        const std::string name = reader.OptionName();
        if (name == "--width" || name == "--height") {
            given[name == "--width" ? 0 : 1] = true;
            return TakeIntOption(reader, {"--width", "--height"}, size);
        }
        if (name == "--mask" || name == "--mask-out") {
            std::string &path = name == "--mask" ? maskPath : maskOutPath;
            path = reader.TakeValue();
            if (path.empty()) throw UsageError(name + " needs a file name");
            return true;
        }
        return TakeFlagOption(reader, {"--interpolate"}, interpolate);
    });
    ExpectPositionals(files, 2);
    if (!given[0] || !given[1]) throw UsageError("--width and --height are required");
    if (!maskOutPath.empty() && maskPath.empty()) throw UsageError("--mask-out needs --mask");
    OutputFormatFor(files[1]);
    if (!maskOutPath.empty()) OutputFormatFor(maskOutPath);

    const LoadedImage image = LoadImageFile(files[0]);
    RegionOptions region;
    if (!maskPath.empty()) {
        region.kind = 0;
        region.maskPath = maskPath;
    }
    const RegionCall call = MakeRegionCall(region, image.dib.Get());
    const DibPair source{image.dib.Get(), call.pair.mask};
    const DibPair result = TZ3Resize(&source, size[0], size[1], interpolate[0] ? 1 : 0, 1, 0, 0, 0);
    const DibOwner mask(result.mask);
    const DibOwner resized = TakeResult(result.image, "resize");
    if (!maskOutPath.empty()) SaveImageFile(maskOutPath, mask.Get());
    SaveImageFile(files[1], resized.Get());
    return 0;
}

}  // namespace tz3cli
