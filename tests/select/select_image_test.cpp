// TZ3SelectImage and TZ3SelectImageEx against a literal transcription of their rules on random
// images, shapes and fill colours of every format, with their edge cases, statuses, progress,
// cancellation and allocation failure.
#include <gtest/gtest.h>

#include "support/select_reference.h"
#include "support/test_images.h"
#include "support/tone_harness.h"
#include "tz3effect.h"

using namespace tz3test;

namespace {

DibPair Select(DibHandle image, const RandomRegion &r, int32_t red, int32_t green, int32_t blue,
               int32_t noDialog = 1) {
    return TZ3SelectImage(image, r.kind, r.Points(), r.Count(), &r.rect, r.inside, red, green, blue, noDialog,
                          0, 0, 0);
}

struct PairGuard {
    HandleGuard image, mask;
    explicit PairGuard(DibPair p) : image(p.image), mask(p.mask) {}
};

RandomRegion Whole(int32_t inside) {
    RandomRegion r;
    r.kind = 1;
    r.inside = inside;
    return r;
}

RandomRegion Polygon(std::vector<Tz3Point> points, int32_t inside) {
    RandomRegion r;
    r.kind = 2;
    r.points = std::move(points);
    r.inside = inside;
    return r;
}

bool AllMaskBitsSet(const std::vector<uint8_t> &mask) {
    const int w = ImageWidth(mask), h = ImageHeight(mask);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            if (!MaskBit(mask, x, y)) return false;
    return true;
}

}  // namespace

TEST(SelectImage, MatchesReferenceOnRandomImagesShapesAndFillsInEveryFormatAndWidth) {
    std::mt19937 rng(7001);
    for (const Format f : kFormats) {
        for (int width = 1; width <= 33; ++width) {
            for (int trial = 0; trial < 3; ++trial) {
                const int height = 1 + static_cast<int>(rng() % 6);
                const std::vector<uint8_t> src = RandomSource(rng, f, width, height);
                const RandomRegion region = DrawRegion(rng, width, height);
                const int32_t red = static_cast<int32_t>(rng() % 512),
                              green = static_cast<int32_t>(rng() % 256),
                              blue = static_cast<int32_t>(rng() % 256);
                HandleGuard image(ToBlock(src));
                PairGuard out(Select(image.h, region, red, green, blue));
                const std::string what =
                    Describe("bits, width, kind, inside: ", f.bits, width, region.kind, region.inside);
                ASSERT_NE(out.image.h, nullptr) << what;
                ASSERT_NE(out.mask.h, nullptr) << what;
                EXPECT_EQ(Tz3GetErrorStatus(), 0);
                const RefPair expected = ReferenceSelectImage(src, region, red, green, blue);
                EXPECT_EQ(FromBlock(out.image.h), expected.image) << what;
                EXPECT_EQ(FromBlock(out.mask.h), expected.mask) << what;
                ExpectCallerBlocksUnchanged(image.h, src);
            }
        }
    }
}

TEST(SelectImage, WholeImageInsideEqualsTheImageWithEveryMaskBitSet) {
    std::mt19937 rng(7002);
    for (const Format f : kFormats) {
        const std::vector<uint8_t> src = RandomDib(rng, 9, 5, f.bits, f.is565);
        HandleGuard image(ToBlock(src));
        PairGuard out(Select(image.h, Whole(1), 10, 20, 30));
        ASSERT_NE(out.image.h, nullptr);
        // The image itself, with the pad bytes of its rows zero.
        std::vector<uint8_t> expected = src;
        SetField32(expected, 20, RowBytes(f.bits, 9) * 5);
        const size_t used = (static_cast<size_t>(f.bits) * 9 + 7) / 8;
        for (int y = 0; y < 5; ++y) {
            const size_t row = PixelOffset(src) + RowBytes(f.bits, 9) * y;
            if (f.bits == 4) expected[row + used - 1] &= 0xF0;
            if (f.bits == 1) expected[row + used - 1] &= 0x80;
            for (size_t i = used; i < RowBytes(f.bits, 9); ++i) expected[row + i] = 0;
        }
        EXPECT_EQ(FromBlock(out.image.h), expected) << f.bits;
        EXPECT_TRUE(AllMaskBitsSet(FromBlock(out.mask.h))) << f.bits;
    }
}

