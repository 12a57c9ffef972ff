// tz3 mosaic IN OUT [--width W] [--height H] [region]: TZ3Mosaic, tiles of W x H pixels (default
// 8 x 8) anchored at the region's lower left corner, each painted with its mean colour. One of W
// and H may be 1, which makes strips.
#include "region_options.h"

namespace tz3cli {

int RunMosaic(const std::vector<std::string> &args) {
    int32_t tile[2] = {8, 8};
    const RegionCommandArgs a = ReadRegionCommand(args, [&](ArgReader &reader) {
        return TakeIntOption(reader, {"--width", "--height"}, tile);
    });
    return RunRegionOperation(a, "mosaic", [&](const RegionCall &c) {
        return TZ3Mosaic(&c.pair, c.kind, c.Points(), c.Count(), &c.rect, c.inside, tile[0], tile[1], 1, 0, 0,
                         0);
    });
}

}  // namespace tz3cli
