// Resize: replication and averaging in every depth against a literal walk, the worked rows, the
// scaled mask, the Ex form, statuses, progress, cancellation, allocation failure and the caller's
// blocks.
#include "geometry/resize.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>

#include "platform/companion.h"
#include "support/resize_reference.h"
#include "support/test_images.h"
#include "support/tone_harness.h"

namespace {

using namespace tz3test;

struct Result {
    DibPair pair;
    std::vector<uint8_t> image, mask;
};

// Runs TZ3Resize and takes the blocks it returned into byte vectors, freeing them.
Result Resize(DibHandle image, DibHandle mask, int32_t w, int32_t h, int32_t interpolate,
              int32_t noDialog = 1) {
    const DibPair in{image, mask};
    Result r;
    r.pair = TZ3Resize(&in, w, h, interpolate, noDialog, 0, 0, 0);
    if (r.pair.image != nullptr) r.image = FromBlock(r.pair.image);
    if (r.pair.mask != nullptr) r.mask = FromBlock(r.pair.mask);
    if (r.pair.image != nullptr) Tz3GlobalFree(r.pair.image);
    if (r.pair.mask != nullptr) Tz3GlobalFree(r.pair.mask);
    return r;
}

uint32_t PixelAt(const std::vector<uint8_t> &dib, int x, int y) {
    const int bits = WordAt(dib, 14);
    const uint8_t *row =
        dib.data() + PixelOffset(dib) + RowBytes(bits, ImageWidth(dib)) * static_cast<size_t>(y);
    switch (bits) {
        case 1:
            return (row[x >> 3] >> (7 - (x & 7))) & 1;
        case 4:
            return (x & 1) ? (row[x >> 1] & 15) : (row[x >> 1] >> 4);
        case 8:
            return row[x];
        case 16:
            return static_cast<uint32_t>(row[2 * x] | (row[2 * x + 1] << 8));
        case 24:
            return static_cast<uint32_t>(row[3 * x] | (row[3 * x + 1] << 8) | (row[3 * x + 2] << 16));
        default:
            return static_cast<uint32_t>(row[4 * x] | (row[4 * x + 1] << 8) | (row[4 * x + 2] << 16)) |
                   (static_cast<uint32_t>(row[4 * x + 3]) << 24);
    }
}

void SetPixel(std::vector<uint8_t> &dib, int x, int y, uint32_t v) {
    const int bits = WordAt(dib, 14);
    uint8_t *row = dib.data() + PixelOffset(dib) + RowBytes(bits, ImageWidth(dib)) * static_cast<size_t>(y);
    for (int k = 0; k < bits / 8; ++k) row[(bits / 8) * x + k] = static_cast<uint8_t>(v >> (8 * k));
}

// An 8-bit image whose palette holds the 256 gray levels in the given order.
std::vector<uint8_t> GrayImage(int width, int height, const std::vector<int> &levels) {
    std::vector<uint8_t> d = MakeDibBytes(width, height, 8);
    for (int i = 0; i < 256; ++i)
        d[40 + 4 * i] = d[41 + 4 * i] = d[42 + 4 * i] = static_cast<uint8_t>(levels[i]);
    return d;
}
std::vector<int> Ramp() {
    std::vector<int> levels(256);
    std::iota(levels.begin(), levels.end(), 0);
    return levels;
}

// A random source of the format; an 8-bit one has a shuffled full gray palette half of the time.
std::vector<uint8_t> RandomResizeSource(std::mt19937 &rng, Format f, int width, int height) {
    if (f.bits == 8 && rng() % 2 == 0) {
        std::vector<int> levels = Ramp();
        std::shuffle(levels.begin(), levels.end(), rng);
        std::vector<uint8_t> d = GrayImage(width, height, levels);
        for (size_t i = PixelOffset(d); i < d.size(); ++i) d[i] = static_cast<uint8_t>(rng());
        return d;
    }
    return RandomSource(rng, f, width, height);
}

const int32_t kInterpolateValues[] = {0, 1, 0x100, static_cast<int32_t>(0x80000000u)};

TEST(TZ3Resize, MatchesTheLiteralWalkInEveryFormatWidthAndMethodWithAndWithoutMask) {
    std::mt19937 rng(601);
    for (const Format f : kFormats) {
        for (int width = 1; width <= 33; ++width) {
            const int height = 1 + static_cast<int>(rng() % 6);
            const auto src = RandomResizeSource(rng, f, width, height);
            const auto mask = RandomMask(rng, width, height);
            HandleGuard image(ToBlock(src));
            HandleGuard maskBlock(ToBlock(mask));
            for (int trial = 0; trial < 4; ++trial) {
                // Reductions, enlargements and mixed axes, sometimes the same size.
                const int newW = trial == 0 ? width : 1 + static_cast<int>(rng() % (2 * width + 6));
                const int newH = trial == 0 ? height : 1 + static_cast<int>(rng() % (3 * height + 4));
                const int32_t interpolate = kInterpolateValues[rng() % 4];
                const bool withMask = rng() % 2 == 0;
                const ResizedImage want =
                    ResizeReference(src, withMask ? &mask : nullptr, newW, newH, interpolate != 0);
                const Result got = Resize(image.h, withMask ? maskBlock.h : nullptr, newW, newH, interpolate);
                const std::string what =
                    Describe("case", f.bits, f.is565, width, height, newW, newH, interpolate, withMask);
                ASSERT_NE(got.pair.image, nullptr) << what;
                EXPECT_EQ(Tz3GetErrorStatus(), 0) << what;
                ASSERT_EQ(got.image, want.image) << what;
                if (withMask) {
                    ASSERT_EQ(got.mask, want.mask) << what;
                } else {
                    EXPECT_EQ(got.pair.mask, nullptr) << what;
                }
                ExpectCallerBlocksUnchanged(image.h, src, maskBlock.h);
                EXPECT_EQ(FromBlock(maskBlock.h), mask);
            }
        }
    }
}

TEST(TZ3Resize, LargeReductionsAndEnlargementsMatchTheLiteralWalk) {
    std::mt19937 rng(602);
    const int sizes[][4] = {
        {97, 61, 7, 5}, {64, 64, 3, 29}, {5, 3, 120, 77}, {40, 2, 13, 90}, {2, 50, 90, 11}};
    for (const Format f : kFormats) {
        for (const auto &s : sizes) {
            const auto src = RandomResizeSource(rng, f, s[0], s[1]);
            const auto mask = RandomMask(rng, s[0], s[1]);
            HandleGuard image(ToBlock(src));
            HandleGuard maskBlock(ToBlock(mask));
            for (int32_t interpolate : {0, 1}) {
                const ResizedImage want = ResizeReference(src, &mask, s[2], s[3], interpolate != 0);
                const Result got = Resize(image.h, maskBlock.h, s[2], s[3], interpolate);
                ASSERT_EQ(got.image, want.image)
                    << Describe("case", f.bits, s[0], s[1], s[2], s[3], interpolate);
                ASSERT_EQ(got.mask, want.mask);
            }
        }
    }
}

// Twenty-four-bit averaging works whole target rows at once: power-of-two tiles in integers,
// other tiles in double with each source row's terms kept for the next run, and reductions through
// tables of means for small blocks and products for large ones. Every kind of ratio, with and
// without a mask, against the literal walk.
TEST(TZ3Resize, TwentyFourBitAveragingOfWholeRowsMatchesTheLiteralWalkAtEveryKindOfRatio) {
    std::mt19937 rng(603);
    const int sizes[][4] = {// Doubling, four and eight times, one and a half times: tiles of 2^m pixels.
                            {37, 23, 74, 46},
                            {9, 7, 36, 28},
                            {5, 4, 40, 32},
                            {6, 6, 9, 9},
                            {11, 5, 22, 40},
                            {3, 2, 128, 256},
                            // Tiles of other lengths, mixed lengths, very long tiles, the same size.
                            {17, 13, 51, 39},
                            {13, 11, 32, 29},
                            {7, 5, 333, 301},
                            {2, 2, 150, 3},
                            {19, 19, 19, 19},
                            {1, 1, 5, 70},
                            // Halving and odd reductions, blocks with remnants at the edge.
                            {64, 48, 32, 24},
                            {101, 77, 50, 38},
                            {97, 61, 7, 5},
                            {33, 31, 10, 3},
                            {300, 280, 11, 13},
                            {999, 3, 2, 1},
                            {45, 301, 44, 1},
                            {50, 50, 49, 49}};
    for (const auto &s : sizes) {
        for (int variant = 0; variant < 2; ++variant) {
            // A flat white source puts every spread value at its top, 255.5.
            std::vector<uint8_t> src = RandomDib(rng, s[0], s[1], 24);
            if (variant == 1 && s[0] < 40)
                for (size_t i = PixelOffset(src); i < src.size(); ++i) src[i] = 255;
            const auto mask = RandomMask(rng, s[0], s[1]);
            HandleGuard image(ToBlock(src));
            HandleGuard maskBlock(ToBlock(mask));
            const bool withMask = variant == 0;
            const ResizedImage want = ResizeReference(src, withMask ? &mask : nullptr, s[2], s[3], true);
            const Result got = Resize(image.h, withMask ? maskBlock.h : nullptr, s[2], s[3], 1);
            const std::string what = Describe("case", s[0], s[1], s[2], s[3], variant);
            ASSERT_NE(got.pair.image, nullptr) << what;
            ASSERT_EQ(got.image, want.image) << what;
            if (withMask) {
                ASSERT_EQ(got.mask, want.mask) << what;
            } else {
                EXPECT_EQ(got.pair.mask, nullptr) << what;
            }
            ExpectCallerBlocksUnchanged(image.h, src, maskBlock.h);
        }
    }
    // Random sizes on both sides of 1 on each axis.
    for (int trial = 0; trial < 60; ++trial) {
        const int w = 1 + static_cast<int>(rng() % 40), h = 1 + static_cast<int>(rng() % 40);
        const int newW = 1 + static_cast<int>(rng() % 90), newH = 1 + static_cast<int>(rng() % 90);
        const auto src = RandomDib(rng, w, h, 24);
        const auto mask = RandomMask(rng, w, h);
        HandleGuard image(ToBlock(src));
        HandleGuard maskBlock(ToBlock(mask));
        const ResizedImage want = ResizeReference(src, &mask, newW, newH, true);
        const Result got = Resize(image.h, maskBlock.h, newW, newH, 1);
        const std::string what = Describe("random", w, h, newW, newH);
        ASSERT_EQ(got.image, want.image) << what;
        ASSERT_EQ(got.mask, want.mask) << what;
    }
}

TEST(TZ3Resize, SameSizeReplicationGivesBackTheSourcePixelsInEveryDepth) {
    std::mt19937 rng(603);
    for (const Format f : kFormats) {
        const auto src = RandomDib(rng, 13, 4, f.bits, f.is565);
        HandleGuard image(ToBlock(src));
        const Result got = Resize(image.h, nullptr, 13, 4, 0);
        ASSERT_NE(got.pair.image, nullptr);
        for (int y = 0; y < 4; ++y)
            for (int x = 0; x < 13; ++x) ASSERT_EQ(PixelAt(got.image, x, y), PixelAt(src, x, y)) << f.bits;
    }
}

TEST(TZ3Resize, SameSizeAveragingKeepsTwentyFourBitsDropsTheFourthByteAndLosesAStepAtSixteen) {
    std::mt19937 rng(604);
    const auto src24 = RandomDib(rng, 9, 3, 24);
    HandleGuard image24(ToBlock(src24));
    const Result got24 = Resize(image24.h, nullptr, 9, 3, 1);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 9; ++x) EXPECT_EQ(PixelAt(got24.image, x, y), PixelAt(src24, x, y));

