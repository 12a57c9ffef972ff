// TZ3Chroma against a literal per-pixel transcription of its rules, in every format, with masks,
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

DibHandle Chroma(DibHandle image, DibHandle mask, int32_t kind, int32_t amount, int32_t noDialog = 1) {
    const DibPair pair{image, mask};
    return TZ3Chroma(&pair, kind, nullptr, 0, nullptr, 1, amount, noDialog, 0, 0, 0);
}

// ---- The reference: the shared literal arithmetic (support/tone_reference.h) and this rule ----

// Palette entries: the chroma sums of chroma, with no 128 added.
int ChromaPaletteCr(Colour c) {
    return Trunc(c.b * -0.08131 + c.r * 0.5 + c.g * -0.41869);
}
int ChromaPaletteCb(Colour c) {
    return Trunc(c.g * -0.33126 + c.b * 0.5 + c.r * -0.16874);
}

// The amount clamped to -100..1000; factor (amount + 100) / 100 in double, stored as a float.
// Nothing is converted when the factor is exactly 1; otherwise Cr and Cb (no offset, truncated
// toward zero) are scaled in single precision and go back with the unchanged Y.
std::vector<uint8_t> ReferenceChroma(const std::vector<uint8_t> &src, const std::vector<uint8_t> *mask,
                                     int amount) {
    const auto factor = static_cast<float>((Clamp(amount, -100, 1000) + 100.0) / 100.0);
    const bool palette = src[14] <= 8;
    return Reference(src, mask, [&](Colour c) {
        if (factor == 1.0f) return c;
        const Ycc v = palette ? Ycc{PaletteYGreenRedBlue(c), ChromaPaletteCr(c), ChromaPaletteCb(c)}
                              : PixelToYcc(c, 0.0);
        const float cr = static_cast<float>(v.cr) * factor;
        const float cb = static_cast<float>(v.cb) * factor;
        return BackToRgb(static_cast<float>(v.y), cr, cb);
    });
}

// ---- Images ----

int RandomAmount(std::mt19937 &rng) {
    static const int kPicks[] = {INT_MIN, -500, -101, -100, -99,  -1,   0,      0,
                                 1,       100,  999,  1000, 1001, 2000, INT_MAX};
    if (rng() % 2 == 0) return kPicks[rng() % std::size(kPicks)];
    return static_cast<int>(rng() % 1201) - 150;
}

}  // namespace

TEST(Chroma, MatchesReferenceOnRandomImagesOfEveryFormatWholeAndMasked) {
    std::mt19937 rng(36001);
    MatchReferenceWholeAndMaskedInEveryFormatAndWidth(rng, [](std::mt19937 &gen) {
        const int amount = RandomAmount(gen);
        return Trial{[=](DibHandle image, DibHandle mask, int32_t kind) { return Chroma(image, mask, kind, amount); },
                     [=](const std::vector<uint8_t> &src, const std::vector<uint8_t> *mask) {
                         return ReferenceChroma(src, mask, amount);
                     },
                     Describe(", amount ", amount)};
    });
}

TEST(Chroma, EveryAmountOnOneImageMatchesTheReference) {
    std::mt19937 rng(36002);
    const std::vector<uint8_t> src = RandomDib(rng, 40, 6, 24);
    HandleGuard image(ToBlock(src));
    for (int amount = -100; amount <= 1000; amount += 7) {
        HandleGuard out(Chroma(image.h, nullptr, 1, amount));
        ASSERT_NE(out.h, nullptr);
        EXPECT_EQ(FromBlock(out.h), ReferenceChroma(src, nullptr, amount)) << amount;
    }
}

