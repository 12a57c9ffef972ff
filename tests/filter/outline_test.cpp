// TZ3Outline against a literal transcription of the gradient on random images of every accepted
// depth with random regions, channels, operators and gains; flat images, the clamp of a strong
// edge, the edge of the image, the low bytes of every parameter, the 16-bit store, and the frame's
// statuses, progress, cancellation and allocation failure.
#include <gtest/gtest.h>

#include <thread>

#include "support/filter_harness.h"
#include "support/window_filter_reference.h"

using namespace tz3test;

namespace {

FilterCall Outline(int32_t channel, int32_t op, int32_t gain) {
    return [=](const DibPair *pair, int32_t kind, const Tz3Point *points, int32_t count, const Tz3Rect *rect,
               int32_t inside, int32_t noDialog) {
        return TZ3Outline(pair, kind, points, count, rect, inside, channel, op, gain, noDialog, 0, 0, 0);
    };
}

PixelSelected FromSelection(const Selection &s) {
    return [s](int x, int y) { return s(x, y); };
}

Bytes Outlined(const Bytes &src, int32_t channel, int32_t op, int32_t gain) {
    HandleGuard image(ToBlock(src));
    HandleGuard out(RunOn(Outline(channel, op, gain), image.h, nullptr, RegionRequest{}));
    EXPECT_NE(out.h, nullptr) << "status " << Tz3GetErrorStatus();
    return out.h == nullptr ? Bytes{} : FromBlock(out.h);
}

// A 24-bit image of one colour.
Bytes Flat24(int width, int height, uint8_t r, uint8_t g, uint8_t b) {
    Bytes d = MakeDibBytes(width, height, 24);
    const size_t stride = RowBytes(24, width);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            d[40 + stride * y + 3 * x] = b;
            d[41 + stride * y + 3 * x] = g;
            d[42 + stride * y + 3 * x] = r;
        }
    }
    return d;
}

// A 24-bit gray image whose column x holds value(x) in every row.
template <class Value>
Bytes Columns24(int width, int height, Value value) {
    Bytes d = MakeDibBytes(width, height, 24);
    const size_t stride = RowBytes(24, width);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const auto v = static_cast<uint8_t>(value(x));
            d[40 + stride * y + 3 * x] = d[41 + stride * y + 3 * x] = d[42 + stride * y + 3 * x] = v;
        }
    }
    return d;
}

int Blue(const Bytes &d, int x, int y) {
    return d[40 + RowBytes(24, ImageWidth(d)) * y + 3 * x];
}

const int32_t kChannelArgs[] = {0, 1, 2, 3, 4, 255, 256, 257, -1};
const int32_t kOperatorArgs[] = {0, 1, 2, 3, 255, 256, 258, -2};
const int32_t kGainArgs[] = {0, 1, 2, 3, 7, 50, 100, 101, 255, 256, 257, 356};

}  // namespace

TEST(Outline, MatchesLiteralGradientOnRandomImagesRegionsAndSettings) {
    std::mt19937 rng(7001);
    MatchReferenceOnRandomImagesAndRegions(rng, [](std::mt19937 &r) {
        const int32_t channel = kChannelArgs[r() % std::size(kChannelArgs)];
        const int32_t op = kOperatorArgs[r() % std::size(kOperatorArgs)];
        const int32_t gain = kGainArgs[r() % std::size(kGainArgs)];
        FilterTrial trial;
        trial.call = Outline(channel, op, gain);
        trial.reference = [=](const Bytes &src, const Selection &selected) {
            return RefOutline(src, WholeBox(src), FromSelection(selected), channel, op, gain);
        };
        trial.settings = Describe(", channel operator gain", channel, op, gain);
        return trial;
    });
}

TEST(Outline, MatchesLiteralGradientOnLargerImages) {
    std::mt19937 rng(7002);
    for (const FilterFormat f : kFilterFormats) {
        for (int32_t op : {0, 1, 2}) {
            for (int32_t channel : {0, 1, 2, 3}) {
                const int width = 10 + static_cast<int>(rng() % 40),
                          height = 10 + static_cast<int>(rng() % 40);
                const Bytes src = RandomFilterSource(rng, f, width, height);
                const RegionRequest region = RandomRegion(rng, width, height);
                HandleGuard image(ToBlock(src));
                HandleGuard mask(region.kind == 0 ? ToBlock(region.mask) : nullptr);
                const int32_t gain = 1 + static_cast<int32_t>(rng() % 4);
                HandleGuard out(RunOn(Outline(channel, op, gain), image.h, mask.h, region));
                ASSERT_NE(out.h, nullptr);
                ASSERT_EQ(FromBlock(out.h),
                          RefOutline(src, WholeBox(src), FromSelection(SelectionOf(src, region)), channel, op,
                                     gain))
                    << FormatName(f) << " operator " << op << " channel " << channel << region.Describe();
                ExpectCallerBlocksUnchanged(image.h, src, mask.h);
            }
        }
    }
}

