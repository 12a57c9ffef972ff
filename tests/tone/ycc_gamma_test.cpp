// TZ3YCCGamma against a literal per-pixel transcription of its rules, in every format, with masks,
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

DibHandle Gamma(DibHandle image, DibHandle mask, int32_t kind, double ky, double kcr, double kcb,
                int32_t noDialog = 1) {
    const DibPair pair{image, mask};
    return TZ3YCCGamma(&pair, kind, nullptr, 0, nullptr, 1, ky, kcr, kcb, noDialog, 0, 0, 0);
}

// ---- The reference: the shared YCC arithmetic and the curves of this operation ----

// Pixels: the gamma table entry, a float, truncated with no 0.5 added.
int64_t PixelCurve(int v, double k) {
    const double x = v / 255.0;
    return Trunc(static_cast<double>(ToFloat((x - (std::sqrt(x) - x) * k) * 255.0)));
}

// Palette entries: the curve in double with 0.5 added, truncated.
int64_t PaletteCurve(int v, double k) {
    const double x = v / 255.0;
    return Trunc((x - (std::sqrt(x) - x) * k) * 255.0 + 0.5);
}

// Y, Cr, Cb clamped to 0..255, each through its curve, 128 taken off the chroma values, and back;
// with clampCurves the curve values are clamped first, which is not the rule.
std::vector<uint8_t> ReferenceGamma(const std::vector<uint8_t> &src, const std::vector<uint8_t> *mask,
                                    double ky, double kcr, double kcb, bool clampCurves = false) {
    const bool palette = src[14] <= 8;
    const auto curve = [&](int v, double k) {
        const int64_t g = palette ? PaletteCurve(Clamp(v, 0, 255), k) : PixelCurve(Clamp(v, 0, 255), k);
        return clampCurves ? std::clamp<int64_t>(g, 0, 255) : g;
    };
    return Reference(src, mask, [&](Colour c) {
        const Ycc v =
            palette ? Ycc{PaletteYRedBlueGreen(c), PaletteCr(c, 128), PaletteCb(c, 128)} : PixelToYcc(c, 128);
        return BackToRgb(curve(v.y, ky), curve(v.cr, kcr) - 128, curve(v.cb, kcb) - 128);
    });
}

double RandomStrength(std::mt19937 &rng) {
    static const double kPicks[] = {0.0, 1.0,  -1.0, 0.5,  -0.5,  2.5,   -3.0,
                                    1e6, -1e6, 1e9,  -1e9, 1e300, -1e300};
    if (rng() % 2 == 0) return kPicks[rng() % std::size(kPicks)];
    return std::uniform_real_distribution<double>(-4.0, 4.0)(rng);
}

}  // namespace

TEST(YCCGamma, MatchesReferenceOnRandomImagesOfEveryFormatWholeAndMasked) {
    std::mt19937 rng(33001);
    MatchReferenceWholeAndMaskedInEveryFormatAndWidth(rng, [](std::mt19937 &gen) {
        const double y = RandomStrength(gen), cr = RandomStrength(gen), cb = RandomStrength(gen);
        return Trial{[=](DibHandle image, DibHandle mask, int32_t kind) { return Gamma(image, mask, kind, y, cr, cb); },
                     [=](const std::vector<uint8_t> &src, const std::vector<uint8_t> *mask) {
                         return ReferenceGamma(src, mask, y, cr, cb);
                     },
                     Describe(", strengths ", y, cr, cb)};
    });
}

TEST(YCCGamma, ZeroStrengthsOnPixelsAreTheWayThereAndBack) {
    std::mt19937 rng(33002);
    for (const Format f : kFormats) {
        if (f.bits <= 8) continue;
        const std::vector<uint8_t> src = RandomDib(rng, 19, 5, f.bits, f.is565);
        HandleGuard image(ToBlock(src));
        const DibPair pair{image.h, nullptr};
        HandleGuard gamma(Gamma(image.h, nullptr, 1, 0.0, 0.0, 0.0));
        HandleGuard rev(TZ3YCCRev(&pair, 1, nullptr, 0, nullptr, 1, 0, 0, 0, 1, 0, 0, 0));
        HandleGuard level(TZ3YCCLevel(&pair, 1, nullptr, 0, nullptr, 1, 0, 0, 0, 1, 0, 0, 0));
        ASSERT_NE(gamma.h, nullptr);
        ASSERT_NE(rev.h, nullptr);
        ASSERT_NE(level.h, nullptr);
        EXPECT_EQ(FromBlock(gamma.h), FromBlock(rev.h)) << f.bits;
        EXPECT_EQ(FromBlock(gamma.h), FromBlock(level.h)) << f.bits;
        EXPECT_EQ(FromBlock(gamma.h), ReferenceGamma(src, nullptr, 0.0, 0.0, 0.0)) << f.bits;
    }
    struct Case {
        uint8_t r, g, b, outR, outG, outB;
    };
    const Case cases[] = {{255, 255, 255, 254, 254, 254},
                          {5, 5, 5, 2, 4, 4},
                          {128, 128, 128, 128, 128, 128},
                          {255, 0, 0, 254, 0, 0}};
    for (const Case &c : cases) {
        HandleGuard image(ToBlock(Single24(c.r, c.g, c.b)));
        HandleGuard out(Gamma(image.h, nullptr, 1, 0.0, 0.0, 0.0));
        ASSERT_NE(out.h, nullptr);
        EXPECT_EQ(FromBlock(out.h), Single24(c.outR, c.outG, c.outB))
            << int{c.r} << " " << int{c.g} << " " << int{c.b};
    }
}

