// TZ3CheckSecretImage: the mask of pixels whose luma rose by at least the threshold.
#include <gtest/gtest.h>

#include "support/hidden_reference.h"
#include "support/test_images.h"

namespace {

using namespace tz3test;

DibHandle Check(DibHandle plain, DibHandle marked, int32_t threshold, int32_t noDialog = 1) {
    return TZ3CheckSecretImage(plain, marked, threshold, noDialog, 0, 0, 0);
}

TEST(CheckSecretImage, MatchesTheReferenceForAnyPairAndThreshold) {
    std::mt19937 rng(9201);
    for (int width = 1; width <= 33; ++width) {
        const int height = 1 + static_cast<int>(rng() % 5);
        const std::vector<uint8_t> plain = RandomDib(rng, width, height, 24);
        std::vector<uint8_t> marked = plain;
        for (size_t i = 40; i < marked.size(); ++i) {
            if (rng() % 3 == 0) marked[i] = static_cast<uint8_t>(marked[i] + rng() % 40);
        }
        const int32_t threshold = static_cast<int32_t>(rng() % 61) - 30;
        HandleGuard p(ToBlock(plain));
        HandleGuard m(ToBlock(marked));
        HandleGuard result(Check(p.h, m.h, threshold));
        ASSERT_NE(result.h, nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), TZ3_OK);
        EXPECT_EQ(FromBlock(result.h), ReferenceSecretCheck(plain, marked, threshold))
            << "width " << width << " threshold " << threshold;
        EXPECT_EQ(FromBlock(p.h), plain);
        EXPECT_EQ(FromBlock(m.h), marked);
        EXPECT_TRUE(IsUnlocked(p.h));
        EXPECT_TRUE(IsUnlocked(m.h));
    }
}

TEST(CheckSecretImage, ThresholdZeroOnIdenticalImagesSetsEveryPixelAndOneSetsNone) {
    std::mt19937 rng(9202);
    const std::vector<uint8_t> image = RandomDib(rng, 13, 3, 24);
    HandleGuard a(ToBlock(image));
    HandleGuard b(ToBlock(image));
    HandleGuard all(Check(a.h, b.h, 0));
    HandleGuard none(Check(a.h, b.h, 1));
    ASSERT_NE(all.h, nullptr);
    ASSERT_NE(none.h, nullptr);
    const std::vector<uint8_t> allBits = FromBlock(all.h);
    const std::vector<uint8_t> noBits = FromBlock(none.h);
    for (int y = 0; y < 3; ++y) {
        for (int x = 0; x < 13; ++x) {
            EXPECT_TRUE(MaskBit(allBits, x, y));
            EXPECT_FALSE(MaskBit(noBits, x, y));
        }
    }
}

TEST(CheckSecretImage, TheResultIsARegionMaskOfTheImagesSize) {
    HandleGuard a(ToBlock(MakeDibBytes(37, 5, 24)));
    HandleGuard result(Check(a.h, a.h, 0));
    ASSERT_NE(result.h, nullptr);
    const std::vector<uint8_t> mask = FromBlock(result.h);
    ASSERT_EQ(mask.size(), 48u + 8 * 5);
    EXPECT_EQ(Field32(mask, 0), 40u);
    EXPECT_EQ(ImageWidth(mask), 37);
    EXPECT_EQ(ImageHeight(mask), 5);
    EXPECT_EQ(WordAt(mask, 12), 1);
    EXPECT_EQ(WordAt(mask, 14), 1);
    EXPECT_EQ(Field32(mask, 16), 0u);
    EXPECT_EQ(Field32(mask, 20), 40u);
    EXPECT_EQ(Field32(mask, 32), 0u);
    EXPECT_EQ(Field32(mask, 40), 0u) << "entry 0 black";
    EXPECT_EQ(Field32(mask, 44), 0x00FFFFFFu) << "entry 1 white";
    EXPECT_TRUE(IsUnlocked(result.h));
}

TEST(CheckSecretImage, SwappingTheImagesTurnsTheComparisonAround) {
    std::mt19937 rng(9203);
    const std::vector<uint8_t> plain = RandomDib(rng, 20, 4, 24);
    const std::vector<uint8_t> stamp = RandomMask(rng, 20, 4);
    const std::vector<uint8_t> marked = ReferenceSecretMark(plain, stamp, 30, 0, 0);
    HandleGuard p(ToBlock(plain));
    HandleGuard m(ToBlock(marked));
    HandleGuard swapped(Check(m.h, p.h, 10));
    ASSERT_NE(swapped.h, nullptr);
    const std::vector<uint8_t> bits = FromBlock(swapped.h);
    for (int y = 0; y < 4; ++y) {
        for (int x = 0; x < 20; ++x) {
            const size_t at = 40 + RowBytes(24, 20) * y + 3 * x;
            const int fell = ReferenceLumaByte(plain[at + 2], plain[at + 1], plain[at]) -
                             ReferenceLumaByte(marked[at + 2], marked[at + 1], marked[at]);
            EXPECT_EQ(MaskBit(bits, x, y), fell >= 10) << x << "," << y;
        }
    }
}