    const auto src32 = RandomDib(rng, 9, 3, 32);
    HandleGuard image32(ToBlock(src32));
    const Result got32 = Resize(image32.h, nullptr, 9, 3, 1);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 9; ++x) EXPECT_EQ(PixelAt(got32.image, x, y), PixelAt(src32, x, y) & 0xFFFFFFu);

    // Every 5-bit value in blue, and every 6-bit value in the green of a 5-6-5 image.
    for (bool is565 : {false, true}) {
        std::vector<uint8_t> src = RandomDib(rng, 64, 1, 16, is565);
        for (int v = 0; v < 64; ++v)
            SetPixel(src, v, 0, is565 ? static_cast<uint32_t>(v << 5) : static_cast<uint32_t>(v & 31));
        HandleGuard image(ToBlock(src));
        const Result got = Resize(image.h, nullptr, 64, 1, 1);
        for (int v = 0; v < 64; ++v) {
            const uint32_t word = PixelAt(got.image, v, 0);
            if (is565) {
                const uint32_t g = (word >> 5) & 63;
                const uint32_t want = (v == 0 || v == 63 || v == 21 || v == 42) ? v : v - 1;
                EXPECT_EQ(g, want) << "6-bit green " << v;
            } else {
                const int c = v & 31;
                EXPECT_EQ(word & 31u, static_cast<uint32_t>(c == 0 || c == 31 ? c : c - 1))
                    << "5-bit blue " << c;
            }
        }
    }
}

