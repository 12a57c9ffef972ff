// TZ3CustomFilter: the general convolution with a kernel of up to 9 x 9 signed 32-bit weights, a
// divisor and a bias, on the colour channels the caller picks (a gray image is always filtered).
// The kernel reads as it looks on paper: its row 0 reaches four rows above the pixel in the
// picture, its centre (row 4, column 4) is the pixel itself. Only the non-zero weights are visited,
// so a 3 x 3 kernel in the 9 x 9 array costs nine taps. See filter/convolution.h for the sum.
#include <cstring>

#include "filter/convolution.h"

namespace tz3 {
namespace {

struct CustomFilterOp : Convolution {
    const int32_t *callerKernel = nullptr;
    int32_t divisorArg = 0, biasArg = 0;

    // The caller's 81 weights are read once, here, after the format test and before the region.
    // A missing kernel is refused rather than read. A divisor whose low byte is 0 would divide by
    // zero at the first computed channel; it is refused here as a bad parameter instead.
    bool Normalise() {
        if (callerKernel == nullptr || static_cast<uint8_t>(divisorArg) == 0) {
            SetErrorStatus(TZ3_BAD_PARAMETER);
            return false;
        }
        std::memcpy(kernel, callerKernel, sizeof kernel);
        divisor = static_cast<uint8_t>(divisorArg);
        bias = static_cast<uint8_t>(biasArg);
        return true;
    }
};

}  // namespace
}  // namespace tz3

extern "C" TZ3_API DibHandle TZ3CustomFilter(const DibPair *pair, int32_t kind, const Tz3Point *points, int32_t count,
                                             const Tz3Rect *rect, int32_t inside, const int32_t *kernel,
                                             int32_t divisor, int32_t bias, int32_t filterRed, int32_t filterGreen,
                                             int32_t filterBlue, int32_t noDialog, intptr_t dialog1,
                                             intptr_t dialog2, intptr_t dialog3) {
    using namespace tz3;
    return RunExport<DibHandle>(noDialog, dialog1, dialog2, dialog3, [&] {
        const RegionArgs args = UnpackRegion(pair, kind, points, count, rect, inside);
        CustomFilterOp op;
        op.callerKernel = kernel;
        op.divisorArg = divisor;
        op.biasArg = bias;
        // Channel flags are 32-bit flags: any set bit counts.
        op.channelOn[0] = filterBlue != 0;
        op.channelOn[1] = filterGreen != 0;
        op.channelOn[2] = filterRed != 0;
        return FilterDispatcher(args, op, noDialog);
    });
}
