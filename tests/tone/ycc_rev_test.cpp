// TZ3YCCRev against a literal per-pixel transcription of its rules, in every format, with masks,
// regions, progress, cancellation and allocation failure; the worked conversions there and back.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "support/test_images.h"
#include "support/tone_harness.h"
#include "support/tone_reference.h"
#include "tz3effect.h"

using namespace tz3test;

namespace {

DibHandle Rev(DibHandle image, DibHandle mask, int32_t kind, int32_t y, int32_t cr, int32_t cb,
              int32_t noDialog = 1) {
    const DibPair pair{image, mask};
    return TZ3YCCRev(&pair, kind, nullptr, 0, nullptr, 1, y, cr, cb, noDialog, 0, 0, 0);
}

// ---- The reference: the shared literal arithmetic (support/tone_reference.h) and this rule ----

// Y, Cr, Cb clamped to 0..255; each reversed (255 - v) when its flag's low byte is non-zero; back
// with 128 taken off the chroma values.
Colour RevYcc(Ycc v, bool ry, bool rcr, bool rcb) {
    int y = Clamp(v.y, 0, 255), cr = Clamp(v.cr, 0, 255), cb = Clamp(v.cb, 0, 255);
    if (ry) y = 255 - y;
    if (rcr) cr = 255 - cr;
    if (rcb) cb = 255 - cb;
    return BackToRgb(int64_t{y}, int64_t{cr} - 128, int64_t{cb} - 128);
}

std::vector<uint8_t> ReferenceRev(const std::vector<uint8_t> &src, const std::vector<uint8_t> *mask,
                                  int32_t fy, int32_t fcr, int32_t fcb) {
    const bool ry = static_cast<uint8_t>(fy) != 0, rcr = static_cast<uint8_t>(fcr) != 0,
               rcb = static_cast<uint8_t>(fcb) != 0;
    if (src[14] <= 8) {
        return Reference(src, mask, [&](Colour c) {
            return RevYcc(Ycc{PaletteYGreenRedBlue(c), PaletteCr(c, 128), PaletteCb(c, 128)}, ry, rcr, rcb);
        });
    }
    return Reference(src, mask, [&](Colour c) { return RevYcc(PixelToYcc(c, 128), ry, rcr, rcb); });
}

// ---- Images ----

int32_t RandomFlag(std::mt19937 &rng) {
    static const int32_t kPicks[] = {0, 1, -1, 2, 255, 256, 0x1FF, -256, 0x10000, 0x7FFFFF00};
    if (rng() % 4 == 0) return static_cast<int32_t>(rng());
    return kPicks[rng() % std::size(kPicks)];
}

std::vector<uint8_t> Single32(uint8_t r, uint8_t g, uint8_t b, uint8_t fourth) {
    std::vector<uint8_t> d = MakeDibBytes(1, 1, 32);
    d[40] = b;
    d[41] = g;
    d[42] = r;
    d[43] = fourth;
    return d;
}

std::vector<uint8_t> Colour24(const std::vector<uint8_t> &d) {
    return {d[42], d[41], d[40]};
}

}  // namespace

TEST(YCCRev, MatchesReferenceOnRandomImagesOfEveryFormatWholeAndMasked) {
    std::mt19937 rng(35001);
    MatchReferenceWholeAndMaskedInEveryFormatAndWidth(rng, [](std::mt19937 &gen) {
        const int32_t y = RandomFlag(gen), cr = RandomFlag(gen), cb = RandomFlag(gen);
        return Trial{[=](DibHandle image, DibHandle mask, int32_t kind) { return Rev(image, mask, kind, y, cr, cb); },
                     [=](const std::vector<uint8_t> &src, const std::vector<uint8_t> *mask) {
                         return ReferenceRev(src, mask, y, cr, cb);
                     },
                     Describe(", flags ", y, cr, cb)};
    });
}

