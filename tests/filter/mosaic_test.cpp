// TZ3Mosaic against a literal tile walk on random images of every depth (palettes full, short and
// gray included) with random regions and tile sizes; the tile test before the lock, strips, tiles
// larger than the image, the 1-bit tie, narrower last tiles, tiles that overhang a box, gray
// images averaged through their table, progress per band of tiles, cancellation and allocation
// failure.
#include <gtest/gtest.h>

#include <climits>
#include <thread>

#include "frame/region.h"
#include "support/filter_harness.h"
#include "support/window_filter_reference.h"

using namespace tz3test;

namespace {

FilterCall Mosaic(int32_t tileWidth, int32_t tileHeight) {
    return [=](const DibPair *pair, int32_t kind, const Tz3Point *points, int32_t count, const Tz3Rect *rect,
               int32_t inside, int32_t noDialog) {
        return TZ3Mosaic(pair, kind, points, count, rect, inside, tileWidth, tileHeight, noDialog, 0, 0, 0);
    };
}

// Every depth the mosaic takes: the palettes (with short tables now and then), an 8-bit gray
// image, 16 bits both ways, 24 and 32.
struct MosaicFormat {
    int bits;
    bool is565;
    bool gray;
};
const MosaicFormat kMosaicFormats[] = {{1, false, false},  {4, false, false},  {8, false, false},
                                       {8, false, true},   {16, false, false}, {16, true, false},
                                       {24, false, false}, {32, false, false}};

Bytes Source(std::mt19937 &rng, MosaicFormat f, int width, int height) {
    if (f.gray) return RandomFilterSource(rng, FilterFormat{8, false}, width, height);
    return RandomSource(rng, Format{f.bits, f.is565}, width, height);
}

std::string Name(MosaicFormat f) {
    return std::to_string(f.bits) + (f.is565 ? " (565)" : "") + (f.gray ? " gray" : "");
}

// The box and the selected pixels as the library's region step makes them for the request.
struct BoxAndSelection {
    RefBox box{};
    PixelSelected selected;
};
BoxAndSelection Resolve(const Bytes &src, const RegionRequest &region) {
    HandleGuard mask(region.kind == 0 ? ToBlock(region.mask) : nullptr);
    tz3::RegionArgs args{nullptr,
                         mask.h,
                         static_cast<uint8_t>(region.kind),
                         region.points.empty() ? nullptr : region.points.data(),
                         static_cast<int32_t>(region.points.size()),
                         region.rect,
                         region.inside};
    tz3::ResolvedRegion resolved;
    EXPECT_TRUE(tz3::ResolveRegion(src.data(), args, resolved));
    BoxAndSelection out;
    out.box = RefBox{resolved.box.x0, resolved.box.y0, resolved.box.x1, resolved.box.y1};
    if (resolved.mask.bits == nullptr) {
        out.selected = AllPixels();
        return out;
    }
    const int boxWidth = out.box.x1 - out.box.x0 + 1, boxHeight = out.box.y1 - out.box.y0 + 1;
    const auto stride = static_cast<size_t>(resolved.mask.stride);
    std::vector<uint8_t> bits(resolved.mask.bits, resolved.mask.bits + stride * boxHeight);
    const RefBox box = out.box;
    out.selected = [=](int x, int y) {
        const int mx = x - box.x0, my = y - box.y0;
        if (mx < 0 || my < 0 || mx >= boxWidth || my >= boxHeight) return false;
        return ((bits[stride * my + mx / 8] >> (7 - mx % 8)) & 1) != 0;
    };
    return out;
}

Bytes Tiled(const Bytes &src, int32_t tw, int32_t th, const RegionRequest &region = RegionRequest{}) {
    HandleGuard image(ToBlock(src));
    HandleGuard mask(region.kind == 0 ? ToBlock(region.mask) : nullptr);
    HandleGuard out(RunOn(Mosaic(tw, th), image.h, mask.h, region));
    EXPECT_NE(out.h, nullptr) << "status " << Tz3GetErrorStatus();
    return out.h == nullptr ? Bytes{} : FromBlock(out.h);
}

Bytes WholeReference(const Bytes &src, int32_t tw, int32_t th) {
    return RefMosaic(src, WholeBox(src), AllPixels(), tw, th);
}

// A 24-bit image whose pixel (x, y) has blue = value(x, y), green and red 0.
template <class Value>
Bytes Blue24(int width, int height, Value value) {
    Bytes d = MakeDibBytes(width, height, 24);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x)
            d[40 + RowBytes(24, width) * y + 3 * x] = static_cast<uint8_t>(value(x, y));
    }
    return d;
}
int BlueAt(const Bytes &d, int x, int y) {
    return d[40 + RowBytes(24, ImageWidth(d)) * y + 3 * x];
}

