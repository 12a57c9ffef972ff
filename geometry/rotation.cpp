// Rotation: the image (and its mask) is mirrored on private copies when asked, then turned about its
// centre into a new image. Right angles (0, +-9000, +-18000, +-27000) move pixels by a fixed table
// with no arithmetic on coordinates. Every other angle walks the target and maps each pixel back:
//
//   sx = x * ci - y * si,  sy = x * si + y * ci     (ci, si: cosine and sine of -angle, as floats)
//
// in centred coordinates with no half-pixel offset. The row terms y * si and y * ci are floats; each
// position is formed in double from those floats and rounded to a float once. The source pixel is
// the one at the truncated position, so a position up to a pixel beyond the outer edge still counts
// as inside. Bilinear sampling pivots on that pixel and takes its neighbours away from the centre,
// where truncation pulled the position from; a neighbour beyond the edge is the background colour,
// so the picture's edges fade into the background.
//
//   depth  interpolates            background                   pixel
//   1, 4   no                      nearest palette index        bit / nibble, OR-ed into the zero row
//   8      only a gray palette     nearest palette index        index; blends gray levels
//   16     yes                     packed background colour     expanded and packed on every path (lossy)
//   24     yes                     blue, green, red             three bytes
//   32     yes                     three bytes                  three bytes; the fourth stays 0
#include "geometry/rotation.h"

#include <cstring>

#include "frame/arith.h"
#include "frame/call.h"
#include "frame/colour_tables.h"
#include "frame/maths.h"
#include "frame/pixel.h"
#include "geometry/mirror.h"

