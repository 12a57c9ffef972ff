// TZ3Emboss against a literal transcription of its rules on random images, directions, depths and
// regions in every accepted depth, with its edge cases, the low bytes of its parameters, the place
// of the direction test, borders, statuses, progress, cancellation and allocation failure.
#include <gtest/gtest.h>

#include "support/filter_harness.h"
#include "support/filter_kernel_reference.h"

using namespace tz3test;

namespace {

FilterCall Emboss(int32_t direction, int32_t depth, int32_t bias) {
    return [=](const DibPair *pair, int32_t kind, const Tz3Point *points, int32_t count, const Tz3Rect *rect,
               int32_t inside, int32_t noDialog) {
        return TZ3Emboss(pair, kind, points, count, rect, inside, direction, depth, bias, noDialog, 0, 0, 0);
    };
}

std::vector<uint8_t> Embossed(const std::vector<uint8_t> &src, int32_t direction, int32_t depth, int32_t bias) {
    HandleGuard image(ToBlock(src));
    HandleGuard out(RunOn(Emboss(direction, depth, bias), image.h, nullptr, RegionRequest{}));
    EXPECT_NE(out.h, nullptr) << "status " << Tz3GetErrorStatus();
    if (out.h == nullptr) return {};
    return FromBlock(out.h);
}

}  // namespace

TEST(Emboss, MatchesTheLiteralRulesOnRandomImagesAndRegionsInEveryDepth) {
    std::mt19937 rng(4401);
    MatchReferenceOnRandomImagesAndRegions(rng, [](std::mt19937 &r) {
        const int direction = static_cast<int>(r() % 8);
        const int32_t directionArg = direction + 256 * static_cast<int32_t>(r() % 4);
        const int32_t depthArg = r() % 2 == 0 ? static_cast<int32_t>(r()) : static_cast<int32_t>(r() % 7);
        const int depth = std::clamp<int>(static_cast<uint8_t>(depthArg), 1, 5);
        const int32_t bias = static_cast<int32_t>(r());
        return FilterTrial{Emboss(directionArg, depthArg, bias),
                           [=](const std::vector<uint8_t> &src, const Selection &s) {
                               return RefEmboss(src, s, direction, depth, static_cast<uint8_t>(bias));
                           },
                           Describe(", direction depth bias", directionArg, depthArg, bias)};
    });
}

TEST(Emboss, FlatImageGivesTheBiasInEveryChannel) {
    std::vector<uint8_t> src = MakeDibBytes(5, 4, 24);
    const int colour[3] = {10, 200, 90};
    for (int y = 0; y < 4; ++y) {
        for (int x = 0; x < 5; ++x) StoreChannels(src, x, y, colour);
    }
    for (int direction = 0; direction < 8; ++direction) {
        const std::vector<uint8_t> out = Embossed(src, direction, 3, 128);
        for (int y = 0; y < 4; ++y) {
            for (int x = 0; x < 5; ++x) {
                for (int c = 0; c < 3; ++c) EXPECT_EQ(ChannelValue(out, x, y, c), 128) << direction;
            }
        }
    }
}

TEST(Emboss, DirectionAboveSevenIsRefusedByItsLowByte) {
    std::mt19937 rng(4402);
    for (const FilterFormat f : kFilterFormats) {
        const std::vector<uint8_t> src = RandomFilterSource(rng, f, 5, 4);
        HandleGuard image(ToBlock(src));
        const size_t live = Tz3LiveBlocks();
        for (int32_t direction : {8, 264, 255, -1}) {
            EXPECT_EQ(RunOn(Emboss(direction, 3, 0), image.h, nullptr, RegionRequest{}), nullptr);
            EXPECT_EQ(Tz3GetErrorStatus(), 5) << direction;
        }
        EXPECT_EQ(Tz3LiveBlocks(), live);
        ExpectCallerBlocksUnchanged(image.h, src);
        EXPECT_EQ(Embossed(src, 256, 3, 7), Embossed(src, 0, 3, 7)) << FormatName(f);
    }
}

