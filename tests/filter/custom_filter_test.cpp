// TZ3CustomFilter against a literal transcription of its rules on random images, kernels, regions
// and every accepted depth, with its edge cases, parameter low bytes, borders, statuses, progress,
// cancellation and allocation failure.
#include <gtest/gtest.h>

#include <array>

#include "filter/convolution.h"
#include "support/filter_harness.h"
#include "support/filter_kernel_reference.h"

using namespace tz3test;

namespace {

using Kernel = std::array<int32_t, 81>;

FilterCall Custom(const Kernel &kernel, int32_t divisor, int32_t bias, int32_t red, int32_t green, int32_t blue) {
    return [=](const DibPair *pair, int32_t kind, const Tz3Point *points, int32_t count, const Tz3Rect *rect,
               int32_t inside, int32_t noDialog) {
        return TZ3CustomFilter(pair, kind, points, count, rect, inside, kernel.data(), divisor, bias, red, green, blue,
                               noDialog, 0, 0, 0);
    };
}

Kernel Identity() {
    Kernel k{};
    k[40] = 1;
    return k;
}

Kernel RandomKernel(std::mt19937 &rng) {
    Kernel k{};
    switch (rng() % 5) {
        case 0:  // dense, small weights
            for (int32_t &v : k) v = static_cast<int32_t>(rng() % 11) - 5;
            break;
        case 1:  // sparse
            for (int n = 0; n < 6; ++n) k[rng() % 81] = static_cast<int32_t>(rng() % 41) - 20;
            break;
        case 2:  // 3 x 3 at the centre
            for (int i = 0; i < 9; ++i) k[(3 + i / 3) * 9 + 3 + i % 3] = static_cast<int32_t>(rng() % 9) - 4;
            break;
        case 3:  // weights large enough for the sums to wrap
            for (int n = 0; n < 10; ++n) k[rng() % 81] = static_cast<int32_t>(rng());
            break;
        default:  // only the outermost ring, four pixels away
            for (int i = 0; i < 9; ++i) {
                k[i] = static_cast<int32_t>(rng() % 7) - 3;
                k[72 + i] = static_cast<int32_t>(rng() % 7) - 3;
                k[i * 9] = static_cast<int32_t>(rng() % 7) - 3;
                k[i * 9 + 8] = static_cast<int32_t>(rng() % 7) - 3;
            }
    }
    return k;
}

// A flag argument: 0, 1, or only upper bits set (which count).
int32_t RandomFlag(std::mt19937 &rng) {
    switch (rng() % 4) {
        case 0: return 0;
        case 1: return 1;
        case 2: return 0x100;
        default: return static_cast<int32_t>(0x80000000u);
    }
}

std::vector<uint8_t> Filtered(const std::vector<uint8_t> &src, const Kernel &k, int32_t divisor, int32_t bias,
                              int32_t r = 1, int32_t g = 1, int32_t b = 1) {
    HandleGuard image(ToBlock(src));
    HandleGuard out(RunOn(Custom(k, divisor, bias, r, g, b), image.h, nullptr, RegionRequest{}));
    EXPECT_NE(out.h, nullptr) << "status " << Tz3GetErrorStatus();
    if (out.h == nullptr) return {};
    return FromBlock(out.h);
}

Selection All(const std::vector<uint8_t> &src) { return SelectionOf(src, RegionRequest{}); }

}  // namespace

TEST(CustomFilter, MatchesTheLiteralRulesOnRandomImagesKernelsAndRegionsInEveryDepth) {
    std::mt19937 rng(4101);
    MatchReferenceOnRandomImagesAndRegions(rng, [](std::mt19937 &r) {
        const Kernel k = RandomKernel(r);
        // Low bytes: the divisor 1..255 under random upper bits, the bias any low byte.
        const int32_t divisor = static_cast<int32_t>((r() & 0xFFFFFF00u) | (1 + r() % 255));
        const int32_t bias = static_cast<int32_t>(r());
        const int32_t red = RandomFlag(r), green = RandomFlag(r), blue = RandomFlag(r);
        const bool on[3] = {blue != 0, green != 0, red != 0};
        return FilterTrial{Custom(k, divisor, bias, red, green, blue),
                           [=](const std::vector<uint8_t> &src, const Selection &s) {
                               return RefCustomFilter(src, s, k.data(), static_cast<uint8_t>(divisor),
                                                      static_cast<uint8_t>(bias), on);
                           },
                           Describe(", divisor bias flags", divisor, bias, red, green, blue)};
    });
}

