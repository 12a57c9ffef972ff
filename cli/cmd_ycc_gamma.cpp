// tz3 ycc-gamma IN OUT [--y K] [--cr K] [--cb K] [region]: TZ3YCCGamma, a curve of strength K on
// luma and on each colour difference.
#include "region_options.h"

namespace tz3cli {

int RunYccGamma(const std::vector<std::string> &args) {
    double k[3] = {0, 0, 0};
    const RegionCommandArgs a = ReadRegionCommand(
        args, [&](ArgReader &reader) { return TakeDoubleOption(reader, {"--y", "--cr", "--cb"}, k); });
    return RunRegionOperation(a, "ycc-gamma", [&](const RegionCall &c) {
        return TZ3YCCGamma(&c.pair, c.kind, c.Points(), c.Count(), &c.rect, c.inside, k[0], k[1], k[2], 1, 0, 0, 0);
    });
}

}  // namespace tz3cli
