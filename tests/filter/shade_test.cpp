// TZ3Shade against whole window sums taken at every pixel, on random images of every accepted
// depth with random regions and radii; the radius's low byte, the cut window at the image's edge,
// boxes reading outside themselves, the exact reciprocal division, and the frame's statuses,
// progress, cancellation and allocation failure.
#include <gtest/gtest.h>

#include <thread>

#include "filter/count_divider.h"
#include "support/filter_harness.h"
#include "support/window_filter_reference.h"

using namespace tz3test;

namespace {

FilterCall Shade(int32_t radius) {
    return [radius](const DibPair *pair, int32_t kind, const Tz3Point *points, int32_t count,
                    const Tz3Rect *rect, int32_t inside, int32_t noDialog) {
        return TZ3Shade(pair, kind, points, count, rect, inside, radius, noDialog, 0, 0, 0);
    };
}

PixelSelected FromSelection(const Selection &s) {
    return [s](int x, int y) { return s(x, y); };
}

Bytes Shaded(const Bytes &src, int32_t radius) {
    HandleGuard image(ToBlock(src));
    HandleGuard out(RunOn(Shade(radius), image.h, nullptr, RegionRequest{}));
    EXPECT_NE(out.h, nullptr) << "status " << Tz3GetErrorStatus();
    return out.h == nullptr ? Bytes{} : FromBlock(out.h);
}

// A 24-bit image whose pixel (x, y) holds the given gray value.
Bytes Gray24(int width, int height, const std::vector<int> &values) {
    Bytes d = MakeDibBytes(width, height, 24);
    const size_t stride = RowBytes(24, width);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const auto v = static_cast<uint8_t>(values[static_cast<size_t>(y) * width + x]);
            d[40 + stride * y + 3 * x] = d[41 + stride * y + 3 * x] = d[42 + stride * y + 3 * x] = v;
        }
    }
    return d;
}

int BlueAt(const Bytes &d, int x, int y) {
    return d[40 + RowBytes(24, ImageWidth(d)) * y + 3 * x];
}

const int32_t kRadii[] = {0, 1, 2, 3, 5, 7, 20, 21, 255, 256, 300, 513, -1, -236};

}  // namespace

TEST(Shade, MatchesWholeWindowSumsOnRandomImagesRegionsAndRadii) {
    std::mt19937 rng(5001);
    MatchReferenceOnRandomImagesAndRegions(rng, [](std::mt19937 &r) {
        const int32_t radius = kRadii[r() % std::size(kRadii)];
        FilterTrial trial;
        trial.call = Shade(radius);
        trial.reference = [radius](const Bytes &src, const Selection &selected) {
            return RefShade(src, WholeBox(src), FromSelection(selected), radius);
        };
        trial.settings = Describe(", radius", radius);
        return trial;
    });
}

TEST(Shade, RunningSumsMatchWholeWindowSumsOnLargerImagesAtEveryRadius) {
    // Images wider and taller than the window, so that windows lie wholly inside, cut at one side,
    // and cut at both.
    std::mt19937 rng(5002);
    for (const FilterFormat f : kFilterFormats) {
        for (int32_t radius : {1, 2, 4, 9, 20}) {
            const int width = 2 * radius + 3 + static_cast<int>(rng() % 8);
            const int height = 2 * radius + 3 + static_cast<int>(rng() % 8);
            const Bytes src = RandomFilterSource(rng, f, width, height);
            HandleGuard image(ToBlock(src));
            // Wide windows cost the plain sums much: one region for those.
            for (int n = radius < 9 ? 0 : 1; n < 2; ++n) {
                const RegionRequest region = n == 0 ? RegionRequest{} : RandomRegion(rng, width, height);
                HandleGuard mask(region.kind == 0 ? ToBlock(region.mask) : nullptr);
                HandleGuard out(RunOn(Shade(radius), image.h, mask.h, region));
                ASSERT_NE(out.h, nullptr) << FormatName(f);
                const Selection selected = SelectionOf(src, region);
                ASSERT_EQ(FromBlock(out.h), RefShade(src, WholeBox(src), FromSelection(selected), radius))
                    << FormatName(f) << " " << width << "x" << height << " radius " << radius
                    << region.Describe();
            }
            ExpectCallerBlocksUnchanged(image.h, src);
        }
    }
}

