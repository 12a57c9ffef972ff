// TZ3Emboss: relief by one of eight fixed 3 x 3 gradient kernels, the direction of the light, with
// a divisor that follows from the depth (6 - depth: depth 5 divides by 1, the strongest relief) and
// the bias as the level of a flat area. It is the custom filter's sum with every channel computed,
// so a colour image stays in colour; see filter/convolution.h.
#include "filter/convolution.h"

namespace tz3 {
namespace {

// Row 0 is the upper row in the picture; each kernel's weights add up to 0, so a flat area gives
// the bias.
constexpr int8_t kEmbossKernels[8][3][3] = {
    {{-2, 0, 2}, {-2, 0, 2}, {-2, 0, 2}},      // 0: light from the right
    {{-2, -1, 0}, {-1, 0, 1}, {0, 1, 2}},      // 1: lower right
    {{-2, -2, -2}, {0, 0, 0}, {2, 2, 2}},      // 2: below
    {{0, -1, -2}, {1, 0, -1}, {2, 1, 0}},      // 3: lower left
    {{2, 0, -2}, {2, 0, -2}, {2, 0, -2}},      // 4: left
    {{2, 1, 0}, {1, 0, -1}, {0, -1, -2}},      // 5: upper left
    {{2, 2, 2}, {0, 0, 0}, {-2, -2, -2}},      // 6: above
    {{0, 1, 2}, {-1, 0, 1}, {-2, -1, 0}},      // 7: upper right
};

struct EmbossOp : Convolution {
    int32_t directionArg = 0, depthArg = 0, biasArg = 0;

    // The direction is tested after the format and before the region; depth and bias are clamped
    // silently. All three count by their low byte.
    bool Normalise() {
        const auto direction = static_cast<uint8_t>(directionArg);
        if (direction > 7) {
            SetErrorStatus(TZ3_BAD_PARAMETER);
            return false;
        }
        auto depth = static_cast<uint8_t>(depthArg);
        if (depth > 5) depth = 5;
        if (depth == 0) depth = 1;
        divisor = 6 - depth;
        bias = static_cast<uint8_t>(biasArg);
        // The 3 x 3 kernel sits at the centre of the 9 x 9 array: its row r, column c reaches
        // (x + c - 1, y + 1 - r).
        for (int32_t r = 0; r < 3; ++r) {
            for (int32_t c = 0; c < 3; ++c) {
                kernel[(r + 3) * kKernelSide + (c + 3)] = kEmbossKernels[direction][r][c];
            }
        }
        return true;
    }
};

}  // namespace
}  // namespace tz3

extern "C" TZ3_API DibHandle TZ3Emboss(const DibPair *pair, int32_t kind, const Tz3Point *points, int32_t count,
                                       const Tz3Rect *rect, int32_t inside, int32_t direction, int32_t depth,
                                       int32_t bias, int32_t noDialog, intptr_t dialog1, intptr_t dialog2,
                                       intptr_t dialog3) {
    using namespace tz3;
    return RunExport<DibHandle>(noDialog, dialog1, dialog2, dialog3, [&] {
        const RegionArgs args = UnpackRegion(pair, kind, points, count, rect, inside);
        EmbossOp op;
        op.directionArg = direction;
        op.depthArg = depth;
        op.biasArg = bias;
        return FilterDispatcher(args, op, noDialog);
    });
}
