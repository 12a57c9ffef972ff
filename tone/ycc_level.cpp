// TZ3YCCLevel: fixed amounts added to Y, Cr and Cb (each clamped to -255..255), then back. The
// sums are not clamped: a white pixel with 255 added to Y goes back from y = 510 and clamps.
#include "frame/arith.h"
#include "tone/tone_skeleton.h"
#include "tone/ycc.h"

namespace tz3 {
namespace {

struct YCCLevelOp {
    int32_t amount[3];  // Y, Cr, Cb
    YccTables ycc;

    bool Prepare() { return BuildYccTables(ycc); }
    Rgb Shift(Ycc v) const { return RgbFromYcc(v.y + amount[0], v.cr + amount[1] - 128, v.cb + amount[2] - 128); }
    Rgb Pixel(Rgb c) const { return Shift(YccFromTables(ycc, c, 128.0)); }
    Rgb PaletteEntry(Rgb c) const { return Shift(Ycc{PaletteLumaGRB(c), PaletteCr(c, 128.0), PaletteCb(c, 128.0)}); }
};

}  // namespace
}  // namespace tz3

extern "C" TZ3_API DibHandle TZ3YCCLevel(const DibPair *pair, int32_t kind, const Tz3Point *points, int32_t count,
                                         const Tz3Rect *rect, int32_t inside, int32_t y, int32_t cr, int32_t cb,
                                         int32_t noDialog, intptr_t dialog1, intptr_t dialog2, intptr_t dialog3) {
    using namespace tz3;
    return RunExport<DibHandle>(noDialog, dialog1, dialog2, dialog3, [&] {
        YCCLevelOp op{{ClampInt(y, -255, 255), ClampInt(cr, -255, 255), ClampInt(cb, -255, 255)}, {}};
        return ToneDispatcher(UnpackRegion(pair, kind, points, count, rect, inside), op, noDialog);
    });
}
