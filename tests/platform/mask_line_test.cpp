// The seam drawing on 1-bit masks: the open-ended line and the four-way flood fill, checked against
// plain references worked out here, with their results and statuses.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <deque>
#include <random>
#include <vector>

#include "platform/companion.h"
#include "platform/raster.h"
#include "support/test_images.h"
#include "support/tone_harness.h"

namespace {

using namespace tz3test;

// A black-and-white mask of the given size, all clear.
std::vector<uint8_t> BlankMask(int width, int height) {
    std::vector<uint8_t> m = MakeDibBytes(width, height, 1);
    m[44] = m[45] = m[46] = 255;
    return m;
}

// Bit at column x of the row y counted from the top.
bool TopDownBit(const std::vector<uint8_t> &mask, int x, int y) {
    return MaskBit(mask, x, ImageHeight(mask) - 1 - y);
}

std::vector<uint8_t> Draw(const std::vector<uint8_t> &mask, int x0, int y0, int x1, int y1, int32_t *result) {
    HandleGuard h(ToBlock(mask));
    *result = tz3::DrawMaskLine(h.h, x0, y0, x1, y1);
    EXPECT_TRUE(IsUnlocked(h.h));
    return FromBlock(h.h);
}

// floor(n / d) for d > 0.
int64_t Floor(int64_t n, int64_t d) {
    return n / d - ((n % d != 0 && n < 0) ? 1 : 0);
}

// The line's pixels from the rule: along the longer axis from the first point, one pixel per step,
// the last point left out, the other coordinate the exact one rounded half up.
std::vector<std::pair<int64_t, int64_t>> LinePixels(int64_t x0, int64_t y0, int64_t x1, int64_t y1) {
    std::vector<std::pair<int64_t, int64_t>> out;
    const int64_t dx = x1 - x0, dy = y1 - y0;
    const int64_t adx = std::llabs(dx), ady = std::llabs(dy);
    if (adx >= ady) {
        for (int64_t k = 0; k < adx; ++k)
            out.push_back({x0 + (dx > 0 ? k : -k), y0 + Floor(2 * dy * k + adx, 2 * adx)});
    } else {
        for (int64_t k = 0; k < ady; ++k)
            out.push_back({x0 + Floor(2 * dx * k + ady, 2 * ady), y0 + (dy > 0 ? k : -k)});
    }
    return out;
}

TEST(DrawMaskLine, DrawsFromTheFirstPointUpToButNotIncludingTheLast) {
    int32_t result = 0;
    const auto out = Draw(BlankMask(10, 6), 1, 1, 5, 1, &result);
    EXPECT_EQ(result, 1);
    EXPECT_EQ(Tz3GetErrorStatus(), 0);
    for (int y = 0; y < 6; ++y)
        for (int x = 0; x < 10; ++x)
            EXPECT_EQ(TopDownBit(out, x, y), y == 1 && x >= 1 && x <= 4) << x << "," << y;
    const auto diagonal = Draw(BlankMask(6, 6), 0, 0, 4, 4, &result);
    for (int i = 0; i < 4; ++i) EXPECT_TRUE(TopDownBit(diagonal, i, i));
    EXPECT_FALSE(TopDownBit(diagonal, 4, 4));
}

TEST(DrawMaskLine, ALineReachingPastBothEdgesCutsTheWholeSurface) {
    int32_t result = 0;
    const auto row = Draw(BlankMask(9, 7), -10, 2, 9 + 9, 2, &result);
    for (int x = 0; x < 9; ++x) EXPECT_TRUE(TopDownBit(row, x, 2));
    EXPECT_TRUE(MaskBit(row, 0, 7 - 1 - 2)) << "top-down row 2 is stored row height - 3";
    const auto column = Draw(BlankMask(9, 7), 3, -10, 3, 7 + 9, &result);
    for (int y = 0; y < 7; ++y) EXPECT_TRUE(TopDownBit(column, 3, y));
}

TEST(DrawMaskLine, MatchesTheRuleForRandomLinesClippedToTheSurface) {
    std::mt19937 rng(801);
    for (int trial = 0; trial < 400; ++trial) {
        const int w = 1 + static_cast<int>(rng() % 33), h = 1 + static_cast<int>(rng() % 20);
        const auto coord = [&](int size) { return static_cast<int>(rng() % (size + 40)) - 20; };
        const int x0 = coord(w), y0 = coord(h), x1 = coord(w), y1 = coord(h);
        int32_t result = 0;
        const auto out = Draw(BlankMask(w, h), x0, y0, x1, y1, &result);
        ASSERT_EQ(result, 1);
        std::vector<uint8_t> want(static_cast<size_t>(w) * h, 0);
        for (const auto &p : LinePixels(x0, y0, x1, y1))
            if (p.first >= 0 && p.first < w && p.second >= 0 && p.second < h)
                want[p.second * w + p.first] = 1;
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                ASSERT_EQ(TopDownBit(out, x, y), want[y * w + x] != 0)
                    << Describe("line", w, h, x0, y0, x1, y1) << " at " << x << "," << y;
    }
}

TEST(DrawMaskLine, ALockThatFailsGivesZeroWithoutAStatusAndABadSurfaceStatusNine) {
    tz3::SetErrorStatus(5);
    EXPECT_EQ(tz3::DrawMaskLine(nullptr, 0, 0, 3, 3), 0);
    EXPECT_EQ(Tz3GetErrorStatus(), 5);
    HandleGuard eightBit(ToBlock(MakeDibBytes(4, 4, 8)));
    EXPECT_EQ(tz3::DrawMaskLine(eightBit.h, 0, 0, 3, 3), 0);
    EXPECT_EQ(Tz3GetErrorStatus(), 9);
}

// Four-way fill of a grid from a seed, over cells equal to `from`.
std::vector<uint8_t> FloodReference(std::vector<uint8_t> cells, int w, int h, int sx, int sy, uint8_t from,
                                    uint8_t to) {
    if (sx < 0 || sx >= w || sy < 0 || sy >= h || cells[sy * w + sx] != from || from == to) return cells;
    std::deque<std::pair<int, int>> queue{{sx, sy}};
    cells[sy * w + sx] = to;
    while (!queue.empty()) {
        const auto [x, y] = queue.front();
        queue.pop_front();
        const int steps[4][2] = {{1, 0}, {-1, 0}, {0, 1}, {0, -1}};
        for (const auto &s : steps) {
            const int nx = x + s[0], ny = y + s[1];
            if (nx < 0 || nx >= w || ny < 0 || ny >= h || cells[ny * w + nx] != from) continue;
            cells[ny * w + nx] = to;
            queue.push_back({nx, ny});
        }
    }
    return cells;
}

TEST(FloodMaskSide, FillsTheClearPixelsJoinedToTheSeedAndStopsAtTheLine) {
    std::vector<uint8_t> mask = BlankMask(8, 5);
    int32_t result = 0;
    mask = Draw(mask, 3, -10, 3, 14, &result);
    HandleGuard h(ToBlock(mask));
    EXPECT_EQ(tz3::FloodMaskSide(h.h, 0, 0, 0, 0xFFFFFF), 1);
    EXPECT_EQ(Tz3GetErrorStatus(), 0);
    const auto out = FromBlock(h.h);
    for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 8; ++x) EXPECT_EQ(TopDownBit(out, x, y), x <= 3) << x << "," << y;
}

