// TZ3Layer against a literal transcription of its rules on random images of every depth on both
// sides, its edge cases (the key inside and outside the base, placement from the top), statuses,
// progress, cancellation, allocation failure and the caller's blocks.
#include <gtest/gtest.h>

#include <random>

#include "support/compose_reference.h"
#include "support/test_images.h"
#include "support/tone_harness.h"
#include "tz3effect.h"

using namespace tz3test;

namespace {

DibHandle Layer(DibHandle base, DibHandle over, const LayerSettings &s, int32_t noDialog = 1, intptr_t d1 = 0,
                intptr_t d2 = 0, intptr_t d3 = 0) {
    return TZ3Layer(base, over, s.opacity, s.keyRed, s.keyGreen, s.keyBlue, s.backRed, s.backGreen,
                    s.backBlue, s.layerX, s.layerY, s.keepSize, noDialog, d1, d2, d3);
}

std::vector<uint8_t> Solid24(int width, int height, Bgr c) {
    std::vector<uint8_t> d = MakeDibBytes(width, height, 24);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            uint8_t *p = &d[40 + RowBytes(24, width) * y + 3 * x];
            p[0] = c.b;
            p[1] = c.g;
            p[2] = c.r;
        }
    }
    return d;
}

void SetPixel24(std::vector<uint8_t> &d, int x, int y, Bgr c) {
    uint8_t *p = &d[40 + RowBytes(24, ImageWidth(d)) * y + 3 * x];
    p[0] = c.b;
    p[1] = c.g;
    p[2] = c.r;
}

// Random settings; the key is one of the upper image's own colours most of the time.
LayerSettings RandomLayerSettings(std::mt19937 &rng, const std::vector<uint8_t> &over, int baseWidth,
                                  int baseHeight) {
    LayerSettings s;
    static const int32_t kOpacity[] = {0, 1, 128, 254, 255, 256, 511};
    s.opacity = rng() % 2 == 0 ? kOpacity[rng() % 7] : static_cast<int32_t>(rng() % 1024);
    if (rng() % 4 != 0) {
        const Bgr k = RefPixel(over, static_cast<int>(rng() % ImageWidth(over)),
                               static_cast<int>(rng() % ImageHeight(over)));
        s.keyRed = k.r + (rng() % 2 == 0 ? 0 : 256);  // only the low byte counts
        s.keyGreen = k.g;
        s.keyBlue = k.b;
    } else {
        s.keyRed = static_cast<int32_t>(rng() % 256);
    }
    s.backRed = static_cast<int32_t>(rng() % 512);
    s.backGreen = static_cast<int32_t>(rng() % 256);
    s.backBlue = static_cast<int32_t>(rng() % 256);
    s.layerX = static_cast<int32_t>(rng() % (baseWidth + 10)) - 5 - ImageWidth(over) / 2;
    s.layerY = static_cast<int32_t>(rng() % (baseHeight + 10)) - 5 - ImageHeight(over) / 2;
    s.keepSize = rng() % 2 == 0 ? 0 : static_cast<int32_t>(rng() | 1);
    return s;
}

std::string Text(const LayerSettings &s) {
    return Describe(", opacity/key/x/y/keep", s.opacity, s.keyRed, s.keyGreen, s.keyBlue, s.layerX, s.layerY,
                    s.keepSize);
}

void ExpectMatches(const std::vector<uint8_t> &base, const std::vector<uint8_t> &over, const LayerSettings &s,
                   const std::string &what) {
    HandleGuard b(ToBlock(base)), o(ToBlock(over));
    HandleGuard out(Layer(b.h, o.h, s));
    ASSERT_NE(out.h, nullptr) << what << Text(s);
    EXPECT_EQ(Tz3GetErrorStatus(), 0);
    EXPECT_EQ(FromBlock(out.h), ReferenceLayer(base, over, s)) << what << Text(s);
    EXPECT_TRUE(IsUnlocked(out.h));
    ExpectCallerBlocksUnchanged(b.h, base);
    ExpectCallerBlocksUnchanged(o.h, over);
}

}  // namespace

