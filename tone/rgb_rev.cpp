// TZ3RGBRev: each chosen channel becomes 255 minus its value, a photographic negative when all
// three are chosen. 255 - v is v XOR 255 for a byte, so the formula is three XORs with masks fixed
// for the call and no branch per pixel. At 16 bits the unchosen channels still pass through expand
// and pack and lose a level; a chosen one packs back exactly (255 - v packs to 31 - c).
#include "tone/tone_skeleton.h"

namespace tz3 {
namespace {

struct RGBRevOp {
    uint8_t redXor, greenXor, blueXor;

    bool Prepare() { return true; }
    Rgb Pixel(Rgb c) const {
        return Rgb{static_cast<uint8_t>(c.r ^ redXor), static_cast<uint8_t>(c.g ^ greenXor),
                   static_cast<uint8_t>(c.b ^ blueXor)};
    }
    Rgb PaletteEntry(Rgb c) const { return Pixel(c); }
};

// A channel flag counts by its low byte.
uint8_t ReverseMask(int32_t flag) { return static_cast<uint8_t>(flag) != 0 ? 0xFF : 0x00; }

}  // namespace
}  // namespace tz3

extern "C" TZ3_API DibHandle TZ3RGBRev(const DibPair *pair, int32_t kind, const Tz3Point *points, int32_t count,
                                       const Tz3Rect *rect, int32_t inside, int32_t red, int32_t green,
                                       int32_t blue, int32_t noDialog, intptr_t dialog1, intptr_t dialog2,
                                       intptr_t dialog3) {
    using namespace tz3;
    return RunExport<DibHandle>(noDialog, dialog1, dialog2, dialog3, [&] {
        const RegionArgs args = UnpackRegion(pair, kind, points, count, rect, inside);
        RGBRevOp op{ReverseMask(red), ReverseMask(green), ReverseMask(blue)};
        return ToneDispatcher(args, op, noDialog);
    });
}
