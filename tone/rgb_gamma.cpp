// TZ3RGBGamma: each channel through a curve of its own strength, built on the square root.
//
// Pixels go through the float gamma tables: v = trunc(T[c] + 0.5), clamped to 0..255. Palette
// entries skip the float tables and compute the curve in double, so the two ways can differ by one
// where a value lies within float error of a half. The strengths are not checked or clamped.
#include "frame/arith.h"
#include "frame/colour_tables.h"
#include "tone/tone_skeleton.h"

namespace tz3 {
namespace {

struct RGBGammaOp {
    double k[3];  // red, green, blue
    GammaTables tables;
    uint8_t lut[3][256];  // the rounded, clamped table values, read once per channel

    bool Prepare() {
        if (!BuildGammaTables(tables, k[0], k[1], k[2])) return false;
        for (int n = 0; n < 3; ++n) {
            for (int i = 0; i < 256; ++i) lut[n][i] = Clamp255(RoundHalfUp(static_cast<double>(tables.t[n][i])));
        }
        return true;
    }
    Rgb Pixel(Rgb c) const { return Rgb{lut[0][c.r], lut[1][c.g], lut[2][c.b]}; }

    static uint8_t Curve(uint8_t c, double strength) {
        const double x = c / 255.0;
        return Clamp255(RoundHalfUp((x - (Sqrt(x) - x) * strength) * 255.0));
    }
    Rgb PaletteEntry(Rgb c) const { return Rgb{Curve(c.r, k[0]), Curve(c.g, k[1]), Curve(c.b, k[2])}; }
};

}  // namespace
}  // namespace tz3

extern "C" TZ3_API DibHandle TZ3RGBGamma(const DibPair *pair, int32_t kind, const Tz3Point *points, int32_t count,
                                         const Tz3Rect *rect, int32_t inside, double kRed, double kGreen,
                                         double kBlue, int32_t noDialog, intptr_t dialog1, intptr_t dialog2,
                                         intptr_t dialog3) {
    using namespace tz3;
    return RunExport<DibHandle>(noDialog, dialog1, dialog2, dialog3, [&] {
        RGBGammaOp op{{kRed, kGreen, kBlue}, {}, {}};
        return ToneDispatcher(UnpackRegion(pair, kind, points, count, rect, inside), op, noDialog);
    });
}
