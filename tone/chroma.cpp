// TZ3Chroma: both colour differences scaled by one factor, (amount + 100) / 100 as a float, the
// amount clamped to -100..1000; the luma stays. The chroma sums here have no 128 offset and truncate
// toward zero on both sides. A factor of exactly 1 converts nothing: palette entries and 24 and
// 32-bit pixels stay as they are, while 16-bit pixels still pass through expand and pack.
#include "frame/arith.h"
#include "tone/tone_skeleton.h"
#include "tone/ycc.h"

namespace tz3 {
namespace {

struct ChromaOp {
    float factor;
    YccTables ycc;

    bool Converts() const { return factor != 1.0f; }
    bool Prepare() { return !Converts() || BuildYccTables(ycc); }
    Rgb Scale(Ycc v) const {
        const float cr = static_cast<float>(v.cr) * factor;
        const float cb = static_cast<float>(v.cb) * factor;
        return RgbFromYcc(static_cast<float>(v.y), cr, cb);
    }
    Rgb Pixel(Rgb c) const { return Converts() ? Scale(YccFromTables(ycc, c, 0.0)) : c; }
    Rgb PaletteEntry(Rgb c) const {
        return Converts() ? Scale(Ycc{PaletteLumaGRB(c), PaletteCr(c, 0.0), PaletteCb(c, 0.0)}) : c;
    }
};

}  // namespace
}  // namespace tz3

extern "C" TZ3_API DibHandle TZ3Chroma(const DibPair *pair, int32_t kind, const Tz3Point *points, int32_t count,
                                       const Tz3Rect *rect, int32_t inside, int32_t amount, int32_t noDialog,
                                       intptr_t dialog1, intptr_t dialog2, intptr_t dialog3) {
    using namespace tz3;
    return RunExport<DibHandle>(noDialog, dialog1, dialog2, dialog3, [&] {
        const double factor = (ClampInt(amount, -100, 1000) + 100.0) / 100.0;
        ChromaOp op{static_cast<float>(factor), {}};
        return ToneDispatcher(UnpackRegion(pair, kind, points, count, rect, inside), op, noDialog);
    });
}
