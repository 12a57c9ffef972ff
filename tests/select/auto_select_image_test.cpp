// TZ3AutoSelectImage and TZ3AutoSelectImageEx against a literal transcription of their rules on
// random images, regions, keys, metrics and tolerances of every format, with their edge cases,
// statuses, progress, cancellation and allocation failure.
#include <gtest/gtest.h>

#include <thread>

#include "support/select_reference.h"
#include "support/test_images.h"
#include "support/tone_harness.h"
#include "tz3effect.h"

using namespace tz3test;

namespace {

DibPair AutoSelect(DibHandle image, const RandomRegion &r, int32_t red, int32_t green, int32_t blue,
                   int32_t metric, int32_t tolerance, int32_t noDialog = 1) {
    return TZ3AutoSelectImage(image, r.kind, r.Points(), r.Count(), &r.rect, r.inside, red, green, blue,
                              metric, tolerance, noDialog, 0, 0, 0);
}

struct PairGuard {
    HandleGuard image, mask;
    explicit PairGuard(DibPair p) : image(p.image), mask(p.mask) {}
};

RandomRegion Whole() {
    RandomRegion r;
    r.kind = 1;
    return r;
}

// A 24-bit image of one row from its colours.
std::vector<uint8_t> Row24(const std::vector<std::array<uint8_t, 3>> &rgb) {
    std::vector<uint8_t> d = MakeDibBytes(static_cast<int>(rgb.size()), 1, 24);
    for (size_t i = 0; i < rgb.size(); ++i) {
        d[40 + 3 * i] = rgb[i][2];
        d[41 + 3 * i] = rgb[i][1];
        d[42 + 3 * i] = rgb[i][0];
    }
    return d;
}

std::vector<bool> SelectedRow(const DibPair &p, int width) {
    const std::vector<uint8_t> mask = FromBlock(p.mask);
    std::vector<bool> bits;
    for (int x = 0; x < width; ++x) bits.push_back(MaskBit(mask, x, 0));
    return bits;
}

}  // namespace

TEST(AutoSelectImage, MatchesReferenceOnRandomImagesRegionsKeysAndMetricsInEveryFormatAndWidth) {
    std::mt19937 rng(7101);
    for (const Format f : kFormats) {
        for (int width = 1; width <= 33; ++width) {
            for (int trial = 0; trial < 3; ++trial) {
                const int height = 1 + static_cast<int>(rng() % 6);
                const std::vector<uint8_t> src = RandomSource(rng, f, width, height);
                const RandomRegion region = DrawRegion(rng, width, height);
                const int32_t metric = static_cast<int32_t>(rng() % 3) + (rng() % 4 == 0 ? 0x300 : 0);
                const int32_t tolerance = static_cast<int32_t>(rng() % 3 == 0 ? rng() % 512 : rng() % 40);
                // Half of the keys are the colour of a pixel of the image, so that exact hits occur.
                int32_t red = static_cast<int32_t>(rng() % 256), green = static_cast<int32_t>(rng() % 256),
                        blue = static_cast<int32_t>(rng() % 256);
                if (f.bits >= 24 && rng() % 2 == 0) {
                    const size_t at = PixelOffset(src) + (f.bits / 8) * (rng() % width);
                    blue = src[at];
                    green = src[at + 1];
                    red = src[at + 2];
                }
                HandleGuard image(ToBlock(src));
                PairGuard out(AutoSelect(image.h, region, red, green, blue, metric, tolerance));
                const std::string what = Describe("bits, width, kind, inside, metric, tolerance: ", f.bits,
                                                  width, region.kind, region.inside, metric, tolerance);
                ASSERT_NE(out.image.h, nullptr) << what;
                ASSERT_NE(out.mask.h, nullptr) << what;
                EXPECT_EQ(Tz3GetErrorStatus(), 0);
                const RefPair expected =
                    ReferenceAutoSelectImage(src, region, red, green, blue, metric & 0xFF, tolerance);
                EXPECT_EQ(FromBlock(out.image.h), expected.image) << what;
                EXPECT_EQ(FromBlock(out.mask.h), expected.mask) << what;
                ExpectCallerBlocksUnchanged(image.h, src);
            }
        }
    }
}

