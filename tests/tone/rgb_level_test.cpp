// TZ3RGBLevel against a literal per-pixel transcription of its rules, in every format, with masks,
// regions, progress, cancellation and allocation failure.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>

#include "support/test_images.h"
#include "support/tone_harness.h"
#include "support/tone_reference.h"
#include "tz3effect.h"

using namespace tz3test;

namespace {

DibHandle Level(DibHandle image, DibHandle mask, int32_t kind, int32_t red, int32_t green, int32_t blue,
                int32_t noDialog = 1) {
    const DibPair pair{image, mask};
    return TZ3RGBLevel(&pair, kind, nullptr, 0, nullptr, 1, red, green, blue, noDialog, 0, 0, 0);
}

// ---- The reference: the shared literal arithmetic (support/tone_reference.h) and this rule ----

// Each amount clamped to -255..255, each channel plus its amount clamped to 0..255.
std::vector<uint8_t> ReferenceLevel(const std::vector<uint8_t> &src, const std::vector<uint8_t> *mask,
                                    int red, int green, int blue) {
    const int ar = Clamp(red, -255, 255), ag = Clamp(green, -255, 255), ab = Clamp(blue, -255, 255);
    return Reference(src, mask, [&](Colour c) {
        return Colour{Clamp(c.r + ar, 0, 255), Clamp(c.g + ag, 0, 255), Clamp(c.b + ab, 0, 255)};
    });
}

// ---- Images ----

int RandomAmount(std::mt19937 &rng) {
    static const int kPicks[] = {INT_MIN, -1000, -300, -256, -255, -254, -1,     0,
                                 1,       2,     254,  255,  256,  300,  INT_MAX};
    if (rng() % 2 == 0) return kPicks[rng() % std::size(kPicks)];
    return static_cast<int>(rng() % 601) - 300;
}

}  // namespace

TEST(RGBLevel, MatchesReferenceOnRandomImagesOfEveryFormatWholeAndMasked) {
    std::mt19937 rng(31001);
    MatchReferenceWholeAndMaskedInEveryFormatAndWidth(rng, [](std::mt19937 &gen) {
        const int r = RandomAmount(gen), g = RandomAmount(gen), b = RandomAmount(gen);
        return Trial{[=](DibHandle image, DibHandle mask, int32_t kind) { return Level(image, mask, kind, r, g, b); },
                     [=](const std::vector<uint8_t> &src, const std::vector<uint8_t> *mask) {
                         return ReferenceLevel(src, mask, r, g, b);
                     },
                     Describe(", amounts ", r, g, b)};
    });
}

TEST(RGBLevel, RectangularPolygonChangesOnlyItsBoxInsideAndOnlyTheRestOutside) {
    std::mt19937 rng(31002);
    const Tz3Point corners[4] = {{2, 1}, {6, 1}, {6, 4}, {2, 4}};  // top-down rows 1..4 are bottom-up 2..5
    for (const Format f : kFormats) {
        if (f.bits <= 8) continue;
        const std::vector<uint8_t> src = RandomDib(rng, 9, 7, f.bits, f.is565);
        HandleGuard image(ToBlock(src));
        const DibPair pair{image.h, nullptr};
        for (int inside : {1, 0}) {
            HandleGuard out(TZ3RGBLevel(&pair, 2, corners, 4, nullptr, inside, 40, -90, 200, 1, 0, 0, 0));
            ASSERT_NE(out.h, nullptr);
            const std::vector<uint8_t> mask = RectMask(9, 7, 2, 2, 6, 5, inside != 0);
            EXPECT_EQ(FromBlock(out.h), ReferenceLevel(src, &mask, 40, -90, 200))
                << f.bits << " inside " << inside;
        }
    }
}

TEST(RGBLevel, AmountOfThreeHundredActsAsTwoHundredFiftyFiveAndMinusThreeHundredAsMinusTwoHundredFiftyFive) {
    std::mt19937 rng(31003);
    for (const Format f : kFormats) {
        const std::vector<uint8_t> src = RandomDib(rng, 11, 3, f.bits, f.is565);
        HandleGuard image(ToBlock(src));
        HandleGuard beyond(Level(image.h, nullptr, 1, 300, -300, 0));
        HandleGuard limit(Level(image.h, nullptr, 1, 255, -255, 0));
        ASSERT_NE(beyond.h, nullptr);
        ASSERT_NE(limit.h, nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 0) << "the clamp is silent";
        EXPECT_EQ(FromBlock(beyond.h), FromBlock(limit.h)) << f.bits;
    }
    const std::vector<uint8_t> src = RandomDib(rng, 13, 4, 24);
    HandleGuard image(ToBlock(src));
    HandleGuard out(Level(image.h, nullptr, 1, 300, -300, 0));
    ASSERT_NE(out.h, nullptr);
    const std::vector<uint8_t> result = FromBlock(out.h);
    const size_t stride = RowBytes(24, 13);
    for (int y = 0; y < 4; ++y) {
        for (int x = 0; x < 13; ++x) {
            const size_t at = 40 + stride * y + 3 * x;
            EXPECT_EQ(result[at + 2], 255) << "red becomes 255";
            EXPECT_EQ(result[at + 1], 0) << "green becomes 0";
            EXPECT_EQ(result[at], src[at]) << "blue stays";
        }
    }
}