TEST(Chroma, MinusHundredGivesEveryChannelTheLuma) {
    std::mt19937 rng(36003);
    for (int bits : {24, 32}) {
        const std::vector<uint8_t> src = RandomDib(rng, 21, 5, bits);
        HandleGuard image(ToBlock(src));
        HandleGuard out(Chroma(image.h, nullptr, 1, -100));
        ASSERT_NE(out.h, nullptr);
        const std::vector<uint8_t> result = FromBlock(out.h);
        EXPECT_EQ(result, ReferenceChroma(src, nullptr, -100));
        const size_t stride = RowBytes(bits, 21), step = static_cast<size_t>(bits / 8);
        for (int y = 0; y < 5; ++y) {
            for (int x = 0; x < 21; ++x) {
                const size_t at = 40 + stride * y + step * x;
                const int luma = PixelToYcc(Colour{src[at + 2], src[at + 1], src[at]}, 0.0).y;
                EXPECT_EQ(result[at], luma);
                EXPECT_EQ(result[at + 1], luma);
                EXPECT_EQ(result[at + 2], luma);
            }
        }
        // The same luma as the gray conversion.
        HandleGuard gray(TZ3SetGray(image.h, 1, 0, 0, 0));
        ASSERT_NE(gray.h, nullptr);
        const std::vector<uint8_t> grayResult = FromBlock(gray.h);
        for (int y = 0; y < 5; ++y) {
            for (int x = 0; x < 21; ++x) {
                const size_t at = 40 + stride * y + step * x;
                EXPECT_EQ(result[at], grayResult[at]);
            }
        }
    }
    std::vector<uint8_t> palette = MakeDibBytes(2, 2, 8, 2);
    palette[40] = 200;                              // blue
    palette[41] = 40;                               // green
    palette[42] = 10;                               // red
    palette[44] = palette[45] = palette[46] = 128;  // gray 128: luma 127 in this order
    HandleGuard paletteImage(ToBlock(palette));
    HandleGuard paletteOut(Chroma(paletteImage.h, nullptr, 1, -100));
    ASSERT_NE(paletteOut.h, nullptr);
    const std::vector<uint8_t> table = FromBlock(paletteOut.h);
    const int first = PaletteYGreenRedBlue(Colour{10, 40, 200});
    EXPECT_EQ(first, 49);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(table[40 + i], first);
        EXPECT_EQ(table[44 + i], 127);
    }
}

TEST(Chroma, AmountsBeyondTheRangeActAsItsEnds) {
    std::mt19937 rng(36004);
    for (const Format f : kFormats) {
        const std::vector<uint8_t> src = RandomDib(rng, 11, 3, f.bits, f.is565);
        HandleGuard image(ToBlock(src));
        HandleGuard high(Chroma(image.h, nullptr, 1, 2000));
        HandleGuard highest(Chroma(image.h, nullptr, 1, INT_MAX));
        HandleGuard highEnd(Chroma(image.h, nullptr, 1, 1000));
        HandleGuard low(Chroma(image.h, nullptr, 1, -500));
        HandleGuard lowest(Chroma(image.h, nullptr, 1, INT_MIN));
        HandleGuard lowEnd(Chroma(image.h, nullptr, 1, -100));
        ASSERT_NE(high.h, nullptr);
        ASSERT_NE(highest.h, nullptr);
        ASSERT_NE(highEnd.h, nullptr);
        ASSERT_NE(low.h, nullptr);
        ASSERT_NE(lowest.h, nullptr);
        ASSERT_NE(lowEnd.h, nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 0) << "the clamp is silent";
        EXPECT_EQ(FromBlock(high.h), FromBlock(highEnd.h)) << f.bits;
        EXPECT_EQ(FromBlock(highest.h), FromBlock(highEnd.h)) << f.bits;
        EXPECT_EQ(FromBlock(low.h), FromBlock(lowEnd.h)) << f.bits;
        EXPECT_EQ(FromBlock(lowest.h), FromBlock(lowEnd.h)) << f.bits;
        EXPECT_NE(FromBlock(highEnd.h), FromBlock(lowEnd.h)) << f.bits;
    }
}

TEST(Chroma, AmountZeroGivesAnEqualCopyAtTwentyFourAndThirtyTwoBitsAndForPalettes) {
    std::mt19937 rng(36005);
    for (const Format f : kFormats) {
        if (f.bits == 16) continue;
        const std::vector<uint8_t> src = RandomDib(rng, 10, 5, f.bits);
        HandleGuard image(ToBlock(src));
        HandleGuard out(Chroma(image.h, nullptr, 1, 0));
        ASSERT_NE(out.h, nullptr);
        EXPECT_NE(out.h, image.h);
        EXPECT_EQ(FromBlock(out.h), src) << f.bits;
    }
}

TEST(Chroma, AmountZeroOnSixteenBitsOnlyLosesTheExpandAndPackStep) {
    // 5-5-5 channels (3, 17, 30) come back as (2, 16, 29), without the YCC way there and back.
    HandleGuard image(ToBlock(Single16(static_cast<uint16_t>((3 << 10) | (17 << 5) | 30))));
    HandleGuard out(Chroma(image.h, nullptr, 1, 0));
    ASSERT_NE(out.h, nullptr);
    EXPECT_EQ(WordAt(FromBlock(out.h), 40), (2 << 10) | (16 << 5) | 29);
    // 5-5-5 white stays white: the YCC way would have made it 254, packed to 30.
    HandleGuard white(ToBlock(Single16(0x7FFF)));
    HandleGuard whiteOut(Chroma(white.h, nullptr, 1, 0));
    ASSERT_NE(whiteOut.h, nullptr);
    EXPECT_EQ(WordAt(FromBlock(whiteOut.h), 40), 0x7FFF);
    std::mt19937 rng(36006);
    const std::vector<uint8_t> src = RandomDib(rng, 9, 4, 16, true);
    HandleGuard wide(ToBlock(src));
    HandleGuard wideOut(Chroma(wide.h, nullptr, 1, 0));
    ASSERT_NE(wideOut.h, nullptr);
    EXPECT_EQ(FromBlock(wideOut.h), ReferenceChroma(src, nullptr, 0));
}