TEST(TZ3Resize, ReplicationKeepsTheFourthByteOfThirtyTwoBitPixels) {
    std::vector<uint8_t> src = MakeDibBytes(2, 1, 32);
    SetPixel(src, 0, 0, 0xA1B2C3D4u);
    SetPixel(src, 1, 0, 0x5566778Fu);
    HandleGuard image(ToBlock(src));
    const Result got = Resize(image.h, nullptr, 4, 1, 0);
    EXPECT_EQ(PixelAt(got.image, 0, 0), 0xA1B2C3D4u);
    EXPECT_EQ(PixelAt(got.image, 1, 0), 0xA1B2C3D4u);
    EXPECT_EQ(PixelAt(got.image, 2, 0), 0x5566778Fu);
    EXPECT_EQ(PixelAt(got.image, 3, 0), 0x5566778Fu);
    const Result spread = Resize(image.h, nullptr, 4, 1, 1);
    for (int x = 0; x < 4; ++x)
        EXPECT_EQ(PixelAt(spread.image, x, 0) >> 24, 0u) << "averaging leaves byte 3 zero";
}

TEST(TZ3Resize, ATenPixelRowReducedToThreeKeepsColumnsZeroTwoAndFiveWhenReplicating) {
    for (int bits : {1, 4, 8, 16, 24, 32}) {
        std::vector<uint8_t> src = MakeDibBytes(10, 1, bits);
        const uint32_t top = bits == 1    ? 1
                             : bits == 4  ? 15
                             : bits == 8  ? 255
                             : bits == 16 ? 0x7FFF
                                          : 0xFFFFFF;
        // Column x holds a value that names it, as far as the depth allows.
        for (int x = 0; x < 10; ++x) {
            const uint32_t v = bits == 1 ? (x == 0 || x == 5 ? 1u : 0u) : std::min<uint32_t>(top, 1 + x);
            if (bits == 1 || bits == 4) {
                uint8_t *row = src.data() + PixelOffset(src);
                if (bits == 1)
                    row[x / 8] |= static_cast<uint8_t>(v << (7 - x % 8));
                else
                    row[x / 2] |= static_cast<uint8_t>(x % 2 == 0 ? v << 4 : v);
            } else {
                SetPixel(src, x, 0, v);
            }
        }
        HandleGuard image(ToBlock(src));
        const Result got = Resize(image.h, nullptr, 3, 1, 0);
        ASSERT_NE(got.pair.image, nullptr);
        if (bits == 1) {
            EXPECT_EQ(PixelAt(got.image, 0, 0), 1u);
            EXPECT_EQ(PixelAt(got.image, 1, 0), 0u);
            EXPECT_EQ(PixelAt(got.image, 2, 0), 1u);
        } else {
            EXPECT_EQ(PixelAt(got.image, 0, 0), 1u) << bits;
            EXPECT_EQ(PixelAt(got.image, 1, 0), 3u) << bits;
            EXPECT_EQ(PixelAt(got.image, 2, 0), 6u) << bits;
        }
    }
}

