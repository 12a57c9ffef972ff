// TZ3RemoveNoise against plain bubble sorts over the cut window on random images of every accepted
// depth with random regions, methods and levels; the comparator networks on every input of zeros
// and ones; the threshold's ends, the methods that copy, a bright dot, corners, the stable order
// of equal lumas, the 8-bit asymmetry, and the frame's statuses, progress, cancellation and
// allocation failure.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <thread>

#include "filter/small_median.h"
#include "support/filter_harness.h"
#include "support/window_filter_reference.h"

using namespace tz3test;

namespace {

FilterCall RemoveNoise(int32_t method, int32_t level) {
    return [=](const DibPair *pair, int32_t kind, const Tz3Point *points, int32_t count, const Tz3Rect *rect,
               int32_t inside, int32_t noDialog) {
        return TZ3RemoveNoise(pair, kind, points, count, rect, inside, method, level, noDialog, 0, 0, 0);
    };
}

PixelSelected FromSelection(const Selection &s) {
    return [s](int x, int y) { return s(x, y); };
}

Bytes Cleaned(const Bytes &src, int32_t method, int32_t level) {
    HandleGuard image(ToBlock(src));
    HandleGuard out(RunOn(RemoveNoise(method, level), image.h, nullptr, RegionRequest{}));
    EXPECT_NE(out.h, nullptr) << "status " << Tz3GetErrorStatus();
    return out.h == nullptr ? Bytes{} : FromBlock(out.h);
}

// The caller's bytes with biSizeImage as a clone writes it.
Bytes AsCloned(const Bytes &src) {
    Bytes out = src;
    SetField32(out, 20, RowBytes(src[14], ImageWidth(src)) * static_cast<uint32_t>(ImageHeight(src)));
    return out;
}

size_t At24(int width, int x, int y) {
    return 40 + RowBytes(24, width) * y + 3 * static_cast<size_t>(x);
}

Bytes Flat24(int width, int height, uint8_t v) {
    Bytes d = MakeDibBytes(width, height, 24);
    for (size_t i = 40; i < d.size(); ++i) d[i] = v;
    return d;
}

const int32_t kMethodArgs[] = {0, 0, 1, 1, 2, 255, 256, 257, -1};
const int32_t kLevelArgs[] = {0, 1, 100, 200, 254, 255, 256, 511, -1};

}  // namespace

TEST(RemoveNoise, ComparatorNetworksPickTheMedianOfEveryZeroOneInput) {
    // A comparator network that picks the right element for every input of zeros and ones picks
    // it for every input.
    for (int bits = 0; bits < 512; ++bits) {
        int v[9];
        for (int i = 0; i < 9; ++i) v[i] = (bits >> i) & 1;
        int sorted[9];
        std::copy(v, v + 9, sorted);
        std::sort(sorted, sorted + 9);
        ASSERT_EQ(tz3::MedianOfNine(v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7], v[8]), sorted[4]) << bits;
    }
    for (int bits = 0; bits < 256; ++bits) {
        int v[8];
        for (int i = 0; i < 8; ++i) v[i] = (bits >> i) & 1;
        int sorted[8];
        std::copy(v, v + 8, sorted);
        std::sort(sorted, sorted + 8);
        ASSERT_EQ(tz3::FifthOfEight(v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7]), sorted[4]) << bits;
    }
}

TEST(RemoveNoise, MatchesPlainSortsOnRandomImagesRegionsAndSettings) {
    std::mt19937 rng(8001);
    MatchReferenceOnRandomImagesAndRegions(rng, [](std::mt19937 &r) {
        const int32_t method = kMethodArgs[r() % std::size(kMethodArgs)];
        const int32_t level = kLevelArgs[r() % std::size(kLevelArgs)];
        FilterTrial trial;
        trial.call = RemoveNoise(method, level);
        trial.reference = [=](const Bytes &src, const Selection &selected) {
            return RefRemoveNoise(src, WholeBox(src), FromSelection(selected), method, level);
        };
        trial.settings = Describe(", method level", method, level);
        return trial;
    });
}