TEST(Shade, ReciprocalDivisionIsExactAtEveryQuotientBoundary) {
    // Truncation can only go wrong just below and at a multiple of the count.
    for (uint32_t n = 1; n <= 41 * 41; ++n) {
        const tz3::CountDivider d(n);
        for (uint32_t q = 0; q <= 255; ++q) {
            const uint32_t at = q * n;
            ASSERT_EQ(d.Divide(at), q) << at << " / " << n;
            if (at > 0) {
                ASSERT_EQ(d.Divide(at - 1), q - 1) << at - 1 << " / " << n;
            }
            ASSERT_EQ(d.Divide(at + n - 1), q) << at + n - 1 << " / " << n;
        }
    }
}

TEST(Shade, RadiusZeroActsAsOne) {
    std::mt19937 rng(5003);
    const Bytes src = RandomDib(rng, 9, 7, 24);
    EXPECT_EQ(Shaded(src, 0), Shaded(src, 1));
    EXPECT_NE(Shaded(src, 1), Shaded(src, 2));
}

TEST(Shade, RadiusCountsByItsLowByte) {
    std::mt19937 rng(5004);
    const Bytes src = RandomDib(rng, 50, 45, 24);
    const Bytes one = Shaded(src, 1);
    const Bytes twenty = Shaded(src, 20);
    EXPECT_EQ(Shaded(src, 256), one);
    EXPECT_EQ(Shaded(src, 300), twenty);  // low byte 44
    EXPECT_EQ(Shaded(src, 21), twenty);
    EXPECT_EQ(Shaded(src, 255), twenty);
    EXPECT_EQ(Shaded(src, 256 + 5), Shaded(src, 5));
    EXPECT_NE(one, twenty);
}

TEST(Shade, CornerPixelWithRadiusOneIsTheMeanOfFourPixels) {
    // Bottom-up rows: (0,0)=10 (1,0)=20 (0,1)=30 (1,1)=41, the rest far brighter.
    const Bytes src = Gray24(3, 3, {10, 20, 200, 30, 41, 200, 200, 200, 200});
    const Bytes out = Shaded(src, 1);
    EXPECT_EQ(BlueAt(out, 0, 0), (10 + 20 + 30 + 41) / 4);
    // An edge pixel counts six.
    EXPECT_EQ(BlueAt(out, 1, 0), (10 + 20 + 200 + 30 + 41 + 200) / 6);
}

TEST(Shade, ImageSmallerThanTheWindowGivesTheMeanOfTheWholeImageEverywhere) {
    std::mt19937 rng(5005);
    const Bytes src = RandomDib(rng, 6, 5, 24);
    const Bytes out = Shaded(src, 20);
    int sum[3] = {0, 0, 0};
    const size_t stride = RowBytes(24, 6);
    for (int y = 0; y < 5; ++y) {
        for (int x = 0; x < 6; ++x) {
            for (int k = 0; k < 3; ++k) sum[k] += src[40 + stride * y + 3 * x + k];
        }
    }
    for (int y = 0; y < 5; ++y) {
        for (int x = 0; x < 6; ++x) {
            for (int k = 0; k < 3; ++k)
                EXPECT_EQ(out[40 + stride * y + 3 * x + k], sum[k] / 30) << x << "," << y;
        }
    }
}

