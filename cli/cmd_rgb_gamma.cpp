// tz3 rgb-gamma IN OUT [--red K] [--green K] [--blue K] [region]: TZ3RGBGamma, each channel
// through a curve of strength K (0 leaves it; positive darkens the mid-tones, negative lightens).
#include "region_options.h"

namespace tz3cli {

int RunRgbGamma(const std::vector<std::string> &args) {
    double k[3] = {0, 0, 0};
    const RegionCommandArgs a = ReadRegionCommand(
        args, [&](ArgReader &reader) { return TakeDoubleOption(reader, {"--red", "--green", "--blue"}, k); });
    return RunRegionOperation(a, "rgb-gamma", [&](const RegionCall &c) {
        return TZ3RGBGamma(&c.pair, c.kind, c.Points(), c.Count(), &c.rect, c.inside, k[0], k[1], k[2], 1, 0, 0, 0);
    });
}

}  // namespace tz3cli