TEST(RGBLevel, ZeroAmountsGiveAnEqualCopyAtTwentyFourAndThirtyTwoBits) {
    std::mt19937 rng(31004);
    for (int bits : {24, 32}) {
        const std::vector<uint8_t> src = RandomDib(rng, 10, 5, bits);
        HandleGuard image(ToBlock(src));
        HandleGuard out(Level(image.h, nullptr, 1, 0, 0, 0));
        ASSERT_NE(out.h, nullptr);
        EXPECT_NE(out.h, image.h);
        EXPECT_EQ(FromBlock(out.h), src) << bits;
    }
}

TEST(RGBLevel, ZeroAmountsOnSixteenBitsLoseAStepPerChannel) {
    // 5-5-5 channels (3, 17, 30) come back as (2, 16, 29); 31 and 0 stay.
    HandleGuard image(ToBlock(Single16(static_cast<uint16_t>((3 << 10) | (17 << 5) | 30))));
    HandleGuard out(Level(image.h, nullptr, 1, 0, 0, 0));
    ASSERT_NE(out.h, nullptr);
    EXPECT_EQ(WordAt(FromBlock(out.h), 40), (2 << 10) | (16 << 5) | 29);
    HandleGuard ends(ToBlock(Single16(static_cast<uint16_t>((31 << 10) | (0 << 5) | 31))));
    HandleGuard endsOut(Level(ends.h, nullptr, 1, 0, 0, 0));
    ASSERT_NE(endsOut.h, nullptr);
    EXPECT_EQ(WordAt(FromBlock(endsOut.h), 40), (31 << 10) | 31);
}

TEST(RGBLevel, AddsEachAmountAndClampsEachChannel) {
    HandleGuard image(ToBlock(Single24(10, 200, 128)));
    HandleGuard out(Level(image.h, nullptr, 1, -20, 100, 27));
    ASSERT_NE(out.h, nullptr);
    EXPECT_EQ(FromBlock(out.h), Single24(0, 255, 155));
}

TEST(RGBLevel, ThirtyTwoBitsKeepEveryFourthByte) {
    std::mt19937 rng(31005);
    const std::vector<uint8_t> src = RandomDib(rng, 9, 3, 32);
    HandleGuard image(ToBlock(src));
    HandleGuard out(Level(image.h, nullptr, 1, 90, -90, 45));
    ASSERT_NE(out.h, nullptr);
    const std::vector<uint8_t> result = FromBlock(out.h);
    for (size_t i = 40; i < src.size(); i += 4) {
        EXPECT_EQ(result[i + 3], src[i + 3]);
        EXPECT_EQ(result[i + 2], std::min(255, src[i + 2] + 90));
    }
}

TEST(RGBLevel, PaletteImageChangesItsTableWholeAndKeepsReservedBytesAndIndices) {
    std::mt19937 rng(31006);
    const std::vector<uint8_t> src = RandomPaletteDib(rng, 13, 3, 8, 3);
    HandleGuard image(ToBlock(src));
    const std::vector<uint8_t> mask = MakeDibBytes(13, 3, 1);  // all clear: ignored for a palette image
    HandleGuard maskBlock(ToBlock(mask));
    HandleGuard out(Level(image.h, maskBlock.h, 0, 60, -60, 0));
    ASSERT_NE(out.h, nullptr);
    const std::vector<uint8_t> result = FromBlock(out.h);
    EXPECT_EQ(result, ReferenceLevel(src, nullptr, 60, -60, 0));
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(result[40 + 4 * i + 3], src[40 + 4 * i + 3]);
        EXPECT_EQ(result[40 + 4 * i + 2], std::min(255, src[40 + 4 * i + 2] + 60));
        EXPECT_EQ(result[40 + 4 * i + 1], std::max(0, src[40 + 4 * i + 1] - 60));
    }
    EXPECT_TRUE(std::equal(result.begin() + 52, result.end(), src.begin() + 52));
}

