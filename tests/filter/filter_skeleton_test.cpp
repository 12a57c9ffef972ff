// The filter skeleton driven by a small test filter: every pixel takes its upper-left neighbour
// (clamped into the image) plus one in each channel. That shows reads come from the caller's image
// and never from the clone, the clamp at the edges, the gray map both ways, the region at every
// depth, progress per box row, bands, the order of the checks, cancellation and allocation failure.
#include "filter/filter_skeleton.h"

#include <gtest/gtest.h>

#include "filter/luma_cache.h"
#include "support/filter_harness.h"

using namespace tz3test;

namespace {

struct ShiftOp {
    static constexpr uint8_t kFormats = tz3::kFormatFilters;
    bool parameterOk = true;
    int prepareStatus = 0;  // non-zero: Prepare fails with this status
    bool walks = true;

    bool Normalise() {
        if (parameterOk) return true;
        tz3::SetErrorStatus(TZ3_BAD_PARAMETER);
        return false;
    }
    template <class Pix>
    bool Prepare(const tz3::FilterImage<Pix> &) {
        if (prepareStatus == 0) return true;
        tz3::SetErrorStatus(prepareStatus);
        return false;
    }
    bool WalksPixels() const { return walks; }
    template <class Pix>
    void Row(const tz3::FilterImage<Pix> &img, int32_t y) {
        constexpr int32_t C = tz3::kChannels<Pix>;
        uint8_t *dst = img.DstRow(y);
        const uint8_t *from = img.SrcRow(img.ClampY(y + 1));
        tz3::ForEachSelected(img, y, [&](int32_t x) {
            uint8_t ch[C];
            img.Fetch(from, img.ClampX(x - 1), ch);
            for (int32_t c = 0; c < C; ++c) ch[c] = static_cast<uint8_t>(ch[c] + 1);
            img.Store(dst, x, ch);
        });
    }
};

// Bands of three rows: one Row call and one progress call per band.
struct BandOp : ShiftOp {
    int32_t RowStep() const { return 3; }
    template <class Pix>
    void Row(const tz3::FilterImage<Pix> &img, int32_t y) {
        for (int32_t r = y; r < y + 3 && r <= img.box.y1; ++r) ShiftOp::Row(img, r);
    }
};

template <class Op>
FilterCall CallWith(Op &op) {
    return [&op](const DibPair *pair, int32_t kind, const Tz3Point *points, int32_t count, const Tz3Rect *rect,
                 int32_t inside, int32_t noDialog) {
        return tz3::RunExport<DibHandle>(noDialog, 0, 0, 0, [&] {
            const tz3::RegionArgs args = tz3::UnpackRegion(pair, kind, points, count, rect, inside);
            return tz3::FilterDispatcher(args, op, noDialog);
        });
    };
}

std::vector<uint8_t> ReferenceShift(const std::vector<uint8_t> &src, const Selection &selected) {
    std::vector<uint8_t> out = src;
    SetField32(out, 20, RowBytes(src[14], ImageWidth(src)) * static_cast<uint32_t>(ImageHeight(src)));
    const int w = ImageWidth(src), h = ImageHeight(src);
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            if (!selected(x, y)) continue;
            const int sx = x - 1 < 0 ? 0 : x - 1;
            const int sy = y + 1 > h - 1 ? h - 1 : y + 1;
            int v[3];
            for (int c = 0; c < ChannelCount(src); ++c) v[c] = (ChannelValue(src, sx, sy, c) + 1) % 256;
            StoreChannels(out, x, y, v);
        }
    }
    return out;
}

}  // namespace

TEST(FilterSkeleton, FormatMaskIsGrayAnd16And24And32) { EXPECT_EQ(tz3::kFormatFilters, 116); }

TEST(FilterSkeleton, ReadsTheCallersImageWithClampedNeighboursInEveryDepthAndRegion) {
    std::mt19937 rng(41);
    ShiftOp op;
    MatchReferenceOnRandomImagesAndRegions(rng, [&](std::mt19937 &) {
        return FilterTrial{CallWith(op), ReferenceShift, ""};
    });
}

TEST(FilterSkeleton, ProgressAfterEachBoxRow) {
    std::mt19937 rng(42);
    ShiftOp op;
    ExpectProgressOverEveryBoxRow(rng, CallWith(op));
}

TEST(FilterSkeleton, CancelAtEveryProgressCallLeavesNoBlock) {
    std::mt19937 rng(43);
    ShiftOp op;
    CancelAtEveryProgressCallInEveryDepth(rng, CallWith(op));
}

TEST(FilterSkeleton, EveryAllocationFailureIsStatusThreeWithNoBlockLeft) {
    std::mt19937 rng(44);
    ShiftOp op;
    FailEveryAllocationInEveryDepthAndKind(rng, CallWith(op), [](FilterFormat f, int kind, long n) {
        // The clone, the gray map at 8 bits, the polygon copy and the mask of kinds 2 and 3.
        const long expected = 1 + (f.bits == 8 ? 1 : 0) + (kind == 2 ? 2 : kind == 3 ? 1 : 0);
        EXPECT_EQ(n, expected) << FormatName(f) << " kind " << kind;
    });
}