TEST(Emboss, DirectionIsTestedAfterTheFormatAndBeforeTheRegion) {
    std::mt19937 rng(4403);
    HandleGuard four(ToBlock(RandomDib(rng, 4, 4, 4)));
    EXPECT_EQ(RunOn(Emboss(8, 3, 0), four.h, nullptr, RegionRequest{}), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
    HandleGuard image(ToBlock(RandomDib(rng, 4, 4, 24)));
    RegionRequest noMask;
    noMask.kind = 0;
    EXPECT_EQ(RunOn(Emboss(8, 3, 0), image.h, nullptr, noMask), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 5);
    EXPECT_EQ(RunOn(Emboss(7, 3, 0), image.h, nullptr, noMask), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
}

TEST(Emboss, DepthZeroActsAsOneAndAboveFiveAsFive) {
    std::mt19937 rng(4404);
    for (const FilterFormat f : kFilterFormats) {
        const std::vector<uint8_t> src = RandomFilterSource(rng, f, 6, 5);
        EXPECT_EQ(Embossed(src, 1, 0, 100), Embossed(src, 1, 1, 100)) << FormatName(f);
        EXPECT_EQ(Embossed(src, 1, 256, 100), Embossed(src, 1, 1, 100)) << FormatName(f);
        const std::vector<uint8_t> five = Embossed(src, 1, 5, 100);
        EXPECT_EQ(Embossed(src, 1, 6, 100), five);
        EXPECT_EQ(Embossed(src, 1, 255, 100), five);
        EXPECT_NE(Embossed(src, 1, 4, 100), five) << FormatName(f);
    }
}

TEST(Emboss, BiasCountsByItsLowByte) {
    std::mt19937 rng(4405);
    const std::vector<uint8_t> src = RandomFilterSource(rng, kFilterFormats[3], 6, 5);
    EXPECT_EQ(Embossed(src, 2, 2, 300), Embossed(src, 2, 2, 44));
    EXPECT_EQ(Embossed(src, 2, 2, -1), Embossed(src, 2, 2, 255));
    EXPECT_EQ(Embossed(src, 2, 2, 256), Embossed(src, 2, 2, 0));
}

TEST(Emboss, EdgeColumnsOfARampGetHalfTheGradient) {
    // Columns 0, 10, 20, 30, 40 in every row. Direction 0 weighs -2 left and +2 right in each of
    // three rows: inside, 3 x 2 x 20 = 120; in the first and last column the clamped tap repeats
    // the edge, so 3 x 2 x 10 = 60. Depth 5 divides by 1.
    std::vector<uint8_t> src = MakeDibBytes(5, 3, 24);
    for (int y = 0; y < 3; ++y) {
        for (int x = 0; x < 5; ++x) {
            const int v[3] = {10 * x, 10 * x, 10 * x};
            StoreChannels(src, x, y, v);
        }
    }
    const std::vector<uint8_t> out = Embossed(src, 0, 5, 0);
    for (int y = 0; y < 3; ++y) {
        EXPECT_EQ(ChannelValue(out, 0, y, 0), 60);
        for (int x = 1; x < 4; ++x) EXPECT_EQ(ChannelValue(out, x, y, 1), 120);
        EXPECT_EQ(ChannelValue(out, 4, y, 2), 60);
    }
}

TEST(Emboss, ColourImageStaysInColour) {
    std::mt19937 rng(4406);
    const std::vector<uint8_t> src = RandomFilterSource(rng, kFilterFormats[3], 8, 8);
    const std::vector<uint8_t> out = Embossed(src, 5, 4, 128);
    bool someChannelsDiffer = false;
    for (int y = 0; y < 8; ++y) {
        for (int x = 0; x < 8; ++x) someChannelsDiffer |= ChannelValue(out, x, y, 0) != ChannelValue(out, x, y, 2);
    }
    EXPECT_TRUE(someChannelsDiffer);
}

TEST(Emboss, BoxInsideTheImageReadsNeighboursOutsideIt) {
    std::mt19937 rng(4407);
    for (const FilterFormat f : kFilterFormats) {
        const std::vector<uint8_t> src = RandomFilterSource(rng, f, 9, 8);
        const RegionRequest box = RectangleRegion(3, 2, 5, 4);
        HandleGuard image(ToBlock(src));
        HandleGuard out(RunOn(Emboss(3, 2, 128), image.h, nullptr, box));
        ASSERT_NE(out.h, nullptr);
        EXPECT_EQ(FromBlock(out.h), RefEmboss(src, SelectionOf(src, box), 3, 2, 128)) << FormatName(f);
    }
}

TEST(Emboss, ProgressCancellationAllocationFailureAndStatuses) {
    std::mt19937 rng(4408);
    const FilterCall call = Emboss(6, 4, 128);
    ExpectProgressOverEveryBoxRow(rng, call);
    CancelAtEveryProgressCallInEveryDepth(rng, call);
    FailEveryAllocationInEveryDepthAndKind(rng, call);
    ExpectRefusedFormats(rng, call);
    ExpectFrameStatuses(rng, call);
}
