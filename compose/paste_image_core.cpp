// Paste: the source, optionally mirrored and flipped, is turned about its centre pixel and laid on
// the target with an opacity; the result is always a new 24-bit image.
//
// Paste coordinates have their origin at the source's centre pixel, x to the right and y up (rising
// row numbers). The source covers xl..xh by yl..yh, an extent that is not symmetric: an even width
// reaches one further right than left, an even height one further down than up, and results depend
// on that. The target lies at columns -pasteX..Wt - 1 - pasteX and rows pasteY - (Ht - 1)..pasteY.
//
//   step            what it does
//   box             corners (no mask) or every set mask bit but those of the last column and row
//                   are turned forward; the box always holds the origin
//   right angles    nearest pixel through a fixed column/row table, no filter
//   other angles    turned back, four taps; a tap outside the source or its mask comes from the
//                   target at the same step in the target's own axes, else from the background
//   T               the target's pixel, or S itself outside the target, so that there the source
//                   stays fully visible at any opacity
//   blend           per channel, from a table built for the call's opacity; where an unturned,
//                   unmasked source overlaps the target, whole row stretches at once, and 24-bit
//                   rows as the integer quotient when the table is checked to be exactly that
//
//   depth   read (source and target alike)
//   1/4/8   index into the colour table, unbounded (a copy of 256 entries, block-bounded)
//   16      ChannelExpand16, 5-5-5 or 5-6-5 by the red mask
//   24/32   the first three bytes; a 32-bit pixel's fourth byte is not read
#include "compose/paste_image_core.h"

#include <algorithm>
#include <cstring>
#include <type_traits>

#include "frame/arith.h"
#include "frame/maths.h"
#include "frame/region.h"
#include "geometry/mirror.h"
#include "platform/companion.h"

