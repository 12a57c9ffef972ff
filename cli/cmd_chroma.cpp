// tz3 chroma IN OUT --amount N [region]: TZ3Chroma, saturation changed by N percent (-100 gray,
// 0 unchanged, up to 1000).
#include "region_options.h"

namespace tz3cli {

int RunChroma(const std::vector<std::string> &args) {
    int32_t amount[1] = {0};
    bool given = false;
    const RegionCommandArgs a = ReadRegionCommand(args, [&](ArgReader &reader) {
        const bool taken = TakeIntOption(reader, {"--amount"}, amount);
        given = given || taken;
        return taken;
    });
    if (!given) throw UsageError("--amount is required");
    return RunRegionOperation(a, "chroma", [&](const RegionCall &c) {
        return TZ3Chroma(&c.pair, c.kind, c.Points(), c.Count(), &c.rect, c.inside, amount[0], 1, 0, 0, 0);
    });
}

}  // namespace tz3cli
