// TZ3SetGray against a literal per-pixel transcription of its rules, in every format: palette
// images rebuilt with a gray ramp, pixels rewritten with their luma, progress, cancellation and
// allocation failure.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "support/test_images.h"
#include "support/tone_harness.h"
#include "support/tone_reference.h"
#include "tz3effect.h"

using namespace tz3test;

namespace {

DibHandle Gray(DibHandle image, int32_t noDialog = 1) {
    return TZ3SetGray(image, noDialog, 0, 0, 0);
}

// ---- The reference: the shared literal arithmetic (support/tone_reference.h) and this rule ----

// The luma tables: entry i is (float)i times the float weight; L is their sum in double, truncated.
int Luma(int r, int g, int b) {
    const double t0 = static_cast<float>(r) * FloatOf(0x3E991687);
    const double t1 = static_cast<float>(g) * FloatOf(0x3F1645A2);
    const double t2 = static_cast<float>(b) * FloatOf(0x3DE978D5);
    return Trunc(t0 + t1 + t2);
}

std::vector<uint8_t> ReferenceGray(const std::vector<uint8_t> &src) {
    const int bits = src[14];
    const int w = ImageWidth(src), h = ImageHeight(src);
    const size_t stride = RowBytes(bits, w);
    const size_t from = PixelOffset(src);
    if (bits <= 8) {
        // A new block: the source's header with biClrUsed 0, the full gray ramp, rewritten indices.
        const uint32_t n = 1u << bits;
        std::vector<uint8_t> out(40 + 4 * n + stride * h, 0);
        std::copy(src.begin(), src.begin() + 40, out.begin());
        SetField32(out, 32, 0);
        for (uint32_t i = 0; i < n; ++i) {
            out[40 + 4 * i] = out[41 + 4 * i] = out[42 + 4 * i] = static_cast<uint8_t>(i * 255 / (n - 1));
        }
        // An index past the source's table reads the bytes after it; past the block, zeros.
        const auto byteAt = [&](size_t at) -> int { return at < src.size() ? src[at] : 0; };
        const size_t to = 40 + 4 * n;
        for (int y = 0; y < h; ++y) {
            for (int x = 0; x < w; ++x) {
                const uint8_t *row = &src[from + stride * y];
                const int index = bits == 1   ? (row[x / 8] >> (7 - x % 8)) & 1
                                  : bits == 4 ? (x % 2 == 0 ? row[x / 2] >> 4 : row[x / 2] & 15)
                                              : row[x];
                const size_t entry = 40 + 4 * static_cast<size_t>(index);
                const int level = Luma(byteAt(entry + 2), byteAt(entry + 1), byteAt(entry));
                uint8_t *outRow = &out[to + stride * y];
                if (bits == 1) {
                    if (level > 127) outRow[x / 8] |= static_cast<uint8_t>(0x80 >> (x % 8));
                } else if (bits == 4) {
                    const int value = level * 15 / 255;
                    outRow[x / 2] |= static_cast<uint8_t>(x % 2 == 0 ? value << 4 : value);
                } else {
                    outRow[x] = static_cast<uint8_t>(level);
                }
            }
        }
        return out;
    }
    // A clone of header and table with zero rows (biSizeImage = stride x height), every pixel gray.
    std::vector<uint8_t> out(from + stride * h, 0);
    std::copy(src.begin(), src.begin() + static_cast<std::ptrdiff_t>(from), out.begin());
    SetField32(out, 20, static_cast<uint32_t>(stride * h));
    const bool is565 = Is565(src);
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            const uint8_t *p = &src[from + stride * y + static_cast<size_t>(x) * (bits / 8)];
            uint8_t *q = &out[from + stride * y + static_cast<size_t>(x) * (bits / 8)];
            if (bits == 16) {
                const int word = p[0] | (p[1] << 8);
                int level;
                uint16_t result;
                if (is565) {
                    level = Luma(((word >> 11) & 31) * 255 / 31, ((word >> 5) & 63) * 255 / 63,
                                 (word & 31) * 255 / 31);
                    const int c = level * 31 / 255, g = level * 63 / 255;
                    result = static_cast<uint16_t>((c << 11) | (g << 5) | c);
                } else {
                    level = Luma(((word >> 10) & 31) * 255 / 31, ((word >> 5) & 31) * 255 / 31,
                                 (word & 31) * 255 / 31);
                    const int c = level * 31 / 255;
                    result = static_cast<uint16_t>((c << 10) | (c << 5) | c);
                }
                q[0] = static_cast<uint8_t>(result);
                q[1] = static_cast<uint8_t>(result >> 8);
            } else {
                q[0] = q[1] = q[2] = static_cast<uint8_t>(Luma(p[2], p[1], p[0]));
            }
        }
    }
    return out;
}

