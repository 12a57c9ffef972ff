// The rasteriser for region figures. Everything is exact integer arithmetic, so a figure comes out
// the same on every machine, and needs no working memory beyond a small buffer on the stack.
//
// Polygon: the outline draws vertex (x, y) as pixel (x, y), so the fill takes the vertices to be
// the centres of those pixels too; a pixel is inside when its centre is inside by the even-odd
// rule, which in vertex coordinates is the point (x, y) itself. Sampling at x + 0.5 against the raw
// vertices instead would put the fill half a pixel away from the outline, and leave one-pixel holes
// between them along edges that slope down to the left. An edge from (xa, ya) to (xb, yb), ya < yb,
// crosses rows ya..yb-1, and a pixel counts a crossing that lies strictly left of it; pixels lying
// exactly on an edge belong to the outline anyway. The outline is the line of each edge, drawn
// along its longer axis: at every step of that axis the other coordinate is the exact one rounded
// half up, and the edge is always walked from its lower end so both directions agree.
//
// Ellipse: with U = 2x + 1 - (l + r), V = 2y + 1 - (t + b), W = r - l and H = b - t (doubled
// offsets of the pixel centre from the ellipse centre, and the doubled half-axes), pixel (x, y) is
// set when its cell meets the ellipse's interior along the row's centre line,
//     (|U| - 1) H < W sqrt(H^2 - V^2),
// or along the column's centre line, (|V| - 1) W < H sqrt(W^2 - U^2). The second rule widens the
// steep parts so every column of the box is reached, as the first reaches every row.
#include "platform/raster.h"

#include <cstring>
#include <utility>

#include "frame/dib.h"
#include "frame/owners.h"
#include "platform/companion.h"

namespace tz3 {
namespace {

// The rows of a locked 1-bit mask seen top-down.
struct Surface {
    uint8_t *bits = nullptr;
    int64_t stride = 0;
    int64_t width = 0;
    int64_t height = 0;