TEST(RemoveNoise, MatchesPlainSortsOnLargerImagesWithFewValues) {
    // Few distinct values make many equal lumas and equal channels, so the stable order matters.
    std::mt19937 rng(8002);
    for (const FilterFormat f : kFilterFormats) {
        for (int32_t method : {0, 1}) {
            for (int round = 0; round < 3; ++round) {
                const int width = 10 + static_cast<int>(rng() % 40),
                          height = 10 + static_cast<int>(rng() % 30);
                Bytes src = RandomFilterSource(rng, f, width, height);
                if (round == 2) {
                    for (size_t i = PixelOffset(src); i < src.size(); ++i)
                        src[i] = static_cast<uint8_t>(src[i] & 0xC1);
                }
                const RegionRequest region = round == 0 ? RegionRequest{} : RandomRegion(rng, width, height);
                const int32_t level = static_cast<int32_t>(rng() % 256);
                HandleGuard image(ToBlock(src));
                HandleGuard mask(region.kind == 0 ? ToBlock(region.mask) : nullptr);
                HandleGuard out(RunOn(RemoveNoise(method, level), image.h, mask.h, region));
                ASSERT_NE(out.h, nullptr);
                ASSERT_EQ(FromBlock(out.h),
                          RefRemoveNoise(src, WholeBox(src), FromSelection(SelectionOf(src, region)), method,
                                         level))
                    << FormatName(f) << " method " << method << " level " << level << region.Describe();
                ExpectCallerBlocksUnchanged(image.h, src, mask.h);
            }
        }
    }
}

TEST(RemoveNoise, BoxesWithoutMaskMatchPlainSortsOnWideRows) {
    // Boxes without a mask (the whole image, or a rectangle inside it) write whole runs of a row at
    // once, over rows several vector groups wide; equal lumas and equal channels are made common by
    // keeping few bits of each byte.
    std::mt19937 rng(8006);
    for (const FilterFormat f : kFilterFormats) {
        for (int round = 0; round < 8; ++round) {
            const int32_t method = round / 4;
            const int32_t level = static_cast<int32_t>(rng() % 256);
            const int width = 60 + static_cast<int>(rng() % 150), height = 3 + static_cast<int>(rng() % 8);
            Bytes src = RandomFilterSource(rng, f, width, height);
            if (round % 2 == 1) {
                for (size_t i = PixelOffset(src); i < src.size(); ++i) src[i] = static_cast<uint8_t>(src[i] & 0x83);
            }
            RegionRequest region;
            if (round % 4 >= 2) {
                region.kind = 3;
                const int32_t left = static_cast<int32_t>(rng() % 5), top = static_cast<int32_t>(rng() % 2);
                region.rect = Tz3Rect{left, top, width - static_cast<int32_t>(rng() % 5), height - 1};
            }
            HandleGuard image(ToBlock(src));
            HandleGuard out(RunOn(RemoveNoise(method, level), image.h, nullptr, region));
            ASSERT_NE(out.h, nullptr);
            ASSERT_EQ(FromBlock(out.h),
                      RefRemoveNoise(src, WholeBox(src), FromSelection(SelectionOf(src, region)), method, level))
                << FormatName(f) << " method " << method << " level " << level << " width " << width
                << region.Describe();
            ExpectCallerBlocksUnchanged(image.h, src, nullptr);
        }
    }
}

TEST(RemoveNoise, LevelTwoFiftyFiveReplacesEveryChannelWithADifferingNeighbour) {
    // t = 0: a pixel of 10 among neighbours of 10 and one of 11 is flagged; the fifth of the eight
    // sorted neighbours is 10.
    Bytes src = Flat24(3, 3, 10);
    src[At24(3, 0, 0)] = 11;
    const Bytes out = Cleaned(src, 1, 255);
    EXPECT_EQ(out[At24(3, 1, 1)], 10);
    // A single differing neighbour above the middle: 9 among 10s is flagged and the median is 10.
    Bytes dip = Flat24(3, 3, 10);
    dip[At24(3, 1, 1)] = 9;
    EXPECT_EQ(Cleaned(dip, 1, 255)[At24(3, 1, 1)], 10);
    EXPECT_EQ(Cleaned(dip, 1, 254)[At24(3, 1, 1)], 9);  // t = 1: a difference of 1 is not more
}

TEST(RemoveNoise, LevelZeroChangesNothingAtAnyDepth) {
    std::mt19937 rng(8003);
    for (const FilterFormat f : kFilterFormats) {
        const Bytes src = RandomFilterSource(rng, f, 9, 7);
        EXPECT_EQ(Cleaned(src, 1, 0), AsCloned(src)) << FormatName(f);
        EXPECT_EQ(Cleaned(src, 1, 256), AsCloned(src)) << FormatName(f);
    }
}

