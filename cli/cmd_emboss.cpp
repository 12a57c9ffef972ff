// tz3 emboss IN OUT [--direction N] [--depth N] [--bias N] [region]: TZ3Emboss, relief whose rising
// edges face one of eight directions (0 right, then clockwise in steps of 45 degrees: 2 below, 4 left, 6 above;
// default 1), depth 1..5 (5 the strongest, default 3) and the level of flat areas (default 128).
#include "region_options.h"

namespace tz3cli {

int RunEmboss(const std::vector<std::string> &args) {
    int32_t values[3] = {1, 3, 128};  // direction, depth, bias
    const RegionCommandArgs a = ReadRegionCommand(
        args, [&](ArgReader &reader) { return TakeIntOption(reader, {"--direction", "--depth", "--bias"}, values); });
    return RunRegionOperation(a, "emboss", [&](const RegionCall &c) {
        return TZ3Emboss(&c.pair, c.kind, c.Points(), c.Count(), &c.rect, c.inside, values[0], values[1], values[2], 1,
                         0, 0, 0);
    });
}

}  // namespace tz3cli