    uint8_t *Row(int64_t y) const { return bits + stride * (height - 1 - y); }
    void Set(int64_t x, int64_t y) const { Row(y)[x >> 3] |= static_cast<uint8_t>(0x80u >> (x & 7)); }
};

// False unless the block is a 1-bit image whose every row lies inside it: the block is the
// caller's, and nothing may be written past its end.
bool OpenSurface(const LockedBlock &lock, Surface &surface) {
    const size_t size = lock.size();
    uint8_t *dib = lock.bytes();
    if (size < kHeaderBytes || DibBitCount(dib) != 1) return false;
    const int32_t width = DibWidth(dib);
    const int32_t height = DibHeight(dib);
    if (width < 0 || height < 0) return false;
    const uint64_t offset = uint64_t{kHeaderBytes} + GetDibPalSize(dib);
    const auto stride = static_cast<uint64_t>(DibRowBytes(1, width));
    if (offset > size || stride * static_cast<uint64_t>(height) > size - offset) return false;
    surface.bits = dib + offset;
    surface.stride = static_cast<int64_t>(stride);
    surface.width = width;
    surface.height = height;
    return true;
}

// Sets columns x0..x1 (inclusive, both on the surface) of a row.
void SetSpan(uint8_t *row, int64_t x0, int64_t x1) {
    const int64_t first = x0 >> 3;
    const int64_t last = x1 >> 3;
    const auto head = static_cast<uint8_t>(0xFFu >> (x0 & 7));
    const auto tail = static_cast<uint8_t>(0xFFu << (7 - (x1 & 7)));
    if (first == last) {
        row[first] |= static_cast<uint8_t>(head & tail);
        return;
    }
    row[first] |= head;
    std::memset(row + first + 1, 0xFF, static_cast<size_t>(last - first - 1));
    row[last] |= tail;
}

int64_t FloorDiv(int64_t n, int64_t d) {
    int64_t q = n / d;
    if (n % d != 0 && n < 0) --q;
    return q;
}

// floor((a * b + d) / c) for |a| < 2^33, 0 <= b <= c < 2^34, |d| <= c, where a * b alone may pass
// 64 bits: b is split so that every partial product stays below 2^52.
int64_t MulAddDivFloor(int64_t a, int64_t b, int64_t d, int64_t c) {
    constexpr int kSplit = 17;
    const int64_t high = b >> kSplit;
    const int64_t low = b & ((int64_t{1} << kSplit) - 1);
    const int64_t part = a * high;
    const int64_t q = FloorDiv(part, c);
    const int64_t rest = (part - q * c) * (int64_t{1} << kSplit) + a * low + d;
    return q * (int64_t{1} << kSplit) + FloorDiv(rest, c);
}

// ---- Polygon ----

// The first column strictly right of where the edge crosses row y, or false when it does not
// cross it.
bool CrossingStart(Tz3Point a, Tz3Point b, int64_t y, int64_t &start) {
    if (a.y == b.y) return false;
    if (a.y > b.y) {
        const Tz3Point swap = a;
        a = b;
        b = swap;
    }
    if (y < a.y || y >= b.y) return false;
    const int64_t dx = int64_t{b.x} - a.x;
    const int64_t dy = int64_t{b.y} - a.y;
    // The crossing is at a.x + dx (y - a.y) / dy.
    start = a.x + MulAddDivFloor(dx, y - a.y, 0, dy) + 1;
    return true;
}

// Bits of one row handled per pass; wider rows take several passes over the edges.
constexpr int64_t kTilePixels = 32768;

// Even-odd fill of row y between columns xFirst and xEnd (exclusive). Each crossing toggles one
// bit at its start column, and a running XOR turns toggles into inside runs.
void FillRow(const Surface &surface, const Tz3Point *points, int32_t count, int64_t y, int64_t xFirst,
             int64_t xEnd) {
    uint8_t toggles[kTilePixels / 8];
    uint8_t *row = surface.Row(y);
    for (int64_t tile = xFirst & ~int64_t{7}; tile < xEnd; tile += kTilePixels) {
        const int64_t tileEnd = tile + kTilePixels < xEnd ? tile + kTilePixels : xEnd;
        const int64_t bytes = (tileEnd - tile + 7) >> 3;
        std::memset(toggles, 0, static_cast<size_t>(bytes));
        unsigned inside = 0;
        for (int32_t i = 0; i < count; ++i) {
            int64_t start;
            if (!CrossingStart(points[i], points[i + 1 < count ? i + 1 : 0], y, start)) continue;
            if (start < tile) {
                inside ^= 1u;
            } else if (start < tileEnd) {
                const int64_t at = start - tile;
                toggles[at >> 3] ^= static_cast<uint8_t>(0x80u >> (at & 7));
            }
        }
        uint8_t *out = row + (tile >> 3);
        for (int64_t i = 0; i < bytes; ++i) {
            unsigned v = toggles[i];
            // Bit 7 is the leftmost pixel, so the running XOR moves towards bit 0.
            v ^= v >> 1;
            v ^= v >> 2;
            v ^= v >> 4;
            if (inside != 0) v = ~v & 0xFFu;
            inside = v & 1u;
            if (i == bytes - 1 && ((tileEnd - tile) & 7) != 0) v &= 0xFFu << (8 - ((tileEnd - tile) & 7));
            out[i] |= static_cast<uint8_t>(v);
        }
    }
}

// The line from (x0, y0) to (x1, y1), both ends included, clipped to the surface.
void DrawLine(const Surface &surface, int64_t x0, int64_t y0, int64_t x1, int64_t y1) {
    const int64_t adx = x1 >= x0 ? x1 - x0 : x0 - x1;
    const int64_t ady = y1 >= y0 ? y1 - y0 : y0 - y1;
    const bool alongX = adx >= ady;
    int64_t u0 = alongX ? x0 : y0;
    int64_t v0 = alongX ? y0 : x0;
    int64_t u1 = alongX ? x1 : y1;
    int64_t v1 = alongX ? y1 : x1;
    if (u1 < u0) {
        const int64_t su = u0, sv = v0;
        u0 = u1;
        v0 = v1;
        u1 = su;
        v1 = sv;
    }
    const int64_t uLimit = alongX ? surface.width : surface.height;
    const int64_t vLimit = alongX ? surface.height : surface.width;
    if (u1 < 0 || u0 >= uLimit) return;
    if ((v0 < 0 && v1 < 0) || (v0 >= vLimit && v1 >= vLimit)) return;
    const int64_t du = u1 - u0;
    const int64_t dv = v1 - v0;
    const int64_t kFirst = u0 < 0 ? -u0 : 0;
    const int64_t kLast = u1 < uLimit ? du : uLimit - 1 - u0;
    for (int64_t k = kFirst; k <= kLast; ++k) {
        // v0 + dv k / du rounded half up.
        const int64_t v = du == 0 ? v0 : v0 + MulAddDivFloor(dv, 2 * k, du, 2 * du);
        if (v < 0 || v >= vLimit) continue;
        if (alongX) {
            surface.Set(u0 + k, v);
        } else {
            surface.Set(v, u0 + k);
        }
    }
}

// ---- Ellipse ----

struct Wide {
    uint64_t high, low;
};

Wide Multiply(uint64_t a, uint64_t b) {
    const uint64_t a0 = a & 0xFFFFFFFFu, a1 = a >> 32;
    const uint64_t b0 = b & 0xFFFFFFFFu, b1 = b >> 32;
    const uint64_t p00 = a0 * b0, p01 = a0 * b1, p10 = a1 * b0, p11 = a1 * b1;
    const uint64_t middle = (p00 >> 32) + (p01 & 0xFFFFFFFFu) + (p10 & 0xFFFFFFFFu);
    return Wide{p11 + (p01 >> 32) + (p10 >> 32) + (middle >> 32), (middle << 32) | (p00 & 0xFFFFFFFFu)};
}

bool Less(Wide a, Wide b) { return a.high < b.high || (a.high == b.high && a.low < b.low); }

// (along - 1) across < extent sqrt(across^2 - cross^2), squared so it stays exact: whether the
// cell at doubled offset `along` meets the interior on the centre line at doubled offset `cross`,
// for doubled half-axes extent (along that line) and across. cross < across, along < extent.
bool MeetsInterior(uint64_t along, uint64_t cross, uint64_t extent, uint64_t across) {
    if (along <= 1) return true;
    const uint64_t left = (along - 1) * across;
    return Less(Multiply(left, left), Multiply(extent * extent, across * across - cross * cross));
}

bool EllipseCovers(uint64_t u, uint64_t v, uint64_t w, uint64_t h) {
    return MeetsInterior(u, v, w, h) || MeetsInterior(v, u, h, w);
}

// ---- Seam line and flood fill ----

// The line from (x0, y0) towards (x1, y1), the last point left out, clipped to the surface. Steps
// run along the longer axis from the first point; the other coordinate is the exact one rounded
// half up.
void DrawOpenLine(const Surface &surface, int64_t x0, int64_t y0, int64_t x1, int64_t y1) {
    const int64_t adx = x1 >= x0 ? x1 - x0 : x0 - x1;
    const int64_t ady = y1 >= y0 ? y1 - y0 : y0 - y1;
    const bool alongX = adx >= ady;
    const int64_t du = alongX ? adx : ady;
    if (du == 0) return;  // a line to its own first point draws nothing
    const int64_t u0 = alongX ? x0 : y0;
    const int64_t v0 = alongX ? y0 : x0;
    const int64_t step = (alongX ? x1 - x0 : y1 - y0) > 0 ? 1 : -1;
    const int64_t dv = alongX ? y1 - y0 : x1 - x0;
    const int64_t uLimit = alongX ? surface.width : surface.height;
    const int64_t vLimit = alongX ? surface.height : surface.width;
    // Only the steps whose u lies on the surface: u = u0 + step k, 0 <= k < du.
    int64_t kFirst = 0, kEnd = du;
    if (step > 0) {
        if (u0 < 0) kFirst = -u0;
        if (u0 + du > uLimit) kEnd = uLimit - u0;
    } else {
        if (u0 >= uLimit) kFirst = u0 - (uLimit - 1);
        if (u0 - du < -1) kEnd = u0 + 1;
    }
    for (int64_t k = kFirst; k < kEnd; ++k) {
        const int64_t v = v0 + MulAddDivFloor(dv, 2 * k, du, 2 * du);
        if (v < 0 || v >= vLimit) continue;
        const int64_t u = u0 + step * k;
        if (alongX) {
            surface.Set(u, v);
        } else {
            surface.Set(v, u);
        }
    }
}

bool BitAt(const Surface &surface, int64_t x, int64_t y) {
    return (surface.Row(y)[x >> 3] & (0x80u >> (x & 7))) != 0;
}
void PutBit(const Surface &surface, int64_t x, int64_t y, bool on) {
    uint8_t &byte = surface.Row(y)[x >> 3];
    const auto bit = static_cast<uint8_t>(0x80u >> (x & 7));
    byte = static_cast<uint8_t>(on ? byte | bit : byte & ~bit);
}

// The table index a colour stands for on a two-entry surface: the nearer entry, the first on a tie.
bool IndexOfColour(const uint8_t *dib, size_t size, uint32_t colour) {
    const auto entry = [&](int i, int channel) -> int32_t {
        const size_t at = kHeaderBytes + 4u * static_cast<size_t>(i) + static_cast<size_t>(channel);
        return at < size ? dib[at] : 0;
    };
    const int32_t red = static_cast<int32_t>(colour & 0xFF), green = static_cast<int32_t>((colour >> 8) & 0xFF),
                  blue = static_cast<int32_t>((colour >> 16) & 0xFF);
    int32_t distance[2];
    for (int i = 0; i < 2; ++i) {
        const int32_t db = entry(i, 0) - blue, dg = entry(i, 1) - green, dr = entry(i, 2) - red;
        distance[i] = db * db + dg * dg + dr * dr;
    }
    return distance[1] < distance[0];
}

// A stack of seed points whose memory comes from the block allocator and doubles as it fills.
class SeedStack {
public:
    bool Push(int64_t x, int64_t y) {
        if (count_ == capacity_) {
            const size_t capacity = capacity_ == 0 ? 256 : capacity_ * 2;
            OwnedBlock bigger = AllocLocked(uint64_t{capacity} * sizeof(Seed));
            if (!bigger) return false;
            if (count_ != 0) std::memcpy(bigger.bytes(), block_.bytes(), count_ * sizeof(Seed));
            block_ = std::move(bigger);
            capacity_ = capacity;
        }
        reinterpret_cast<Seed *>(block_.bytes())[count_++] = Seed{x, y};
        return true;
    }
    bool Pop(int64_t &x, int64_t &y) {
        if (count_ == 0) return false;
        const Seed s = reinterpret_cast<Seed *>(block_.bytes())[--count_];
        x = s.x;
        y = s.y;
        return true;
    }

private:
    struct Seed {
        int64_t x, y;
    };
    OwnedBlock block_;
    size_t count_ = 0, capacity_ = 0;
};

// Scan-line fill: each seed grows into the run of surface pixels of its row, which is filled, and
// every run of surface pixels touching it in the rows above and below gets one seed.
bool FillFrom(const Surface &surface, int64_t x, int64_t y, bool from, bool to) {
    SeedStack seeds;
    if (!seeds.Push(x, y)) return false;
    int64_t sx, sy;
    while (seeds.Pop(sx, sy)) {
        if (BitAt(surface, sx, sy) != from) continue;
        int64_t left = sx, right = sx;
        while (left > 0 && BitAt(surface, left - 1, sy) == from) --left;
        while (right + 1 < surface.width && BitAt(surface, right + 1, sy) == from) ++right;
        for (int64_t i = left; i <= right; ++i) PutBit(surface, i, sy, to);
        for (const int64_t ny : {sy - 1, sy + 1}) {
            if (ny < 0 || ny >= surface.height) continue;
            bool inRun = false;
            for (int64_t i = left; i <= right; ++i) {
                const bool match = BitAt(surface, i, ny) == from;
                if (match && !inRun && !seeds.Push(i, ny)) return false;
                inRun = match;
            }
        }
    }
    return true;
}

}  // namespace

int32_t PolygonToMask(DibHandle mask, const Tz3Point *points, int32_t count) {
    LockedBlock lock(mask);
    Surface surface;
    if (!lock || !OpenSurface(lock, surface)) return 0;
    if (points == nullptr || count < 1) return 1;

    int64_t minX = points[0].x, maxX = points[0].x, minY = points[0].y, maxY = points[0].y;
    for (int32_t i = 1; i < count; ++i) {
        minX = points[i].x < minX ? points[i].x : minX;
        maxX = points[i].x > maxX ? points[i].x : maxX;
        minY = points[i].y < minY ? points[i].y : minY;
        maxY = points[i].y > maxY ? points[i].y : maxY;
    }
    // No row outside minY..maxY-1 is crossed, and no crossing lies left of minX.
    const int64_t xFirst = minX < 0 ? 0 : minX;
    const int64_t xEnd = maxX < surface.width ? maxX + 1 : surface.width;
    const int64_t yFirst = minY < 0 ? 0 : minY;
    const int64_t yEnd = maxY < surface.height ? maxY : surface.height;
    if (xFirst < xEnd) {
        for (int64_t y = yFirst; y < yEnd; ++y) FillRow(surface, points, count, y, xFirst, xEnd);
    }
    for (int32_t i = 0; i < count; ++i) {
        const Tz3Point a = points[i];
        const Tz3Point b = points[i + 1 < count ? i + 1 : 0];
        DrawLine(surface, a.x, a.y, b.x, b.y);
    }
    return 1;
}

int32_t EllipseToMask(DibHandle mask, int32_t l, int32_t t, int32_t r, int32_t b) {
    LockedBlock lock(mask);
    Surface surface;
    if (!lock || !OpenSurface(lock, surface)) {
        SetErrorStatus(TZ3_DRAWING_FAILED);
        return 0;
    }
    if (r > l && b > t) {
        const auto w = static_cast<uint64_t>(int64_t{r} - l);
        const auto h = static_cast<uint64_t>(int64_t{b} - t);
        const int64_t yFirst = t < 0 ? 0 : t;
        const int64_t yEnd = b < surface.height ? b : surface.height;
        for (int64_t y = yFirst; y < yEnd; ++y) {
            const int64_t dv = 2 * y + 1 - (int64_t{t} + b);
            const auto v = static_cast<uint64_t>(dv < 0 ? -dv : dv);
            // Each row is one run, symmetric about the centre: find how many columns each end
            // loses, the first j for which column l + j is covered.
            uint64_t lo = 0, hi = (w - 1) / 2;
            while (lo < hi) {
                const uint64_t mid = lo + (hi - lo) / 2;
                if (EllipseCovers(w - 1 - 2 * mid, v, w, h)) {
                    hi = mid;
                } else {
                    lo = mid + 1;
                }
            }
            const int64_t inset = static_cast<int64_t>(lo);
            const int64_t x0 = l + inset < 0 ? 0 : l + inset;
            const int64_t x1 = r - 1 - inset < surface.width - 1 ? r - 1 - inset : surface.width - 1;
            if (x0 <= x1) SetSpan(surface.Row(y), x0, x1);
        }
    }
    SetErrorStatus(TZ3_OK);
    return 1;
}

}  // namespace tz3

