// TZ3Affine: four points on the image, in any order, name a quadrilateral that is straightened into
// a new rectangular image. The corners are ordered by a heap sort on x and then by y within each
// side: A lower left, B upper left, C upper right, D lower right (y counts down from the top). The new
// image is the axis-parallel rectangle inside the four sides.
//
// A quadrilateral that is a rectangle to within 2 pixels is copied row by row. Any other is warped
// forward: each source pixel of the bounding box is placed by the inverse of the bilinear patch
// A-D-C-B, solved in closed form, and painted there and on its right and upper neighbours, so that
// few holes remain. Nothing is interpolated.
//
// A point (x, y) lives in bottom-up row H - y, not H - 1 - y: the mapping is settled that way. Row H
// does not exist, so the warp reads it as value 0 and the row copy leaves its target row at zero.
//
//   depth  read / write in the warp
//   1, 4   index bit or nibble; the target bit or nibble is replaced
//   8      index, whatever the palette
//   16     expanded, then packed (lossy)
//   24/32  first three bytes; a 32-bit fourth byte stays 0
#include <algorithm>
#include <cstring>

#include "frame/arith.h"
#include "frame/call.h"
#include "frame/maths.h"
#include "frame/pixel.h"

namespace tz3 {
namespace {

struct Point {
    int32_t x, y;
};

// The working values of one call.
struct AffineWork {
    Point a, b, c, d;
    int32_t newWidth, newHeight;
    uint32_t redMask, greenMask, blueMask;
};

// The sift of the heap sort on x, with children 2i and 2i + 1 on indices from 0, so that index 0 has
// the single other child 1.
void SiftPoint(Point *p, int32_t root, int32_t last) {
    int32_t i = root;
    int32_t c = 2 * root;
    if (c > last) return;
    while (c <= last) {
        if (c < last && p[c + 1].x > p[c].x) ++c;
        if (p[i].x >= p[c].x) return;
        std::swap(p[i], p[c]);
        i = c;
        c = 2 * c;
    }
}

void OrderCorners(Point *p) {
    SiftPoint(p, 1, 3);
    SiftPoint(p, 0, 3);
    for (int32_t n = 3; n >= 1; --n) {
        std::swap(p[0], p[n]);
        SiftPoint(p, 0, n - 1);
    }
    if (p[1].y > p[0].y) std::swap(p[0], p[1]);
    if (p[2].y > p[3].y) std::swap(p[2], p[3]);
}

bool Report(int32_t step, int32_t last, int32_t noDialog) {
    if (PercentProgress(step, last, 0, 100, noDialog) != 0) return true;
    SetErrorStatus(TZ3_CANCELLED);
    return false;
}

// Pixel formats of the warp: a value is fetched from a row and written over a target pixel.
struct Bits1Pixel {
    using Value = uint8_t;
    static Value Fetch(const uint8_t *row, int32_t x) { return static_cast<uint8_t>((row[x >> 3] >> (7 - (x & 7))) & 1); }
    static void Put(uint8_t *row, int32_t x, Value v) {
        const auto bit = static_cast<uint8_t>(0x80u >> (x & 7));
        row[x >> 3] = static_cast<uint8_t>(v != 0 ? (row[x >> 3] | bit) : (row[x >> 3] & ~bit));
    }
};
struct Bits4Pixel {
    using Value = uint8_t;
    static Value Fetch(const uint8_t *row, int32_t x) {
        return static_cast<uint8_t>((x & 1) ? (row[x >> 1] & 15) : (row[x >> 1] >> 4));
    }
    // An even column is the high nibble; the other nibble of the byte is kept.
    static void Put(uint8_t *row, int32_t x, Value v) {
        uint8_t &byte = row[x >> 1];
        byte = static_cast<uint8_t>((x & 1) ? ((byte & 0xF0) | (v & 15)) : ((byte & 0x0F) | (v << 4)));
    }
};
struct Bits8Pixel {
    using Value = uint8_t;
    static Value Fetch(const uint8_t *row, int32_t x) { return row[x]; }
    static void Put(uint8_t *row, int32_t x, Value v) { row[x] = v; }
};
template <class Pix>
struct DirectPixel {
    using Value = Rgb;
    static Value Fetch(const uint8_t *row, int32_t x) { return Pix::Fetch(row + static_cast<size_t>(x) * Pix::kBytes); }
    static void Put(uint8_t *row, int32_t x, Value v) { Pix::Store(row + static_cast<size_t>(x) * Pix::kBytes, v); }
};

// The inverse bilinear warp over the bounding box, both maxima excluded.
template <class Px>
bool Warp(const AffineWork &wk, const uint8_t *src, uint8_t *out, int32_t noDialog) {
    const Point a = wk.a, b = wk.b, c = wk.c, d = wk.d;
    const int32_t w = DibWidth(src);
    const int32_t h = DibHeight(src);
    const size_t stride = static_cast<uint32_t>(DibRowBytes(src));
    const size_t outStride = static_cast<uint32_t>(DibRowBytes(out));
    const uint8_t *srcBits = DibBits(src);
    uint8_t *outBits = DibBits(out);
    const int32_t nw = wk.newWidth;
    const int32_t nh = wk.newHeight;

    // The cross products are integers; 64 bits hold them for any image a block can carry.
    const int64_t bay = int64_t{b.y} - a.y, bax = int64_t{b.x} - a.x;
    const int64_t dax = int64_t{d.x} - a.x, day = int64_t{d.y} - a.y;
    const int64_t cax = int64_t{c.x} - a.x, cay = int64_t{c.y} - a.y;
    const auto det = static_cast<double>(bay * dax - bax * day);
    if (!(det >= 1.0 || det <= -1.0)) return false;  // no status: the last one stays
    // C in the frame with origin A, D at (1, 0) and B at (0, 1).
    const double p = static_cast<double>(cax * bay - cay * bax) / det;
    const double q = static_cast<double>(cay * dax - cax * day) / det;

    const int32_t xStart = std::min(a.x, b.x), xEnd = std::max(c.x, d.x);
    const int32_t yStart = std::min(b.y, c.y), yEnd = std::max(a.y, d.y);
    for (int32_t y = yStart; y < yEnd; ++y) {
        const int32_t srcRow = h - y;
        const bool rowExists = srcRow >= 0 && srcRow < h;
        const uint8_t *from = rowExists ? srcBits + stride * static_cast<size_t>(srcRow) : nullptr;
        const int64_t ya = int64_t{y} - a.y;
        for (int32_t x = xStart; x < xEnd; ++x) {
            const typename Px::Value value =
                rowExists && x >= 0 && x < w ? Px::Fetch(from, x) : typename Px::Value{};
            const int64_t xa = int64_t{x} - a.x;
            const double u = static_cast<double>(bay * xa - bax * ya) / det;
            const double v = static_cast<double>(dax * ya - day * xa) / det;
            const double e = (q - 1.0) * u;
            const double f = (p - 1.0) * v - e;
            const double disc = (f + 1.0) * (f + 1.0) + 4.0 * e;
            if (disc < 0.0) continue;
            const double r = Sqrt(disc);
            const double g = 1.0 - f + r;
            if (g < 0.0001) continue;
            const double hh = r + f + 1.0;
            if (hh < 0.0001) continue;
            const double t = (v + v) / g;
            const double s = (u + u) / hh;
            const int32_t col = TruncToInt32(nw * s);
            const int32_t k = TruncToInt32(nh - nh * t);
            if (col < 0 || col > nw - 1 || k < 0 || k > nh - 1) continue;
            const int32_t row = nh - k - 1;
            uint8_t *to = outBits + outStride * static_cast<size_t>(row);
            Px::Put(to, col, value);
            if (col + 1 < nw) Px::Put(to, col + 1, value);
            if (row + 1 < nh) Px::Put(to + outStride, col, value);
        }
        if (!Report(y, yEnd - yStart, noDialog)) return false;
    }
    return true;
}

// The row copy of a near rectangle, at its own sizes width2 = D.x - A.x and height2 = A.y - B.y,
// which may pass the new image by a few pixels: rows and lengths are clipped to what the image holds,
// and a byte beyond the source block reads as 0. Row H, one past the pixels, is not read: its target
// row stays zero, as the warp would leave it dark.
bool CopyRows(AffineWork &wk, const uint8_t *src, size_t srcBlockBytes, uint8_t *out, int32_t noDialog) {
    const int32_t width2 = wk.d.x - wk.a.x;
    const int32_t height2 = wk.a.y - wk.b.y;
    const int32_t outHeight = wk.newHeight;
    wk.newWidth = width2;
    wk.newHeight = height2;
    const int32_t bits = DibBitCount(src);
    const int32_t h = DibHeight(src);
    const size_t stride = static_cast<uint32_t>(DibRowBytes(src));
    const size_t stride2 = static_cast<uint32_t>(DibRowBytes(bits, width2));
    const size_t outStride = static_cast<uint32_t>(DibRowBytes(out));
    const size_t length = std::min(stride2 / 4 * 4, outStride);
    const size_t firstByte = static_cast<size_t>(static_cast<int64_t>(wk.a.x) * bits / 8);
    const uint8_t *srcBits = DibBits(src);
    const size_t bitsOffset = static_cast<size_t>(srcBits - src);
    uint8_t *outBits = DibBits(out);
    int32_t n = 1;
    for (int32_t y = wk.b.y; y < wk.a.y; ++y, ++n) {
        const int32_t srcRow = h - y;
        const int32_t target = height2 - n;
        if (srcRow >= 0 && srcRow < h && target >= 0 && target < outHeight) {
            const size_t at = bitsOffset + stride * static_cast<size_t>(srcRow) + firstByte;
            const size_t inside = at < srcBlockBytes ? std::min(length, srcBlockBytes - at) : 0;
            uint8_t *to = outBits + outStride * static_cast<size_t>(target);
            if (inside > 0) std::memcpy(to, src + at, inside);
        }
        if (!Report(y, height2, noDialog)) return false;
    }
    return true;
}

DibHandle AffineDib(DibHandle image, const Point (&given)[4], int32_t noDialog) {
    OpenedDib opened;
    if (!OpenDib(image, kFormatAll, opened)) return nullptr;
    const uint8_t *src = opened.dib;
    AffineWork wk{};
    // A 16-bit image accepted without channel masks is read as 5-5-5.
    wk.redMask = opened.redMask != 0 ? opened.redMask : kRed555Mask;
    wk.greenMask = opened.greenMask;
    wk.blueMask = opened.blueMask;

    Point p[4] = {given[0], given[1], given[2], given[3]};
    ClampFourCoords(src, &p[0].x, &p[0].y, &p[1].x, &p[1].y);
    ClampFourCoords(src, &p[2].x, &p[2].y, &p[3].x, &p[3].y);
    OrderCorners(p);
    wk.a = p[0];
    wk.b = p[1];
    wk.c = p[2];
    wk.d = p[3];
    wk.newWidth = std::min(wk.c.x, wk.d.x) - std::max(wk.a.x, wk.b.x);
    wk.newHeight = std::min(wk.a.y, wk.d.y) - std::max(wk.b.y, wk.c.y);

    DibHandle made = CloneDib(src, wk.newWidth, wk.newHeight, 0);
    if (made == nullptr) return nullptr;
    OwnedBlock out(made);
    if (!out) {
        SetErrorStatus(TZ3_NO_MEMORY);
        return nullptr;
    }

    const bool nearRectangle = std::abs(wk.a.x - wk.b.x) <= 2 && std::abs(wk.c.x - wk.d.x) <= 2 &&
                               std::abs(wk.b.y - wk.c.y) <= 2 && std::abs(wk.a.y - wk.d.y) <= 2;
    bool done = false;
    if (nearRectangle) {
        done = CopyRows(wk, src, opened.lock.size(), out.bytes(), noDialog);
    } else {
        switch (DibBitCount(src)) {
            case 1: done = Warp<Bits1Pixel>(wk, src, out.bytes(), noDialog); break;
            case 4: done = Warp<Bits4Pixel>(wk, src, out.bytes(), noDialog); break;
            case 8: done = Warp<Bits8Pixel>(wk, src, out.bytes(), noDialog); break;
            case 16:
                if (wk.redMask == kRed555Mask) {
                    done = Warp<DirectPixel<Pix16x555>>(wk, src, out.bytes(), noDialog);
                } else {
                    done = Warp<DirectPixel<Pix16x565>>(wk, src, out.bytes(), noDialog);
                }
                break;
            case 24: done = Warp<DirectPixel<Pix24>>(wk, src, out.bytes(), noDialog); break;
            case 32: done = Warp<DirectPixel<Pix32>>(wk, src, out.bytes(), noDialog); break;
            default: SetErrorStatus(TZ3_BAD_DEPTH); break;
        }
    }
    if (!done) return nullptr;
    return out.Release();
}

}  // namespace
}  // namespace tz3

extern "C" TZ3_API DibHandle TZ3Affine(DibHandle image, int32_t x0, int32_t y0, int32_t x1, int32_t y1, int32_t x2,
                                       int32_t y2, int32_t x3, int32_t y3, int32_t noDialog, intptr_t dialog1,
                                       intptr_t dialog2, intptr_t dialog3) {
    using namespace tz3;
    return RunExport<DibHandle>(noDialog, dialog1, dialog2, dialog3, [&] {
        const Point points[4] = {{x0, y0}, {x1, y1}, {x2, y2}, {x3, y3}};
        return AffineDib(image, points, noDialog);
    });
}
