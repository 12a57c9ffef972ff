// TZ3Sharp against a literal transcription of its rules on random images and regions in every
// accepted depth, with its edge cases, the two single-precision roundings of Y', the strength's low
// byte, borders, statuses, progress, cancellation and allocation failure.
#include <gtest/gtest.h>

#include "filter/sharp_span.h"
#include "frame/colour_tables.h"
#include "support/filter_harness.h"
#include "support/filter_kernel_reference.h"

using namespace tz3test;

namespace {

FilterCall Sharp(int32_t strength) {
    return [=](const DibPair *pair, int32_t kind, const Tz3Point *points, int32_t count, const Tz3Rect *rect,
               int32_t inside, int32_t noDialog) {
        return TZ3Sharp(pair, kind, points, count, rect, inside, strength, noDialog, 0, 0, 0);
    };
}

std::vector<uint8_t> Sharpened(const std::vector<uint8_t> &src, int32_t strength) {
    HandleGuard image(ToBlock(src));
    HandleGuard out(RunOn(Sharp(strength), image.h, nullptr, RegionRequest{}));
    EXPECT_NE(out.h, nullptr) << "status " << Tz3GetErrorStatus();
    if (out.h == nullptr) return {};
    return FromBlock(out.h);
}

// A gray image of one row with the given levels (normal ramp, so index = level).
std::vector<uint8_t> GrayRow(std::initializer_list<int> levels) {
    std::mt19937 rng(0);
    std::vector<uint8_t> d = GrayDib(static_cast<int>(levels.size()), 1, GrayLevels(0, rng));
    size_t at = PixelOffset(d);
    for (int v : levels) d[at++] = static_cast<uint8_t>(v);
    return d;
}

std::vector<uint8_t> Flat(int bits, bool is565, int width, int height, uint8_t r, uint8_t g, uint8_t b) {
    std::vector<uint8_t> d = bits == 16 ? RandomDib(*std::make_unique<std::mt19937>(0), width, height, 16, is565)
                                        : MakeDibBytes(width, height, bits);
    const int v[3] = {b, g, r};
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) StoreChannels(d, x, y, v);
    }
    return d;
}

}  // namespace

TEST(Sharp, MatchesTheLiteralRulesOnRandomImagesAndRegionsInEveryDepth) {
    std::mt19937 rng(4201);
    MatchReferenceOnRandomImagesAndRegions(rng, [](std::mt19937 &r) {
        const int32_t strength = r() % 3 == 0 ? static_cast<int32_t>(r()) : static_cast<int32_t>(r() % 101);
        const int effective = std::min<int>(static_cast<uint8_t>(strength), 100);
        return FilterTrial{Sharp(strength),
                           [=](const std::vector<uint8_t> &src, const Selection &s) {
                               return RefSharp(src, s, effective);
                           },
                           Describe(", strength", strength)};
    });
}

TEST(Sharp, StrengthZeroKeepsEightBitImages) {
    std::mt19937 rng(4202);
    const std::vector<uint8_t> src = RandomFilterSource(rng, kFilterFormats[0], 9, 7);
    EXPECT_EQ(Sharpened(src, 0), ResultTemplate(src));
}

TEST(Sharp, StrengthZeroRebuildsColourFromIntegerLumaSoAFlatColourMoves) {
    for (const int bits : {24, 32}) {
        const std::vector<uint8_t> src = Flat(bits, false, 4, 3, 255, 255, 255);
        const std::vector<uint8_t> out = Sharpened(src, 0);
        EXPECT_EQ(out, RefSharp(src, SelectionOf(src, RegionRequest{}), 0));
        // White has luma 254, so it cannot come back as 255.
        EXPECT_LT(ChannelValue(out, 1, 1, 1), 255);
        for (int c = 0; c < 3; ++c) EXPECT_GE(ChannelValue(out, 1, 1, c), 253);
    }
}

TEST(Sharp, FlatAreaKeepsDZeroAtEveryStrength) {
    for (const FilterFormat f : kFilterFormats) {
        const std::vector<uint8_t> src = f.bits == 8 ? GrayRow({90, 90, 90, 90, 90})
                                                     : Flat(f.bits, f.is565, 5, 4, 200, 40, 120);
        const std::vector<uint8_t> atZero = Sharpened(src, 0);
        for (int32_t strength : {1, 37, 100}) EXPECT_EQ(Sharpened(src, strength), atZero) << FormatName(f);
    }
}

