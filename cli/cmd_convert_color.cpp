// tz3 convert-color IN OUT --target 1|4|8|16|24|32|80 [--fixed-palette] [--dither] [--threshold N]:
// TZ3ConvertColor, the image in another pixel format. 80 is an 8-bit gray image. A reduction to 4
// or 8 bits builds a table from the image unless --fixed-palette asks for the fixed 16 or 216
// colours; --dither spreads the error of a reduction to 1, 4 or 8 bits; --threshold (0..255,
// default 128) is the mean level from which a pixel is white at 1 bit.
#include "cli.h"
#include "image_file.h"

namespace tz3cli {

int RunConvertColor(const std::vector<std::string> &args) {
    int32_t numbers[2] = {0, 128};  // target, threshold
    bool givenTarget = false;
    bool flags[2] = {false, false};  // fixed palette, dither
    const std::vector<std::string> files = ReadArguments(args, [&](ArgReader &reader) {
        const std::string name = reader.OptionName();
        if (TakeIntOption(reader, {"--target", "--threshold"}, numbers)) {
            givenTarget = givenTarget || name == "--target";
            return true;
        }
        return TakeFlagOption(reader, {"--fixed-palette", "--dither"}, flags);
    });
    ExpectPositionals(files, 2);
    if (!givenTarget) throw UsageError("--target is required");
    const int32_t target = numbers[0];
    if (target != 1 && target != 4 && target != 8 && target != 16 && target != 24 && target != 32 && target != 80) {
        throw UsageError("--target must be 1, 4, 8, 16, 24, 32 or 80");
    }
    if (numbers[1] < 0 || numbers[1] > 255) throw UsageError("--threshold must be 0..255");
    OutputFormatFor(files[1]);
    const LoadedImage image = LoadImageFile(files[0]);
    const DibOwner result = TakeResult(
        TZ3ConvertColor(image.dib.Get(), target, flags[0] ? 1 : 0, flags[1] ? 1 : 0, numbers[1], 1, 0, 0, 0),
        "convert-color");
    SaveImageFile(files[1], result.Get());
    return 0;
}

}  // namespace tz3cli