TEST(TZ3Resize, ATenPixelRowReducedToThreeAveragesBlocksOfTwoThreeAndFourAndDropsColumnNine) {
    std::vector<uint8_t> src = MakeDibBytes(10, 1, 24);
    const int levels[10] = {10, 20, 30, 40, 50, 61, 70, 80, 91, 250};
    for (int x = 0; x < 10; ++x) SetPixel(src, x, 0, static_cast<uint32_t>(levels[x]) * 0x010101u);
    HandleGuard image(ToBlock(src));
    const Result got = Resize(image.h, nullptr, 3, 1, 1);
    ASSERT_NE(got.pair.image, nullptr);
    EXPECT_EQ(PixelAt(got.image, 0, 0), 15u * 0x010101u);  // (10 + 20) / 2
    EXPECT_EQ(PixelAt(got.image, 1, 0), 40u * 0x010101u);  // (30 + 40 + 50) / 3
    EXPECT_EQ(PixelAt(got.image, 2, 0), 76u * 0x010101u);  // (61 + 70 + 80 + 91) / 4 = 75.5, plus 0.5
}

TEST(TZ3Resize, ARowOfZeroAndNinetyEnlargedToFiveSpreadsAndStaysFlatAtTheEnd) {
    std::vector<uint8_t> gray = GrayImage(2, 1, Ramp());
    gray[PixelOffset(gray) + 1] = 90;
    std::vector<uint8_t> rgb = MakeDibBytes(2, 1, 24);
    SetPixel(rgb, 1, 0, 90u * 0x010101u);
    for (const auto *src : {&gray, &rgb}) {
        HandleGuard image(ToBlock(*src));
        const Result got = Resize(image.h, nullptr, 5, 1, 1);
        const uint32_t unit = WordAt(*src, 14) == 8 ? 1u : 0x010101u;
        const uint32_t want[5] = {0, 30, 60, 90, 90};
        for (int x = 0; x < 5; ++x) EXPECT_EQ(PixelAt(got.image, x, 0), want[x] * unit) << x;
    }
}

TEST(TZ3Resize, EnlargingWithInterpolationPutsEachSourcePixelAtTheStartOfItsTile) {
    std::mt19937 rng(605);
    const auto src = RandomDib(rng, 5, 4, 24);
    HandleGuard image(ToBlock(src));
    const Result got = Resize(image.h, nullptr, 15, 12, 1);  // tiles of 3 x 3
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 5; ++x) EXPECT_EQ(PixelAt(got.image, 3 * x, 3 * y), PixelAt(src, x, y));
    // The last column of the source stays flat along the first row of its tiles, and the last row
    // along the first column of its tiles: their right (upper) neighbour is the pixel itself.
    for (int y = 0; y < 4; ++y)
        for (int i = 1; i < 3; ++i) EXPECT_EQ(PixelAt(got.image, 12 + i, 3 * y), PixelAt(src, 4, y));
    for (int x = 0; x < 5; ++x)
        for (int j = 1; j < 3; ++j) EXPECT_EQ(PixelAt(got.image, 3 * x, 9 + j), PixelAt(src, x, 3));
}

