// TZ3RGBRev against a literal per-pixel transcription of its rules, in every format, with masks,
// progress, cancellation, allocation failure and threads.
#include <gtest/gtest.h>

#include <thread>

#include "support/test_images.h"
#include "support/tone_harness.h"
#include "tz3effect.h"

using namespace tz3test;

namespace {

DibHandle Rev(DibHandle image, DibHandle mask, int32_t kind, int32_t red, int32_t green, int32_t blue,
              int32_t noDialog = 1) {
    const DibPair pair{image, mask};
    return TZ3RGBRev(&pair, kind, nullptr, 0, nullptr, 1, red, green, blue, noDialog, 0, 0, 0);
}

// The reference: written from the rules alone, sharing no code with the library.
uint16_t RefRev16(uint16_t w, bool is565, bool r, bool g, bool b) {
    int blue = (w & 31) * 255 / 31;
    int green = is565 ? ((w >> 5) & 63) * 255 / 63 : ((w >> 5) & 31) * 255 / 31;
    int red = is565 ? ((w >> 11) & 31) * 255 / 31 : ((w >> 10) & 31) * 255 / 31;
    if (r) red = 255 - red;
    if (g) green = 255 - green;
    if (b) blue = 255 - blue;
    if (is565) return static_cast<uint16_t>(((red * 31 / 255) << 11) | ((green * 63 / 255) << 5) | (blue * 31 / 255));
    return static_cast<uint16_t>(((red * 31 / 255) << 10) | ((green * 31 / 255) << 5) | (blue * 31 / 255));
}

std::vector<uint8_t> ReferenceRev(const std::vector<uint8_t> &src, const std::vector<uint8_t> *mask, bool r, bool g,
                                  bool b) {
    std::vector<uint8_t> out = src;
    const int bits = src[14];
    if (bits <= 8) {
        const uint32_t n = TableEntries(src);
        for (uint32_t i = 0; i < n; ++i) {
            uint8_t *e = &out[40 + 4 * i];
            if (b) e[0] = static_cast<uint8_t>(255 - e[0]);
            if (g) e[1] = static_cast<uint8_t>(255 - e[1]);
            if (r) e[2] = static_cast<uint8_t>(255 - e[2]);
        }
        return out;
    }
    const int w = ImageWidth(src), h = ImageHeight(src);
    const size_t stride = RowBytes(bits, w);
    const size_t at = PixelOffset(src);
    const bool is565 = src[16] == 3;
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            if (mask != nullptr && !MaskBit(*mask, x, y)) continue;
            uint8_t *p = &out[at + stride * y + static_cast<size_t>(x) * (bits / 8)];
            if (bits == 16) {
                const uint16_t word = static_cast<uint16_t>(p[0] | (p[1] << 8));
                const uint16_t rev = RefRev16(word, is565, r, g, b);
                p[0] = static_cast<uint8_t>(rev);
                p[1] = static_cast<uint8_t>(rev >> 8);
            } else {
                if (b) p[0] = static_cast<uint8_t>(255 - p[0]);
                if (g) p[1] = static_cast<uint8_t>(255 - p[1]);
                if (r) p[2] = static_cast<uint8_t>(255 - p[2]);
            }
        }
    }
    return out;
}

// A one-pixel 24-bit image from its bytes in stored order.
std::vector<uint8_t> Single24Bgr(uint8_t b, uint8_t g, uint8_t r) {
    return Single24(r, g, b);
}

uint16_t Word16(const std::vector<uint8_t> &d, size_t at) { return static_cast<uint16_t>(d[at] | (d[at + 1] << 8)); }

}  // namespace

TEST(RGBRev, MatchesReferenceOnRandomImagesOfEveryFormatWholeAndMasked) {
    std::mt19937 rng(20261122);
    for (const Format f : kFormats) {
        for (int width = 1; width <= 33; ++width) {
            const int height = 1 + static_cast<int>(rng() % 5);
            const std::vector<uint8_t> src = RandomDib(rng, width, height, f.bits, f.is565);
            const std::vector<uint8_t> mask = RandomMask(rng, width, height);
            const bool r = rng() & 1, g = rng() & 1, b = rng() & 1;
            HandleGuard image(ToBlock(src));
            HandleGuard maskBlock(ToBlock(mask));

            HandleGuard whole(Rev(image.h, nullptr, 1, r, g, b));
            ASSERT_NE(whole.h, nullptr) << f.bits << " bits, width " << width;
            EXPECT_EQ(FromBlock(whole.h), ReferenceRev(src, nullptr, r, g, b)) << f.bits << " width " << width;

            HandleGuard masked(Rev(image.h, maskBlock.h, 0, r, g, b));
            ASSERT_NE(masked.h, nullptr);
            // Palette images ignore the mask: their table changes whole.
            EXPECT_EQ(FromBlock(masked.h), ReferenceRev(src, f.bits <= 8 ? nullptr : &mask, r, g, b))
                << f.bits << " bits (565 " << f.is565 << "), width " << width;
            EXPECT_EQ(FromBlock(image.h), src) << "the caller's image changed";
        }
    }
}

