// TZ3YCCRev against a literal per-pixel transcription of its rules, in every format, with masks,
// regions, progress, cancellation and allocation failure; the worked conversions there and back.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>

#include "support/test_images.h"
#include "tz3effect.h"

using namespace tz3test;

namespace {

DibHandle Rev(DibHandle image, DibHandle mask, int32_t kind, int32_t y, int32_t cr, int32_t cb,
              int32_t noDialog = 1) {
    const DibPair pair{image, mask};
    return TZ3YCCRev(&pair, kind, nullptr, 0, nullptr, 1, y, cr, cb, noDialog, 0, 0, 0);
}

// ---- The reference, written from the rules alone ----

struct Colour {
    int r, g, b;
};

int Clamp(int v, int lo, int hi) {
    return v < lo ? lo : v > hi ? hi : v;
}

bool Is565(const std::vector<uint8_t> &d) {
    return Field32(d, 16) == 3 && Field32(d, 40) == 0xF800;
}

Colour Expand16(uint16_t w, bool is565) {
    if (is565) return Colour{((w >> 11) & 31) * 255 / 31, ((w >> 5) & 63) * 255 / 63, (w & 31) * 255 / 31};
    return Colour{((w >> 10) & 31) * 255 / 31, ((w >> 5) & 31) * 255 / 31, (w & 31) * 255 / 31};
}

uint16_t Pack16(Colour c, bool is565) {
    if (is565)
        return static_cast<uint16_t>(((c.r * 31 / 255) << 11) | ((c.g * 63 / 255) << 5) | (c.b * 31 / 255));
    return static_cast<uint16_t>(((c.r * 31 / 255) << 10) | ((c.g * 31 / 255) << 5) | (c.b * 31 / 255));
}

// The walk of every tone operation: a palette image has each of its table entries changed and
// keeps its indices; a direct-colour image has each pixel with a set bit in an image-size mask (or
// every pixel without one) changed, 16-bit channels expanded before and packed after. The result's
// biSizeImage is stride x height.
template <class Rule>
std::vector<uint8_t> Reference(const std::vector<uint8_t> &src, const std::vector<uint8_t> *mask, Rule rule) {
    std::vector<uint8_t> out = src;
    const int bits = src[14];
    const int w = ImageWidth(src), h = ImageHeight(src);
    const size_t stride = RowBytes(bits, w);
    SetField32(out, 20, static_cast<uint32_t>(stride * h));
    if (bits <= 8) {
        for (uint32_t i = 0; i < TableEntries(src); ++i) {
            uint8_t *e = &out[40 + 4 * i];
            const Colour c = rule(Colour{e[2], e[1], e[0]});
            e[0] = static_cast<uint8_t>(c.b);
            e[1] = static_cast<uint8_t>(c.g);
            e[2] = static_cast<uint8_t>(c.r);
        }
        return out;
    }
    const size_t at = PixelOffset(src);
    const bool is565 = Is565(src);
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            if (mask != nullptr && !MaskBit(*mask, x, y)) continue;
            uint8_t *p = &out[at + stride * y + static_cast<size_t>(x) * (bits / 8)];
            if (bits == 16) {
                const uint16_t word =
                    Pack16(rule(Expand16(static_cast<uint16_t>(p[0] | (p[1] << 8)), is565)), is565);
                p[0] = static_cast<uint8_t>(word);
                p[1] = static_cast<uint8_t>(word >> 8);
            } else {
                const Colour c = rule(Colour{p[2], p[1], p[0]});
                p[0] = static_cast<uint8_t>(c.b);
                p[1] = static_cast<uint8_t>(c.g);
                p[2] = static_cast<uint8_t>(c.r);
            }
        }
    }
    return out;
}

// Floating point to integer truncates toward zero; beyond the 32-bit range it saturates, NaN is 0.
int Trunc(double v) {
    if (std::isnan(v)) return 0;
    if (v >= 2147483647.0) return std::numeric_limits<int>::max();
    if (v <= -2147483648.0) return std::numeric_limits<int>::min();
    return static_cast<int>(v);
}

float FloatOf(uint32_t bits) {
    return std::bit_cast<float>(bits);
}

// The nine single-precision tables: entry i is (float)i times the float weight, rounded once.
struct Tables {
    float t[9][256];
};
const Tables &YccTables() {
    static const Tables tables = [] {
        const uint32_t weights[9] = {0x3E991687, 0x3F1645A2, 0x3DE978D5, 0x3F000000, 0xBED65E89,
                                     0xBDA685DB, 0xBE2CCA2E, 0xBEA99AE9, 0x3F000000};
        Tables t{};
        for (int n = 0; n < 9; ++n) {
            for (int i = 0; i < 256; ++i) t.t[n][i] = static_cast<float>(i) * FloatOf(weights[n]);
        }
        return t;
    }();
    return tables;
}

