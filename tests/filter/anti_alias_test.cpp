// TZ3AntiAlias against a literal transcription of its rules on random images and regions in every
// accepted depth, with its edge cases, borders, statuses, progress, cancellation and allocation
// failure.
#include <gtest/gtest.h>

#include "support/filter_harness.h"
#include "support/filter_kernel_reference.h"

using namespace tz3test;

namespace {

FilterCall AntiAlias() {
    return [](const DibPair *pair, int32_t kind, const Tz3Point *points, int32_t count, const Tz3Rect *rect,
              int32_t inside, int32_t noDialog) {
        return TZ3AntiAlias(pair, kind, points, count, rect, inside, noDialog, 0, 0, 0);
    };
}

std::vector<uint8_t> Smoothed(const std::vector<uint8_t> &src) {
    HandleGuard image(ToBlock(src));
    HandleGuard out(RunOn(AntiAlias(), image.h, nullptr, RegionRequest{}));
    EXPECT_NE(out.h, nullptr) << "status " << Tz3GetErrorStatus();
    if (out.h == nullptr) return {};
    return FromBlock(out.h);
}

}  // namespace

TEST(AntiAlias, MatchesTheLiteralRulesOnRandomImagesAndRegionsInEveryDepth) {
    std::mt19937 rng(4301);
    MatchReferenceOnRandomImagesAndRegions(rng, [](std::mt19937 &) {
        return FilterTrial{AntiAlias(), RefAntiAlias, ""};
    });
}

TEST(AntiAlias, OnePixelWideImageIsUnchangedButSixteenBitsRepack) {
    std::mt19937 rng(4302);
    for (const FilterFormat f : kFilterFormats) {
        const std::vector<uint8_t> src = RandomFilterSource(rng, f, 1, 6);
        const std::vector<uint8_t> out = Smoothed(src);
        if (f.bits == 16) {
            // Each channel passes through expansion and packing.
            for (int y = 0; y < 6; ++y) {
                const int w = WordAt(src, PixelOffset(src) + 4 * y);
                const int r = WordAt(out, PixelOffset(out) + 4 * y);
                const int shift = f.is565 ? 11 : 10;
                const auto back5 = [](int c) { return c * 255 / 31 * 31 / 255; };
                EXPECT_EQ(r & 31, back5(w & 31));
                EXPECT_EQ((r >> shift) & 31, back5((w >> shift) & 31));
                if (f.is565) {
                    EXPECT_EQ((r >> 5) & 63, ((w >> 5) & 63) * 255 / 63 * 63 / 255);
                } else {
                    EXPECT_EQ((r >> 5) & 31, back5((w >> 5) & 31));
                }
            }
        } else {
            EXPECT_EQ(out, ResultTemplate(src)) << FormatName(f);
        }
    }
}

TEST(AntiAlias, MeanTruncates) {
    std::vector<uint8_t> src = MakeDibBytes(3, 1, 24);
    const int row[3] = {10, 20, 31};
    for (int x = 0; x < 3; ++x) src[40 + 3 * x] = src[41 + 3 * x] = src[42 + 3 * x] = static_cast<uint8_t>(row[x]);
    const std::vector<uint8_t> out = Smoothed(src);
    EXPECT_EQ(out[43], 20);  // 61 / 3
    EXPECT_EQ(out[40], 15);  // 30 / 2 at the first column
    EXPECT_EQ(out[46], 25);  // 51 / 2 at the last column
}

TEST(AntiAlias, RowsDoNotMix) {
    std::mt19937 rng(4303);
    for (const FilterFormat f : kFilterFormats) {
        std::vector<uint8_t> src = RandomFilterSource(rng, f, 6, 5);
        // Each row one colour, a different one per row.
        for (int y = 0; y < 5; ++y) {
            int v[3];
            for (int c = 0; c < 3; ++c) v[c] = ChannelValue(src, 0, y, c);
            for (int x = 0; x < 6; ++x) StoreChannels(src, x, y, v);
        }
        // At 16 bits "as it is" means each channel once through expansion and packing.
        std::vector<uint8_t> expected = ResultTemplate(src);
        for (int y = 0; y < 5; ++y) {
            for (int x = 0; x < 6; ++x) {
                int v[3];
                for (int c = 0; c < 3; ++c) v[c] = ChannelValue(src, x, y, c);
                StoreChannels(expected, x, y, v);
            }
        }
        EXPECT_EQ(Smoothed(src), expected) << FormatName(f);
        if (f.bits != 16) {
            EXPECT_EQ(expected, ResultTemplate(src));
        }
    }
}

TEST(AntiAlias, BoxInsideTheImageReadsNeighboursOutsideIt) {
    std::mt19937 rng(4304);
    for (const FilterFormat f : kFilterFormats) {
        const std::vector<uint8_t> src = RandomFilterSource(rng, f, 8, 4);
        for (const RegionRequest &box : {RectangleRegion(3, 1, 4, 2), RectangleRegion(0, 0, 0, 3),
                                         RectangleRegion(7, 0, 7, 3)}) {
            HandleGuard image(ToBlock(src));
            HandleGuard out(RunOn(AntiAlias(), image.h, nullptr, box));
            ASSERT_NE(out.h, nullptr);
            EXPECT_EQ(FromBlock(out.h), RefAntiAlias(src, SelectionOf(src, box))) << FormatName(f) << box.Describe();
        }
    }
}

TEST(AntiAlias, ProgressCancellationAllocationFailureAndStatuses) {
    std::mt19937 rng(4305);
    const FilterCall call = AntiAlias();
    ExpectProgressOverEveryBoxRow(rng, call);
    CancelAtEveryProgressCallInEveryDepth(rng, call);
    FailEveryAllocationInEveryDepthAndKind(rng, call);
    ExpectRefusedFormats(rng, call);
    ExpectFrameStatuses(rng, call);
}