namespace tz3 {

Rgb ReadDibPixel(const uint8_t *dib, size_t blockSize, int32_t column, int32_t row, uint32_t redMask) {
    PaletteCopy table;
    const uint16_t bitCount = DibBitCount(dib);
    if (bitCount <= 8) CopyPalette(dib, blockSize, table);
    const uint8_t *rowBytes = DibBits(dib) + static_cast<size_t>(DibRowBytes(dib)) * static_cast<size_t>(row);
    return WithPixelReader(dib, redMask, table, [&](auto read) { return read(rowBytes, column); });
}

void CopyPalette(const uint8_t *dib, size_t blockSize, PaletteCopy &out) {
    const auto byteAt = [&](size_t at) -> uint8_t { return at < blockSize ? dib[at] : 0; };
    for (size_t i = 0; i < 256; ++i) {
        const size_t at = kHeaderBytes + 4 * i;
        out.entries[i] = Rgb{byteAt(at + 2), byteAt(at + 1), byteAt(at)};
    }
}

OwnedBlock BuildBlendTable(uint8_t opacity) {
    OwnedBlock table = AllocLocked(256 * 256);
    if (!table) return table;
    uint8_t *entry = table.bytes();
    for (int32_t s = 0; s < 256; ++s) {
        for (int32_t t = 0; t < 256; ++t) {
            *entry++ = BlendChannel(static_cast<uint8_t>(s), static_cast<uint8_t>(t), opacity);
        }
    }
    return table;
}

RowBlend MakeRowBlend(const uint8_t *table, uint8_t opacity) {
    RowBlend blend{table, opacity, true};
    for (uint32_t s = 0; s < 256 && blend.quotient; ++s) {
        for (uint32_t t = 0; t < 256; ++t) {
            if (table[s << 8 | t] != (opacity * s + (255u - opacity) * t) / 255u) {
                blend.quotient = false;
                break;
            }
        }
    }
    return blend;
}

void BlendBytes(const uint8_t *s, const uint8_t *t, size_t count, const RowBlend &blend, uint8_t *out) {
    if (!blend.quotient) {
        for (size_t i = 0; i < count; ++i) out[i] = blend.table[static_cast<size_t>(s[i]) << 8 | t[i]];
        return;
    }
    // The same bytes as the table, in 16-bit arithmetic that the compiler can run many bytes wide.
    const auto a = static_cast<uint16_t>(blend.opacity);
    const auto inverse = static_cast<uint16_t>(255 - blend.opacity);
    for (size_t i = 0; i < count; ++i) {
        const auto sum = static_cast<uint16_t>(a * s[i] + inverse * t[i]);  // at most 255 x 255
        out[i] = static_cast<uint8_t>(sum / 255);
    }
}

OwnedBlock AllocResult24(int64_t width, int64_t height) {
    // 24 x width must stay a signed 32-bit product for the stride rule to hold.
    if (width < 1 || height < 1 || width > INT32_MAX / 24 || height > INT32_MAX) {
        SetErrorStatus(TZ3_NO_MEMORY);
        return OwnedBlock();
    }
    const int32_t stride = DibRowBytes(24, static_cast<int32_t>(width));
    const uint64_t pixels = static_cast<uint64_t>(stride) * static_cast<uint64_t>(height);
    OwnedBlock result = AllocLocked(pixels + kHeaderBytes);
    if (!result) return result;
    uint8_t *head = result.bytes();
    WriteU32(head, kHeaderBytes);
    WriteU32(head + kWidthOffset, static_cast<uint32_t>(width));
    WriteU32(head + kHeightOffset, static_cast<uint32_t>(height));
    WriteU16(head + kPlanesOffset, 1);
    WriteU16(head + kBitCountOffset, 24);
    WriteU32(head + kCompressionOffset, kBiRgb);
    WriteU32(head + kSizeImageOffset, static_cast<uint32_t>(pixels));
    return result;
}

namespace {

// Angles in hundredths of a degree whose turn is taken as exact: the box is truncated and pixels
// are picked one to one.
bool IsRightAngle(int32_t angle) {
    return angle == 0 || angle == 9000 || angle == 18000 || angle == 27000 || angle == -9000 ||
           angle == -18000 || angle == -27000;
}

// The right angle as one of 0, 9000, 18000, 27000.
int32_t RightAngleTurn(int32_t angle) {
    return angle < 0 ? angle + 36000 : angle;
}

struct FloatBox {
    float minX = 0, maxX = 0, minY = 0, maxY = 0;
    void Extend(float x, float y) {
        minX = std::min(minX, x);
        maxX = std::max(maxX, x);
        minY = std::min(minY, y);
        maxY = std::max(maxY, y);
    }
};

// The first and last set bit among columns 0..count - 1 of a mask row; false when none is set.
bool SetBitSpan(const uint8_t *row, int32_t count, int32_t *first, int32_t *last) {
    if (count <= 0) return false;
    const int32_t lastByte = (count - 1) >> 3;
    // Bits of the final byte at or past `count` are not looked at.
    const auto byteAt = [&](int32_t i) -> uint32_t {
        uint32_t b = row[i];
        if (i == lastByte) b &= 0xFFu << (7 - ((count - 1) & 7)) & 0xFFu;
        return b;
    };
    int32_t i = 0;
    while (i <= lastByte && byteAt(i) == 0) ++i;
    if (i > lastByte) return false;
    *first = 8 * i + (__builtin_clz(byteAt(i)) - 24);
    int32_t j = lastByte;
    while (byteAt(j) == 0) --j;
    *last = 8 * j + 7 - __builtin_ctz(byteAt(j));
    return true;
}

// Everything about the walk that stays the same over the image.
struct PasteFrame {
    // Source and its extent about the centre pixel.
    const uint8_t *srcBits;
    size_t srcStride;
    int32_t width, height;
    int32_t xl, yl;
    const uint8_t *maskBits;  // null without a mask
    size_t maskStride;
    // Target and its rectangle in paste coordinates.
    const uint8_t *tgtBits;
    size_t tgtStride;
    int32_t targetWidth, targetHeight;
    int64_t pasteX, bottom;
    // The box the turned source occupies.
    int64_t minX, maxX, minY, maxY;
    int32_t rightTurn;  // 0, 9000, 18000 or 27000 on the nearest-pixel path, else -1
    float cosB, sinB;
    Rgb back;
    const uint8_t *blend;
    RowBlend rowBlend;
};

template <class SrcRead, class TgtRead>
struct PasteWalker {
    const PasteFrame &f;
    SrcRead src;
    TgtRead tgt;