TEST(Layer, MatchesReferenceForEveryBaseAndUpperFormat) {
    std::mt19937 rng(7501);
    for (const Format bf : kFormats) {
        for (const Format of : kFormats) {
            for (int trial = 0; trial < 5; ++trial) {
                const int bw = 1 + static_cast<int>(rng() % 10), bh = 1 + static_cast<int>(rng() % 8);
                const std::vector<uint8_t> base = RandomSource(rng, bf, bw, bh);
                const std::vector<uint8_t> over =
                    RandomSource(rng, of, 1 + static_cast<int>(rng() % 10), 1 + static_cast<int>(rng() % 8));
                const LayerSettings s = RandomLayerSettings(rng, over, bw, bh);
                ASSERT_NO_FATAL_FAILURE(ExpectMatches(
                    base, over, s, "base " + std::to_string(bf.bits) + " over " + std::to_string(of.bits)));
            }
        }
    }
}

TEST(Layer, MatchesReferenceForEveryUpperWidthFrom1To33) {
    std::mt19937 rng(7502);
    for (const Format of : kFormats) {
        for (int width = 1; width <= 33; ++width) {
            const Format bf = kFormats[rng() % 7];
            const int bw = 1 + static_cast<int>(rng() % 34), bh = 1 + static_cast<int>(rng() % 5);
            const std::vector<uint8_t> base = RandomSource(rng, bf, bw, bh);
            const std::vector<uint8_t> over = RandomSource(rng, of, width, 1 + static_cast<int>(rng() % 5));
            const LayerSettings s = RandomLayerSettings(rng, over, bw, bh);
            ASSERT_NO_FATAL_FAILURE(ExpectMatches(base, over, s, "over width " + std::to_string(width)));
        }
    }
}

TEST(Layer, KeyedPixelShowsTheBaseInsideAndKeepsTheKeyOutside) {
    const Bgr key{1, 2, 3};
    const std::vector<uint8_t> base = Solid24(2, 1, Bgr{100, 100, 100});
    std::vector<uint8_t> over = Solid24(3, 1, key);  // columns 1..3: one over the base, two beyond
    SetPixel24(over, 1, 0, Bgr{50, 50, 50});
    HandleGuard b(ToBlock(base)), o(ToBlock(over));
    LayerSettings s;
    s.keyRed = 3;
    s.keyGreen = 2;
    s.keyBlue = 1;
    s.backRed = s.backGreen = s.backBlue = 9;
    s.layerX = 1;
    s.opacity = 255;
    HandleGuard out(Layer(b.h, o.h, s));
    ASSERT_NE(out.h, nullptr);
    const std::vector<uint8_t> r = FromBlock(out.h);
    ASSERT_EQ(ImageWidth(r), 4);
    EXPECT_EQ(Pixel24(r, 0, 0), (Bgr{100, 100, 100}));  // base alone
    EXPECT_EQ(Pixel24(r, 1, 0), (Bgr{100, 100, 100}));  // keyed over the base: the base shows
    EXPECT_EQ(Pixel24(r, 2, 0), (Bgr{50, 50, 50}));     // not keyed
    EXPECT_EQ(Pixel24(r, 3, 0), key);                   // keyed beyond the base: the key, not Back
}

TEST(Layer, OpacityZeroWithoutKeepSizeShowsTheBaseInsideAndTheUpperImageOutside) {
    std::mt19937 rng(7503);
    const std::vector<uint8_t> base = RandomSource(rng, Format{8, false}, 3, 3);
    const std::vector<uint8_t> over = RandomSource(rng, Format{24, false}, 3, 3);
    HandleGuard b(ToBlock(base)), o(ToBlock(over));
    LayerSettings s;
    s.opacity = 0;
    s.layerX = 2;
    s.layerY = 1;
    s.keyRed = -1;  // low byte 255
    s.backBlue = 44;
    HandleGuard out(Layer(b.h, o.h, s));
    ASSERT_NE(out.h, nullptr);
    const std::vector<uint8_t> r = FromBlock(out.h);
    // Columns 0..4; rows: base 0..2, over rows -1..1.
    ASSERT_EQ(ImageWidth(r), 5);
    ASSERT_EQ(ImageHeight(r), 4);
    for (int ry = 0; ry < 4; ++ry) {
        for (int x = 0; x < 5; ++x) {
            const int y = ry - 1;
            const Bgr got = Pixel24(r, x, ry);
            if (x < 3 && y >= 0) {
                EXPECT_EQ(got, RefPixel(base, x, y));
            } else if (x >= 2 && y <= 1) {
                EXPECT_EQ(got, RefPixel(over, x - 2, y + 1));
            } else {
                EXPECT_EQ(got.b, 44);
            }
        }
    }
}

