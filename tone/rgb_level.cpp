// TZ3RGBLevel: a fixed amount added to each channel, the amounts clamped to -255..255 and each
// result to 0..255. Integer arithmetic only; the same on pixels and palette entries.
#include "frame/arith.h"
#include "tone/tone_skeleton.h"

namespace tz3 {
namespace {

struct RGBLevelOp {
    int32_t amount[3];  // red, green, blue, already clamped
    uint8_t lut[3][256];

    bool Prepare() {
        for (int n = 0; n < 3; ++n) {
            for (int i = 0; i < 256; ++i) lut[n][i] = Clamp255(i + amount[n]);
        }
        return true;
    }
    Rgb Pixel(Rgb c) const { return Rgb{lut[0][c.r], lut[1][c.g], lut[2][c.b]}; }
    Rgb PaletteEntry(Rgb c) const {
        return Rgb{Clamp255(c.r + amount[0]), Clamp255(c.g + amount[1]), Clamp255(c.b + amount[2])};
    }
};

}  // namespace
}  // namespace tz3

extern "C" TZ3_API DibHandle TZ3RGBLevel(const DibPair *pair, int32_t kind, const Tz3Point *points, int32_t count,
                                         const Tz3Rect *rect, int32_t inside, int32_t red, int32_t green,
                                         int32_t blue, int32_t noDialog, intptr_t dialog1, intptr_t dialog2,
                                         intptr_t dialog3) {
    using namespace tz3;
    return RunExport<DibHandle>(noDialog, dialog1, dialog2, dialog3, [&] {
        RGBLevelOp op{{ClampInt(red, -255, 255), ClampInt(green, -255, 255), ClampInt(blue, -255, 255)}, {}};
        return ToneDispatcher(UnpackRegion(pair, kind, points, count, rect, inside), op, noDialog);
    });
}