TEST(CustomFilter, PlainAndVectorSpansGiveTheSameBitsAsTheFormula) {
    std::mt19937 rng(4102);
    for (int trial = 0; trial < 300; ++trial) {
        const int n = 1 + static_cast<int>(rng() % 300);
        const int tapCount = static_cast<int>(rng() % 82);
        std::vector<std::vector<uint8_t>> rows(static_cast<size_t>(tapCount), std::vector<uint8_t>(n));
        std::vector<tz3::TapRow> taps;
        for (auto &row : rows) {
            for (uint8_t &v : row) v = static_cast<uint8_t>(rng() % 3 == 0 ? (rng() % 2) * 255 : rng());
            // Full 32-bit weights, weights around the 16-bit limits, and small ones.
            static const int32_t kEdges[] = {-32768, 32767, -32769, 32768, -1, 1};
            const int32_t weight = trial % 3 == 0   ? static_cast<int32_t>(rng())
                                   : trial % 3 == 1 ? kEdges[rng() % 6]
                                                    : static_cast<int32_t>(rng() % 513) - 256;
            taps.push_back(tz3::TapRow{row.data(), static_cast<uint32_t>(weight)});
        }
        const int divisor = 1 + static_cast<int>(rng() % 255);
        const int bias = static_cast<int>(rng() % 256);
        std::vector<uint8_t> plain(n), vector(n);
        tz3::ConvolveSpan(taps.data(), tapCount, n, divisor, bias, plain.data());
        tz3::ConvolveSpanAvx2(taps.data(), tapCount, n, divisor, bias, vector.data());
        for (int i = 0; i < n; ++i) {
            uint32_t acc = 0;
            for (int t = 0; t < tapCount; ++t) acc += taps[t].weight * rows[t][i];
            const int expected = std::clamp(static_cast<int32_t>(acc) / divisor + bias, 0, 255);
            ASSERT_EQ(plain[i], expected) << "trial " << trial << " at " << i;
            ASSERT_EQ(vector[i], expected) << "trial " << trial << " at " << i;
        }
    }
}

TEST(CustomFilter, AllZeroKernelGivesTheBiasInEachEnabledChannel) {
    std::mt19937 rng(4103);
    for (const FilterFormat f : kFilterFormats) {
        const std::vector<uint8_t> src = RandomFilterSource(rng, f, 7, 5);
        const std::vector<uint8_t> out = Filtered(src, Kernel{}, 3, 77, 1, 0, 1);
        for (int y = 0; y < 5; ++y) {
            for (int x = 0; x < 7; ++x) {
                if (f.bits == 8) {
                    EXPECT_EQ(ChannelValue(out, x, y, 0), 77);  // gray ignores the flags
                } else if (f.bits == 16) {
                    // 77 packs to 9 (of 31) or 19 (of 63); expanded again that is 74 or 76.
                    EXPECT_EQ(ChannelValue(out, x, y, 0), 74) << FormatName(f);
                    EXPECT_EQ(ChannelValue(out, x, y, 2), 74) << FormatName(f);
                } else {
                    EXPECT_EQ(ChannelValue(out, x, y, 0), 77);
                    EXPECT_EQ(ChannelValue(out, x, y, 1), ChannelValue(src, x, y, 1)) << "green is off";
                    EXPECT_EQ(ChannelValue(out, x, y, 2), 77);
                }
            }
        }
    }
}

TEST(CustomFilter, CentreOneGivesTheSourceAtEightTwentyFourAndThirtyTwoBits) {
    std::mt19937 rng(4104);
    for (const FilterFormat f : {kFilterFormats[0], kFilterFormats[3], kFilterFormats[4]}) {
        const std::vector<uint8_t> src = RandomFilterSource(rng, f, 9, 6);
        EXPECT_EQ(Filtered(src, Identity(), 1, 0), ResultTemplate(src)) << FormatName(f);
    }
}

TEST(CustomFilter, CentreOneAtSixteenBitsLowersEveryFiveBitValueButZeroAndThirtyOne) {
    std::vector<uint8_t> src = MakeDibBytes(32, 1, 16);
    for (int c = 0; c < 32; ++c) {
        const int word = c << 10 | c << 5 | c;
        src[40 + 2 * c] = static_cast<uint8_t>(word);
        src[41 + 2 * c] = static_cast<uint8_t>(word >> 8);
    }
    const std::vector<uint8_t> out = Filtered(src, Identity(), 1, 0);
    for (int c = 0; c < 32; ++c) {
        const int expected = c == 0 || c == 31 ? c : c - 1;
        const int word = WordAt(out, 40 + 2 * c);
        EXPECT_EQ(word & 31, expected) << c;
        EXPECT_EQ((word >> 5) & 31, expected) << c;
        EXPECT_EQ((word >> 10) & 31, expected) << c;
    }
}