TEST(Layer, OneBitUpperImageOverA32BitBaseNeedsNoConversion) {
    std::mt19937 rng(7504);
    const std::vector<uint8_t> base = RandomSource(rng, Format{32, false}, 9, 4);
    const std::vector<uint8_t> over = RandomDib(rng, 5, 3, 1);
    HandleGuard b(ToBlock(base)), o(ToBlock(over));
    LayerSettings s;
    s.opacity = 200;
    s.layerX = 2;
    s.layerY = 1;
    s.keepSize = 1;
    HandleGuard out(Layer(b.h, o.h, s));
    ASSERT_NE(out.h, nullptr);
    const std::vector<uint8_t> r = FromBlock(out.h);
    EXPECT_EQ(r, ReferenceLayer(base, over, s));
    // Over pixel (0, 0) is the over image's bottom-left: base column 2, row 4 - 3 - 1 = 0.
    const Bgr o00 = RefPixel(over, 0, 0), b20 = RefPixel(base, 2, 0);
    EXPECT_EQ(Pixel24(r, 2, 0).g, RefBlend(o00.g, b20.g, 200));
}

TEST(Layer, KeepSizeWithTheUpperImageOutsideGivesTheBaseIn24Bits) {
    std::mt19937 rng(7505);
    for (const Format f : kFormats) {
        const std::vector<uint8_t> base = RandomSource(rng, f, 6, 5);
        const std::vector<uint8_t> over = RandomSource(rng, kFormats[rng() % 7], 3, 3);
        HandleGuard b(ToBlock(base)), o(ToBlock(over));
        LayerSettings s;
        s.layerX = 6;  // just right of the base
        s.layerY = -2;
        s.keepSize = 1;
        HandleGuard out(Layer(b.h, o.h, s));
        ASSERT_NE(out.h, nullptr);
        const std::vector<uint8_t> r = FromBlock(out.h);
        ASSERT_EQ(ImageWidth(r), 6);
        ASSERT_EQ(ImageHeight(r), 5);
        for (int y = 0; y < 5; ++y) {
            for (int x = 0; x < 6; ++x) EXPECT_EQ(Pixel24(r, x, y), RefPixel(base, x, y)) << f.bits;
        }
    }
}

TEST(Layer, PlacementCountsFromTheTopRowSoAShorterUpperImageSitsAtTheTop) {
    const std::vector<uint8_t> base = Solid24(3, 4, Bgr{0, 0, 0});
    std::vector<uint8_t> over = Solid24(3, 4, Bgr{200, 200, 200});
    SetPixel24(over, 0, 3, Bgr{9, 8, 7});  // the over image's top-left pixel
    HandleGuard b(ToBlock(base));
    LayerSettings s;
    s.keepSize = 1;
    {
        // Equal sizes at (0, 0): top rows and left columns coincide.
        HandleGuard o(ToBlock(over));
        HandleGuard out(Layer(b.h, o.h, s));
        ASSERT_NE(out.h, nullptr);
        EXPECT_EQ(Pixel24(FromBlock(out.h), 0, 3), (Bgr{9, 8, 7}));
    }
    {
        // A two-row upper image covers the base's top two rows (3 and 2), not its bottom ones.
        std::vector<uint8_t> shortOver = Solid24(3, 2, Bgr{200, 200, 200});
        SetPixel24(shortOver, 0, 1, Bgr{9, 8, 7});
        HandleGuard o(ToBlock(shortOver));
        HandleGuard out(Layer(b.h, o.h, s));
        ASSERT_NE(out.h, nullptr);
        const std::vector<uint8_t> r = FromBlock(out.h);
        EXPECT_EQ(Pixel24(r, 0, 3), (Bgr{9, 8, 7}));
        EXPECT_EQ(Pixel24(r, 1, 2), (Bgr{200, 200, 200}));
        EXPECT_EQ(Pixel24(r, 1, 1), (Bgr{0, 0, 0}));
        EXPECT_EQ(Pixel24(r, 1, 0), (Bgr{0, 0, 0}));
        // layerY 1 moves it one row down.
        s.layerY = 1;
        HandleGuard lower(Layer(b.h, o.h, s));
        EXPECT_EQ(Pixel24(FromBlock(lower.h), 0, 2), (Bgr{9, 8, 7}));
        EXPECT_EQ(Pixel24(FromBlock(lower.h), 1, 3), (Bgr{0, 0, 0}));
    }
}