TEST(TZ3Resize, ReducingOneAxisAndEnlargingTheOtherSpreadsAlongTheEnlargedAxisOnly) {
    // Four columns into two (blocks {0}, {1, 2}; column 3 maps outside), two rows into six: tiles one
    // pixel wide and three high.
    std::vector<uint8_t> src = MakeDibBytes(4, 2, 24);
    const int bottom[4] = {0, 30, 60, 90}, top[4] = {90, 60, 0, 0};
    for (int x = 0; x < 4; ++x) {
        SetPixel(src, x, 0, static_cast<uint32_t>(bottom[x]) * 0x010101u);
        SetPixel(src, x, 1, static_cast<uint32_t>(top[x]) * 0x010101u);
    }
    HandleGuard image(ToBlock(src));
    const Result got = Resize(image.h, nullptr, 2, 6, 1);
    // Column 0 rises from 0 towards the pixel above, then stays at 90 in the last row run. Column 1
    // starts at its block mean 45 and heads for the mean of the two pixels above (30); in the last
    // row run its upper corner falls back to the block's first pixel (60), not to the mean 30.
    const uint32_t want[2][6] = {{0, 30, 60, 90, 90, 90}, {45, 40, 35, 30, 40, 50}};
    for (int x = 0; x < 2; ++x)
        for (int y = 0; y < 6; ++y)
            EXPECT_EQ(PixelAt(got.image, x, y), want[x][y] * 0x010101u) << x << "," << y;
    EXPECT_EQ(got.image, ResizeReference(src, nullptr, 2, 6, true).image);
}

TEST(TZ3Resize, ReversedGrayPaletteInterpolatesThroughLevelsAndAPaletteLackingALevelReplicates) {
    std::vector<int> reversed = Ramp();
    std::reverse(reversed.begin(), reversed.end());
    std::vector<uint8_t> src = GrayImage(2, 1, reversed);
    src[PixelOffset(src)] = 255;      // level 0
    src[PixelOffset(src) + 1] = 165;  // level 90
    HandleGuard image(ToBlock(src));
    const Result got = Resize(image.h, nullptr, 5, 1, 1);
    const int wantLevels[5] = {0, 30, 60, 90, 90};
    for (int x = 0; x < 5; ++x)
        EXPECT_EQ(PixelAt(got.image, x, 0), static_cast<uint32_t>(255 - wantLevels[x]));

    std::vector<int> missing = Ramp();
    missing[7] = 8;  // level 7 absent, 8 twice
    std::vector<uint8_t> colour = GrayImage(2, 1, missing);
    colour[PixelOffset(colour)] = 0;
    colour[PixelOffset(colour) + 1] = 90;
    HandleGuard colourImage(ToBlock(colour));
    const Result replicated = Resize(colourImage.h, nullptr, 5, 1, 1);
    ASSERT_NE(replicated.pair.image, nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 0);
    const uint32_t wantIndices[5] = {0, 0, 0, 90, 90};
    for (int x = 0; x < 5; ++x) EXPECT_EQ(PixelAt(replicated.image, x, 0), wantIndices[x]);
}

TEST(TZ3Resize, OneAndFourBitImagesReplicateEvenWhenAskedToInterpolate) {
    std::mt19937 rng(606);
    for (int bits : {1, 4}) {
        const auto src = RandomDib(rng, 7, 3, bits);
        HandleGuard image(ToBlock(src));
        EXPECT_EQ(Resize(image.h, nullptr, 17, 8, 1).image, Resize(image.h, nullptr, 17, 8, 0).image);
    }
}

TEST(TZ3Resize, TheNewMaskTakesTheBitOfEachBlocksFirstPixelOverItsTile) {
    // A 2x2 mask with only (1, 0) set, enlarged to 5x4: tiles of 3 (or 2) columns and 2 rows.
    std::vector<uint8_t> mask = MakeDibBytes(2, 2, 1);
    mask[PixelOffset(mask)] = 0x40;
    const auto src = MakeDibBytes(2, 2, 24);
    HandleGuard image(ToBlock(src));
    HandleGuard maskBlock(ToBlock(mask));
    for (int32_t interpolate : {0, 1}) {
        const Result got = Resize(image.h, maskBlock.h, 5, 4, interpolate);
        ASSERT_FALSE(got.mask.empty());
        EXPECT_EQ(WordAt(got.mask, 14), 1);
        EXPECT_EQ(ImageWidth(got.mask), 5);
        EXPECT_EQ(ImageHeight(got.mask), 4);
        for (int y = 0; y < 4; ++y)
            for (int x = 0; x < 5; ++x) EXPECT_EQ(MaskBit(got.mask, x, y), x >= 3 && y < 2) << x << "," << y;
    }
    // Reduced to one pixel, the one pixel takes the first pixel's clear bit.
    const Result one = Resize(image.h, maskBlock.h, 1, 1, 1);
    EXPECT_FALSE(MaskBit(one.mask, 0, 0));
}

TEST(TZ3Resize, WithoutAMaskTheNewMaskIsNull) {
    const auto src = MakeDibBytes(3, 3, 8);
    HandleGuard image(ToBlock(src));
    const Result got = Resize(image.h, nullptr, 6, 2, 0);
    EXPECT_NE(got.pair.image, nullptr);
    EXPECT_EQ(got.pair.mask, nullptr);
}