TEST(AutoSelectImage, ToleranceZeroOnRgbSelectsOnlyTheKeyItself) {
    const std::vector<uint8_t> src =
        Row24({{10, 20, 30}, {10, 20, 31}, {11, 20, 30}, {10, 20, 30}, {9, 21, 30}});
    HandleGuard image(ToBlock(src));
    PairGuard out(AutoSelect(image.h, Whole(), 10, 20, 30, 0, 0));
    ASSERT_NE(out.image.h, nullptr);
    EXPECT_EQ(SelectedRow({out.image.h, out.mask.h}, 5),
              (std::vector<bool>{true, false, false, true, false}));
}

TEST(AutoSelectImage, ToleranceZeroOnLumaSelectsEveryHueOfTheKeysTruncatedLuma) {
    // Colours of the key's luma and of its neighbours, of different hues.
    const std::array<uint8_t, 3> key{200, 40, 90};
    const int32_t y = ReferenceLuma(key[0], key[1], key[2]);
    std::vector<std::array<uint8_t, 3>> colours;
    std::vector<bool> expected;
    std::mt19937 rng(7102);
    while (colours.size() < 40) {
        const std::array<uint8_t, 3> c{static_cast<uint8_t>(rng()), static_cast<uint8_t>(rng()),
                                       static_cast<uint8_t>(rng())};
        const int32_t cy = ReferenceLuma(c[0], c[1], c[2]);
        if (std::abs(cy - y) > 1) continue;
        colours.push_back(c);
        expected.push_back(cy == y);
    }
    const int hits = static_cast<int>(std::count(expected.begin(), expected.end(), true));
    ASSERT_GT(hits, 2);
    ASSERT_LT(hits, 38);
    HandleGuard image(ToBlock(Row24(colours)));
    PairGuard out(AutoSelect(image.h, Whole(), key[0], key[1], key[2], 2, 0));
    ASSERT_NE(out.image.h, nullptr);
    EXPECT_EQ(SelectedRow({out.image.h, out.mask.h}, 40), expected);
}

TEST(AutoSelectImage, LumaAndChromaAreTruncatedBeforeTheDifference) {
    // White has luma 254: the float table sums stay just below 255.
    EXPECT_EQ(ReferenceLuma(255, 255, 255), 254);
    HandleGuard image(ToBlock(Row24({{255, 255, 255}, {254, 254, 254}, {253, 253, 253}})));
    PairGuard out(AutoSelect(image.h, Whole(), 254, 254, 254, 2, 0));
    ASSERT_NE(out.image.h, nullptr);
    const std::vector<bool> expected{ReferenceLuma(255, 255, 255) == ReferenceLuma(254, 254, 254), true,
                                     ReferenceLuma(253, 253, 253) == ReferenceLuma(254, 254, 254)};
    EXPECT_EQ(SelectedRow({out.image.h, out.mask.h}, 3), expected);
}

TEST(AutoSelectImage, ChromaMetricIgnoresLumaAndUsesTwiceTheTolerance) {
    // Grays all have Cr = Cb = 128 or close: with tolerance 1 a gray key selects every gray.
    const std::vector<uint8_t> src = Row24({{0, 0, 0}, {128, 128, 128}, {255, 255, 255}, {255, 0, 0}});
    HandleGuard image(ToBlock(src));
    PairGuard out(AutoSelect(image.h, Whole(), 60, 60, 60, 1, 1));
    ASSERT_NE(out.image.h, nullptr);
    std::vector<bool> expected;
    for (const auto &c :
         std::vector<std::array<uint8_t, 3>>{{0, 0, 0}, {128, 128, 128}, {255, 255, 255}, {255, 0, 0}}) {
        const int d = std::abs(ReferenceCr(c[0], c[1], c[2]) - ReferenceCr(60, 60, 60)) +
                      std::abs(ReferenceCb(c[0], c[1], c[2]) - ReferenceCb(60, 60, 60));
        expected.push_back(d <= 2);
    }
    EXPECT_EQ(expected, (std::vector<bool>{true, true, true, false}));
    EXPECT_EQ(SelectedRow({out.image.h, out.mask.h}, 4), expected);
}

