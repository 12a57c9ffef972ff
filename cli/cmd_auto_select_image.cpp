// tz3 auto-select-image IN OUT --key R,G,B [--metric rgb|chroma|luma] [--tolerance N] [shape]
// [--mask-out FILE]: TZ3AutoSelectImage, every pixel of the region within N (0..255, default 16)
// of the key colour by the metric (rgb by default) is selected; the mask file holds the selection.
#include "selection_options.h"

namespace tz3cli {

int RunAutoSelectImage(const std::vector<std::string> &args) {
    std::array<int32_t, 3> key{0, 0, 0};
    bool keyGiven = false;
    int32_t metric = 0;
    int32_t tolerance[1] = {16};
    const SelectionCommandArgs a = ReadSelectionCommand(args, [&](ArgReader &reader) {
        if (TakeColourOption(reader, "--key", key)) {
            keyGiven = true;
            return true;
        }
        if (reader.OptionName() == "--metric") {
            const std::string name = reader.TakeValue();
            if (name == "rgb") {
                metric = 0;
            } else if (name == "chroma") {
                metric = 1;
            } else if (name == "luma") {
                metric = 2;
            } else {
                throw UsageError("--metric is rgb, chroma or luma (got '" + name + "')");
            }
            return true;
        }
        return TakeIntOption(reader, {"--tolerance"}, tolerance);
    });
    if (!keyGiven) throw UsageError("--key is required");
    if (tolerance[0] < 0 || tolerance[0] > 255) throw UsageError("--tolerance goes from 0 to 255");
    return RunSelection(a, "auto-select-image", [&](const RegionCall &c) {
        return TZ3AutoSelectImage(c.pair.image, c.kind, c.Points(), c.Count(), &c.rect, c.inside, key[0],
                                  key[1], key[2], metric, tolerance[0], 1, 0, 0, 0);
    });
}

}  // namespace tz3cli