// ---- Images ----

// Palette images get a table of the full size, a short one or a long one; biSizeImage is 0 or
// garbage.
std::vector<uint8_t> RandomSourceAnyTable(std::mt19937 &rng, Format f, int width, int height) {
    std::vector<uint8_t> src;
    if (f.bits <= 8) {
        const uint32_t full = 1u << f.bits;
        const uint32_t pick = static_cast<uint32_t>(rng() % 4);
        const uint32_t used = pick == 0   ? 0
                              : pick == 1 ? full + static_cast<uint32_t>(rng() % 20)
                                          : 1 + static_cast<uint32_t>(rng() % full);
        src = RandomPaletteDib(rng, width, height, f.bits, used);
    } else {
        src = RandomDib(rng, width, height, f.bits, f.is565);
    }
    SetField32(src, 20, rng() % 2 == 0 ? 0 : static_cast<uint32_t>(rng()));
    return src;
}

// A 1-bit image of the given width and height with a two-entry table and random bits, pad bits 0.
std::vector<uint8_t> OneBit(std::mt19937 &rng, int width, int height, uint8_t level0, uint8_t level1) {
    std::vector<uint8_t> d = MakeDibBytes(width, height, 1);
    d[40] = d[41] = d[42] = level0;
    d[44] = d[45] = d[46] = level1;
    const size_t stride = RowBytes(1, width);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            if (rng() % 2 != 0) d[48 + stride * y + x / 8] |= static_cast<uint8_t>(0x80 >> (x % 8));
        }
    }
    return d;
}

}  // namespace

TEST(SetGray, MatchesReferenceOnRandomImagesOfEveryFormat) {
    std::mt19937 rng(37001);
    for (const Format f : kFormats) {
        for (int width = 1; width <= 33; ++width) {
            const int height = 1 + static_cast<int>(rng() % 5);
            const std::vector<uint8_t> src = RandomSourceAnyTable(rng, f, width, height);
            HandleGuard image(ToBlock(src));
            HandleGuard out(Gray(image.h));
            ASSERT_NE(out.h, nullptr) << f.bits << " bits, width " << width;
            EXPECT_EQ(Tz3GetErrorStatus(), 0);
            EXPECT_EQ(FromBlock(out.h), ReferenceGray(src))
                << f.bits << " bits (565 " << f.is565 << "), width " << width << ", colours "
                << Field32(src, 32);
            EXPECT_EQ(FromBlock(image.h), src) << "the caller's image changed";
            EXPECT_TRUE(IsUnlocked(image.h));
        }
    }
}

TEST(SetGray, WhiteHasLumaTwoFiftyFourAndPureRedSeventySix) {
    EXPECT_EQ(Luma(255, 255, 255), 254);
    EXPECT_EQ(Luma(5, 5, 5), 4);
    EXPECT_EQ(Luma(128, 128, 128), 128);
    EXPECT_EQ(Luma(255, 0, 0), 76);
    HandleGuard image(ToBlock(Single24(255, 255, 255)));
    HandleGuard out(Gray(image.h));
    ASSERT_NE(out.h, nullptr);
    EXPECT_EQ(FromBlock(out.h), Single24(254, 254, 254));
    HandleGuard red(ToBlock(Single24(255, 0, 0)));
    HandleGuard redOut(Gray(red.h));
    ASSERT_NE(redOut.h, nullptr);
    EXPECT_EQ(FromBlock(redOut.h), Single24(76, 76, 76));
}