TEST(Layer, OpacityCountsByItsLowByte) {
    std::mt19937 rng(7506);
    const std::vector<uint8_t> base = RandomSource(rng, Format{24, false}, 5, 5);
    const std::vector<uint8_t> over = RandomSource(rng, Format{16, false}, 4, 4);
    HandleGuard b(ToBlock(base)), o(ToBlock(over));
    LayerSettings s;
    s.layerX = 2;
    s.layerY = 2;
    s.keyRed = 7;
    const auto run = [&](int32_t opacity) {
        s.opacity = opacity;
        HandleGuard out(Layer(b.h, o.h, s));
        return FromBlock(out.h);
    };
    EXPECT_EQ(run(256), run(0));
    EXPECT_EQ(run(511), run(255));
    EXPECT_NE(run(0), run(255));
}

TEST(Layer, RefusedFormatIsStatus4WhereThePasteGives7) {
    std::mt19937 rng(7507);
    std::vector<uint8_t> bad16 = RandomDib(rng, 3, 3, 16, true);
    SetField32(bad16, 40, 0x00FF);
    std::vector<uint8_t> bad32 = RandomDib(rng, 3, 3, 32);
    SetField32(bad32, 16, 3);
    SetField32(bad32, 40, 0x1234);
    std::vector<uint8_t> badDepth = MakeDibBytes(3, 3, 24);
    badDepth[14] = 7;
    HandleGuard good(ToBlock(MakeDibBytes(3, 3, 24)));
    for (const auto *bad : {&bad16, &bad32, &badDepth}) {
        HandleGuard b(ToBlock(*bad));
        const size_t live = Tz3LiveBlocks();
        EXPECT_EQ(Layer(b.h, good.h, LayerSettings{}), nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 4);
        EXPECT_EQ(Layer(good.h, b.h, LayerSettings{}), nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 4);
        EXPECT_EQ(Tz3LiveBlocks(), live);
        EXPECT_TRUE(IsUnlocked(b.h));
        EXPECT_TRUE(IsUnlocked(good.h));
        const DibPair pair{b.h, nullptr};
        EXPECT_EQ(TZ3PasteImage(good.h, &pair, 0, 0, 0, 255, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0), nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 7);
    }
}

