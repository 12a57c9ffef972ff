// tz3 select-image IN OUT [--fill R,G,B] [shape] [--mask-out FILE]: TZ3SelectImage, the box of the
// shape cut out, the pixels outside the shape painted in the fill colour (black unless given). No
// shape: the whole image.
#include "selection_options.h"

namespace tz3cli {

int RunSelectImage(const std::vector<std::string> &args) {
    std::array<int32_t, 3> fill{0, 0, 0};
    const SelectionCommandArgs a = ReadSelectionCommand(
        args, [&](ArgReader &reader) { return TakeColourOption(reader, "--fill", fill); });
    return RunSelection(a, "select-image", [&](const RegionCall &c) {
        return TZ3SelectImage(c.pair.image, c.kind, c.Points(), c.Count(), &c.rect, c.inside, fill[0],
                              fill[1], fill[2], 1, 0, 0, 0);
    });
}

}  // namespace tz3cli
