// The rasteriser: polygons and ellipses drawn on 1-bit masks, read back pixel by pixel and checked
// against plain references worked out here.
#include "platform/raster.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "platform/companion.h"
#include "support/test_images.h"

namespace {

using tz3test::FromBlock;
using tz3test::HandleGuard;
using tz3test::MakeDibBytes;
using tz3test::MaskBit;
using tz3test::PixelOffset;
using tz3test::RowBytes;
using tz3test::ToBlock;

// Wide enough for every product of the references at full 32-bit coordinates.
__extension__ typedef __int128 Wide;
__extension__ typedef unsigned __int128 UWide;

constexpr int32_t kMin = std::numeric_limits<int32_t>::min();
constexpr int32_t kMax = std::numeric_limits<int32_t>::max();

// A surface of booleans, y running down from the top.
struct Grid {
    int w = 0, h = 0;
    std::vector<uint8_t> cells;
    Grid(int width, int height) : w(width), h(height), cells(static_cast<size_t>(width) * height, 0) {}
    bool At(int64_t x, int64_t y) const { return cells[static_cast<size_t>(y * w + x)] != 0; }
    void Set(int64_t x, int64_t y) {
        if (x >= 0 && x < w && y >= 0 && y < h) cells[static_cast<size_t>(y * w + x)] = 1;
    }
    int Count() const { return static_cast<int>(std::count(cells.begin(), cells.end(), 1)); }
    bool operator==(const Grid &o) const { return w == o.w && h == o.h && cells == o.cells; }
    void Merge(const Grid &o) {
        for (size_t i = 0; i < cells.size(); ++i) cells[i] = static_cast<uint8_t>(cells[i] | o.cells[i]);
    }
};

std::string Picture(const Grid &g) {
    std::string s = "\n";
    for (int y = 0; y < g.h; ++y) {
        for (int x = 0; x < g.w; ++x) s += g.At(x, y) ? '#' : '.';
        s += '\n';
    }
    return s;
}

std::string Describe(const std::vector<Tz3Point> &points) {
    std::string s;
    for (const Tz3Point &p : points) {
        s += '(';
        s += std::to_string(p.x);
        s += ',';
        s += std::to_string(p.y);
        s += ") ";
    }
    return s;
}

// Surface row y is mask row h - 1 - y.
Grid ReadMask(const std::vector<uint8_t> &mask, int w, int h) {
    Grid g(w, h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            if (MaskBit(mask, x, h - 1 - y)) g.Set(x, y);
    return g;
}

// True when every bit past the last column of every row is clear.
bool PadBitsClear(const std::vector<uint8_t> &mask, int w, int h) {
    const uint32_t stride = RowBytes(1, w);
    for (int row = 0; row < h; ++row)
        for (uint32_t bit = static_cast<uint32_t>(w); bit < stride * 8; ++bit)
            if ((mask[PixelOffset(mask) + stride * row + bit / 8] >> (7 - bit % 8)) & 1) return false;
    return true;
}

std::vector<uint8_t> PolygonBytes(int w, int h, const std::vector<Tz3Point> &points) {
    HandleGuard mask(ToBlock(MakeDibBytes(w, h, 1)));
    EXPECT_EQ(tz3::PolygonToMask(mask.h, points.data(), static_cast<int32_t>(points.size())), 1);
    return FromBlock(mask.h);
}

Grid DrawPolygon(int w, int h, const std::vector<Tz3Point> &points) {
    return ReadMask(PolygonBytes(w, h, points), w, h);
}

Grid DrawEllipse(int w, int h, int32_t l, int32_t t, int32_t r, int32_t b) {
    HandleGuard mask(ToBlock(MakeDibBytes(w, h, 1)));
    EXPECT_EQ(tz3::EllipseToMask(mask.h, l, t, r, b), 1);
    return ReadMask(FromBlock(mask.h), w, h);
}

Wide FloorDiv(Wide n, Wide d) {
    Wide q = n / d;
    if (n % d != 0 && (n < 0) != (d < 0)) --q;
    return q;
}

// The line rule written out plainly: step along the longer axis from the lower end, the other
// coordinate the exact one rounded half up.
void ReferenceLine(Grid &g, int64_t x0, int64_t y0, int64_t x1, int64_t y1) {
    const bool alongX = std::llabs(x1 - x0) >= std::llabs(y1 - y0);
    int64_t u0 = alongX ? x0 : y0, v0 = alongX ? y0 : x0, u1 = alongX ? x1 : y1, v1 = alongX ? y1 : x1;
    if (u1 < u0) {
        std::swap(u0, u1);
        std::swap(v0, v1);
    }
    const int64_t limit = alongX ? g.w : g.h;
    for (int64_t u = std::max<int64_t>(u0, 0); u <= std::min<int64_t>(u1, limit - 1); ++u) {
        const int64_t du = u1 - u0;
        const auto v = static_cast<int64_t>(
            du == 0 ? v0 : v0 + FloorDiv(Wide{2} * (v1 - v0) * (u - u0) + du, Wide{2} * du));
        if (alongX) {
            g.Set(u, v);
        } else {
            g.Set(v, u);
        }
    }
}

// Even-odd by a straight crossing count: the vertices stand for pixel centres, so pixel (x, y) is
// inside when the point (x, y) is; an edge crosses rows ya..yb-1 and counts when strictly left.
bool ReferenceInside(const std::vector<Tz3Point> &points, int64_t x, int64_t y) {
    bool inside = false;
    for (size_t i = 0; i < points.size(); ++i) {
        Tz3Point a = points[i], b = points[(i + 1) % points.size()];
        if (a.y == b.y) continue;
        if (a.y > b.y) std::swap(a, b);
        if (y < a.y || y >= b.y) continue;
        // a.x + (b.x - a.x)(y - a.y) / (b.y - a.y) < x
        if (Wide{b.x - int64_t{a.x}} * (y - a.y) < Wide{x - a.x} * (b.y - int64_t{a.y})) inside = !inside;
    }
    return inside;
}

Grid ReferencePolygon(int w, int h, const std::vector<Tz3Point> &points) {
    Grid g(w, h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            if (ReferenceInside(points, x, y)) g.Set(x, y);
    for (size_t i = 0; i < points.size(); ++i) {
        const Tz3Point a = points[i], b = points[(i + 1) % points.size()];
        ReferenceLine(g, a.x, a.y, b.x, b.y);
    }
    return g;
}

Grid ReferenceSegment(int w, int h, Tz3Point a, Tz3Point b) {
    Grid g(w, h);
    ReferenceLine(g, a.x, a.y, b.x, b.y);
    return g;
}

// The ellipse rule pixel by pixel: the cell meets the interior along the row's centre line or the
// column's, in doubled offsets from the centre.
bool MeetsInterior(UWide along, UWide cross, UWide extent, UWide across) {
    if (along <= 1) return true;
    const UWide left = (along - 1) * across;
    return left * left < extent * extent * (across * across - cross * cross);
}

Grid ReferenceEllipse(int w, int h, int64_t l, int64_t t, int64_t r, int64_t b) {
    Grid g(w, h);
    if (r <= l || b <= t) return g;
    for (int64_t y = std::max<int64_t>(t, 0); y < std::min<int64_t>(b, h); ++y) {
        for (int64_t x = std::max<int64_t>(l, 0); x < std::min<int64_t>(r, w); ++x) {
            const auto u = static_cast<UWide>(std::llabs(2 * x + 1 - (l + r)));
            const auto v = static_cast<UWide>(std::llabs(2 * y + 1 - (t + b)));
            const auto ew = static_cast<UWide>(r - l), eh = static_cast<UWide>(b - t);
            if (MeetsInterior(u, v, ew, eh) || MeetsInterior(v, u, eh, ew)) g.Set(x, y);
        }
    }
    return g;
}

// True when every clear pixel can be reached from outside the surface, four-connected.
bool NoEnclosedHoles(const Grid &g) {
    const int pw = g.w + 2, ph = g.h + 2;
    std::vector<uint8_t> seen(static_cast<size_t>(pw) * ph, 0);
    std::vector<std::pair<int, int>> stack{{0, 0}};
    auto filled = [&](int px, int py) {
        return px >= 1 && py >= 1 && px <= g.w && py <= g.h && g.At(px - 1, py - 1);
    };
    while (!stack.empty()) {
        const auto [x, y] = stack.back();
        stack.pop_back();
        if (x < 0 || y < 0 || x >= pw || y >= ph) continue;
        uint8_t &s = seen[static_cast<size_t>(y) * pw + x];
        if (s != 0 || filled(x, y)) continue;
        s = 1;
        stack.push_back({x + 1, y});
        stack.push_back({x - 1, y});
        stack.push_back({x, y + 1});
        stack.push_back({x, y - 1});
    }
    for (int y = 1; y <= g.h; ++y)
        for (int x = 1; x <= g.w; ++x)
            if (!filled(x, y) && seen[static_cast<size_t>(y) * pw + x] == 0) return false;
    return true;
}

std::vector<Tz3Point> ConvexHull(std::vector<Tz3Point> p) {
    std::sort(p.begin(), p.end(), [](Tz3Point a, Tz3Point b) { return a.x != b.x ? a.x < b.x : a.y < b.y; });
    p.erase(std::unique(p.begin(), p.end(), [](Tz3Point a, Tz3Point b) { return a.x == b.x && a.y == b.y; }),
            p.end());
    if (p.size() < 3) return p;
    auto cross = [](Tz3Point o, Tz3Point a, Tz3Point b) {
        return int64_t{a.x - o.x} * (b.y - o.y) - int64_t{a.y - o.y} * (b.x - o.x);
    };
    std::vector<Tz3Point> hull(2 * p.size());
    size_t k = 0;
    for (size_t i = 0; i < p.size(); ++i) {
        while (k >= 2 && cross(hull[k - 2], hull[k - 1], p[i]) <= 0) --k;
        hull[k++] = p[i];
    }
    for (size_t i = p.size() - 1, lower = k + 1; i > 0; --i) {
        while (k >= lower && cross(hull[k - 2], hull[k - 1], p[i - 1]) <= 0) --k;
        hull[k++] = p[i - 1];
    }
    hull.resize(k - 1);
    return hull;
}

int32_t RandomIn(std::mt19937 &rng, int64_t lo, int64_t hi) {
    return static_cast<int32_t>(std::uniform_int_distribution<int64_t>(lo, hi)(rng));
}

// ---- Polygon: orientation and lines ----

TEST(RasterPolygon, TopSurfaceRowLandsInLastMaskRow) {
    const std::vector<uint8_t> top = PolygonBytes(8, 4, {{2, 0}});
    EXPECT_TRUE(MaskBit(top, 2, 3));
    EXPECT_EQ(ReadMask(top, 8, 4).Count(), 1);
    const std::vector<uint8_t> bottom = PolygonBytes(8, 4, {{5, 3}});
    EXPECT_TRUE(MaskBit(bottom, 5, 0));
    EXPECT_EQ(ReadMask(bottom, 8, 4).Count(), 1);
}

TEST(RasterPolygon, LeftmostPixelIsBitSevenOfItsByte) {
    const std::vector<uint8_t> mask = PolygonBytes(16, 1, {{8, 0}});
    EXPECT_EQ(mask[PixelOffset(mask) + 1], 0x80);
    const std::vector<uint8_t> last = PolygonBytes(16, 1, {{7, 0}});
    EXPECT_EQ(last[PixelOffset(last)], 0x01);
}

TEST(RasterPolygon, TwoPointsDrawTheLineWithBothEnds) {
    const Grid g = DrawPolygon(12, 6, {{1, 1}, {10, 4}});
    EXPECT_TRUE(g.At(1, 1));
    EXPECT_TRUE(g.At(10, 4));
    EXPECT_EQ(g.Count(), 10);  // one pixel per column
    for (int x = 1; x <= 10; ++x) {
        int inColumn = 0;
        for (int y = 0; y < 6; ++y) inColumn += g.At(x, y) ? 1 : 0;
        EXPECT_EQ(inColumn, 1) << "column " << x;
    }
    EXPECT_EQ(g, ReferenceSegment(12, 6, {1, 1}, {10, 4})) << Picture(g);
}

TEST(RasterPolygon, HorizontalLineCoversEveryColumnBetweenItsEnds) {
    Grid expected(12, 5);
    for (int x = 2; x <= 9; ++x) expected.Set(x, 3);
    EXPECT_EQ(DrawPolygon(12, 5, {{2, 3}, {9, 3}}), expected);
    EXPECT_EQ(DrawPolygon(12, 5, {{9, 3}, {2, 3}}), expected);
}

TEST(RasterPolygon, VerticalLineCoversEveryRowBetweenItsEnds) {
    Grid expected(6, 12);
    for (int y = 1; y <= 10; ++y) expected.Set(4, y);
    EXPECT_EQ(DrawPolygon(6, 12, {{4, 10}, {4, 1}}), expected);
}

TEST(RasterPolygon, DiagonalLinesTakeOnePixelPerStep) {
    Grid down(8, 8), up(8, 8);
    for (int i = 0; i <= 5; ++i) {
        down.Set(i, i);
        up.Set(5 - i, i);
    }
    EXPECT_EQ(DrawPolygon(8, 8, {{0, 0}, {5, 5}}), down);
    EXPECT_EQ(DrawPolygon(8, 8, {{5, 0}, {0, 5}}), up);
}

TEST(RasterPolygon, ShallowLineRoundsHalfUp) {
    // From (0, 0) to (4, 1) the exact rows are 0, 0.25, 0.5, 0.75, 1.
    Grid expected(6, 3);
    expected.Set(0, 0);
    expected.Set(1, 0);
    expected.Set(2, 1);
    expected.Set(3, 1);
    expected.Set(4, 1);
    EXPECT_EQ(DrawPolygon(6, 3, {{0, 0}, {4, 1}}), expected);
    EXPECT_EQ(DrawPolygon(6, 3, {{4, 1}, {0, 0}}), expected);
}

TEST(RasterPolygon, LinesAreConnectedAndTheSameBothWays) {
    std::mt19937 rng(11);
    for (int n = 0; n < 400; ++n) {
        const Tz3Point a{RandomIn(rng, 0, 29), RandomIn(rng, 0, 19)};
        const Tz3Point b{RandomIn(rng, 0, 29), RandomIn(rng, 0, 19)};
        const Grid g = DrawPolygon(30, 20, {a, b});
        ASSERT_EQ(g, DrawPolygon(30, 20, {b, a})) << Describe({a, b});
        ASSERT_EQ(g, ReferenceSegment(30, 20, a, b)) << Describe({a, b}) << Picture(g);
        ASSERT_TRUE(g.At(a.x, a.y) && g.At(b.x, b.y));
        ASSERT_EQ(g.Count(), std::max(std::abs(b.x - a.x), std::abs(b.y - a.y)) + 1);
        // Every pixel but the two ends has at least two eight-neighbours in the line.
        for (int y = 0; y < 20; ++y) {
            for (int x = 0; x < 30; ++x) {
                if (!g.At(x, y) || (x == a.x && y == a.y) || (x == b.x && y == b.y)) continue;
                int neighbours = 0;
                for (int dy = -1; dy <= 1; ++dy)
                    for (int dx = -1; dx <= 1; ++dx)
                        if ((dx != 0 || dy != 0) && x + dx >= 0 && x + dx < 30 && y + dy >= 0 && y + dy < 20)
                            neighbours += g.At(x + dx, y + dy) ? 1 : 0;
                ASSERT_GE(neighbours, 2) << Describe({a, b});
            }
        }
    }
}

// ---- Polygon: fills ----

TEST(RasterPolygon, RectangleFillsIncludingRightAndBottomEdges) {
    Grid expected(10, 8);
    for (int y = 1; y <= 4; ++y)
        for (int x = 2; x <= 6; ++x) expected.Set(x, y);
    const Grid g = DrawPolygon(10, 8, {{2, 1}, {6, 1}, {6, 4}, {2, 4}});
    EXPECT_EQ(g, expected) << Picture(g);
    EXPECT_EQ(DrawPolygon(10, 8, {{2, 4}, {6, 4}, {6, 1}, {2, 1}}), expected);
}

TEST(RasterPolygon, TriangleFillsUpToItsLongSide) {
    Grid expected(12, 12);
    for (int y = 0; y <= 8; ++y)
        for (int x = 0; x + y <= 8; ++x) expected.Set(x, y);
    const Grid g = DrawPolygon(12, 12, {{0, 0}, {8, 0}, {0, 8}});
    EXPECT_EQ(g, expected) << Picture(g);
}

TEST(RasterPolygon, SlantedTriangleMatchesReference) {
    const std::vector<Tz3Point> points{{3, 1}, {17, 6}, {6, 13}};
    const Grid g = DrawPolygon(20, 15, points);
    EXPECT_EQ(g, ReferencePolygon(20, 15, points)) << Picture(g);
    EXPECT_TRUE(g.At(9, 7));
    EXPECT_FALSE(g.At(16, 12));
    EXPECT_TRUE(NoEnclosedHoles(g)) << Picture(g);
}

TEST(RasterPolygon, StarCentreIsEmptyByEvenOdd) {
    // A five-pointed star drawn in one stroke: its middle pentagon is crossed twice.
    const std::vector<Tz3Point> star{{20, 2}, {31, 36}, {2, 15}, {38, 15}, {9, 36}};
    const Grid g = DrawPolygon(41, 41, star);
    EXPECT_EQ(g, ReferencePolygon(41, 41, star)) << Picture(g);
    EXPECT_FALSE(g.At(20, 21));
    EXPECT_FALSE(g.At(17, 20));
    EXPECT_FALSE(g.At(23, 24));
    EXPECT_TRUE(g.At(20, 8));   // top point
    EXPECT_TRUE(g.At(7, 16));   // left point
    EXPECT_TRUE(g.At(28, 32));  // lower right point
    // The centre pentagon's outline is still drawn.
    EXPECT_TRUE(g.At(20, 15));
}

TEST(RasterPolygon, LastPointIsJoinedToFirst) {
    const Grid g = DrawPolygon(14, 12, {{2, 2}, {11, 2}, {11, 9}});
    Grid closing(14, 12);
    ReferenceLine(closing, 11, 9, 2, 2);
    for (int y = 0; y < 12; ++y)
        for (int x = 0; x < 14; ++x)
            if (closing.At(x, y)) {
                EXPECT_TRUE(g.At(x, y)) << x << "," << y << Picture(g);
            }
    EXPECT_TRUE(g.At(6, 5));
    EXPECT_FALSE(g.At(5, 7));
}

TEST(RasterPolygon, RepeatedPointsAndSinglePoints) {
    Grid one(5, 5);
    one.Set(3, 2);
    EXPECT_EQ(DrawPolygon(5, 5, {{3, 2}}), one);
    EXPECT_EQ(DrawPolygon(5, 5, {{3, 2}, {3, 2}, {3, 2}}), one);
}

TEST(RasterPolygon, NoPointsDrawNothing) {
    HandleGuard mask(ToBlock(MakeDibBytes(9, 4, 1)));
    const std::vector<uint8_t> before = FromBlock(mask.h);
    const Tz3Point p{1, 1};
    EXPECT_EQ(tz3::PolygonToMask(mask.h, &p, 0), 1);
    EXPECT_EQ(tz3::PolygonToMask(mask.h, &p, -3), 1);
    EXPECT_EQ(tz3::PolygonToMask(mask.h, nullptr, 4), 1);
    EXPECT_EQ(FromBlock(mask.h), before);
}

TEST(RasterPolygon, NullHandleReturnsZero) {
    const Tz3Point p[2] = {{0, 0}, {3, 3}};
    EXPECT_EQ(tz3::PolygonToMask(nullptr, p, 2), 0);
}

TEST(RasterMask, BlockTooShortForItsRowsIsLeftAlone) {
    std::vector<uint8_t> bytes = MakeDibBytes(16, 8, 1);
    bytes.resize(bytes.size() - 4);  // the top row is cut short
    HandleGuard mask(ToBlock(bytes));
    const Tz3Point p[2] = {{0, 0}, {15, 7}};
    EXPECT_EQ(tz3::PolygonToMask(mask.h, p, 2), 0);
    EXPECT_EQ(FromBlock(mask.h), bytes);
    EXPECT_EQ(tz3::EllipseToMask(mask.h, 0, 0, 16, 8), 0);
    EXPECT_EQ(Tz3GetErrorStatus(), TZ3_DRAWING_FAILED);
    EXPECT_EQ(FromBlock(mask.h), bytes);
}

TEST(RasterPolygon, KeepsBitsAlreadySet) {
    std::mt19937 rng(5);
    std::vector<uint8_t> start = tz3test::RandomMask(rng, 21, 9);
    const std::vector<Tz3Point> points{{1, 1}, {18, 3}, {4, 8}};
    HandleGuard mask(ToBlock(start));
    ASSERT_EQ(tz3::PolygonToMask(mask.h, points.data(), 3), 1);
    const std::vector<uint8_t> after = FromBlock(mask.h);
    const Grid drawn = DrawPolygon(21, 9, points);
    Grid expected = ReadMask(start, 21, 9);
    expected.Merge(drawn);
    EXPECT_EQ(ReadMask(after, 21, 9), expected);
    // Bytes other than the pixels, pad bits included, are as they were.
    const uint32_t stride = RowBytes(1, 21);
    for (size_t i = 0; i < after.size(); ++i) {
        if (i < PixelOffset(after)) {
            EXPECT_EQ(after[i], start[i]) << i;
        } else if ((i - PixelOffset(after)) % stride >= 3) {
            EXPECT_EQ(after[i], start[i]) << i;
        }
    }
}

// ---- Polygon: clipping and large coordinates ----

TEST(RasterPolygon, PointsOutsideTheSurfaceAreClipped) {
    std::mt19937 rng(23);
    for (int n = 0; n < 300; ++n) {
        const int w = RandomIn(rng, 1, 37), h = RandomIn(rng, 1, 9);
        std::vector<Tz3Point> points(static_cast<size_t>(RandomIn(rng, 2, 7)));
        for (Tz3Point &p : points) p = {RandomIn(rng, -60, w + 60), RandomIn(rng, -60, h + 60)};
        const std::vector<uint8_t> bytes = PolygonBytes(w, h, points);
        const std::vector<uint8_t> empty = MakeDibBytes(w, h, 1);
        ASSERT_EQ(bytes.size(), empty.size());
        ASSERT_TRUE(std::equal(empty.begin(), empty.begin() + static_cast<long>(PixelOffset(empty)), bytes.begin()));
        ASSERT_TRUE(PadBitsClear(bytes, w, h)) << Describe(points);
        const Grid g = ReadMask(bytes, w, h);
        ASSERT_EQ(g, ReferencePolygon(w, h, points)) << Describe(points) << Picture(g);
    }
}

TEST(RasterPolygon, HugeFiguresAroundTheSurfaceCoverIt) {
    Grid full(13, 7);
    for (int y = 0; y < 7; ++y)
        for (int x = 0; x < 13; ++x) full.Set(x, y);
    const std::vector<Tz3Point> triangle{{kMin, kMin}, {kMax, 0}, {kMin, kMax}};
    const Grid g = DrawPolygon(13, 7, triangle);
    EXPECT_EQ(g, full) << Picture(g);
    EXPECT_TRUE(PadBitsClear(PolygonBytes(13, 7, triangle), 13, 7));
    EXPECT_EQ(DrawPolygon(13, 7, {{kMin, kMin}, {kMax, kMin}, {kMax, kMax}, {kMin, kMax}}), full);
    // This one's long side runs along x + y = -1, just short of the surface.
    EXPECT_EQ(DrawPolygon(13, 7, {{kMin, kMin}, {kMax, kMin}, {kMin, kMax}}).Count(), 0);
}

TEST(RasterPolygon, HugeLinesAreExact) {
    Grid diagonal(9, 9);
    for (int i = 0; i < 9; ++i) diagonal.Set(i, i);
    EXPECT_EQ(DrawPolygon(9, 9, {{kMin, kMin}, {kMax, kMax}}), diagonal);
    // Across 2^32 columns the line rises one row; it is exactly half way at x = -0.5 + 1 / 2^33.
    Grid rise(9, 3);
    for (int x = 0; x < 9; ++x) rise.Set(x, 1);
    EXPECT_EQ(DrawPolygon(9, 3, {{kMin, 0}, {kMax, 1}}), rise);
    const Grid g = DrawPolygon(9, 3, {{kMax, 1}, {kMin, 0}});
    EXPECT_EQ(g, rise) << Picture(g);
}

TEST(RasterPolygon, HugeCoordinatesMatchReference) {
    std::mt19937 rng(31);
    for (int n = 0; n < 300; ++n) {
        const int w = RandomIn(rng, 1, 24), h = RandomIn(rng, 1, 16);
        std::vector<Tz3Point> points(static_cast<size_t>(RandomIn(rng, 2, 6)));
        for (Tz3Point &p : points) {
            if (rng() % 3 == 0) {
                p = {RandomIn(rng, -3, w + 3), RandomIn(rng, -3, h + 3)};
            } else {
                p = {RandomIn(rng, kMin, kMax), RandomIn(rng, kMin, kMax)};
            }
        }
        const Grid g = DrawPolygon(w, h, points);
        ASSERT_EQ(g, ReferencePolygon(w, h, points)) << Describe(points) << Picture(g);
    }
}

// ---- Polygon: against the slow reference ----

TEST(RasterPolygon, MatchesSlowReferenceOnRandomPolygons) {
    std::mt19937 rng(7);
    for (int n = 0; n < 600; ++n) {
        const int w = RandomIn(rng, 1, 45), h = RandomIn(rng, 1, 30);
        std::vector<Tz3Point> points(static_cast<size_t>(RandomIn(rng, 1, 12)));
        for (Tz3Point &p : points) p = {RandomIn(rng, -6, w + 6), RandomIn(rng, -6, h + 6)};
        const Grid g = DrawPolygon(w, h, points);
        ASSERT_EQ(g, ReferencePolygon(w, h, points)) << Describe(points) << Picture(g);
    }
}

TEST(RasterPolygon, OutlineIsTheLibraryLineOfEachEdge) {
    // The fill by crossing count plus the library's own two-point lines gives the same picture.
    std::mt19937 rng(8);
    for (int n = 0; n < 200; ++n) {
        const int w = RandomIn(rng, 4, 30), h = RandomIn(rng, 4, 30);
        std::vector<Tz3Point> points(static_cast<size_t>(RandomIn(rng, 3, 9)));
        for (Tz3Point &p : points) p = {RandomIn(rng, -4, w + 4), RandomIn(rng, -4, h + 4)};
        Grid expected(w, h);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                if (ReferenceInside(points, x, y)) expected.Set(x, y);
        for (size_t i = 0; i < points.size(); ++i)
            expected.Merge(DrawPolygon(w, h, {points[i], points[(i + 1) % points.size()]}));
        ASSERT_EQ(DrawPolygon(w, h, points), expected) << Describe(points);
    }
}

TEST(RasterPolygon, ConvexPolygonsHaveNoHoles) {
    std::mt19937 rng(19);
    for (int n = 0; n < 400; ++n) {
        std::vector<Tz3Point> cloud(static_cast<size_t>(RandomIn(rng, 3, 9)));
        for (Tz3Point &p : cloud) p = {RandomIn(rng, 0, 39), RandomIn(rng, 0, 29)};
        const std::vector<Tz3Point> hull = ConvexHull(cloud);
        const Grid g = DrawPolygon(40, 30, hull);
        ASSERT_TRUE(NoEnclosedHoles(g)) << Describe(hull) << Picture(g);
    }
}

TEST(RasterPolygon, RowsWiderThanOnePassMatchReference) {
    const int w = 70001, h = 4;
    const std::vector<Tz3Point> points{{-5, 0}, {69990, 1}, {40000, 3}, {65000, 0}, {12, 3}};
    const Grid g = DrawPolygon(w, h, points);
    const Grid expected = ReferencePolygon(w, h, points);
    EXPECT_TRUE(g == expected);
    EXPECT_TRUE(PadBitsClear(PolygonBytes(w, h, points), w, h));
    EXPECT_GT(g.Count(), 100000);
}

// ---- Ellipse ----

TEST(RasterEllipse, StaysInsideItsBox) {
    const Grid g = DrawEllipse(20, 16, 3, 2, 15, 11);
    for (int y = 0; y < 16; ++y)
        for (int x = 0; x < 20; ++x)
            if (x < 3 || x >= 15 || y < 2 || y >= 11) {
                EXPECT_FALSE(g.At(x, y)) << x << "," << y << Picture(g);
            }
}

TEST(RasterEllipse, ReachesEveryRowAndColumnOfItsBox) {
    std::mt19937 rng(3);
    for (int n = 0; n < 300; ++n) {
        const int l = RandomIn(rng, 0, 10), t = RandomIn(rng, 0, 10);
        const int r = l + RandomIn(rng, 1, 28), b = t + RandomIn(rng, 1, 28);
        const Grid g = DrawEllipse(40, 40, l, t, r, b);
        for (int y = t; y < b; ++y) {
            bool any = false;
            for (int x = l; x < r; ++x) any = any || g.At(x, y);
            ASSERT_TRUE(any) << "row " << y << Picture(g);
        }
        for (int x = l; x < r; ++x) {
            bool any = false;
            for (int y = t; y < b; ++y) any = any || g.At(x, y);
            ASSERT_TRUE(any) << "column " << x << Picture(g);
        }
        ASSERT_TRUE(NoEnclosedHoles(g)) << Picture(g);
        for (int y = 0; y < 40; ++y)
            for (int x = 0; x < 40; ++x)
                if (x < l || x >= r || y < t || y >= b) {
                    ASSERT_FALSE(g.At(x, y)) << Picture(g);
                }
    }
}

TEST(RasterEllipse, IsSymmetricBothWays) {
    std::mt19937 rng(4);
    for (int n = 0; n < 300; ++n) {
        const int l = RandomIn(rng, 0, 6), t = RandomIn(rng, 0, 6);
        const int r = l + RandomIn(rng, 1, 33), b = t + RandomIn(rng, 1, 33);
        const Grid g = DrawEllipse(40, 40, l, t, r, b);
        for (int y = t; y < b; ++y) {
            for (int x = l; x < r; ++x) {
                ASSERT_EQ(g.At(x, y), g.At(l + r - 1 - x, y)) << Picture(g);
                ASSERT_EQ(g.At(x, y), g.At(x, t + b - 1 - y)) << Picture(g);
            }
        }
        // Each row is a single run.
        for (int y = t; y < b; ++y) {
            int runs = 0;
            for (int x = 0; x < 40; ++x) runs += (g.At(x, y) && (x == 0 || !g.At(x - 1, y))) ? 1 : 0;
            ASSERT_EQ(runs, 1) << "row " << y << Picture(g);
        }
    }
}

TEST(RasterEllipse, CircleInASquareIsSymmetricAcrossTheDiagonal) {
    const Grid g = DrawEllipse(24, 24, 2, 2, 21, 21);
    for (int y = 0; y < 24; ++y)
        for (int x = 0; x < 24; ++x) EXPECT_EQ(g.At(x, y), g.At(y, x)) << Picture(g);
}

TEST(RasterEllipse, FollowsTheEllipseGeometry) {
    // Every pixel whose centre is inside the ellipse is set, and every set pixel's cell meets the
    // closed ellipse: the figure never strays from the curve by a whole pixel.
    std::mt19937 rng(9);
    for (int n = 0; n < 200; ++n) {
        const int l = RandomIn(rng, 0, 5), t = RandomIn(rng, 0, 5);
        const int r = l + RandomIn(rng, 1, 40), b = t + RandomIn(rng, 1, 40);
        const Grid g = DrawEllipse(50, 50, l, t, r, b);
        const double cx = (l + r) / 2.0, cy = (t + b) / 2.0, a = (r - l) / 2.0, c = (b - t) / 2.0;
        for (int y = t; y < b; ++y) {
            for (int x = l; x < r; ++x) {
                const double px = (x + 0.5 - cx) / a, py = (y + 0.5 - cy) / c;
                if (px * px + py * py < 1 - 1e-9) {
                    ASSERT_TRUE(g.At(x, y)) << x << "," << y << Picture(g);
                }
                if (g.At(x, y)) {
                    const double nx = std::clamp(0.0, (x - cx) / a, (x + 1 - cx) / a);
                    const double ny = std::clamp(0.0, (y - cy) / c, (y + 1 - cy) / c);
                    ASSERT_LE(nx * nx + ny * ny, 1 + 1e-9) << x << "," << y << Picture(g);
                }
            }
        }
    }
}

TEST(RasterEllipse, MatchesTheRulePixelByPixel) {
    std::mt19937 rng(10);
    for (int n = 0; n < 300; ++n) {
        const int w = RandomIn(rng, 1, 40), h = RandomIn(rng, 1, 40);
        const int l = RandomIn(rng, -20, w + 5), t = RandomIn(rng, -20, h + 5);
        const int r = l + RandomIn(rng, 1, 60), b = t + RandomIn(rng, 1, 60);
        const Grid g = DrawEllipse(w, h, l, t, r, b);
        ASSERT_EQ(g, ReferenceEllipse(w, h, l, t, r, b)) << l << " " << t << " " << r << " " << b << Picture(g);
    }
}

TEST(RasterEllipse, SmallBoxes) {
    Grid one(5, 5);
    one.Set(2, 3);
    EXPECT_EQ(DrawEllipse(5, 5, 2, 3, 3, 4), one);
    // A box one pixel high or wide is a straight run.
    Grid row(9, 3), column(3, 9);
    for (int i = 1; i <= 7; ++i) {
        row.Set(i, 1);
        column.Set(1, i);
    }
    EXPECT_EQ(DrawEllipse(9, 3, 1, 1, 8, 2), row);
    EXPECT_EQ(DrawEllipse(3, 9, 1, 1, 2, 8), column);
}

TEST(RasterEllipse, EmptyRectangleDrawsNothingAndSucceeds) {
    HandleGuard mask(ToBlock(MakeDibBytes(8, 8, 1)));
    const std::vector<uint8_t> before = FromBlock(mask.h);
    const int32_t boxes[4][4] = {{2, 2, 2, 6}, {2, 2, 6, 2}, {5, 1, 2, 6}, {1, 6, 6, 1}};
    for (const auto &box : boxes) {
        tz3::SetErrorStatus(TZ3_BAD_PARAMETER);
        EXPECT_EQ(tz3::EllipseToMask(mask.h, box[0], box[1], box[2], box[3]), 1);
        EXPECT_EQ(Tz3GetErrorStatus(), TZ3_OK);
    }
    EXPECT_EQ(FromBlock(mask.h), before);
}

TEST(RasterEllipse, PartlyOutsideIsTheWholeEllipseClipped) {
    const int l = -7, t = -4, r = 15, b = 11;
    const Grid big = DrawEllipse(60, 60, l + 30, t + 30, r + 30, b + 30);
    const Grid g = DrawEllipse(10, 8, l, t, r, b);
    Grid expected(10, 8);
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 10; ++x)
            if (big.At(x + 30, y + 30)) expected.Set(x, y);
    EXPECT_EQ(g, expected) << Picture(g);
    EXPECT_EQ(DrawEllipse(10, 8, -40, -40, -10, -10).Count(), 0);
    EXPECT_EQ(DrawEllipse(10, 8, 20, 2, 30, 6).Count(), 0);
}

TEST(RasterEllipse, PadBitsStayClear) {
    HandleGuard mask(ToBlock(MakeDibBytes(13, 6, 1)));
    ASSERT_EQ(tz3::EllipseToMask(mask.h, -20, -20, 40, 40), 1);
    const std::vector<uint8_t> bytes = FromBlock(mask.h);
    EXPECT_TRUE(PadBitsClear(bytes, 13, 6));
    EXPECT_EQ(ReadMask(bytes, 13, 6).Count(), 13 * 6);
}

TEST(RasterEllipse, HugeBoxesAreExact) {
    // The surface sits at the middle of the largest box: all of it is covered.
    EXPECT_EQ(DrawEllipse(11, 5, kMin, kMin, kMax, kMax).Count(), 55);
    std::mt19937 rng(12);
    for (int n = 0; n < 200; ++n) {
        const int w = RandomIn(rng, 1, 20), h = RandomIn(rng, 1, 20);
        int32_t l = RandomIn(rng, kMin, kMax), r = RandomIn(rng, kMin, kMax);
        int32_t t = RandomIn(rng, kMin, kMax), b = RandomIn(rng, kMin, kMax);
        if (n % 2 == 0) {
            // Boxes whose edge passes close to the surface.
            l = RandomIn(rng, kMin, -1);
            r = RandomIn(rng, 0, kMax);
            t = RandomIn(rng, -40, 20);
            b = RandomIn(rng, kMax / 2, kMax);
        }
        const Grid g = DrawEllipse(w, h, l, t, r, b);
        ASSERT_EQ(g, ReferenceEllipse(w, h, l, t, r, b)) << l << " " << t << " " << r << " " << b << Picture(g);
    }
}

TEST(RasterEllipse, KeepsBitsAlreadySet) {
    std::mt19937 rng(6);
    const std::vector<uint8_t> start = tz3test::RandomMask(rng, 19, 11);
    HandleGuard mask(ToBlock(start));
    ASSERT_EQ(tz3::EllipseToMask(mask.h, 2, 1, 17, 10), 1);
    Grid expected = ReadMask(start, 19, 11);
    expected.Merge(DrawEllipse(19, 11, 2, 1, 17, 10));
    EXPECT_EQ(ReadMask(FromBlock(mask.h), 19, 11), expected);
}

TEST(RasterEllipse, StatusAfterSuccessAndWithNullHandle) {
    HandleGuard mask(ToBlock(MakeDibBytes(8, 8, 1)));
    tz3::SetErrorStatus(TZ3_NO_MEMORY);
    EXPECT_EQ(tz3::EllipseToMask(mask.h, 1, 1, 7, 6), 1);
    EXPECT_EQ(Tz3GetErrorStatus(), TZ3_OK);
    EXPECT_EQ(tz3::EllipseToMask(nullptr, 1, 1, 7, 6), 0);
    EXPECT_EQ(Tz3GetErrorStatus(), TZ3_DRAWING_FAILED);
}

}  // namespace
