// TZ3RGBGamma against a literal per-pixel transcription of its rules, in every format, with masks,
// regions, progress, cancellation and allocation failure.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "support/test_images.h"
#include "support/tone_harness.h"
#include "support/tone_reference.h"
#include "tz3effect.h"

using namespace tz3test;

namespace {

DibHandle Gamma(DibHandle image, DibHandle mask, int32_t kind, double red, double green, double blue,
                int32_t noDialog = 1) {
    const DibPair pair{image, mask};
    return TZ3RGBGamma(&pair, kind, nullptr, 0, nullptr, 1, red, green, blue, noDialog, 0, 0, 0);
}

// ---- The reference: the shared literal arithmetic (support/tone_reference.h) and this rule ----

// Pixels: the curve's value stored as a single-precision table entry, then 0.5 added in double,
// truncated, clamped.
int PixelCurve(int c, double k) {
    const double x = c / 255.0;
    const float entry = ToFloat((x - (std::sqrt(x) - x) * k) * 255.0);
    return Clamp(Trunc(static_cast<double>(entry) + 0.5), 0, 255);
}

// Palette entries: the same curve in double all the way, 0.5 added, truncated, clamped.
int PaletteCurve(int c, double k) {
    const double x = c / 255.0;
    return Clamp(Trunc((x - (std::sqrt(x) - x) * k) * 255.0 + 0.5), 0, 255);
}

std::vector<uint8_t> ReferenceGamma(const std::vector<uint8_t> &src, const std::vector<uint8_t> *mask,
                                    double kr, double kg, double kb) {
    if (src[14] <= 8) {
        return Reference(src, mask, [&](Colour c) {
            return Colour{PaletteCurve(c.r, kr), PaletteCurve(c.g, kg), PaletteCurve(c.b, kb)};
        });
    }
    return Reference(src, mask, [&](Colour c) {
        return Colour{PixelCurve(c.r, kr), PixelCurve(c.g, kg), PixelCurve(c.b, kb)};
    });
}

// ---- Images ----

double RandomStrength(std::mt19937 &rng) {
    static const double kPicks[] = {0.0,   1.0, -1.0, 0.5, -0.5, 2.5,   -3.0,
                                    -1.04, 1e6, -1e6, 1e9, -1e9, 1e300, -1e300};
    if (rng() % 2 == 0) return kPicks[rng() % std::size(kPicks)];
    return std::uniform_real_distribution<double>(-4.0, 4.0)(rng);
}

}  // namespace

TEST(RGBGamma, MatchesReferenceOnRandomImagesOfEveryFormatWholeAndMasked) {
    std::mt19937 rng(32001);
    MatchReferenceWholeAndMaskedInEveryFormatAndWidth(rng, [](std::mt19937 &gen) {
        const double r = RandomStrength(gen), g = RandomStrength(gen), b = RandomStrength(gen);
        return Trial{[=](DibHandle image, DibHandle mask, int32_t kind) { return Gamma(image, mask, kind, r, g, b); },
                     [=](const std::vector<uint8_t> &src, const std::vector<uint8_t> *mask) {
                         return ReferenceGamma(src, mask, r, g, b);
                     },
                     Describe(", strengths ", r, g, b)};
    });
}

TEST(RGBGamma, EveryLevelOfEveryChannelMatchesTheCurve) {
    const std::vector<uint8_t> src = GrayRamp24();
    HandleGuard image(ToBlock(src));
    for (const double k : {1.0, -1.0, 0.25, -2.75, 3.5}) {
        HandleGuard out(Gamma(image.h, nullptr, 1, k, -k, k / 3));
        ASSERT_NE(out.h, nullptr);
        EXPECT_EQ(FromBlock(out.h), ReferenceGamma(src, nullptr, k, -k, k / 3)) << k;
    }
}

TEST(RGBGamma, RectangularPolygonChangesOnlyItsBoxInsideAndOnlyTheRestOutside) {
    std::mt19937 rng(32002);
    const Tz3Point corners[4] = {{2, 1}, {6, 1}, {6, 4}, {2, 4}};  // top-down rows 1..4 are bottom-up 2..5
    for (const Format f : kFormats) {
        if (f.bits <= 8) continue;
        const std::vector<uint8_t> src = RandomDib(rng, 9, 7, f.bits, f.is565);
        HandleGuard image(ToBlock(src));
        const DibPair pair{image.h, nullptr};
        for (int inside : {1, 0}) {
            HandleGuard out(TZ3RGBGamma(&pair, 2, corners, 4, nullptr, inside, 1.5, -0.7, 0.3, 1, 0, 0, 0));
            ASSERT_NE(out.h, nullptr);
            const std::vector<uint8_t> mask = RectMask(9, 7, 2, 2, 6, 5, inside != 0);
            EXPECT_EQ(FromBlock(out.h), ReferenceGamma(src, &mask, 1.5, -0.7, 0.3))
                << f.bits << " inside " << inside;
        }
    }
}