TEST(SelectImage, WholeImageOutsideIsAllFillWithAClearMask) {
    std::mt19937 rng(7003);
    const std::vector<uint8_t> src = RandomDib(rng, 6, 3, 24);
    HandleGuard image(ToBlock(src));
    PairGuard out(Select(image.h, Whole(0), 1, 2, 3));
    ASSERT_NE(out.image.h, nullptr);
    const std::vector<uint8_t> result = FromBlock(out.image.h);
    for (int y = 0; y < 3; ++y) {
        for (int x = 0; x < 6; ++x) {
            const size_t at = 40 + RowBytes(24, 6) * y + 3 * x;
            EXPECT_EQ(result[at], 3);
            EXPECT_EQ(result[at + 1], 2);
            EXPECT_EQ(result[at + 2], 1);
            EXPECT_FALSE(MaskBit(FromBlock(out.mask.h), x, y));
        }
    }
}

TEST(SelectImage, PolygonOutsideWorksOnTheWholeImageFillingTheShape) {
    std::mt19937 rng(7004);
    const std::vector<uint8_t> src = RandomDib(rng, 8, 6, 8);
    HandleGuard image(ToBlock(src));
    // A rectangle of picture columns 2..5 and top-down rows 1..3 as a polygon.
    const RandomRegion region = Polygon({{2, 1}, {5, 1}, {5, 3}, {2, 3}}, 0);
    PairGuard out(Select(image.h, region, 0, 0, 0));
    ASSERT_NE(out.image.h, nullptr);
    const std::vector<uint8_t> result = FromBlock(out.image.h), mask = FromBlock(out.mask.h);
    ASSERT_EQ(ImageWidth(result), 8);
    ASSERT_EQ(ImageHeight(result), 6);
    const uint8_t fill = ReferenceNearestIndex(src, 0, 0, 0);
    for (int y = 0; y < 6; ++y) {
        for (int x = 0; x < 8; ++x) {
            const int top = 5 - y;
            const bool inShape = x >= 2 && x <= 5 && top >= 1 && top <= 3;
            const size_t at = PixelOffset(result) + RowBytes(8, 8) * y + x;
            EXPECT_EQ(MaskBit(mask, x, y), !inShape) << x << "," << y;
            EXPECT_EQ(result[at], inShape ? fill : src[at]) << x << "," << y;
        }
    }
}

TEST(SelectImage, FourBitBoxAtAnOddColumnMovesNibblesToTheParityOfTheirNewColumn) {
    std::vector<uint8_t> src = MakeDibBytes(6, 1, 4);
    const size_t at = PixelOffset(src);
    src[at] = 0x12;
    src[at + 1] = 0x34;
    src[at + 2] = 0x56;
    HandleGuard image(ToBlock(src));
    // Columns 1..4 of the one row: the line between two points.
    PairGuard out(Select(image.h, Polygon({{1, 0}, {4, 0}}, 1), 0, 0, 0));
    ASSERT_NE(out.image.h, nullptr);
    const std::vector<uint8_t> result = FromBlock(out.image.h);
    ASSERT_EQ(ImageWidth(result), 4);
    EXPECT_EQ(result[PixelOffset(result)], 0x23);
    EXPECT_EQ(result[PixelOffset(result) + 1], 0x45);
}

TEST(SelectImage, PaletteFillIsTheNearestEntryAndTheFirstOfEquals) {
    // Entries: 0 far, 1 and 2 equally near (100,100,100) and 3 exact for (10, 20, 30).
    std::vector<uint8_t> src = MakeDibBytes(3, 1, 8, 4);
    const uint8_t table[16] = {255, 255, 255, 0, 100, 100, 101, 0, 100, 100, 99, 0, 30, 20, 10, 0};
    std::memcpy(&src[40], table, 16);
    HandleGuard image(ToBlock(src));
    for (const auto &[colour, index] : std::vector<std::pair<std::array<int, 3>, int>>{
             {{100, 100, 100}, 1}, {{10, 20, 30}, 3}, {{255, 255, 255}, 0}}) {
        PairGuard out(Select(image.h, Whole(0), colour[0], colour[1], colour[2]));
        ASSERT_NE(out.image.h, nullptr);
        const std::vector<uint8_t> result = FromBlock(out.image.h);
        for (int x = 0; x < 3; ++x) EXPECT_EQ(result[PixelOffset(result) + x], index);
    }
}

