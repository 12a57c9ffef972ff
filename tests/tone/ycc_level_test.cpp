// TZ3YCCLevel against a literal per-pixel transcription of its rules, in every format, with masks,
// regions, progress, cancellation and allocation failure.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <limits>

#include "support/test_images.h"
#include "support/tone_harness.h"
#include "support/tone_reference.h"
#include "tz3effect.h"

using namespace tz3test;

namespace {

DibHandle Level(DibHandle image, DibHandle mask, int32_t kind, int32_t y, int32_t cr, int32_t cb,
                int32_t noDialog = 1) {
    const DibPair pair{image, mask};
    return TZ3YCCLevel(&pair, kind, nullptr, 0, nullptr, 1, y, cr, cb, noDialog, 0, 0, 0);
}

// ---- The reference: the shared literal arithmetic (support/tone_reference.h) and this rule ----

// The amounts clamped to -255..255 and added; the sums are not clamped before the way back.
Colour ShiftYcc(Ycc v, int ay, int acr, int acb, bool clampSums) {
    int64_t y = int64_t{v.y} + ay, cr = int64_t{v.cr} + acr, cb = int64_t{v.cb} + acb;
    if (clampSums) {  // not the rule: a variant that shows where the rule matters
        y = std::clamp<int64_t>(y, 0, 255);
        cr = std::clamp<int64_t>(cr, 0, 255);
        cb = std::clamp<int64_t>(cb, 0, 255);
    }
    return BackToRgb(y, cr - 128, cb - 128);
}

std::vector<uint8_t> ReferenceLevel(const std::vector<uint8_t> &src, const std::vector<uint8_t> *mask, int y,
                                    int cr, int cb, bool clampSums = false) {
    const int ay = Clamp(y, -255, 255), acr = Clamp(cr, -255, 255), acb = Clamp(cb, -255, 255);
    if (src[14] <= 8) {
        return Reference(src, mask, [&](Colour c) {
            return ShiftYcc(Ycc{PaletteYGreenRedBlue(c), PaletteCr(c, 128), PaletteCb(c, 128)}, ay, acr, acb,
                            clampSums);
        });
    }
    return Reference(src, mask,
                     [&](Colour c) { return ShiftYcc(PixelToYcc(c, 128), ay, acr, acb, clampSums); });
}

// ---- Images ----

int RandomAmount(std::mt19937 &rng) {
    static const int kPicks[] = {INT_MIN, -1000, -300, -256, -255, -254, -1,     0,
                                 1,       2,     254,  255,  256,  300,  INT_MAX};
    if (rng() % 2 == 0) return kPicks[rng() % std::size(kPicks)];
    return static_cast<int>(rng() % 601) - 300;
}

}  // namespace

TEST(YCCLevel, MatchesReferenceOnRandomImagesOfEveryFormatWholeAndMasked) {
    std::mt19937 rng(34001);
    MatchReferenceWholeAndMaskedInEveryFormatAndWidth(rng, [](std::mt19937 &gen) {
        const int y = RandomAmount(gen), cr = RandomAmount(gen), cb = RandomAmount(gen);
        return Trial{[=](DibHandle image, DibHandle mask, int32_t kind) { return Level(image, mask, kind, y, cr, cb); },
                     [=](const std::vector<uint8_t> &src, const std::vector<uint8_t> *mask) {
                         return ReferenceLevel(src, mask, y, cr, cb);
                     },
                     Describe(", amounts ", y, cr, cb)};
    });
}

TEST(YCCLevel, LumaPlusTwoFiftyFiveOnWhiteClampsToWhite) {
    HandleGuard image(ToBlock(Single24(255, 255, 255)));
    HandleGuard out(Level(image.h, nullptr, 1, 255, 0, 0));
    ASSERT_NE(out.h, nullptr);
    EXPECT_EQ(FromBlock(out.h), Single24(255, 255, 255));
    HandleGuard plain(Level(image.h, nullptr, 1, 0, 0, 0));
    ASSERT_NE(plain.h, nullptr);
    EXPECT_EQ(FromBlock(plain.h), Single24(254, 254, 254)) << "with nothing added white comes back as 254";
}

TEST(YCCLevel, SumsGoBackUnclamped) {
    std::mt19937 rng(34002);
    const std::vector<uint8_t> src = RandomDib(rng, 32, 8, 24);
    HandleGuard image(ToBlock(src));
    HandleGuard out(Level(image.h, nullptr, 1, 40, 200, -200));
    ASSERT_NE(out.h, nullptr);
    const std::vector<uint8_t> unclamped = ReferenceLevel(src, nullptr, 40, 200, -200);
    ASSERT_NE(unclamped, ReferenceLevel(src, nullptr, 40, 200, -200, true))
        << "the image must show the difference";
    EXPECT_EQ(FromBlock(out.h), unclamped);
}

