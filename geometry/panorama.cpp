// TZ3Panorama: the second picture is scaled by the ratio of the two segments' whole lengths, turned
// by the difference of their directions (in whole hundredths of a degree, the value the paste will
// use), and pasted over the first so that its first point lands on the first picture's first point.
// Both pictures are 24-bit. With a seam side, only the part of the second picture on that side of
// the line through its two points is pasted, the line itself included on both sides: the line is
// drawn on a clear mask and the side is flood-filled from the corner that lies on it.
//
// The resize reports progress 0..50 and the paste 51..100; the result grows to hold both.
#include "geometry/panorama.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

#include "compose/paste_image_core.h"
#include "frame/arith.h"
#include "frame/call.h"
#include "frame/maths.h"
#include "frame/region.h"
#include "geometry/resize.h"
#include "platform/raster.h"

namespace tz3 {
namespace {

constexpr double kPi = 3.141592657;
constexpr double kHalfPi = 1.5707963285;

// Truncation toward zero where a value out of the 32-bit range (or not a number, as a ratio with
// a zero length gives) becomes the lowest integer, as the processor's conversion delivers it: a
// size that comes out so is below 1 and the resize refuses it.
int32_t TruncOrLowest(double v) {
    if (!(v > -2147483649.0 && v < 2147483648.0)) return INT32_MIN;
    return static_cast<int32_t>(v);
}

int32_t ClampToInt32(int64_t v) {
    return static_cast<int32_t>(std::clamp<int64_t>(v, INT32_MIN, INT32_MAX));
}

struct Segment {
    int32_t xa, ya, xb, yb;  // y counted from the top, as the caller gives them
};

// A segment's whole length: the square root cut to an integer before it is used.
int32_t WholeLength(int32_t xa, int32_t ya, int32_t xb, int32_t yb) {
    const int64_t dx = int64_t{xb} - xa;
    const int64_t dy = int64_t{yb} - ya;
    return TruncToInt32(Sqrt(static_cast<double>(dx * dx + dy * dy)));
}

// The seed corner (y from the top) of the side to keep, by the direction from the first point to
// the second; the rows ya and yb count from the bottom.
void SeamSeed(int32_t width, int32_t height, int32_t xa, int32_t ya, int32_t xb, int32_t yb, uint8_t side,
              int32_t *seedX, int32_t *seedY) {
    const bool up = ya < yb;
    const bool right = xa < xb;
    int32_t corner;  // 0 (0, 0), 1 (W - 1, 0), 2 (0, H - 1), 3 (W - 1, H - 1)
    if (up && right) {
        corner = side == 1 ? 0 : 3;
    } else if (up) {
        corner = side == 1 ? 2 : 1;
    } else if (right) {
        corner = side == 1 ? 1 : 2;
    } else {
        corner = side == 1 ? 3 : 0;
    }
    *seedX = (corner & 1) != 0 ? width - 1 : 0;
    *seedY = (corner & 2) != 0 ? height - 1 : 0;
}

// The clear mask of the second picture's size with the seam drawn and one side filled; null with
// status 2 when any step fails.
DibHandle SeamMask(int32_t width, int32_t height, int32_t xa, int32_t ya, int32_t xb, int32_t yb,
                   uint8_t side) {
    BlockOwner mask(MakeRegionMask(width, height, 0, nullptr, 0, 0, 0, 0, 0, 1));
    if (!mask) {
        SetErrorStatus(TZ3_DIALOG_FAILED);
        return nullptr;
    }
    const SeamEnds ends = SeamLineEnds(width, height, xa, ya, xb, yb);
    if (DrawMaskLine(mask.get(), ends.x0, ends.y0, ends.x1, ends.y1) == 0) {
        SetErrorStatus(TZ3_DIALOG_FAILED);
        return nullptr;
    }
    int32_t seedX = 0, seedY = 0;
    SeamSeed(width, height, xa, ya, xb, yb, side, &seedX, &seedY);
    if (FloodMaskSide(mask.get(), seedX, seedY, 0, 0xFFFFFF) == 0) {
        SetErrorStatus(TZ3_DIALOG_FAILED);
        return nullptr;
    }
    return mask.Release();
}

DibHandle Panorama(DibHandle first, DibHandle second, int32_t seamSide, Segment one, Segment two,
                   int32_t backRed, int32_t backGreen, int32_t backBlue, int32_t noDialog) {
    if (first == nullptr || second == nullptr) {
        SetErrorStatus(TZ3_BAD_IMAGE);
        return nullptr;
    }
    if ((one.xa == one.xb && one.ya == one.yb) || (two.xa == two.xb && two.ya == two.yb)) {
        SetErrorStatus(TZ3_BAD_PARAMETER);
        return nullptr;
    }
    int32_t width2 = 0, height2 = 0, ratioSizeW = 0, ratioSizeH = 0, angle = 0, pasteX = 0, pasteY = 0;
    int32_t y1a = 0, y1b = 0, y2a = 0, y2b = 0;  // rows from the bottom
    BlockOwner seam;
    {
        LockedBlock firstLock(first);
        LockedBlock secondLock(second);
        if (!firstLock || !secondLock) {
            SetErrorStatus(TZ3_NO_MEMORY);
            return nullptr;
        }
        const uint8_t *dib1 = firstLock.bytes();
        const uint8_t *dib2 = secondLock.bytes();
        // The header must lie inside the block before its depth is read.
        if (!CheckDibBlock(dib1, firstLock.size()) || !CheckDibBlock(dib2, secondLock.size())) return nullptr;
        if (DibBitCount(dib1) != 24 || DibBitCount(dib2) != 24) {
            SetErrorStatus(TZ3_BAD_IMAGE);
            return nullptr;
        }
        ClampFourCoords(dib1, &one.xa, &one.ya, &one.xb, &one.yb);
        ClampFourCoords(dib2, &two.xa, &two.ya, &two.xb, &two.yb);
        const uint8_t side = static_cast<uint8_t>(seamSide) <= 2 ? static_cast<uint8_t>(seamSide) : 0;
        const int32_t height1 = DibHeight(dib1);
        width2 = DibWidth(dib2);
        height2 = DibHeight(dib2);
        y1a = height1 - 1 - one.ya;
        y1b = height1 - 1 - one.yb;
        y2a = height2 - 1 - two.ya;
        y2b = height2 - 1 - two.yb;

        // Scale: whole lengths, their ratio in double.
        const int32_t d1 = WholeLength(one.xa, y1a, one.xb, y1b);
        const int32_t d2 = WholeLength(two.xa, y2a, two.xb, y2b);
        // A zero second length gives an infinite ratio (or none at all, over a zero first length),
        // and with it sizes that the resize refuses.
        const double ratio = d2 != 0   ? static_cast<double>(d1) / static_cast<double>(d2)
                             : d1 != 0 ? std::numeric_limits<double>::infinity()
                                       : std::numeric_limits<double>::quiet_NaN();
        ratioSizeW = TruncOrLowest(width2 * ratio);
        ratioSizeH = TruncOrLowest(height2 * ratio);

        // Angle in whole hundredths of a degree; the position is turned by that same value.
        const double turn =
            DirectionDegrees(one.xa, y1a, one.xb, y1b) - DirectionDegrees(two.xa, y2a, two.xb, y2b);
        angle = TruncOrLowest(turn * 100.0);
        const double a = ((angle / 100.0) * kPi) / 180.0;

        // Position: where the centre pixel of the scaled picture goes so that its first point lands
        // on the first picture's. The centre column and row are those the paste uses.
        const int64_t sx = TruncOrLowest(two.xa * ratio);
        const int64_t sy = TruncOrLowest(y2a * ratio);
        const int64_t cx = (int64_t{ratioSizeW} - 1) / 2;
        const int64_t cy = int64_t{ratioSizeH} / 2;
        const double dx = static_cast<double>(sx - cx);
        const double dy = static_cast<double>(sy - cy);
        const int32_t rx = TruncOrLowest(dx * Cos(a) - dy * Sin(a));
        const int32_t ry = TruncOrLowest(dy * Cos(a) + dx * Sin(a));
        pasteX = ClampToInt32(int64_t{one.xa} - rx);
        pasteY = ClampToInt32(int64_t{one.ya} + ry);

        if (side != 0) {
            seam = BlockOwner(SeamMask(width2, height2, two.xa, y2a, two.xb, y2b, side));
            if (!seam) return nullptr;
        }
    }
    const DibPair scaled = ResizeDib(second, seam.get(), ratioSizeW, ratioSizeH, 1, noDialog, 1);
    if (scaled.image == nullptr) return nullptr;
    const BlockOwner scaledImage(scaled.image);
    const BlockOwner scaledMask(scaled.mask);
    return PasteImageCore(first, scaled.image, scaled.mask, angle, 0, 0, 255, backRed, backGreen, backBlue,
                          pasteX, pasteY, 0, noDialog, 1);
}

}  // namespace

double DirectionDegrees(int32_t x0, int32_t y0, int32_t x1, int32_t y1) {
    int32_t q;
    if (x1 >= x0) {
        q = y1 >= y0 ? 0 : 3;
    } else {
        q = y1 >= y0 ? 1 : 2;
    }
    const auto dX = static_cast<double>(std::llabs(int64_t{x1} - x0));
    const auto dY = static_cast<double>(std::llabs(int64_t{y1} - y0));
    double b;
    if (q == 0 || q == 2) {
        b = dX == 0 ? kHalfPi : Atan2(dY, dX);
    } else {
        b = dY == 0 ? kHalfPi : Atan2(dX, dY);
    }
    return ((b + q * kHalfPi) / kPi) * 180.0;
}

SeamEnds SeamLineEnds(int32_t width, int32_t height, int32_t xa, int32_t ya, int32_t xb, int32_t yb) {
    if (xa == xb) return SeamEnds{xa, -10, xa, ClampToInt32(int64_t{height} + 9)};
    if (ya == yb) {
        const int32_t y = ClampToInt32(int64_t{height} - 1 - ya);
        return SeamEnds{-10, y, ClampToInt32(int64_t{width} + 9), y};
    }
    const double m = static_cast<double>(int64_t{yb} - ya) / static_cast<double>(int64_t{xb} - xa);
    const double b = ya - xa * m;
    int32_t minX = INT32_MAX;
    int32_t maxX = 0;
    const int64_t wideRight = int64_t{width} + 9;
    for (int64_t yy = -10; yy <= int64_t{height} + 9; ++yy) {
        const double v = (static_cast<double>(yy) - b) / m;
        const int32_t xi = v < 0 ? TruncToInt32(v - 0.5) : TruncToInt32(v + 0.5);
        if (xi < minX) minX = std::max(xi, -10);
        if (xi > maxX) maxX = ClampToInt32(std::min<int64_t>(xi, wideRight));
    }
    const auto endY = [&](int32_t x) { return ClampToInt32(int64_t{height} - 1 - TruncToInt32(x * m + b)); };
    return SeamEnds{minX, endY(minX), maxX, endY(maxX)};
}

}  // namespace tz3

extern "C" TZ3_API DibHandle TZ3Panorama(DibHandle first, DibHandle second, int32_t seamSide, int32_t x1a,
                                         int32_t y1a, int32_t x1b, int32_t y1b, int32_t x2a, int32_t y2a,
                                         int32_t x2b, int32_t y2b, int32_t backRed, int32_t backGreen,
                                         int32_t backBlue, int32_t noDialog, intptr_t dialog1,
                                         intptr_t dialog2, intptr_t dialog3) {
    using namespace tz3;
    return RunExport<DibHandle>(noDialog, dialog1, dialog2, dialog3, [&] {
        return Panorama(first, second, seamSide, Segment{x1a, y1a, x1b, y1b}, Segment{x2a, y2a, x2b, y2b},
                        backRed, backGreen, backBlue, noDialog);
    });
}