TEST(YCCRev, EveryLevelOfEachChannelUnderEveryFlagSetMatchesTheReference) {
    // Every level of each channel against the levels 0, 128 and 255 of the other two.
    std::vector<uint8_t> src = MakeDibBytes(256, 27, 24);
    const uint8_t others[3] = {0, 128, 255};
    for (int row = 0; row < 27; ++row) {
        for (int i = 0; i < 256; ++i) {
            uint8_t *p = &src[40 + RowBytes(24, 256) * row + 3 * i];
            const int fixed1 = others[row % 3], fixed2 = others[(row / 3) % 3], which = row / 9;
            p[0] = static_cast<uint8_t>(which == 0 ? i : fixed1);
            p[1] = static_cast<uint8_t>(which == 1 ? i : which == 0 ? fixed1 : fixed2);
            p[2] = static_cast<uint8_t>(which == 2 ? i : fixed2);
        }
    }
    HandleGuard image(ToBlock(src));
    for (int flags = 0; flags < 8; ++flags) {
        HandleGuard out(Rev(image.h, nullptr, 1, flags & 1, flags & 2, flags & 4));
        ASSERT_NE(out.h, nullptr);
        EXPECT_EQ(FromBlock(out.h), ReferenceRev(src, nullptr, flags & 1, flags & 2, flags & 4)) << flags;
    }
}

TEST(YCCRev, TablesGiveTheWorkedYccValuesAndPaletteOrdersDifferOnGray) {
    // The reference's own conversion, checked against the worked numbers before it is trusted.
    const Ycc white = PixelToYcc(Colour{255, 255, 255}, 128);
    EXPECT_EQ(white.y, 254);
    EXPECT_EQ(white.cr, 128);
    EXPECT_EQ(white.cb, 128);
    const Ycc dark = PixelToYcc(Colour{5, 5, 5}, 128);
    EXPECT_EQ(dark.y, 4);
    EXPECT_EQ(dark.cr, 127);
    EXPECT_EQ(dark.cb, 128);
    const Ycc gray = PixelToYcc(Colour{128, 128, 128}, 128);
    EXPECT_EQ(gray.y, 128);
    EXPECT_EQ(gray.cr, 128);
    EXPECT_EQ(gray.cb, 128);
    const Ycc red = PixelToYcc(Colour{255, 0, 0}, 128);
    EXPECT_EQ(red.y, 76);
    EXPECT_EQ(red.cr, 255);
    EXPECT_EQ(red.cb, 84);
    EXPECT_EQ(PaletteYRedBlueGreen(Colour{128, 128, 128}), 128);
    EXPECT_EQ(PaletteYGreenRedBlue(Colour{128, 128, 128}), 127);
}

TEST(YCCRev, NoFlagIsTheWayThereAndBack) {
    struct Case {
        uint8_t r, g, b, outR, outG, outB;
    };
    const Case cases[] = {
        {255, 255, 255, 254, 254, 254},  // Y 254, Cr = Cb = 128
        {5, 5, 5, 2, 4, 4},              // Y 4, Cr 127, Cb 128
        {128, 128, 128, 128, 128, 128},  // Y = Cr = Cb = 128
        {255, 0, 0, 254, 0, 0},          // Y 76, Cr 255, Cb 84
        {0, 0, 0, 0, 0, 0},
    };
    for (const Case &c : cases) {
        HandleGuard image(ToBlock(Single24(c.r, c.g, c.b)));
        HandleGuard out(Rev(image.h, nullptr, 1, 0, 0, 0));
        ASSERT_NE(out.h, nullptr);
        EXPECT_EQ(Colour24(FromBlock(out.h)), (std::vector<uint8_t>{c.outR, c.outG, c.outB}))
            << int{c.r} << " " << int{c.g} << " " << int{c.b};
        HandleGuard wide(ToBlock(Single32(c.r, c.g, c.b, 0x5A)));
        HandleGuard wideOut(Rev(wide.h, nullptr, 1, 0, 0, 0));
        ASSERT_NE(wideOut.h, nullptr);
        EXPECT_EQ(FromBlock(wideOut.h), Single32(c.outR, c.outG, c.outB, 0x5A));
    }
    // 5-5-5 white: 255 comes back as 254, which packs to 30.
    HandleGuard white16(ToBlock(Single16(0x7FFF)));
    HandleGuard white16Out(Rev(white16.h, nullptr, 1, 0, 0, 0));
    ASSERT_NE(white16Out.h, nullptr);
    EXPECT_EQ(WordAt(FromBlock(white16Out.h), 40), (30 << 10) | (30 << 5) | 30);
}