TEST(YCCLevel, AmountsBeyondTheRangeActAsItsEnds) {
    std::mt19937 rng(34003);
    for (const Format f : kFormats) {
        const std::vector<uint8_t> src = RandomDib(rng, 11, 3, f.bits, f.is565);
        HandleGuard image(ToBlock(src));
        HandleGuard beyond(Level(image.h, nullptr, 1, 300, -300, INT_MAX));
        HandleGuard limit(Level(image.h, nullptr, 1, 255, -255, 255));
        ASSERT_NE(beyond.h, nullptr);
        ASSERT_NE(limit.h, nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 0) << "the clamp is silent";
        EXPECT_EQ(FromBlock(beyond.h), FromBlock(limit.h)) << f.bits;
        HandleGuard low(Level(image.h, nullptr, 1, -300, INT_MIN, 256));
        HandleGuard lowLimit(Level(image.h, nullptr, 1, -255, -255, 255));
        ASSERT_NE(low.h, nullptr);
        ASSERT_NE(lowLimit.h, nullptr);
        EXPECT_EQ(FromBlock(low.h), FromBlock(lowLimit.h)) << f.bits;
    }
}

TEST(YCCLevel, ZeroAmountsAreTheWayThereAndBackOfEveryFormat) {
    std::mt19937 rng(34004);
    for (const Format f : kFormats) {
        const std::vector<uint8_t> src = RandomDib(rng, 17, 4, f.bits, f.is565);
        HandleGuard image(ToBlock(src));
        const DibPair pair{image.h, nullptr};
        HandleGuard level(Level(image.h, nullptr, 1, 0, 0, 0));
        HandleGuard rev(TZ3YCCRev(&pair, 1, nullptr, 0, nullptr, 1, 0, 0, 0, 1, 0, 0, 0));
        ASSERT_NE(level.h, nullptr);
        ASSERT_NE(rev.h, nullptr);
        EXPECT_EQ(FromBlock(level.h), FromBlock(rev.h)) << f.bits;
        EXPECT_EQ(FromBlock(level.h), ReferenceLevel(src, nullptr, 0, 0, 0)) << f.bits;
    }
}

TEST(YCCLevel, PaletteGrayOneTwentyEightComesBackAsOneTwentySevenWhereGammaKeepsIt) {
    // The level order of the palette luma sum gives 127 for gray 128; the gamma order gives 128.
    std::vector<uint8_t> palette = MakeDibBytes(3, 1, 8, 1);
    palette[40] = palette[41] = palette[42] = 128;
    HandleGuard image(ToBlock(palette));
    HandleGuard level(Level(image.h, nullptr, 1, 0, 0, 0));
    ASSERT_NE(level.h, nullptr);
    const std::vector<uint8_t> levelTable = FromBlock(level.h);
    EXPECT_EQ(levelTable[40], 127);
    EXPECT_EQ(levelTable[41], 127);
    EXPECT_EQ(levelTable[42], 127);
    const DibPair pair{image.h, nullptr};
    HandleGuard gamma(TZ3YCCGamma(&pair, 1, nullptr, 0, nullptr, 1, 0.0, 0.0, 0.0, 1, 0, 0, 0));
    ASSERT_NE(gamma.h, nullptr);
    const std::vector<uint8_t> gammaTable = FromBlock(gamma.h);
    EXPECT_EQ(gammaTable[40], 128);
    EXPECT_EQ(gammaTable[41], 128);
    EXPECT_EQ(gammaTable[42], 128);
    // As a pixel, gray 128 comes back unchanged.
    HandleGuard pixel(ToBlock(Single24(128, 128, 128)));
    HandleGuard pixelOut(Level(pixel.h, nullptr, 1, 0, 0, 0));
    ASSERT_NE(pixelOut.h, nullptr);
    EXPECT_EQ(FromBlock(pixelOut.h), Single24(128, 128, 128));
}

TEST(YCCLevel, WorkedPixels) {
    // (5, 5, 5): Y 4, Cr 127, Cb 128; with 10 added to Y: y 14, cr -1, cb 0 -> (12, 14, 14).
    HandleGuard image(ToBlock(Single24(5, 5, 5)));
    HandleGuard out(Level(image.h, nullptr, 1, 10, 0, 0));
    ASSERT_NE(out.h, nullptr);
    EXPECT_EQ(FromBlock(out.h), Single24(12, 14, 14));
    // Pure red: Y 76, Cr 255, Cb 84, back as (254, 0, 0).
    HandleGuard red(ToBlock(Single24(255, 0, 0)));
    HandleGuard redOut(Level(red.h, nullptr, 1, 0, 0, 0));
    ASSERT_NE(redOut.h, nullptr);
    EXPECT_EQ(FromBlock(redOut.h), Single24(254, 0, 0));
}