TEST(Chroma, AmountZeroBuildsNoTables) {
    std::mt19937 rng(36007);
    for (const Format f : kFormats) {
        const std::vector<uint8_t> src = RandomDib(rng, 6, 3, f.bits, f.is565);
        HandleGuard image(ToBlock(src));
        long unchanged, changed;
        {
            FailingAllocator counter;
            HandleGuard out(Chroma(image.h, nullptr, 1, 0));
            ASSERT_NE(out.h, nullptr);
            unchanged = counter.count;
        }
        {
            FailingAllocator counter;
            HandleGuard out(Chroma(image.h, nullptr, 1, 1));
            ASSERT_NE(out.h, nullptr);
            changed = counter.count;
        }
        EXPECT_EQ(unchanged, 1) << f.bits << ": the clone alone";
        EXPECT_EQ(changed, f.bits <= 8 ? 1 : 2) << f.bits << ": pixels add one block of YCC tables";
    }
}

TEST(Chroma, SaturatedRedAtOneThousandClamps) {
    struct Case {
        uint8_t r, g, b, outR, outG, outB;
    };
    const Case cases[] = {
        {255, 0, 0, 255, 0, 0},       // Y 76, Cr 127, Cb -43 (toward zero)
        {200, 40, 40, 255, 0, 0},     // Y 87, Cr 79, Cb -26
        {180, 60, 50, 255, 0, 0},     // Y 94, Cr 60, Cb -25
        {100, 150, 200, 0, 242, 255}  // Y 140, Cr -29, Cb 33
    };
    for (const Case &c : cases) {
        HandleGuard image(ToBlock(Single24(c.r, c.g, c.b)));
        HandleGuard out(Chroma(image.h, nullptr, 1, 1000));
        ASSERT_NE(out.h, nullptr);
        EXPECT_EQ(FromBlock(out.h), Single24(c.outR, c.outG, c.outB))
            << int{c.r} << " " << int{c.g} << " " << int{c.b};
    }
}

TEST(Chroma, WorkedPixelsAtHalfAndOneAndAHalf) {
    struct Case {
        int amount;
        uint8_t r, g, b, outR, outG, outB;
    };
    const Case cases[] = {
        {50, 200, 40, 40, 253, 15, 17},
        {50, 100, 150, 200, 79, 154, 227},
        {-50, 200, 40, 40, 142, 63, 63},
        {-50, 255, 0, 0, 165, 38, 37},
    };
    for (const Case &c : cases) {
        HandleGuard image(ToBlock(Single24(c.r, c.g, c.b)));
        HandleGuard out(Chroma(image.h, nullptr, 1, c.amount));
        ASSERT_NE(out.h, nullptr);
        EXPECT_EQ(FromBlock(out.h), Single24(c.outR, c.outG, c.outB))
            << c.amount << ": " << int{c.r} << " " << int{c.g} << " " << int{c.b};
    }
}

TEST(Chroma, FactorAndScaledChromaAreHeldInSinglePrecision) {
    // Amount 359: the factor 4.59 is stored as a float and Cr and Cb times it are rounded to float.
    // Kept in double throughout, green would come out one lower in both cases.
    struct Case {
        uint8_t r, g, b, outR, outG, outB;
    };
    const Case cases[] = {{0, 105, 200, 0, 178, 255}, {5, 110, 205, 0, 183, 255}};
    for (const Case &c : cases) {
        HandleGuard image(ToBlock(Single24(c.r, c.g, c.b)));
        HandleGuard out(Chroma(image.h, nullptr, 1, 359));
        ASSERT_NE(out.h, nullptr);
        EXPECT_EQ(FromBlock(out.h), Single24(c.outR, c.outG, c.outB))
            << int{c.r} << " " << int{c.g} << " " << int{c.b};
    }
}

TEST(Chroma, RectangularPolygonChangesOnlyItsBoxInsideAndOnlyTheRestOutside) {
    std::mt19937 rng(36008);
    const Tz3Point corners[4] = {{2, 1}, {6, 1}, {6, 4}, {2, 4}};  // top-down rows 1..4 are bottom-up 2..5
    for (const Format f : kFormats) {
        if (f.bits <= 8) continue;
        const std::vector<uint8_t> src = RandomDib(rng, 9, 7, f.bits, f.is565);
        HandleGuard image(ToBlock(src));
        const DibPair pair{image.h, nullptr};
        for (int inside : {1, 0}) {
            HandleGuard out(TZ3Chroma(&pair, 2, corners, 4, nullptr, inside, 150, 1, 0, 0, 0));
            ASSERT_NE(out.h, nullptr);
            const std::vector<uint8_t> mask = RectMask(9, 7, 2, 2, 6, 5, inside != 0);
            EXPECT_EQ(FromBlock(out.h), ReferenceChroma(src, &mask, 150)) << f.bits << " inside " << inside;
        }
    }
}