TEST(AutoSelectImage, Tolerance255OnRgbSelectsEveryPixel) {
    std::mt19937 rng(7103);
    const std::vector<uint8_t> src = Row24({{0, 0, 0}, {255, 255, 255}, {255, 0, 255}, {1, 2, 3}});
    HandleGuard image(ToBlock(src));
    for (const auto &key : std::vector<std::array<int, 3>>{{0, 0, 0}, {255, 255, 255}, {0, 255, 0}}) {
        PairGuard out(AutoSelect(image.h, Whole(), key[0], key[1], key[2], 0, 255));
        ASSERT_NE(out.image.h, nullptr);
        EXPECT_EQ(SelectedRow({out.image.h, out.mask.h}, 4), std::vector<bool>(4, true));
    }
    // Tolerance counts by its low byte: 256 is 0.
    PairGuard zero(AutoSelect(image.h, Whole(), 0, 0, 0, 0, 256));
    EXPECT_EQ(SelectedRow({zero.image.h, zero.mask.h}, 4), (std::vector<bool>{true, false, false, false}));
}

TEST(AutoSelectImage, PolygonOutsideWorksOnTheWholeImageAndSelectsOnlyOutsideTheShape) {
    std::vector<uint8_t> src = MakeDibBytes(6, 4, 24);  // all black: every pixel matches the key
    for (size_t i = 40; i < src.size(); ++i) src[i] = 0;
    HandleGuard image(ToBlock(src));
    RandomRegion r;
    r.kind = 2;
    r.points = {{1, 1}, {3, 1}, {3, 2}, {1, 2}};
    r.inside = 0;
    PairGuard out(AutoSelect(image.h, r, 0, 0, 0, 0, 0));
    ASSERT_NE(out.image.h, nullptr);
    const std::vector<uint8_t> mask = FromBlock(out.mask.h);
    ASSERT_EQ(ImageWidth(mask), 6);
    ASSERT_EQ(ImageHeight(mask), 4);
    for (int y = 0; y < 4; ++y) {
        for (int x = 0; x < 6; ++x) {
            const int top = 3 - y;
            const bool inShape = x >= 1 && x <= 3 && top >= 1 && top <= 2;
            EXPECT_EQ(MaskBit(mask, x, y), !inShape) << x << "," << y;
        }
    }
}

TEST(AutoSelectImage, PixelsOutsideTheRegionAreZeroWithAClearBit) {
    std::mt19937 rng(7104);
    for (const int bits : {8, 24}) {
        std::vector<uint8_t> src = RandomDib(rng, 8, 8, bits);
        for (size_t i = PixelOffset(src); i < src.size(); ++i)
            src[i] = static_cast<uint8_t>(i % 2 == 0 ? 7 : 9);
        HandleGuard image(ToBlock(src));
        RandomRegion r;
        r.kind = 3;
        r.rect = Tz3Rect{0, 0, 8, 8};
        r.inside = 1;
        PairGuard out(AutoSelect(image.h, r, 0, 0, 0, 0, 255));
        ASSERT_NE(out.image.h, nullptr);
        const std::vector<uint8_t> result = FromBlock(out.image.h), mask = FromBlock(out.mask.h);
        // The corner pixel (0, 0) lies outside the ellipse; the centre inside.
        const size_t corner = PixelOffset(result);
        for (int i = 0; i < bits / 8; ++i) EXPECT_EQ(result[corner + i], 0) << bits;
        EXPECT_FALSE(MaskBit(mask, 0, 0));
        EXPECT_TRUE(MaskBit(mask, 4, 4));
        EXPECT_NE(result[PixelOffset(result) + RowBytes(bits, 8) * 4 + 4 * (bits / 8)], 0);
    }
}

TEST(AutoSelectImage, ThirtyTwoBitCopyLosesTheFourthByte) {
    std::vector<uint8_t> src = MakeDibBytes(2, 1, 32);
    const uint8_t pixels[8] = {1, 2, 3, 0xAB, 4, 5, 6, 0xCD};
    std::memcpy(&src[40], pixels, 8);
    HandleGuard image(ToBlock(src));
    PairGuard out(AutoSelect(image.h, Whole(), 3, 2, 1, 0, 0));
    ASSERT_NE(out.image.h, nullptr);
    const std::vector<uint8_t> result = FromBlock(out.image.h);
    EXPECT_EQ(std::vector<uint8_t>(result.begin() + 40, result.end()),
              (std::vector<uint8_t>{1, 2, 3, 0, 4, 5, 6, 0}));
    EXPECT_EQ(SelectedRow({out.image.h, out.mask.h}, 2), (std::vector<bool>{true, false}));
}

