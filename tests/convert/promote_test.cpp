// The conversions that need no new palette: palette images widened (indices kept with their
// table, or entries written as pixels or gray), and the direct formats among each other.
#include <gtest/gtest.h>

#include <random>

#include "support/convert_calls.h"
#include "support/convert_reference.h"
#include "support/test_images.h"
#include "support/tone_harness.h"
#include "tz3effect.h"

using namespace tz3test;

namespace {

// The table's 8-bit values are packed by truncation: 255 gives 31 and 254 gives 30.
TEST(Promote, EightBitsToSixteenPackTheTableByTruncation) {
    std::vector<uint8_t> src = MakeDibBytes(2, 1, 8, 2);
    src[40] = src[41] = src[42] = 255;  // entry 0 white
    src[44] = src[45] = src[46] = 254;  // entry 1
    src[48] = 0;
    src[49] = 1;
    const Converted c = ConvertBytes(src, 16);
    ASSERT_EQ(c.status, 0);
    EXPECT_EQ(WordAt(c.bytes, 40), (31 << 10) | (31 << 5) | 31);
    EXPECT_EQ(WordAt(c.bytes, 42), (30 << 10) | (30 << 5) | 30);
    EXPECT_EQ(Field32(c.bytes, 32), 0u);
    EXPECT_EQ(c.bytes.size(), 44u);
}

// A widening between palette depths keeps the indices and the table as long as it is.
TEST(Promote, FourBitsWithFiveColoursToEightKeepFiveEntries) {
    std::mt19937 rng(461);
    std::vector<uint8_t> src = RandomPaletteDib(rng, 7, 3, 4, 5);
    for (size_t i = 40; i < 60; i += 4) src[i + 3] = 0x5A;  // rgbReserved, which the copy clears
    const Converted c = ConvertBytes(src, 8);
    ASSERT_EQ(c.status, 0);
    EXPECT_EQ(Field32(c.bytes, 32), 5u);
    EXPECT_EQ(c.bytes.size(), 40 + 20 + RowBytes(8, 7) * 3u);
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(EntryAt(c.bytes, i), (Entry{src[40 + 4 * i], src[41 + 4 * i], src[42 + 4 * i], 0}));
    }
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 7; ++x) {
            const uint8_t byte = src[60 + RowBytes(4, 7) * y + x / 2];
            EXPECT_EQ(IndexAt(c.bytes, x, y), x % 2 == 0 ? byte >> 4 : byte & 15);
        }
}

// A 1-bit image to gray: the luma of its two entries, in a 256-entry ramp.
TEST(Promote, OneBitToGrayGivesTheLumaOfItsTwoEntries) {
    std::vector<uint8_t> src = MakeDibBytes(9, 2, 1);
    src[40] = 200;  // entry 0: blue 200, green 0, red 0 -> 200 x 0.114f = 22.8
    src[44] = src[45] = src[46] = 255;  // entry 1: white -> 254
    src[48] = 0xA5;  // row 0: 1 0 1 0 0 1 0 1, then 0
    const Converted c = ConvertBytes(src, 80);
    ASSERT_EQ(c.status, 0);
    EXPECT_EQ(c.bytes[14], 8);
    EXPECT_EQ(Field32(c.bytes, 32), 0u);
    for (int i = 0; i < 256; ++i) EXPECT_EQ(EntryAt(c.bytes, i), (Entry{i, i, i, 0}));
    const int bits[9] = {1, 0, 1, 0, 0, 1, 0, 1, 0};
    for (int x = 0; x < 9; ++x) EXPECT_EQ(IndexAt(c.bytes, x, 0), bits[x] ? 254 : 22) << x;
    for (int x = 0; x < 9; ++x) EXPECT_EQ(IndexAt(c.bytes, x, 1), 22) << x;
}

// 32 to 24 drops the fourth byte; 24 to 32 writes it as 0; the two ways give back the pixels.
TEST(Promote, ThirtyTwoToTwentyFourAndBack) {
    std::mt19937 rng(462);
    const std::vector<uint8_t> src = RandomDib(rng, 5, 3, 32);
    const Converted down = ConvertBytes(src, 24);
    ASSERT_EQ(down.status, 0);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 5; ++x)
            for (int ch = 0; ch < 3; ++ch)
                EXPECT_EQ(down.bytes[40 + RowBytes(24, 5) * y + 3 * x + ch], src[40 + 20 * y + 4 * x + ch]);
    const Converted up = ConvertBytes(down.bytes, 32);
    ASSERT_EQ(up.status, 0);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 5; ++x) {
            for (int ch = 0; ch < 3; ++ch) EXPECT_EQ(up.bytes[40 + 20 * y + 4 * x + ch], src[40 + 20 * y + 4 * x + ch]);
            EXPECT_EQ(up.bytes[40 + 20 * y + 4 * x + 3], 0);
        }
    EXPECT_EQ(ConvertBytes(up.bytes, 24).bytes, down.bytes);
}

