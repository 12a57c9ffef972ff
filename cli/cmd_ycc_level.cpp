// tz3 ycc-level IN OUT [--y N] [--cr N] [--cb N] [region]: TZ3YCCLevel, N (-255..255) added to
// luma and to each colour difference.
#include "region_options.h"

namespace tz3cli {

int RunYccLevel(const std::vector<std::string> &args) {
    int32_t amount[3] = {0, 0, 0};
    const RegionCommandArgs a = ReadRegionCommand(
        args, [&](ArgReader &reader) { return TakeIntOption(reader, {"--y", "--cr", "--cb"}, amount); });
    return RunRegionOperation(a, "ycc-level", [&](const RegionCall &c) {
        return TZ3YCCLevel(&c.pair, c.kind, c.Points(), c.Count(), &c.rect, c.inside, amount[0], amount[1],
                           amount[2], 1, 0, 0, 0);
    });
}

}  // namespace tz3cli
