// The row conversion: the mapping of a colour for 1 bit, 4 bits, the 216-colour cube and gray, the
// serpentine rows and the plain (additive) diffusion of fixed tables, worked by hand on small
// images; the rules' edge cases; and random images against the transcription.
#include <gtest/gtest.h>

#include <random>

#include "support/convert_calls.h"
#include "support/convert_reference.h"
#include "support/test_images.h"
#include "support/tone_harness.h"
#include "tz3effect.h"

using namespace tz3test;

namespace {

std::vector<uint8_t> Colours24(int width, int height, const std::vector<Entry> &pixels) {
    std::vector<uint8_t> d = MakeDibBytes(width, height, 24);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const Entry &e = pixels[static_cast<size_t>(y * width + x)];
            uint8_t *p = &d[40 + RowBytes(24, width) * y + 3 * static_cast<size_t>(x)];
            p[0] = static_cast<uint8_t>(e.b);
            p[1] = static_cast<uint8_t>(e.g);
            p[2] = static_cast<uint8_t>(e.r);
        }
    return d;
}

// ---- 1 bit ----

// White when (blue + green + red) / 3, truncated, reaches the threshold; the channels weigh alike.
TEST(DitherMap, OneBitComparesTheMeanLevelWithTheThreshold) {
    const std::vector<uint8_t> src = Colours24(
        5, 1, {{100, 100, 101, 0}, {100, 100, 99, 0}, {255, 0, 0, 0}, {0, 255, 0, 0}, {0, 0, 255, 0}});
    // Means 100, 99, 85, 85, 85.
    const Converted at100 = ConvertBytes(src, 1, 0, 0, 100);
    const int expected100[5] = {1, 0, 0, 0, 0};
    const Converted at85 = ConvertBytes(src, 1, 0, 0, 85);
    const int expected85[5] = {1, 1, 1, 1, 1};
    for (int x = 0; x < 5; ++x) {
        EXPECT_EQ(IndexAt(at100.bytes, x, 0), expected100[x]) << x;
        EXPECT_EQ(IndexAt(at85.bytes, x, 0), expected85[x]) << x;
    }
    EXPECT_EQ(EntryAt(at100.bytes, 0), (Entry{0, 0, 0, 0}));
    EXPECT_EQ(EntryAt(at100.bytes, 1), (Entry{255, 255, 255, 0}));
    EXPECT_EQ(Field32(at100.bytes, 32), 0u);
}

TEST(DitherMap, ThresholdZeroMakesAllWhiteAnd255OnlyFullWhite) {
    std::mt19937 rng(451);
    std::vector<uint8_t> src = RandomDib(rng, 19, 5, 24);
    // One pixel of full white, one just below.
    src[40] = src[41] = src[42] = 255;
    src[43] = src[44] = 255;
    src[45] = 254;
    const Converted zero = ConvertBytes(src, 1, 0, 0, 0);
    const Converted full = ConvertBytes(src, 1, 0, 0, 255);
    for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 19; ++x) {
            const uint8_t *p = &src[40 + RowBytes(24, 19) * y + 3 * static_cast<size_t>(x)];
            EXPECT_EQ(IndexAt(zero.bytes, x, y), 1);
            EXPECT_EQ(IndexAt(full.bytes, x, y), p[0] == 255 && p[1] == 255 && p[2] == 255 ? 1 : 0);
        }
    EXPECT_EQ(IndexAt(full.bytes, 0, 0), 1);
    EXPECT_EQ(IndexAt(full.bytes, 1, 0), 0);
}

