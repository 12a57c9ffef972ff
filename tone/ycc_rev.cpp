// TZ3YCCRev: Y, Cr and Cb (clamped to 0..255) each reversed when chosen, then back. With no flag
// it is the way there and back alone, so white comes out as 254.
#include "frame/arith.h"
#include "tone/tone_skeleton.h"
#include "tone/ycc.h"

namespace tz3 {
namespace {

struct YCCRevOp {
    bool reverse[3];  // Y, Cr, Cb
    YccTables ycc;

    bool Prepare() { return BuildYccTables(ycc); }
    int32_t Flip(int32_t n, int32_t value) const {
        const int32_t v = Clamp255(value);
        return reverse[n] ? 255 - v : v;
    }
    Rgb Reverse(Ycc v) const { return RgbFromYcc(Flip(0, v.y), Flip(1, v.cr) - 128, Flip(2, v.cb) - 128); }
    Rgb Pixel(Rgb c) const { return Reverse(YccFromTables(ycc, c, 128.0)); }
    Rgb PaletteEntry(Rgb c) const {
        return Reverse(Ycc{PaletteLumaGRB(c), PaletteCr(c, 128.0), PaletteCb(c, 128.0)});
    }
};

}  // namespace
}  // namespace tz3

extern "C" TZ3_API DibHandle TZ3YCCRev(const DibPair *pair, int32_t kind, const Tz3Point *points, int32_t count,
                                       const Tz3Rect *rect, int32_t inside, int32_t y, int32_t cr, int32_t cb,
                                       int32_t noDialog, intptr_t dialog1, intptr_t dialog2, intptr_t dialog3) {
    using namespace tz3;
    return RunExport<DibHandle>(noDialog, dialog1, dialog2, dialog3, [&] {
        // A channel flag counts by its low byte.
        YCCRevOp op{{static_cast<uint8_t>(y) != 0, static_cast<uint8_t>(cr) != 0, static_cast<uint8_t>(cb) != 0}, {}};
        return ToneDispatcher(UnpackRegion(pair, kind, points, count, rect, inside), op, noDialog);
    });
}
