// tz3 create-image OUT --width W --height H [--depth 1|4|8|16|24|32] [--colour R,G,B]:
// TZ3CreateImage, a new image of one colour (black unless given), 24 bits unless told otherwise.
#include "cli.h"
#include "image_file.h"
#include "selection_options.h"

namespace tz3cli {

int RunCreateImage(const std::vector<std::string> &args) {
    int32_t size[2] = {0, 0};
    bool sizeGiven[2] = {false, false};
    int32_t depth[1] = {24};
    std::array<int32_t, 3> colour{0, 0, 0};
    const std::vector<std::string> files = ReadArguments(args, [&](ArgReader &reader) {
        const std::string name = reader.OptionName();
        if (TakeIntOption(reader, {"--width", "--height"}, size)) {
            sizeGiven[name == "--width" ? 0 : 1] = true;
            return true;
        }
        return TakeIntOption(reader, {"--depth"}, depth) || TakeColourOption(reader, "--colour", colour);
    });
    ExpectPositionals(files, 1);
    if (!sizeGiven[0] || !sizeGiven[1]) throw UsageError("--width and --height are required");
    if (size[0] < 1 || size[1] < 1) throw UsageError("--width and --height must be at least 1");
    const int32_t d = depth[0];
    if (d != 1 && d != 4 && d != 8 && d != 16 && d != 24 && d != 32) {
        throw UsageError("--depth is 1, 4, 8, 16, 24 or 32");
    }
    OutputFormatFor(files[0]);
    const DibOwner result = TakeResult(
        TZ3CreateImage(size[0], size[1], d, colour[0], colour[1], colour[2], 1, 0, 0, 0), "create-image");
    SaveImageFile(files[0], result.Get());
    return 0;
}

}  // namespace tz3cli