struct Ycc {
    int y, cr, cb;
};

// Pixels: the table entries summed in double in the written order, then truncated; `offset` is
// the 128 added to the chroma sums before truncation.
Ycc PixelToYcc(Colour c, double offset) {
    const auto &t = YccTables().t;
    const double d0 = t[0][c.r], d1 = t[1][c.g], d2 = t[2][c.b];
    const double d3 = t[3][c.r], d4 = t[4][c.g], d5 = t[5][c.b];
    const double d6 = t[6][c.r], d7 = t[7][c.g], d8 = t[8][c.b];
    return Ycc{Trunc(d0 + d1 + d2), Trunc(d3 + d4 + d5 + offset), Trunc(d6 + d7 + d8 + offset)};
}

// Palette entries: the double constants, each sum in its own order.
[[maybe_unused]] int PaletteYRedBlueGreen(Colour c) {
    return Trunc(c.r * 0.299 + c.b * 0.114 + c.g * 0.587);
}
[[maybe_unused]] int PaletteYGreenRedBlue(Colour c) {
    return Trunc(c.g * 0.587 + c.r * 0.299 + c.b * 0.114);
}
[[maybe_unused]] int PaletteCr(Colour c, double offset) {
    return Trunc(c.b * -0.08131 + c.r * 0.5 + c.g * -0.41869 + offset);
}
[[maybe_unused]] int PaletteCb(Colour c, double offset) {
    return Trunc(c.g * -0.33126 + c.b * 0.5 + c.r * -0.16874 + offset);
}

// The way back: the values held as floats, the float constants, double arithmetic, truncation,
// clamps.
Colour BackToRgb(float y, float cr, float cb) {
    const double toRed = FloatOf(0x3FB374BC), crToGreen = FloatOf(0x3F36D1E1),
                 cbToGreen = FloatOf(0x3EB0331E), toBlue = FloatOf(0x3FE2D0E5);
    const double yd = y, crd = cr, cbd = cb;
    const int blue = Trunc(cbd * toBlue + yd);
    const int green = Trunc(yd - cbd * cbToGreen - crd * crToGreen);
    const int red = Trunc(crd * toRed + yd);
    return Colour{Clamp(red, 0, 255), Clamp(green, 0, 255), Clamp(blue, 0, 255)};
}

// Integers (64-bit, so that no value can wrap) held as floats on the way back.
[[maybe_unused]] Colour BackToRgb(int64_t y, int64_t cr, int64_t cb) {
    return BackToRgb(static_cast<float>(y), static_cast<float>(cr), static_cast<float>(cb));
}

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

// ---- Images ----

struct Format {
    int bits;
    bool is565;
};
const Format kFormats[] = {{1, false}, {4, false},  {8, false}, {16, false},
                           {16, true}, {24, false}, {32, false}};

// A random image of the format; palette images get a short table half of the time, and biSizeImage
// is 0 or garbage, which the result must not keep.
std::vector<uint8_t> RandomSource(std::mt19937 &rng, Format f, int width, int height) {
    std::vector<uint8_t> src;
    if (f.bits <= 8 && rng() % 2 == 0) {
        src = RandomPaletteDib(rng, width, height, f.bits, 1 + static_cast<uint32_t>(rng() % (1u << f.bits)));
    } else {
        src = RandomDib(rng, width, height, f.bits, f.is565);
    }
    SetField32(src, 20, rng() % 2 == 0 ? 0 : static_cast<uint32_t>(rng()));
    return src;
}
int32_t RandomFlag(std::mt19937 &rng) {
    static const int32_t kPicks[] = {0, 1, -1, 2, 255, 256, 0x1FF, -256, 0x10000, 0x7FFFFF00};
    if (rng() % 4 == 0) return static_cast<int32_t>(rng());
    return kPicks[rng() % std::size(kPicks)];
}

[[maybe_unused]] std::vector<uint8_t> Single24(uint8_t r, uint8_t g, uint8_t b) {
    std::vector<uint8_t> d = MakeDibBytes(1, 1, 24);
    d[40] = b;
    d[41] = g;
    d[42] = r;
    return d;
}

[[maybe_unused]] std::vector<uint8_t> Single16(uint16_t word) {
    std::vector<uint8_t> d = MakeDibBytes(1, 1, 16);
    d[40] = static_cast<uint8_t>(word);
    d[41] = static_cast<uint8_t>(word >> 8);
    return d;
}