// Gray 100 everywhere, threshold 128, 1 bit with diffusion; the call passes fixedPalette 0, and
// still the 7/16 share is added (at 1 bit the table is always fixed). Each share truncates.
//   row 0, forward:  x0 100 -> 0, e = 100: next[x1] += 6, next[x0] += 31, this[x1] += 43.
//                    x1 143 -> 1, e = -112: next[x2] -= 7, next[x1] -= 35, next[x0] -= 21, this[x2] -= 49.
//                    x2 51 -> 0, e = 51: next[x2] += 15, next[x1] += 9.
//                    terms to row 1: x0 10, x1 -20, x2 8.
//   row 1, backward: x2 108 -> 0, e = 108: this[x1] += 47, giving 27.
//                    x1 127 -> 0 (had the 47 replaced the -20 it would be 147 -> 1), e = 127:
//                    this[x0] += 55, giving 65.
//                    x0 165 -> 1.
TEST(DitherMap, OneBitDiffusionIsAdditiveAndSerpentineByHand) {
    const std::vector<uint8_t> src = Gray24(3, 2, {100, 100, 100, 100, 100, 100});
    const Converted c = ConvertBytes(src, 1, 0, 1, 128);
    ASSERT_EQ(c.status, 0);
    const size_t at = PixelOffset(c.bytes);
    EXPECT_EQ(c.bytes[at], 0x40);      // row 0: 0 1 0
    EXPECT_EQ(c.bytes[at + 4], 0x80);  // row 1: 1 0 0
    const Converted plain = ConvertBytes(src, 1, 0, 0, 128);
    EXPECT_EQ(plain.bytes[at], 0x00);
    EXPECT_EQ(plain.bytes[at + 4], 0x00);
}

// Rows alternate by their number in storage: row 0, the bottom row, runs left to right. One row
// 100 100 200 at threshold 128:
//   left to right: 100 -> 0 (e = 100, +43 ahead), 143 -> 1 (e = -112, -49 ahead), 151 -> 1: 0 1 1.
//   right to left would give 200 -> 1 (e = -55, -24 ahead), 76 -> 0 (e = 76, +33 ahead), 133 -> 1.
TEST(DitherMap, RowZeroRunsLeftToRight) {
    const Converted c = ConvertBytes(Gray24(3, 1, {100, 100, 200}), 1, 0, 1, 128);
    ASSERT_EQ(c.status, 0);
    EXPECT_EQ(c.bytes[PixelOffset(c.bytes)], 0x60);  // 0 1 1
}

// ---- 4 bits with the fixed table ----

// Gray pixels against the 16 fixed colours: nearest are black (0), 127 (7), 192 (8), white (15).
// Rows from the bottom: 100 100 / 100 80, diffusion added.
//   row 0, forward:  x0 100 -> 7, e = -27: next[x1] -= 1, next[x0] -= 8, this[x1] -= 11.
//                    x1 89 -> 7, e = -38: next[x1] -= 11, next[x0] -= 7.
//                    terms to row 1: x0 -15, x1 -12.
//   row 1, backward: x1 80 - 12 = 68 -> 7, e = -59: this[x0] += -25, giving -40.
//                    x0 100 - 40 = 60 -> black 0 (with the -15 dropped it would be 75 -> 7).
TEST(DitherMap, FourBitFixedTableAddsTheShareAheadByHand) {
    const std::vector<uint8_t> src = Gray24(2, 2, {100, 100, 100, 80});
    const Converted c = ConvertBytes(src, 4, 1, 1);
    ASSERT_EQ(c.status, 0);
    const size_t at = PixelOffset(c.bytes);
    EXPECT_EQ(c.bytes[at], 0x77);
    EXPECT_EQ(c.bytes[at + 4], 0x07);
    const Converted plain = ConvertBytes(src, 4, 1, 0);
    EXPECT_EQ(plain.bytes[at], 0x77);
    EXPECT_EQ(plain.bytes[at + 4], 0x77);
}

// The table is searched from a best of 195075 that must be beaten; an exact hit ends the search.
TEST(DitherMap, FourBitSearchFindsTheNearestOfTheSixteen) {
    const std::vector<uint8_t> src = Colours24(
        6, 1, {{0, 0, 0, 0}, {255, 255, 255, 0}, {190, 190, 190, 0}, {0, 0, 120, 0}, {30, 250, 240, 0}, {127, 127, 127, 0}});
    const Converted c = ConvertBytes(src, 4, 1, 0);
    ASSERT_EQ(c.status, 0);
    // black, white, light gray 192, dark red (0, 0, 127), yellow (0, 255, 255), gray 127.
    const int expected[6] = {0, 15, 8, 1, 11, 7};
    for (int x = 0; x < 6; ++x) EXPECT_EQ(IndexAt(c.bytes, x, 0), expected[x]) << x;
}

// ---- 8 bits with the cube ----