TEST(RGBLevel, PaletteImagesIgnoreTheRegionWhileUnknownKindsAreRefusedOnPixels) {
    std::mt19937 rng(31007);
    const std::vector<uint8_t> palette = RandomDib(rng, 5, 5, 8);
    HandleGuard paletteImage(ToBlock(palette));
    HandleGuard nine(Level(paletteImage.h, nullptr, 9, 5, 6, 7));
    ASSERT_NE(nine.h, nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 0);
    EXPECT_EQ(FromBlock(nine.h), ReferenceLevel(palette, nullptr, 5, 6, 7));
    const Tz3Point point{2, 2};
    const DibPair pair{paletteImage.h, nullptr};
    HandleGuard onePoint(TZ3RGBLevel(&pair, 2, &point, 1, nullptr, 1, 5, 6, 7, 1, 0, 0, 0));
    ASSERT_NE(onePoint.h, nullptr);
    EXPECT_EQ(FromBlock(onePoint.h), ReferenceLevel(palette, nullptr, 5, 6, 7));

    const std::vector<uint8_t> direct = RandomDib(rng, 5, 5, 24);
    HandleGuard directImage(ToBlock(direct));
    const size_t live = Tz3LiveBlocks();
    EXPECT_EQ(Level(directImage.h, nullptr, 4, 5, 6, 7), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 5);
    EXPECT_EQ(Level(directImage.h, nullptr, 9, 5, 6, 7), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 5);
    EXPECT_EQ(Tz3LiveBlocks(), live);
    HandleGuard lowByte(Level(directImage.h, nullptr, 257, 5, 6, 7));  // the kind counts by its low byte
    ASSERT_NE(lowByte.h, nullptr);
    EXPECT_EQ(FromBlock(lowByte.h), ReferenceLevel(direct, nullptr, 5, 6, 7));
    EXPECT_TRUE(IsUnlocked(directImage.h));
}

TEST(RGBLevel, ReportsEveryRowAndEveryPaletteEntry) {
    std::mt19937 rng(31008);
    ExpectProgressOverEveryRowAndPaletteEntry(
        rng, [](DibHandle image, int32_t noDialog) { return Level(image, nullptr, 1, 1, 1, 1, noDialog); });
}

TEST(RGBLevel, OneRowImageReportsZeroOfZero) {
    ExpectOneRowReportsZeroOfZero(
        32, [](DibHandle image, int32_t noDialog) { return Level(image, nullptr, 1, 1, 1, 1, noDialog); });
}

TEST(RGBLevel, CancellingAtEveryProgressCallFreesEverything) {
    std::mt19937 rng(31009);
    CancelAtEveryProgressCallInEveryFormat(rng, [](DibHandle image, DibHandle mask) { return Level(image, mask, 0, 10, -10, 10); });
}

TEST(RGBLevel, AllocationFailureAtEveryAllocationGivesStatusThree) {
    std::mt19937 rng(31010);
    FailEveryAllocationInEveryFormatAndKind(
        rng,
        [](const DibPair *pair, int32_t kind, const Tz3Point *polygon, int32_t points, const Tz3Rect *ellipse) {
            return TZ3RGBLevel(pair, kind, polygon, points, ellipse, 1, 9, 9, 9, 1, 0, 0, 0);
        },
        [](Format f, int kind, long allocations) {
            (void)f;
            if (kind == 1) {
                EXPECT_EQ(allocations, 1) << "the clone alone: level builds no table";
            }
        });
}

TEST(RGBLevel, NullImageGivesStatusSeven) {
    ExpectNullImageRefused(
        [](const DibPair *pair) { return TZ3RGBLevel(pair, 1, nullptr, 0, nullptr, 1, 1, 1, 1, 1, 0, 0, 0); });
}

TEST(RGBLevel, BlockShorterThanItsHeaderClaimsGivesStatusSeven) {
    ExpectShortBlockRefused({8, 24}, [](DibHandle image) { return Level(image, nullptr, 1, 1, 1, 1); });
}

TEST(RGBLevel, RefusedImageGivesStatusSevenWhateverTheAmounts) {
    std::vector<uint8_t> src = MakeDibBytes(2, 2, 16, 3);
    src[16] = 3;
    const uint32_t masks[3] = {0x0F00, 0x00F0, 0x000F};
    std::memcpy(&src[40], masks, 12);
    HandleGuard image(ToBlock(src));
    EXPECT_EQ(Level(image.h, nullptr, 1, 300, -300, 1000), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
    EXPECT_TRUE(IsUnlocked(image.h));
}
