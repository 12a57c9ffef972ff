// tz3 anti-alias IN OUT [region]: TZ3AntiAlias, the mean of each pixel and its left and right
// neighbours, which softens vertical edges.
#include "region_options.h"

namespace tz3cli {

int RunAntiAlias(const std::vector<std::string> &args) {
    const RegionCommandArgs a = ReadRegionCommand(args, [](ArgReader &) { return false; });
    return RunRegionOperation(a, "anti-alias", [&](const RegionCall &c) {
        return TZ3AntiAlias(&c.pair, c.kind, c.Points(), c.Count(), &c.rect, c.inside, 1, 0, 0, 0);
    });
}

}  // namespace tz3cli
