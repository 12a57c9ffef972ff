// tz3 rgb-rev IN OUT [--red] [--green] [--blue] [region]: TZ3RGBRev, 255 - v on the chosen
// channels, all three when none is chosen.
#include "region_options.h"

namespace tz3cli {

int RunRgbRev(const std::vector<std::string> &args) {
    bool red = false, green = false, blue = false;
    const RegionCommandArgs a = ReadRegionCommand(args, [&](ArgReader &reader) {
        const std::string name = reader.OptionName();
        bool *flag = name == "--red" ? &red : name == "--green" ? &green : name == "--blue" ? &blue : nullptr;
        if (flag == nullptr) return false;
        reader.TakeFlag();
        *flag = true;
        return true;
    });
    if (!red && !green && !blue) red = green = blue = true;
    return RunRegionOperation(a, "rgb-rev", [&](const RegionCall &c) {
        return TZ3RGBRev(&c.pair, c.kind, c.Points(), c.Count(), &c.rect, c.inside, red, green, blue, 1, 0, 0,
                         0);
    });
}

}  // namespace tz3cli