TEST(FloodMaskSide, ADiagonalLineHoldsAFourWayFill) {
    int32_t result = 0;
    const auto mask = Draw(BlankMask(6, 6), -1, -1, 8, 8, &result);
    HandleGuard h(ToBlock(mask));
    EXPECT_EQ(tz3::FloodMaskSide(h.h, 5, 0, 0, 0xFFFFFF), 1);
    const auto out = FromBlock(h.h);
    for (int y = 0; y < 6; ++y)
        for (int x = 0; x < 6; ++x) EXPECT_EQ(TopDownBit(out, x, y), x >= y) << x << "," << y;
}

TEST(FloodMaskSide, ASeedOnTheLineFillsNothingAndIsNoFailure) {
    int32_t result = 0;
    const auto mask = Draw(BlankMask(8, 5), 3, -10, 3, 14, &result);
    HandleGuard h(ToBlock(mask));
    EXPECT_EQ(tz3::FloodMaskSide(h.h, 3, 2, 0, 0xFFFFFF), 1);
    EXPECT_EQ(FromBlock(h.h), mask);
}

TEST(FloodMaskSide, MatchesAFourWayFillOnRandomMasks) {
    std::mt19937 rng(802);
    for (int trial = 0; trial < 300; ++trial) {
        const int w = 1 + static_cast<int>(rng() % 40), h = 1 + static_cast<int>(rng() % 25);
        std::vector<uint8_t> mask = BlankMask(w, h);
        std::vector<uint8_t> cells(static_cast<size_t>(w) * h);
        // Sparse walls, so that regions of every shape appear.
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                const bool wall = rng() % 100 < 35;
                cells[y * w + x] = wall;
                if (wall)
                    mask[PixelOffset(mask) + RowBytes(1, w) * static_cast<size_t>(h - 1 - y) + x / 8] |=
                        static_cast<uint8_t>(0x80 >> (x % 8));
            }
        const int sx = static_cast<int>(rng() % w), sy = static_cast<int>(rng() % h);
        HandleGuard block(ToBlock(mask));
        ASSERT_EQ(tz3::FloodMaskSide(block.h, sx, sy, 0, 0xFFFFFF), 1);
        const auto out = FromBlock(block.h);
        const auto want = FloodReference(cells, w, h, sx, sy, 0, 1);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                ASSERT_EQ(TopDownBit(out, x, y), want[y * w + x] != 0)
                    << Describe("fill", w, h, sx, sy, x, y);
    }
}