TEST(RGBRev, TwentyFourBitsWithAllFlagsClearIsAnEqualCopy) {
    std::mt19937 rng(1);
    const std::vector<uint8_t> src = RandomDib(rng, 7, 3, 24);
    HandleGuard image(ToBlock(src));
    HandleGuard out(Rev(image.h, nullptr, 1, 0, 0, 0));
    ASSERT_NE(out.h, nullptr);
    EXPECT_EQ(FromBlock(out.h), src);
    EXPECT_NE(out.h, image.h);
}

TEST(RGBRev, SixteenBitCopyWithAllFlagsClearLosesALevelPerChannel) {
    // 5-5-5 channels (3, 17, 30) come back as (2, 16, 29).
    HandleGuard image(ToBlock(Single16(static_cast<uint16_t>((3 << 10) | (17 << 5) | 30))));
    HandleGuard out(Rev(image.h, nullptr, 1, 0, 0, 0));
    ASSERT_NE(out.h, nullptr);
    EXPECT_EQ(Word16(FromBlock(out.h), 40), (2 << 10) | (16 << 5) | 29);
}

TEST(RGBRev, FiveBitChannelRoundTripKeepsOnlyZeroAndThirtyOne) {
    for (uint16_t c = 0; c < 32; ++c) {
        HandleGuard image(ToBlock(Single16(static_cast<uint16_t>((c << 10) | (c << 5) | c))));
        HandleGuard out(Rev(image.h, nullptr, 1, 0, 0, 0));
        ASSERT_NE(out.h, nullptr);
        const uint16_t expected = c == 0 || c == 1 ? 0 : c == 31 ? 31 : static_cast<uint16_t>(c - 1);
        const uint16_t word = Word16(FromBlock(out.h), 40);
        EXPECT_EQ(word & 31, expected) << "c = " << c;
        EXPECT_EQ((word >> 5) & 31, expected) << "c = " << c;
        EXPECT_EQ((word >> 10) & 31, expected) << "c = " << c;
    }
}

TEST(RGBRev, SixBitGreenRoundTripKeepsZeroTwentyOneFortyTwoAndSixtyThree) {
    std::mt19937 rng(2);
    std::vector<uint8_t> src = RandomDib(rng, 64, 1, 16, true);
    for (uint16_t c = 0; c < 64; ++c) {
        src[52 + 2 * c] = static_cast<uint8_t>(c << 5);
        src[52 + 2 * c + 1] = static_cast<uint8_t>((c << 5) >> 8);
    }
    HandleGuard image(ToBlock(src));
    HandleGuard out(Rev(image.h, nullptr, 1, 0, 0, 0));
    ASSERT_NE(out.h, nullptr);
    const std::vector<uint8_t> result = FromBlock(out.h);
    for (uint16_t c = 0; c < 64; ++c) {
        const int expected = c == 0 || c == 21 || c == 42 || c == 63 ? c : c - 1;
        EXPECT_EQ((Word16(result, 52 + 2 * c) >> 5) & 63, expected) << "c = " << c;
    }
}

TEST(RGBRev, WhiteFiveFiveFiveWordWithAllFlagsBecomesZero) {
    HandleGuard image(ToBlock(Single16(0x7FFF)));
    HandleGuard out(Rev(image.h, nullptr, 1, 1, 1, 1));
    ASSERT_NE(out.h, nullptr);
    EXPECT_EQ(Word16(FromBlock(out.h), 40), 0x0000);
}

TEST(RGBRev, AllChannelsOneComeOutAsThirty) {
    HandleGuard image(ToBlock(Single16((1 << 10) | (1 << 5) | 1)));
    HandleGuard out(Rev(image.h, nullptr, 1, 1, 1, 1));
    ASSERT_NE(out.h, nullptr);
    EXPECT_EQ(Word16(FromBlock(out.h), 40), (30 << 10) | (30 << 5) | 30);
}