TEST(SetGray, BlackAndWhiteOneBitImageKeepsItsLook) {
    std::mt19937 rng(37002);
    const std::vector<uint8_t> src = OneBit(rng, 21, 5, 0, 255);
    HandleGuard image(ToBlock(src));
    HandleGuard out(Gray(image.h));
    ASSERT_NE(out.h, nullptr);
    const std::vector<uint8_t> result = FromBlock(out.h);
    EXPECT_EQ(result, src) << "same table 0, 255 and the same bits";
    // With the table the other way round the bits flip, so the picture still looks the same.
    const std::vector<uint8_t> reversed = OneBit(rng, 21, 5, 255, 0);
    HandleGuard reversedImage(ToBlock(reversed));
    HandleGuard reversedOut(Gray(reversedImage.h));
    ASSERT_NE(reversedOut.h, nullptr);
    const std::vector<uint8_t> flipped = FromBlock(reversedOut.h);
    ASSERT_EQ(flipped.size(), reversed.size());
    EXPECT_EQ(flipped[40], 0);
    EXPECT_EQ(flipped[44], 255);
    for (int y = 0; y < 5; ++y) {
        for (int x = 0; x < 21; ++x) {
            EXPECT_NE(MaskBit(flipped, x, y), MaskBit(reversed, x, y)) << x << ", " << y;
        }
    }
    EXPECT_EQ(flipped, ReferenceGray(reversed));
}

TEST(SetGray, OneBitImageWithTwoDarkEntriesBecomesAllZeroBits) {
    std::mt19937 rng(37003);
    // Gray 127 (luma 127, not above 127) and red 200, green 60, blue 20 (luma 97).
    std::vector<uint8_t> src = OneBit(rng, 30, 4, 127, 0);
    src[44] = 20;
    src[45] = 60;
    src[46] = 200;
    ASSERT_EQ(Luma(127, 127, 127), 127);
    ASSERT_EQ(Luma(200, 60, 20), 97);
    HandleGuard image(ToBlock(src));
    HandleGuard out(Gray(image.h));
    ASSERT_NE(out.h, nullptr);
    const std::vector<uint8_t> result = FromBlock(out.h);
    ASSERT_EQ(result.size(), src.size());
    const uint8_t ramp[8] = {0, 0, 0, 0, 255, 255, 255, 0};
    EXPECT_TRUE(std::equal(ramp, ramp + 8, result.begin() + 40));
    EXPECT_TRUE(std::all_of(result.begin() + 48, result.end(), [](uint8_t b) { return b == 0; }));
}

TEST(SetGray, FourBitImageWithFiveEntriesGetsSixteenAndAGrownBlock) {
    std::mt19937 rng(37004);
    const std::vector<uint8_t> src = RandomPaletteDib(rng, 13, 6, 4, 5);
    HandleGuard image(ToBlock(src));
    HandleGuard out(Gray(image.h));
    ASSERT_NE(out.h, nullptr);
    const std::vector<uint8_t> result = FromBlock(out.h);
    EXPECT_EQ(result.size(), src.size() + 4 * (16 - 5));
    EXPECT_EQ(Field32(result, 32), 0u);
    for (int i = 0; i < 16; ++i) {
        EXPECT_EQ(result[40 + 4 * i], 17 * i);
        EXPECT_EQ(result[41 + 4 * i], 17 * i);
        EXPECT_EQ(result[42 + 4 * i], 17 * i);
        EXPECT_EQ(result[43 + 4 * i], 0);
    }
    EXPECT_EQ(result, ReferenceGray(src));
}

TEST(SetGray, EightBitImageWithTwoHundredEntriesGetsAFullRampAndItsRowsMove) {
    std::mt19937 rng(37005);
    std::vector<uint8_t> src = RandomPaletteDib(rng, 9, 4, 8, 200);
    // Indices within the table only, so every level comes from a real entry.
    for (size_t i = PixelOffset(src); i < src.size(); ++i) src[i] = static_cast<uint8_t>(src[i] % 200);
    HandleGuard image(ToBlock(src));
    HandleGuard out(Gray(image.h));
    ASSERT_NE(out.h, nullptr);
    const std::vector<uint8_t> result = FromBlock(out.h);
    EXPECT_EQ(result.size(), src.size() + 224);
    EXPECT_EQ(Field32(result, 32), 0u);
    for (int i = 0; i < 256; ++i) EXPECT_EQ(result[40 + 4 * i], i);
    const size_t stride = RowBytes(8, 9);
    for (int y = 0; y < 4; ++y) {
        for (int x = 0; x < 9; ++x) {
            const size_t index = src[840 + stride * y + x];
            const int level = Luma(src[42 + 4 * index], src[41 + 4 * index], src[40 + 4 * index]);
            EXPECT_EQ(result[840 + 224 + stride * y + x], level) << x << ", " << y;
        }
    }
    EXPECT_EQ(result, ReferenceGray(src));
}