// An image-size mask with the bits of columns x0..x1 and bottom-up rows y0..y1 set.
std::vector<uint8_t> RectMask(int width, int height, int x0, int y0, int x1, int y1, bool inside) {
    std::vector<uint8_t> m = MakeDibBytes(width, height, 1);
    const size_t stride = RowBytes(1, width);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const bool in = x >= x0 && x <= x1 && y >= y0 && y <= y1;
            if (in == inside) m[48 + stride * y + x / 8] |= static_cast<uint8_t>(0x80 >> (x % 8));
        }
    }
    return m;
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

// A 24-bit image of one row holding the 256 gray levels.
std::vector<uint8_t> GrayRamp24() {
    std::vector<uint8_t> d = MakeDibBytes(256, 1, 24);
    for (int i = 0; i < 256; ++i) d[40 + 3 * i] = d[41 + 3 * i] = d[42 + 3 * i] = static_cast<uint8_t>(i);
    return d;
}

}  // namespace

TEST(YCCRev, MatchesReferenceOnRandomImagesOfEveryFormatWholeAndMasked) {
    std::mt19937 rng(35001);
    for (const Format f : kFormats) {
        for (int width = 1; width <= 33; ++width) {
            const int height = 1 + static_cast<int>(rng() % 5);
            const std::vector<uint8_t> src = RandomSource(rng, f, width, height);
            const std::vector<uint8_t> mask = RandomMask(rng, width, height);
            const int32_t y = RandomFlag(rng), cr = RandomFlag(rng), cb = RandomFlag(rng);
            HandleGuard image(ToBlock(src));
            HandleGuard maskBlock(ToBlock(mask));

            HandleGuard whole(Rev(image.h, nullptr, 1, y, cr, cb));
            ASSERT_NE(whole.h, nullptr) << f.bits << " bits, width " << width;
            EXPECT_EQ(Tz3GetErrorStatus(), 0);
            EXPECT_EQ(FromBlock(whole.h), ReferenceRev(src, nullptr, y, cr, cb))
                << f.bits << " bits (565 " << f.is565 << "), width " << width << ", flags " << y << " " << cr
                << " " << cb;

            HandleGuard masked(Rev(image.h, maskBlock.h, 0, y, cr, cb));
            ASSERT_NE(masked.h, nullptr);
            EXPECT_EQ(FromBlock(masked.h), ReferenceRev(src, f.bits <= 8 ? nullptr : &mask, y, cr, cb))
                << f.bits << " bits (565 " << f.is565 << "), width " << width;
            EXPECT_EQ(FromBlock(image.h), src) << "the caller's image changed";
            EXPECT_TRUE(IsUnlocked(image.h));
            EXPECT_TRUE(IsUnlocked(maskBlock.h));
        }
    }
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
    const std::vector<uint8_t> palette = RandomDib(rng, 5, 5, 8);
    HandleGuard paletteImage(ToBlock(palette));
    HandleGuard nine(Rev(paletteImage.h, nullptr, 9, 1, 0, 1));
    ASSERT_NE(nine.h, nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 0);
    EXPECT_EQ(FromBlock(nine.h), ReferenceRev(palette, nullptr, 1, 0, 1));

    const std::vector<uint8_t> direct = RandomDib(rng, 5, 5, 24);
    HandleGuard directImage(ToBlock(direct));
    const size_t live = Tz3LiveBlocks();
    EXPECT_EQ(Rev(directImage.h, nullptr, 4, 1, 0, 1), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 5);
    EXPECT_EQ(Tz3LiveBlocks(), live);
    EXPECT_TRUE(IsUnlocked(directImage.h));
}

TEST(YCCRev, ReportsEveryRowAndEveryPaletteEntry) {
    std::mt19937 rng(35007);
    for (const Format f : kFormats) {
        const std::vector<uint8_t> src =
            f.bits <= 8 ? RandomPaletteDib(rng, 6, 4, f.bits, 2) : RandomDib(rng, 6, 4, f.bits, f.is565);
        HandleGuard image(ToBlock(src));
        ProgressRecorder progress;
        HandleGuard out(Rev(image.h, nullptr, 1, 1, 1, 1, 7));
        ASSERT_NE(out.h, nullptr);
        const int32_t steps = f.bits <= 8 ? 2 : 4;
        ASSERT_EQ(progress.calls.size(), static_cast<size_t>(steps)) << f.bits;
        for (int32_t i = 0; i < steps; ++i) {
            EXPECT_EQ(progress.calls[i].current, i);
            EXPECT_EQ(progress.calls[i].total, steps - 1);
            EXPECT_EQ(progress.calls[i].low, 0);
            EXPECT_EQ(progress.calls[i].high, 100);
            EXPECT_EQ(progress.calls[i].noDialog, 7);
        }
    }
}