TEST(Sharp, StrengthCountsByItsLowByteAndIsCappedAtOneHundred) {
    std::mt19937 rng(4203);
    for (const FilterFormat f : kFilterFormats) {
        const std::vector<uint8_t> src = RandomFilterSource(rng, f, 6, 5);
        const std::vector<uint8_t> full = Sharpened(src, 100);
        EXPECT_EQ(Sharpened(src, 101), full);
        EXPECT_EQ(Sharpened(src, 255), full);
        EXPECT_EQ(Sharpened(src, 356), full);
        EXPECT_EQ(Sharpened(src, 256), Sharpened(src, 0));
        EXPECT_NE(full, Sharpened(src, 0)) << FormatName(f);
    }
}

TEST(Sharp, CornerCountsOnlyItsFourPixels) {
    // Levels 10 20 / 30 40 (bottom-up rows 0 and 1), strength 100, gain 3: every pixel is a corner
    // with n = 4 and S = 100. 40: d = 60, Y' = 220. 30: d = 20, Y' = 90. 20 and 10 go below 0.
    std::mt19937 rng(0);
    std::vector<uint8_t> src = GrayDib(2, 2, GrayLevels(0, rng));
    const size_t at = PixelOffset(src);
    src[at] = 10;
    src[at + 1] = 20;
    src[at + 4] = 30;
    src[at + 5] = 40;
    const std::vector<uint8_t> out = Sharpened(src, 100);
    EXPECT_EQ(out[at], 0);
    EXPECT_EQ(out[at + 1], 0);
    EXPECT_EQ(out[at + 4], 90);
    EXPECT_EQ(out[at + 5], 220);
}

TEST(Sharp, ProductIsRoundedToSingleAndSoIsTheSum) {
    // Strength 1 (gain 0.03f), middle pixel 50 between two 0s: d = 100. 100 x 0.03f rounds to 3.0
    // in single precision, so Y' is 53 (a double product would give 52.99...).
    EXPECT_EQ(Sharpened(GrayRow({0, 50, 0}), 1)[PixelOffset(GrayRow({0}))+ 1], 53);
    // Strength 3 (gain 0.09f), middle 60 between two 210s: d = -300, the product is -27.0000019 in
    // single precision, and adding 60 rounds to 33.0 in single (a double sum would truncate to 32).
    EXPECT_EQ(Sharpened(GrayRow({210, 60, 210}), 3)[PixelOffset(GrayRow({0})) + 1], 33);
}

TEST(Sharp, GainFromStrengthIsTheSameInSingleOrDoubleArithmetic) {
    for (int s = 0; s <= 100; ++s) {
        const float viaDouble = static_cast<float>(static_cast<double>(static_cast<float>(s)) * 3.0 / 100.0);
        const float viaFloat = static_cast<float>(s) * 3.0f / 100.0f;
        EXPECT_EQ(viaDouble, viaFloat) << s;
    }
}

TEST(Sharp, UnselectedPixelKeepsItsValueYetItsLumaCountsForItsNeighbours) {
    std::mt19937 rng(4204);
    for (const FilterFormat f : kFilterFormats) {
        const std::vector<uint8_t> src = RandomFilterSource(rng, f, 5, 5);
        RegionRequest region;
        region.kind = 0;
        region.mask = RectMask(5, 5, 2, 2, 2, 2, false);  // every pixel but the centre
        HandleGuard image(ToBlock(src)), mask(ToBlock(region.mask));
        HandleGuard out(RunOn(Sharp(80), image.h, mask.h, region));
        ASSERT_NE(out.h, nullptr);
        const std::vector<uint8_t> result = FromBlock(out.h);
        for (int c = 0; c < ChannelCount(src); ++c) EXPECT_EQ(ChannelValue(result, 2, 2, c), ChannelValue(src, 2, 2, c));
        EXPECT_EQ(result, RefSharp(src, SelectionOf(src, region), 80)) << FormatName(f);
    }
}