TEST(FloodMaskSide, FillsSetPixelsWithBlackWhenAskedTo) {
    std::vector<uint8_t> mask = BlankMask(5, 3);
    for (size_t i = PixelOffset(mask); i < mask.size(); ++i) mask[i] = 0xFF;
    HandleGuard h(ToBlock(mask));
    EXPECT_EQ(tz3::FloodMaskSide(h.h, 2, 1, 0xFFFFFF, 0), 1);
    const auto out = FromBlock(h.h);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 5; ++x) EXPECT_FALSE(TopDownBit(out, x, y));
}

TEST(FloodMaskSide, ALockThatFailsGivesZeroWithoutAStatusAndNoWorkingMemoryStatusTwo) {
    tz3::SetErrorStatus(5);
    EXPECT_EQ(tz3::FloodMaskSide(nullptr, 0, 0, 0, 0xFFFFFF), 0);
    EXPECT_EQ(Tz3GetErrorStatus(), 5);
    HandleGuard eightBit(ToBlock(MakeDibBytes(4, 4, 8)));
    EXPECT_EQ(tz3::FloodMaskSide(eightBit.h, 0, 0, 0, 0xFFFFFF), 0);
    EXPECT_EQ(Tz3GetErrorStatus(), 2);
    HandleGuard h(ToBlock(BlankMask(6, 4)));
    const size_t live = Tz3LiveBlocks();
    {
        FailingAllocator failing(0);
        EXPECT_EQ(tz3::FloodMaskSide(h.h, 0, 0, 0, 0xFFFFFF), 0);
        EXPECT_EQ(Tz3GetErrorStatus(), 2);
    }
    EXPECT_EQ(Tz3LiveBlocks(), live);
}

}  // namespace
