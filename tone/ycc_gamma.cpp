// TZ3YCCGamma: Y, Cr and Cb each through a gamma curve, then back to red, green, blue.
//
// Pixels: the float gamma tables' values are truncated with no 0.5 added and not clamped before
// the way back. Palette entries: the curve in double with 0.5 added. The two ways differ by design.
#include "frame/arith.h"
#include "tone/tone_skeleton.h"
#include "tone/ycc.h"

namespace tz3 {
namespace {

struct YCCGammaOp {
    double k[3];  // Y, Cr, Cb
    YccTables ycc;
    GammaTables gamma;

    bool Prepare() { return BuildYccTables(ycc) && BuildGammaTables(gamma, k[0], k[1], k[2]); }
    Rgb Pixel(Rgb c) const {
        const Ycc v = YccFromTables(ycc, c, 128.0);
        const auto curve = [&](int32_t n, int32_t value) {
            return TruncToInt32(static_cast<double>(gamma.t[n][Clamp255(value)]));
        };
        return RgbFromYcc(curve(0, v.y), curve(1, v.cr) - 128, curve(2, v.cb) - 128);
    }

    static int32_t Curve(int32_t value, double strength) {
        const double x = value / 255.0;
        return RoundHalfUp((x - (Sqrt(x) - x) * strength) * 255.0);
    }
    Rgb PaletteEntry(Rgb c) const {
        const int32_t y = Clamp255(PaletteLumaRBG(c));
        const int32_t cr = Clamp255(PaletteCr(c, 128.0));
        const int32_t cb = Clamp255(PaletteCb(c, 128.0));
        return RgbFromYcc(Curve(y, k[0]), Curve(cr, k[1]) - 128, Curve(cb, k[2]) - 128);
    }
};

}  // namespace
}  // namespace tz3

extern "C" TZ3_API DibHandle TZ3YCCGamma(const DibPair *pair, int32_t kind, const Tz3Point *points, int32_t count,
                                         const Tz3Rect *rect, int32_t inside, double kY, double kCr, double kCb,
                                         int32_t noDialog, intptr_t dialog1, intptr_t dialog2, intptr_t dialog3) {
    using namespace tz3;
    return RunExport<DibHandle>(noDialog, dialog1, dialog2, dialog3, [&] {
        YCCGammaOp op{{kY, kCr, kCb}, {}, {}};
        return ToneDispatcher(UnpackRegion(pair, kind, points, count, rect, inside), op, noDialog);
    });
}
