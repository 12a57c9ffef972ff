// TZ3YCCGamma against a literal per-pixel transcription of its rules, in every format, with masks,
// regions, progress, cancellation and allocation failure.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>

#include "support/test_images.h"
#include "tz3effect.h"

using namespace tz3test;

namespace {

DibHandle Gamma(DibHandle image, DibHandle mask, int32_t kind, double ky, double kcr, double kcb,
                int32_t noDialog = 1) {
    const DibPair pair{image, mask};
    return TZ3YCCGamma(&pair, kind, nullptr, 0, nullptr, 1, ky, kcr, kcb, noDialog, 0, 0, 0);
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

// A double stored as float, rounded to nearest; beyond float's range an infinity.
float ToFloat(double v) {
    if (v >= 0x1.ffffffp127) return std::numeric_limits<float>::infinity();
    if (v <= -0x1.ffffffp127) return -std::numeric_limits<float>::infinity();
    return static_cast<float>(v);
}

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
double RandomStrength(std::mt19937 &rng) {
    static const double kPicks[] = {0.0, 1.0,  -1.0, 0.5,  -0.5,  2.5,   -3.0,
                                    1e6, -1e6, 1e9,  -1e9, 1e300, -1e300};
    if (rng() % 2 == 0) return kPicks[rng() % std::size(kPicks)];
    return std::uniform_real_distribution<double>(-4.0, 4.0)(rng);
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

}  // namespace

TEST(YCCGamma, MatchesReferenceOnRandomImagesOfEveryFormatWholeAndMasked) {
    std::mt19937 rng(33001);
    for (const Format f : kFormats) {
        for (int width = 1; width <= 33; ++width) {
            const int height = 1 + static_cast<int>(rng() % 5);
            const std::vector<uint8_t> src = RandomSource(rng, f, width, height);
            const std::vector<uint8_t> mask = RandomMask(rng, width, height);
            const double y = RandomStrength(rng), cr = RandomStrength(rng), cb = RandomStrength(rng);
            HandleGuard image(ToBlock(src));
            HandleGuard maskBlock(ToBlock(mask));

            HandleGuard whole(Gamma(image.h, nullptr, 1, y, cr, cb));
            ASSERT_NE(whole.h, nullptr) << f.bits << " bits, width " << width;
            EXPECT_EQ(Tz3GetErrorStatus(), 0);
            EXPECT_EQ(FromBlock(whole.h), ReferenceGamma(src, nullptr, y, cr, cb))
                << f.bits << " bits (565 " << f.is565 << "), width " << width << ", strengths " << y << " "
                << cr << " " << cb;

            HandleGuard masked(Gamma(image.h, maskBlock.h, 0, y, cr, cb));
            ASSERT_NE(masked.h, nullptr);
            EXPECT_EQ(FromBlock(masked.h), ReferenceGamma(src, f.bits <= 8 ? nullptr : &mask, y, cr, cb))
                << f.bits << " bits (565 " << f.is565 << "), width " << width;
            EXPECT_EQ(FromBlock(image.h), src) << "the caller's image changed";
            EXPECT_TRUE(IsUnlocked(image.h));
            EXPECT_TRUE(IsUnlocked(maskBlock.h));
        }
    }
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
    const std::vector<uint8_t> palette = RandomDib(rng, 5, 5, 1);
    HandleGuard paletteImage(ToBlock(palette));
    HandleGuard nine(Gamma(paletteImage.h, nullptr, 9, 0.5, 0.6, 0.7));
    ASSERT_NE(nine.h, nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 0);
    EXPECT_EQ(FromBlock(nine.h), ReferenceGamma(palette, nullptr, 0.5, 0.6, 0.7));

    const std::vector<uint8_t> direct = RandomDib(rng, 5, 5, 24);
    HandleGuard directImage(ToBlock(direct));
    const size_t live = Tz3LiveBlocks();
    EXPECT_EQ(Gamma(directImage.h, nullptr, 4, 0.5, 0.6, 0.7), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 5);
    EXPECT_EQ(Tz3LiveBlocks(), live);
    EXPECT_TRUE(IsUnlocked(directImage.h));
}

TEST(YCCGamma, ReportsEveryRowAndEveryPaletteEntry) {
    std::mt19937 rng(33007);
    for (const Format f : kFormats) {
        const std::vector<uint8_t> src =
            f.bits <= 8 ? RandomPaletteDib(rng, 6, 4, f.bits, 2) : RandomDib(rng, 6, 4, f.bits, f.is565);
        HandleGuard image(ToBlock(src));
        ProgressRecorder progress;
        HandleGuard out(Gamma(image.h, nullptr, 1, 1, 1, 1, 7));
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

TEST(YCCGamma, OneRowImageReportsZeroOfZero) {
    HandleGuard image(ToBlock(MakeDibBytes(5, 1, 24)));
    ProgressRecorder progress;
    HandleGuard out(Gamma(image.h, nullptr, 1, 1, 1, 1, 3));
    ASSERT_NE(out.h, nullptr);
    ASSERT_EQ(progress.calls.size(), 1u);
    EXPECT_EQ(progress.calls[0].current, 0);
    EXPECT_EQ(progress.calls[0].total, 0);
    EXPECT_EQ(progress.calls[0].low, 0);
    EXPECT_EQ(progress.calls[0].high, 100);
    EXPECT_EQ(progress.calls[0].noDialog, 3);
}

TEST(YCCGamma, CancellingAtEveryProgressCallFreesTheCloneAndBothTables) {
    std::mt19937 rng(33008);
    for (const Format f : kFormats) {
        const std::vector<uint8_t> src = RandomDib(rng, 5, 4, f.bits, f.is565);
        const std::vector<uint8_t> mask = RandomMask(rng, 5, 4);
        HandleGuard image(ToBlock(src));
        HandleGuard maskBlock(ToBlock(mask));
        const size_t live = Tz3LiveBlocks();
        const long steps = f.bits <= 8 ? static_cast<long>(TableEntries(src)) : 4;
        for (long at = 0; at < steps; ++at) {
            ProgressRecorder progress(at);
            EXPECT_EQ(Gamma(image.h, maskBlock.h, 0, 1.0, -1.0, 2.0), nullptr)
                << f.bits << " cancel at " << at;
            EXPECT_EQ(Tz3GetErrorStatus(), 1);
            EXPECT_EQ(progress.calls.size(), static_cast<size_t>(at + 1));
            EXPECT_EQ(Tz3LiveBlocks(), live);
        }
        EXPECT_EQ(FromBlock(image.h), src);
        EXPECT_TRUE(IsUnlocked(image.h)) << "the caller's image was left locked";
        EXPECT_TRUE(IsUnlocked(maskBlock.h)) << "the caller's mask was left locked";
    }
}

TEST(YCCGamma, AllocationFailureAtEveryAllocationGivesStatusThree) {
    std::mt19937 rng(33009);
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
                HandleGuard out(TZ3YCCGamma(&pair, kind, polygon, 3, &ellipse, 1, 1.0, 2.0, 3.0, 1, 0, 0, 0));
                ASSERT_NE(out.h, nullptr);
                allocations = counter.count;
            }
            if (kind == 1) {
                // Palette images: the clone alone. Pixels: the clone, the YCC tables, the gamma tables.
                EXPECT_EQ(allocations, f.bits <= 8 ? 1 : 3) << f.bits;
            }
            const size_t live = Tz3LiveBlocks();
            for (long at = 0; at < allocations; ++at) {
                FailingAllocator failing(at);
                EXPECT_EQ(TZ3YCCGamma(&pair, kind, polygon, 3, &ellipse, 1, 1.0, 2.0, 3.0, 1, 0, 0, 0),
                          nullptr)
                    << f.bits << " kind " << kind << " failing allocation " << at;
                EXPECT_EQ(Tz3GetErrorStatus(), 3);
                EXPECT_EQ(Tz3LiveBlocks(), live);
            }
            EXPECT_EQ(FromBlock(image.h), src);
            EXPECT_TRUE(IsUnlocked(image.h));
        }
    }
}

TEST(YCCGamma, NullImageGivesStatusSeven) {
    const DibPair pair{nullptr, nullptr};
    EXPECT_EQ(TZ3YCCGamma(&pair, 1, nullptr, 0, nullptr, 1, 1, 1, 1, 1, 0, 0, 0), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
    EXPECT_EQ(TZ3YCCGamma(nullptr, 1, nullptr, 0, nullptr, 1, 1, 1, 1, 1, 0, 0, 0), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
}

TEST(YCCGamma, BlockShorterThanItsHeaderClaimsGivesStatusSeven) {
    for (int bits : {4, 24}) {
        std::vector<uint8_t> src = MakeDibBytes(8, 8, bits);
        src.pop_back();
        HandleGuard image(ToBlock(src));
        EXPECT_EQ(Gamma(image.h, nullptr, 1, 1, 1, 1), nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 7);
        EXPECT_TRUE(IsUnlocked(image.h));
    }
}