// 5-6-5 to 24 bits uses the full expansion (31 -> 255, 1 -> 8); back to 16 bits it is 5-5-5 and the
// green channel has lost its sixth bit: 63 -> 255 -> 31, and 33 -> 133 -> 16.
TEST(Promote, FiveSixFiveToTwentyFourAndBackComesOutFiveFiveFive) {
    std::mt19937 rng(463);
    std::vector<uint8_t> src = RandomDib(rng, 2, 1, 16, true);
    const size_t at = PixelOffset(src);
    const uint16_t first = (31 << 11) | (63 << 5) | 1, second = (1 << 11) | (33 << 5) | 31;
    src[at] = static_cast<uint8_t>(first);
    src[at + 1] = static_cast<uint8_t>(first >> 8);
    src[at + 2] = static_cast<uint8_t>(second);
    src[at + 3] = static_cast<uint8_t>(second >> 8);
    const Converted wide = ConvertBytes(src, 24);
    ASSERT_EQ(wide.status, 0);
    EXPECT_EQ(std::vector<int>(wide.bytes.begin() + 40, wide.bytes.begin() + 46),
              (std::vector<int>{8, 255, 255, 255, 133, 8}));
    const Converted back = ConvertBytes(wide.bytes, 16);
    ASSERT_EQ(back.status, 0);
    // 255 -> 31, 8 -> 0, 133 -> 16.
    EXPECT_EQ(WordAt(back.bytes, 40), (31 << 10) | (31 << 5) | 0);
    EXPECT_EQ(WordAt(back.bytes, 42), (0 << 10) | (16 << 5) | 31);
    EXPECT_EQ(Field32(back.bytes, 16), 0u);
}

// Widening from 16 bits then reducing back loses a level: 5-bit 10 -> 82 -> 9.
TEST(Promote, SixteenToThirtyTwoAndBackLosesALevel) {
    std::vector<uint8_t> src = MakeDibBytes(1, 1, 16);
    src[40] = static_cast<uint8_t>((10 << 5) | 10);
    src[41] = static_cast<uint8_t>((10 << 2) | (10 >> 3));
    const Converted wide = ConvertBytes(src, 32);
    EXPECT_EQ(std::vector<int>(wide.bytes.begin() + 40, wide.bytes.begin() + 44), (std::vector<int>{82, 82, 82, 0}));
    const Converted back = ConvertBytes(wide.bytes, 16);
    EXPECT_EQ(WordAt(back.bytes, 40), (9 << 10) | (9 << 5) | 9);
}

// Every widening and direct conversion over every width against the transcription.
TEST(Promote, RandomImagesMatchTheRules) {
    std::mt19937 rng(464);
    for (const Format f : kFormats) {
        for (int width = 1; width <= 33; ++width) {
            const std::vector<uint8_t> src = RandomSource(rng, f, width, 1 + static_cast<int>(rng() % 4));
            for (int target : {4, 8, 16, 24, 32, 80}) {
                const bool widening = f.bits < (target == 80 ? 8 : target) || (f.bits == 8 && target == 80);
                const bool direct = f.bits >= 16 && target >= 16 && target != 80 && f.bits != target;
                if (!widening && !direct) continue;
                const Converted c = ConvertBytes(src, target);
                ASSERT_EQ(c.status, 0);
                EXPECT_EQ(c.bytes, ReferenceConvert(src, target, 0, 0, 0)) << f.bits << " to " << target << " width " << width;
            }
        }
    }
}

// The row of indices of a palette widening is the one block whose failure sets no status: the call
// gives no result and the status 0 it set on entry.
TEST(Promote, FailedRowOfIndicesEndsWithStatusZero) {
    std::mt19937 rng(465);
    const std::vector<uint8_t> src = RandomDib(rng, 6, 2, 8);
    HandleGuard image(ToBlock(src));
    for (int target : {16, 24, 32, 80}) {
        const size_t live = Tz3LiveBlocks();
        FailingAllocator failing(1);  // 0 is the result, 1 the row
        EXPECT_EQ(TZ3ConvertColor(image.h, target, 0, 0, 0, 1, 0, 0, 0), nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 0) << target;
        EXPECT_EQ(Tz3LiveBlocks(), live);
    }
    ExpectCallerBlocksUnchanged(image.h, src);
}

}  // namespace