TEST(Layer, NullImagesShortBlocksAndEmptySizesAreStatus7) {
    HandleGuard good(ToBlock(MakeDibBytes(3, 3, 24)));
    EXPECT_EQ(Layer(nullptr, good.h, LayerSettings{}), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
    EXPECT_EQ(Layer(good.h, nullptr, LayerSettings{}), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
    std::vector<uint8_t> shortBlock = MakeDibBytes(3, 3, 8);
    shortBlock.pop_back();
    std::vector<uint8_t> noRows = MakeDibBytes(3, 1, 24);
    SetField32(noRows, 8, 0);
    std::vector<uint8_t> topDown = MakeDibBytes(3, 3, 24);
    SetField32(topDown, 8, static_cast<uint32_t>(-3));
    for (const auto *bad : {&shortBlock, &noRows, &topDown}) {
        HandleGuard b(ToBlock(*bad));
        EXPECT_EQ(Layer(b.h, good.h, LayerSettings{}), nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 7);
        EXPECT_EQ(Layer(good.h, b.h, LayerSettings{}), nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 7);
        EXPECT_TRUE(IsUnlocked(b.h));
    }
}

TEST(Layer, ResultPastTheSizeLimitIsStatus3) {
    HandleGuard img(ToBlock(MakeDibBytes(1, 1, 24)));
    LayerSettings s;
    s.layerX = INT32_MAX;
    s.layerY = INT32_MIN;
    const size_t live = Tz3LiveBlocks();
    EXPECT_EQ(Layer(img.h, img.h, s), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 3);
    EXPECT_EQ(Tz3LiveBlocks(), live);
}

TEST(Layer, DialogProgressCancelAndAllocationFailure) {
    std::mt19937 rng(7508);
    for (const Format f : kFormats) {
        const std::vector<uint8_t> base = RandomSource(rng, f, 4, 3);
        const std::vector<uint8_t> over = RandomSource(rng, kFormats[rng() % 7], 3, 2);
        HandleGuard b(ToBlock(base)), o(ToBlock(over));
        LayerSettings s;
        s.opacity = 128;
        s.layerX = 2;
        s.layerY = -1;  // one row above the base's top: result rows -... 0..3
        {
            DialogRecorder dialog;
            ProgressRecorder progress;
            HandleGuard out(Layer(b.h, o.h, s, 0, 1, 2, 3));
            ASSERT_NE(out.h, nullptr);
            EXPECT_EQ(Tz3GetErrorStatus(), 0);
            EXPECT_EQ(dialog.opens, 1);
            EXPECT_EQ(dialog.closes, 1);
            ExpectCountingProgress(progress.calls, 4, 0, "layer rows");
        }
        {
            DialogRecorder dialog(true);
            EXPECT_EQ(Layer(b.h, o.h, s, 0), nullptr);
            EXPECT_EQ(Tz3GetErrorStatus(), 2);
        }
        const auto once = [&] { return Layer(b.h, o.h, s); };
        ExpectCancelAtEveryProgressCall(4, once, "layer " + std::to_string(f.bits));
        long allocations = 0;
        ASSERT_NO_FATAL_FAILURE(CountAllocations(once, &allocations));
        EXPECT_GE(allocations, 2);  // the result and the blend table, and a row for a non-24-bit side
        ExpectFailureAtEveryAllocation(allocations, once, "layer " + std::to_string(f.bits));
        ExpectCallerBlocksUnchanged(b.h, base);
        ExpectCallerBlocksUnchanged(o.h, over);
    }
}

// Where both images cover a result row, the stretch is layered a whole row at a time. Upper images
// of four colours make the key recur along it; the overlap falls inside, cut on either side or
// nowhere, for every depth pair, keepSize on and off, and every low byte of the opacity.
TEST(Layer, OverlapStretchesMatchReferenceWithTheKeyRecurringAlongThem) {
    std::mt19937 rng(7503);
    int opacity = 0;
    for (const Format bf : kFormats) {
        for (int trial = 0; trial < 80; ++trial) {
            const int bw = 1 + static_cast<int>(rng() % 33), bh = 1 + static_cast<int>(rng() % 6);
            const int ow = 1 + static_cast<int>(rng() % 33), oh = 1 + static_cast<int>(rng() % 6);
            const std::vector<uint8_t> base = RandomSource(rng, bf, bw, bh);
            std::vector<uint8_t> over = MakeDibBytes(ow, oh, 24);
            const Bgr colours[4] = {{1, 2, 3}, {200, 100, 50}, {1, 2, 4}, {255, 0, 255}};
            for (int y = 0; y < oh; ++y) {
                for (int x = 0; x < ow; ++x) SetPixel24(over, x, y, colours[rng() % 4]);
            }
            LayerSettings s = RandomLayerSettings(rng, over, bw, bh);
            s.opacity = opacity;
            opacity = (opacity + 7) % 512;
            s.layerX = static_cast<int32_t>(rng() % (bw + ow + 4)) - (ow + 2);
            s.layerY = static_cast<int32_t>(rng() % (bh + oh + 4)) - (oh + 2);
            s.keepSize = trial % 2;
            ASSERT_NO_FATAL_FAILURE(ExpectMatches(base, over, s, "base " + std::to_string(bf.bits)));
        }
    }
}