TEST(YCCGamma, PixelCurveTruncatesWherePaletteCurveRounds) {
    // Gray 128 has Y 128 both ways; strength -1 lifts it to 180.6654: 180 on a pixel, 181 in a table.
    HandleGuard pixel(ToBlock(Single24(128, 128, 128)));
    HandleGuard pixelOut(Gamma(pixel.h, nullptr, 1, -1.0, 0.0, 0.0));
    ASSERT_NE(pixelOut.h, nullptr);
    EXPECT_EQ(FromBlock(pixelOut.h), Single24(180, 180, 180));
    std::vector<uint8_t> palette = MakeDibBytes(2, 2, 8, 1);
    palette[40] = palette[41] = palette[42] = 128;
    palette[43] = 0x77;
    HandleGuard paletteImage(ToBlock(palette));
    HandleGuard paletteOut(Gamma(paletteImage.h, nullptr, 1, -1.0, 0.0, 0.0));
    ASSERT_NE(paletteOut.h, nullptr);
    const std::vector<uint8_t> table = FromBlock(paletteOut.h);
    EXPECT_EQ(table[40], 181);
    EXPECT_EQ(table[41], 181);
    EXPECT_EQ(table[42], 181);
    EXPECT_EQ(table[43], 0x77) << "rgbReserved stays";
}

TEST(YCCGamma, CurveValuesBeyondTheRangeGoBackUnclamped) {
    std::mt19937 rng(33003);
    for (const Format f : {Format{8, false}, Format{24, false}}) {
        const std::vector<uint8_t> src = RandomDib(rng, 32, 8, f.bits);
        HandleGuard image(ToBlock(src));
        HandleGuard out(Gamma(image.h, nullptr, 1, -2.0, -3.0, 2.5));
        ASSERT_NE(out.h, nullptr);
        const std::vector<uint8_t> unclamped = ReferenceGamma(src, nullptr, -2.0, -3.0, 2.5);
        ASSERT_NE(unclamped, ReferenceGamma(src, nullptr, -2.0, -3.0, 2.5, true)) << "the image must show it";
        EXPECT_EQ(FromBlock(out.h), unclamped) << f.bits;
    }
}

TEST(YCCGamma, HugeStrengthsAreCutNeverWrapped) {
    // Gray 128 (Y = Cr = Cb = 128 both ways). A curve beyond the integer range saturates: a huge
    // negative cr takes red to 0 and green to 255, a huge positive cb takes blue to 255 and green
    // to 0.
    struct Case {
        double ky, kcr, kcb;
        uint8_t r, g, b;
    };
    const Case cases[] = {
        {1e300, 0.0, 0.0, 0, 0, 0},     {-1e300, 0.0, 0.0, 255, 255, 255}, {0.0, 1e300, 0.0, 0, 255, 128},
        {0.0, 1e9, 0.0, 0, 255, 128},   {0.0, 0.0, -1e300, 128, 0, 255},   {0.0, -1e9, 0.0, 255, 0, 128},
        {0.0, 0.0, 1e300, 128, 255, 0},
    };
    std::vector<uint8_t> palette = MakeDibBytes(2, 2, 8, 1);
    palette[40] = palette[41] = palette[42] = 128;
    HandleGuard paletteImage(ToBlock(palette));
    HandleGuard pixel(ToBlock(Single24(128, 128, 128)));
    for (const Case &c : cases) {
        HandleGuard out(Gamma(pixel.h, nullptr, 1, c.ky, c.kcr, c.kcb));
        ASSERT_NE(out.h, nullptr);
        EXPECT_EQ(FromBlock(out.h), Single24(c.r, c.g, c.b)) << c.ky << " " << c.kcr << " " << c.kcb;
        HandleGuard table(Gamma(paletteImage.h, nullptr, 1, c.ky, c.kcr, c.kcb));
        ASSERT_NE(table.h, nullptr);
        const std::vector<uint8_t> entry = FromBlock(table.h);
        EXPECT_EQ((std::vector<uint8_t>{entry[42], entry[41], entry[40]}),
                  (std::vector<uint8_t>{c.r, c.g, c.b}))
            << "palette " << c.ky << " " << c.kcr << " " << c.kcb;
    }
}