    bool InSource(int64_t col, int64_t row) const {
        return col >= 0 && col < f.width && row >= 0 && row < f.height;
    }
    bool MaskSet(int64_t col, int64_t row) const {
        return f.maskBits == nullptr ||
               MaskBitSet(f.maskBits + f.maskStride * static_cast<size_t>(row), static_cast<int32_t>(col));
    }
    Rgb Source(int64_t col, int64_t row) const {
        return src(f.srcBits + f.srcStride * static_cast<size_t>(row), static_cast<int32_t>(col));
    }
    bool InTarget(int64_t tx, int64_t ty) const {
        return tx >= 0 && tx < f.targetWidth && ty >= 0 && ty < f.targetHeight;
    }
    Rgb Target(int64_t tx, int64_t ty) const {
        return tgt(f.tgtBits + f.tgtStride * static_cast<size_t>(ty), static_cast<int32_t>(tx));
    }
    Rgb TargetOrBack(int64_t tx, int64_t ty) const { return InTarget(tx, ty) ? Target(tx, ty) : f.back; }

    // The source side at a right angle: one pixel, picked through the turn's column and row.
    Rgb NearestSource(int64_t x, int64_t y, int64_t tx, int64_t ty) const {
        const int64_t px = x - f.minX;
        const int64_t py = y - f.minY;
        int64_t col = px, row = py;
        switch (f.rightTurn) {
            case 9000:
                col = py;
                row = f.height - 1 - px;
                break;
            case 18000:
                col = f.width - 1 - px;
                row = f.height - 1 - py;
                break;
            case 27000:
                col = f.width - 1 - py;
                row = px;
                break;
            default:
                break;
        }
        // The box never reaches past the source's extent, so this holds for every image; it is
        // kept so that no read can leave the block whatever the turn's rounding did.
        if (!InSource(col, row) || !MaskSet(col, row)) return TargetOrBack(tx, ty);
        return Source(col, row);
    }

    bool AllMaskBitsSet(int64_t row0, int64_t row1, int32_t c0, int32_t c1) const {
        const uint8_t *m0 = f.maskBits + f.maskStride * static_cast<size_t>(row0);
        const uint8_t *m1 = f.maskBits + f.maskStride * static_cast<size_t>(row1);
        return MaskBitSet(m0, c0) && MaskBitSet(m0, c1) && MaskBitSet(m1, c0) && MaskBitSet(m1, c1);
    }

    // One tap: the source where it lies in the source and its mask, else the target at the same
    // step from (tx, ty), else the background.
    Rgb Tap(int64_t col, int64_t row, int64_t tx, int64_t ty, bool *fromSource) const {
        if (InSource(col, row) && MaskSet(col, row)) {
            *fromSource = true;
            return Source(col, row);
        }
        return TargetOrBack(tx, ty);
    }

