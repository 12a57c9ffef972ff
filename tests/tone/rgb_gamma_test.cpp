// TZ3RGBGamma against a literal per-pixel transcription of its rules, in every format, with masks,
// regions, progress, cancellation and allocation failure.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "support/test_images.h"
#include "tz3effect.h"

using namespace tz3test;

namespace {

DibHandle Gamma(DibHandle image, DibHandle mask, int32_t kind, double red, double green, double blue,
                int32_t noDialog = 1) {
    const DibPair pair{image, mask};
    return TZ3RGBGamma(&pair, kind, nullptr, 0, nullptr, 1, red, green, blue, noDialog, 0, 0, 0);
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

// A double stored as float, rounded to nearest; beyond float's range an infinity.
float ToFloat(double v) {
    if (v >= 0x1.ffffffp127) return std::numeric_limits<float>::infinity();
    if (v <= -0x1.ffffffp127) return -std::numeric_limits<float>::infinity();
    return static_cast<float>(v);
}

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
    static const double kPicks[] = {0.0,   1.0, -1.0, 0.5, -0.5, 2.5,   -3.0,
                                    -1.04, 1e6, -1e6, 1e9, -1e9, 1e300, -1e300};
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

// A 24-bit image of one row holding the 256 levels in each channel.
std::vector<uint8_t> Ramp24() {
    std::vector<uint8_t> d = MakeDibBytes(256, 1, 24);
    for (int i = 0; i < 256; ++i) d[40 + 3 * i] = d[41 + 3 * i] = d[42 + 3 * i] = static_cast<uint8_t>(i);
    return d;
}

}  // namespace

TEST(RGBGamma, MatchesReferenceOnRandomImagesOfEveryFormatWholeAndMasked) {
    std::mt19937 rng(32001);
    for (const Format f : kFormats) {
        for (int width = 1; width <= 33; ++width) {
            const int height = 1 + static_cast<int>(rng() % 5);
            const std::vector<uint8_t> src = RandomSource(rng, f, width, height);
            const std::vector<uint8_t> mask = RandomMask(rng, width, height);
            const double r = RandomStrength(rng), g = RandomStrength(rng), b = RandomStrength(rng);
            HandleGuard image(ToBlock(src));
            HandleGuard maskBlock(ToBlock(mask));

            HandleGuard whole(Gamma(image.h, nullptr, 1, r, g, b));
            ASSERT_NE(whole.h, nullptr) << f.bits << " bits, width " << width;
            EXPECT_EQ(Tz3GetErrorStatus(), 0);
            EXPECT_EQ(FromBlock(whole.h), ReferenceGamma(src, nullptr, r, g, b))
                << f.bits << " bits (565 " << f.is565 << "), width " << width << ", strengths " << r << " "
                << g << " " << b;

            HandleGuard masked(Gamma(image.h, maskBlock.h, 0, r, g, b));
            ASSERT_NE(masked.h, nullptr);
            EXPECT_EQ(FromBlock(masked.h), ReferenceGamma(src, f.bits <= 8 ? nullptr : &mask, r, g, b))
                << f.bits << " bits (565 " << f.is565 << "), width " << width;
            EXPECT_EQ(FromBlock(image.h), src) << "the caller's image changed";
            EXPECT_TRUE(IsUnlocked(image.h));
            EXPECT_TRUE(IsUnlocked(maskBlock.h));
        }
    }
}

TEST(RGBGamma, EveryLevelOfEveryChannelMatchesTheCurve) {
    const std::vector<uint8_t> src = Ramp24();
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
    const std::vector<uint8_t> ramp = Ramp24();
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
    const std::vector<uint8_t> ramp = Ramp24();
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
    const std::vector<uint8_t> palette = RandomDib(rng, 5, 5, 8);
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

TEST(RGBGamma, ReportsEveryRowAndEveryPaletteEntry) {
    std::mt19937 rng(32008);
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

TEST(RGBGamma, OneRowImageReportsZeroOfZero) {
    HandleGuard image(ToBlock(MakeDibBytes(5, 1, 16)));
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

TEST(RGBGamma, CancellingAtEveryProgressCallFreesTheCloneAndTheTables) {
    std::mt19937 rng(32009);
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

TEST(RGBGamma, AllocationFailureAtEveryAllocationGivesStatusThree) {
    std::mt19937 rng(32010);
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
                HandleGuard out(TZ3RGBGamma(&pair, kind, polygon, 3, &ellipse, 1, 1.0, 2.0, 3.0, 1, 0, 0, 0));
                ASSERT_NE(out.h, nullptr);
                allocations = counter.count;
            }
            if (kind == 1) {
                // Palette images: the clone alone. Pixels: the clone and one block of gamma tables.
                EXPECT_EQ(allocations, f.bits <= 8 ? 1 : 2) << f.bits;
            }
            const size_t live = Tz3LiveBlocks();
            for (long at = 0; at < allocations; ++at) {
                FailingAllocator failing(at);
                EXPECT_EQ(TZ3RGBGamma(&pair, kind, polygon, 3, &ellipse, 1, 1.0, 2.0, 3.0, 1, 0, 0, 0),
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

TEST(RGBGamma, NullImageGivesStatusSeven) {
    const DibPair pair{nullptr, nullptr};
    EXPECT_EQ(TZ3RGBGamma(&pair, 1, nullptr, 0, nullptr, 1, 1, 1, 1, 1, 0, 0, 0), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
    EXPECT_EQ(TZ3RGBGamma(nullptr, 1, nullptr, 0, nullptr, 1, 1, 1, 1, 1, 0, 0, 0), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
}

TEST(RGBGamma, BlockShorterThanItsHeaderClaimsGivesStatusSeven) {
    for (int bits : {4, 32}) {
        std::vector<uint8_t> src = MakeDibBytes(8, 8, bits);
        src.pop_back();
        HandleGuard image(ToBlock(src));
        EXPECT_EQ(Gamma(image.h, nullptr, 1, 1, 1, 1), nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 7);
        EXPECT_TRUE(IsUnlocked(image.h));
    }
}