TEST(SetGray, IndexPastAShortTableReadsTheBytesThatFollowItAndZerosPastTheBlock) {
    // One table entry, then the row: index 1 is read from the row's own first bytes (blue 1,
    // green 200, red 100); indices 200, 100 and 50 lie past the end of the block and read as 0.
    std::vector<uint8_t> src = MakeDibBytes(4, 1, 8, 1);
    ASSERT_EQ(src.size(), 48u);
    src[40] = src[41] = src[42] = 255;
    src[44] = 1;
    src[45] = 200;
    src[46] = 100;
    src[47] = 50;
    HandleGuard image(ToBlock(src));
    HandleGuard out(Gray(image.h));
    ASSERT_NE(out.h, nullptr);
    const std::vector<uint8_t> result = FromBlock(out.h);
    ASSERT_EQ(result.size(), 40u + 1024u + 4u);
    EXPECT_EQ(Luma(100, 200, 1), 147);
    EXPECT_EQ(result[1064], 147);
    EXPECT_EQ(result[1065], 0);
    EXPECT_EQ(result[1066], 0);
    EXPECT_EQ(result[1067], 0);
    EXPECT_EQ(result, ReferenceGray(src));
}

TEST(SetGray, ThirtyTwoBitFourthByteComesOutZero) {
    std::mt19937 rng(37006);
    std::vector<uint8_t> src = RandomDib(rng, 7, 3, 32);
    for (size_t i = 43; i < src.size(); i += 4) src[i] = 0xA5;
    HandleGuard image(ToBlock(src));
    HandleGuard out(Gray(image.h));
    ASSERT_NE(out.h, nullptr);
    const std::vector<uint8_t> result = FromBlock(out.h);
    EXPECT_EQ(result, ReferenceGray(src));
    for (size_t i = 40; i < src.size(); i += 4) {
        EXPECT_EQ(result[i + 3], 0);
        EXPECT_EQ(result[i], Luma(src[i + 2], src[i + 1], src[i]));
    }
}

TEST(SetGray, SixteenBitGrayFiveFiveFiveKeepsEqualChannels) {
    std::mt19937 rng(37007);
    std::vector<uint8_t> src = MakeDibBytes(32, 3, 16);
    const size_t stride = RowBytes(16, 32);
    for (int y = 0; y < 3; ++y) {
        for (int x = 0; x < 32; ++x) {
            const int c = y == 0 ? x : static_cast<int>(rng() % 32);
            const uint16_t word = static_cast<uint16_t>((c << 10) | (c << 5) | c);
            src[40 + stride * y + 2 * x] = static_cast<uint8_t>(word);
            src[41 + stride * y + 2 * x] = static_cast<uint8_t>(word >> 8);
        }
    }
    HandleGuard image(ToBlock(src));
    HandleGuard out(Gray(image.h));
    ASSERT_NE(out.h, nullptr);
    const std::vector<uint8_t> result = FromBlock(out.h);
    EXPECT_EQ(result, ReferenceGray(src));
    for (int y = 0; y < 3; ++y) {
        for (int x = 0; x < 32; ++x) {
            const uint16_t word = WordAt(result, 40 + stride * y + 2 * x);
            EXPECT_EQ(word & 31, (word >> 5) & 31);
            EXPECT_EQ(word & 31, (word >> 10) & 31);
            EXPECT_EQ(word & 0x8000, 0);
        }
    }
    EXPECT_EQ(WordAt(result, 40 + 2 * 31), (30 << 10) | (30 << 5) | 30) << "white: luma 254 packs to 30";
}

TEST(SetGray, ReportsEveryRow) {
    std::mt19937 rng(37008);
    for (const Format f : kFormats) {
        const std::vector<uint8_t> src = RandomDib(rng, 6, 4, f.bits, f.is565);
        HandleGuard image(ToBlock(src));
        ProgressRecorder progress;
        HandleGuard out(Gray(image.h, 7));
        ASSERT_NE(out.h, nullptr);
        ASSERT_NO_FATAL_FAILURE(ExpectCountingProgress(progress.calls, 4, 7, std::to_string(f.bits)));
    }
}