    // The source side at any other angle: turned back, then four taps in the target's axes.
    Rgb FilteredSource(int64_t x, int64_t y, int64_t tx, int64_t ty) const {
        const auto xf = static_cast<float>(x);
        const auto yf = static_cast<float>(y);
        const float sx = xf * f.cosB - yf * f.sinB;
        const float sy = yf * f.cosB + xf * f.sinB;
        const int32_t ix = TruncToInt32(sx);
        const int32_t iy = TruncToInt32(sy);
        const int64_t col = static_cast<int64_t>(ix) - f.xl;
        const int64_t row = static_cast<int64_t>(iy) - f.yl;
        if (!InSource(col, row)) return TargetOrBack(tx, ty);
        // Truncation moves toward zero, so the neighbour lies on the side of the unrounded sign.
        int32_t dx, dy;
        float fx, fy;
        if (sx > 0) {
            dx = 1;
            fx = sx - static_cast<float>(ix);
        } else {
            dx = -1;
            fx = static_cast<float>(ix) - sx;
        }
        if (sy > 0) {
            dy = 1;
            fy = sy - static_cast<float>(iy);
        } else {
            dy = -1;
            fy = static_cast<float>(iy) - sy;
        }
        Rgb t00, t10, t01, t11;
        const int64_t col1 = col + dx, row1 = row + dy;
        const auto c0 = static_cast<int32_t>(col), c1 = static_cast<int32_t>(col1);
        // Inside the source with every mask bit set, all four taps are source pixels.
        if (col1 >= 0 && col1 < f.width && row1 >= 0 && row1 < f.height &&
            (f.maskBits == nullptr || AllMaskBitsSet(row, row1, c0, c1))) {
            const uint8_t *row0Bits = f.srcBits + f.srcStride * static_cast<size_t>(row);
            const uint8_t *row1Bits = f.srcBits + f.srcStride * static_cast<size_t>(row1);
            t00 = src(row0Bits, c0);
            t10 = src(row0Bits, c1);
            t01 = src(row1Bits, c0);
            t11 = src(row1Bits, c1);
        } else {
            bool fromSource = false;
            t00 = Tap(col, row, tx, ty, &fromSource);
            t10 = Tap(col1, row, tx + dx, ty, &fromSource);
            t01 = Tap(col, row1, tx, ty + dy, &fromSource);
            t11 = Tap(col1, row1, tx + dx, ty + dy, &fromSource);
            if (f.maskBits != nullptr && !fromSource) return TargetOrBack(tx, ty);
        }
        // The weights are single precision; the sums are not rounded to single on the way.
        const double wx1 = fx, wx0 = 1.0f - fx, wy1 = fy, wy0 = 1.0f - fy;
        // The weights are non-negative and sum to one within a rounding, so v lies in 0..255 plus
        // a few ulps: the clamp to 255 is all that can ever bite, and only after truncation.
        const auto channel = [&](uint8_t v00, uint8_t v10, uint8_t v01, uint8_t v11) {
            const auto v =
                static_cast<int32_t>((v01 * wx0 + v11 * wx1) * wy1 + (v00 * wx0 + v10 * wx1) * wy0);
            return static_cast<uint8_t>(v > 255 ? 255 : v);
        };
        return Rgb{channel(t00.r, t10.r, t01.r, t11.r), channel(t00.g, t10.g, t01.g, t11.g),
                   channel(t00.b, t10.b, t01.b, t11.b)};
    }

    void Store(uint8_t *p, Rgb s, Rgb t) const {
        p[0] = f.blend[s.b * 256 + t.b];
        p[1] = f.blend[s.g * 256 + t.g];
        p[2] = f.blend[s.r * 256 + t.r];
    }

