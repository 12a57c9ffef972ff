// Rotation: right angles, general angles with and without bilinear sampling, sizes, masks, flips,
// every depth, progress spans, cancellation, allocation failure and the statuses.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <random>

#include "support/geometry_reference.h"
#include "support/tone_harness.h"
#include "support/tone_reference.h"
#include "tz3effect.h"

namespace {

using namespace tz3test;

// The pair of a call, owned by the test.
struct Turned {
    HandleGuard image, mask;
    explicit Turned(DibPair p) : image(p.image), mask(p.mask) {}
};

DibPair Call(DibHandle image, DibHandle mask, const RotationArgs &a, int32_t noDialog = 1) {
    const DibPair source{image, mask};
    return TZ3Rotation(&source, a.angle, a.flipHorizontal, a.flipVertical, a.interpolate, a.red, a.green, a.blue,
                       a.keepSize, noDialog, 0, 0, 0);
}

// Runs the export on copies of src and mask and checks that the caller's blocks stay as they were.
ImagePair Turn(const std::vector<uint8_t> &src, const std::vector<uint8_t> *mask, const RotationArgs &a) {
    HandleGuard image(ToBlock(src));
    HandleGuard maskBlock(mask != nullptr ? ToBlock(*mask) : nullptr);
    Turned out(Call(image.h, maskBlock.h, a));
    EXPECT_NE(out.image.h, nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 0);
    EXPECT_EQ(out.mask.h != nullptr, mask != nullptr);
    ExpectCallerBlocksUnchanged(image.h, src, maskBlock.h);
    if (mask != nullptr) {
        EXPECT_EQ(FromBlock(maskBlock.h), *mask);
    }
    ImagePair result;
    if (out.image.h != nullptr) result.image = FromBlock(out.image.h);
    if (out.mask.h != nullptr) result.mask = FromBlock(out.mask.h);
    return result;
}

// An 8-bit image whose 256-entry table holds every gray level once, in a random order.
std::vector<uint8_t> RandomGrayDib(std::mt19937 &rng, int width, int height) {
    std::vector<uint8_t> d = RandomDib(rng, width, height, 8);
    std::vector<int> levels(256);
    std::iota(levels.begin(), levels.end(), 0);
    std::shuffle(levels.begin(), levels.end(), rng);
    for (int i = 0; i < 256; ++i) {
        d[40 + 4 * i] = d[41 + 4 * i] = d[42 + 4 * i] = static_cast<uint8_t>(levels[i]);
        d[43 + 4 * i] = static_cast<uint8_t>(rng());
    }
    return d;
}

// A solid 24-bit image.
std::vector<uint8_t> Solid24(int width, int height, uint8_t r, uint8_t g, uint8_t b) {
    std::vector<uint8_t> d = MakeDibBytes(width, height, 24);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const size_t at = PixelOffset(d) + RowBytes(24, width) * static_cast<size_t>(y) + 3 * static_cast<size_t>(x);
            d[at] = b;
            d[at + 1] = g;
            d[at + 2] = r;
        }
    return d;
}

// A 24-bit image whose every pixel has its own colour: x in red, y in green.
std::vector<uint8_t> Numbered24(int width, int height) {
    std::vector<uint8_t> d = MakeDibBytes(width, height, 24);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const size_t at = PixelOffset(d) + RowBytes(24, width) * static_cast<size_t>(y) + 3 * static_cast<size_t>(x);
            d[at] = 200;
            d[at + 1] = static_cast<uint8_t>(y);
            d[at + 2] = static_cast<uint8_t>(x);
        }
    return d;
}

RotationArgs RandomArgs(std::mt19937 &rng) {
    static const int32_t kAngles[] = {0,      9000,   18000,  27000, -9000, -18000, -27000, 36000, -40000,
                                      4500,   3000,   -3000,  1,     -1,    13500,  22500,  31500, 35999,
                                      -35999, 17999,  9001,   8999,  100,   -27001, 12345,  -4500, 2};
    RotationArgs a;
    a.angle = rng() % 3 == 0 ? static_cast<int32_t>(rng() % 72001) - 36000 : kAngles[rng() % std::size(kAngles)];
    a.flipHorizontal = rng() % 3 == 0;
    a.flipVertical = rng() % 3 == 0;
    a.interpolate = rng() % 2 == 0;
    a.keepSize = rng() % 3 == 0;
    a.red = static_cast<int32_t>(rng() % 512);
    a.green = static_cast<int32_t>(rng() % 512);
    a.blue = static_cast<int32_t>(rng() % 512);
    return a;
}

