// TZ3Chroma against a literal per-pixel transcription of its rules, in every format, with masks,
// regions, progress, cancellation and allocation failure.
#include <gtest/gtest.h>

#include <bit>
#include <climits>
#include <cmath>
#include <limits>

#include "support/test_images.h"
#include "tz3effect.h"

using namespace tz3test;

namespace {

DibHandle Chroma(DibHandle image, DibHandle mask, int32_t kind, int32_t amount, int32_t noDialog = 1) {
    const DibPair pair{image, mask};
    return TZ3Chroma(&pair, kind, nullptr, 0, nullptr, 1, amount, noDialog, 0, 0, 0);
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
int RandomAmount(std::mt19937 &rng) {
    static const int kPicks[] = {INT_MIN, -500, -101, -100, -99,  -1,   0,      0,
                                 1,       100,  999,  1000, 1001, 2000, INT_MAX};
    if (rng() % 2 == 0) return kPicks[rng() % std::size(kPicks)];
    return static_cast<int>(rng() % 1201) - 150;
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

TEST(Chroma, MatchesReferenceOnRandomImagesOfEveryFormatWholeAndMasked) {
    std::mt19937 rng(36001);
    for (const Format f : kFormats) {
        for (int width = 1; width <= 33; ++width) {
            const int height = 1 + static_cast<int>(rng() % 5);
            const std::vector<uint8_t> src = RandomSource(rng, f, width, height);
            const std::vector<uint8_t> mask = RandomMask(rng, width, height);
            const int amount = RandomAmount(rng);
            HandleGuard image(ToBlock(src));
            HandleGuard maskBlock(ToBlock(mask));

            HandleGuard whole(Chroma(image.h, nullptr, 1, amount));
            ASSERT_NE(whole.h, nullptr) << f.bits << " bits, width " << width;
            EXPECT_EQ(Tz3GetErrorStatus(), 0);
            EXPECT_EQ(FromBlock(whole.h), ReferenceChroma(src, nullptr, amount))
                << f.bits << " bits (565 " << f.is565 << "), width " << width << ", amount " << amount;

            HandleGuard masked(Chroma(image.h, maskBlock.h, 0, amount));
            ASSERT_NE(masked.h, nullptr);
            EXPECT_EQ(FromBlock(masked.h), ReferenceChroma(src, f.bits <= 8 ? nullptr : &mask, amount))
                << f.bits << " bits (565 " << f.is565 << "), width " << width << ", amount " << amount;
            EXPECT_EQ(FromBlock(image.h), src) << "the caller's image changed";
            EXPECT_TRUE(IsUnlocked(image.h));
            EXPECT_TRUE(IsUnlocked(maskBlock.h));
        }
    }
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
        for (const Format f : kFormats) {
            const std::vector<uint8_t> src =
                f.bits <= 8 ? RandomPaletteDib(rng, 6, 4, f.bits, 2) : RandomDib(rng, 6, 4, f.bits, f.is565);
            HandleGuard image(ToBlock(src));
            ProgressRecorder progress;
            HandleGuard out(Chroma(image.h, nullptr, 1, amount, 7));
            ASSERT_NE(out.h, nullptr);
            const int32_t steps = f.bits <= 8 ? 2 : 4;
            ASSERT_EQ(progress.calls.size(), static_cast<size_t>(steps)) << f.bits << " amount " << amount;
            for (int32_t i = 0; i < steps; ++i) {
                EXPECT_EQ(progress.calls[i].current, i);
                EXPECT_EQ(progress.calls[i].total, steps - 1);
                EXPECT_EQ(progress.calls[i].low, 0);
                EXPECT_EQ(progress.calls[i].high, 100);
                EXPECT_EQ(progress.calls[i].noDialog, 7);
            }
        }
    }
}

TEST(Chroma, OneRowImageReportsZeroOfZero) {
    HandleGuard image(ToBlock(MakeDibBytes(5, 1, 24)));
    ProgressRecorder progress;
    HandleGuard out(Chroma(image.h, nullptr, 1, 20, 3));
    ASSERT_NE(out.h, nullptr);
    ASSERT_EQ(progress.calls.size(), 1u);
    EXPECT_EQ(progress.calls[0].current, 0);
    EXPECT_EQ(progress.calls[0].total, 0);
    EXPECT_EQ(progress.calls[0].low, 0);
    EXPECT_EQ(progress.calls[0].high, 100);
    EXPECT_EQ(progress.calls[0].noDialog, 3);
}

TEST(Chroma, CancellingAtEveryProgressCallFreesTheCloneAndTheTables) {
    std::mt19937 rng(36012);
    for (const int amount : {0, 60}) {
        for (const Format f : kFormats) {
            const std::vector<uint8_t> src = RandomDib(rng, 5, 4, f.bits, f.is565);
            const std::vector<uint8_t> mask = RandomMask(rng, 5, 4);
            HandleGuard image(ToBlock(src));
            HandleGuard maskBlock(ToBlock(mask));
            const size_t live = Tz3LiveBlocks();
            const long steps = f.bits <= 8 ? static_cast<long>(TableEntries(src)) : 4;
            for (long at = 0; at < steps; ++at) {
                ProgressRecorder progress(at);
                EXPECT_EQ(Chroma(image.h, maskBlock.h, 0, amount), nullptr) << f.bits << " cancel at " << at;
                EXPECT_EQ(Tz3GetErrorStatus(), 1);
                EXPECT_EQ(progress.calls.size(), static_cast<size_t>(at + 1));
                EXPECT_EQ(Tz3LiveBlocks(), live);
            }
            EXPECT_EQ(FromBlock(image.h), src);
            EXPECT_TRUE(IsUnlocked(image.h)) << "the caller's image was left locked";
            EXPECT_TRUE(IsUnlocked(maskBlock.h)) << "the caller's mask was left locked";
        }
    }
}

TEST(Chroma, AllocationFailureAtEveryAllocationGivesStatusThree) {
    std::mt19937 rng(36013);
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
                HandleGuard out(TZ3Chroma(&pair, kind, polygon, 3, &ellipse, 1, 80, 1, 0, 0, 0));
                ASSERT_NE(out.h, nullptr);
                allocations = counter.count;
            }
            const size_t live = Tz3LiveBlocks();
            for (long at = 0; at < allocations; ++at) {
                FailingAllocator failing(at);
                EXPECT_EQ(TZ3Chroma(&pair, kind, polygon, 3, &ellipse, 1, 80, 1, 0, 0, 0), nullptr)
                    << f.bits << " kind " << kind << " failing allocation " << at;
                EXPECT_EQ(Tz3GetErrorStatus(), 3);
                EXPECT_EQ(Tz3LiveBlocks(), live);
            }
            EXPECT_EQ(FromBlock(image.h), src);
            EXPECT_TRUE(IsUnlocked(image.h));
        }
    }
}

TEST(Chroma, NullImageGivesStatusSeven) {
    const DibPair pair{nullptr, nullptr};
    EXPECT_EQ(TZ3Chroma(&pair, 1, nullptr, 0, nullptr, 1, 10, 1, 0, 0, 0), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
    EXPECT_EQ(TZ3Chroma(nullptr, 1, nullptr, 0, nullptr, 1, 10, 1, 0, 0, 0), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
}

TEST(Chroma, BlockShorterThanItsHeaderClaimsGivesStatusSeven) {
    for (int bits : {8, 16}) {
        std::vector<uint8_t> src = MakeDibBytes(8, 8, bits);
        src.pop_back();
        HandleGuard image(ToBlock(src));
        EXPECT_EQ(Chroma(image.h, nullptr, 1, 10), nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 7);
        EXPECT_TRUE(IsUnlocked(image.h));
    }
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