TEST(SelectImage, FourBitFillIndexIsShiftedAsItStands) {
    // A 4-bit table of 20 entries whose only match is entry 17: even columns keep its low nibble
    // (1), odd columns OR the whole index 0x11 into their byte.
    std::vector<uint8_t> src = MakeDibBytes(2, 1, 4, 20);
    for (int i = 0; i < 20; ++i) src[40 + 4 * i] = src[41 + 4 * i] = src[42 + 4 * i] = 200;
    src[40 + 4 * 17] = src[41 + 4 * 17] = src[42 + 4 * 17] = 5;
    HandleGuard image(ToBlock(src));
    PairGuard out(Select(image.h, Whole(0), 5, 5, 5));
    ASSERT_NE(out.image.h, nullptr);
    const std::vector<uint8_t> result = FromBlock(out.image.h);
    EXPECT_EQ(result[PixelOffset(result)], 0x10 | 0x11);
}

TEST(SelectImage, OneBitFillUsesTheLowBitOfTheIndex) {
    std::vector<uint8_t> src = MakeDibBytes(9, 1, 1);
    src[44] = src[45] = src[46] = 255;  // entry 1 white
    HandleGuard image(ToBlock(src));
    PairGuard white(Select(image.h, Whole(0), 250, 250, 250));
    PairGuard black(Select(image.h, Whole(0), 3, 3, 3));
    ASSERT_NE(white.image.h, nullptr);
    ASSERT_NE(black.image.h, nullptr);
    const std::vector<uint8_t> w = FromBlock(white.image.h), b = FromBlock(black.image.h);
    EXPECT_EQ(w[48], 0xFF);
    EXPECT_EQ(w[49], 0x80);
    EXPECT_EQ(b[48], 0x00);
    EXPECT_EQ(b[49], 0x00);
}

TEST(SelectImage, ThirtyTwoBitCopiedPixelKeepsItsFourthByteAndAFilledOneHasZero) {
    std::vector<uint8_t> src = MakeDibBytes(2, 1, 32);
    const uint8_t pixels[8] = {1, 2, 3, 0xAB, 4, 5, 6, 0xCD};
    std::memcpy(&src[40], pixels, 8);
    HandleGuard image(ToBlock(src));
    // Only column 0 inside: a two-point line on column 0 of a one-row image, worked outside.
    PairGuard out(Select(image.h, Polygon({{1, 0}, {1, 0}}, 0), 7, 8, 9));
    ASSERT_NE(out.image.h, nullptr);
    const std::vector<uint8_t> result = FromBlock(out.image.h);
    const std::vector<uint8_t> expected = {1, 2, 3, 0xAB, 9, 8, 7, 0};
    EXPECT_EQ(std::vector<uint8_t>(result.begin() + 40, result.end()), expected);
}

TEST(SelectImage, SixteenBitCopiesWordsAsTheyAreAndPacksTheFillTruncating) {
    for (const bool is565 : {false, true}) {
        std::mt19937 rng(7005);
        std::vector<uint8_t> src = RandomDib(rng, 2, 1, 16, is565);
        const size_t at = PixelOffset(src);
        src[at] = 0x21;
        src[at + 1] = 0x84;  // 0x8421: bit 15 set, not a word a pack could give
        HandleGuard image(ToBlock(src));
        PairGuard out(Select(image.h, Polygon({{1, 0}, {1, 0}}, 0), 200, 100, 50));
        ASSERT_NE(out.image.h, nullptr);
        const std::vector<uint8_t> result = FromBlock(out.image.h);
        EXPECT_EQ(WordAt(result, at), 0x8421);
        const uint16_t fill = is565 ? static_cast<uint16_t>((24 << 11) | (24 << 5) | 6)
                                    : static_cast<uint16_t>((24 << 10) | (12 << 5) | 6);
        EXPECT_EQ(WordAt(result, at + 2), fill) << is565;
    }
}

TEST(SelectImage, FillColourCountsByItsLowByte) {
    std::mt19937 rng(7006);
    const std::vector<uint8_t> src = RandomDib(rng, 1, 1, 24);
    HandleGuard image(ToBlock(src));
    PairGuard out(Select(image.h, Whole(0), 0x1FF, 0x100, -1));
    ASSERT_NE(out.image.h, nullptr);
    const std::vector<uint8_t> result = FromBlock(out.image.h);
    EXPECT_EQ(result[40], 255);
    EXPECT_EQ(result[41], 0);
    EXPECT_EQ(result[42], 255);
}