const int32_t kTileArgs[] = {-5, 0, 1, 2, 2, 3, 3, 4, 5, 7, 16, 40, INT_MAX};

}  // namespace

TEST(Mosaic, MatchesLiteralTileWalkOnRandomImagesOfEveryDepthAndRegion) {
    std::mt19937 rng(6001);
    for (const MosaicFormat f : kMosaicFormats) {
        for (int width = 1; width <= 33; ++width) {
            const int height = 1 + static_cast<int>(rng() % 6);
            const Bytes src = Source(rng, f, width, height);
            HandleGuard image(ToBlock(src));
            for (int n = 0; n < 4; ++n) {
                const RegionRequest region = n == 0 ? RegionRequest{} : RandomRegion(rng, width, height);
                int32_t tw = 1, th = 1;
                while (tw < 2 && th < 2) {
                    tw = kTileArgs[rng() % std::size(kTileArgs)];
                    th = kTileArgs[rng() % std::size(kTileArgs)];
                }
                HandleGuard mask(region.kind == 0 ? ToBlock(region.mask) : nullptr);
                HandleGuard out(RunOn(Mosaic(tw, th), image.h, mask.h, region));
                ASSERT_NE(out.h, nullptr)
                    << Name(f) << region.Describe() << ", status " << Tz3GetErrorStatus();
                EXPECT_EQ(Tz3GetErrorStatus(), 0);
                const BoxAndSelection r = Resolve(src, region);
                ASSERT_EQ(FromBlock(out.h), RefMosaic(src, r.box, r.selected, tw, th))
                    << Name(f) << ", " << width << "x" << height << region.Describe() << ", tiles " << tw
                    << "x" << th;
                ExpectCallerBlocksUnchanged(image.h, src, mask.h);
            }
        }
    }
}

TEST(Mosaic, MatchesLiteralTileWalkOnLargerImages) {
    std::mt19937 rng(6002);
    for (const MosaicFormat f : kMosaicFormats) {
        const int width = 30 + static_cast<int>(rng() % 40), height = 30 + static_cast<int>(rng() % 40);
        const Bytes src = Source(rng, f, width, height);
        for (int n = 0; n < 3; ++n) {
            const RegionRequest region = n == 0 ? RegionRequest{} : RandomRegion(rng, width, height);
            const int32_t tw = 2 + static_cast<int32_t>(rng() % 9), th = 1 + static_cast<int32_t>(rng() % 9);
            const BoxAndSelection r = Resolve(src, region);
            ASSERT_EQ(Tiled(src, tw, th, region), RefMosaic(src, r.box, r.selected, tw, th))
                << Name(f) << region.Describe() << ", tiles " << tw << "x" << th;
        }
    }
}

