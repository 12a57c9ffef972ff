// The median cut of 16, 24 and 32-bit images to 256 and 16 colours: small trees traced by hand,
// the table's size whatever the image, and random images against a plain transcription of the
// rules (extents, count and median found plane by plane).
#include <gtest/gtest.h>

#include <random>

#include "support/convert_calls.h"
#include "support/convert_reference.h"
#include "support/test_images.h"
#include "support/tone_harness.h"
#include "tz3effect.h"

using namespace tz3test;

namespace {

// One black pixel: cell (0, 0, 0) holds 1.
//   root: every extent is 0..0, so the differences tie at 0 and axis 0 (blue) is cut; half of 1 is
//     0, reached at the first plane: m = 0. Children blue 0..0 and 1..63, evened out (a child one
//     plane thick takes a plane from a sibling that can spare it) to 0..1 and 2..63.
//   level 1, box 0 (blue 0..1): the same choice, m = 0: children 0..0 and 1..1, nothing to even.
//   level 2, box 0 (blue 0..0): m = 0 is the top plane, so both children are blue 0..0. From here
//     every split of this box gives two copies of it: the differences stay 0 and blue is cut again.
// So the 64 leaves under level-2 box 0, leaves 0..63, are all blue 0..0, green and red 0..63. The
// last of them, 63, owns the cell in the colour map. Each counts the pixel: c = 1, half 0, so the
// median plane is the low bound 0 on every axis. Blue has high bound 0: colour 0. Green and red
// have high 63: ((0 / 63) x 63 + 0.5) x 4 = 2. The black pixel thus gets (blue 0, green 2, red 2):
// black stays black only on an axis the splits have narrowed to 0.
TEST(MedianCut, OneBlackPixelTracedByHand) {
    const Converted c = ConvertBytes(Gray24(1, 1, {0}), 8, 0, 0);
    ASSERT_EQ(c.status, 0);
    EXPECT_EQ(Field32(c.bytes, 32), 0u);
    EXPECT_EQ(IndexAt(c.bytes, 0, 0), 63);
    for (int i = 0; i < 64; ++i) EXPECT_EQ(EntryAt(c.bytes, i), (Entry{0, 2, 2, 0})) << "entry " << i;
}

// Two white pixels: cell (63, 63, 63) holds 2, half is 1.
//   root: extents 63..63 on every axis, axis 0 is cut; the running sum first reaches 1 at plane 63,
//     the top plane, so the children are blue 0..63 and 63..63 (sharing it); the first is not one
//     plane thick and the second is, and 0 < 63 - 1, so both fall by one: 0..62 and 62..63.
//   level 1, box 1 (blue 62..63): extent 63..63, m = 63 again: children 62..63 and 63..63; the first
//     cannot spare a plane (62 < 62 fails), so nothing is evened.
//   level 2, box 3 (blue 63..63): every later split copies it.
// At 256 colours leaves 192..255 are blue 63..63 (green, red 0..63), and the last, 255, owns the
// cell. Its median is plane 63 on every axis (the sum reaches 1 only there): ((63 / 63) x 63 + 0.5)
// x 4 = 254. Pure white comes out as 254.
TEST(MedianCut, PureWhiteComesOutAs254) {
    const Converted c = ConvertBytes(Gray24(2, 1, {255, 255}), 8, 0, 1);
    ASSERT_EQ(c.status, 0);
    EXPECT_EQ(IndexAt(c.bytes, 0, 0), 255);
    EXPECT_EQ(IndexAt(c.bytes, 1, 0), 255);
    for (int i = 192; i < 256; ++i) EXPECT_EQ(EntryAt(c.bytes, i), (Entry{254, 254, 254, 0})) << "entry " << i;
}

// The same two white pixels with 16 colours: four levels, the last level is level 4. Level-2 box 2
// (blue 62..63) gives leaves 8 (62..63) and 9..11 (63..63), box 3 gives leaves 12..15 (63..63);
// all count both pixels and get 254 on every axis. Leaves 0..7 come from the empty blue 0..62 and
// have green and red 2. A 4-bit table is searched, not looked up: white is nearest to 254 at
// distance 3, and of the equally near entries the earliest, 8, wins.
TEST(MedianCut, SixteenColoursHaveFourLevelsAndAreSearched) {
    const Converted c = ConvertBytes(Gray24(2, 1, {255, 255}), 4, 0, 0);
    ASSERT_EQ(c.status, 0);
    EXPECT_EQ(c.bytes[14], 4);
    EXPECT_EQ(Field32(c.bytes, 32), 0u);
    EXPECT_EQ(c.bytes.size(), 40u + 64u + 4u);
    for (int i = 8; i < 16; ++i) EXPECT_EQ(EntryAt(c.bytes, i), (Entry{254, 254, 254, 0})) << "entry " << i;
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(EntryAt(c.bytes, i).g, 2) << "entry " << i;
        EXPECT_EQ(EntryAt(c.bytes, i).r, 2) << "entry " << i;
    }
    EXPECT_EQ(IndexAt(c.bytes, 0, 0), 8);
    EXPECT_EQ(IndexAt(c.bytes, 1, 0), 8);
}