TEST(AutoSelectImage, SixteenBitCopyIsRecodedAndAKeyReadWithTheSameExpansionMatches) {
    for (const bool is565 : {false, true}) {
        std::mt19937 rng(7105);
        std::vector<uint8_t> src = RandomDib(rng, 3, 1, 16, is565);
        const size_t at = PixelOffset(src);
        // Channels 5 (a level from 1..30 loses one), 31 and 0 (kept).
        const uint16_t words[3] = {
            static_cast<uint16_t>(is565 ? (5 << 11) | (40 << 5) | 5 : (5 << 10) | (5 << 5) | 5),
            static_cast<uint16_t>(is565 ? 0xFFFF : 0x7FFF), 0};
        for (int i = 0; i < 3; ++i) {
            src[at + 2 * i] = static_cast<uint8_t>(words[i]);
            src[at + 2 * i + 1] = static_cast<uint8_t>(words[i] >> 8);
        }
        HandleGuard image(ToBlock(src));
        // The key is the first word expanded: 5 -> 41, (565 green 40 -> 161).
        const int red = 5 * 255 / 31, green = is565 ? 40 * 255 / 63 : 5 * 255 / 31, blue = 5 * 255 / 31;
        PairGuard out(AutoSelect(image.h, Whole(), red, green, blue, 0, 0));
        ASSERT_NE(out.image.h, nullptr);
        const std::vector<uint8_t> result = FromBlock(out.image.h);
        const uint16_t lowered =
            static_cast<uint16_t>(is565 ? (4 << 11) | (39 << 5) | 4 : (4 << 10) | (4 << 5) | 4);
        EXPECT_EQ(WordAt(result, at), lowered) << is565;
        EXPECT_EQ(WordAt(result, at + 2), is565 ? 0xFFFF : 0x7FFF);
        EXPECT_EQ(WordAt(result, at + 4), 0);
        EXPECT_EQ(SelectedRow({out.image.h, out.mask.h}, 3), (std::vector<bool>{true, false, false}))
            << is565;
    }
}

TEST(AutoSelectImage, PaletteImagesCompareTheTableEntryAndCopyTheIndex) {
    // Index 2 points past a two-entry table: its colour is read from the bytes that follow.
    std::vector<uint8_t> src = MakeDibBytes(4, 1, 8, 2);
    const uint8_t table[8] = {10, 20, 30, 0, 50, 60, 70, 0};
    std::memcpy(&src[40], table, 8);
    const size_t at = PixelOffset(src);
    src[at] = 1;
    src[at + 1] = 0;
    src[at + 2] = 2;
    src[at + 3] = 1;
    HandleGuard image(ToBlock(src));
    PairGuard out(AutoSelect(image.h, Whole(), 70, 60, 50, 0, 0));
    ASSERT_NE(out.image.h, nullptr);
    const std::vector<uint8_t> result = FromBlock(out.image.h);
    EXPECT_EQ(std::vector<uint8_t>(result.begin() + at, result.begin() + at + 4),
              (std::vector<uint8_t>{1, 0, 2, 1}));
    EXPECT_EQ(SelectedRow({out.image.h, out.mask.h}, 4), (std::vector<bool>{true, false, false, true}));
}

TEST(AutoSelectImage, AnUnknownMetricIsStatus5BeforeTheImageIsLookedAt) {
    std::mt19937 rng(7106);
    HandleGuard image(ToBlock(RandomDib(rng, 3, 3, 24)));
    for (const int32_t metric : {3, 255, 0x103}) {
        EXPECT_EQ(AutoSelect(nullptr, Whole(), 0, 0, 0, metric, 0).image, nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 5);
        EXPECT_EQ(AutoSelect(image.h, Whole(), 0, 0, 0, metric, 0).image, nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 5);
    }
    PairGuard ok(AutoSelect(image.h, Whole(), 0, 0, 0, 0x100, 0));
    EXPECT_NE(ok.image.h, nullptr);
}

