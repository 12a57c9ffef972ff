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
    // The truncated table values as floats, the chroma ones with 128 taken off: exactly what the
    // way back receives, read once per value instead of once per pixel.
    float curve[3][256];

    bool Prepare() {
        if (!BuildYccTables(ycc) || !BuildGammaTables(gamma, k[0], k[1], k[2])) return false;
        for (int n = 0; n < 3; ++n) {
            const int32_t offset = n == 0 ? 0 : 128;
            for (int i = 0; i < 256; ++i) {
                curve[n][i] = static_cast<float>(static_cast<int64_t>(TruncToInt32(static_cast<double>(gamma.t[n][i]))) - offset);
            }
        }
        return true;
    }
    Rgb Pixel(Rgb c) const {
        const Ycc v = YccFromTables(ycc, c, 128.0);
        return RgbFromYcc(curve[0][Clamp255(v.y)], curve[1][Clamp255(v.cr)], curve[2][Clamp255(v.cb)]);
    }

    static int32_t Curve(int32_t value, double strength) {
        const double x = value / 255.0;
        return RoundHalfUp((x - (Sqrt(x) - x) * strength) * 255.0);
    }
    Rgb PaletteEntry(Rgb c) const {
        const int32_t y = Clamp255(PaletteLumaRBG(c));
        const int32_t cr = Clamp255(PaletteCr(c, 128.0));
        const int32_t cb = Clamp255(PaletteCb(c, 128.0));
        // 128 is taken off in 64 bits, as on the pixel path: a curve saturated at the bottom of the
        // 32-bit range stays the most negative value instead of wrapping round to a positive one.
        return RgbFromYcc(static_cast<float>(Curve(y, k[0])),
                          static_cast<float>(static_cast<int64_t>(Curve(cr, k[1])) - 128),
                          static_cast<float>(static_cast<int64_t>(Curve(cb, k[2])) - 128));
    }
};

}  // namespace
}  // namespace tz3

extern "C" TZ3_API DibHandle TZ3YCCGamma(const DibPair *pair, int32_t kind, const Tz3Point *points, int32_t count,
                                         const Tz3Rect *rect, int32_t inside, double kY, double kCr, double kCb,
                                         int32_t noDialog, intptr_t dialog1, intptr_t dialog2, intptr_t dialog3) {
    using namespace tz3;
    return RunExport<DibHandle>(noDialog, dialog1, dialog2, dialog3, [&] {
        YCCGammaOp op{{kY, kCr, kCb}, {}, {}, {}};
        return ToneDispatcher(UnpackRegion(pair, kind, points, count, rect, inside), op, noDialog);
    });
}