TEST(CheckSecretImage, ANegativeMarkNeedsANegativeThresholdThatAlsoSetsUnchangedPixels) {
    std::vector<uint8_t> plain = MakeDibBytes(8, 1, 24);
    for (size_t i = 40; i < plain.size(); ++i) plain[i] = 128;
    std::vector<uint8_t> stamp = MakeDibBytes(8, 1, 1);
    stamp[48] = 0xF0;  // the left four pixels
    const std::vector<uint8_t> marked = ReferenceSecretMark(plain, stamp, -20, 0, 0);
    HandleGuard p(ToBlock(plain));
    HandleGuard m(ToBlock(marked));
    HandleGuard positive(Check(p.h, m.h, 10));
    HandleGuard negative(Check(p.h, m.h, -10));
    const std::vector<uint8_t> up = FromBlock(positive.h);
    const std::vector<uint8_t> down = FromBlock(negative.h);
    for (int x = 0; x < 8; ++x) {
        EXPECT_FALSE(MaskBit(up, x, 0)) << x;
        EXPECT_EQ(MaskBit(down, x, 0), x >= 4) << "only pixels that fell by less than 10 are set";
    }
}

TEST(CheckSecretImage, StatusCodes) {
    std::mt19937 rng(9204);
    HandleGuard a(ToBlock(RandomDib(rng, 5, 4, 24)));
    HandleGuard b(ToBlock(RandomDib(rng, 5, 4, 24)));
    HandleGuard other(ToBlock(RandomDib(rng, 5, 3, 24)));
    HandleGuard narrow(ToBlock(RandomDib(rng, 4, 4, 24)));
    HandleGuard deep(ToBlock(RandomDib(rng, 5, 4, 32)));
    std::vector<uint8_t> cutBytes = RandomDib(rng, 5, 4, 24);
    cutBytes.pop_back();
    HandleGuard cut(ToBlock(cutBytes));
    HandleGuard empty(ToBlock(MakeDibBytes(0, 4, 24)));
    const auto expectStatus = [](DibHandle result, int32_t status, const char *what) {
        EXPECT_EQ(result, nullptr) << what;
        if (result != nullptr) Tz3GlobalFree(result);
        EXPECT_EQ(Tz3GetErrorStatus(), status) << what;
    };
    expectStatus(Check(nullptr, b.h, 0), TZ3_BAD_IMAGE, "null plain");
    expectStatus(Check(a.h, nullptr, 0), TZ3_BAD_IMAGE, "null marked");
    expectStatus(Check(a.h, other.h, 0), TZ3_BAD_IMAGE, "heights differ");
    expectStatus(Check(a.h, narrow.h, 0), TZ3_BAD_IMAGE, "widths differ");
    expectStatus(Check(deep.h, deep.h, 0), TZ3_BAD_IMAGE, "32-bit");
    expectStatus(Check(a.h, deep.h, 0), TZ3_BAD_IMAGE, "one 32-bit");
    expectStatus(Check(a.h, cut.h, 0), TZ3_BAD_IMAGE, "block too short");
    expectStatus(Check(empty.h, empty.h, 0), TZ3_BAD_IMAGE, "no columns");
    DialogRecorder dialog(true);
    expectStatus(TZ3CheckSecretImage(a.h, b.h, 0, 0, 1, 2, 3), TZ3_DIALOG_FAILED, "dialog");
}

TEST(CheckSecretImage, ReportsEachRowAndCancelsAtEachOne) {
    std::mt19937 rng(9205);
    HandleGuard a(ToBlock(RandomDib(rng, 6, 4, 24)));
    HandleGuard b(ToBlock(RandomDib(rng, 6, 4, 24)));
    {
        ProgressRecorder progress;
        HandleGuard result(Check(a.h, b.h, 3, 5));
        ASSERT_NE(result.h, nullptr);
        ASSERT_EQ(progress.calls.size(), 4u);
        for (int32_t i = 0; i < 4; ++i) {
            EXPECT_EQ(progress.calls[i].current, i);
            EXPECT_EQ(progress.calls[i].total, 3);
            EXPECT_EQ(progress.calls[i].low, 0);
            EXPECT_EQ(progress.calls[i].high, 100);
            EXPECT_EQ(progress.calls[i].noDialog, 5);
        }
    }
    for (long at = 0; at < 4; ++at) {
        const size_t live = Tz3LiveBlocks();
        ProgressRecorder progress(at);
        EXPECT_EQ(Check(a.h, b.h, 3), nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), TZ3_CANCELLED);
        EXPECT_EQ(progress.calls.size(), static_cast<size_t>(at + 1));
        EXPECT_EQ(Tz3LiveBlocks(), live);
    }
    EXPECT_TRUE(IsUnlocked(a.h));
    EXPECT_TRUE(IsUnlocked(b.h));
}

TEST(CheckSecretImage, EachAllocationFailureGivesStatus3AndNoBlock) {
    std::mt19937 rng(9206);
    HandleGuard a(ToBlock(RandomDib(rng, 6, 4, 24)));
    HandleGuard b(ToBlock(RandomDib(rng, 6, 4, 24)));
    for (long at = 0; at < 2; ++at) {
        const size_t live = Tz3LiveBlocks();
        {
            FailingAllocator failing(at);
            EXPECT_EQ(Check(a.h, b.h, 0), nullptr);
            EXPECT_EQ(Tz3GetErrorStatus(), TZ3_NO_MEMORY) << "allocation " << at;
        }
        EXPECT_EQ(Tz3LiveBlocks(), live);
    }
    FailingAllocator counting;
    HandleGuard result(Check(a.h, b.h, 0));
    EXPECT_EQ(counting.count, 2) << "the mask and the tables";
}

}  // namespace
