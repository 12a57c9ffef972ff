// TZ3RGBLevel against a literal per-pixel transcription of its rules, in every format, with masks,
// regions, progress, cancellation and allocation failure.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>

#include "support/test_images.h"
#include "tz3effect.h"

using namespace tz3test;

namespace {

DibHandle Level(DibHandle image, DibHandle mask, int32_t kind, int32_t red, int32_t green, int32_t blue,
                int32_t noDialog = 1) {
    const DibPair pair{image, mask};
    return TZ3RGBLevel(&pair, kind, nullptr, 0, nullptr, 1, red, green, blue, noDialog, 0, 0, 0);
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

// Each amount clamped to -255..255, each channel plus its amount clamped to 0..255.
std::vector<uint8_t> ReferenceLevel(const std::vector<uint8_t> &src, const std::vector<uint8_t> *mask,
                                    int red, int green, int blue) {
    const int ar = Clamp(red, -255, 255), ag = Clamp(green, -255, 255), ab = Clamp(blue, -255, 255);
    return Reference(src, mask, [&](Colour c) {
        return Colour{Clamp(c.r + ar, 0, 255), Clamp(c.g + ag, 0, 255), Clamp(c.b + ab, 0, 255)};
    });
}

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
    static const int kPicks[] = {INT_MIN, -1000, -300, -256, -255, -254, -1,     0,
                                 1,       2,     254,  255,  256,  300,  INT_MAX};
    if (rng() % 2 == 0) return kPicks[rng() % std::size(kPicks)];
    return static_cast<int>(rng() % 601) - 300;
}

std::vector<uint8_t> Single24(uint8_t r, uint8_t g, uint8_t b) {
    std::vector<uint8_t> d = MakeDibBytes(1, 1, 24);
    d[40] = b;
    d[41] = g;
    d[42] = r;
    return d;
}

std::vector<uint8_t> Single16(uint16_t word) {
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

TEST(RGBLevel, MatchesReferenceOnRandomImagesOfEveryFormatWholeAndMasked) {
    std::mt19937 rng(31001);
    for (const Format f : kFormats) {
        for (int width = 1; width <= 33; ++width) {
            const int height = 1 + static_cast<int>(rng() % 5);
            const std::vector<uint8_t> src = RandomSource(rng, f, width, height);
            const std::vector<uint8_t> mask = RandomMask(rng, width, height);
            const int r = RandomAmount(rng), g = RandomAmount(rng), b = RandomAmount(rng);
            HandleGuard image(ToBlock(src));
            HandleGuard maskBlock(ToBlock(mask));

            HandleGuard whole(Level(image.h, nullptr, 1, r, g, b));
            ASSERT_NE(whole.h, nullptr) << f.bits << " bits, width " << width;
            EXPECT_EQ(Tz3GetErrorStatus(), 0);
            EXPECT_EQ(FromBlock(whole.h), ReferenceLevel(src, nullptr, r, g, b))
                << f.bits << " bits (565 " << f.is565 << "), width " << width << ", amounts " << r << " " << g
                << " " << b;

            HandleGuard masked(Level(image.h, maskBlock.h, 0, r, g, b));
            ASSERT_NE(masked.h, nullptr);
            EXPECT_EQ(FromBlock(masked.h), ReferenceLevel(src, f.bits <= 8 ? nullptr : &mask, r, g, b))
                << f.bits << " bits (565 " << f.is565 << "), width " << width;
            EXPECT_EQ(FromBlock(image.h), src) << "the caller's image changed";
            EXPECT_TRUE(IsUnlocked(image.h));
            EXPECT_TRUE(IsUnlocked(maskBlock.h));
        }
    }
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
    for (const Format f : kFormats) {
        const std::vector<uint8_t> src =
            f.bits <= 8 ? RandomPaletteDib(rng, 6, 4, f.bits, 2) : RandomDib(rng, 6, 4, f.bits, f.is565);
        HandleGuard image(ToBlock(src));
        ProgressRecorder progress;
        HandleGuard out(Level(image.h, nullptr, 1, 1, 1, 1, 7));
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

TEST(RGBLevel, OneRowImageReportsZeroOfZero) {
    HandleGuard image(ToBlock(MakeDibBytes(5, 1, 32)));
    ProgressRecorder progress;
    HandleGuard out(Level(image.h, nullptr, 1, 1, 1, 1, 3));
    ASSERT_NE(out.h, nullptr);
    ASSERT_EQ(progress.calls.size(), 1u);
    EXPECT_EQ(progress.calls[0].current, 0);
    EXPECT_EQ(progress.calls[0].total, 0);
    EXPECT_EQ(progress.calls[0].low, 0);
    EXPECT_EQ(progress.calls[0].high, 100);
    EXPECT_EQ(progress.calls[0].noDialog, 3);
}

TEST(RGBLevel, CancellingAtEveryProgressCallFreesEverything) {
    std::mt19937 rng(31009);
    for (const Format f : kFormats) {
        const std::vector<uint8_t> src = RandomDib(rng, 5, 4, f.bits, f.is565);
        const std::vector<uint8_t> mask = RandomMask(rng, 5, 4);
        HandleGuard image(ToBlock(src));
        HandleGuard maskBlock(ToBlock(mask));
        const size_t live = Tz3LiveBlocks();
        const long steps = f.bits <= 8 ? static_cast<long>(TableEntries(src)) : 4;
        for (long at = 0; at < steps; ++at) {
            ProgressRecorder progress(at);
            EXPECT_EQ(Level(image.h, maskBlock.h, 0, 10, -10, 10), nullptr) << f.bits << " cancel at " << at;
            EXPECT_EQ(Tz3GetErrorStatus(), 1);
            EXPECT_EQ(progress.calls.size(), static_cast<size_t>(at + 1));
            EXPECT_EQ(Tz3LiveBlocks(), live);
        }
        EXPECT_EQ(FromBlock(image.h), src);
        EXPECT_TRUE(IsUnlocked(image.h)) << "the caller's image was left locked";
        EXPECT_TRUE(IsUnlocked(maskBlock.h)) << "the caller's mask was left locked";
    }
}

TEST(RGBLevel, AllocationFailureAtEveryAllocationGivesStatusThree) {
    std::mt19937 rng(31010);
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
                HandleGuard out(TZ3RGBLevel(&pair, kind, polygon, 3, &ellipse, 1, 9, 9, 9, 1, 0, 0, 0));
                ASSERT_NE(out.h, nullptr);
                allocations = counter.count;
            }
            if (kind == 1) {
                EXPECT_EQ(allocations, 1) << "the clone alone: level builds no table";
            }
            const size_t live = Tz3LiveBlocks();
            for (long at = 0; at < allocations; ++at) {
                FailingAllocator failing(at);
                EXPECT_EQ(TZ3RGBLevel(&pair, kind, polygon, 3, &ellipse, 1, 9, 9, 9, 1, 0, 0, 0), nullptr)
                    << f.bits << " kind " << kind << " failing allocation " << at;
                EXPECT_EQ(Tz3GetErrorStatus(), 3);
                EXPECT_EQ(Tz3LiveBlocks(), live);
            }
            EXPECT_EQ(FromBlock(image.h), src);
            EXPECT_TRUE(IsUnlocked(image.h));
        }
    }
}

TEST(RGBLevel, NullImageGivesStatusSeven) {
    const DibPair pair{nullptr, nullptr};
    EXPECT_EQ(TZ3RGBLevel(&pair, 1, nullptr, 0, nullptr, 1, 1, 1, 1, 1, 0, 0, 0), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
    EXPECT_EQ(TZ3RGBLevel(nullptr, 1, nullptr, 0, nullptr, 1, 1, 1, 1, 1, 0, 0, 0), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
}

TEST(RGBLevel, BlockShorterThanItsHeaderClaimsGivesStatusSeven) {
    for (int bits : {8, 24}) {
        std::vector<uint8_t> src = MakeDibBytes(8, 8, bits);
        src.pop_back();
        HandleGuard image(ToBlock(src));
        EXPECT_EQ(Level(image.h, nullptr, 1, 1, 1, 1), nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 7);
        EXPECT_TRUE(IsUnlocked(image.h));
    }
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