TEST(TZ3Resize, ASourceWithNoRowsYieldsAZeroImageWithStatusZero) {
    for (int32_t height : {0, -3}) {
        std::vector<uint8_t> src = MakeDibBytes(4, 3, 24);
        for (size_t i = PixelOffset(src); i < src.size(); ++i) src[i] = 0xAB;
        SetField32(src, 8, static_cast<uint32_t>(height));
        HandleGuard image(ToBlock(src));
        ProgressRecorder progress;
        const Result got = Resize(image.h, nullptr, 3, 2, 1);
        ASSERT_NE(got.pair.image, nullptr) << height;
        EXPECT_EQ(Tz3GetErrorStatus(), 0);
        EXPECT_EQ(ImageWidth(got.image), 3);
        EXPECT_EQ(ImageHeight(got.image), 2);
        EXPECT_TRUE(std::all_of(got.image.begin() + 40, got.image.end(), [](uint8_t b) { return b == 0; }));
        EXPECT_TRUE(progress.calls.empty());
    }
}

TEST(TZ3Resize, TheNewHeaderIsTheSourcesWithNewSizes) {
    std::mt19937 rng(607);
    std::vector<uint8_t> src = RandomPaletteDib(rng, 6, 3, 8, 20);
    SetField32(src, 24, 2835);
    SetField32(src, 36, 7);
    HandleGuard image(ToBlock(src));
    const Result got = Resize(image.h, nullptr, 9, 5, 0);
    ASSERT_EQ(got.image.size(), 40 + 80 + RowBytes(8, 9) * 5u);
    EXPECT_TRUE(std::equal(src.begin() + 40, src.begin() + 120, got.image.begin() + 40))
        << "colour table kept";
    EXPECT_EQ(Field32(got.image, 4), 9u);
    EXPECT_EQ(Field32(got.image, 8), 5u);
    EXPECT_EQ(Field32(got.image, 20), RowBytes(8, 9) * 5u);
    EXPECT_EQ(Field32(got.image, 24), 2835u);
    EXPECT_EQ(Field32(got.image, 32), 20u);
    EXPECT_EQ(Field32(got.image, 36), 7u);
}

