// Mirroring in place: pixel moves per depth, padding, masks, progress, cancel and allocation failure.
#include <gtest/gtest.h>

#include <random>

#include "geometry/mirror.h"
#include "platform/companion.h"
#include "support/test_images.h"

namespace {

using namespace tz3test;

const int kDepths[] = {1, 4, 8, 16, 24, 32};

// Value of pixel (x, y) as an integer, whatever the depth.
uint32_t PixelAt(const std::vector<uint8_t> &dib, int x, int y) {
    const int bits = WordAt(dib, 14);
    const uint8_t *row = dib.data() + PixelOffset(dib) + RowBytes(bits, ImageWidth(dib)) * static_cast<size_t>(y);
    switch (bits) {
        case 1: return (row[x >> 3] >> (7 - (x & 7))) & 1;
        case 4: return (x & 1) ? (row[x >> 1] & 15) : (row[x >> 1] >> 4);
        case 8: return row[x];
        case 16: return static_cast<uint32_t>(row[2 * x] | (row[2 * x + 1] << 8));
        case 24: return static_cast<uint32_t>(row[3 * x] | (row[3 * x + 1] << 8) | (row[3 * x + 2] << 16));
        default:
            return static_cast<uint32_t>(row[4 * x] | (row[4 * x + 1] << 8) | (row[4 * x + 2] << 16)) |
                   (static_cast<uint32_t>(row[4 * x + 3]) << 24);
    }
}

// True when every bit of every row beyond the last pixel is zero.
bool PaddingIsZero(const std::vector<uint8_t> &dib) {
    const int bits = WordAt(dib, 14);
    const int width = ImageWidth(dib);
    const uint32_t stride = RowBytes(bits, width);
    const size_t usedBits = static_cast<size_t>(bits) * width;
    for (int y = 0; y < ImageHeight(dib); ++y) {
        const uint8_t *row = dib.data() + PixelOffset(dib) + stride * static_cast<size_t>(y);
        for (size_t bit = usedBits; bit < stride * 8u; ++bit)
            if ((row[bit / 8] >> (7 - bit % 8)) & 1) return false;
    }
    return true;
}

// Runs a flip on a copy of dib (and mask) through a locked block and returns the result bytes.
struct Flipped {
    int32_t result;
    std::vector<uint8_t> image, mask;
};
Flipped RunFlip(bool horizontal, const std::vector<uint8_t> &dib, const std::vector<uint8_t> *mask) {
    HandleGuard image(ToBlock(dib));
    HandleGuard maskBlock(mask != nullptr ? ToBlock(*mask) : nullptr);
    auto *bytes = static_cast<uint8_t *>(Tz3GlobalLock(image.h));
    auto *maskBytes = mask != nullptr ? static_cast<uint8_t *>(Tz3GlobalLock(maskBlock.h)) : nullptr;
    const int32_t result = horizontal ? tz3::FlipDibHorizontal(bytes, maskBytes, 1, 10, 90)
                                      : tz3::FlipDibVertical(bytes, maskBytes, 1, 10, 90);
    Tz3GlobalUnlock(image.h);
    if (mask != nullptr) Tz3GlobalUnlock(maskBlock.h);
    return {result, FromBlock(image.h), mask != nullptr ? FromBlock(maskBlock.h) : std::vector<uint8_t>()};
}

TEST(FlipDibHorizontal, MovesEachColumnToItsMirrorInEveryDepthWithTheMask) {
    std::mt19937 rng(11);
    for (int bits : kDepths) {
        for (int width = 1; width <= 19; ++width) {
            const auto dib = RandomDib(rng, width, 3, bits);
            const auto mask = RandomMask(rng, width, 3);
            const Flipped out = RunFlip(true, dib, &mask);
            ASSERT_EQ(out.result, 1);
            EXPECT_TRUE(std::equal(dib.begin(), dib.begin() + static_cast<long>(PixelOffset(dib)), out.image.begin()))
                << "header and table are left alone";
            for (int y = 0; y < 3; ++y)
                for (int x = 0; x < width; ++x) {
                    ASSERT_EQ(PixelAt(out.image, width - 1 - x, y), PixelAt(dib, x, y)) << bits << " bits, x " << x;
                    ASSERT_EQ(MaskBit(out.mask, width - 1 - x, y), MaskBit(mask, x, y));
                }
        }
    }
}

TEST(FlipDibHorizontal, LeavesRowPaddingZeroWhateverItHeldBefore) {
    std::mt19937 rng(12);
    for (int bits : kDepths) {
        auto dib = RandomDib(rng, 5, 4, bits);
        for (size_t i = PixelOffset(dib); i < dib.size(); ++i) dib[i] = 0xFF;  // padding set too
        const Flipped out = RunFlip(true, dib, nullptr);
        ASSERT_EQ(out.result, 1);
        EXPECT_TRUE(PaddingIsZero(out.image)) << bits << " bits";
    }
}

TEST(FlipDibHorizontal, WidthOneLeavesThePixelsAsTheyWere) {
    std::mt19937 rng(13);
    for (int bits : kDepths) {
        auto dib = RandomDib(rng, 1, 6, bits);
        const Flipped out = RunFlip(true, dib, nullptr);
        ASSERT_EQ(out.result, 1);
        for (int y = 0; y < 6; ++y) EXPECT_EQ(PixelAt(out.image, 0, y), PixelAt(dib, 0, y)) << bits << " bits";
    }
}

TEST(FlipDibVertical, MovesWholeRowsIncludingPaddingAndTheMask) {
    std::mt19937 rng(14);
    for (int bits : kDepths) {
        const auto dib = RandomDib(rng, 7, 5, bits);
        const auto mask = RandomMask(rng, 7, 5);
        const Flipped out = RunFlip(false, dib, &mask);
        ASSERT_EQ(out.result, 1);
        const uint32_t stride = RowBytes(bits, 7);
        const uint32_t maskStride = RowBytes(1, 7);
        for (int y = 0; y < 5; ++y) {
            EXPECT_TRUE(std::equal(dib.begin() + static_cast<long>(PixelOffset(dib) + stride * y),
                                   dib.begin() + static_cast<long>(PixelOffset(dib) + stride * (y + 1)),
                                   out.image.begin() + static_cast<long>(PixelOffset(dib) + stride * (4 - y))));
            EXPECT_TRUE(std::equal(mask.begin() + static_cast<long>(PixelOffset(mask) + maskStride * y),
                                   mask.begin() + static_cast<long>(PixelOffset(mask) + maskStride * (y + 1)),
                                   out.mask.begin() + static_cast<long>(PixelOffset(mask) + maskStride * (4 - y))));
        }
    }
}

TEST(FlipDibVertical, HeightOneLeavesTheImageAsItWas) {
    std::mt19937 rng(15);
    for (int bits : kDepths) {
        const auto dib = RandomDib(rng, 9, 1, bits);
        const Flipped out = RunFlip(false, dib, nullptr);
        ASSERT_EQ(out.result, 1);
        EXPECT_EQ(out.image, dib) << bits << " bits";
    }
}

TEST(Mirror, TwoFlipsInARowGiveBackThePixelsWithZeroPadding) {
    std::mt19937 rng(16);
    for (int bits : kDepths)
        for (int width = 1; width <= 12; ++width) {
            auto dib = RandomDib(rng, width, 3, bits);
            const auto mask = RandomMask(rng, width, 3);
            for (bool horizontal : {true, false}) {
                const Flipped once = RunFlip(horizontal, dib, &mask);
                const Flipped twice = RunFlip(horizontal, once.image, &once.mask);
                ASSERT_EQ(twice.result, 1);
                for (int y = 0; y < 3; ++y)
                    for (int x = 0; x < width; ++x) {
                        ASSERT_EQ(PixelAt(twice.image, x, y), PixelAt(dib, x, y));
                        ASSERT_EQ(MaskBit(twice.mask, x, y), MaskBit(mask, x, y));
                    }
                if (horizontal) {
                    EXPECT_TRUE(PaddingIsZero(twice.image));
                }
            }
        }
}

TEST(Mirror, ReportsEachRowWithinTheGivenSpan) {
    std::mt19937 rng(17);
    const auto dib = RandomDib(rng, 4, 6, 24);
    for (bool horizontal : {true, false}) {
        ProgressRecorder progress;
        ASSERT_EQ(RunFlip(horizontal, dib, nullptr).result, 1);
        ASSERT_EQ(progress.calls.size(), 6u);
        for (int y = 0; y < 6; ++y) {
            EXPECT_EQ(progress.calls[y].current, y);
            EXPECT_EQ(progress.calls[y].total, 5);
            EXPECT_EQ(progress.calls[y].low, 10);
            EXPECT_EQ(progress.calls[y].high, 90);
        }
    }
}

TEST(Mirror, CancelLeavesUnwrittenRowsZeroAndFreesTheCopies) {
    std::mt19937 rng(18);
    const auto dib = RandomDib(rng, 4, 6, 24);
    const auto mask = RandomMask(rng, 4, 6);
    for (bool horizontal : {true, false}) {
        const long before = Tz3LiveBlocks();
        Flipped out;
        {
            ProgressRecorder progress(2);
            out = RunFlip(horizontal, dib, &mask);
        }
        EXPECT_EQ(out.result, 0);
        EXPECT_EQ(tz3::ErrorStatus(), TZ3_CANCELLED);
        EXPECT_EQ(Tz3LiveBlocks(), before);
        const uint32_t stride = RowBytes(24, 4);
        // Rows 0..2 of the walk were written; the three after them are still zero.
        for (int step = 3; step < 6; ++step) {
            const int row = horizontal ? step : 5 - step;
            for (uint32_t i = 0; i < stride; ++i) EXPECT_EQ(out.image[PixelOffset(dib) + stride * row + i], 0);
            EXPECT_FALSE(MaskBit(out.mask, 0, row));
        }
    }
}

TEST(Mirror, AllocationFailureLeavesTheImageUnchanged) {
    std::mt19937 rng(19);
    const auto dib = RandomDib(rng, 5, 4, 8);
    const auto mask = RandomMask(rng, 5, 4);
    for (bool horizontal : {true, false})
        for (long failAt = 0; failAt < 2; ++failAt) {
            HandleGuard image(ToBlock(dib));
            HandleGuard maskBlock(ToBlock(mask));
            const long before = Tz3LiveBlocks();
            int32_t result;
            {
                FailingAllocator fail(failAt);
                auto *bytes = static_cast<uint8_t *>(Tz3GlobalLock(image.h));
                auto *maskBytes = static_cast<uint8_t *>(Tz3GlobalLock(maskBlock.h));
                result = horizontal ? tz3::FlipDibHorizontal(bytes, maskBytes, 1, 0, 100)
                                    : tz3::FlipDibVertical(bytes, maskBytes, 1, 0, 100);
                Tz3GlobalUnlock(image.h);
                Tz3GlobalUnlock(maskBlock.h);
            }
            EXPECT_EQ(result, 0);
            EXPECT_EQ(tz3::ErrorStatus(), TZ3_NO_MEMORY);
            EXPECT_EQ(Tz3LiveBlocks(), before);
            EXPECT_EQ(FromBlock(image.h), dib);
            EXPECT_EQ(FromBlock(maskBlock.h), mask);
        }
}

}  // namespace