std::string Settings(const RotationArgs &a) {
    return Describe(", angle/flipH/flipV/interp/keep/rgb", a.angle, a.flipHorizontal, a.flipVertical, a.interpolate,
                    a.keepSize, a.red, a.green, a.blue);
}

TEST(TZ3Rotation, MatchesTheLiteralRulesInEveryFormatAndWidthWithAndWithoutMask) {
    std::mt19937 rng(2024);
    for (const Format f : kFormats) {
        for (int width = 1; width <= 33; ++width) {
            const int height = 1 + static_cast<int>(rng() % 6);
            const std::vector<uint8_t> src = RandomSource(rng, f, width, height);
            const std::vector<uint8_t> mask = RandomMask(rng, width, height);
            const RotationArgs a = RandomArgs(rng);
            const ImagePair expected = ReferenceRotation(src, &mask, a);
            const ImagePair got = Turn(src, &mask, a);
            ASSERT_EQ(got.image, expected.image) << f.bits << " bits (565 " << f.is565 << "), " << width << "x"
                                                 << height << Settings(a);
            ASSERT_EQ(got.mask, expected.mask) << f.bits << " bits, " << width << "x" << height << Settings(a);
            const ImagePair unmasked = Turn(src, nullptr, a);
            ASSERT_EQ(unmasked.image, expected.image) << f.bits << " bits, " << width << Settings(a);
            EXPECT_TRUE(unmasked.mask.empty());
        }
    }
}

TEST(TZ3Rotation, GrayPalettesBlendLevelsInAnyOrderOfTheTable) {
    std::mt19937 rng(77);
    for (int width = 1; width <= 33; ++width) {
        const int height = 1 + static_cast<int>(rng() % 6);
        const std::vector<uint8_t> src = RandomGrayDib(rng, width, height);
        RotationArgs a = RandomArgs(rng);
        a.interpolate = true;
        if (a.angle % 9000 == 0) a.angle += 1234;
        const ImagePair got = Turn(src, nullptr, a);
        ASSERT_EQ(got.image, ReferenceRotation(src, nullptr, a).image) << width << Settings(a);
    }
}

TEST(TZ3Rotation, ManyGeneralAnglesOnLargerImagesMatchTheLiteralRules) {
    std::mt19937 rng(5);
    for (const Format f : kFormats) {
        for (int trial = 0; trial < 6; ++trial) {
            const int width = 20 + static_cast<int>(rng() % 30), height = 20 + static_cast<int>(rng() % 30);
            const std::vector<uint8_t> src = RandomSource(rng, f, width, height);
            const std::vector<uint8_t> mask = RandomMask(rng, width, height);
            RotationArgs a = RandomArgs(rng);
            a.angle = static_cast<int32_t>(rng() % 72000) - 36000;
            const ImagePair expected = ReferenceRotation(src, &mask, a);
            const ImagePair got = Turn(src, &mask, a);
            ASSERT_EQ(got.image, expected.image) << f.bits << " bits" << Settings(a);
            ASSERT_EQ(got.mask, expected.mask) << f.bits << " bits" << Settings(a);
        }
    }
}