TEST(YCCRev, OneRowImageReportsZeroOfZero) {
    HandleGuard image(ToBlock(MakeDibBytes(5, 1, 24)));
    ProgressRecorder progress;
    HandleGuard out(Rev(image.h, nullptr, 1, 1, 1, 1, 3));
    ASSERT_NE(out.h, nullptr);
    ASSERT_EQ(progress.calls.size(), 1u);
    EXPECT_EQ(progress.calls[0].current, 0);
    EXPECT_EQ(progress.calls[0].total, 0);
    EXPECT_EQ(progress.calls[0].low, 0);
    EXPECT_EQ(progress.calls[0].high, 100);
    EXPECT_EQ(progress.calls[0].noDialog, 3);
}

TEST(YCCRev, CancellingAtEveryProgressCallFreesTheCloneAndTheTables) {
    std::mt19937 rng(35008);
    for (const Format f : kFormats) {
        const std::vector<uint8_t> src = RandomDib(rng, 5, 4, f.bits, f.is565);
        const std::vector<uint8_t> mask = RandomMask(rng, 5, 4);
        HandleGuard image(ToBlock(src));
        HandleGuard maskBlock(ToBlock(mask));
        const size_t live = Tz3LiveBlocks();
        const long steps = f.bits <= 8 ? static_cast<long>(TableEntries(src)) : 4;
        for (long at = 0; at < steps; ++at) {
            ProgressRecorder progress(at);
            EXPECT_EQ(Rev(image.h, maskBlock.h, 0, 1, 1, 0), nullptr) << f.bits << " cancel at " << at;
            EXPECT_EQ(Tz3GetErrorStatus(), 1);
            EXPECT_EQ(progress.calls.size(), static_cast<size_t>(at + 1));
            EXPECT_EQ(Tz3LiveBlocks(), live);
        }
        EXPECT_EQ(FromBlock(image.h), src);
        EXPECT_TRUE(IsUnlocked(image.h)) << "the caller's image was left locked";
        EXPECT_TRUE(IsUnlocked(maskBlock.h)) << "the caller's mask was left locked";
    }
}

TEST(YCCRev, AllocationFailureAtEveryAllocationGivesStatusThree) {
    std::mt19937 rng(35009);
    const Tz3Point polygon[3] = {{0, 0}, {6, 1}, {2, 5}};
    const Tz3Rect ellipse{1, 1, 6, 5};
    for (const Format f : kFormats) {
        const std::vector<uint8_t> src = RandomDib(rng, 7, 6, f.bits, f.is565);
        HandleGuard image(ToBlock(src));
        for (int kind : {1, 2, 3}) {
            const DibPair pair{image.h, nullptr};
            long allocations;
            {
                FailingAllocator counter;
                HandleGuard out(TZ3YCCRev(&pair, kind, polygon, 3, &ellipse, 1, 1, 1, 1, 1, 0, 0, 0));
                ASSERT_NE(out.h, nullptr);
                allocations = counter.count;
            }
            if (kind == 1) {
                // Palette images: the clone alone. Pixels: the clone and one block of YCC tables.
                EXPECT_EQ(allocations, f.bits <= 8 ? 1 : 2) << f.bits;
            }
            const size_t live = Tz3LiveBlocks();
            for (long at = 0; at < allocations; ++at) {
                FailingAllocator failing(at);
                EXPECT_EQ(TZ3YCCRev(&pair, kind, polygon, 3, &ellipse, 1, 1, 1, 1, 1, 0, 0, 0), nullptr)
                    << f.bits << " kind " << kind << " failing allocation " << at;
                EXPECT_EQ(Tz3GetErrorStatus(), 3);
                EXPECT_EQ(Tz3LiveBlocks(), live);
            }
            EXPECT_EQ(FromBlock(image.h), src);
            EXPECT_TRUE(IsUnlocked(image.h));
        }
    }
}

TEST(YCCRev, NullImageGivesStatusSeven) {
    const DibPair pair{nullptr, nullptr};
    EXPECT_EQ(TZ3YCCRev(&pair, 1, nullptr, 0, nullptr, 1, 1, 1, 1, 1, 0, 0, 0), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
    EXPECT_EQ(TZ3YCCRev(nullptr, 1, nullptr, 0, nullptr, 1, 1, 1, 1, 1, 0, 0, 0), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
}

TEST(YCCRev, BlockShorterThanItsHeaderClaimsGivesStatusSeven) {
    for (int bits : {1, 16}) {
        std::vector<uint8_t> src = MakeDibBytes(8, 8, bits);
        src.pop_back();
        HandleGuard image(ToBlock(src));
        EXPECT_EQ(Rev(image.h, nullptr, 1, 1, 1, 1), nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 7);
        EXPECT_TRUE(IsUnlocked(image.h));
    }
}