TEST(RGBRev, BitFifteenOfAProcessedFiveFiveFiveWordIsCleared) {
    HandleGuard image(ToBlock(Single16(0x8000 | (31 << 10))));
    HandleGuard out(Rev(image.h, nullptr, 1, 0, 0, 0));
    ASSERT_NE(out.h, nullptr);
    EXPECT_EQ(Word16(FromBlock(out.h), 40), 31 << 10);
}

TEST(RGBRev, ReversingAllChannelsTwiceAtSixteenBitsGivesThePixelBack) {
    std::mt19937 rng(3);
    for (bool is565 : {false, true}) {
        std::vector<uint8_t> src = RandomDib(rng, 16, 4, 16, is565);
        if (!is565) {
            for (size_t i = PixelOffset(src) + 1; i < src.size(); i += 2) src[i] &= 0x7F;
        }
        HandleGuard image(ToBlock(src));
        HandleGuard once(Rev(image.h, nullptr, 1, 1, 1, 1));
        HandleGuard twice(Rev(once.h, nullptr, 1, 1, 1, 1));
        ASSERT_NE(twice.h, nullptr);
        EXPECT_EQ(FromBlock(twice.h), src) << "565 " << is565;
    }
}

TEST(RGBRev, ReversingOneChannelTwiceLowersTheOtherTwo) {
    HandleGuard image(ToBlock(Single16(static_cast<uint16_t>((20 << 10) | (20 << 5) | 20))));
    HandleGuard once(Rev(image.h, nullptr, 1, 1, 0, 0));
    HandleGuard twice(Rev(once.h, nullptr, 1, 1, 0, 0));
    ASSERT_NE(twice.h, nullptr);
    EXPECT_EQ(Word16(FromBlock(twice.h), 40), (20 << 10) | (18 << 5) | 18);
}

TEST(RGBRev, ThirtyTwoBitsKeepEveryFourthByte) {
    std::mt19937 rng(4);
    const std::vector<uint8_t> src = RandomDib(rng, 9, 3, 32);
    HandleGuard image(ToBlock(src));
    HandleGuard out(Rev(image.h, nullptr, 1, 1, 1, 1));
    ASSERT_NE(out.h, nullptr);
    const std::vector<uint8_t> result = FromBlock(out.h);
    for (size_t i = 40; i < src.size(); i += 4) {
        EXPECT_EQ(result[i + 3], src[i + 3]);
        EXPECT_EQ(result[i], 255 - src[i]);
    }
}

TEST(RGBRev, EightBitImageWithOnePointPolygonReversesTheWholePalette) {
    std::mt19937 rng(5);
    const std::vector<uint8_t> src = RandomDib(rng, 5, 5, 8);
    HandleGuard image(ToBlock(src));
    const Tz3Point point{2, 2};
    const DibPair pair{image.h, nullptr};
    HandleGuard out(TZ3RGBRev(&pair, 2, &point, 1, nullptr, 1, 1, 1, 1, 1, 0, 0, 0));
    ASSERT_NE(out.h, nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 0);
    EXPECT_EQ(FromBlock(out.h), ReferenceRev(src, nullptr, true, true, true));
}

TEST(RGBRev, PaletteImageKeepsReservedBytesAndPixels) {
    std::mt19937 rng(6);
    const std::vector<uint8_t> src = RandomDib(rng, 13, 2, 4);
    HandleGuard image(ToBlock(src));
    HandleGuard out(Rev(image.h, nullptr, 1, 1, 0, 1));
    ASSERT_NE(out.h, nullptr);
    const std::vector<uint8_t> result = FromBlock(out.h);
    for (int i = 0; i < 16; ++i) EXPECT_EQ(result[40 + 4 * i + 3], src[40 + 4 * i + 3]);
    EXPECT_TRUE(std::equal(result.begin() + 104, result.end(), src.begin() + 104));
}

TEST(RGBRev, FlagsCountByTheirLowByte) {
    const std::vector<uint8_t> src = Single24Bgr(10, 20, 30);
    HandleGuard image(ToBlock(src));
    HandleGuard out(Rev(image.h, nullptr, 1, 256, 0x1FF, -256));
    ASSERT_NE(out.h, nullptr);
    EXPECT_EQ(FromBlock(out.h), Single24Bgr(10, 255 - 20, 30));
}