TEST(RemoveNoise, OtherMethodsReturnACopyWithoutProgress) {
    std::mt19937 rng(8004);
    for (const FilterFormat f : kFilterFormats) {
        const Bytes src = RandomFilterSource(rng, f, 6, 5);
        for (int32_t method : {2, 3, 255, 258, -1}) {
            HandleGuard image(ToBlock(src));
            ProgressRecorder progress;
            HandleGuard out(RunOn(RemoveNoise(method, 200), image.h, nullptr, RegionRequest{}, 0));
            ASSERT_NE(out.h, nullptr);
            EXPECT_EQ(Tz3GetErrorStatus(), 0);
            EXPECT_EQ(FromBlock(out.h), AsCloned(src)) << FormatName(f) << " method " << method;
            EXPECT_TRUE(progress.calls.empty());
        }
    }
}

TEST(RemoveNoise, MethodCountsByItsLowByte) {
    std::mt19937 rng(8005);
    const Bytes src = RandomDib(rng, 9, 8, 24);
    EXPECT_EQ(Cleaned(src, 256, 0), Cleaned(src, 0, 0));
    EXPECT_EQ(Cleaned(src, 257, 200), Cleaned(src, 1, 200));
    EXPECT_EQ(Cleaned(src, 1, 456), Cleaned(src, 1, 200));  // level's low byte too
    EXPECT_NE(Cleaned(src, 0, 0), AsCloned(src));
}

TEST(RemoveNoise, BothMethodsRemoveASingleBrightPixel) {
    for (int32_t method : {0, 1}) {
        Bytes src = Flat24(5, 5, 40);
        for (int k = 0; k < 3; ++k) src[At24(5, 2, 2) + k] = 250;
        EXPECT_EQ(Cleaned(src, method, 128), AsCloned(Flat24(5, 5, 40))) << "method " << method;
    }
}

TEST(RemoveNoise, CornerTakesTheThirdOfFourNotAMean) {
    // Gray ramp in order, corner window of levels 10, 20 (bottom row) and 30, 200 (next row): the
    // sorted list is 10 20 30 200 and position 2 is 30.
    std::mt19937 rng(1);
    Bytes src = GrayDib(3, 3, GrayLevels(0, rng));
    const size_t stride = RowBytes(8, 3);
    const size_t at = PixelOffset(src);
    src[at + 0] = 10;
    src[at + 1] = 20;
    src[at + stride] = 30;
    src[at + stride + 1] = 200;
    EXPECT_EQ(Cleaned(src, 0, 0)[at], 30);
}

TEST(RemoveNoise, SelectiveCentreTakesNoPartInTheSort) {
    // Eight neighbours of 50 around 10 with t reached: the pixel becomes 50, however far it was.
    Bytes src = Flat24(3, 3, 50);
    for (int k = 0; k < 3; ++k) src[At24(3, 1, 1) + k] = 10;
    EXPECT_EQ(Cleaned(src, 1, 255)[At24(3, 1, 1)], 50);
}

TEST(RemoveNoise, NineEqualLumasTakeTheMiddlePixelItself) {
    // Nine different colours of one luma: the stable sort keeps the walking order, and the middle
    // pixel is the fifth of the walk.
    std::vector<std::array<uint8_t, 3>> colours;
    const int target = RefLuma(100, 120, 140);
    for (int r = 0; r < 256 && colours.size() < 9; r += 7) {
        for (int b = 0; b < 256 && colours.size() < 9; b += 11) {
            for (int g = 0; g < 256; ++g) {
                if (RefLuma(r, g, b) == target) {
                    colours.push_back(
                        {static_cast<uint8_t>(b), static_cast<uint8_t>(g), static_cast<uint8_t>(r)});
                    break;
                }
            }
        }
    }
    ASSERT_EQ(colours.size(), 9u);
    Bytes src = MakeDibBytes(3, 3, 24);
    for (int i = 0; i < 9; ++i) std::copy(colours[i].begin(), colours[i].end(), &src[At24(3, i % 3, i / 3)]);
    const Bytes out = Cleaned(src, 0, 0);
    EXPECT_TRUE(std::equal(&out[At24(3, 1, 1)], &out[At24(3, 1, 1)] + 3, colours[4].begin()));
    // The corner (0, 0) has four of them: position 2 of the walk is (0, 1).
    EXPECT_TRUE(std::equal(&out[At24(3, 0, 0)], &out[At24(3, 0, 0)] + 3, colours[3].begin()));
}