TEST(FilterSkeleton, RefusesOneAndFourBitsColourPalettesAndUnusableMasks) {
    std::mt19937 rng(45);
    ShiftOp op;
    ExpectRefusedFormats(rng, CallWith(op));
}

TEST(FilterSkeleton, FrameStatusesAndDialog) {
    std::mt19937 rng(46);
    ShiftOp op;
    ExpectFrameStatuses(rng, CallWith(op));
}

TEST(FilterSkeleton, ParameterRefusalComesAfterTheFormatTestAndBeforeTheRegion) {
    std::mt19937 rng(47);
    ShiftOp op;
    op.parameterOk = false;
    const FilterCall call = CallWith(op);
    HandleGuard colour(ToBlock(RandomDib(rng, 4, 4, 4)));
    EXPECT_EQ(RunOn(call, colour.h, nullptr, RegionRequest{}), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
    HandleGuard image(ToBlock(RandomDib(rng, 4, 4, 24)));
    RegionRequest noMask;
    noMask.kind = 0;  // would be status 7 in the region step
    const size_t live = Tz3LiveBlocks();
    EXPECT_EQ(RunOn(call, image.h, nullptr, noMask), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 5);
    EXPECT_EQ(Tz3LiveBlocks(), live);
    EXPECT_TRUE(IsUnlocked(image.h));
}

TEST(FilterSkeleton, FailedPreparationKeepsItsStatusAndFreesTheClone) {
    std::mt19937 rng(48);
    ShiftOp op;
    op.prepareStatus = TZ3_NO_MEMORY;
    for (const FilterFormat f : kFilterFormats) {
        HandleGuard image(ToBlock(RandomFilterSource(rng, f, 4, 4)));
        const size_t live = Tz3LiveBlocks();
        EXPECT_EQ(RunOn(CallWith(op), image.h, nullptr, RegionRequest{}), nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 3);
        EXPECT_EQ(Tz3LiveBlocks(), live);
    }
}

TEST(FilterSkeleton, AnOpThatWalksNoPixelsReturnsACopyWithoutProgress) {
    std::mt19937 rng(49);
    ShiftOp op;
    op.walks = false;
    for (const FilterFormat f : kFilterFormats) {
        std::vector<uint8_t> src = RandomFilterSource(rng, f, 6, 5);
        HandleGuard image(ToBlock(src));
        ProgressRecorder progress;
        HandleGuard out(RunOn(CallWith(op), image.h, nullptr, RegionRequest{}));
        ASSERT_NE(out.h, nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 0);
        EXPECT_TRUE(progress.calls.empty());
        SetField32(src, 20, RowBytes(src[14], 6) * 5);
        EXPECT_EQ(FromBlock(out.h), src);
    }
}

TEST(FilterSkeleton, BandsReportOncePerBandAndCoverTheBox) {
    std::mt19937 rng(50);
    BandOp op;
    for (const FilterFormat f : kFilterFormats) {
        const std::vector<uint8_t> src = RandomFilterSource(rng, f, 5, 7);
        HandleGuard image(ToBlock(src));
        ProgressRecorder progress;
        HandleGuard out(RunOn(CallWith(op), image.h, nullptr, RegionRequest{}, 4));
        ASSERT_NE(out.h, nullptr);
        ASSERT_EQ(progress.calls.size(), 3u);
        EXPECT_EQ(progress.calls[0].current, 0);
        EXPECT_EQ(progress.calls[1].current, 3);
        EXPECT_EQ(progress.calls[2].current, 6);
        for (const ProgressCall &c : progress.calls) EXPECT_EQ(c.total, 6);
        EXPECT_EQ(FromBlock(out.h), ReferenceShift(src, SelectionOf(src, RegionRequest{})));
    }
}

TEST(FilterSkeleton, ReversedGrayRampGivesTheSamePictureAsTheNormalOne) {
    std::mt19937 rng(51);
    const std::vector<uint8_t> normal = GrayDib(9, 4, GrayLevels(0, rng));
    std::vector<uint8_t> reversed = GrayDib(9, 4, GrayLevels(1, rng));
    std::vector<uint8_t> source = normal;
    for (size_t i = PixelOffset(normal); i < normal.size(); ++i) {
        source[i] = static_cast<uint8_t>(rng());
        reversed[i] = static_cast<uint8_t>(255 - source[i]);  // the same levels
    }
    ShiftOp op;
    HandleGuard a(ToBlock(source)), b(ToBlock(reversed));
    HandleGuard outA(RunOn(CallWith(op), a.h, nullptr, RegionRequest{}));
    HandleGuard outB(RunOn(CallWith(op), b.h, nullptr, RegionRequest{}));
    ASSERT_NE(outA.h, nullptr);
    ASSERT_NE(outB.h, nullptr);
    const std::vector<uint8_t> ra = FromBlock(outA.h), rb = FromBlock(outB.h);
    for (size_t i = PixelOffset(normal); i < normal.size(); ++i) EXPECT_EQ(ra[i], 255 - rb[i]) << i;
}

TEST(FilterSkeleton, FetchRowClampedRepeatsTheEdgePixels) {
    std::mt19937 rng(52);
    const std::vector<uint8_t> src = RandomDib(rng, 5, 2, 24);
    tz3::FilterImage<tz3::Pix24> img;
    img.srcBits = src.data() + 40;
    img.stride = RowBytes(24, 5);
    img.width = 5;
    img.height = 2;
    for (int from = -12; from <= 9; ++from) {
        for (int count = 0; count <= 12; ++count) {
            std::vector<uint8_t> out(static_cast<size_t>(count) * 3 + 1, 0xAB);
            img.FetchRowClamped(1, from, count, out.data());
            for (int i = 0; i < count; ++i) {
                const int x = std::clamp(from + i, 0, 4);
                for (int c = 0; c < 3; ++c) EXPECT_EQ(out[3 * i + c], ChannelValue(src, x, 1, c)) << from << " " << count;
            }
            EXPECT_EQ(out.back(), 0xAB) << "wrote past the count";
        }
    }
}

TEST(FilterSkeleton, LumaCacheComputesEachRowOnceWithWhiteAt254) {
    std::mt19937 rng(53);
    std::vector<uint8_t> src = RandomDib(rng, 6, 3, 24);
    src[40] = src[41] = src[42] = 255;
    tz3::FilterImage<tz3::Pix24> img;
    img.srcBits = src.data() + 40;
    img.stride = RowBytes(24, 6);
    img.width = 6;
    img.height = 3;
    tz3::LumaTables tables;
    ASSERT_TRUE(tz3::BuildLumaTables(tables));
    tz3::LumaCache cache;
    ASSERT_TRUE(cache.Make(6, 3, tables.t));
    EXPECT_EQ(cache.words[0], 0xFFFF);
    const uint16_t *row = cache.Row(img, 0);
    EXPECT_EQ(row[0], 254);
    for (int x = 0; x < 6; ++x) {
        const float r = static_cast<float>(ChannelValue(src, x, 0, 2)) * std::bit_cast<float>(0x3E991687u);
        const float g = static_cast<float>(ChannelValue(src, x, 0, 1)) * std::bit_cast<float>(0x3F1645A2u);
        const float b = static_cast<float>(ChannelValue(src, x, 0, 0)) * std::bit_cast<float>(0x3DE978D5u);
        EXPECT_EQ(row[x], static_cast<int>(static_cast<double>(r) + static_cast<double>(g) + static_cast<double>(b)));
    }
    EXPECT_EQ(cache.words[6], 0xFFFF) << "row 1 was not asked for";
    // Once computed, a row is not computed again.
    cache.words[1] = 7;
    EXPECT_EQ(cache.Row(img, 0)[1], 7);
}

TEST(FilterSkeleton, PlainAndVectorLumaSpansGiveTheSameLumas) {
    std::mt19937 rng(54);
    tz3::LumaTables tables;
    ASSERT_TRUE(tz3::BuildLumaTables(tables));
    for (int trial = 0; trial < 200; ++trial) {
        const int n = 1 + static_cast<int>(rng() % 70);
        std::vector<int32_t> r(n), g(n), b(n);
        for (int i = 0; i < n; ++i) {
            r[i] = static_cast<int32_t>(rng() % 3 == 0 ? 255 : rng() % 256);
            g[i] = static_cast<int32_t>(rng() % 3 == 0 ? 255 : rng() % 256);
            b[i] = static_cast<int32_t>(rng() % 3 == 0 ? 255 : rng() % 256);
        }
        std::vector<uint16_t> plain(n), vector(n);
        tz3::LumaSpan(tables.t, r.data(), g.data(), b.data(), n, plain.data());
        tz3::LumaSpanAvx2(tables.t, r.data(), g.data(), b.data(), n, vector.data());
        ASSERT_EQ(plain, vector) << "trial " << trial;
        for (int i = 0; i < n; ++i) {
            const float yr = static_cast<float>(r[i]) * std::bit_cast<float>(0x3E991687u);
            const float yg = static_cast<float>(g[i]) * std::bit_cast<float>(0x3F1645A2u);
            const float yb = static_cast<float>(b[i]) * std::bit_cast<float>(0x3DE978D5u);
            ASSERT_EQ(plain[i],
                      static_cast<int>(static_cast<double>(yr) + static_cast<double>(yg) + static_cast<double>(yb)));
        }
    }
}