TEST(TZ3Rotation, AngleZeroCopiesThroughTheRightAnglePath) {
    std::mt19937 rng(3);
    RotationArgs a;
    a.interpolate = true;
    for (int bits : {8, 24}) {
        const std::vector<uint8_t> src = RandomDib(rng, 7, 5, bits);
        const ImagePair got = Turn(src, nullptr, a);
        std::vector<uint8_t> expected = src;
        SetField32(expected, 20, RowBytes(bits, 7) * 5);
        for (int y = 0; y < 5; ++y) {
            const size_t row = PixelOffset(src) + RowBytes(bits, 7) * static_cast<size_t>(y);
            std::fill(expected.begin() + static_cast<long>(row + 7 * bits / 8),
                      expected.begin() + static_cast<long>(row + RowBytes(bits, 7)), 0);
        }
        EXPECT_EQ(got.image, expected) << bits << " bits: pixels equal to the source";
    }
    const std::vector<uint8_t> src32 = RandomDib(rng, 6, 4, 32);
    const ImagePair got32 = Turn(src32, nullptr, a);
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 6; ++x) {
            EXPECT_EQ(RawPixel(got32.image, x, y), RawPixel(src32, x, y) & 0xFFFFFF) << "fourth byte at 0";
        }
    for (bool is565 : {false, true}) {
        const std::vector<uint8_t> src16 = RandomDib(rng, 6, 4, 16, is565);
        const ImagePair got16 = Turn(src16, nullptr, a);
        for (int y = 0; y < 4; ++y)
            for (int x = 0; x < 6; ++x) {
                const auto word = static_cast<uint16_t>(RawPixel(src16, x, y));
                EXPECT_EQ(RawPixel(got16.image, x, y), Pack16(Expand16(word, is565), is565));
            }
    }
    // A 5-bit value v of 1..30 comes out as v - 1.
    const ImagePair lowered = Turn(Single16(static_cast<uint16_t>((10 << 10) | (30 << 5) | 1)), nullptr, a);
    EXPECT_EQ(RawPixel(lowered.image, 0, 0), static_cast<uint32_t>((9 << 10) | (29 << 5) | 0));
}

TEST(TZ3Rotation, QuarterTurnGivesAnHByWImageHoldingSourceYAndHMinusOneMinusX) {
    const int W = 5, H = 3;
    const std::vector<uint8_t> src = Numbered24(W, H);
    for (int32_t angle : {9000, -27000}) {
        RotationArgs a;
        a.angle = angle;
        const ImagePair got = Turn(src, nullptr, a);
        ASSERT_EQ(ImageWidth(got.image), H);
        ASSERT_EQ(ImageHeight(got.image), W);
        for (int y = 0; y < W; ++y)
            for (int x = 0; x < H; ++x) EXPECT_EQ(RawPixel(got.image, x, y), RawPixel(src, y, H - 1 - x));
    }
    RotationArgs back;
    back.angle = 27000;
    const ImagePair got = Turn(src, nullptr, back);
    for (int y = 0; y < W; ++y)
        for (int x = 0; x < H; ++x) EXPECT_EQ(RawPixel(got.image, x, y), RawPixel(src, W - 1 - y, x));
    back.angle = 18000;
    const ImagePair half = Turn(src, nullptr, back);
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x) EXPECT_EQ(RawPixel(half.image, x, y), RawPixel(src, W - 1 - x, H - 1 - y));
}

TEST(TZ3Rotation, KeepSizeQuarterTurnStaysCentredWithOffsetsOneAndTwo) {
    // W = 4, H = 7: offY = trunc(3 / 2) = 1 and offX = 3 - 1 = 2.
    const int W = 4, H = 7;
    const std::vector<uint8_t> src = Numbered24(W, H);
    RotationArgs a;
    a.angle = 9000;
    a.keepSize = true;
    a.red = 1;
    a.green = 2;
    a.blue = 3;
    const ImagePair got = Turn(src, nullptr, a);
    ASSERT_EQ(ImageWidth(got.image), W);
    ASSERT_EQ(ImageHeight(got.image), H);
    const uint32_t background = 3 | (2 << 8) | (1 << 16);
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x) {
            const int col = y - 2, row = H - 1 - x - 1;
            const uint32_t expected = col >= 0 && col < W && row >= 0 && row < H ? RawPixel(src, col, row) : background;
            EXPECT_EQ(RawPixel(got.image, x, y), expected) << x << "," << y;
        }
    // Rows 0 and 1 lie before the source's first column: bordered with the background.
    EXPECT_EQ(RawPixel(got.image, 0, 0), background);
    EXPECT_EQ(RawPixel(got.image, 0, 2), RawPixel(src, 0, 5));
}