TEST(SelectImage, ReportsTheAbsoluteRowOverTheBoxHeight) {
    std::mt19937 rng(7007);
    const std::vector<uint8_t> src = RandomDib(rng, 5, 8, 24);
    HandleGuard image(ToBlock(src));
    RandomRegion r;
    r.kind = 3;
    r.rect = Tz3Rect{0, 0, 4, 2};  // top-down rows 0..2: DIB rows 5..7
    r.inside = 1;
    ProgressRecorder progress;
    PairGuard out(Select(image.h, r, 0, 0, 0, 9));
    ASSERT_NE(out.image.h, nullptr);
    ASSERT_EQ(progress.calls.size(), 3u);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(progress.calls[i].current, 5 + i);
        EXPECT_EQ(progress.calls[i].total, 2);
        EXPECT_EQ(progress.calls[i].low, 0);
        EXPECT_EQ(progress.calls[i].high, 100);
        EXPECT_EQ(progress.calls[i].noDialog, 9);
    }
}

TEST(SelectImage, EllipseInsideLeavesTheLastColumnAndBottomRowOfItsBoxClear) {
    std::mt19937 rng(7008);
    const std::vector<uint8_t> src = RandomDib(rng, 12, 10, 24);
    HandleGuard image(ToBlock(src));
    RandomRegion r;
    r.kind = 3;
    r.rect = Tz3Rect{9, 8, 1, 1};  // reversed corners are accepted
    r.inside = 1;
    PairGuard out(Select(image.h, r, 0, 0, 0));
    ASSERT_NE(out.image.h, nullptr);
    const std::vector<uint8_t> mask = FromBlock(out.mask.h);
    ASSERT_EQ(ImageWidth(mask), 9);
    ASSERT_EQ(ImageHeight(mask), 8);
    for (int i = 0; i < 8; ++i) EXPECT_FALSE(MaskBit(mask, 8, i));  // the right column
    for (int i = 0; i < 9; ++i) EXPECT_FALSE(MaskBit(mask, i, 0));  // the bottom row
    EXPECT_TRUE(MaskBit(mask, 4, 4));
}

TEST(SelectImage, KindZeroAndUnknownKindsAreRefusedWithStatus5) {
    std::mt19937 rng(7009);
    for (const Format f : kFormats) {
        const std::vector<uint8_t> src = RandomDib(rng, 4, 4, f.bits, f.is565);
        HandleGuard image(ToBlock(src));
        const size_t live = Tz3LiveBlocks();
        for (int32_t kind : {0, 4, 255, 256}) {
            RandomRegion r;
            r.kind = kind;
            const DibPair out = Select(image.h, r, 0, 0, 0);
            EXPECT_EQ(out.image, nullptr) << kind;
            EXPECT_EQ(out.mask, nullptr) << kind;
            EXPECT_EQ(Tz3GetErrorStatus(), 5) << kind;
        }
        EXPECT_EQ(Tz3LiveBlocks(), live);
        ExpectCallerBlocksUnchanged(image.h, src);
        // 257 counts as 1 by its low byte.
        RandomRegion whole = Whole(1);
        whole.kind = 257;
        PairGuard out(Select(image.h, whole, 0, 0, 0));
        EXPECT_NE(out.image.h, nullptr);
    }
}

TEST(SelectImage, ShortPolygonsAndMissingPointsAreStatus5) {
    std::mt19937 rng(7010);
    HandleGuard image(ToBlock(RandomDib(rng, 4, 4, 8)));
    const size_t live = Tz3LiveBlocks();
    const RandomRegion one = Polygon({{1, 1}}, 1);
    EXPECT_EQ(Select(image.h, one, 0, 0, 0).image, nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 5);
    EXPECT_EQ(TZ3SelectImage(image.h, 2, nullptr, 3, nullptr, 1, 0, 0, 0, 1, 0, 0, 0).image, nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 5);
    EXPECT_EQ(Tz3LiveBlocks(), live);
}

TEST(SelectImage, TwoPointPolygonSelectsTheLineBetweenThem) {
    std::mt19937 rng(7011);
    HandleGuard image(ToBlock(RandomDib(rng, 6, 6, 24)));
    PairGuard out(Select(image.h, Polygon({{0, 0}, {5, 5}}, 1), 0, 0, 0));
    ASSERT_NE(out.image.h, nullptr);
    const std::vector<uint8_t> mask = FromBlock(out.mask.h);
    for (int i = 0; i < 6; ++i) EXPECT_TRUE(MaskBit(mask, i, 5 - i)) << i;
    EXPECT_FALSE(MaskBit(mask, 0, 0));
}

