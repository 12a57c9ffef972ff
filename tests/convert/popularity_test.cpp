// The popularity count of 8-bit images going to 16 colours: the cells, the colour the last pixel
// of a cell leaves, the order of the heap sort, black for empty cells, the error carried along the
// row only, the cancel while counting that reports 3, and random images against the rules.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "support/convert_calls.h"
#include "support/convert_reference.h"
#include "support/test_images.h"
#include "tz3effect.h"

using namespace tz3test;

namespace {

// An 8-bit image of width x height with the given table (blue, green, red per entry) and indices
// row by row from the bottom row.
std::vector<uint8_t> Indexed8(int width, int height, const std::vector<Entry> &table, const std::vector<int> &indices) {
    std::vector<uint8_t> d = MakeDibBytes(width, height, 8, static_cast<uint32_t>(table.size()));
    for (size_t i = 0; i < table.size(); ++i) {
        d[40 + 4 * i] = static_cast<uint8_t>(table[i].b);
        d[41 + 4 * i] = static_cast<uint8_t>(table[i].g);
        d[42 + 4 * i] = static_cast<uint8_t>(table[i].r);
    }
    const size_t at = 40 + 4 * table.size();
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            d[at + RowBytes(8, width) * y + x] = static_cast<uint8_t>(indices[static_cast<size_t>(y * width + x)]);
    return d;
}

const Entry kGray100{100, 100, 100, 0}, kGray114{114, 114, 114, 0}, kGray118{118, 118, 118, 0},
    kGray140{140, 140, 140, 0};

// Rows from the bottom: 118 100 / 114 100 / 140 140. The grays 100, 114 and 118 share cell
// (1 x 16 + 1 x 4 + 1) = 21, 140 is in cell 42. Pixels are visited from row 0 left to right, so
// the last pixel of cell 21 is row 1's 100: the cell's colour is 100, its count 4; cell 42 holds
// 140 twice. Sorted largest first: 100, 140, then 14 cells no pixel reached, which are black.
std::vector<uint8_t> ThreeRows() {
    return Indexed8(2, 3, {kGray100, kGray114, kGray118, kGray140}, {2, 0, 1, 0, 3, 3});
}

TEST(Popularity, LastPixelOfACellSetsItsColourAndEmptyCellsAreBlack) {
    const Converted c = ConvertBytes(ThreeRows(), 4, 0, 0);
    ASSERT_EQ(c.status, 0);
    EXPECT_EQ(Field32(c.bytes, 32), 0u);
    EXPECT_EQ(EntryAt(c.bytes, 0), kGray100);
    EXPECT_EQ(EntryAt(c.bytes, 1), kGray140);
    for (int i = 2; i < 16; ++i) EXPECT_EQ(EntryAt(c.bytes, i), (Entry{0, 0, 0, 0})) << "entry " << i;
    // Without diffusion: 118 and 114 are nearer 100 than 140, and 140 is itself.
    const int expected[3][2] = {{0, 0}, {0, 0}, {1, 1}};
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 2; ++x) EXPECT_EQ(IndexAt(c.bytes, x, y), expected[y][x]) << x << "," << y;
}

// With diffusion the 7/16 share replaces the term of the pixel ahead. Table: 0 = 100, 1 = 140.
//   row 0, forward:  x0 118 -> 0, e = 18: next[x1] += 1, next[x0] += 5, this[x1] = 7.
//                    x1 100 + 7 = 107 -> 0, e = 7: next[x1] += 2 (3), next[x0] += 1 (6).
//   row 1, backward: terms from below x0 6, x1 3.
//                    x1 100 + 3 = 103 -> 0, e = 3: this[x0] = 21 / 16 = 1, replacing the 6.
//                    x0 114 + 1 = 115 -> 0 (were the 6 kept, 121 would go to 140).
//                    e = 15: next[x0] += 75 / 16 = 4, next[x1] += 45 / 16 = 2.
//   row 2, forward:  x0 140 + 4 -> 1, e = 4: this[x1] = 28 / 16 = 1, replacing the 2.
//                    x1 141 -> 1.
TEST(Popularity, DiffusionReplacesTheTermAheadByHand) {
    const Converted c = ConvertBytes(ThreeRows(), 4, 0, 1);
    ASSERT_EQ(c.status, 0);
    const int expected[3][2] = {{0, 0}, {0, 0}, {1, 1}};
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 2; ++x) EXPECT_EQ(IndexAt(c.bytes, x, y), expected[y][x]) << x << "," << y;
    EXPECT_EQ(c.bytes, ReferenceConvert(ThreeRows(), 4, 0, 1, 0));
}