TEST(RemoveNoise, PlainMedianAtEightBitsWritesTheLevelAsTheIndex) {
    // A reversed ramp: index i holds level 255 - i. A flat field of index 5 (level 250) stays level
    // 250 by its median, and the byte written is 250, the level's number, not index 5.
    std::mt19937 rng(1);
    Bytes src = GrayDib(3, 3, GrayLevels(1, rng));
    const size_t at = PixelOffset(src);
    for (size_t i = at; i < src.size(); ++i) src[i] = 5;
    const Bytes plain = Cleaned(src, 0, 0);
    EXPECT_EQ(plain[at + RowBytes(8, 3) + 1], 250);
    // The selective median stores through the table: a flagged level 250 is written as index 5.
    src[at + RowBytes(8, 3) + 1] = 100;
    const Bytes selective = Cleaned(src, 1, 255);
    EXPECT_EQ(selective[at + RowBytes(8, 3) + 1], 5);
}

TEST(RemoveNoise, SixteenBitPlainMedianCopiesTheWordWithoutLoss) {
    // A 5-5-5 word of odd channels in a field of another: the field's word comes back exactly,
    // without passing through expansion and packing.
    Bytes src = MakeDibBytes(3, 3, 16);
    const size_t stride = RowBytes(16, 3);
    for (int y = 0; y < 3; ++y) {
        for (int x = 0; x < 3; ++x) {
            src[40 + stride * y + 2 * x] = 0x35;
            src[41 + stride * y + 2 * x] = 0x8D;  // bit 15 set too
        }
    }
    src[40 + stride + 2] = 0xFF;
    src[41 + stride + 2] = 0x7F;
    const Bytes out = Cleaned(src, 0, 0);
    EXPECT_EQ(WordAt(out, 40 + stride + 2), 0x8D35);
}

TEST(RemoveNoise, ProgressAfterEveryBoxRow) {
    std::mt19937 rng(8006);
    ExpectProgressOverEveryBoxRow(rng, RemoveNoise(0, 0));
    ExpectProgressOverEveryBoxRow(rng, RemoveNoise(1, 200));
}

TEST(RemoveNoise, CancelAtEveryProgressCallLeavesNothingBehind) {
    std::mt19937 rng(8007);
    CancelAtEveryProgressCallInEveryDepth(rng, RemoveNoise(0, 0));
    CancelAtEveryProgressCallInEveryDepth(rng, RemoveNoise(1, 255));
}

TEST(RemoveNoise, FailureOfEveryAllocationLeavesNothingBehind) {
    std::mt19937 rng(8008);
    FailEveryAllocationInEveryDepthAndKind(rng, RemoveNoise(0, 0));
    FailEveryAllocationInEveryDepthAndKind(rng, RemoveNoise(1, 255));
    FailEveryAllocationInEveryDepthAndKind(rng, RemoveNoise(2, 255));
}

TEST(RemoveNoise, RefusesPaletteAndUnusableFormatsWithStatusSeven) {
    std::mt19937 rng(8009);
    ExpectRefusedFormats(rng, RemoveNoise(0, 0));
}

TEST(RemoveNoise, FrameStatuses) {
    std::mt19937 rng(8010);
    ExpectFrameStatuses(rng, RemoveNoise(1, 100));
}

TEST(RemoveNoise, SeveralThreadsAtOnceGiveTheResultsOfOne) {
    // No state is kept between calls: four threads filtering their own images agree with one.
    std::mt19937 rng(4242);
    std::vector<Bytes> sources, expected;
    for (int i = 0; i < 4; ++i) {
        sources.push_back(RandomDib(rng, 40 + i, 30, i % 2 == 0 ? 24 : 32));
        HandleGuard image(ToBlock(sources.back()));
        HandleGuard out(RunOn(RemoveNoise(0, 0), image.h, nullptr, RegionRequest{}));
        expected.push_back(FromBlock(out.h));
    }
    std::vector<int> mismatches(4, 0);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&, i] {
            for (int round = 0; round < 5; ++round) {
                HandleGuard image(ToBlock(sources[i]));
                HandleGuard out(RunOn(RemoveNoise(0, 0), image.h, nullptr, RegionRequest{}));
                if (out.h == nullptr || FromBlock(out.h) != expected[i]) ++mismatches[i];
            }
        });
    }
    for (std::thread &t : threads) t.join();
    EXPECT_EQ(mismatches, std::vector<int>(4, 0));
}