TEST(SelectImage, PointsOutsideTheImageClampToItsEdge) {
    std::mt19937 rng(7012);
    HandleGuard image(ToBlock(RandomDib(rng, 5, 4, 24)));
    PairGuard out(Select(image.h, Polygon({{-10, -10}, {-3, 50}}, 1), 0, 0, 0));
    ASSERT_NE(out.image.h, nullptr);
    const std::vector<uint8_t> mask = FromBlock(out.mask.h);
    EXPECT_EQ(ImageWidth(mask), 1);
    EXPECT_EQ(ImageHeight(mask), 4);
    EXPECT_TRUE(AllMaskBitsSet(mask));
}

TEST(SelectImage, BadImagesAreStatus7AndImagesWithoutPixelsStatus5) {
    EXPECT_EQ(Select(nullptr, Whole(1), 0, 0, 0).image, nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
    ExpectShortBlockRefused({1, 4, 8, 16, 24, 32},
                            [](DibHandle image) { return Select(image, Whole(1), 0, 0, 0).image; });
    // 16-bit bit fields the library cannot use.
    std::vector<uint8_t> odd = MakeDibBytes(2, 2, 16, 3);
    odd[16] = 3;
    SetField32(odd, 40, 0x00F0);
    HandleGuard oddImage(ToBlock(odd));
    EXPECT_EQ(Select(oddImage.h, Whole(1), 0, 0, 0).image, nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
    for (const auto &[w, h] : std::vector<std::pair<int, int>>{{0, 3}, {3, 0}, {3, -2}}) {
        std::vector<uint8_t> empty = MakeDibBytes(3, 2, 24);
        SetField32(empty, 4, static_cast<uint32_t>(w));
        SetField32(empty, 8, static_cast<uint32_t>(h));
        HandleGuard image(ToBlock(empty));
        const size_t live = Tz3LiveBlocks();
        for (const RandomRegion &r : {Whole(1), Polygon({{0, 0}, {2, 1}}, 1)}) {
            EXPECT_EQ(Select(image.h, r, 0, 0, 0).image, nullptr);
            EXPECT_EQ(Tz3GetErrorStatus(), 5);
        }
        EXPECT_EQ(Tz3LiveBlocks(), live);
    }
}

TEST(SelectImage, CancelAtEveryRowLeavesNothingInEveryFormatAndKind) {
    std::mt19937 rng(7013);
    for (const Format f : kFormats) {
        const std::vector<uint8_t> src = RandomDib(rng, 7, 5, f.bits, f.is565);
        HandleGuard image(ToBlock(src));
        for (int kind = 1; kind <= 3; ++kind) {
            RandomRegion r = Polygon({{0, 0}, {6, 1}, {2, 4}}, 1);
            r.kind = kind;
            r.rect = Tz3Rect{1, 1, 6, 4};
            const RefRegion box = ReferenceRegion(7, 5, r, true);
            ExpectCancelAtEveryProgressCall(
                box.y1 - box.y0 + 1,
                [&] {
                    const DibPair p = Select(image.h, r, 0, 0, 0);
                    EXPECT_EQ(p.mask, nullptr);
                    return p.image;
                },
                Describe("bits kind ", f.bits, kind));
        }
        ExpectCallerBlocksUnchanged(image.h, src);
    }
}

TEST(SelectImage, FailureOfEachAllocationIsStatus3AndLeavesNothing) {
    std::mt19937 rng(7014);
    FailEveryAllocationInEveryFormatAndKind(
        rng,
        [](const DibPair *pair, int32_t kind, const Tz3Point *polygon, int32_t points,
           const Tz3Rect *ellipse) {
            const DibPair p =
                TZ3SelectImage(pair->image, kind, polygon, points, ellipse, 1, 0, 0, 0, 1, 0, 0, 0);
            if (p.image == nullptr) {
                EXPECT_EQ(p.mask, nullptr);
            }
            if (p.mask != nullptr) Tz3GlobalFree(p.mask);
            return p.image;
        },
        [](Format, int kind, long allocations) {
            // The clone and the mask, and the polygon's points for kind 2.
            EXPECT_EQ(allocations, kind == 2 ? 3 : 2);
        });
}

TEST(SelectImage, DialogIsOpenedAndClosedOnceAndAFailedOpenRunsNothing) {
    std::mt19937 rng(7015);
    HandleGuard image(ToBlock(RandomDib(rng, 3, 3, 24)));
    {
        DialogRecorder dialog;
        PairGuard out(TZ3SelectImage(image.h, 1, nullptr, 0, nullptr, 1, 0, 0, 0, 0, 11, 12, 13));
        EXPECT_NE(out.image.h, nullptr);
        EXPECT_EQ(dialog.opens, 1);
        EXPECT_EQ(dialog.closes, 1);
        EXPECT_EQ(dialog.a, 11);
        EXPECT_EQ(dialog.c, 13);
    }
    {
        DialogRecorder dialog(true);
        ProgressRecorder progress;
        const DibPair out = TZ3SelectImage(image.h, 1, nullptr, 0, nullptr, 1, 0, 0, 0, 0, 1, 2, 3);
        EXPECT_EQ(out.image, nullptr);
        EXPECT_EQ(out.mask, nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 2);
        EXPECT_TRUE(progress.calls.empty());
        DibPair untouched{reinterpret_cast<DibHandle>(&dialog), reinterpret_cast<DibHandle>(&progress)};
        EXPECT_EQ(TZ3SelectImageEx(image.h, &untouched, 1, nullptr, 0, nullptr, 1, 0, 0, 0, 0, 1, 2, 3), 0);
        EXPECT_EQ(untouched.image, reinterpret_cast<DibHandle>(&dialog));
        EXPECT_EQ(untouched.mask, reinterpret_cast<DibHandle>(&progress));
        EXPECT_EQ(dialog.closes, 0);
    }
    {
        DialogRecorder dialog;
        EXPECT_EQ(TZ3SelectImage(image.h, 0, nullptr, 0, nullptr, 1, 0, 0, 0, 0, 0, 0, 0).image, nullptr);
        EXPECT_EQ(dialog.closes, 1);
        EXPECT_EQ(Tz3GetErrorStatus(), 5);
    }
}

TEST(SelectImage, ExFormWritesThePairAndReturnsOne) {
    std::mt19937 rng(7016);
    const std::vector<uint8_t> src = RandomDib(rng, 5, 4, 16);
    HandleGuard image(ToBlock(src));
    const Tz3Point pts[3] = {{0, 0}, {4, 1}, {1, 3}};
    DibPair out{nullptr, nullptr};
    ASSERT_EQ(TZ3SelectImageEx(image.h, &out, 2, pts, 3, nullptr, 1, 9, 9, 9, 1, 0, 0, 0), 1);
    PairGuard guard(out);
    EXPECT_EQ(Tz3GetErrorStatus(), 0);
    const RefPair expected = ReferenceSelectImage(src, Polygon({pts[0], pts[1], pts[2]}, 1), 9, 9, 9);
    EXPECT_EQ(FromBlock(out.image), expected.image);
    EXPECT_EQ(FromBlock(out.mask), expected.mask);
    // A failure writes the empty pair and returns 0.
    DibPair failed{image.h, image.h};
    EXPECT_EQ(TZ3SelectImageEx(image.h, &failed, 0, nullptr, 0, nullptr, 1, 0, 0, 0, 1, 0, 0, 0), 0);
    EXPECT_EQ(failed.image, nullptr);
    EXPECT_EQ(failed.mask, nullptr);
    // Nowhere to write the pair: nothing is left behind.
    const size_t live = Tz3LiveBlocks();
    EXPECT_EQ(TZ3SelectImageEx(image.h, nullptr, 1, nullptr, 0, nullptr, 1, 0, 0, 0, 1, 0, 0, 0), 0);
    EXPECT_EQ(Tz3GetErrorStatus(), 5);
    EXPECT_EQ(Tz3LiveBlocks(), live);
}

TEST(SelectImage, WholeImageInsideSetsEveryMaskBitAtEverySmallSize) {
    std::mt19937 rng(7017);
    for (int width = 1; width <= 9; ++width) {
        for (int height = 1; height <= 4; ++height) {
            HandleGuard image(ToBlock(RandomDib(rng, width, height, 8)));
            PairGuard out(Select(image.h, Whole(1), 0, 0, 0));
            ASSERT_NE(out.mask.h, nullptr);
            EXPECT_TRUE(AllMaskBitsSet(FromBlock(out.mask.h))) << width << " x " << height;
            PairGuard none(Select(image.h, Whole(0), 0, 0, 0));
            const std::vector<uint8_t> clear = FromBlock(none.mask.h);
            for (int y = 0; y < height; ++y)
                for (int x = 0; x < width; ++x)
                    EXPECT_FALSE(MaskBit(clear, x, y)) << width << " x " << height;
        }
    }
}