TEST(RGBRev, ResultKeepsTheHeaderFieldsAndTable) {
    std::vector<uint8_t> src = MakeDibBytes(3, 2, 24, 2);
    const uint32_t fields[4] = {2835, 1417, 2, 1};  // pels per metre, colours used, important
    std::memcpy(&src[24], fields, 16);
    src[40] = 11;
    src[47] = 77;
    HandleGuard image(ToBlock(src));
    HandleGuard out(Rev(image.h, nullptr, 1, 1, 1, 1));
    ASSERT_NE(out.h, nullptr);
    const std::vector<uint8_t> result = FromBlock(out.h);
    ASSERT_EQ(result.size(), src.size());
    EXPECT_TRUE(std::equal(result.begin(), result.begin() + 48, src.begin()));
}

TEST(RGBRev, MaskWithAllBitsClearGivesACopyAndStillReportsEveryRow) {
    std::mt19937 rng(7);
    for (int bits : {16, 24, 32}) {
        const std::vector<uint8_t> src = RandomDib(rng, 6, 4, bits);
        std::vector<uint8_t> mask = MakeDibBytes(6, 4, 1);
        HandleGuard image(ToBlock(src));
        HandleGuard maskBlock(ToBlock(mask));
        ProgressRecorder progress;
        HandleGuard out(Rev(image.h, maskBlock.h, 0, 1, 1, 1, 7));
        ASSERT_NE(out.h, nullptr);
        EXPECT_EQ(FromBlock(out.h), src) << bits;
        ASSERT_NO_FATAL_FAILURE(ExpectCountingProgress(progress.calls, 4, 7));
    }
}

TEST(RGBRev, OneRowBoxReportsZeroOfZero) {
    HandleGuard image(ToBlock(MakeDibBytes(5, 1, 24)));
    ProgressRecorder progress;
    HandleGuard out(Rev(image.h, nullptr, 1, 1, 1, 1, 3));
    ASSERT_NE(out.h, nullptr);
    ASSERT_EQ(progress.calls.size(), 1u);
    EXPECT_EQ(progress.calls[0].current, 0);
    EXPECT_EQ(progress.calls[0].total, 0);
    EXPECT_EQ(progress.calls[0].noDialog, 3);
}

TEST(RGBRev, PaletteProgressCountsTableEntries) {
    std::vector<uint8_t> src = MakeDibBytes(4, 4, 8, 3);
    HandleGuard image(ToBlock(src));
    ProgressRecorder progress;
    HandleGuard out(Rev(image.h, nullptr, 1, 1, 1, 1));
    ASSERT_NE(out.h, nullptr);
    ASSERT_EQ(progress.calls.size(), 3u);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(progress.calls[i].current, i);
        EXPECT_EQ(progress.calls[i].total, 2);
    }
}

TEST(RGBRev, OneEntryPaletteReportsZeroOfZero) {
    HandleGuard image(ToBlock(MakeDibBytes(4, 4, 8, 1)));
    ProgressRecorder progress;
    HandleGuard out(Rev(image.h, nullptr, 1, 1, 1, 1));
    ASSERT_NE(out.h, nullptr);
    ASSERT_EQ(progress.calls.size(), 1u);
    EXPECT_EQ(progress.calls[0].total, 0);
}

TEST(RGBRev, CancellingAtEveryProgressCallFreesEverything) {
    std::mt19937 rng(8);
    CancelAtEveryProgressCallInEveryFormat(
        rng, [](DibHandle image, DibHandle mask) { return Rev(image, mask, 0, 1, 0, 1); },
        [](DibHandle image, const std::vector<uint8_t> &src, DibHandle) {
            EXPECT_EQ(FromBlock(image), src);
            EXPECT_EQ(Tz3GlobalUnlock(image), 0) << "the caller's image was left locked";
        });
}

TEST(RGBRev, CancellingAtTheLastRowGivesStatusOneAndNoResult) {
    HandleGuard image(ToBlock(MakeDibBytes(3, 6, 24)));
    const size_t live = Tz3LiveBlocks();
    ProgressRecorder progress(5);
    EXPECT_EQ(Rev(image.h, nullptr, 1, 1, 1, 1), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 1);
    EXPECT_EQ(Tz3LiveBlocks(), live);
}

