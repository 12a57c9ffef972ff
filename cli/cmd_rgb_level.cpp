// tz3 rgb-level IN OUT [--red N] [--green N] [--blue N] [region]: TZ3RGBLevel, N (-255..255)
// added to each channel.
#include "region_options.h"

namespace tz3cli {

int RunRgbLevel(const std::vector<std::string> &args) {
    int32_t amount[3] = {0, 0, 0};
    const RegionCommandArgs a = ReadRegionCommand(
        args, [&](ArgReader &reader) { return TakeIntOption(reader, {"--red", "--green", "--blue"}, amount); });
    return RunRegionOperation(a, "rgb-level", [&](const RegionCall &c) {
        return TZ3RGBLevel(&c.pair, c.kind, c.Points(), c.Count(), &c.rect, c.inside, amount[0], amount[1],
                           amount[2], 1, 0, 0, 0);
    });
}

}  // namespace tz3cli