TEST(TZ3Rotation, Angle36000IsClampedTo35999AndGrowsTheImage) {
    std::mt19937 rng(9);
    const std::vector<uint8_t> src = RandomDib(rng, 9, 6, 24);
    RotationArgs full;
    full.angle = 36000;
    RotationArgs clamped = full;
    clamped.angle = 35999;
    const ImagePair a = Turn(src, nullptr, full);
    EXPECT_EQ(a.image, Turn(src, nullptr, clamped).image);
    // The general path widens by the outer margin: a 9 x 6 image becomes 11 x 8 (L -5, R 5, T -4, B 3).
    EXPECT_EQ(ImageWidth(a.image), 11);
    EXPECT_EQ(ImageHeight(a.image), 8);
    RotationArgs zero;
    EXPECT_NE(a.image, Turn(src, nullptr, zero).image);
    RotationArgs under;
    under.angle = -50000;
    RotationArgs least = under;
    least.angle = -35999;
    EXPECT_EQ(Turn(src, nullptr, under).image, Turn(src, nullptr, least).image);
}

TEST(TZ3Rotation, OnePixelAt4500IsOneBackgroundPixel) {
    const std::vector<uint8_t> src = Single24(10, 20, 30);
    RotationArgs a;
    a.angle = 4500;
    a.red = 200;
    a.green = 100;
    a.blue = 50;
    const std::vector<uint8_t> mask = RectMask(1, 1, 0, 0, 0, 0, true);
    const ImagePair got = Turn(src, &mask, a);
    ASSERT_EQ(ImageWidth(got.image), 1);
    ASSERT_EQ(ImageHeight(got.image), 1);
    EXPECT_EQ(RawPixel(got.image, 0, 0), static_cast<uint32_t>(50 | (100 << 8) | (200 << 16)));
    EXPECT_FALSE(MaskBit(got.mask, 0, 0)) << "background is never marked";
}

TEST(TZ3Rotation, PositionsUnderAPixelBeyondTheEdgeTruncateInsideAndAreSampled) {
    // 4 x 4 image turned by 1 degree: find target pixels whose source position lies outside the pixel
    // range but within one pixel of it; each must hold the edge pixel, not the background.
    const int W = 4, H = 4;
    const std::vector<uint8_t> src = Numbered24(W, H);
    RotationArgs a;
    a.angle = 100;
    a.keepSize = true;
    a.red = a.green = a.blue = 255;
    const ImagePair got = Turn(src, nullptr, a);
    const double rad = ((100 / 100.0) * 3.141592657) / 180.0;
    const float ci = static_cast<float>(std::cos(-rad)), si = static_cast<float>(std::sin(-rad));
    int outside = 0;
    for (int y = -2; y <= 1; ++y) {
        const float ys = static_cast<float>(y * static_cast<double>(si));
        const float yc = static_cast<float>(y * static_cast<double>(ci));
        for (int x = -2; x <= 1; ++x) {
            const float sx = static_cast<float>(x * static_cast<double>(ci) - ys);
            const float sy = static_cast<float>(x * static_cast<double>(si) + yc);
            const bool beyond = sx > 1.0F || sx < -2.0F || sy > 1.0F || sy < -2.0F;
            const bool withinOne = sx < 2.0F && sx > -3.0F && sy < 2.0F && sy > -3.0F;
            if (!beyond || !withinOne) continue;
            ++outside;
            const int col = static_cast<int>(std::trunc(sx)) + 2, row = static_cast<int>(std::trunc(sy)) + 2;
            EXPECT_EQ(RawPixel(got.image, x + 2, y + 2), RawPixel(src, col, row)) << x << "," << y;
        }
    }
    EXPECT_GT(outside, 0) << "the case must occur at this angle";
}

