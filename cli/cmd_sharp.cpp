// tz3 sharp IN OUT [--strength N] [region]: TZ3Sharp, raising each pixel's luma against its 3 x 3
// neighbourhood by a gain of N x 3 / 100 (N 0..100, default 50); colours keep their own chroma.
#include "region_options.h"

namespace tz3cli {

int RunSharp(const std::vector<std::string> &args) {
    int32_t strength[1] = {50};
    const RegionCommandArgs a =
        ReadRegionCommand(args, [&](ArgReader &reader) { return TakeIntOption(reader, {"--strength"}, strength); });
    return RunRegionOperation(a, "sharp", [&](const RegionCall &c) {
        return TZ3Sharp(&c.pair, c.kind, c.Points(), c.Count(), &c.rect, c.inside, strength[0], 1, 0, 0, 0);
    });
}

}  // namespace tz3cli