TEST(CustomFilter, CentreOneKeepsOnlyZeroTwentyOneFortyTwoAndSixtyThreeOfSixBitGreen) {
    std::mt19937 rng(4105);
    std::vector<uint8_t> src = RandomDib(rng, 64, 1, 16, true);
    for (int c = 0; c < 64; ++c) {
        src[52 + 2 * c] = static_cast<uint8_t>(c << 5);
        src[53 + 2 * c] = static_cast<uint8_t>((c << 5) >> 8);
    }
    const std::vector<uint8_t> out = Filtered(src, Identity(), 1, 0);
    for (int c = 0; c < 64; ++c) {
        const bool kept = c == 0 || c == 21 || c == 42 || c == 63;
        EXPECT_EQ((WordAt(out, 52 + 2 * c) >> 5) & 63, kept ? c : c - 1) << c;
    }
}

TEST(CustomFilter, DivisorAndBiasCountByTheirLowByte) {
    std::mt19937 rng(4106);
    const std::vector<uint8_t> src = RandomFilterSource(rng, kFilterFormats[3], 6, 4);
    const bool on[3] = {true, true, true};
    const Selection all = All(src);
    const Kernel k = Identity();
    // Bias 256 is no bias, 300 acts as 44, -1 as 255.
    EXPECT_EQ(Filtered(src, k, 1, 256), Filtered(src, k, 1, 0));
    EXPECT_EQ(Filtered(src, k, 1, 300), RefCustomFilter(src, all, k.data(), 1, 44, on));
    EXPECT_EQ(Filtered(src, k, 1, -1), RefCustomFilter(src, all, k.data(), 1, 255, on));
    // Divisor 258 acts as 2.
    EXPECT_EQ(Filtered(src, k, 258, 0), RefCustomFilter(src, all, k.data(), 2, 0, on));
}

TEST(CustomFilter, DivisorWithLowByteZeroIsRefusedAsABadParameter) {
    std::mt19937 rng(4107);
    for (const FilterFormat f : kFilterFormats) {
        HandleGuard image(ToBlock(RandomFilterSource(rng, f, 4, 4)));
        const size_t live = Tz3LiveBlocks();
        for (int32_t divisor : {0, 256, 512}) {
            EXPECT_EQ(RunOn(Custom(Identity(), divisor, 0, 1, 1, 1), image.h, nullptr, RegionRequest{}), nullptr);
            EXPECT_EQ(Tz3GetErrorStatus(), 5) << FormatName(f) << " divisor " << divisor;
        }
        EXPECT_EQ(Tz3LiveBlocks(), live);
        EXPECT_TRUE(IsUnlocked(image.h));
    }
}