namespace tz3 {

int32_t DrawMaskLine(DibHandle mask, int32_t x0, int32_t y0, int32_t x1, int32_t y1) {
    LockedBlock lock(mask);
    if (!lock) return 0;
    Surface surface;
    if (!OpenSurface(lock, surface)) {
        SetErrorStatus(TZ3_DRAWING_FAILED);
        return 0;
    }
    DrawOpenLine(surface, x0, y0, x1, y1);
    SetErrorStatus(TZ3_OK);
    return 1;
}

int32_t FloodMaskSide(DibHandle mask, int32_t x, int32_t y, uint32_t surfaceColour, uint32_t fillColour) {
    LockedBlock lock(mask);
    if (!lock) return 0;
    Surface surface;
    if (!OpenSurface(lock, surface)) {
        SetErrorStatus(TZ3_DIALOG_FAILED);
        return 0;
    }
    const bool from = IndexOfColour(lock.bytes(), lock.size(), surfaceColour);
    const bool to = IndexOfColour(lock.bytes(), lock.size(), fillColour);
    const bool onSurface = x >= 0 && x < surface.width && y >= 0 && y < surface.height;
    // A seed already of the fill colour would find its own pixels again and again: nothing to do.
    if (onSurface && from != to && !FillFrom(surface, x, y, from, to)) {
        SetErrorStatus(TZ3_DIALOG_FAILED);
        return 0;
    }
    SetErrorStatus(TZ3_OK);
    return 1;
}

}  // namespace tz3