TEST(YCCRev, AllFlagsGiveRoughlyTheNegative) {
    struct Case {
        uint8_t r, g, b, outR, outG, outB;
    };
    const Case cases[] = {
        {0, 0, 0, 253, 255, 253},
        {255, 255, 255, 0, 2, 0},
        {128, 128, 128, 125, 128, 125},
        {255, 0, 0, 0, 255, 255},
    };
    for (const Case &c : cases) {
        HandleGuard image(ToBlock(Single24(c.r, c.g, c.b)));
        HandleGuard out(Rev(image.h, nullptr, 1, 1, 1, 1));
        ASSERT_NE(out.h, nullptr);
        EXPECT_EQ(Colour24(FromBlock(out.h)), (std::vector<uint8_t>{c.outR, c.outG, c.outB}))
            << int{c.r} << " " << int{c.g} << " " << int{c.b};
    }
}

TEST(YCCRev, GrayLevelsPickUpAFaintTint) {
    // Counted with the tables: 45 gray levels have Cr 127 and 58 have Cb other than 128.
    int cr127 = 0, cbOff = 0;
    for (int i = 0; i < 256; ++i) {
        const Ycc v = PixelToYcc(Colour{i, i, i}, 128);
        if (v.cr == 127) ++cr127;
        if (v.cb != 128) ++cbOff;
    }
    EXPECT_EQ(cr127, 45);
    EXPECT_EQ(cbOff, 58);

    const std::vector<uint8_t> ramp = GrayRamp24();
    HandleGuard image(ToBlock(ramp));
    HandleGuard none(Rev(image.h, nullptr, 1, 0, 0, 0));
    ASSERT_NE(none.h, nullptr);
    const std::vector<uint8_t> result = FromBlock(none.h);
    EXPECT_EQ(result, ReferenceRev(ramp, nullptr, 0, 0, 0));
    int tinted = 0;
    for (int i = 0; i < 256; ++i) {
        if (result[40 + 3 * i] != result[41 + 3 * i] || result[41 + 3 * i] != result[42 + 3 * i]) ++tinted;
    }
    EXPECT_GT(tinted, 0) << "some gray levels come back with unequal channels";
    HandleGuard crOnly(Rev(image.h, nullptr, 1, 0, 1, 0));
    ASSERT_NE(crOnly.h, nullptr);
    EXPECT_EQ(FromBlock(crOnly.h), ReferenceRev(ramp, nullptr, 0, 1, 0));
}

TEST(YCCRev, PaletteEntriesTakeLumaInTheirOwnOrder) {
    // Gray 128 stays 128 as a pixel, but a palette entry's luma sums to 127.
    std::vector<uint8_t> palette = MakeDibBytes(2, 2, 8, 2);
    palette[40] = palette[41] = palette[42] = 128;
    palette[43] = 0x33;
    palette[44] = palette[45] = palette[46] = 255;
    HandleGuard image(ToBlock(palette));
    HandleGuard out(Rev(image.h, nullptr, 1, 0, 0, 0));
    ASSERT_NE(out.h, nullptr);
    const std::vector<uint8_t> result = FromBlock(out.h);
    EXPECT_EQ(result[40], 127);
    EXPECT_EQ(result[41], 127);
    EXPECT_EQ(result[42], 127);
    EXPECT_EQ(result[43], 0x33) << "rgbReserved stays";
    EXPECT_EQ(result, ReferenceRev(palette, nullptr, 0, 0, 0));
    HandleGuard pixel(ToBlock(Single24(128, 128, 128)));
    HandleGuard pixelOut(Rev(pixel.h, nullptr, 1, 0, 0, 0));
    ASSERT_NE(pixelOut.h, nullptr);
    EXPECT_EQ(FromBlock(pixelOut.h), Single24(128, 128, 128));
}

TEST(YCCRev, FlagsCountByTheirLowByte) {
    std::mt19937 rng(35003);
    const std::vector<uint8_t> src = RandomDib(rng, 8, 3, 24);
    HandleGuard image(ToBlock(src));
    HandleGuard lowBytes(Rev(image.h, nullptr, 1, 256, 0x101, -256));
    HandleGuard plain(Rev(image.h, nullptr, 1, 0, 1, 0));
    ASSERT_NE(lowBytes.h, nullptr);
    ASSERT_NE(plain.h, nullptr);
    EXPECT_EQ(FromBlock(lowBytes.h), FromBlock(plain.h));
    EXPECT_EQ(FromBlock(plain.h), ReferenceRev(src, nullptr, 0, 1, 0));
    EXPECT_NE(FromBlock(plain.h), ReferenceRev(src, nullptr, 0, 0, 0));
}