TEST(TZ3Rotation, ResultMaskMarksOnlyPixelsFromSetSourceBits) {
    std::mt19937 rng(21);
    const std::vector<uint8_t> src = Solid24(8, 6, 255, 255, 255);
    const std::vector<uint8_t> full = RectMask(8, 6, 0, 0, 7, 5, true);
    const std::vector<uint8_t> half = RectMask(8, 6, 0, 0, 3, 5, true);
    for (int32_t angle : {3000, 9000, 0, -12000}) {
        RotationArgs a;
        a.angle = angle;
        const ImagePair all = Turn(src, &full, a);
        for (int y = 0; y < ImageHeight(all.image); ++y)
            for (int x = 0; x < ImageWidth(all.image); ++x)
                EXPECT_EQ(MaskBit(all.mask, x, y), RawPixel(all.image, x, y) == 0xFFFFFF) << angle << " " << x << "," << y;
        const ImagePair some = Turn(src, &half, a);
        EXPECT_EQ(some.mask, ReferenceRotation(src, &half, a).mask);
        int marked = 0, whole = 0;
        for (int y = 0; y < ImageHeight(all.image); ++y)
            for (int x = 0; x < ImageWidth(all.image); ++x) {
                marked += MaskBit(some.mask, x, y);
                whole += MaskBit(all.mask, x, y);
            }
        EXPECT_GT(marked, 0);
        EXPECT_LT(marked, whole);
    }
}

TEST(TZ3Rotation, BilinearSamplingAtTheEdgeMixesInTheBackground) {
    const std::vector<uint8_t> src = Solid24(6, 6, 255, 255, 255);
    RotationArgs a;
    a.angle = 3000;
    a.interpolate = true;
    const ImagePair got = Turn(src, nullptr, a);
    int mixed = 0;
    for (int y = 0; y < ImageHeight(got.image); ++y)
        for (int x = 0; x < ImageWidth(got.image); ++x) {
            const uint32_t v = RawPixel(got.image, x, y) & 255;
            if (v != 0 && v != 255) ++mixed;
        }
    EXPECT_GT(mixed, 0) << "a clamped neighbour would keep every inside pixel white";
    EXPECT_EQ(got.image, ReferenceRotation(src, nullptr, a).image);
}

TEST(TZ3Rotation, FormatsThatCannotBlendIgnoreInterpolate) {
    std::mt19937 rng(31);
    for (int bits : {1, 4, 8}) {
        const std::vector<uint8_t> src = RandomDib(rng, 9, 7, bits);  // random table: not gray at 8 bits
        RotationArgs a;
        a.angle = 2000;
        RotationArgs b = a;
        b.interpolate = true;
        EXPECT_EQ(Turn(src, nullptr, a).image, Turn(src, nullptr, b).image) << bits;
    }
}

TEST(TZ3Rotation, BackgroundCountsByLowByteAndFlagsByAnyBit) {
    std::mt19937 rng(41);
    const std::vector<uint8_t> src = RandomDib(rng, 7, 5, 24);
    RotationArgs a;
    a.angle = 4000;
    a.red = 10;
    a.green = 20;
    a.blue = 30;
    a.interpolate = true;
    a.flipHorizontal = true;
    const ImagePair expected = Turn(src, nullptr, a);
    const DibPair source{ToBlock(src), nullptr};
    HandleGuard guard(source.image);
    Turned got(TZ3Rotation(&source, 4000, 0x100, 0, 0x10000, 256 + 10, 512 + 20, -256 + 30, 0, 1, 0, 0, 0));
    ASSERT_NE(got.image.h, nullptr);
    EXPECT_EQ(FromBlock(got.image.h), expected.image);
}

TEST(TZ3Rotation, FlipsMirrorBeforeTurning) {
    const std::vector<uint8_t> src = Numbered24(5, 3);
    RotationArgs a;
    a.flipHorizontal = true;
    const ImagePair h = Turn(src, nullptr, a);
    a.flipHorizontal = false;
    a.flipVertical = true;
    const ImagePair v = Turn(src, nullptr, a);
    a.flipHorizontal = true;
    const ImagePair both = Turn(src, nullptr, a);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 5; ++x) {
            EXPECT_EQ(RawPixel(h.image, x, y), RawPixel(src, 4 - x, y));
            EXPECT_EQ(RawPixel(v.image, x, y), RawPixel(src, x, 2 - y));
            EXPECT_EQ(RawPixel(both.image, x, y), RawPixel(src, 4 - x, 2 - y));
        }
}