namespace tz3 {
namespace {

// The library's pi; its digits are part of every turned image and are kept as they are.
constexpr double kPi = 3.141592657;
constexpr int32_t kMaxAngle = 35999;

// Centred bounds of one axis of length n: n / 2 pixels before the centre and the rest after it.
struct AxisBounds {
    int32_t lo, hi;
};
AxisBounds CentredBounds(int32_t n) { return AxisBounds{-(n / 2), (n % 2 != 0) ? n / 2 : n / 2 - 1}; }

bool IsRightAngle(int32_t angle) {
    switch (angle) {
        case 0: case 9000: case 18000: case 27000: case -9000: case -18000: case -27000: return true;
        default: return false;
    }
}

// The outer edge of the turned corners: one more pixel away from the centre, with 0 counted as
// positive so that a bound of exactly 0 becomes 1.
int64_t OuterEdge(float v) {
    const double widened = v < 0.0F ? static_cast<double>(v) - 1.0 : static_cast<double>(v) + 1.0;
    return TruncToInt32(widened);
}

// ---- pixel formats ----------------------------------------------------------------------------
// Each format says how to read a pixel at a column, how to write one into a zeroed target row and
// how to paint the background. Formats that interpolate also expose their channels.

struct Bits1Format {
    static constexpr bool kBilinear = false;
    using Colour = uint8_t;
    uint8_t background;  // a palette index; its low bit is what a 1-bit pixel can hold
    static Colour Load(const uint8_t *row, int32_t x) { return static_cast<uint8_t>((row[x >> 3] >> (7 - (x & 7))) & 1); }
    static void Store(uint8_t *row, int32_t x, Colour c) {
        row[x >> 3] = static_cast<uint8_t>(row[x >> 3] | ((c & 1) << (7 - (x & 7))));
    }
    void Fill(uint8_t *row, int32_t x) const { Store(row, x, background); }
};

struct Bits4Format {
    static constexpr bool kBilinear = false;
    using Colour = uint8_t;
    uint8_t background;
    static Colour Load(const uint8_t *row, int32_t x) {
        return static_cast<uint8_t>((x & 1) ? (row[x >> 1] & 15) : (row[x >> 1] >> 4));
    }
    // An even column is the high nibble.
    static void Store(uint8_t *row, int32_t x, Colour c) {
        const int32_t v = c & 15;
        row[x >> 1] = static_cast<uint8_t>(row[x >> 1] | ((x & 1) ? v : v << 4));
    }
    void Fill(uint8_t *row, int32_t x) const { Store(row, x, background); }
};

struct Index8Format {
    static constexpr bool kBilinear = false;
    using Colour = uint8_t;
    uint8_t background;
    static Colour Load(const uint8_t *row, int32_t x) { return row[x]; }
    static void Store(uint8_t *row, int32_t x, Colour c) { row[x] = c; }
    void Fill(uint8_t *row, int32_t x) const { row[x] = background; }
};

// An 8-bit gray image blends gray levels, not indices: index to level through the first half of the
// map and back through the second, so a gray palette in any order interpolates correctly.
struct Gray8Format {
    static constexpr bool kBilinear = true;
    static constexpr int32_t kChannels = 1;
    using Colour = uint8_t;  // a gray level
    uint8_t backgroundIndex;
    Colour background;  // the level of the background index, for neighbours beyond the edge
    const uint8_t *toLevel;
    const uint8_t *toIndex;
    Colour Load(const uint8_t *row, int32_t x) const { return toLevel[row[x]]; }
    void Store(uint8_t *row, int32_t x, Colour level) const { row[x] = toIndex[level]; }
    void Fill(uint8_t *row, int32_t x) const { row[x] = backgroundIndex; }
    static double Channel(Colour c, int32_t) { return c; }
    static void SetChannel(Colour &c, int32_t, uint8_t v) { c = v; }
};

// 16, 24 and 32 bits through their pixel records: a 16-bit pixel is expanded and packed even when it
// is only copied, and a 32-bit pixel's fourth byte is never written.
template <class Pix>
struct DirectFormat {
    static constexpr bool kBilinear = true;
    static constexpr int32_t kChannels = 3;
    using Colour = Rgb;
    Colour background;
    static Colour Load(const uint8_t *row, int32_t x) { return Pix::Fetch(row + static_cast<size_t>(x) * Pix::kBytes); }
    static void Store(uint8_t *row, int32_t x, Colour c) { Pix::Store(row + static_cast<size_t>(x) * Pix::kBytes, c); }
    void Fill(uint8_t *row, int32_t x) const { Store(row, x, background); }
    static double Channel(const Colour &c, int32_t i) { return i == 0 ? c.r : i == 1 ? c.g : c.b; }
    static void SetChannel(Colour &c, int32_t i, uint8_t v) { (i == 0 ? c.r : i == 1 ? c.g : c.b) = v; }
};

// ---- the walk -----------------------------------------------------------------------------------

struct Source {
    const uint8_t *bits;
    size_t stride;
    const uint8_t *maskBits;  // null without a mask
    size_t maskStride;
    int32_t width, height;
};

struct Target {
    uint8_t *bits;
    size_t stride;
    uint8_t *maskBits;  // null without a mask
    size_t maskStride;
    int32_t width, height;
};

struct Span {
    int32_t low, high, noDialog;
};

bool Report(int32_t step, int32_t last, const Span &span) {
    if (PercentProgress(step, last, span.low, span.high, span.noDialog) != 0) return true;
    SetErrorStatus(TZ3_CANCELLED);
    return false;
}

inline void CopyMaskBit(const Source &src, int32_t col, int32_t row, const Target &dst, uint8_t *maskRow,
                        int32_t x) {
    const uint8_t *from = src.maskBits + src.maskStride * static_cast<size_t>(row);
    if (MaskBitSet(from, col)) maskRow[x >> 3] = static_cast<uint8_t>(maskRow[x >> 3] | (0x80u >> (x & 7)));
    (void)dst;
}

// Right angles: target (x, y) reads source (col0 + x * dcol, row0 + x * drow) with the start and the
// steps fixed for each row by the angle; positions outside the source take the background.
template <class Fmt>
bool TurnRightAngle(const Fmt &fmt, const Source &src, const Target &dst, int32_t angle, int32_t offX,
                    int32_t offY, const Span &span) {
    const int32_t w = src.width;
    const int32_t h = src.height;
    for (int32_t y = 0; y < dst.height; ++y) {
        int32_t col0 = 0, row0 = 0, dcol = 0, drow = 0;
        switch (angle) {
            case 0: col0 = 0; row0 = y; dcol = 1; break;
            case 9000: case -27000: col0 = y - offX; row0 = h - 1 - offY; drow = -1; break;
            case 18000: case -18000: col0 = w - 1; row0 = h - 1 - y; dcol = -1; break;
            default: col0 = offX + w - 1 - y; row0 = offY; drow = 1; break;  // 27000, -9000
        }
        uint8_t *row = dst.bits + dst.stride * static_cast<size_t>(y);
        uint8_t *maskRow = dst.maskBits != nullptr ? dst.maskBits + dst.maskStride * static_cast<size_t>(y) : nullptr;
        for (int32_t x = 0; x < dst.width; ++x) {
            const int32_t col = col0 + x * dcol;
            const int32_t srow = row0 + x * drow;
            if (col < 0 || col >= w || srow < 0 || srow >= h) {
                fmt.Fill(row, x);
                continue;
            }
            fmt.Store(row, x, fmt.Load(src.bits + src.stride * static_cast<size_t>(srow), col));
            if (maskRow != nullptr) CopyMaskBit(src, col, srow, dst, maskRow, x);
        }
        if (!Report(y, dst.height - 1, span)) return false;
    }
    return true;
}

// The turn of every other angle, over the target box L..R by T..B in centred coordinates.
struct GeneralTurn {
    float ci, si;
    int32_t left, right, top, bottom;
    AxisBounds xs, ys;
};

// Bilinear value of one channel from the pivot c00, its horizontal neighbour c10, its vertical one
// c01 and the diagonal c11, in double, truncated without rounding and clamped.
inline uint8_t Blend(double c00, double c10, double c01, double c11, double dx, double dy) {
    const double v = (c11 * dx + c01 * (1.0 - dx)) * dy + (c00 * (1.0 - dx) + c10 * dx) * (1.0 - dy);
    return TruncClamp255(v);
}

template <class Fmt, bool Bilinear>
bool TurnGeneral(const Fmt &fmt, const Source &src, const Target &dst, const GeneralTurn &turn, const Span &span) {
    const double ci = turn.ci;
    const double si = turn.si;
    const int32_t xMin = turn.xs.lo, xMax = turn.xs.hi, yMin = turn.ys.lo, yMax = turn.ys.hi;
    for (int32_t y = turn.top; y <= turn.bottom; ++y) {
        const auto ys = static_cast<double>(static_cast<float>(static_cast<double>(y) * si));
        const auto yc = static_cast<double>(static_cast<float>(static_cast<double>(y) * ci));
        uint8_t *row = dst.bits + dst.stride * static_cast<size_t>(y - turn.top);
        uint8_t *maskRow =
            dst.maskBits != nullptr ? dst.maskBits + dst.maskStride * static_cast<size_t>(y - turn.top) : nullptr;
        int32_t tx = 0;
        for (int32_t x = turn.left; x <= turn.right; ++x, ++tx) {
            const auto xd = static_cast<double>(x);
            const auto sx = static_cast<float>(xd * ci - ys);
            const auto sy = static_cast<float>(xd * si + yc);
            const auto f = static_cast<int32_t>(sx);
            const auto g = static_cast<int32_t>(sy);
            if (f < xMin || f > xMax || g < yMin || g > yMax) {
                fmt.Fill(row, tx);
                continue;
            }
            const int32_t col = f - xMin;
            const int32_t srow = g - yMin;
            const uint8_t *from = src.bits + src.stride * static_cast<size_t>(srow);
            if (maskRow != nullptr) CopyMaskBit(src, col, srow, dst, maskRow, tx);
            if constexpr (!Bilinear) {
                fmt.Store(row, tx, fmt.Load(from, col));
            } else {
                // Truncation pulled the position toward the centre, so the neighbours lie away from it.
                int32_t ncol, nrow;
                bool hasCol, hasRow;
                float dx, dy;
                if (sx > 0.0F) {
                    ncol = col + 1;
                    hasCol = col < src.width - 1;
                    dx = static_cast<float>(static_cast<double>(sx) - f);
                } else {
                    ncol = col - 1;
                    hasCol = col > 0;
                    dx = static_cast<float>(f - static_cast<double>(sx));
                }
                if (sy > 0.0F) {
                    nrow = srow + 1;
                    hasRow = srow < src.height - 1;
                    dy = static_cast<float>(static_cast<double>(sy) - g);
                } else {
                    nrow = srow - 1;
                    hasRow = srow > 0;
                    dy = static_cast<float>(g - static_cast<double>(sy));
                }
                const uint8_t *nfrom = hasRow ? src.bits + src.stride * static_cast<size_t>(nrow) : nullptr;
                const typename Fmt::Colour c00 = fmt.Load(from, col);
                const typename Fmt::Colour c10 = hasCol ? fmt.Load(from, ncol) : fmt.background;
                const typename Fmt::Colour c01 = hasRow ? fmt.Load(nfrom, col) : fmt.background;
                const typename Fmt::Colour c11 = hasCol && hasRow ? fmt.Load(nfrom, ncol) : fmt.background;
                typename Fmt::Colour out{};
                for (int32_t i = 0; i < Fmt::kChannels; ++i) {
                    Fmt::SetChannel(out, i,
                                    Blend(Fmt::Channel(c00, i), Fmt::Channel(c10, i), Fmt::Channel(c01, i),
                                          Fmt::Channel(c11, i), static_cast<double>(dx), static_cast<double>(dy)));
                }
                fmt.Store(row, tx, out);
            }
        }
        if (!Report(y - turn.top, turn.bottom - turn.top, span)) return false;
    }
    return true;
}

// Everything a worker needs besides its format.
struct Plan {
    bool rightAngle;
    int32_t angle;
    int32_t offX, offY;  // right angles with keepSize
    GeneralTurn turn;
    bool interpolate;
};

template <class Fmt>
bool RunTurn(const Fmt &fmt, const Source &src, const Target &dst, const Plan &plan, const Span &span) {
    if (plan.rightAngle) return TurnRightAngle(fmt, src, dst, plan.angle, plan.offX, plan.offY, span);
    if constexpr (Fmt::kBilinear) {
        if (plan.interpolate) return TurnGeneral<Fmt, true>(fmt, src, dst, plan.turn, span);
    }
    return TurnGeneral<Fmt, false>(fmt, src, dst, plan.turn, span);
}

// A locked copy of a whole image, for the flips; empty with the status set on failure.
OwnedBlock WholeCopy(const uint8_t *dib) {
    DibHandle clone = CloneDib(dib, DibWidth(dib), DibHeight(dib), 1);
    if (clone == nullptr) return OwnedBlock();
    OwnedBlock owned(clone);
    if (!owned) SetErrorStatus(TZ3_NO_MEMORY);
    return owned;
}

// A new zeroed image with dib's header and table at the given size; empty with the status set.
OwnedBlock NewImage(const uint8_t *dib, int32_t width, int32_t height) {
    DibHandle clone = CloneDib(dib, width, height, 0);
    if (clone == nullptr) return OwnedBlock();
    OwnedBlock owned(clone);
    if (!owned) SetErrorStatus(TZ3_NO_MEMORY);
    return owned;
}

}  // namespace

DibPair RotateDib(DibHandle image, DibHandle mask, int32_t angle, int32_t flipHorizontal, int32_t flipVertical,
                  int32_t interpolate, int32_t backRed, int32_t backGreen, int32_t backBlue, int32_t keepSize,
                  int32_t noDialog) {
    if (image == nullptr) {
        SetErrorStatus(TZ3_BAD_IMAGE);
        return DibPair{};
    }
    angle = ClampInt(angle, -kMaxAngle, kMaxAngle);
    LockedBlock imageLock(image);
    if (!imageLock) {
        SetErrorStatus(TZ3_NO_MEMORY);
        return DibPair{};
    }
    LockedBlock maskLock;
    if (mask != nullptr) {
        maskLock = LockedBlock(mask);
        if (!maskLock) {
            SetErrorStatus(TZ3_NO_MEMORY);
            return DibPair{};
        }
    }
    const uint8_t *dib = imageLock.bytes();
    // A 16-bit image accepted without channel masks is read as 5-5-5.
    uint32_t redMask = kRed555Mask, greenMask = 0, blueMask = 0;
    if (!CheckDibBlock(dib, imageLock.size())) return DibPair{};
    if (!CheckDibFormat(dib, kFormatAll, &redMask, &greenMask, &blueMask)) return DibPair{};
    const uint8_t *maskDib = maskLock.bytes();
    if (maskDib != nullptr) {
        if (!CheckMaskFits(dib, maskDib)) return DibPair{};
        if (!CheckDibBlock(maskDib, maskLock.size())) return DibPair{};
    }

    // The flips run on private copies, the horizontal one first, each with its share of progress.
    const bool flipH = flipHorizontal != 0;
    const bool flipV = flipVertical != 0;
    OwnedBlock imageCopy, maskCopy;
    Span span{0, 100, noDialog};
    if (flipH || flipV) {
        imageCopy = WholeCopy(dib);
        if (!imageCopy) return DibPair{};
        if (maskDib != nullptr) {
            maskCopy = WholeCopy(maskDib);
            if (!maskCopy) return DibPair{};
        }
        dib = imageCopy.bytes();
        maskDib = maskCopy.bytes();
        uint8_t *copy = imageCopy.bytes();
        uint8_t *copyMask = maskCopy.bytes();
        if (flipH && flipV) {
            if (!FlipDibHorizontal(copy, copyMask, noDialog, 0, 5)) return DibPair{};
            if (!FlipDibVertical(copy, copyMask, noDialog, 6, 10)) return DibPair{};
            span.low = 11;
        } else if (flipH) {
            if (!FlipDibHorizontal(copy, copyMask, noDialog, 0, 5)) return DibPair{};
            span.low = 6;
        } else {
            if (!FlipDibVertical(copy, copyMask, noDialog, 0, 5)) return DibPair{};
            span.low = 6;
        }
    }

    const int32_t w = DibWidth(dib);
    const int32_t h = DibHeight(dib);
    Plan plan{};
    plan.angle = angle;
    plan.rightAngle = IsRightAngle(angle);
    plan.interpolate = interpolate != 0;
    plan.turn.xs = CentredBounds(w);
    plan.turn.ys = CentredBounds(h);
    int64_t newWidth = w, newHeight = h;
    if (plan.rightAngle) {
        const bool quarter = angle == 9000 || angle == 27000 || angle == -9000 || angle == -27000;
        if (keepSize != 0) {
            plan.offY = (h - w) / 2;
            plan.offX = (h - w) - plan.offY;
        } else if (quarter) {
            newWidth = h;
            newHeight = w;
        }
    } else {
        // The angle in radians is formed in double in this order; the four trigonometric values are
        // floats.
        const double a = ((angle / 100.0) * kPi) / 180.0;
        const auto c = static_cast<float>(Cos(a));
        const auto s = static_cast<float>(Sin(a));
        plan.turn.ci = static_cast<float>(Cos(-a));
        plan.turn.si = static_cast<float>(Sin(-a));
        if (keepSize != 0) {
            plan.turn.left = plan.turn.xs.lo;
            plan.turn.right = plan.turn.xs.hi;
            plan.turn.top = plan.turn.ys.lo;
            plan.turn.bottom = plan.turn.ys.hi;
        } else {
            // The corners turned forward, each product and each sum a float; the bounds start at 0.
            const int32_t cx[4] = {plan.turn.xs.lo, plan.turn.xs.lo, plan.turn.xs.hi, plan.turn.xs.hi};
            const int32_t cy[4] = {plan.turn.ys.lo, plan.turn.ys.hi, plan.turn.ys.hi, plan.turn.ys.lo};
            float minX = 0.0F, maxX = 0.0F, minY = 0.0F, maxY = 0.0F;
            for (int32_t i = 0; i < 4; ++i) {
                const auto xc = static_cast<float>(static_cast<double>(cx[i]) * c);
                const auto ys = static_cast<float>(static_cast<double>(cy[i]) * s);
                const auto xs = static_cast<float>(static_cast<double>(cx[i]) * s);
                const auto yc = static_cast<float>(static_cast<double>(cy[i]) * c);
                const float tx = xc - ys;
                const float ty = xs + yc;
                if (tx < minX) minX = tx;
                if (tx > maxX) maxX = tx;
                if (ty < minY) minY = ty;
                if (ty > maxY) maxY = ty;
            }
            const int64_t left = OuterEdge(minX), right = OuterEdge(maxX);
            const int64_t top = OuterEdge(minY), bottom = OuterEdge(maxY);
            newWidth = right - left + 1;
            newHeight = bottom - top + 1;
            plan.turn.left = static_cast<int32_t>(left);
            plan.turn.right = static_cast<int32_t>(right);
            plan.turn.top = static_cast<int32_t>(top);
            plan.turn.bottom = static_cast<int32_t>(bottom);
        }
    }
    // A turned picture wider or taller than a signed 32-bit size cannot be held in any block.
    if (newWidth > INT32_MAX || newHeight > INT32_MAX) {
        SetErrorStatus(TZ3_NO_MEMORY);
        return DibPair{};
    }

    OwnedBlock out = NewImage(dib, static_cast<int32_t>(newWidth), static_cast<int32_t>(newHeight));
    if (!out) return DibPair{};
    OwnedBlock outMask;
    if (maskDib != nullptr) {
        outMask = NewImage(maskDib, static_cast<int32_t>(newWidth), static_cast<int32_t>(newHeight));
        if (!outMask) return DibPair{};
    }

    const Source src{DibBits(dib),
                     static_cast<size_t>(DibRowBytes(dib)),
                     maskDib != nullptr ? DibBits(maskDib) : nullptr,
                     maskDib != nullptr ? static_cast<size_t>(DibRowBytes(maskDib)) : 0,
                     w,
                     h};
    const Target dst{DibBits(out.bytes()),
                     static_cast<size_t>(DibRowBytes(out.bytes())),
                     outMask ? DibBits(outMask.bytes()) : nullptr,
                     outMask ? static_cast<size_t>(DibRowBytes(outMask.bytes())) : 0,
                     static_cast<int32_t>(newWidth),
                     static_cast<int32_t>(newHeight)};

    const auto red = static_cast<uint8_t>(backRed);
    const auto green = static_cast<uint8_t>(backGreen);
    const auto blue = static_cast<uint8_t>(backBlue);
    bool done = false;
    switch (DibBitCount(dib)) {
        case 1: done = RunTurn(Bits1Format{NearestPaletteIndex(red, green, blue, dib)}, src, dst, plan, span); break;
        case 4: done = RunTurn(Bits4Format{NearestPaletteIndex(red, green, blue, dib)}, src, dst, plan, span); break;
        case 8: {
            // The level map is made for every 8-bit image, gray or not.
            GrayLevelMap map;
            if (!BuildGrayLevelMap(dib, map)) return DibPair{};
            const uint8_t index = NearestPaletteIndex(red, green, blue, dib);
            if (plan.interpolate && !plan.rightAngle && IsGrayPalette(dib)) {
                done = TurnGeneral<Gray8Format, true>(Gray8Format{index, map.toLevel[index], map.toLevel, map.toIndex},
                                                      src, dst, plan.turn, span);
            } else {
                done = RunTurn(Index8Format{index}, src, dst, plan, span);
            }
            break;
        }
        case 16:
            if (redMask == kRed555Mask) {
                done = RunTurn(DirectFormat<Pix16x555>{Rgb{red, green, blue}}, src, dst, plan, span);
            } else {
                done = RunTurn(DirectFormat<Pix16x565>{Rgb{red, green, blue}}, src, dst, plan, span);
            }
            break;
        case 24: done = RunTurn(DirectFormat<Pix24>{Rgb{red, green, blue}}, src, dst, plan, span); break;
        case 32: done = RunTurn(DirectFormat<Pix32>{Rgb{red, green, blue}}, src, dst, plan, span); break;
        default: SetErrorStatus(TZ3_BAD_DEPTH); break;
    }
    if (!done) return DibPair{};
    DibPair result{};
    result.mask = outMask ? outMask.Release() : nullptr;
    result.image = out.Release();
    return result;
}

}  // namespace tz3