TEST(Shade, TheMeanTruncates) {
    // A 1x2 image of 1 and 2: both windows hold both pixels, 3 / 2 = 1.
    const Bytes out = Shaded(Gray24(1, 2, {1, 2}), 1);
    EXPECT_EQ(BlueAt(out, 0, 0), 1);
    EXPECT_EQ(BlueAt(out, 0, 1), 1);
}

TEST(Shade, BoxInsideTheImageReadsItsNeighboursOutsideIt) {
    // Only the centre pixel is worked; its window is the whole 3x3 around it.
    std::vector<int> values;
    for (int i = 0; i < 25; ++i) values.push_back(i * 10);
    const Bytes src = Gray24(5, 5, values);
    HandleGuard image(ToBlock(src));
    HandleGuard out(RunOn(Shade(1), image.h, nullptr, RectangleRegion(2, 2, 2, 2)));
    ASSERT_NE(out.h, nullptr);
    const Bytes result = FromBlock(out.h);
    int sum = 0;
    for (int y = 1; y <= 3; ++y) {
        for (int x = 1; x <= 3; ++x) sum += values[static_cast<size_t>(y) * 5 + x];
    }
    EXPECT_EQ(BlueAt(result, 2, 2), sum / 9);
    EXPECT_EQ(BlueAt(result, 1, 2), BlueAt(src, 1, 2));
    EXPECT_EQ(BlueAt(result, 2, 1), BlueAt(src, 2, 1));
}

TEST(Shade, SixteenBitMeansAreOfExpandedChannelsAndPacked) {
    // 5-5-5 words with blue 1 and 2: expanded 8 and 16, mean 12, packed 12 x 31 / 255 = 1.
    Bytes src = MakeDibBytes(2, 1, 16);
    src[40] = 1;
    src[42] = 2;
    const Bytes out = Shaded(src, 1);
    EXPECT_EQ(WordAt(out, 40), 1);
    EXPECT_EQ(WordAt(out, 42), 1);
}

TEST(Shade, ProgressAfterEveryBoxRow) {
    std::mt19937 rng(5006);
    ExpectProgressOverEveryBoxRow(rng, Shade(3));
}

TEST(Shade, CancelAtEveryProgressCallLeavesNothingBehind) {
    std::mt19937 rng(5007);
    CancelAtEveryProgressCallInEveryDepth(rng, Shade(2));
}

TEST(Shade, FailureOfEveryAllocationLeavesNothingBehind) {
    std::mt19937 rng(5008);
    FailEveryAllocationInEveryDepthAndKind(rng, Shade(2));
}

TEST(Shade, RefusesPaletteAndUnusableFormatsWithStatusSeven) {
    std::mt19937 rng(5009);
    ExpectRefusedFormats(rng, Shade(1));
}

TEST(Shade, FrameStatuses) {
    std::mt19937 rng(5010);
    ExpectFrameStatuses(rng, Shade(1));
}

TEST(Shade, SeveralThreadsAtOnceGiveTheResultsOfOne) {
    // No state is kept between calls: four threads filtering their own images agree with one.
    std::mt19937 rng(4242);
    std::vector<Bytes> sources, expected;
    for (int i = 0; i < 4; ++i) {
        sources.push_back(RandomDib(rng, 40 + i, 30, i % 2 == 0 ? 24 : 32));
        HandleGuard image(ToBlock(sources.back()));
        HandleGuard out(RunOn(Shade(3), image.h, nullptr, RegionRequest{}));
        expected.push_back(FromBlock(out.h));
    }
    std::vector<int> mismatches(4, 0);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&, i] {
            for (int round = 0; round < 5; ++round) {
                HandleGuard image(ToBlock(sources[i]));
                HandleGuard out(RunOn(Shade(3), image.h, nullptr, RegionRequest{}));
                if (out.h == nullptr || FromBlock(out.h) != expected[i]) ++mismatches[i];
            }
        });
    }
    for (std::thread &t : threads) t.join();
    EXPECT_EQ(mismatches, std::vector<int>(4, 0));
}