TEST(YCCGamma, RectangularPolygonChangesOnlyItsBoxInsideAndOnlyTheRestOutside) {
    std::mt19937 rng(33004);
    const Tz3Point corners[4] = {{2, 1}, {6, 1}, {6, 4}, {2, 4}};  // top-down rows 1..4 are bottom-up 2..5
    for (const Format f : kFormats) {
        if (f.bits <= 8) continue;
        const std::vector<uint8_t> src = RandomDib(rng, 9, 7, f.bits, f.is565);
        HandleGuard image(ToBlock(src));
        const DibPair pair{image.h, nullptr};
        for (int inside : {1, 0}) {
            HandleGuard out(TZ3YCCGamma(&pair, 2, corners, 4, nullptr, inside, 0.8, -0.4, 0.2, 1, 0, 0, 0));
            ASSERT_NE(out.h, nullptr);
            const std::vector<uint8_t> mask = RectMask(9, 7, 2, 2, 6, 5, inside != 0);
            EXPECT_EQ(FromBlock(out.h), ReferenceGamma(src, &mask, 0.8, -0.4, 0.2))
                << f.bits << " inside " << inside;
        }
    }
}

TEST(YCCGamma, ThirtyTwoBitsKeepEveryFourthByte) {
    std::mt19937 rng(33005);
    const std::vector<uint8_t> src = RandomDib(rng, 9, 3, 32);
    HandleGuard image(ToBlock(src));
    HandleGuard out(Gamma(image.h, nullptr, 1, 1.0, -0.5, 0.5));
    ASSERT_NE(out.h, nullptr);
    const std::vector<uint8_t> result = FromBlock(out.h);
    EXPECT_EQ(result, ReferenceGamma(src, nullptr, 1.0, -0.5, 0.5));
    for (size_t i = 40; i < src.size(); i += 4) EXPECT_EQ(result[i + 3], src[i + 3]);
}

TEST(YCCGamma, PaletteImagesIgnoreTheRegionWhileUnknownKindsAreRefusedOnPixels) {
    std::mt19937 rng(33006);
    ExpectPaletteIgnoresRegionWhilePixelsRefuseUnknownKind(
        rng, 1, [](DibHandle image, int32_t kind) { return Gamma(image, nullptr, kind, 0.5, 0.6, 0.7); },
        [](const std::vector<uint8_t> &src) { return ReferenceGamma(src, nullptr, 0.5, 0.6, 0.7); });
}

TEST(YCCGamma, ReportsEveryRowAndEveryPaletteEntry) {
    std::mt19937 rng(33007);
    ExpectProgressOverEveryRowAndPaletteEntry(
        rng, [](DibHandle image, int32_t noDialog) { return Gamma(image, nullptr, 1, 1, 1, 1, noDialog); });
}

TEST(YCCGamma, OneRowImageReportsZeroOfZero) {
    ExpectOneRowReportsZeroOfZero(
        24, [](DibHandle image, int32_t noDialog) { return Gamma(image, nullptr, 1, 1, 1, 1, noDialog); });
}

TEST(YCCGamma, CancellingAtEveryProgressCallFreesTheCloneAndBothTables) {
    std::mt19937 rng(33008);
    CancelAtEveryProgressCallInEveryFormat(
        rng, [](DibHandle image, DibHandle mask) { return Gamma(image, mask, 0, 1.0, -1.0, 2.0); });
}

TEST(YCCGamma, AllocationFailureAtEveryAllocationGivesStatusThree) {
    std::mt19937 rng(33009);
    FailEveryAllocationInEveryFormatAndKind(
        rng,
        [](const DibPair *pair, int32_t kind, const Tz3Point *polygon, int32_t points, const Tz3Rect *ellipse) {
            return TZ3YCCGamma(pair, kind, polygon, points, ellipse, 1, 1.0, 2.0, 3.0, 1, 0, 0, 0);
        },
        [](Format f, int kind, long allocations) {
            if (kind == 1) {
                // Palette images: the clone alone. Pixels: the clone, the YCC tables, the gamma tables.
                EXPECT_EQ(allocations, f.bits <= 8 ? 1 : 3) << f.bits;
            }
        });
}

TEST(YCCGamma, NullImageGivesStatusSeven) {
    ExpectNullImageRefused(
        [](const DibPair *pair) { return TZ3YCCGamma(pair, 1, nullptr, 0, nullptr, 1, 1, 1, 1, 1, 0, 0, 0); });
}

TEST(YCCGamma, BlockShorterThanItsHeaderClaimsGivesStatusSeven) {
    ExpectShortBlockRefused({4, 24}, [](DibHandle image) { return Gamma(image, nullptr, 1, 1, 1, 1); });
}
