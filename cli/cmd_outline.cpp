// tz3 outline IN OUT [--channel N] [--operator N] [--gain N] [region]: TZ3Outline, the gradient
// strength of one channel as gray: channel 0 luma (default), 1 red, 2 green, 3 blue; operator 0
// neighbour difference, 2 Sobel (default), any other the Roberts cross; gain 0..100 (default 1).
#include "region_options.h"

namespace tz3cli {

int RunOutline(const std::vector<std::string> &args) {
    int32_t values[3] = {0, 2, 1};
    const RegionCommandArgs a = ReadRegionCommand(args, [&](ArgReader &reader) {
        return TakeIntOption(reader, {"--channel", "--operator", "--gain"}, values);
    });
    return RunRegionOperation(a, "outline", [&](const RegionCall &c) {
        return TZ3Outline(&c.pair, c.kind, c.Points(), c.Count(), &c.rect, c.inside, values[0], values[1],
                          values[2], 1, 0, 0, 0);
    });
}

}  // namespace tz3cli