extern "C" TZ3_API DibPair TZ3Rotation(const DibPair *source, int32_t angle, int32_t flipHorizontal,
                                       int32_t flipVertical, int32_t interpolate, int32_t backRed,
                                       int32_t backGreen, int32_t backBlue, int32_t keepSize, int32_t noDialog,
                                       intptr_t dialog1, intptr_t dialog2, intptr_t dialog3) {
    using namespace tz3;
    return RunExport<DibPair>(noDialog, dialog1, dialog2, dialog3, [&] {
        const DibPair pair = source != nullptr ? *source : DibPair{nullptr, nullptr};
        return RotateDib(pair.image, pair.mask, angle, flipHorizontal, flipVertical, interpolate, backRed, backGreen,
                         backBlue, keepSize, noDialog);
    });
}

extern "C" TZ3_API int32_t TZ3RotationEx(const DibPair *source, DibPair *result, int32_t angle,
                                         int32_t flipHorizontal, int32_t flipVertical, int32_t interpolate,
                                         int32_t backRed, int32_t backGreen, int32_t backBlue, int32_t keepSize,
                                         int32_t noDialog, intptr_t dialog1, intptr_t dialog2, intptr_t dialog3) {
    using namespace tz3;
    return RunExport<int32_t>(noDialog, dialog1, dialog2, dialog3, [&]() -> int32_t {
        // With nowhere to put the pair the turn would only leak it.
        if (result == nullptr) {
            SetErrorStatus(TZ3_BAD_PARAMETER);
            return 0;
        }
        const DibPair pair = source != nullptr ? *source : DibPair{nullptr, nullptr};
        *result = RotateDib(pair.image, pair.mask, angle, flipHorizontal, flipVertical, interpolate, backRed,
                            backGreen, backBlue, keepSize, noDialog);
        return result->image != nullptr ? 1 : 0;
    });
}