TEST(AutoSelectImage, BadImagesKindsAndPolygonsGetTheirStatus) {
    EXPECT_EQ(AutoSelect(nullptr, Whole(), 0, 0, 0, 0, 0).image, nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
    ExpectShortBlockRefused({1, 4, 8, 16, 24, 32},
                            [](DibHandle image) { return AutoSelect(image, Whole(), 0, 0, 0, 0, 0).image; });
    std::mt19937 rng(7107);
    for (const Format f : kFormats) {
        const std::vector<uint8_t> src = RandomDib(rng, 4, 4, f.bits, f.is565);
        HandleGuard image(ToBlock(src));
        const size_t live = Tz3LiveBlocks();
        for (int32_t kind : {0, 4, 256}) {
            RandomRegion r;
            r.kind = kind;
            const DibPair out = AutoSelect(image.h, r, 0, 0, 0, 0, 0);
            EXPECT_EQ(out.image, nullptr);
            EXPECT_EQ(out.mask, nullptr);
            EXPECT_EQ(Tz3GetErrorStatus(), 5) << kind;
        }
        RandomRegion one;
        one.kind = 2;
        one.points = {{1, 1}};
        EXPECT_EQ(AutoSelect(image.h, one, 0, 0, 0, 0, 0).image, nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 5);
        EXPECT_EQ(Tz3LiveBlocks(), live);
        ExpectCallerBlocksUnchanged(image.h, src);
    }
    std::vector<uint8_t> empty = MakeDibBytes(3, 2, 24);
    SetField32(empty, 4, 0);
    HandleGuard emptyImage(ToBlock(empty));
    EXPECT_EQ(AutoSelect(emptyImage.h, Whole(), 0, 0, 0, 0, 0).image, nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 5);
}

TEST(AutoSelectImage, ReportsEachRowOfTheBoxFromZero) {
    std::mt19937 rng(7108);
    HandleGuard image(ToBlock(RandomDib(rng, 5, 8, 24)));
    RandomRegion r;
    r.kind = 3;
    r.rect = Tz3Rect{0, 0, 4, 2};  // DIB rows 5..7
    r.inside = 1;
    ProgressRecorder progress;
    PairGuard out(AutoSelect(image.h, r, 0, 0, 0, 1, 3, 6));
    ASSERT_NE(out.image.h, nullptr);
    ExpectCountingProgress(progress.calls, 3, 6);
}

TEST(AutoSelectImage, CancelAtEveryRowLeavesNothingInEveryFormatKindAndMetric) {
    std::mt19937 rng(7109);
    for (const Format f : kFormats) {
        const std::vector<uint8_t> src = RandomDib(rng, 7, 5, f.bits, f.is565);
        HandleGuard image(ToBlock(src));
        for (int kind = 1; kind <= 3; ++kind) {
            for (int metric = 0; metric <= 2; ++metric) {
                RandomRegion r;
                r.kind = kind;
                r.points = {{0, 0}, {6, 1}, {2, 4}};
                r.rect = Tz3Rect{1, 1, 6, 4};
                const RefRegion box = ReferenceRegion(7, 5, r, false);
                ExpectCancelAtEveryProgressCall(
                    box.y1 - box.y0 + 1,
                    [&] {
                        const DibPair p = AutoSelect(image.h, r, 1, 2, 3, metric, 20);
                        EXPECT_EQ(p.mask, nullptr);
                        return p.image;
                    },
                    Describe("bits kind metric ", f.bits, kind, metric));
            }
        }
        ExpectCallerBlocksUnchanged(image.h, src);
    }
}

TEST(AutoSelectImage, FailureOfEachAllocationIsStatus3AndLeavesNothing) {
    std::mt19937 rng(7110);
    FailEveryAllocationInEveryFormatAndKind(
        rng,
        [](const DibPair *pair, int32_t kind, const Tz3Point *polygon, int32_t points,
           const Tz3Rect *ellipse) {
            const DibPair p = TZ3AutoSelectImage(pair->image, kind, polygon, points, ellipse, 1, 9, 9, 9, 2,
                                                 10, 1, 0, 0, 0);
            if (p.image == nullptr) {
                EXPECT_EQ(p.mask, nullptr);
            }
            if (p.mask != nullptr) Tz3GlobalFree(p.mask);
            return p.image;
        },
        [](Format, int kind, long allocations) {
            // The clone, the selection mask and the tables; the region mask for kinds 2 and 3; the
            // points for kind 2.
            EXPECT_EQ(allocations, kind == 1 ? 3 : kind == 2 ? 5 : 4);
        });
}

TEST(AutoSelectImage, DialogAndExForm) {
    std::mt19937 rng(7111);
    const std::vector<uint8_t> src = RandomDib(rng, 5, 4, 4);
    HandleGuard image(ToBlock(src));
    {
        DialogRecorder dialog(true);
        DibPair untouched{image.h, image.h};
        EXPECT_EQ(
            TZ3AutoSelectImageEx(image.h, &untouched, 1, nullptr, 0, nullptr, 1, 0, 0, 0, 0, 0, 0, 1, 2, 3),
            0);
        EXPECT_EQ(Tz3GetErrorStatus(), 2);
        EXPECT_EQ(untouched.image, image.h);
        EXPECT_EQ(untouched.mask, image.h);
        EXPECT_EQ(dialog.closes, 0);
    }
    {
        DialogRecorder dialog;
        DibPair out{nullptr, nullptr};
        ASSERT_EQ(TZ3AutoSelectImageEx(image.h, &out, 1, nullptr, 0, nullptr, 1, 0, 0, 0, 1, 30, 0, 1, 2, 3),
                  1);
        PairGuard guard(out);
        EXPECT_EQ(dialog.opens, 1);
        EXPECT_EQ(dialog.closes, 1);
        EXPECT_EQ(Tz3GetErrorStatus(), 0);
        const RefPair expected = ReferenceAutoSelectImage(src, Whole(), 0, 0, 0, 1, 30);
        EXPECT_EQ(FromBlock(out.image), expected.image);
        EXPECT_EQ(FromBlock(out.mask), expected.mask);
    }
    const size_t live = Tz3LiveBlocks();
    EXPECT_EQ(TZ3AutoSelectImageEx(image.h, nullptr, 1, nullptr, 0, nullptr, 1, 0, 0, 0, 0, 0, 1, 0, 0, 0),
              0);
    EXPECT_EQ(Tz3GetErrorStatus(), 5);
    EXPECT_EQ(Tz3LiveBlocks(), live);
}

TEST(AutoSelectImage, TwoThreadsKeepTheirOwnHandlersAndStatuses) {
    std::mt19937 rng(7112);
    const std::vector<uint8_t> big = RandomDib(rng, 64, 120, 24);
    const std::vector<uint8_t> small = RandomDib(rng, 9, 30, 16);
    HandleGuard bigImage(ToBlock(big));
    HandleGuard smallImage(ToBlock(small));
    const RefPair expected = ReferenceAutoSelectImage(big, Whole(), 100, 150, 200, 1, 12);
    for (int round = 0; round < 10; ++round) {
        RefPair result;
        int statusBig = -1, statusSmall = -1;
        size_t callsBig = 0, callsSmall = 0;
        std::thread first([&] {
            ProgressRecorder progress;
            PairGuard out(AutoSelect(bigImage.h, Whole(), 100, 150, 200, 1, 12));
            statusBig = Tz3GetErrorStatus();
            if (out.image.h != nullptr) result = RefPair{FromBlock(out.image.h), FromBlock(out.mask.h)};
            callsBig = progress.calls.size();
        });
        std::thread second([&] {
            ProgressRecorder progress(10);  // this thread's user cancels
            const DibPair out = AutoSelect(smallImage.h, Whole(), 0, 0, 0, 2, 9);
            statusSmall = Tz3GetErrorStatus();
            callsSmall = progress.calls.size();
            if (out.image != nullptr) Tz3GlobalFree(out.image);
            if (out.mask != nullptr) Tz3GlobalFree(out.mask);
        });
        first.join();
        second.join();
        EXPECT_EQ(statusBig, 0);
        EXPECT_EQ(result.image, expected.image);
        EXPECT_EQ(result.mask, expected.mask);
        EXPECT_EQ(callsBig, 120u);
        EXPECT_EQ(statusSmall, 1);
        EXPECT_EQ(callsSmall, 11u);
    }
}