TEST(Chroma, ThirtyTwoBitsKeepEveryFourthByte) {
    std::mt19937 rng(36009);
    const std::vector<uint8_t> src = RandomDib(rng, 9, 3, 32);
    HandleGuard image(ToBlock(src));
    HandleGuard out(Chroma(image.h, nullptr, 1, 300));
    ASSERT_NE(out.h, nullptr);
    const std::vector<uint8_t> result = FromBlock(out.h);
    EXPECT_EQ(result, ReferenceChroma(src, nullptr, 300));
    for (size_t i = 40; i < src.size(); i += 4) EXPECT_EQ(result[i + 3], src[i + 3]);
}

TEST(Chroma, PaletteImagesIgnoreTheRegionWhileUnknownKindsAreRefusedOnPixels) {
    std::mt19937 rng(36010);
    const std::vector<uint8_t> palette = RandomDib(rng, 5, 5, 8);
    HandleGuard paletteImage(ToBlock(palette));
    HandleGuard nine(Chroma(paletteImage.h, nullptr, 9, 70));
    ASSERT_NE(nine.h, nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 0);
    EXPECT_EQ(FromBlock(nine.h), ReferenceChroma(palette, nullptr, 70));

    const std::vector<uint8_t> direct = RandomDib(rng, 5, 5, 24);
    HandleGuard directImage(ToBlock(direct));
    const size_t live = Tz3LiveBlocks();
    EXPECT_EQ(Chroma(directImage.h, nullptr, 4, 70), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 5);
    EXPECT_EQ(Chroma(directImage.h, nullptr, 4, 0), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 5);
    EXPECT_EQ(Tz3LiveBlocks(), live);
    EXPECT_TRUE(IsUnlocked(directImage.h));
}

TEST(Chroma, ReportsEveryRowAndEveryPaletteEntryAlsoAtAmountZero) {
    std::mt19937 rng(36011);
    for (const int amount : {0, 40}) {
        ExpectProgressOverEveryRowAndPaletteEntry(
            rng, [=](DibHandle image, int32_t noDialog) { return Chroma(image, nullptr, 1, amount, noDialog); },
            Describe(" amount ", amount));
    }
}

TEST(Chroma, OneRowImageReportsZeroOfZero) {
    ExpectOneRowReportsZeroOfZero(
        24, [](DibHandle image, int32_t noDialog) { return Chroma(image, nullptr, 1, 20, noDialog); });
}

TEST(Chroma, CancellingAtEveryProgressCallFreesTheCloneAndTheTables) {
    std::mt19937 rng(36012);
    for (const int amount : {0, 60}) {
        CancelAtEveryProgressCallInEveryFormat(
            rng, [=](DibHandle image, DibHandle mask) { return Chroma(image, mask, 0, amount); });
    }
}

TEST(Chroma, AllocationFailureAtEveryAllocationGivesStatusThree) {
    std::mt19937 rng(36013);
    FailEveryAllocationInEveryFormatAndKind(
        rng,
        [](const DibPair *pair, int32_t kind, const Tz3Point *polygon, int32_t points, const Tz3Rect *ellipse) {
            return TZ3Chroma(pair, kind, polygon, points, ellipse, 1, 80, 1, 0, 0, 0);
        },
        nullptr);
}

TEST(Chroma, NullImageGivesStatusSeven) {
    ExpectNullImageRefused(
        [](const DibPair *pair) { return TZ3Chroma(pair, 1, nullptr, 0, nullptr, 1, 10, 1, 0, 0, 0); });
}

TEST(Chroma, BlockShorterThanItsHeaderClaimsGivesStatusSeven) {
    ExpectShortBlockRefused({8, 16}, [](DibHandle image) { return Chroma(image, nullptr, 1, 10); });
}

TEST(Chroma, RefusedImageGivesStatusSevenWhateverTheAmount) {
    std::vector<uint8_t> src = MakeDibBytes(2, 2, 16, 3);
    src[16] = 3;
    const uint32_t masks[3] = {0x0F00, 0x00F0, 0x000F};
    std::memcpy(&src[40], masks, 12);
    HandleGuard image(ToBlock(src));
    EXPECT_EQ(Chroma(image.h, nullptr, 1, 5000), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
    EXPECT_TRUE(IsUnlocked(image.h));
}
