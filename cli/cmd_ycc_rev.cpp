// tz3 ycc-rev IN OUT [--y] [--cr] [--cb] [region]: TZ3YCCRev, reversing the chosen of luma and the
// two colour differences (all three when none is given).
#include "region_options.h"

namespace tz3cli {

int RunYccRev(const std::vector<std::string> &args) {
    bool chosen[3] = {false, false, false};
    const RegionCommandArgs a = ReadRegionCommand(
        args, [&](ArgReader &reader) { return TakeFlagOption(reader, {"--y", "--cr", "--cb"}, chosen); });
    if (!chosen[0] && !chosen[1] && !chosen[2]) chosen[0] = chosen[1] = chosen[2] = true;
    return RunRegionOperation(a, "ycc-rev", [&](const RegionCall &c) {
        return TZ3YCCRev(&c.pair, c.kind, c.Points(), c.Count(), &c.rect, c.inside, chosen[0], chosen[1],
                         chosen[2], 1, 0, 0, 0);
    });
}

}  // namespace tz3cli