TEST(YCCRev, RectangularPolygonChangesOnlyItsBoxInsideAndOnlyTheRestOutside) {
    std::mt19937 rng(35004);
    const Tz3Point corners[4] = {{2, 1}, {6, 1}, {6, 4}, {2, 4}};  // top-down rows 1..4 are bottom-up 2..5
    for (const Format f : kFormats) {
        if (f.bits <= 8) continue;
        const std::vector<uint8_t> src = RandomDib(rng, 9, 7, f.bits, f.is565);
        HandleGuard image(ToBlock(src));
        const DibPair pair{image.h, nullptr};
        for (int inside : {1, 0}) {
            HandleGuard out(TZ3YCCRev(&pair, 2, corners, 4, nullptr, inside, 1, 0, 1, 1, 0, 0, 0));
            ASSERT_NE(out.h, nullptr);
            const std::vector<uint8_t> mask = RectMask(9, 7, 2, 2, 6, 5, inside != 0);
            EXPECT_EQ(FromBlock(out.h), ReferenceRev(src, &mask, 1, 0, 1)) << f.bits << " inside " << inside;
        }
    }
}

TEST(YCCRev, ThirtyTwoBitsKeepEveryFourthByte) {
    std::mt19937 rng(35005);
    const std::vector<uint8_t> src = RandomDib(rng, 9, 3, 32);
    HandleGuard image(ToBlock(src));
    HandleGuard out(Rev(image.h, nullptr, 1, 1, 1, 1));
    ASSERT_NE(out.h, nullptr);
    const std::vector<uint8_t> result = FromBlock(out.h);
    EXPECT_EQ(result, ReferenceRev(src, nullptr, 1, 1, 1));
    for (size_t i = 40; i < src.size(); i += 4) EXPECT_EQ(result[i + 3], src[i + 3]);
}

TEST(YCCRev, PaletteImagesIgnoreTheRegionWhileUnknownKindsAreRefusedOnPixels) {
    std::mt19937 rng(35006);
    ExpectPaletteIgnoresRegionWhilePixelsRefuseUnknownKind(
        rng, 8, [](DibHandle image, int32_t kind) { return Rev(image, nullptr, kind, 1, 0, 1); },
        [](const std::vector<uint8_t> &src) { return ReferenceRev(src, nullptr, 1, 0, 1); });
}

TEST(YCCRev, ReportsEveryRowAndEveryPaletteEntry) {
    std::mt19937 rng(35007);
    ExpectProgressOverEveryRowAndPaletteEntry(
        rng, [](DibHandle image, int32_t noDialog) { return Rev(image, nullptr, 1, 1, 1, 1, noDialog); });
}

TEST(YCCRev, OneRowImageReportsZeroOfZero) {
    ExpectOneRowReportsZeroOfZero(
        24, [](DibHandle image, int32_t noDialog) { return Rev(image, nullptr, 1, 1, 1, 1, noDialog); });
}

TEST(YCCRev, CancellingAtEveryProgressCallFreesTheCloneAndTheTables) {
    std::mt19937 rng(35008);
    CancelAtEveryProgressCallInEveryFormat(rng, [](DibHandle image, DibHandle mask) { return Rev(image, mask, 0, 1, 1, 0); });
}

TEST(YCCRev, AllocationFailureAtEveryAllocationGivesStatusThree) {
    std::mt19937 rng(35009);
    FailEveryAllocationInEveryFormatAndKind(
        rng,
        [](const DibPair *pair, int32_t kind, const Tz3Point *polygon, int32_t points, const Tz3Rect *ellipse) {
            return TZ3YCCRev(pair, kind, polygon, points, ellipse, 1, 1, 1, 1, 1, 0, 0, 0);
        },
        [](Format f, int kind, long allocations) {
            if (kind == 1) {
                // Palette images: the clone alone. Pixels: the clone and one block of YCC tables.
                EXPECT_EQ(allocations, f.bits <= 8 ? 1 : 2) << f.bits;
            }
        });
}

TEST(YCCRev, NullImageGivesStatusSeven) {
    ExpectNullImageRefused(
        [](const DibPair *pair) { return TZ3YCCRev(pair, 1, nullptr, 0, nullptr, 1, 1, 1, 1, 1, 0, 0, 0); });
}

TEST(YCCRev, BlockShorterThanItsHeaderClaimsGivesStatusSeven) {
    ExpectShortBlockRefused({1, 16}, [](DibHandle image) { return Rev(image, nullptr, 1, 1, 1, 1); });
}