TEST(RGBGamma, WorkedCurveValuesRoundToNearest) {
    // With strength 1: level 128 gives 75.3346 -> 75, level 64 gives 0.2502 -> 0, level 1 gives
    // -13.9687 -> 0. With strength -1: level 128 gives 180.6654 -> 181.
    HandleGuard image(ToBlock(Single24(128, 128, 1)));
    HandleGuard out(Gamma(image.h, nullptr, 1, 1.0, -1.0, 1.0));
    ASSERT_NE(out.h, nullptr);
    EXPECT_EQ(FromBlock(out.h), Single24(75, 181, 0));
    HandleGuard quarter(ToBlock(Single24(64, 0, 255)));
    HandleGuard quarterOut(Gamma(quarter.h, nullptr, 1, 1.0, 1.0, 1.0));
    ASSERT_NE(quarterOut.h, nullptr);
    EXPECT_EQ(FromBlock(quarterOut.h), Single24(0, 0, 255)) << "0 and 255 are fixed points";
}

TEST(RGBGamma, PalettePathComputesInDoubleAndPixelPathThroughFloat) {
    // Strength -1.04 at level 203: the curve is 228.4999992 in double but 228.5 as a float.
    std::vector<uint8_t> palette = MakeDibBytes(2, 2, 8, 1);
    palette[40] = palette[41] = palette[42] = 203;
    HandleGuard paletteImage(ToBlock(palette));
    HandleGuard paletteOut(Gamma(paletteImage.h, nullptr, 1, -1.04, -1.04, -1.04));
    ASSERT_NE(paletteOut.h, nullptr);
    const std::vector<uint8_t> entry = FromBlock(paletteOut.h);
    EXPECT_EQ(entry[40], 228);
    EXPECT_EQ(entry[41], 228);
    EXPECT_EQ(entry[42], 228);
    HandleGuard pixel(ToBlock(Single24(203, 203, 203)));
    HandleGuard pixelOut(Gamma(pixel.h, nullptr, 1, -1.04, -1.04, -1.04));
    ASSERT_NE(pixelOut.h, nullptr);
    EXPECT_EQ(FromBlock(pixelOut.h), Single24(229, 229, 229));
}

TEST(RGBGamma, ZeroStrengthsGiveAnEqualCopyAtTwentyFourAndThirtyTwoBits) {
    std::mt19937 rng(32004);
    for (int bits : {24, 32}) {
        const std::vector<uint8_t> src = RandomDib(rng, 10, 5, bits);
        HandleGuard image(ToBlock(src));
        HandleGuard out(Gamma(image.h, nullptr, 1, 0.0, 0.0, 0.0));
        ASSERT_NE(out.h, nullptr);
        EXPECT_NE(out.h, image.h);
        EXPECT_EQ(FromBlock(out.h), src) << bits;
    }
    const std::vector<uint8_t> ramp = GrayRamp24();
    HandleGuard rampImage(ToBlock(ramp));
    HandleGuard rampOut(Gamma(rampImage.h, nullptr, 1, 0.0, -0.0, 0.0));
    ASSERT_NE(rampOut.h, nullptr);
    EXPECT_EQ(FromBlock(rampOut.h), ramp);
}

TEST(RGBGamma, ZeroStrengthsOnSixteenBitsLoseAStepPerChannel) {
    HandleGuard image(ToBlock(Single16(static_cast<uint16_t>((3 << 10) | (17 << 5) | 30))));
    HandleGuard out(Gamma(image.h, nullptr, 1, 0.0, 0.0, 0.0));
    ASSERT_NE(out.h, nullptr);
    EXPECT_EQ(WordAt(FromBlock(out.h), 40), (2 << 10) | (16 << 5) | 29);
}

TEST(RGBGamma, HugeStrengthsAreCutToZeroOrTwoFiftyFiveNeverWrapped) {
    const std::vector<uint8_t> ramp = GrayRamp24();
    HandleGuard image(ToBlock(ramp));
    for (const double huge : {1e9, 1e300}) {
        HandleGuard out(Gamma(image.h, nullptr, 1, huge, -huge, huge));
        ASSERT_NE(out.h, nullptr);
        const std::vector<uint8_t> result = FromBlock(out.h);
        for (int i = 0; i < 256; ++i) {
            EXPECT_EQ(result[42 + 3 * i], i == 255 ? 255 : 0) << "red, level " << i << ", strength " << huge;
            EXPECT_EQ(result[41 + 3 * i], i == 0 ? 0 : 255) << "green, level " << i << ", strength " << -huge;
            EXPECT_EQ(result[40 + 3 * i], i == 255 ? 255 : 0) << "blue, level " << i;
        }
    }
    std::vector<uint8_t> palette = MakeDibBytes(2, 2, 8, 3);
    const uint8_t levels[3] = {0, 77, 255};
    for (int i = 0; i < 3; ++i) palette[40 + 4 * i] = palette[41 + 4 * i] = palette[42 + 4 * i] = levels[i];
    HandleGuard paletteImage(ToBlock(palette));
    HandleGuard paletteOut(Gamma(paletteImage.h, nullptr, 1, 1e300, -1e300, 1e9));
    ASSERT_NE(paletteOut.h, nullptr);
    const std::vector<uint8_t> table = FromBlock(paletteOut.h);
    const int red[3] = {0, 0, 255}, green[3] = {0, 255, 255};
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(table[42 + 4 * i], red[i]);
        EXPECT_EQ(table[41 + 4 * i], green[i]);
        EXPECT_EQ(table[40 + 4 * i], red[i]);
    }
}