TEST(Sharp, BoxInsideTheImageReadsNeighboursOutsideIt) {
    std::mt19937 rng(4205);
    for (const FilterFormat f : kFilterFormats) {
        const std::vector<uint8_t> src = RandomFilterSource(rng, f, 9, 8);
        const RegionRequest box = RectangleRegion(3, 2, 5, 4);
        HandleGuard image(ToBlock(src));
        HandleGuard out(RunOn(Sharp(64), image.h, nullptr, box));
        ASSERT_NE(out.h, nullptr);
        EXPECT_EQ(FromBlock(out.h), RefSharp(src, SelectionOf(src, box), 64)) << FormatName(f);
    }
}

TEST(Sharp, ProgressCancellationAllocationFailureAndStatuses) {
    std::mt19937 rng(4206);
    const FilterCall call = Sharp(70);
    ExpectProgressOverEveryBoxRow(rng, call);
    CancelAtEveryProgressCallInEveryDepth(rng, call);
    FailEveryAllocationInEveryDepthAndKind(rng, call, [](FilterFormat f, int kind, long n) {
        // The clone, then the gray map at 8 bits or the YCC tables and the luma cache, then the
        // column sums; the region adds the polygon copy and the mask.
        const long own = f.bits == 8 ? 3 : 4;
        EXPECT_EQ(n, own + (kind == 2 ? 2 : kind == 3 ? 1 : 0)) << FormatName(f) << " kind " << kind;
    });
    ExpectRefusedFormats(rng, call);
    ExpectFrameStatuses(rng, call);
}

TEST(Sharp, PlainAndVectorColourStepsGiveTheSameBitsAsTheFormula) {
    std::mt19937 rng(4207);
    tz3::YccTables tables;
    ASSERT_TRUE(tz3::BuildYccTables(tables));
    for (int trial = 0; trial < 200; ++trial) {
        const int n = 1 + static_cast<int>(rng() % 70);
        std::vector<int32_t> r(n), g(n), b(n);
        std::vector<float> y(n);
        for (int i = 0; i < n; ++i) {
            r[i] = static_cast<int32_t>(rng() % 4 == 0 ? (rng() % 2) * 255 : rng() % 256);
            g[i] = static_cast<int32_t>(rng() % 256);
            b[i] = static_cast<int32_t>(rng() % 4 == 0 ? (rng() % 2) * 255 : rng() % 256);
            // New lumas as sharpening makes them: float(d) x k + float(Lc), far outside 0..255 too.
            const float k = static_cast<float>(static_cast<double>(static_cast<float>(rng() % 101)) * 3.0 / 100.0);
            const float scaled = static_cast<float>(static_cast<int>(rng() % 4591) - 2295) * k;
            y[i] = scaled + static_cast<float>(rng() % 256);
        }
        std::vector<uint8_t> plain(3 * n), vector(3 * n);
        tz3::SharpColourSpan(tables.t, r.data(), g.data(), b.data(), y.data(), n, plain.data(), plain.data() + n,
                             plain.data() + 2 * n);
        tz3::SharpColourSpanAvx2(tables.t, r.data(), g.data(), b.data(), y.data(), n, vector.data(),
                                 vector.data() + n, vector.data() + 2 * n);
        ASSERT_EQ(plain, vector) << "trial " << trial;
        for (int i = 0; i < n; ++i) {
            // The formula, written out: chroma sums in double stored as float, the way back in double.
            const float cr = static_cast<float>(static_cast<double>(static_cast<float>(r[i]) * 0.5f) +
                                                static_cast<double>(static_cast<float>(g[i]) * -0.41869f) +
                                                static_cast<double>(static_cast<float>(b[i]) * -0.08131f));
            const float cb = static_cast<float>(static_cast<double>(static_cast<float>(r[i]) * -0.16874f) +
                                                static_cast<double>(static_cast<float>(g[i]) * -0.33126f) +
                                                static_cast<double>(static_cast<float>(b[i]) * 0.5f));
            const double yd = y[i];
            const auto clamp = [](double v) { return v <= -1.0 ? 0 : v >= 256.0 ? 255 : std::clamp(static_cast<int>(v), 0, 255); };
            EXPECT_EQ(plain[i], clamp(yd + static_cast<double>(cb) * static_cast<double>(1.772f))) << i;
            EXPECT_EQ(plain[n + i], clamp(yd - static_cast<double>(cb) * static_cast<double>(0.34414f) -
                                          static_cast<double>(cr) * static_cast<double>(0.71414f)))
                << i;
            EXPECT_EQ(plain[2 * n + i], clamp(yd + static_cast<double>(cr) * static_cast<double>(1.402f))) << i;
        }
    }
}