TEST(TZ3Resize, ANullSourceOrImageIsRefusedWithStatusSeven) {
    const DibPair none{nullptr, nullptr};
    DibPair r = TZ3Resize(&none, 3, 3, 0, 1, 0, 0, 0);
    EXPECT_EQ(r.image, nullptr);
    EXPECT_EQ(r.mask, nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
    r = TZ3Resize(nullptr, 3, 3, 0, 1, 0, 0, 0);
    EXPECT_EQ(r.image, nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
}

TEST(TZ3Resize, ASizeBelowOneIsRefusedWithStatusFiveAndNothingLeftBehind) {
    const auto src = MakeDibBytes(3, 3, 24);
    HandleGuard image(ToBlock(src));
    HandleGuard mask(ToBlock(MakeDibBytes(3, 3, 1)));
    const size_t live = Tz3LiveBlocks();
    for (auto size : {std::pair{0, 3}, std::pair{3, 0}, std::pair{-5, 3}, std::pair{3, INT32_MIN}}) {
        const Result got = Resize(image.h, mask.h, size.first, size.second, 1);
        EXPECT_EQ(got.pair.image, nullptr);
        EXPECT_EQ(got.pair.mask, nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 5);
        EXPECT_EQ(Tz3LiveBlocks(), live);
    }
    ExpectCallerBlocksUnchanged(image.h, src, mask.h);
}

TEST(TZ3Resize, ANewImageAboveTheBlockLimitGivesStatusThree) {
    const auto src = MakeDibBytes(1, 1, 24);
    HandleGuard image(ToBlock(src));
    const size_t live = Tz3LiveBlocks();
    const Result got = Resize(image.h, nullptr, 50000, 50000, 0);
    EXPECT_EQ(got.pair.image, nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 3);
    EXPECT_EQ(Tz3LiveBlocks(), live);
}

TEST(TZ3Resize, MasksOfTheWrongSizeOrDepthAndRefusedFormatsGiveStatusSeven) {
    std::mt19937 rng(608);
    const auto src = RandomDib(rng, 4, 3, 24);
    HandleGuard image(ToBlock(src));
    for (const auto &bad : {MakeDibBytes(5, 3, 1), MakeDibBytes(4, 2, 1), MakeDibBytes(4, 3, 8)}) {
        HandleGuard mask(ToBlock(bad));
        const Result got = Resize(image.h, mask.h, 8, 6, 1);
        EXPECT_EQ(got.pair.image, nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 7);
        ExpectCallerBlocksUnchanged(image.h, src, mask.h);
    }
    // 16-bit bit fields the library cannot use, an unknown depth, and a block shorter than its rows.
    std::vector<uint8_t> fields = RandomDib(rng, 4, 3, 16, true);
    SetField32(fields, 40, 0x00FF);
    std::vector<uint8_t> depth2 = MakeDibBytes(4, 3, 8);
    depth2[14] = 2;
    std::vector<uint8_t> shortBlock = RandomDib(rng, 4, 3, 24);
    shortBlock.pop_back();
    for (const auto &bad : {fields, depth2, shortBlock}) {
        HandleGuard badImage(ToBlock(bad));
        const Result got = Resize(badImage.h, nullptr, 8, 6, 1);
        EXPECT_EQ(got.pair.image, nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 7);
        ExpectCallerBlocksUnchanged(badImage.h, bad);
    }
}

TEST(TZ3Resize, ReportsEachRowRunFromZeroToTheLastSourceRow) {
    std::mt19937 rng(609);
    for (const Format f : kFormats) {
        const auto src = RandomDib(rng, 5, 7, f.bits, f.is565);
        HandleGuard image(ToBlock(src));
        {
            // Seven rows into three: runs start at rows 0, 2, 4 and 6, the last one mapping outside.
            ProgressRecorder progress;
            Resize(image.h, nullptr, 4, 3, 1, 9);
            const int32_t want[][2] = {{0, 6}, {2, 6}, {4, 6}, {6, 6}};
            ASSERT_EQ(progress.calls.size(), 4u) << f.bits;
            for (size_t i = 0; i < 4; ++i) {
                EXPECT_EQ(progress.calls[i].current, want[i][0]);
                EXPECT_EQ(progress.calls[i].total, want[i][1]);
                EXPECT_EQ(progress.calls[i].low, 0);
                EXPECT_EQ(progress.calls[i].high, 100);
                EXPECT_EQ(progress.calls[i].noDialog, 9);
            }
        }
        {
            // Enlarging: one run per source row.
            ProgressRecorder progress;
            Resize(image.h, nullptr, 11, 20, 0, 2);
            ASSERT_EQ(progress.calls.size(), 7u);
            for (int i = 0; i < 7; ++i) EXPECT_EQ(progress.calls[i].current, i);
        }
    }
}

TEST(ResizeDib, HalfProgressEndsTheTwentyFourBitWorkerAtFiftyAndNoOtherDepth) {
    std::mt19937 rng(610);
    for (const Format f : kFormats) {
        const auto src = RandomDib(rng, 5, 4, f.bits, f.is565);
        HandleGuard image(ToBlock(src));
        ProgressRecorder progress;
        const DibPair out = tz3::ResizeDib(image.h, nullptr, 7, 6, 1, 1, 1);
        HandleGuard result(out.image);
        ASSERT_NE(out.image, nullptr);
        ASSERT_EQ(progress.calls.size(), 4u);
        for (const auto &call : progress.calls) EXPECT_EQ(call.high, f.bits == 24 ? 50 : 100) << f.bits;
    }
}

TEST(TZ3Resize, ACancelAtAnyRowRunFreesEverythingWithStatusOne) {
    std::mt19937 rng(611);
    for (const Format f : kFormats) {
        const auto src = RandomResizeSource(rng, f, 6, 5);
        const auto mask = RandomMask(rng, 6, 5);
        HandleGuard image(ToBlock(src));
        HandleGuard maskBlock(ToBlock(mask));
        const size_t live = Tz3LiveBlocks();
        for (long at = 0; at < 5; ++at) {
            for (int32_t interpolate : {0, 1}) {
                ProgressRecorder progress(at);
                const Result got = Resize(image.h, maskBlock.h, 9, 11, interpolate);
                EXPECT_EQ(got.pair.image, nullptr);
                EXPECT_EQ(got.pair.mask, nullptr);
                EXPECT_EQ(Tz3GetErrorStatus(), 1);
                EXPECT_EQ(progress.calls.size(), static_cast<size_t>(at + 1));
                EXPECT_EQ(Tz3LiveBlocks(), live) << f.bits << " cancel at " << at;
            }
        }
        ExpectCallerBlocksUnchanged(image.h, src, maskBlock.h);
        EXPECT_EQ(FromBlock(maskBlock.h), mask);
    }
}

TEST(TZ3Resize, AFailureOfAnyAllocationFreesEverythingWithStatusThree) {
    std::mt19937 rng(612);
    for (const Format f : kFormats) {
        const auto src = RandomResizeSource(rng, f, 6, 5);
        const auto mask = RandomMask(rng, 6, 5);
        HandleGuard image(ToBlock(src));
        HandleGuard maskBlock(ToBlock(mask));
        for (int32_t interpolate : {0, 1}) {
            long allocations = 0;
            {
                FailingAllocator counter;
                const Result ok = Resize(image.h, maskBlock.h, 4, 9, interpolate);
                ASSERT_NE(ok.pair.image, nullptr);
                allocations = counter.count;
            }
            // The image, the mask, the column runs, and the gray level map at 8 bits.
            EXPECT_EQ(allocations, f.bits == 8 ? 4 : 3) << f.bits;
            const size_t live = Tz3LiveBlocks();
            for (long at = 0; at < allocations; ++at) {
                FailingAllocator failing(at);
                const Result got = Resize(image.h, maskBlock.h, 4, 9, interpolate);
                EXPECT_EQ(got.pair.image, nullptr);
                EXPECT_EQ(got.pair.mask, nullptr);
                EXPECT_EQ(Tz3GetErrorStatus(), 3);
                EXPECT_EQ(Tz3LiveBlocks(), live) << f.bits << " failing allocation " << at;
            }
        }
        ExpectCallerBlocksUnchanged(image.h, src, maskBlock.h);
    }
}

TEST(TZ3Resize, OpensAndClosesTheDialogAndFailsWithStatusTwoWhenItCannotOpen) {
    const auto src = MakeDibBytes(3, 2, 24);
    HandleGuard image(ToBlock(src));
    const DibPair in{image.h, nullptr};
    {
        DialogRecorder dialog;
        const DibPair out = TZ3Resize(&in, 5, 5, 1, 0, 11, 22, 33);
        HandleGuard result(out.image);
        EXPECT_NE(out.image, nullptr);
        EXPECT_EQ(dialog.opens, 1);
        EXPECT_EQ(dialog.closes, 1);
        EXPECT_EQ(dialog.a, 11);
        EXPECT_EQ(dialog.c, 33);
    }
    {
        DialogRecorder dialog(true);
        ProgressRecorder progress;
        const DibPair out = TZ3Resize(&in, 5, 5, 1, 0, 1, 2, 3);
        EXPECT_EQ(out.image, nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 2);
        EXPECT_TRUE(progress.calls.empty()) << "no work done";
    }
    {
        DialogRecorder dialog;
        const DibPair out = TZ3Resize(&in, 5, 5, 1, 1, 1, 2, 3);
        HandleGuard result(out.image);
        EXPECT_EQ(dialog.opens, 0);
        EXPECT_EQ(dialog.closes, 0);
    }
}

TEST(TZ3ResizeEx, WritesThePairAndReturnsOneOnSuccess) {
    std::mt19937 rng(613);
    const auto src = RandomDib(rng, 5, 4, 24);
    const auto mask = RandomMask(rng, 5, 4);
    HandleGuard image(ToBlock(src));
    HandleGuard maskBlock(ToBlock(mask));
    const DibPair in{image.h, maskBlock.h};
    DibPair out{nullptr, nullptr};
    EXPECT_EQ(TZ3ResizeEx(&in, &out, 8, 3, 1, 1, 0, 0, 0), 1);
    HandleGuard outImage(out.image), outMask(out.mask);
    EXPECT_EQ(Tz3GetErrorStatus(), 0);
    const ResizedImage want = ResizeReference(src, &mask, 8, 3, true);
    EXPECT_EQ(FromBlock(out.image), want.image);
    EXPECT_EQ(FromBlock(out.mask), want.mask);
}

TEST(TZ3ResizeEx, WritesTwoNullsOnFailureButLeavesThePairAloneWhenTheDialogFails) {
    const auto src = MakeDibBytes(3, 2, 24);
    HandleGuard image(ToBlock(src));
    const DibPair in{image.h, nullptr};
    const auto marker = reinterpret_cast<DibHandle>(static_cast<uintptr_t>(0x1234));
    DibPair out{marker, marker};
    EXPECT_EQ(TZ3ResizeEx(&in, &out, 0, 2, 1, 1, 0, 0, 0), 0);
    EXPECT_EQ(Tz3GetErrorStatus(), 5);
    EXPECT_EQ(out.image, nullptr);
    EXPECT_EQ(out.mask, nullptr);

    out = DibPair{marker, marker};
    EXPECT_EQ(TZ3ResizeEx(nullptr, &out, 2, 2, 1, 1, 0, 0, 0), 0);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
    EXPECT_EQ(out.image, nullptr);

    out = DibPair{marker, marker};
    DialogRecorder dialog(true);
    EXPECT_EQ(TZ3ResizeEx(&in, &out, 2, 2, 1, 0, 0, 0, 0), 0);
    EXPECT_EQ(Tz3GetErrorStatus(), 2);
    EXPECT_EQ(out.image, marker);
    EXPECT_EQ(out.mask, marker);
}

TEST(TZ3ResizeEx, WithNowhereToPutThePairMakesNothing) {
    const auto src = MakeDibBytes(3, 2, 24);
    HandleGuard image(ToBlock(src));
    const DibPair in{image.h, nullptr};
    const size_t live = Tz3LiveBlocks();
    EXPECT_EQ(TZ3ResizeEx(&in, nullptr, 2, 2, 1, 1, 0, 0, 0), 0);
    EXPECT_EQ(Tz3GetErrorStatus(), 5);
    EXPECT_EQ(Tz3LiveBlocks(), live);
}

}  // namespace