TEST(Outline, FlatImageIsBlackWithEveryOperator) {
    const Bytes src = Flat24(7, 5, 250, 240, 230);
    for (int32_t op : {0, 1, 2, 3}) {
        const Bytes out = Outlined(src, 0, op, 100);
        ASSERT_FALSE(out.empty());
        for (size_t i = 40; i < out.size(); ++i) ASSERT_EQ(out[i], 0) << "operator " << op << " byte " << i;
    }
}

TEST(Outline, GainZeroIsBlack) {
    std::mt19937 rng(7003);
    const Bytes out = Outlined(RandomDib(rng, 9, 6, 24), 0, 2, 0);
    ASSERT_FALSE(out.empty());
    for (int y = 0; y < 6; ++y) {
        for (int x = 0; x < 9; ++x) {
            for (int c = 0; c < 3; ++c) ASSERT_EQ(ChannelValue(out, x, y, c), 0) << x << "," << y;
        }
    }
}

TEST(Outline, SobelAtGainOneClampsAStrongVerticalEdge) {
    // Columns 0..2 black, 3..5 white: at x = 2 the raw gradient is 4 x 255 = 1020.
    const Bytes out = Outlined(Columns24(6, 4, [](int x) { return x < 3 ? 0 : 255; }), 1, 2, 1);
    EXPECT_EQ(Blue(out, 2, 1), 255);
    EXPECT_EQ(Blue(out, 3, 1), 255);
    EXPECT_EQ(Blue(out, 0, 1), 0);
}

TEST(Outline, EdgeColumnsClampTheirTaps) {
    // A ramp of 10 per column: Sobel inside gives 4 x 20 = 80, in the last column the right taps
    // read the column itself, 4 x 10 = 40.
    const Bytes ramp = Columns24(6, 4, [](int x) { return 10 * x; });
    const Bytes sobel = Outlined(ramp, 1, 2, 1);
    EXPECT_EQ(Blue(sobel, 2, 1), 80);
    EXPECT_EQ(Blue(sobel, 5, 1), 40);
    EXPECT_EQ(Blue(sobel, 0, 1), 40);
    // The neighbour difference looks right and down: no gradient leaves the image at the right.
    const Bytes diff = Outlined(ramp, 1, 0, 1);
    EXPECT_EQ(Blue(diff, 2, 1), 10);
    EXPECT_EQ(Blue(diff, 5, 1), 0);
}

TEST(Outline, OperatorOneAndOtherValuesAreTheRobertsCross) {
    std::mt19937 rng(7004);
    const Bytes src = RandomDib(rng, 11, 7, 24);
    const Bytes roberts = Outlined(src, 0, 1, 3);
    for (int32_t op : {3, 255, 257, 1000}) EXPECT_EQ(Outlined(src, 0, op, 3), roberts) << op;
    EXPECT_NE(Outlined(src, 0, 0, 3), roberts);
    EXPECT_NE(Outlined(src, 0, 2, 3), roberts);
    EXPECT_EQ(Outlined(src, 0, 256, 3), Outlined(src, 0, 0, 3));
    EXPECT_EQ(Outlined(src, 0, 258, 3), Outlined(src, 0, 2, 3));
}

TEST(Outline, GainCountsByItsLowByteUpToOneHundred) {
    std::mt19937 rng(7005);
    const Bytes src = RandomDib(rng, 8, 8, 24);
    const Bytes hundred = Outlined(src, 2, 0, 100);
    EXPECT_EQ(Outlined(src, 2, 0, 101), hundred);
    EXPECT_EQ(Outlined(src, 2, 0, 255), hundred);
    EXPECT_EQ(Outlined(src, 2, 0, 356), hundred);
    EXPECT_EQ(Outlined(src, 2, 0, 257), Outlined(src, 2, 0, 1));
}

TEST(Outline, ChannelIsNotLookedAtForGrayImages) {
    std::mt19937 rng(7006);
    const Bytes src = RandomFilterSource(rng, FilterFormat{8, false}, 9, 7);
    const Bytes luma = Outlined(src, 0, 2, 1);
    for (int32_t channel : {1, 3, 4, 200}) EXPECT_EQ(Outlined(src, channel, 2, 1), luma) << channel;
}

TEST(Outline, ChannelSelectsRedGreenOrBlue) {
    // Only green varies: channels 1 and 3 see nothing, 2 sees the edge.
    Bytes src = Flat24(6, 3, 40, 0, 90);
    const size_t stride = RowBytes(24, 6);
    for (int y = 0; y < 3; ++y) src[40 + stride * y + 3 * 3 + 1] = 200;
    EXPECT_EQ(Blue(Outlined(src, 1, 0, 1), 2, 1), 0);
    EXPECT_EQ(Blue(Outlined(src, 3, 0, 1), 2, 1), 0);
    EXPECT_EQ(Blue(Outlined(src, 2, 0, 1), 2, 1), 200);
}