// The progress calls: flips over their spans, then the worker's rows.
struct Stage {
    int32_t steps, low, high;
};
void ExpectStages(const std::vector<ProgressCall> &calls, std::initializer_list<Stage> stages) {
    size_t i = 0;
    for (const Stage &s : stages) {
        for (int32_t step = 0; step < s.steps; ++step, ++i) {
            ASSERT_LT(i, calls.size());
            EXPECT_EQ(calls[i].current, step);
            EXPECT_EQ(calls[i].total, s.steps - 1);
            EXPECT_EQ(calls[i].low, s.low);
            EXPECT_EQ(calls[i].high, s.high);
            EXPECT_EQ(calls[i].noDialog, 5);
        }
    }
    EXPECT_EQ(i, calls.size());
}

TEST(TZ3Rotation, ProgressSpansFollowTheFlipsAsked) {
    std::mt19937 rng(51);
    const std::vector<uint8_t> src = RandomDib(rng, 6, 4, 24);
    HandleGuard image(ToBlock(src));
    const auto run = [&](RotationArgs a) {
        ProgressRecorder progress;
        Turned out(Call(image.h, nullptr, a, 5));
        EXPECT_NE(out.image.h, nullptr);
        return progress.calls;
    };
    RotationArgs a;
    ExpectStages(run(a), {{4, 0, 100}});
    a.angle = 9000;
    ExpectStages(run(a), {{6, 0, 100}});  // H' - 1 = 5
    a.flipHorizontal = true;
    ExpectStages(run(a), {{4, 0, 5}, {6, 6, 100}});
    a.flipHorizontal = false;
    a.flipVertical = true;
    ExpectStages(run(a), {{4, 0, 5}, {6, 6, 100}});
    a.flipHorizontal = true;
    ExpectStages(run(a), {{4, 0, 5}, {4, 6, 10}, {6, 11, 100}});
    // General path: rows T..B reported as y - T of B - T.
    a.angle = 4500;
    a.flipHorizontal = a.flipVertical = false;
    const std::vector<ProgressCall> calls = run(a);
    const ImagePair expected = ReferenceRotation(src, nullptr, a);
    ExpectStages(calls, {{ImageHeight(expected.image), 0, 100}});
}

TEST(TZ3Rotation, CancelAtEveryProgressCallLeavesNothing) {
    std::mt19937 rng(61);
    for (const Format f : kFormats) {
        const std::vector<uint8_t> src = RandomDib(rng, 5, 4, f.bits, f.is565);
        const std::vector<uint8_t> mask = RandomMask(rng, 5, 4);
        HandleGuard image(ToBlock(src));
        HandleGuard maskBlock(ToBlock(mask));
        for (RotationArgs a : {RotationArgs{0}, RotationArgs{3000, true, true, true}, RotationArgs{-9000, false, true}}) {
            long steps = 0;
            {
                ProgressRecorder count;
                Turned out(Call(image.h, maskBlock.h, a));
                ASSERT_NE(out.image.h, nullptr);
                steps = static_cast<long>(count.calls.size());
            }
            const size_t live = Tz3LiveBlocks();
            for (long at = 0; at < steps; ++at) {
                ProgressRecorder progress(at);
                const DibPair p = Call(image.h, maskBlock.h, a);
                EXPECT_EQ(p.image, nullptr);
                EXPECT_EQ(p.mask, nullptr);
                EXPECT_EQ(Tz3GetErrorStatus(), 1);
                EXPECT_EQ(progress.calls.size(), static_cast<size_t>(at + 1));
                EXPECT_EQ(Tz3LiveBlocks(), live) << f.bits << " cancel at " << at;
            }
            ExpectCallerBlocksUnchanged(image.h, src, maskBlock.h);
            EXPECT_EQ(FromBlock(maskBlock.h), mask);
        }
    }
}