// Level of a channel: trunc(v x 5 / 255 + 0.5), changing at 26, 77, 128, 179 and 230; index
// levels[r] + 6 levels[g] + 36 levels[b].
TEST(DitherMap, CubeLevelsChangeAtTheirBoundaries) {
    const int grays[] = {25, 26, 76, 77, 127, 128, 178, 179, 229, 230};
    const int levels[] = {0, 1, 1, 2, 2, 3, 3, 4, 4, 5};
    std::vector<int> pixels(grays, grays + 10);
    const Converted c = ConvertBytes(Gray24(10, 1, pixels), 8, 1, 0);
    ASSERT_EQ(c.status, 0);
    for (int x = 0; x < 10; ++x) EXPECT_EQ(IndexAt(c.bytes, x, 0), 43 * levels[x]) << grays[x];
    const Converted channels = ConvertBytes(Colours24(3, 1, {{255, 0, 0, 0}, {0, 255, 0, 0}, {0, 0, 255, 0}}), 8, 1, 0);
    EXPECT_EQ(IndexAt(channels.bytes, 0, 0), 180);  // blue
    EXPECT_EQ(IndexAt(channels.bytes, 1, 0), 30);   // green
    EXPECT_EQ(IndexAt(channels.bytes, 2, 0), 5);    // red
}

// The error is measured against the entry the levels chose, at steps of 51: gray 25 goes to level
// 0 (entry 0, black) with e = 25, and 7 x 25 / 16 = 10 ahead makes the next 25 into 35, level 1:
// index 1 + 6 + 36 = 43, the entry (51, 51, 51).
TEST(DitherMap, CubeErrorIsMeasuredAgainstTheChosenEntry) {
    const Converted c = ConvertBytes(Gray24(2, 1, {25, 25}), 8, 1, 1);
    ASSERT_EQ(c.status, 0);
    EXPECT_EQ(IndexAt(c.bytes, 0, 0), 0);
    EXPECT_EQ(IndexAt(c.bytes, 1, 0), 43);
    EXPECT_EQ(EntryAt(c.bytes, 43), (Entry{51, 51, 51, 0}));
    const Converted plain = ConvertBytes(Gray24(2, 1, {25, 25}), 8, 1, 0);
    EXPECT_EQ(IndexAt(plain.bytes, 1, 0), 0);
}

// ---- Gray ----

// trunc(t0[r] + t1[g] + t2[b]) with float tables summed in double: white is 254, blue alone
// 255 x 0.114f = 29.07.
TEST(DitherMap, GrayCodeIsTheLumaAndIgnoresTheDitherFlag) {
    const std::vector<uint8_t> src = Colours24(3, 1, {{255, 255, 255, 0}, {255, 0, 0, 0}, {0, 0, 0, 0}});
    const Converted c = ConvertBytes(src, 80, 0, 0);
    ASSERT_EQ(c.status, 0);
    EXPECT_EQ(IndexAt(c.bytes, 0, 0), 254);
    EXPECT_EQ(IndexAt(c.bytes, 1, 0), 29);
    EXPECT_EQ(IndexAt(c.bytes, 2, 0), 0);
    for (int i = 0; i < 256; ++i) EXPECT_EQ(EntryAt(c.bytes, i), (Entry{i, i, i, 0}));
    std::mt19937 rng(452);
    for (int bits : {16, 24, 32}) {
        const std::vector<uint8_t> random = RandomDib(rng, 13, 7, bits);
        EXPECT_EQ(ConvertBytes(random, 80, 0, 1).bytes, ConvertBytes(random, 80, 0, 0).bytes) << bits;
    }
}

// ---- Edge cases ----

// Without diffusion equal source pixels give equal indices, wherever they are.
TEST(DitherMap, WithoutDiffusionEqualPixelsMapAlike) {
    std::mt19937 rng(453);
    // Two colours in a random pattern.
    std::vector<Entry> pixels;
    for (int i = 0; i < 11 * 6; ++i) pixels.push_back(rng() % 2 ? Entry{33, 77, 200, 0} : Entry{180, 20, 90, 0});
    const std::vector<uint8_t> src = Colours24(11, 6, pixels);
    for (auto [target, fixed] : {std::pair{1, 0}, std::pair{4, 1}, std::pair{4, 0}, std::pair{8, 1}, std::pair{8, 0}}) {
        const Converted c = ConvertBytes(src, target, fixed, 0, 100);
        ASSERT_EQ(c.status, 0);
        int first[2] = {-1, -1};
        for (int y = 0; y < 6; ++y)
            for (int x = 0; x < 11; ++x) {
                const int kind = pixels[static_cast<size_t>(y * 11 + x)].b == 33 ? 0 : 1;
                if (first[kind] < 0) first[kind] = IndexAt(c.bytes, x, y);
                EXPECT_EQ(IndexAt(c.bytes, x, y), first[kind]) << target << " fixed " << fixed;
            }
    }
}

