// tz3 shade IN OUT [--radius N] [region]: TZ3Shade, the mean of the square window of radius N
// (1..20, default 2) around each pixel.
#include "region_options.h"

namespace tz3cli {

int RunShade(const std::vector<std::string> &args) {
    int32_t radius[1] = {2};
    const RegionCommandArgs a = ReadRegionCommand(
        args, [&](ArgReader &reader) { return TakeIntOption(reader, {"--radius"}, radius); });
    return RunRegionOperation(a, "shade", [&](const RegionCall &c) {
        return TZ3Shade(&c.pair, c.kind, c.Points(), c.Count(), &c.rect, c.inside, radius[0], 1, 0, 0, 0);
    });
}

}  // namespace tz3cli