// Every box is split, empty ones too: an image of one colour gets the whole table, with biClrUsed 0.
TEST(MedianCut, AnImageOfOneColourStillGetsAFullTable) {
    std::vector<uint8_t> src = MakeDibBytes(5, 3, 24);
    for (int y = 0; y < 3; ++y) {
        for (int x = 0; x < 5; ++x) {
            uint8_t *p = &src[40 + RowBytes(24, 5) * y + 3 * static_cast<size_t>(x)];
            p[0] = 10;
            p[1] = 200;
            p[2] = 30;
        }
    }
    for (int target : {8, 4}) {
        const Converted c = ConvertBytes(src, target, 0, 0);
        ASSERT_EQ(c.status, 0);
        const uint32_t entries = target == 8 ? 256 : 16;
        EXPECT_EQ(Field32(c.bytes, 32), 0u);
        EXPECT_EQ(c.bytes.size(), 40 + 4 * entries + RowBytes(target, 5) * 3);
        EXPECT_EQ(c.bytes, ReferenceConvert(src, target, 0, 0, 0));
        // All pixels are equal and map alike.
        for (int y = 0; y < 3; ++y)
            for (int x = 0; x < 5; ++x) EXPECT_EQ(IndexAt(c.bytes, x, y), IndexAt(c.bytes, 0, 0));
    }
}

// The leaf colour is ((m / h) x h + 0.5) x 4.0 in double: 4 m + 2, except for the 30 pairs where
// (m / h) x h rounds just below m and it is 4 m + 1, m = 15 of h = 22 among them.
TEST(MedianCut, LeafColourExpressionInDouble) {
    int below = 0;
    for (int h = 1; h < 64; ++h) {
        for (int m = 0; m <= h; ++m) {
            const int colour = ReferenceLeafColour(m, h);
            EXPECT_TRUE(colour == 4 * m + 2 || colour == 4 * m + 1) << m << " of " << h;
            if (colour == 4 * m + 1) ++below;
        }
    }
    EXPECT_EQ(below, 30);
    EXPECT_EQ(ReferenceLeafColour(15, 22), 61);
}

// Every table entry of a median cut is made by that expression or is 0 on an axis whose high bound
// is 0: each channel is 0, or 1 or 2 modulo 4.
TEST(MedianCut, TableChannelsAreZeroOrMiddlesOfCells) {
    std::mt19937 rng(431);
    for (int target : {8, 4}) {
        const Converted c = ConvertBytes(RandomDib(rng, 17, 9, 24), target, 0, 0);
        ASSERT_EQ(c.status, 0);
        for (int i = 0; i < (target == 8 ? 256 : 16); ++i) {
            const Entry e = EntryAt(c.bytes, i);
            for (int v : {e.b, e.g, e.r}) EXPECT_TRUE(v == 0 || v % 4 == 2 || v % 4 == 1) << v;
            EXPECT_EQ(e.reserved, 0);
        }
    }
}

// At 8 bits a pixel goes to the box that holds its cell, not to the nearest colour: every pixel's
// index is the one whose leaf owns its cell, so two colours of one cell always share an index.
TEST(MedianCut, EightBitsMapByTheBoxThatHoldsTheCell) {
    std::mt19937 rng(432);
    std::vector<uint8_t> src = RandomDib(rng, 12, 6, 24);
    // Column 0 and column 1 of every row differ by less than a cell: same cell.
    for (int y = 0; y < 6; ++y) {
        uint8_t *p = &src[40 + RowBytes(24, 12) * y];
        for (int ch = 0; ch < 3; ++ch) p[3 + ch] = static_cast<uint8_t>(p[ch] / 4 * 4 + (p[ch] % 4 == 3 ? 0 : 3));
    }
    const Converted c = ConvertBytes(src, 8, 0, 0);
    ASSERT_EQ(c.status, 0);
    for (int y = 0; y < 6; ++y) EXPECT_EQ(IndexAt(c.bytes, 0, y), IndexAt(c.bytes, 1, y)) << "row " << y;
    EXPECT_EQ(c.bytes, ReferenceConvert(src, 8, 0, 0, 0));
}

// Random images of every direct format and width 1..33, both table sizes, with and without
// diffusion (which replaces the 7/16 term here), against the plane-by-plane transcription.
TEST(MedianCut, RandomImagesMatchTheRules) {
    std::mt19937 rng(433);
    const Format direct[] = {{16, false}, {16, true}, {24, false}, {32, false}};
    for (int width = 1; width <= 33; ++width) {
        const Format f = direct[rng() % 4];
        const std::vector<uint8_t> src = RandomDib(rng, width, 1 + static_cast<int>(rng() % 6), f.bits, f.is565);
        const int target = rng() % 2 == 0 ? 8 : 4;
        const int dither = static_cast<int>(rng() % 2);
        const Converted c = ConvertBytes(src, target, 0, dither);
        ASSERT_EQ(c.status, 0);
        EXPECT_EQ(c.bytes, ReferenceConvert(src, target, 0, dither, 0))
            << f.bits << (f.is565 ? " (5-6-5)" : "") << " to " << target << ", width " << width << ", dither "
            << dither;
    }
}

// A larger image with many colours, so that the tree's boxes are mostly occupied.
TEST(MedianCut, AManyColouredImageMatchesTheRules) {
    std::mt19937 rng(434);
    std::vector<uint8_t> src = MakeDibBytes(64, 32, 24);
    for (size_t i = 40; i < src.size(); ++i) src[i] = static_cast<uint8_t>(rng());
    for (int target : {8, 4}) {
        for (int dither : {0, 1}) {
            const Converted c = ConvertBytes(src, target, 0, dither);
            ASSERT_EQ(c.status, 0);
            EXPECT_EQ(c.bytes, ReferenceConvert(src, target, 0, dither, 0)) << target << " dither " << dither;
        }
    }
}

}  // namespace