TEST(TZ3Rotation, FailureOfEveryAllocationLeavesNothing) {
    std::mt19937 rng(71);
    for (const Format f : kFormats) {
        const std::vector<uint8_t> src = RandomDib(rng, 5, 4, f.bits, f.is565);
        const std::vector<uint8_t> mask = RandomMask(rng, 5, 4);
        HandleGuard image(ToBlock(src));
        HandleGuard maskBlock(ToBlock(mask));
        for (RotationArgs a : {RotationArgs{0}, RotationArgs{3000, true, true, true}, RotationArgs{-9000, false, true}}) {
            long allocations = 0;
            {
                FailingAllocator counter;
                Turned out(Call(image.h, maskBlock.h, a));
                ASSERT_NE(out.image.h, nullptr);
                allocations = counter.count;
            }
            // New image and mask, plus the level map at 8 bits, plus two copies and two working
            // copies for each flip.
            const long flips = (a.flipHorizontal ? 1 : 0) + (a.flipVertical ? 1 : 0);
            EXPECT_EQ(allocations, 2 + (f.bits == 8 ? 1 : 0) + (flips > 0 ? 2 : 0) + 2 * flips) << f.bits;
            const size_t live = Tz3LiveBlocks();
            for (long at = 0; at < allocations; ++at) {
                FailingAllocator failing(at);
                const DibPair p = Call(image.h, maskBlock.h, a);
                EXPECT_EQ(p.image, nullptr);
                EXPECT_EQ(p.mask, nullptr);
                EXPECT_EQ(Tz3GetErrorStatus(), 3);
                EXPECT_EQ(Tz3LiveBlocks(), live) << f.bits << " failing allocation " << at;
            }
            ExpectCallerBlocksUnchanged(image.h, src, maskBlock.h);
        }
    }
}

TEST(TZ3Rotation, RefusesMissingAndMalformedImagesAndMasks) {
    EXPECT_EQ(TZ3Rotation(nullptr, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0).image, nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
    const DibPair none{nullptr, nullptr};
    EXPECT_EQ(TZ3Rotation(&none, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0).image, nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);

    const auto refused = [](const std::vector<uint8_t> &src, const std::vector<uint8_t> *mask, int expected) {
        HandleGuard image(ToBlock(src));
        HandleGuard maskBlock(mask != nullptr ? ToBlock(*mask) : nullptr);
        const size_t live = Tz3LiveBlocks();
        const DibPair p = Call(image.h, maskBlock.h, RotationArgs{3000, true});
        EXPECT_EQ(p.image, nullptr);
        EXPECT_EQ(p.mask, nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), expected);
        EXPECT_EQ(Tz3LiveBlocks(), live);
        EXPECT_TRUE(IsUnlocked(image.h));
        if (mask != nullptr) {
            EXPECT_TRUE(IsUnlocked(maskBlock.h));
        }
    };
    std::vector<uint8_t> bad16 = MakeDibBytes(4, 4, 16, 3);
    bad16[16] = 3;  // bit fields that are neither 5-5-5 nor 5-6-5
    SetField32(bad16, 40, 0x00FF);
    refused(bad16, nullptr, 7);
    std::vector<uint8_t> twoBits = MakeDibBytes(4, 4, 8);
    twoBits[14] = 2;
    refused(twoBits, nullptr, 7);
    std::vector<uint8_t> shortBlock = MakeDibBytes(8, 8, 24);
    shortBlock.pop_back();
    refused(shortBlock, nullptr, 7);
    const std::vector<uint8_t> src = MakeDibBytes(5, 4, 24);
    const std::vector<uint8_t> wrongSize = MakeDibBytes(4, 4, 1);
    refused(src, &wrongSize, 7);
    const std::vector<uint8_t> eightBitMask = MakeDibBytes(5, 4, 8);
    refused(src, &eightBitMask, 7);
    std::vector<uint8_t> shortMask = MakeDibBytes(5, 4, 1);
    shortMask.pop_back();
    refused(src, &shortMask, 7);
    std::vector<uint8_t> topDown = MakeDibBytes(5, 4, 24);
    SetField32(topDown, 8, static_cast<uint32_t>(-4));
    refused(topDown, nullptr, 5);  // a top-down image passes the checks and no copy can be made of it
}