TEST(SetGray, OneRowImageReportsZeroOfZero) {
    for (int bits : {8, 24}) {
        ASSERT_NO_FATAL_FAILURE(ExpectOneRowReportsZeroOfZero(
            bits, [](DibHandle image, int32_t noDialog) { return Gray(image, noDialog); }));
    }
}

TEST(SetGray, CancellingAtEveryProgressCallFreesTheResultAndTheTables) {
    std::mt19937 rng(37009);
    for (const Format f : kFormats) {
        const std::vector<uint8_t> src = RandomDib(rng, 5, 4, f.bits, f.is565);
        HandleGuard image(ToBlock(src));
        ExpectCancelAtEveryProgressCall(4, [&] { return Gray(image.h); }, std::to_string(f.bits));
        ExpectCallerBlocksUnchanged(image.h, src);
    }
}

TEST(SetGray, AllocationFailureAtEveryAllocationGivesStatusThree) {
    std::mt19937 rng(37010);
    for (const Format f : kFormats) {
        const std::vector<uint8_t> src = RandomDib(rng, 7, 6, f.bits, f.is565);
        HandleGuard image(ToBlock(src));
        const auto once = [&] { return Gray(image.h); };
        long allocations = 0;
        ASSERT_NO_FATAL_FAILURE(CountAllocations(once, &allocations));
        EXPECT_EQ(allocations, 2) << f.bits << ": the result and one block of luma tables";
        ExpectFailureAtEveryAllocation(allocations, once, std::to_string(f.bits));
        ExpectCallerBlocksUnchanged(image.h, src);
    }
}

TEST(SetGray, CloneRefusedForItsSizeCountsAsOutOfMemory) {
    // A top-down image and one of width 0 pass the format test; the clone refuses them with status
    // 5, which the gray conversion reports as 3.
    for (int bits : {16, 24, 32}) {
        std::vector<uint8_t> topDown = MakeDibBytes(4, 3, bits);
        SetField32(topDown, 8, static_cast<uint32_t>(-3));
        HandleGuard image(ToBlock(topDown));
        const size_t live = Tz3LiveBlocks();
        EXPECT_EQ(Gray(image.h), nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 3) << bits;
        EXPECT_EQ(Tz3LiveBlocks(), live);
        EXPECT_TRUE(IsUnlocked(image.h));
        std::vector<uint8_t> empty = MakeDibBytes(4, 3, bits);
        SetField32(empty, 4, 0);
        HandleGuard emptyImage(ToBlock(empty));
        const size_t withEmpty = Tz3LiveBlocks();
        EXPECT_EQ(Gray(emptyImage.h), nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 3) << bits;
        EXPECT_EQ(Tz3LiveBlocks(), withEmpty);
        EXPECT_TRUE(IsUnlocked(emptyImage.h));
    }
}

TEST(SetGray, NullImageGivesStatusSeven) {
    EXPECT_EQ(Gray(nullptr), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
}

TEST(SetGray, BlockShorterThanItsHeaderClaimsGivesStatusSeven) {
    for (int bits : {4, 24}) {
        std::vector<uint8_t> src = MakeDibBytes(8, 8, bits);
        src.pop_back();
        HandleGuard image(ToBlock(src));
        EXPECT_EQ(Gray(image.h), nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 7);
        EXPECT_TRUE(IsUnlocked(image.h));
    }
}

TEST(SetGray, SixteenBitImageWithUnusableMasksGivesStatusSeven) {
    std::vector<uint8_t> src = MakeDibBytes(2, 2, 16, 3);
    src[16] = 3;
    const uint32_t masks[3] = {0x0F00, 0x00F0, 0x000F};
    std::memcpy(&src[40], masks, 12);
    HandleGuard image(ToBlock(src));
    EXPECT_EQ(Gray(image.h), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
    EXPECT_TRUE(IsUnlocked(image.h));
}

TEST(SetGray, DialogIsOpenedWithTheThreeValuesAndClosedOnce) {
    HandleGuard image(ToBlock(MakeDibBytes(3, 2, 24)));
    DialogRecorder dialog;
    HandleGuard out(TZ3SetGray(image.h, 0, 11, 22, 33));
    ASSERT_NE(out.h, nullptr);
    EXPECT_EQ(dialog.opens, 1);
    EXPECT_EQ(dialog.closes, 1);
    EXPECT_EQ(dialog.a, 11);
    EXPECT_EQ(dialog.b, 22);
    EXPECT_EQ(dialog.c, 33);
}
