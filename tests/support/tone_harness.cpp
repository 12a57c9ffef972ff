#include "support/tone_harness.h"

#include <gtest/gtest.h>

namespace tz3test {

const Format kFormats[7] = {{1, false}, {4, false}, {8, false}, {16, false}, {16, true}, {24, false}, {32, false}};

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

std::vector<uint8_t> GrayRamp24() {
    std::vector<uint8_t> d = MakeDibBytes(256, 1, 24);
    for (int i = 0; i < 256; ++i) d[40 + 3 * i] = d[41 + 3 * i] = d[42 + 3 * i] = static_cast<uint8_t>(i);
    return d;
}

void ExpectCallerBlocksUnchanged(DibHandle image, const std::vector<uint8_t> &src, DibHandle mask) {
    EXPECT_EQ(FromBlock(image), src) << "the caller's image changed";
    EXPECT_TRUE(IsUnlocked(image)) << "the caller's image was left locked";
    if (mask != nullptr) {
        EXPECT_TRUE(IsUnlocked(mask)) << "the caller's mask was left locked";
    }
}

void MatchReferenceWholeAndMaskedInEveryFormatAndWidth(std::mt19937 &rng,
                                                       const std::function<Trial(std::mt19937 &rng)> &draw) {
    for (const Format f : kFormats) {
        for (int width = 1; width <= 33; ++width) {
            const int height = 1 + static_cast<int>(rng() % 5);
            const std::vector<uint8_t> src = RandomSource(rng, f, width, height);
            const std::vector<uint8_t> mask = RandomMask(rng, width, height);
            const Trial trial = draw(rng);
            HandleGuard image(ToBlock(src));
            HandleGuard maskBlock(ToBlock(mask));

            HandleGuard whole(trial.run(image.h, nullptr, 1));
            ASSERT_NE(whole.h, nullptr) << f.bits << " bits, width " << width;
            EXPECT_EQ(Tz3GetErrorStatus(), 0);
            EXPECT_EQ(FromBlock(whole.h), trial.reference(src, nullptr))
                << f.bits << " bits (565 " << f.is565 << "), width " << width << trial.settings;

            HandleGuard masked(trial.run(image.h, maskBlock.h, 0));
            ASSERT_NE(masked.h, nullptr);
            EXPECT_EQ(FromBlock(masked.h), trial.reference(src, f.bits <= 8 ? nullptr : &mask))
                << f.bits << " bits (565 " << f.is565 << "), width " << width << trial.settings;
            ExpectCallerBlocksUnchanged(image.h, src, maskBlock.h);
        }
    }
}

void ExpectCountingProgress(const std::vector<ProgressCall> &calls, int32_t steps, int32_t noDialog,
                            const std::string &what) {
    ASSERT_EQ(calls.size(), static_cast<size_t>(steps)) << what;
    for (int32_t i = 0; i < steps; ++i) {
        EXPECT_EQ(calls[i].current, i);
        EXPECT_EQ(calls[i].total, steps - 1);
        EXPECT_EQ(calls[i].low, 0);
        EXPECT_EQ(calls[i].high, 100);
        EXPECT_EQ(calls[i].noDialog, noDialog);
    }
}

void ExpectProgressOverEveryRowAndPaletteEntry(std::mt19937 &rng,
                                               const std::function<DibHandle(DibHandle image, int32_t noDialog)> &run,
                                               const std::string &what) {
    for (const Format f : kFormats) {
        const std::vector<uint8_t> src =
            f.bits <= 8 ? RandomPaletteDib(rng, 6, 4, f.bits, 2) : RandomDib(rng, 6, 4, f.bits, f.is565);
        HandleGuard image(ToBlock(src));
        ProgressRecorder progress;
        HandleGuard out(run(image.h, 7));
        ASSERT_NE(out.h, nullptr);
        const int32_t steps = f.bits <= 8 ? 2 : 4;
        ASSERT_NO_FATAL_FAILURE(ExpectCountingProgress(progress.calls, steps, 7, std::to_string(f.bits) + what));
    }
}

void ExpectOneRowReportsZeroOfZero(int bits, const std::function<DibHandle(DibHandle image, int32_t noDialog)> &run) {
    HandleGuard image(ToBlock(MakeDibBytes(5, 1, bits)));
    ProgressRecorder progress;
    HandleGuard out(run(image.h, 3));
    ASSERT_NE(out.h, nullptr);
    ExpectCountingProgress(progress.calls, 1, 3);
}

void ExpectCancelAtEveryProgressCall(long steps, const std::function<DibHandle()> &call, const std::string &what) {
    const size_t live = Tz3LiveBlocks();
    for (long at = 0; at < steps; ++at) {
        ProgressRecorder progress(at);
        EXPECT_EQ(call(), nullptr) << what << " cancel at " << at;
        EXPECT_EQ(Tz3GetErrorStatus(), 1);
        EXPECT_EQ(progress.calls.size(), static_cast<size_t>(at + 1));
        EXPECT_EQ(Tz3LiveBlocks(), live);
    }
}

void CancelAtEveryProgressCallInEveryFormat(std::mt19937 &rng,
                                            const std::function<DibHandle(DibHandle image, DibHandle mask)> &run,
                                            const CallerCheck &after) {
    for (const Format f : kFormats) {
        const std::vector<uint8_t> src = RandomDib(rng, 5, 4, f.bits, f.is565);
        const std::vector<uint8_t> mask = RandomMask(rng, 5, 4);
        HandleGuard image(ToBlock(src));
        HandleGuard maskBlock(ToBlock(mask));
        const long steps = f.bits <= 8 ? static_cast<long>(TableEntries(src)) : 4;
        ExpectCancelAtEveryProgressCall(steps, [&] { return run(image.h, maskBlock.h); }, std::to_string(f.bits));
        if (after) {
            after(image.h, src, maskBlock.h);
        } else {
            ExpectCallerBlocksUnchanged(image.h, src, maskBlock.h);
        }
    }
}

void CountAllocations(const std::function<DibHandle()> &call, long *allocations) {
    FailingAllocator counter;
    HandleGuard out(call());
    ASSERT_NE(out.h, nullptr);
    *allocations = counter.count;
}

void ExpectFailureAtEveryAllocation(long allocations, const std::function<DibHandle()> &call, const std::string &what) {
    const size_t live = Tz3LiveBlocks();
    for (long at = 0; at < allocations; ++at) {
        FailingAllocator failing(at);
        EXPECT_EQ(call(), nullptr) << what << " failing allocation " << at;
        EXPECT_EQ(Tz3GetErrorStatus(), 3);
        EXPECT_EQ(Tz3LiveBlocks(), live);
    }
}

void FailEveryAllocationInEveryFormatAndKind(std::mt19937 &rng, const RegionCall &call,
                                             const std::function<void(Format f, int kind, long allocations)> &checkCount,
                                             const CallerCheck &after) {
    const Tz3Point polygon[3] = {{0, 0}, {6, 1}, {2, 5}};
    const Tz3Rect ellipse{1, 1, 6, 5};
    for (const Format f : kFormats) {
        const std::vector<uint8_t> src = RandomDib(rng, 7, 6, f.bits, f.is565);
        HandleGuard image(ToBlock(src));
        for (int kind : {1, 2, 3}) {
            const DibPair pair{image.h, nullptr};
            const auto once = [&] { return call(&pair, kind, polygon, 3, &ellipse); };
            long allocations = 0;
            ASSERT_NO_FATAL_FAILURE(CountAllocations(once, &allocations));
            if (checkCount) {
                ASSERT_NO_FATAL_FAILURE(checkCount(f, kind, allocations));
            }
            ExpectFailureAtEveryAllocation(allocations, once,
                                           std::to_string(f.bits) + " kind " + std::to_string(kind));
            if (after) {
                after(image.h, src, nullptr);
            } else {
                ExpectCallerBlocksUnchanged(image.h, src);
            }
        }
    }
}

void ExpectNullImageRefused(const std::function<DibHandle(const DibPair *pair)> &call) {
    const DibPair pair{nullptr, nullptr};
    EXPECT_EQ(call(&pair), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
    EXPECT_EQ(call(nullptr), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
}

void ExpectShortBlockRefused(std::initializer_list<int> depths, const std::function<DibHandle(DibHandle image)> &run) {
    for (int bits : depths) {
        std::vector<uint8_t> src = MakeDibBytes(8, 8, bits);
        src.pop_back();
        HandleGuard image(ToBlock(src));
        EXPECT_EQ(run(image.h), nullptr) << bits << " bits";
        EXPECT_EQ(Tz3GetErrorStatus(), 7) << bits << " bits";
        EXPECT_TRUE(IsUnlocked(image.h)) << bits << " bits";
    }
}

void ExpectPaletteIgnoresRegionWhilePixelsRefuseUnknownKind(
    std::mt19937 &rng, int paletteBits, const std::function<DibHandle(DibHandle image, int32_t kind)> &run,
    const std::function<std::vector<uint8_t>(const std::vector<uint8_t> &src)> &reference) {
    const std::vector<uint8_t> palette = RandomDib(rng, 5, 5, paletteBits);
    HandleGuard paletteImage(ToBlock(palette));
    HandleGuard nine(run(paletteImage.h, 9));
    ASSERT_NE(nine.h, nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 0);
    EXPECT_EQ(FromBlock(nine.h), reference(palette));

    const std::vector<uint8_t> direct = RandomDib(rng, 5, 5, 24);
    HandleGuard directImage(ToBlock(direct));
    const size_t live = Tz3LiveBlocks();
    EXPECT_EQ(run(directImage.h, 4), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 5);
    EXPECT_EQ(Tz3LiveBlocks(), live);
    EXPECT_TRUE(IsUnlocked(directImage.h));
}

}  // namespace tz3test