    // One result row: paste row y over columns x0..x1. The target row is found once per row, and
    // at 0 and 180 degrees so is the source row, which the turn keeps fixed along a result row.
    void Row(int64_t y, int64_t x0, int64_t x1, uint8_t *out) const {
        const int64_t ty = y - f.bottom;
        const uint8_t *tgtRow =
            (ty >= 0 && ty < f.targetHeight) ? f.tgtBits + f.tgtStride * static_cast<size_t>(ty) : nullptr;
        const bool rowInBox = y >= f.minY && y <= f.maxY;
        const uint8_t *fixedSrc = nullptr;
        const uint8_t *fixedMask = nullptr;
        if (rowInBox && (f.rightTurn == 0 || f.rightTurn == 18000)) {
            const int64_t py = y - f.minY;
            const int64_t row = f.rightTurn == 0 ? py : f.height - 1 - py;
            if (row >= 0 && row < f.height) {
                fixedSrc = f.srcBits + f.srcStride * static_cast<size_t>(row);
                if (f.maskBits != nullptr) fixedMask = f.maskBits + f.maskStride * static_cast<size_t>(row);
            }
        }
        // Columns xa..xb, each pixel placed and read on its own.
        const auto pixels = [&](int64_t xa, int64_t xb, uint8_t *at) {
            for (int64_t x = xa; x <= xb; ++x, at += 3) {
                const int64_t tx = x + f.pasteX;
                const bool inTarget = tgtRow != nullptr && tx >= 0 && tx < f.targetWidth;
                const Rgb under = inTarget ? tgt(tgtRow, static_cast<int32_t>(tx)) : f.back;
                Rgb s = under;
                if (rowInBox && x >= f.minX && x <= f.maxX) {
                    if (fixedSrc != nullptr) {
                        const int64_t px = x - f.minX;
                        const int64_t col = f.rightTurn == 0 ? px : f.width - 1 - px;
                        if (col >= 0 && col < f.width &&
                            (fixedMask == nullptr || MaskBitSet(fixedMask, static_cast<int32_t>(col)))) {
                            s = src(fixedSrc, static_cast<int32_t>(col));
                        }
                    } else if (f.rightTurn >= 0) {
                        s = NearestSource(x, y, tx, ty);
                    } else {
                        s = FilteredSource(x, y, tx, ty);
                    }
                }
                Store(at, s, inTarget ? under : s);
            }
        };
        // Unturned and unmasked, a source row lies on the target row at a fixed offset: where both
        // cover the result, every pixel is the blend of the two at columns that step together, so
        // that stretch needs no placing and no bounds. Only the columns either side of it are
        // placed one by one.
        if (f.rightTurn == 0 && f.maskBits == nullptr && fixedSrc != nullptr && tgtRow != nullptr) {
            const int64_t lo = std::max({x0, f.minX, -f.pasteX});
            const int64_t hi = std::min({x1, f.maxX, f.minX + f.width - 1, f.targetWidth - 1 - f.pasteX});
            if (lo <= hi) {
                pixels(x0, lo - 1, out);
                BlendSpan(fixedSrc, lo - f.minX, tgtRow, lo + f.pasteX, hi - lo + 1, out + 3 * (lo - x0));
                pixels(hi + 1, x1, out + 3 * (hi + 1 - x0));
                return;
            }
        }
        pixels(x0, x1, out);
    }