TEST(Mosaic, TilesOfOnePixelAreRefusedBeforeTheImageIsLocked) {
    std::mt19937 rng(6003);
    HandleGuard image(ToBlock(RandomDib(rng, 5, 4, 24)));
    // A 16-bit image whose masks the format test refuses, and a block shorter than its rows.
    Bytes badMasks = RandomDib(rng, 5, 4, 16, true);
    SetField32(badMasks, 40, 0x1234);
    HandleGuard unusable(ToBlock(badMasks));
    Bytes shortBytes = RandomDib(rng, 5, 4, 24);
    shortBytes.pop_back();
    HandleGuard shortBlock(ToBlock(shortBytes));
    const size_t live = Tz3LiveBlocks();
    for (auto [tw, th] : {std::pair{1, 1}, {-5, 1}, {0, 0}, {1, -7}, {INT_MIN, INT_MIN}}) {
        for (DibHandle h : {image.h, unusable.h, shortBlock.h}) {
            HandleGuard out(RunOn(Mosaic(tw, th), h, nullptr, RegionRequest{}));
            EXPECT_EQ(out.h, nullptr);
            EXPECT_EQ(Tz3GetErrorStatus(), 5) << tw << "x" << th;
            EXPECT_TRUE(IsUnlocked(h));
        }
        // The image handle is tested first.
        const DibPair none{nullptr, nullptr};
        EXPECT_EQ(Mosaic(tw, th)(&none, 1, nullptr, 0, nullptr, 1, 1), nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 7);
    }
    EXPECT_EQ(Tz3LiveBlocks(), live);
    // With a valid tile the same images fail the format and block tests instead.
    EXPECT_EQ(RunOn(Mosaic(2, 1), unusable.h, nullptr, RegionRequest{}), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
    EXPECT_EQ(RunOn(Mosaic(1, 2), shortBlock.h, nullptr, RegionRequest{}), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
}

TEST(Mosaic, WidthOneHeightTwoMakesVerticalPairsAndZeroActsAsOne) {
    const Bytes src = Blue24(3, 4, [](int x, int y) { return 10 * y + x; });
    const Bytes pairs = Tiled(src, 1, 2);
    // Rows 0 and 1 of column 2 hold 2 and 12: both become 7.
    EXPECT_EQ(BlueAt(pairs, 2, 0), 7);
    EXPECT_EQ(BlueAt(pairs, 2, 1), 7);
    EXPECT_EQ(BlueAt(pairs, 0, 2), 25);
    EXPECT_EQ(Tiled(src, 0, 2), pairs);
    EXPECT_EQ(Tiled(src, -9, 2), pairs);
}

TEST(Mosaic, TileLargerThanTheImageCoversItWithTheWholeMean) {
    const Bytes src = Blue24(3, 2, [](int x, int y) { return 10 * x + 7 * y; });
    const Bytes out = Tiled(src, 50, 9);
    // (0 + 10 + 20 + 7 + 17 + 27) / 6 = 13.
    for (int y = 0; y < 2; ++y) {
        for (int x = 0; x < 3; ++x) EXPECT_EQ(BlueAt(out, x, y), 13);
    }
}

TEST(Mosaic, OneBitTieBecomesZero) {
    Bytes src = MakeDibBytes(2, 1, 1);
    src[48] = 0x80;  // pixel 0 is 1, pixel 1 is 0
    EXPECT_EQ(Tiled(src, 2, 1)[48] & 0xC0, 0);
    src[48] = 0xC0;
    EXPECT_EQ(Tiled(src, 2, 1)[48] & 0xC0, 0xC0);
    // One 1 against two 0s in a tile of three.
    Bytes three = MakeDibBytes(3, 1, 1);
    three[48] = 0x20;
    EXPECT_EQ(Tiled(three, 3, 1)[48] & 0xE0, 0);
}

TEST(Mosaic, NarrowerLastTileTakesTheMeanOfItsOwnPixels) {
    const Bytes src = Blue24(5, 1, [](int x, int) { return x == 4 ? 90 : 0; });
    const Bytes out = Tiled(src, 2, 1);
    EXPECT_EQ(BlueAt(out, 4, 0), 90);
    EXPECT_EQ(BlueAt(out, 2, 0), 0);
}

TEST(Mosaic, TileOverhangingTheBoxTakesItsColourFromOutsideAndLeavesItsOverhang) {
    // A box of columns 1..3 and the two bottom rows of a 6x4 image; tiles 2x3 anchored at (1, 0).
    const Bytes src = Blue24(6, 4, [](int x, int y) { return 10 * x + y; });
    const Bytes out = Tiled(src, 2, 3, RectangleRegion(1, 2, 3, 3));
    // Tile at x 3..4, rows 0..2: mean of (30..32, 40..42) = 36, written only to column 3 rows 0..1.
    EXPECT_EQ(BlueAt(out, 3, 0), 36);
    EXPECT_EQ(BlueAt(out, 3, 1), 36);
    EXPECT_EQ(BlueAt(out, 4, 0), 40);
    EXPECT_EQ(BlueAt(out, 3, 2), 32);
    // Tile at x 1..2: mean of (10..12, 20..22) = 16.
    EXPECT_EQ(BlueAt(out, 1, 0), 16);
    EXPECT_EQ(BlueAt(out, 2, 1), 16);
    EXPECT_EQ(BlueAt(out, 0, 0), 0);
}

TEST(Mosaic, GrayImageIsAveragedThroughItsTableAndTakesTheNearestEntry) {
    // A reversed gray table: index i is level 255 - i. Indices 0 and 2 (levels 255 and 253) mean
    // level 254, which index 1 holds.
    std::mt19937 rng(6004);
    Bytes src = GrayDib(2, 1, GrayLevels(1, rng));
    const size_t at = PixelOffset(src);
    src[at] = 0;
    src[at + 1] = 2;
    const Bytes out = Tiled(src, 2, 1);
    EXPECT_EQ(out[at], 1);
    EXPECT_EQ(out[at + 1], 1);
}

TEST(Mosaic, FourBitTileWritesBothNibbles) {
    // Table: entry 0 black, entry 1 white, entry 2 gray 128. Pixels 0 and 1 (black, white) mean 127,
    // nearest entry 2.
    Bytes src = MakeDibBytes(3, 1, 4, 3);
    for (int k = 0; k < 3; ++k) {
        src[44 + k] = 255;
        src[48 + k] = 128;
    }
    src[52] = 0x01;
    src[53] = 0x10;
    const Bytes out = Tiled(src, 2, 1);
    EXPECT_EQ(out[52], 0x22);
    EXPECT_EQ(out[53] & 0xF0, 0x10);
}

TEST(Mosaic, SixteenBitTilePacksOneWordFromTheMeans) {
    // 5-5-5 blue 1 and 2 expand to 8 and 16: mean 12, packed to 1.
    Bytes src = MakeDibBytes(2, 1, 16);
    src[40] = 1;
    src[42] = 2;
    const Bytes out = Tiled(src, 2, 1);
    EXPECT_EQ(WordAt(out, 40), 1);
    EXPECT_EQ(WordAt(out, 42), 1);
}

TEST(Mosaic, ThirtyTwoBitKeepsTheFourthByte) {
    std::mt19937 rng(6005);
    const Bytes src = RandomDib(rng, 4, 3, 32);
    const Bytes out = Tiled(src, 2, 2);
    for (int i = 0; i < 12; ++i) EXPECT_EQ(out[40 + 4 * i + 3], src[40 + 4 * i + 3]);
    EXPECT_EQ(out, WholeReference(src, 2, 2));
}

TEST(Mosaic, ProgressAfterEachBandOfTiles) {
    std::mt19937 rng(6006);
    for (const MosaicFormat f : kMosaicFormats) {
        HandleGuard image(ToBlock(Source(rng, f, 6, 5)));
        ProgressRecorder progress;
        HandleGuard out(RunOn(Mosaic(3, 2), image.h, nullptr, RegionRequest{}, 7));
        ASSERT_NE(out.h, nullptr);
        ASSERT_EQ(progress.calls.size(), 3u) << Name(f);
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(progress.calls[i].current, 2 * i);
            EXPECT_EQ(progress.calls[i].total, 4);
            EXPECT_EQ(progress.calls[i].low, 0);
            EXPECT_EQ(progress.calls[i].high, 100);
            EXPECT_EQ(progress.calls[i].noDialog, 7);
        }
    }
    // A one-row box reports 0 of 0.
    HandleGuard image(ToBlock(RandomDib(rng, 6, 5, 24)));
    ProgressRecorder progress;
    HandleGuard out(RunOn(Mosaic(2, 2), image.h, nullptr, RectangleRegion(0, 1, 5, 1), 3));
    ASSERT_NE(out.h, nullptr);
    ExpectCountingProgress(progress.calls, 1, 3);
}

TEST(Mosaic, CancelAtEveryProgressCallLeavesNothingBehind) {
    std::mt19937 rng(6007);
    for (const MosaicFormat f : kMosaicFormats) {
        const Bytes src = Source(rng, f, 5, 6);
        const Bytes mask = RandomMask(rng, 5, 6);
        HandleGuard image(ToBlock(src));
        HandleGuard maskBlock(ToBlock(mask));
        RegionRequest region;
        region.kind = 0;
        ExpectCancelAtEveryProgressCall(
            3, [&] { return RunOn(Mosaic(2, 2), image.h, maskBlock.h, region); }, Name(f));
        ExpectCallerBlocksUnchanged(image.h, src, maskBlock.h);
    }
}

TEST(Mosaic, FailureOfEveryAllocationLeavesNothingBehind) {
    std::mt19937 rng(6008);
    const Tz3Point triangle[3] = {{0, 0}, {6, 1}, {2, 5}};
    const Tz3Rect ellipse{1, 1, 6, 5};
    for (const MosaicFormat f : kMosaicFormats) {
        const Bytes src = Source(rng, f, 7, 6);
        HandleGuard image(ToBlock(src));
        for (int32_t kind : {1, 2, 3}) {
            const DibPair pair{image.h, nullptr};
            const auto once = [&] {
                return TZ3Mosaic(&pair, kind, triangle, 3, &ellipse, 1, 3, 2, 1, 0, 0, 0);
            };
            long allocations = 0;
            ASSERT_NO_FATAL_FAILURE(CountAllocations(once, &allocations));
            EXPECT_GE(allocations, 2) << Name(f);
            ExpectFailureAtEveryAllocation(allocations, once, Name(f) + " kind " + std::to_string(kind));
            ExpectCallerBlocksUnchanged(image.h, src);
        }
    }
}

TEST(Mosaic, FrameStatuses) {
    std::mt19937 rng(6009);
    ExpectFrameStatuses(rng, Mosaic(2, 2));
}

TEST(Mosaic, TileSizesAreWholeSignedValuesNotLowBytes) {
    // 257 is a tile wider than this image, not a tile of width 1.
    std::mt19937 rng(6010);
    const Bytes src = RandomDib(rng, 9, 5, 24);
    const Bytes wide = Tiled(src, 257, 2);
    EXPECT_EQ(wide, WholeReference(src, 257, 2));
    EXPECT_EQ(wide, Tiled(src, 9, 2));
    EXPECT_NE(wide, Tiled(src, 1, 2));
    // 256 by 1 is valid although 256's low byte is 0.
    EXPECT_EQ(Tiled(src, 256, 1), WholeReference(src, 256, 1));
}

TEST(Mosaic, SeveralThreadsAtOnceGiveTheResultsOfOne) {
    // No state is kept between calls: four threads filtering their own images agree with one.
    std::mt19937 rng(4242);
    std::vector<Bytes> sources, expected;
    for (int i = 0; i < 4; ++i) {
        sources.push_back(RandomDib(rng, 40 + i, 30, i % 2 == 0 ? 24 : 32));
        HandleGuard image(ToBlock(sources.back()));
        HandleGuard out(RunOn(Mosaic(3, 2), image.h, nullptr, RegionRequest{}));
        expected.push_back(FromBlock(out.h));
    }
    std::vector<int> mismatches(4, 0);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&, i] {
            for (int round = 0; round < 5; ++round) {
                HandleGuard image(ToBlock(sources[i]));
                HandleGuard out(RunOn(Mosaic(3, 2), image.h, nullptr, RegionRequest{}));
                if (out.h == nullptr || FromBlock(out.h) != expected[i]) ++mismatches[i];
            }
        });
    }
    for (std::thread &t : threads) t.join();
    EXPECT_EQ(mismatches, std::vector<int>(4, 0));
}
