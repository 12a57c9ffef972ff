// tz3 remove-noise IN OUT [--method N] [--level N] [region]: TZ3RemoveNoise, a 3 x 3 median:
// method 0 the plain median (default), 1 the selective median, which treats more pixels the higher
// the level (0..255, default 128).
#include "region_options.h"

namespace tz3cli {

int RunRemoveNoise(const std::vector<std::string> &args) {
    int32_t values[2] = {0, 128};
    const RegionCommandArgs a = ReadRegionCommand(args, [&](ArgReader &reader) {
        return TakeIntOption(reader, {"--method", "--level"}, values);
    });
    return RunRegionOperation(a, "remove-noise", [&](const RegionCall &c) {
        return TZ3RemoveNoise(&c.pair, c.kind, c.Points(), c.Count(), &c.rect, c.inside, values[0], values[1],
                              1, 0, 0, 0);
    });
}

}  // namespace tz3cli