    // count pixels of a source row from column col blended over a target row from column tx.
    void BlendSpan(const uint8_t *srcRow, int64_t col, const uint8_t *tgtRow, int64_t tx, int64_t count,
                   uint8_t *out) const {
        if constexpr (std::is_same_v<SrcRead, ByteReader<3>> && std::is_same_v<TgtRead, ByteReader<3>>) {
            // Both rows are blue-green-red bytes already, channel for channel in the result's order.
            BlendBytes(srcRow + 3 * col, tgtRow + 3 * tx, static_cast<size_t>(3 * count), f.rowBlend, out);
        } else {
            for (int64_t i = 0; i < count; ++i, out += 3) {
                Store(out, src(srcRow, static_cast<int32_t>(col + i)), tgt(tgtRow, static_cast<int32_t>(tx + i)));
            }
        }
    }
};

struct WalkArgs {
    int64_t x0, x1, y0, y1;
    uint8_t *outBits;
    size_t outStride;
    int32_t noDialog, percentLow, percentHigh;
};

template <class SrcRead, class TgtRead>
bool WalkPaste(const PasteFrame &f, SrcRead src, TgtRead tgt, const WalkArgs &w) {
    const PasteWalker<SrcRead, TgtRead> walker{f, src, tgt};
    for (int64_t y = w.y0; y <= w.y1; ++y) {
        walker.Row(y, w.x0, w.x1, w.outBits + w.outStride * static_cast<size_t>(y - w.y0));
        if (PercentProgress(static_cast<int32_t>(y - w.y0), static_cast<int32_t>(w.y1 - w.y0), w.percentLow,
                            w.percentHigh, w.noDialog) == 0) {
            SetErrorStatus(TZ3_CANCELLED);
            return false;
        }
    }
    return true;
}

// The float box of the set mask bits, every column but the last and every row but the last,
// turned forward in single precision. Over one row both X and Y are monotonic in x (every float
// operation rounds monotonically), so the row's first and last set bits carry its extremes.
bool ScanMaskBox(const PasteRequest &r, int32_t xl, int32_t xh, int32_t yl, int32_t yh, float cosF,
                 float sinF, FloatBox &box) {
    const uint8_t *bits = DibBits(r.mask);
    const size_t stride = static_cast<uint32_t>(DibRowBytes(r.mask));
    const int32_t columns = xh - xl;  // x runs xl..xh - 1
    for (int32_t y = yl; y < yh; ++y) {
        int32_t first = 0, last = 0;
        if (SetBitSpan(bits + stride * static_cast<size_t>(y - yl), columns, &first, &last)) {
            const auto yf = static_cast<float>(y);
            for (const int32_t col : {first, last}) {
                const auto xf = static_cast<float>(col + xl);
                box.Extend(xf * cosF - yf * sinF, yf * cosF + xf * sinF);
            }
        }
        if (PercentProgress(y - yl, yh - yl, r.percentLow, r.percentLow + 15, r.noDialog) == 0) {
            SetErrorStatus(TZ3_CANCELLED);
            return false;
        }
    }
    return true;
}

// A box value to an integer: truncated at right angles, else first pushed one away from zero.
int64_t BoxEdge(float v, bool rightAngle) {
    if (rightAngle) return TruncToInt32(v);
    // An exact 0 becomes 1, so the box can leave the centre out; that is how results are made.
    return TruncToInt32(v < 0 ? static_cast<double>(v) - 1.0 : static_cast<double>(v) + 1.0);
}

}  // namespace

DibHandle PasteRotatedDib(const PasteRequest &r) {
    const uint8_t *source = r.source.dib;
    const int32_t width = DibWidth(source);
    const int32_t height = DibHeight(source);
    // The extent about the centre pixel: an even width runs 1 - W/2..W/2, an even height
    // -(H/2)..H/2 - 1; odd sizes are symmetric.
    const int32_t xl = (width % 2 != 0) ? -(width / 2) : 1 - width / 2;
    const int32_t xh = width / 2;
    const int32_t yl = -(height / 2);
    const int32_t yh = (height % 2 != 0) ? height / 2 : height / 2 - 1;

    // The library's pi is a little off; the turn depends on it.
    const double theta = ((r.angle / 100.0) * 3.141592657) / 180.0;
    const double cosD = Cos(theta), sinD = Sin(theta);
    const auto cosF = static_cast<float>(cosD);
    const auto sinF = static_cast<float>(sinD);
    const auto cosB = static_cast<float>(Cos(-theta));
    const auto sinB = static_cast<float>(Sin(-theta));

    int32_t low = r.percentLow;
    FloatBox box;
    if (r.mask == nullptr) {
        const int32_t corners[4][2] = {{xl, yl}, {xl, yh}, {xh, yh}, {xh, yl}};
        for (const auto &c : corners) {
            box.Extend(static_cast<float>(c[0] * cosD - c[1] * sinD),
                       static_cast<float>(c[0] * sinD + c[1] * cosD));
        }
    } else {
        if (!ScanMaskBox(r, xl, xh, yl, yh, cosF, sinF, box)) return nullptr;
        low += 15;
    }

    const bool rightAngle = IsRightAngle(r.angle);
    const int64_t minX = BoxEdge(box.minX, rightAngle), maxX = BoxEdge(box.maxX, rightAngle);
    const int64_t minY = BoxEdge(box.minY, rightAngle), maxY = BoxEdge(box.maxY, rightAngle);

    const uint8_t *target = r.target.dib;
    const int32_t targetWidth = DibWidth(target);
    const int32_t targetHeight = DibHeight(target);
    const int64_t left = -static_cast<int64_t>(r.pasteX);
    const int64_t right = targetWidth - 1 - static_cast<int64_t>(r.pasteX);
    const int64_t bottom = static_cast<int64_t>(r.pasteY) - (targetHeight - 1);
    const int64_t top = r.pasteY;

    int64_t x0, x1, y0, y1, outWidth, outHeight;
    if (r.keepSize) {
        x0 = left, x1 = right, y0 = bottom, y1 = top;
        outWidth = targetWidth, outHeight = targetHeight;
    } else {
        x0 = std::min(left, minX), x1 = std::max(right, maxX);
        y0 = std::min(bottom, minY), y1 = std::max(top, maxY);
        // The size is measured from a scan that also holds 0; where the union leaves 0 out the
        // image is larger than the walk and its far columns or rows stay zero.
        outWidth = std::max<int64_t>({0, left, right, minX, maxX}) -
                   std::min<int64_t>({0, left, right, minX, maxX}) + 1;
        outHeight = std::max<int64_t>({0, bottom, top, minY, maxY}) -
                    std::min<int64_t>({0, bottom, top, minY, maxY}) + 1;
    }
    OwnedBlock result = AllocResult24(outWidth, outHeight);
    if (!result) return nullptr;
    OwnedBlock blend = BuildBlendTable(r.opacity);
    if (!blend) return nullptr;

    PaletteCopy srcTable, tgtTable;
    if (DibBitCount(source) <= 8) CopyPalette(source, r.source.blockSize, srcTable);
    if (DibBitCount(target) <= 8) CopyPalette(target, r.target.blockSize, tgtTable);

    const PasteFrame frame{DibBits(source),
                           static_cast<uint32_t>(DibRowBytes(source)),
                           width,
                           height,
                           xl,
                           yl,
                           r.mask != nullptr ? DibBits(r.mask) : nullptr,
                           r.mask != nullptr ? static_cast<uint32_t>(DibRowBytes(r.mask)) : 0u,
                           DibBits(target),
                           static_cast<uint32_t>(DibRowBytes(target)),
                           targetWidth,
                           targetHeight,
                           r.pasteX,
                           bottom,
                           minX,
                           maxX,
                           minY,
                           maxY,
                           rightAngle ? RightAngleTurn(r.angle) : -1,
                           cosB,
                           sinB,
                           r.back,
                           blend.bytes(),
                           MakeRowBlend(blend.bytes(), r.opacity)};
    const WalkArgs walk{x0,
                        x1,
                        y0,
                        y1,
                        DibBits(result.bytes()),
                        static_cast<uint32_t>(DibRowBytes(24, static_cast<int32_t>(outWidth))),
                        r.noDialog,
                        low,
                        r.percentHigh};
    const bool done = WithPixelReader(source, r.source.redMask, srcTable, [&](auto src) {
        return WithPixelReader(target, r.target.redMask, tgtTable,
                               [&](auto tgt) { return WalkPaste(frame, src, tgt, walk); });
    });
    if (!done) return nullptr;
    return result.Release();
}

namespace {

// A caller's image for paste: its block holds what its header claims and its format passes. An
// image without a row or a column is refused (status 7), since the walk addresses rows through the
// height; a source that is to be mirrored or flipped is left to CloneDib, which refuses it first
// (status 5).
bool CheckPasteImage(const LockedBlock &lock, bool cloned, PasteImageView &view) {
    const uint8_t *dib = lock.bytes();
    if (!CheckDibBlock(dib, lock.size())) return false;
    uint32_t greenMask = 0, blueMask = 0;
    if (!CheckDibFormat(dib, kFormatAll, &view.redMask, &greenMask, &blueMask)) return false;
    if (!cloned && (DibWidth(dib) < 1 || DibHeight(dib) < 1)) {
        SetErrorStatus(TZ3_BAD_IMAGE);
        return false;
    }
    view.dib = dib;
    view.blockSize = lock.size();
    return true;
}

// A locked private copy of a whole image; empty with the status set (CloneDib's, or 3 for the lock).
OwnedBlock PrivateCopy(const uint8_t *dib) {
    DibHandle clone = CloneDib(dib, DibWidth(dib), DibHeight(dib), 1);
    if (clone == nullptr) return OwnedBlock();
    OwnedBlock owned(clone);
    if (!owned) SetErrorStatus(TZ3_NO_MEMORY);
    return owned;
}

}  // namespace

DibHandle PasteImageCore(DibHandle target, DibHandle sourceImage, DibHandle sourceMask, int32_t angle,
                         int32_t mirror, int32_t flip, int32_t opacity, int32_t backRed, int32_t backGreen,
                         int32_t backBlue, int32_t pasteX, int32_t pasteY, int32_t keepSize, int32_t noDialog,
                         int32_t progressBase) {
    if (target == nullptr || sourceImage == nullptr) {
        SetErrorStatus(TZ3_BAD_IMAGE);
        return nullptr;
    }
    angle = ClampInt(angle, -35999, 35999);

    LockedBlock targetLock(target);
    LockedBlock sourceLock(sourceImage);
    LockedBlock maskLock(sourceMask);
    if (!targetLock || !sourceLock || (sourceMask != nullptr && !maskLock)) {
        SetErrorStatus(TZ3_NO_MEMORY);
        return nullptr;
    }

    PasteRequest request;
    const bool mirrored = mirror != 0;
    const bool flipped = flip != 0;
    if (!CheckPasteImage(targetLock, false, request.target)) return nullptr;
    if (!CheckPasteImage(sourceLock, mirrored || flipped, request.source)) return nullptr;
    if (sourceMask != nullptr) {
        // The block is measured first, so that not even the mask's header is read past its end.
        if (!CheckDibBlock(maskLock.bytes(), maskLock.size())) return nullptr;
        if (!CheckMaskFits(request.source.dib, maskLock.bytes())) return nullptr;
        request.mask = maskLock.bytes();
        request.maskBlockSize = maskLock.size();
    }

    // Mirror and flip take the first points of the span, whatever the caller's base.
    int32_t low = progressBase != 0 ? 51 : 0;
    if (mirrored || flipped) low = (mirrored && flipped) ? 11 : 6;

    OwnedBlock sourceCopy, maskCopy;
    if (mirrored || flipped) {
        sourceCopy = PrivateCopy(request.source.dib);
        if (!sourceCopy) return nullptr;
        if (request.mask != nullptr) {
            maskCopy = PrivateCopy(request.mask);
            if (!maskCopy) return nullptr;
        }
        if (mirrored && !FlipDibHorizontal(sourceCopy.bytes(), maskCopy.bytes(), noDialog, 0, 5))
            return nullptr;
        if (flipped && !FlipDibVertical(sourceCopy.bytes(), maskCopy.bytes(), noDialog, mirrored ? 6 : 0,
                                        mirrored ? 10 : 5)) {
            return nullptr;
        }
        request.source.dib = sourceCopy.bytes();
        request.source.blockSize = Tz3GlobalSize(sourceCopy.handle());
        if (request.mask != nullptr) {
            request.mask = maskCopy.bytes();
            request.maskBlockSize = Tz3GlobalSize(maskCopy.handle());
        }
    }

    request.angle = angle;
    request.opacity = static_cast<uint8_t>(opacity);
    request.back =
        Rgb{static_cast<uint8_t>(backRed), static_cast<uint8_t>(backGreen), static_cast<uint8_t>(backBlue)};
    request.pasteX = pasteX;
    request.pasteY = pasteY;
    request.keepSize = keepSize;
    request.noDialog = noDialog;
    request.percentLow = low;
    request.percentHigh = 100;
    return PasteRotatedDib(request);
}

}  // namespace tz3