TEST(RGBRev, AllocationFailureAtEveryAllocationGivesStatusThree) {
    std::mt19937 rng(9);
    FailEveryAllocationInEveryFormatAndKind(
        rng,
        [](const DibPair *pair, int32_t kind, const Tz3Point *polygon, int32_t points, const Tz3Rect *ellipse) {
            return TZ3RGBRev(pair, kind, polygon, points, ellipse, 1, 1, 1, 1, 1, 0, 0, 0);
        },
        [](Format, int, long allocations) { ASSERT_GE(allocations, 1); },
        [](DibHandle image, const std::vector<uint8_t> &src, DibHandle) { EXPECT_EQ(FromBlock(image), src); });
}

TEST(RGBRev, NullImageGivesStatusSeven) {
    ExpectNullImageRefused(
        [](const DibPair *pair) { return TZ3RGBRev(pair, 1, nullptr, 0, nullptr, 1, 1, 1, 1, 1, 0, 0, 0); });
}

TEST(RGBRev, BlockShorterThanItsHeaderClaimsGivesStatusSeven) {
    ExpectShortBlockRefused({24}, [](DibHandle image) { return Rev(image, nullptr, 1, 1, 1, 1); });
}

TEST(RGBRev, SixteenBitImageWithUnusableMasksGivesStatusSeven) {
    std::vector<uint8_t> src = MakeDibBytes(2, 2, 16, 3);
    src[16] = 3;
    const uint32_t masks[3] = {0x0F00, 0x00F0, 0x000F};
    std::memcpy(&src[40], masks, 12);
    HandleGuard image(ToBlock(src));
    EXPECT_EQ(Rev(image.h, nullptr, 1, 1, 1, 1), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
}

TEST(RGBRev, TopDownImagePassesTheFormatTestAndFailsInTheCloneWithStatusFive) {
    std::vector<uint8_t> src = MakeDibBytes(4, 3, 24);
    const int32_t negative = -3;
    std::memcpy(&src[8], &negative, 4);
    HandleGuard image(ToBlock(src));
    EXPECT_EQ(Rev(image.h, nullptr, 1, 1, 1, 1), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 5);
    std::vector<uint8_t> palette = MakeDibBytes(4, 3, 8);
    std::memcpy(&palette[8], &negative, 4);
    HandleGuard paletteImage(ToBlock(palette));
    EXPECT_EQ(Rev(paletteImage.h, nullptr, 1, 1, 1, 1), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 5);
}

TEST(RGBRev, UnknownBitCountGivesStatusSeven) {
    std::vector<uint8_t> src = MakeDibBytes(4, 3, 24);
    src[14] = 2;
    HandleGuard image(ToBlock(src));
    EXPECT_EQ(Rev(image.h, nullptr, 1, 1, 1, 1), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
}

TEST(RGBRev, TwoThreadsKeepTheirOwnHandlersAndStatuses) {
    std::mt19937 rng(10);
    const std::vector<uint8_t> big = RandomDib(rng, 64, 200, 24);
    const std::vector<uint8_t> small = RandomDib(rng, 9, 30, 32);
    HandleGuard bigImage(ToBlock(big));
    HandleGuard smallImage(ToBlock(small));
    const std::vector<uint8_t> expectedBig = ReferenceRev(big, nullptr, true, false, true);
    for (int round = 0; round < 20; ++round) {
        std::vector<uint8_t> resultBig;
        int statusBig = -1, statusSmall = -1;
        size_t callsBig = 0, callsSmall = 0;
        std::thread first([&] {
            ProgressRecorder progress;
            HandleGuard out(Rev(bigImage.h, nullptr, 1, 1, 0, 1));
            statusBig = Tz3GetErrorStatus();
            if (out.h != nullptr) resultBig = FromBlock(out.h);
            callsBig = progress.calls.size();
        });
        std::thread second([&] {
            ProgressRecorder progress(10);  // this thread's user cancels
            DibHandle out = Rev(smallImage.h, nullptr, 1, 1, 1, 1);
            statusSmall = Tz3GetErrorStatus();
            callsSmall = progress.calls.size();
            if (out != nullptr) Tz3GlobalFree(out);
        });
        first.join();
        second.join();
        EXPECT_EQ(statusBig, 0);
        EXPECT_EQ(resultBig, expectedBig);
        EXPECT_EQ(callsBig, 200u);
        EXPECT_EQ(statusSmall, 1);
        EXPECT_EQ(callsSmall, 11u);
    }
}