TEST(YCCLevel, RectangularPolygonChangesOnlyItsBoxInsideAndOnlyTheRestOutside) {
    std::mt19937 rng(34005);
    const Tz3Point corners[4] = {{2, 1}, {6, 1}, {6, 4}, {2, 4}};  // top-down rows 1..4 are bottom-up 2..5
    for (const Format f : kFormats) {
        if (f.bits <= 8) continue;
        const std::vector<uint8_t> src = RandomDib(rng, 9, 7, f.bits, f.is565);
        HandleGuard image(ToBlock(src));
        const DibPair pair{image.h, nullptr};
        for (int inside : {1, 0}) {
            HandleGuard out(TZ3YCCLevel(&pair, 2, corners, 4, nullptr, inside, 30, -20, 10, 1, 0, 0, 0));
            ASSERT_NE(out.h, nullptr);
            const std::vector<uint8_t> mask = RectMask(9, 7, 2, 2, 6, 5, inside != 0);
            EXPECT_EQ(FromBlock(out.h), ReferenceLevel(src, &mask, 30, -20, 10))
                << f.bits << " inside " << inside;
        }
    }
}

TEST(YCCLevel, ThirtyTwoBitsKeepEveryFourthByte) {
    std::mt19937 rng(34006);
    const std::vector<uint8_t> src = RandomDib(rng, 9, 3, 32);
    HandleGuard image(ToBlock(src));
    HandleGuard out(Level(image.h, nullptr, 1, 20, 30, -40));
    ASSERT_NE(out.h, nullptr);
    const std::vector<uint8_t> result = FromBlock(out.h);
    EXPECT_EQ(result, ReferenceLevel(src, nullptr, 20, 30, -40));
    for (size_t i = 40; i < src.size(); i += 4) EXPECT_EQ(result[i + 3], src[i + 3]);
}

TEST(YCCLevel, PaletteImagesIgnoreTheRegionWhileUnknownKindsAreRefusedOnPixels) {
    std::mt19937 rng(34007);
    ExpectPaletteIgnoresRegionWhilePixelsRefuseUnknownKind(
        rng, 4, [](DibHandle image, int32_t kind) { return Level(image, nullptr, kind, 5, 6, 7); },
        [](const std::vector<uint8_t> &src) { return ReferenceLevel(src, nullptr, 5, 6, 7); });
}

TEST(YCCLevel, ReportsEveryRowAndEveryPaletteEntry) {
    std::mt19937 rng(34008);
    ExpectProgressOverEveryRowAndPaletteEntry(
        rng, [](DibHandle image, int32_t noDialog) { return Level(image, nullptr, 1, 1, 1, 1, noDialog); });
}

TEST(YCCLevel, OneRowImageReportsZeroOfZero) {
    ExpectOneRowReportsZeroOfZero(
        24, [](DibHandle image, int32_t noDialog) { return Level(image, nullptr, 1, 1, 1, 1, noDialog); });
}

TEST(YCCLevel, CancellingAtEveryProgressCallFreesTheCloneAndTheTables) {
    std::mt19937 rng(34009);
    CancelAtEveryProgressCallInEveryFormat(rng, [](DibHandle image, DibHandle mask) { return Level(image, mask, 0, 10, -10, 10); });
}

TEST(YCCLevel, AllocationFailureAtEveryAllocationGivesStatusThree) {
    std::mt19937 rng(34010);
    FailEveryAllocationInEveryFormatAndKind(
        rng,
        [](const DibPair *pair, int32_t kind, const Tz3Point *polygon, int32_t points, const Tz3Rect *ellipse) {
            return TZ3YCCLevel(pair, kind, polygon, points, ellipse, 1, 9, 9, 9, 1, 0, 0, 0);
        },
        [](Format f, int kind, long allocations) {
            if (kind == 1) {
                // Palette images: the clone alone. Pixels: the clone and one block of YCC tables.
                EXPECT_EQ(allocations, f.bits <= 8 ? 1 : 2) << f.bits;
            }
        });
}

TEST(YCCLevel, NullImageGivesStatusSeven) {
    ExpectNullImageRefused(
        [](const DibPair *pair) { return TZ3YCCLevel(pair, 1, nullptr, 0, nullptr, 1, 1, 1, 1, 1, 0, 0, 0); });
}

TEST(YCCLevel, BlockShorterThanItsHeaderClaimsGivesStatusSeven) {
    ExpectShortBlockRefused({8, 32}, [](DibHandle image) { return Level(image, nullptr, 1, 1, 1, 1); });
}

TEST(YCCLevel, RefusedImageGivesStatusSevenWhateverTheAmounts) {
    std::vector<uint8_t> src = MakeDibBytes(2, 2, 32, 3);
    src[16] = 3;
    const uint32_t masks[3] = {0x0000FF00, 0x00FF0000, 0x000000FF};
    std::memcpy(&src[40], masks, 12);
    HandleGuard image(ToBlock(src));
    EXPECT_EQ(Level(image.h, nullptr, 1, 300, -300, 1000), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
    EXPECT_TRUE(IsUnlocked(image.h));
}