TEST(RGBGamma, ThirtyTwoBitsKeepEveryFourthByte) {
    std::mt19937 rng(32005);
    const std::vector<uint8_t> src = RandomDib(rng, 9, 3, 32);
    HandleGuard image(ToBlock(src));
    HandleGuard out(Gamma(image.h, nullptr, 1, 1.0, -2.0, 0.5));
    ASSERT_NE(out.h, nullptr);
    const std::vector<uint8_t> result = FromBlock(out.h);
    EXPECT_EQ(result, ReferenceGamma(src, nullptr, 1.0, -2.0, 0.5));
    for (size_t i = 40; i < src.size(); i += 4) EXPECT_EQ(result[i + 3], src[i + 3]);
}

TEST(RGBGamma, PaletteImageChangesItsTableWholeAndKeepsReservedBytesAndIndices) {
    std::mt19937 rng(32006);
    const std::vector<uint8_t> src = RandomPaletteDib(rng, 13, 3, 4, 5);
    HandleGuard image(ToBlock(src));
    HandleGuard out(Gamma(image.h, nullptr, 1, 1.0, 1.0, -1.0));
    ASSERT_NE(out.h, nullptr);
    const std::vector<uint8_t> result = FromBlock(out.h);
    EXPECT_EQ(result, ReferenceGamma(src, nullptr, 1.0, 1.0, -1.0));
    for (int i = 0; i < 5; ++i) EXPECT_EQ(result[40 + 4 * i + 3], src[40 + 4 * i + 3]);
    EXPECT_TRUE(std::equal(result.begin() + 60, result.end(), src.begin() + 60));
}

TEST(RGBGamma, PaletteImagesIgnoreTheRegionWhileUnknownKindsAreRefusedOnPixels) {
    std::mt19937 rng(32007);
    ExpectPaletteIgnoresRegionWhilePixelsRefuseUnknownKind(
        rng, 8, [](DibHandle image, int32_t kind) { return Gamma(image, nullptr, kind, 0.5, 0.6, 0.7); },
        [](const std::vector<uint8_t> &src) { return ReferenceGamma(src, nullptr, 0.5, 0.6, 0.7); });
}

TEST(RGBGamma, ReportsEveryRowAndEveryPaletteEntry) {
    std::mt19937 rng(32008);
    ExpectProgressOverEveryRowAndPaletteEntry(
        rng, [](DibHandle image, int32_t noDialog) { return Gamma(image, nullptr, 1, 1, 1, 1, noDialog); });
}

TEST(RGBGamma, OneRowImageReportsZeroOfZero) {
    ExpectOneRowReportsZeroOfZero(
        16, [](DibHandle image, int32_t noDialog) { return Gamma(image, nullptr, 1, 1, 1, 1, noDialog); });
}

TEST(RGBGamma, CancellingAtEveryProgressCallFreesTheCloneAndTheTables) {
    std::mt19937 rng(32009);
    CancelAtEveryProgressCallInEveryFormat(rng, [](DibHandle image, DibHandle mask) { return Gamma(image, mask, 0, 1.0, -1.0, 2.0); });
}

TEST(RGBGamma, AllocationFailureAtEveryAllocationGivesStatusThree) {
    std::mt19937 rng(32010);
    FailEveryAllocationInEveryFormatAndKind(
        rng,
        [](const DibPair *pair, int32_t kind, const Tz3Point *polygon, int32_t points, const Tz3Rect *ellipse) {
            return TZ3RGBGamma(pair, kind, polygon, points, ellipse, 1, 1.0, 2.0, 3.0, 1, 0, 0, 0);
        },
        [](Format f, int kind, long allocations) {
            if (kind == 1) {
                // Palette images: the clone alone. Pixels: the clone and one block of gamma tables.
                EXPECT_EQ(allocations, f.bits <= 8 ? 1 : 2) << f.bits;
            }
        });
}

TEST(RGBGamma, NullImageGivesStatusSeven) {
    ExpectNullImageRefused(
        [](const DibPair *pair) { return TZ3RGBGamma(pair, 1, nullptr, 0, nullptr, 1, 1, 1, 1, 1, 0, 0, 0); });
}

TEST(RGBGamma, BlockShorterThanItsHeaderClaimsGivesStatusSeven) {
    ExpectShortBlockRefused({4, 32}, [](DibHandle image) { return Gamma(image, nullptr, 1, 1, 1, 1); });
}