TEST(Outline, ChannelAboveThreeMakesSelectedPixelsBlack) {
    std::mt19937 rng(7007);
    for (const FilterFormat f : kFilterFormats) {
        if (f.bits == 8) continue;
        const Bytes src = RandomFilterSource(rng, f, 7, 5);
        const Bytes out = Outlined(src, 4, 2, 100);
        ASSERT_FALSE(out.empty());
        for (int y = 0; y < 5; ++y) {
            for (int x = 0; x < 7; ++x) {
                for (int c = 0; c < 3; ++c) EXPECT_EQ(ChannelValue(out, x, y, c), 0) << FormatName(f);
            }
        }
    }
}

TEST(Outline, SixteenBitResultFillsEveryFieldAndSixBitGreenAtFiveSixFive) {
    // Two 5-6-5 pixels: red 0 and red 31; channel 1 with operator 0 at gain 1 gives 255 at x = 0.
    Bytes src = MakeDibBytes(2, 1, 16, 3);
    src[16] = 3;
    const uint32_t masks[3] = {0xF800, 0x07E0, 0x001F};
    std::memcpy(&src[40], masks, 12);
    src[54] = 0x00;
    src[55] = 0xF8;
    const Bytes out = Outlined(src, 1, 0, 1);
    EXPECT_EQ(WordAt(out, 52), 0xFFFF);
    // Gain 2 at a difference of 8 (5-bit 1 expands to 8) gives 16: 16 x 31 / 255 = 1, 16 x 63 / 255 = 3.
    src[54] = 0x00;
    src[55] = 0x08;
    const Bytes weak = Outlined(src, 1, 0, 2);
    EXPECT_EQ(WordAt(weak, 52), (1 << 11) | (3 << 5) | 1);
}

TEST(Outline, MaskLeavesUnselectedPixelsInColour) {
    std::mt19937 rng(7008);
    const Bytes src = RandomDib(rng, 8, 6, 24);
    const Bytes mask = RectMask(8, 6, 2, 1, 5, 4, true);
    HandleGuard image(ToBlock(src));
    HandleGuard maskBlock(ToBlock(mask));
    RegionRequest region;
    region.kind = 0;
    HandleGuard out(RunOn(Outline(0, 2, 1), image.h, maskBlock.h, region));
    ASSERT_NE(out.h, nullptr);
    const Bytes result = FromBlock(out.h);
    const size_t stride = RowBytes(24, 8);
    for (int y = 0; y < 6; ++y) {
        for (int x = 0; x < 8; ++x) {
            const size_t at = 40 + stride * y + 3 * x;
            const bool inside = x >= 2 && x <= 5 && y >= 1 && y <= 4;
            if (inside) {
                EXPECT_TRUE(result[at] == result[at + 1] && result[at] == result[at + 2]) << x << "," << y;
            } else {
                EXPECT_TRUE(std::equal(&result[at], &result[at + 3], &src[at])) << x << "," << y;
            }
        }
    }
}

TEST(Outline, ProgressAfterEveryBoxRow) {
    std::mt19937 rng(7009);
    ExpectProgressOverEveryBoxRow(rng, Outline(0, 2, 1));
}

TEST(Outline, CancelAtEveryProgressCallLeavesNothingBehind) {
    std::mt19937 rng(7010);
    CancelAtEveryProgressCallInEveryDepth(rng, Outline(0, 2, 1));
}

TEST(Outline, FailureOfEveryAllocationLeavesNothingBehind) {
    std::mt19937 rng(7011);
    FailEveryAllocationInEveryDepthAndKind(rng, Outline(1, 0, 1));
}

TEST(Outline, RefusesPaletteAndUnusableFormatsWithStatusSeven) {
    std::mt19937 rng(7012);
    ExpectRefusedFormats(rng, Outline(0, 2, 1));
}

TEST(Outline, FrameStatuses) {
    std::mt19937 rng(7013);
    ExpectFrameStatuses(rng, Outline(0, 2, 1));
}

TEST(Outline, SeveralThreadsAtOnceGiveTheResultsOfOne) {
    // No state is kept between calls: four threads filtering their own images agree with one.
    std::mt19937 rng(4242);
    std::vector<Bytes> sources, expected;
    for (int i = 0; i < 4; ++i) {
        sources.push_back(RandomDib(rng, 40 + i, 30, i % 2 == 0 ? 24 : 32));
        HandleGuard image(ToBlock(sources.back()));
        HandleGuard out(RunOn(Outline(0, 2, 2), image.h, nullptr, RegionRequest{}));
        expected.push_back(FromBlock(out.h));
    }
    std::vector<int> mismatches(4, 0);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&, i] {
            for (int round = 0; round < 5; ++round) {
                HandleGuard image(ToBlock(sources[i]));
                HandleGuard out(RunOn(Outline(0, 2, 2), image.h, nullptr, RegionRequest{}));
                if (out.h == nullptr || FromBlock(out.h) != expected[i]) ++mismatches[i];
            }
        });
    }
    for (std::thread &t : threads) t.join();
    EXPECT_EQ(mismatches, std::vector<int>(4, 0));
}