// A flat image equal to a table entry has no error, so the result is flat with either flag.
TEST(DitherMap, AFlatImageOnATableEntryIsFlatWithEitherFlag) {
    const std::vector<uint8_t> cube = Colours24(7, 5, std::vector<Entry>(35, Entry{51, 102, 153, 0}));
    const std::vector<uint8_t> sixteen = Colours24(7, 5, std::vector<Entry>(35, Entry{127, 0, 127, 0}));
    const std::vector<uint8_t> white = Colours24(7, 5, std::vector<Entry>(35, Entry{255, 255, 255, 0}));
    struct Case {
        const std::vector<uint8_t> *src;
        int target, index;
    };
    for (const Case &k : {Case{&cube, 8, 36 * 1 + 6 * 2 + 3}, Case{&sixteen, 4, 5}, Case{&white, 1, 1}}) {
        for (int dither : {0, 1}) {
            const Converted c = ConvertBytes(*k.src, k.target, 1, dither, 128);
            ASSERT_EQ(c.status, 0);
            for (int y = 0; y < 5; ++y)
                for (int x = 0; x < 7; ++x) EXPECT_EQ(IndexAt(c.bytes, x, y), k.index) << k.target << " dither " << dither;
        }
    }
}

// Width 1: the shares to the left and right fall into the margins and are never read.
TEST(DitherMap, WidthOneDiffusesOnlyDownward) {
    std::mt19937 rng(454);
    for (int bits : {16, 24, 32}) {
        const std::vector<uint8_t> src = RandomDib(rng, 1, 9, bits);
        for (auto [target, fixed] : {std::pair{1, 0}, std::pair{4, 1}, std::pair{4, 0}, std::pair{8, 1}, std::pair{8, 0}}) {
            const Converted c = ConvertBytes(src, target, fixed, 1, 77);
            ASSERT_EQ(c.status, 0);
            EXPECT_EQ(c.bytes, ReferenceConvert(src, target, fixed, 1, 77)) << bits << " to " << target;
        }
    }
}

// 4-bit and 8-bit palette sources to 1 bit, with short tables whose indices read on into the block.
TEST(DitherMap, PaletteSourcesToOneBitMatchTheRules) {
    std::mt19937 rng(455);
    for (int bits : {4, 8}) {
        for (int width = 1; width <= 33; ++width) {
            const std::vector<uint8_t> src =
                RandomPaletteDib(rng, width, 1 + static_cast<int>(rng() % 4), bits, 1 + static_cast<uint32_t>(rng() % 5));
            const int threshold = static_cast<int>(rng() % 256);
            for (int dither : {0, 1}) {
                const Converted c = ConvertBytes(src, 1, 0, dither, threshold);
                ASSERT_EQ(c.status, 0);
                EXPECT_EQ(c.bytes, ReferenceConvert(src, 1, 0, dither, threshold)) << bits << " width " << width;
            }
        }
    }
}

}  // namespace

namespace {

// Longer rows and more of them than the width sweep: every table and both kinds of diffusion carry
// their terms over 40 rows of 64 pixels, from every direct format.
TEST(DitherMap, LargerImagesMatchTheRulesOnEveryReduction) {
    std::mt19937 rng(456);
    const Format direct[] = {{16, false}, {16, true}, {24, false}, {32, false}};
    for (const Format f : direct) {
        const std::vector<uint8_t> src = RandomDib(rng, 64, 40, f.bits, f.is565);
        for (auto [target, fixed] : {std::pair{1, 0}, std::pair{4, 1}, std::pair{4, 0}, std::pair{8, 1}, std::pair{8, 0},
                                     std::pair{80, 0}}) {
            const Converted c = ConvertBytes(src, target, fixed, 1, 140);
            ASSERT_EQ(c.status, 0);
            EXPECT_EQ(c.bytes, ReferenceConvert(src, target, fixed, 1, 140))
                << f.bits << (f.is565 ? " (5-6-5)" : "") << " to " << target << " fixed " << fixed;
        }
    }
}

}  // namespace