TEST(CustomFilter, MissingKernelIsRefusedAsABadParameter) {
    std::mt19937 rng(4108);
    HandleGuard image(ToBlock(RandomDib(rng, 4, 4, 24)));
    const DibPair pair{image.h, nullptr};
    EXPECT_EQ(TZ3CustomFilter(&pair, 1, nullptr, 0, nullptr, 1, nullptr, 1, 0, 1, 1, 1, 1, 0, 0, 0), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 5);
    // The format test comes first.
    HandleGuard colour(ToBlock(RandomDib(rng, 4, 4, 4)));
    const DibPair colourPair{colour.h, nullptr};
    EXPECT_EQ(TZ3CustomFilter(&colourPair, 1, nullptr, 0, nullptr, 1, nullptr, 0, 0, 1, 1, 1, 1, 0, 0, 0), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
}

TEST(CustomFilter, NegativeSumTruncatesTowardZeroBeforeTheBiasAndClamp) {
    // One pixel of level 1 and weight -1: sum -1, / 2 is 0 (not -1), + bias.
    std::vector<uint8_t> src = MakeDibBytes(1, 1, 24);
    src[40] = src[41] = src[42] = 1;
    Kernel k{};
    k[40] = -1;
    std::vector<uint8_t> out = Filtered(src, k, 2, 5);
    EXPECT_EQ(out[40], 5);
    EXPECT_EQ(out[42], 5);
    // Sum -3 / 2 is -1, + bias 0 clamps to 0.
    src[40] = src[41] = src[42] = 3;
    out = Filtered(src, k, 2, 0);
    EXPECT_EQ(out[40], 0);
    out = Filtered(src, k, 2, 3);
    EXPECT_EQ(out[40], 2);
}

TEST(CustomFilter, CornerTapFourPixelsOutsideReadsTheCornerWithItsWeight) {
    std::vector<uint8_t> src = MakeDibBytes(3, 3, 24);
    for (size_t i = 40; i < src.size(); ++i) src[i] = 10;
    // Pixel (0, 0), bottom left, is 30 in blue.
    src[40] = 30;
    Kernel k{};
    k[8 * 9 + 0] = 2;  // row 8, column 0: four rows below and four columns left of the pixel
    const std::vector<uint8_t> out = Filtered(src, k, 1, 0);
    EXPECT_EQ(ChannelValue(out, 0, 0, 0), 60);
    EXPECT_EQ(ChannelValue(out, 2, 2, 0), 60) << "the whole image lies up and right of its taps";
    EXPECT_EQ(ChannelValue(out, 2, 2, 1), 20);
}

TEST(CustomFilter, KernelReadsAsOnPaperRowZeroIsAboveThePixel) {
    // A picture with one bright pixel at the top: a weight in kernel row 3 (one row above the
    // centre) moves its brightness one row down.
    std::mt19937 rng(4113);
    std::vector<uint8_t> src = GrayDib(3, 3, GrayLevels(0, rng));
    const size_t at = PixelOffset(src);
    src[at + 2 * RowBytes(8, 3) + 1] = 200;  // top row (bottom-up row 2), middle column
    Kernel k{};
    k[3 * 9 + 4] = 1;
    const std::vector<uint8_t> out = Filtered(src, k, 1, 0);
    EXPECT_EQ(out[at + 1 * RowBytes(8, 3) + 1], 200);
    EXPECT_EQ(out[at + 0 * RowBytes(8, 3) + 1], 0);
    EXPECT_EQ(out[at + 2 * RowBytes(8, 3) + 1], 200) << "the top row reads itself again, clamped";
}

TEST(CustomFilter, ReversedGrayRampGivesTheSamePicture) {
    std::mt19937 rng(4109);
    std::vector<uint8_t> normal = GrayDib(8, 5, GrayLevels(0, rng));
    std::vector<uint8_t> reversed = GrayDib(8, 5, GrayLevels(1, rng));
    for (size_t i = PixelOffset(normal); i < normal.size(); ++i) {
        normal[i] = static_cast<uint8_t>(rng());
        reversed[i] = static_cast<uint8_t>(255 - normal[i]);
    }
    const Kernel k = RandomKernel(rng);
    const std::vector<uint8_t> a = Filtered(normal, k, 3, 9), b = Filtered(reversed, k, 3, 9);
    for (int y = 0; y < 5; ++y) {
        for (int x = 0; x < 8; ++x) EXPECT_EQ(ChannelValue(a, x, y, 0), ChannelValue(b, x, y, 0));
    }
}

TEST(CustomFilter, AllFlagsClearKeepsTwentyFourAndThirtyTwoBitsAndRepacksSixteen) {
    std::mt19937 rng(4110);
    for (const FilterFormat f : {kFilterFormats[1], kFilterFormats[2], kFilterFormats[3], kFilterFormats[4]}) {
        const std::vector<uint8_t> src = RandomFilterSource(rng, f, 7, 3);
        const std::vector<uint8_t> out = Filtered(src, RandomKernel(rng), 1, 9, 0, 0, 0);
        if (f.bits == 16) {
            const bool off[3] = {false, false, false};
            EXPECT_EQ(out, RefCustomFilter(src, All(src), Identity().data(), 1, 0, off));
            EXPECT_NE(out, ResultTemplate(src)) << "expansion and packing lose levels";
        } else {
            EXPECT_EQ(out, ResultTemplate(src)) << FormatName(f);
        }
    }
}

TEST(CustomFilter, BoxInsideTheImageReadsNeighboursOutsideIt) {
    std::mt19937 rng(4111);
    for (const FilterFormat f : kFilterFormats) {
        const std::vector<uint8_t> src = RandomFilterSource(rng, f, 12, 10);
        const Kernel k = RandomKernel(rng);
        const RegionRequest box = RectangleRegion(4, 3, 7, 6);
        HandleGuard image(ToBlock(src));
        HandleGuard out(RunOn(Custom(k, 2, 3, 1, 1, 1), image.h, nullptr, box));
        ASSERT_NE(out.h, nullptr);
        const bool on[3] = {true, true, true};
        EXPECT_EQ(FromBlock(out.h), RefCustomFilter(src, SelectionOf(src, box), k.data(), 2, 3, on)) << FormatName(f);
    }
}

TEST(CustomFilter, ProgressCancellationAllocationFailureAndStatuses) {
    std::mt19937 rng(4112);
    const FilterCall call = Custom(RandomKernel(rng), 3, 1, 1, 1, 1);
    ExpectProgressOverEveryBoxRow(rng, call);
    CancelAtEveryProgressCallInEveryDepth(rng, call);
    FailEveryAllocationInEveryDepthAndKind(rng, call);
    ExpectRefusedFormats(rng, call);
    ExpectFrameStatuses(rng, call);
}