// Equal counts: the heap sort runs over a list counted from 0 whose node 0 has the one child 1.
// Four cells of one pixel each, at cells 0 (black 10), 21 (gray 100), 42 (gray 150), 63 (white):
// the sorted order of equal counts is the transcription's, and empty cells come last.
TEST(Popularity, EqualCountsComeOutInTheSortsOwnOrder) {
    const std::vector<uint8_t> src = Indexed8(
        4, 1, {Entry{10, 10, 10, 0}, kGray100, Entry{150, 150, 150, 0}, Entry{250, 250, 250, 0}}, {0, 1, 2, 3});
    const Converted c = ConvertBytes(src, 4, 0, 0);
    ASSERT_EQ(c.status, 0);
    EXPECT_EQ(c.bytes, ReferenceConvert(src, 4, 0, 0, 0));
    // Whatever their order, the four colours are the first four entries and the rest are black.
    std::vector<int> firstFour;
    for (int i = 0; i < 4; ++i) firstFour.push_back(EntryAt(c.bytes, i).g);
    std::sort(firstFour.begin(), firstFour.end());
    EXPECT_EQ(firstFour, (std::vector<int>{10, 100, 150, 250}));
    for (int i = 4; i < 16; ++i) EXPECT_EQ(EntryAt(c.bytes, i), (Entry{0, 0, 0, 0}));
}

// Larger counts come first.
TEST(Popularity, LargerCountsComeFirst) {
    // Cell counts: 150 gray x3, 250 x2, 100 x1.
    const std::vector<uint8_t> src =
        Indexed8(6, 1, {kGray100, Entry{150, 150, 150, 0}, Entry{250, 250, 250, 0}}, {2, 1, 0, 1, 2, 1});
    const Converted c = ConvertBytes(src, 4, 0, 0);
    ASSERT_EQ(c.status, 0);
    EXPECT_EQ(EntryAt(c.bytes, 0).g, 150);
    EXPECT_EQ(EntryAt(c.bytes, 1).g, 250);
    EXPECT_EQ(EntryAt(c.bytes, 2).g, 100);
}

// An index past a short table reads the bytes that follow it in the block (here the pixel rows).
TEST(Popularity, IndicesPastAShortTableReadTheBlock) {
    std::mt19937 rng(441);
    for (int n = 0; n < 20; ++n) {
        const std::vector<uint8_t> src = RandomPaletteDib(rng, 1 + n, 1 + n % 4, 8, 1 + static_cast<uint32_t>(rng() % 6));
        const int dither = static_cast<int>(rng() % 2);
        const Converted c = ConvertBytes(src, 4, 0, dither);
        ASSERT_EQ(c.status, 0);
        EXPECT_EQ(c.bytes, ReferenceConvert(src, 4, 0, dither, 0)) << "case " << n;
    }
}

TEST(Popularity, RandomImagesMatchTheRules) {
    std::mt19937 rng(442);
    for (int width = 1; width <= 33; ++width) {
        const std::vector<uint8_t> src = rng() % 2 == 0
                                             ? RandomDib(rng, width, 1 + static_cast<int>(rng() % 5), 8)
                                             : RandomPaletteDib(rng, width, 1 + static_cast<int>(rng() % 5), 8,
                                                                1 + static_cast<uint32_t>(rng() % 256));
        for (int dither : {0, 1}) {
            const Converted c = ConvertBytes(src, 4, 0, dither);
            ASSERT_EQ(c.status, 0);
            EXPECT_EQ(c.bytes, ReferenceConvert(src, 4, 0, dither, 0)) << "width " << width << " dither " << dither;
        }
    }
}

// A cancel while counting sets 1, and the step's failure path sets 3 over it; a cancel in the rows
// after the count stays 1.
TEST(Popularity, CancelWhileCountingReportsThree) {
    std::mt19937 rng(443);
    const std::vector<uint8_t> src = RandomDib(rng, 6, 3, 8);
    HandleGuard image(ToBlock(src));
    const size_t live = Tz3LiveBlocks();
    for (long at = 0; at < 6; ++at) {
        ProgressRecorder progress(at);
        EXPECT_EQ(TZ3ConvertColor(image.h, 4, 0, 1, 0, 1, 0, 0, 0), nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), at < 3 ? 3 : 1) << "cancel at " << at;
        EXPECT_EQ(progress.calls.back().high, at < 3 ? 10 : 100);
        EXPECT_EQ(Tz3LiveBlocks(), live);
    }
}

}  // namespace