TEST(TZ3Rotation, DialogOpensAndClosesOnceAndAFailedOpenDoesNoWork) {
    const std::vector<uint8_t> src = Numbered24(4, 3);
    HandleGuard image(ToBlock(src));
    const DibPair source{image.h, nullptr};
    {
        DialogRecorder dialog;
        Turned out(TZ3Rotation(&source, 4500, 0, 0, 0, 0, 0, 0, 0, 0, 11, 12, 13));
        EXPECT_NE(out.image.h, nullptr);
        EXPECT_EQ(dialog.opens, 1);
        EXPECT_EQ(dialog.closes, 1);
        EXPECT_EQ(dialog.a, 11);
        EXPECT_EQ(dialog.c, 13);
    }
    {
        DialogRecorder dialog(true);
        ProgressRecorder progress;
        const size_t live = Tz3LiveBlocks();
        const DibPair p = TZ3Rotation(&source, 4500, 0, 0, 0, 0, 0, 0, 0, 0, 1, 2, 3);
        EXPECT_EQ(p.image, nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 2);
        EXPECT_TRUE(progress.calls.empty());
        EXPECT_EQ(dialog.closes, 0);
        EXPECT_EQ(Tz3LiveBlocks(), live);
    }
    {
        DialogRecorder dialog;
        const DibPair p = TZ3Rotation(nullptr, 4500, 0, 0, 0, 0, 0, 0, 0, 0, 1, 2, 3);
        EXPECT_EQ(p.image, nullptr);
        EXPECT_EQ(dialog.closes, 1) << "closed also when the operation failed";
    }
}

TEST(TZ3RotationEx, WritesThePairAndReturnsOneOrZero) {
    std::mt19937 rng(81);
    const std::vector<uint8_t> src = RandomDib(rng, 6, 5, 24);
    const std::vector<uint8_t> mask = RandomMask(rng, 6, 5);
    HandleGuard image(ToBlock(src));
    HandleGuard maskBlock(ToBlock(mask));
    const DibPair source{image.h, maskBlock.h};
    RotationArgs a{2500, true, false, true, false, 9, 8, 7};
    const ImagePair expected = ReferenceRotation(src, &mask, a);

    DibPair result{nullptr, nullptr};
    EXPECT_EQ(TZ3RotationEx(&source, &result, 2500, 1, 0, 1, 9, 8, 7, 0, 1, 0, 0, 0), 1);
    EXPECT_EQ(Tz3GetErrorStatus(), 0);
    Turned owned(result);
    ASSERT_NE(result.image, nullptr);
    EXPECT_EQ(FromBlock(result.image), expected.image);
    EXPECT_EQ(FromBlock(result.mask), expected.mask);

    // A failure writes two nulls.
    DibPair failed{image.h, image.h};
    const DibPair nothing{nullptr, nullptr};
    EXPECT_EQ(TZ3RotationEx(&nothing, &failed, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0), 0);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
    EXPECT_EQ(failed.image, nullptr);
    EXPECT_EQ(failed.mask, nullptr);

    // A dialog that cannot open leaves the record untouched.
    DialogRecorder dialog(true);
    DibPair untouched{image.h, maskBlock.h};
    EXPECT_EQ(TZ3RotationEx(&source, &untouched, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0), 0);
    EXPECT_EQ(Tz3GetErrorStatus(), 2);
    EXPECT_EQ(untouched.image, image.h);
    EXPECT_EQ(untouched.mask, maskBlock.h);
}

TEST(TZ3RotationEx, WithoutAResultRecordRefusesAndMakesNothing) {
    const std::vector<uint8_t> src = Numbered24(4, 3);
    HandleGuard image(ToBlock(src));
    const DibPair source{image.h, nullptr};
    const size_t live = Tz3LiveBlocks();
    EXPECT_EQ(TZ3RotationEx(&source, nullptr, 4500, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0), 0);
    EXPECT_EQ(Tz3GetErrorStatus(), 5);
    EXPECT_EQ(Tz3LiveBlocks(), live);
}

}  // namespace
