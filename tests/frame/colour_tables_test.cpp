// The colour tables, the gray level map and the nearest-colour search, each against values worked
// out here from the formulas alone.
#include "frame/colour_tables.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <vector>

#include "platform/companion.h"
#include "support/test_images.h"

namespace {

using tz3test::FailingAllocator;
using tz3test::MakeDibBytes;

// The nine single-precision weights, written out again so the library's copy is checked.
constexpr uint32_t kPatterns[9] = {0x3E991687, 0x3F1645A2, 0x3DE978D5, 0x3F000000, 0xBED65E89,
                                   0xBDA685DB, 0xBE2CCA2E, 0xBEA99AE9, 0x3F000000};

constexpr double kDecimalWeights[9] = {0.299, 0.587, 0.114, 0.5, -0.41869, -0.08131, -0.16874, -0.33126, 0.5};

// True when someone else holds a lock on h: one more lock and its release leave the count as it was.
bool StillLocked(DibHandle h) {
    if (Tz3GlobalLock(h) == nullptr) return false;
    return Tz3GlobalUnlock(h) != 0;
}

uint32_t Bits(float f) {
    return std::bit_cast<uint32_t>(f);
}

float ReferenceYcc(int i, uint32_t pattern) {
    const float weight = std::bit_cast<float>(pattern);
    const float product = static_cast<float>(i) * weight;
    return product;
}

float ReferenceGamma(int i, double k) {
    const double x = i / 255.0;
    const double value = (x - (std::sqrt(x) - x) * k) * 255.0;
    return static_cast<float>(value);
}

void SetEntry(std::vector<uint8_t> &dib, size_t i, uint8_t red, uint8_t green, uint8_t blue) {
    dib[40 + 4 * i] = blue;
    dib[40 + 4 * i + 1] = green;
    dib[40 + 4 * i + 2] = red;
}

void SetClrUsed(std::vector<uint8_t> &dib, uint32_t n) {
    for (int b = 0; b < 4; ++b) dib[32 + b] = static_cast<uint8_t>(n >> (8 * b));
}

// ---- YCC and luma tables ----

TEST(ColourTables, YccWeightsHaveTheirFloatBitPatterns) {
    for (int n = 0; n < 9; ++n) {
        EXPECT_EQ(Bits(tz3::kYccWeights[n]), kPatterns[n]) << "weight " << n;
        EXPECT_EQ(tz3::kYccWeightBits[n], kPatterns[n]) << "weight " << n;
    }
}

TEST(ColourTables, FloatWeightsAreTheDoubleWeightsRoundedToFloat) {
    const double weights[9] = {tz3::kYRed,   tz3::kYGreen, tz3::kYBlue,   tz3::kCrRed, tz3::kCrGreen,
                               tz3::kCrBlue, tz3::kCbRed,  tz3::kCbGreen, tz3::kCbBlue};
    for (int n = 0; n < 9; ++n) {
        EXPECT_EQ(weights[n], kDecimalWeights[n]) << "weight " << n;
        EXPECT_EQ(Bits(static_cast<float>(weights[n])), kPatterns[n]) << "weight " << n;
    }
}

TEST(ColourTables, EveryYccEntryIsTheSinglePrecisionProduct) {
    tz3::YccTables tables;
    ASSERT_TRUE(tz3::BuildYccTables(tables));
    for (int n = 0; n < 9; ++n) {
        for (int i = 0; i < 256; ++i) {
            ASSERT_EQ(Bits(tables.t[n][i]), Bits(ReferenceYcc(i, kPatterns[n])))
                << "table " << n << " entry " << i;
        }
    }
}

TEST(ColourTables, YccProductIsRoundedOnceNotComputedInDouble) {
    // i fits in 8 bits and the weight in 24, so the double product of the float weight is exact and
    // rounding it once to float gives the float product. With the decimal weights in double some
    // entries come out differently: the float constant is the one that counts.
    tz3::YccTables tables;
    ASSERT_TRUE(tz3::BuildYccTables(tables));
    int differing = 0;
    for (int n = 0; n < 9; ++n) {
        for (int i = 0; i < 256; ++i) {
            const float viaDouble = static_cast<float>(i * static_cast<double>(tz3::kYccWeights[n]));
            const float viaDoubleWeight = static_cast<float>(i * kDecimalWeights[n]);
            EXPECT_EQ(Bits(tables.t[n][i]), Bits(viaDouble)) << "table " << n << " entry " << i;
            if (Bits(viaDoubleWeight) != Bits(tables.t[n][i])) ++differing;
        }
    }
    EXPECT_GT(differing, 0);
}

TEST(ColourTables, YccTablesLieEndToEndInOneLockedBlockOf9216Bytes) {
    tz3::YccTables tables;
    ASSERT_TRUE(tz3::BuildYccTables(tables));
    ASSERT_NE(tables.block.handle(), nullptr);
    EXPECT_EQ(Tz3GlobalSize(tables.block.handle()), 9216u);
    EXPECT_TRUE(StillLocked(tables.block.handle()));
    EXPECT_EQ(static_cast<const void *>(tables.t[0]), static_cast<const void *>(tables.block.bytes()));
    EXPECT_EQ(Tz3GlobalHandle(tables.t[0]), tables.block.handle());
    for (int n = 0; n < 9; ++n) EXPECT_EQ(tables.t[n], tables.t[0] + 256 * n) << "table " << n;
}

TEST(ColourTables, LumaTablesAreTheFirstThreeYccTablesIn3072Bytes) {
    tz3::LumaTables luma;
    ASSERT_TRUE(tz3::BuildLumaTables(luma));
    EXPECT_EQ(Tz3GlobalSize(luma.block.handle()), 3072u);
    EXPECT_TRUE(StillLocked(luma.block.handle()));
    EXPECT_EQ(Tz3GlobalHandle(luma.t[0]), luma.block.handle());
    for (int n = 0; n < 3; ++n) {
        EXPECT_EQ(luma.t[n], luma.t[0] + 256 * n);
        for (int i = 0; i < 256; ++i) {
            ASSERT_EQ(Bits(luma.t[n][i]), Bits(ReferenceYcc(i, kPatterns[n])))
                << "table " << n << " entry " << i;
        }
    }
}

// ---- Gamma tables ----

TEST(ColourTables, GammaZeroStrengthIsExactlyTheIdentity) {
    tz3::GammaTables gamma;
    ASSERT_TRUE(tz3::BuildGammaTables(gamma, 0.0, 0.0, 0.0));
    for (int n = 0; n < 3; ++n) {
        for (int i = 0; i < 256; ++i)
            ASSERT_EQ(gamma.t[n][i], static_cast<float>(i)) << "table " << n << " entry " << i;
    }
}

TEST(ColourTables, GammaUnitStrengthPullsMidTonesDownAndGoesBelowZero) {
    tz3::GammaTables gamma;
    ASSERT_TRUE(tz3::BuildGammaTables(gamma, 1.0, 1.0, 1.0));
    for (int n = 0; n < 3; ++n) {
        EXPECT_NEAR(gamma.t[n][64], 0.2502, 1e-3);
        EXPECT_NEAR(gamma.t[n][128], 75.3346, 1e-3);
        EXPECT_NEAR(gamma.t[n][1], -13.9687, 1e-3);
        EXPECT_LT(gamma.t[n][1], 0.0f);
        EXPECT_EQ(Bits(gamma.t[n][64]), Bits(ReferenceGamma(64, 1.0)));
        EXPECT_EQ(Bits(gamma.t[n][128]), Bits(ReferenceGamma(128, 1.0)));
        EXPECT_EQ(Bits(gamma.t[n][1]), Bits(ReferenceGamma(1, 1.0)));
    }
}

TEST(ColourTables, GammaNegativeStrengthLiftsMidTones) {
    tz3::GammaTables gamma;
    ASSERT_TRUE(tz3::BuildGammaTables(gamma, -1.0, -1.0, -1.0));
    for (int n = 0; n < 3; ++n) {
        EXPECT_NEAR(gamma.t[n][128], 180.6654, 1e-3);
        EXPECT_EQ(Bits(gamma.t[n][128]), Bits(ReferenceGamma(128, -1.0)));
    }
}

TEST(ColourTables, GammaTablesEachTakeTheirOwnStrength) {
    tz3::GammaTables gamma;
    ASSERT_TRUE(tz3::BuildGammaTables(gamma, 1.0, 0.0, -1.0));
    EXPECT_EQ(Tz3GlobalSize(gamma.block.handle()), 3072u);
    EXPECT_TRUE(StillLocked(gamma.block.handle()));
    EXPECT_EQ(Tz3GlobalHandle(gamma.t[0]), gamma.block.handle());
    const double strengths[3] = {1.0, 0.0, -1.0};
    for (int n = 0; n < 3; ++n) {
        EXPECT_EQ(gamma.t[n], gamma.t[0] + 256 * n);
        for (int i = 0; i < 256; ++i) {
            ASSERT_EQ(Bits(gamma.t[n][i]), Bits(ReferenceGamma(i, strengths[n])))
                << "table " << n << " entry " << i;
        }
    }
}

TEST(ColourTables, GammaMatchesTheFormulaForManyStrengths) {
    std::mt19937 rng(1234);
    std::uniform_real_distribution<double> strength(-8.0, 8.0);
    for (int round = 0; round < 40; ++round) {
        const double k[3] = {strength(rng), strength(rng), strength(rng)};
        tz3::GammaTables gamma;
        ASSERT_TRUE(tz3::BuildGammaTables(gamma, k[0], k[1], k[2]));
        for (int n = 0; n < 3; ++n) {
            for (int i = 0; i < 256; ++i) {
                ASSERT_EQ(Bits(gamma.t[n][i]), Bits(ReferenceGamma(i, k[n])))
                    << "k " << k[n] << " entry " << i;
            }
        }
    }
}

TEST(ColourTables, GammaHugeStrengthLeavesRangeButKeepsEndsFixed) {
    tz3::GammaTables gamma;
    ASSERT_TRUE(tz3::BuildGammaTables(gamma, 1e6, -1e6, 1e6));
    for (int n = 0; n < 3; ++n) {
        EXPECT_EQ(gamma.t[n][0], 0.0f);
        EXPECT_EQ(gamma.t[n][255], 255.0f);
        EXPECT_EQ(Bits(gamma.t[n][128]), Bits(ReferenceGamma(128, n == 1 ? -1e6 : 1e6)));
    }
    EXPECT_LT(gamma.t[0][128], -1e6f);
    EXPECT_GT(gamma.t[1][128], 1e6f);
}

TEST(ColourTables, StoreAsFloatRoundsToNearestAndOverflowsToInfinity) {
    const double halfUnitAboveMax = 0x1.ffffffp127;
    EXPECT_EQ(tz3::StoreAsFloat(halfUnitAboveMax), std::numeric_limits<float>::infinity());
    EXPECT_EQ(tz3::StoreAsFloat(-halfUnitAboveMax), -std::numeric_limits<float>::infinity());
    EXPECT_EQ(tz3::StoreAsFloat(1e300), std::numeric_limits<float>::infinity());
    EXPECT_EQ(tz3::StoreAsFloat(std::nextafter(halfUnitAboveMax, 0.0)), std::numeric_limits<float>::max());
    EXPECT_EQ(tz3::StoreAsFloat(0.1), 0.1f);
    EXPECT_EQ(tz3::StoreAsFloat(-75.25), -75.25f);
}

// ---- Allocation and ownership ----

TEST(ColourTables, YccAllocationFailureGivesStatus3AndLeavesRecordAlone) {
    const size_t live = Tz3LiveBlocks();
    tz3::YccTables tables;
    const float sentinel = 0.0f;
    for (auto &t : tables.t) t = &sentinel;
    {
        FailingAllocator failing(0);
        tz3::SetErrorStatus(0);
        EXPECT_FALSE(tz3::BuildYccTables(tables));
        EXPECT_EQ(tz3::ErrorStatus(), 3);
        EXPECT_EQ(failing.count, 1);
    }
    for (auto *t : tables.t) EXPECT_EQ(t, &sentinel);
    EXPECT_EQ(tables.block.handle(), nullptr);
    EXPECT_EQ(Tz3LiveBlocks(), live);
}

TEST(ColourTables, LumaAllocationFailureGivesStatus3AndLeavesRecordAlone) {
    const size_t live = Tz3LiveBlocks();
    tz3::LumaTables luma;
    const float sentinel = 0.0f;
    for (auto &t : luma.t) t = &sentinel;
    {
        FailingAllocator failing(0);
        tz3::SetErrorStatus(0);
        EXPECT_FALSE(tz3::BuildLumaTables(luma));
        EXPECT_EQ(tz3::ErrorStatus(), 3);
    }
    for (auto *t : luma.t) EXPECT_EQ(t, &sentinel);
    EXPECT_EQ(Tz3LiveBlocks(), live);
}

TEST(ColourTables, GammaAllocationFailureGivesStatus3AndLeavesRecordAlone) {
    const size_t live = Tz3LiveBlocks();
    tz3::GammaTables gamma;
    const float sentinel = 0.0f;
    for (auto &t : gamma.t) t = &sentinel;
    {
        FailingAllocator failing(0);
        tz3::SetErrorStatus(0);
        EXPECT_FALSE(tz3::BuildGammaTables(gamma, 1.0, 2.0, 3.0));
        EXPECT_EQ(tz3::ErrorStatus(), 3);
    }
    for (auto *t : gamma.t) EXPECT_EQ(t, &sentinel);
    EXPECT_EQ(Tz3LiveBlocks(), live);
}

TEST(ColourTables, BlocksAreFreedWhenRecordsGoOutOfScope) {
    const size_t live = Tz3LiveBlocks();
    {
        tz3::YccTables ycc;
        tz3::LumaTables luma;
        tz3::GammaTables gamma;
        ASSERT_TRUE(tz3::BuildYccTables(ycc));
        ASSERT_TRUE(tz3::BuildLumaTables(luma));
        ASSERT_TRUE(tz3::BuildGammaTables(gamma, 0.5, 0.5, 0.5));
        EXPECT_EQ(Tz3LiveBlocks(), live + 3);
    }
    EXPECT_EQ(Tz3LiveBlocks(), live);
}

TEST(ColourTables, RebuildingIntoTheSameRecordEndsTheOldBlock) {
    const size_t live = Tz3LiveBlocks();
    {
        tz3::GammaTables gamma;
        ASSERT_TRUE(tz3::BuildGammaTables(gamma, 1.0, 1.0, 1.0));
        ASSERT_TRUE(tz3::BuildGammaTables(gamma, -1.0, 0.0, 1.0));
        EXPECT_EQ(Tz3LiveBlocks(), live + 1);
        EXPECT_EQ(Tz3GlobalHandle(gamma.t[0]), gamma.block.handle());
        EXPECT_EQ(Bits(gamma.t[0][128]), Bits(ReferenceGamma(128, -1.0)));
        tz3::YccTables ycc;
        ASSERT_TRUE(tz3::BuildYccTables(ycc));
        ASSERT_TRUE(tz3::BuildYccTables(ycc));
        EXPECT_EQ(Tz3LiveBlocks(), live + 2);
    }
    EXPECT_EQ(Tz3LiveBlocks(), live);
}

// ---- Nearest palette index ----

// A plain search: every entry, lowest index among the nearest.
uint8_t ReferenceNearest(const std::vector<uint8_t> &dib, uint32_t n, int red, int green, int blue) {
    long best = -1;
    uint32_t index = 0;
    for (uint32_t i = 0; i < n; ++i) {
        const int b = dib[40 + 4 * i], g = dib[40 + 4 * i + 1], r = dib[40 + 4 * i + 2];
        const long d = (r - red) * (r - red) + (g - green) * (g - green) + (b - blue) * (b - blue);
        if (best < 0 || d < best) {
            best = d;
            index = i;
        }
    }
    return static_cast<uint8_t>(index);
}

TEST(NearestPaletteIndex, TwoIdenticalEntriesGiveTheFirst) {
    auto dib = MakeDibBytes(2, 2, 8);
    for (size_t i = 0; i < 256; ++i) SetEntry(dib, i, 255, 255, 255);
    SetEntry(dib, 40, 12, 34, 56);
    SetEntry(dib, 90, 12, 34, 56);
    EXPECT_EQ(tz3::NearestPaletteIndex(12, 34, 56, dib.data()), 40);
    EXPECT_EQ(tz3::NearestPaletteIndex(14, 30, 60, dib.data()), 40);
}

TEST(NearestPaletteIndex, DirectColourWithoutClrUsedGivesZero) {
    for (int bits : {16, 24, 32}) {
        auto dib = MakeDibBytes(2, 2, bits);
        EXPECT_EQ(tz3::NearestPaletteIndex(200, 100, 50, dib.data()), 0) << bits << " bits";
    }
}

TEST(NearestPaletteIndex, ExactHitIsFound) {
    auto dib = MakeDibBytes(2, 2, 4);
    for (size_t i = 0; i < 16; ++i) {
        const auto v = static_cast<uint8_t>(17 * i);
        SetEntry(dib, i, v, static_cast<uint8_t>(255 - v), v);
    }
    EXPECT_EQ(tz3::NearestPaletteIndex(153, 102, 153, dib.data()), 9);
    EXPECT_EQ(tz3::NearestPaletteIndex(255, 0, 255, dib.data()), 15);
    EXPECT_EQ(tz3::NearestPaletteIndex(0, 255, 0, dib.data()), 0);
}

TEST(NearestPaletteIndex, EquallyNearDifferentEntriesGiveTheLowerIndex) {
    auto dib = MakeDibBytes(2, 2, 8);
    for (size_t i = 0; i < 256; ++i) SetEntry(dib, i, 255, 255, 255);
    SetEntry(dib, 7, 110, 100, 100);   // distance 100 from (100, 100, 100), red side
    SetEntry(dib, 3, 100, 100, 90);    // distance 100, blue side
    SetEntry(dib, 200, 100, 90, 100);  // distance 100, green side
    EXPECT_EQ(tz3::NearestPaletteIndex(100, 100, 100, dib.data()), 3);
}

TEST(NearestPaletteIndex, FirstEntryWinsEvenAtTheLargestDistance) {
    auto dib = MakeDibBytes(2, 2, 1);
    SetEntry(dib, 0, 255, 255, 255);
    SetEntry(dib, 1, 255, 255, 255);
    EXPECT_EQ(tz3::NearestPaletteIndex(0, 0, 0, dib.data()), 0);
}

TEST(NearestPaletteIndex, ClrUsedFiveSearchesOnlyFiveEntries) {
    auto dib = MakeDibBytes(2, 2, 8, 256);
    for (size_t i = 0; i < 256; ++i) SetEntry(dib, i, 0, 0, 0);
    SetEntry(dib, 2, 50, 50, 50);
    SetEntry(dib, 5, 200, 10, 30);  // the exact colour, one past the table
    SetClrUsed(dib, 5);
    EXPECT_EQ(tz3::NearestPaletteIndex(200, 10, 30, dib.data()), 2);
    SetClrUsed(dib, 6);
    EXPECT_EQ(tz3::NearestPaletteIndex(200, 10, 30, dib.data()), 5);
}

TEST(NearestPaletteIndex, DefaultTableSizeFollowsTheDepth) {
    // Bytes just past the default table look like an exact hit; they are pixels, not entries.
    for (int bits : {1, 4}) {
        const size_t entries = bits == 1 ? 2 : 16;
        auto dib = MakeDibBytes(64, 2, bits);
        for (size_t i = 0; i < entries; ++i) SetEntry(dib, i, 0, 0, 0);
        SetEntry(dib, entries - 1, 1, 1, 1);
        SetEntry(dib, entries, 77, 88, 99);
        EXPECT_EQ(tz3::NearestPaletteIndex(77, 88, 99, dib.data()), entries - 1) << bits << " bits";
    }
}

TEST(NearestPaletteIndex, DirectColourWithClrUsedSearchesThatTable) {
    auto dib = MakeDibBytes(2, 2, 24, 3);
    SetEntry(dib, 0, 0, 0, 0);
    SetEntry(dib, 1, 10, 20, 30);
    SetEntry(dib, 2, 250, 250, 250);
    EXPECT_EQ(tz3::NearestPaletteIndex(12, 18, 33, dib.data()), 1);
}

TEST(NearestPaletteIndex, IndexAbove255IsReturnedAsItsLowByte) {
    auto dib = MakeDibBytes(2, 2, 8, 300);
    for (size_t i = 0; i < 300; ++i) SetEntry(dib, i, 0, 0, 0);
    SetEntry(dib, 260, 9, 8, 7);
    EXPECT_EQ(tz3::NearestPaletteIndex(9, 8, 7, dib.data()), 4);
}

TEST(NearestPaletteIndex, MatchesAPlainSearchOnRandomPalettes) {
    std::mt19937 rng(77);
    for (int round = 0; round < 200; ++round) {
        const uint32_t n = 1 + rng() % 256;
        auto dib = MakeDibBytes(1, 1, 8, n);
        // Few distinct values make ties common.
        for (uint32_t i = 0; i < n; ++i) {
            SetEntry(dib, i, static_cast<uint8_t>(rng() % 4 * 85), static_cast<uint8_t>(rng() % 4 * 85),
                     static_cast<uint8_t>(rng() % 4 * 85));
        }
        for (int probe = 0; probe < 20; ++probe) {
            const auto r = static_cast<uint8_t>(rng()), g = static_cast<uint8_t>(rng()),
                       b = static_cast<uint8_t>(rng());
            ASSERT_EQ(tz3::NearestPaletteIndex(r, g, b, dib.data()), ReferenceNearest(dib, n, r, g, b))
                << "round " << round << " probe " << probe;
        }
    }
}

TEST(NearestPaletteIndex, SetsNoStatus) {
    auto dib = MakeDibBytes(2, 2, 24);
    tz3::SetErrorStatus(5);
    tz3::NearestPaletteIndex(1, 2, 3, dib.data());
    EXPECT_EQ(tz3::ErrorStatus(), 5);
    tz3::SetErrorStatus(0);
}

// ---- Gray level map ----

TEST(GrayLevelMap, ReversedGrayRampMapsBothWays) {
    auto dib = MakeDibBytes(2, 2, 8);
    for (size_t i = 0; i < 256; ++i) {
        const auto v = static_cast<uint8_t>(255 - i);
        SetEntry(dib, i, v, v, v);
    }
    tz3::GrayLevelMap map;
    ASSERT_TRUE(tz3::BuildGrayLevelMap(dib.data(), map));
    for (int i = 0; i < 256; ++i) {
        EXPECT_EQ(map.toLevel[i], 255 - i) << "index " << i;
        EXPECT_EQ(map.toIndex[255 - i], i) << "level " << 255 - i;
    }
}

TEST(GrayLevelMap, ShuffledGrayPaletteRoundTrips) {
    auto dib = MakeDibBytes(2, 2, 8);
    std::vector<uint8_t> levels(256);
    for (int i = 0; i < 256; ++i) levels[i] = static_cast<uint8_t>(i);
    std::mt19937 rng(5);
    std::shuffle(levels.begin(), levels.end(), rng);
    for (size_t i = 0; i < 256; ++i) SetEntry(dib, i, levels[i], levels[i], levels[i]);
    tz3::GrayLevelMap map;
    ASSERT_TRUE(tz3::BuildGrayLevelMap(dib.data(), map));
    for (int i = 0; i < 256; ++i) {
        EXPECT_EQ(map.toLevel[i], levels[i]);
        EXPECT_EQ(map.toIndex[map.toLevel[i]], i);
    }
}

TEST(GrayLevelMap, IsOne512ByteLockedBlock) {
    auto dib = MakeDibBytes(2, 2, 8);
    tz3::GrayLevelMap map;
    ASSERT_TRUE(tz3::BuildGrayLevelMap(dib.data(), map));
    EXPECT_EQ(Tz3GlobalSize(map.block.handle()), 512u);
    EXPECT_TRUE(StillLocked(map.block.handle()));
    EXPECT_EQ(Tz3GlobalHandle(map.toLevel), map.block.handle());
    EXPECT_EQ(map.toIndex, map.toLevel + 256);
}

TEST(GrayLevelMap, ReadsRgbBlueOfEachEntry) {
    auto dib = MakeDibBytes(2, 2, 8);
    for (size_t i = 0; i < 256; ++i) SetEntry(dib, i, 0, 0, static_cast<uint8_t>(i));
    SetEntry(dib, 10, 99, 98, 10);
    tz3::GrayLevelMap map;
    ASSERT_TRUE(tz3::BuildGrayLevelMap(dib.data(), map));
    EXPECT_EQ(map.toLevel[10], 10);
    EXPECT_EQ(map.toIndex[10], 10);
}

TEST(GrayLevelMap, StopsAt256EntriesWhenTheTableClaimsMore) {
    auto dib = MakeDibBytes(1, 1, 8, 300);
    for (size_t i = 0; i < 256; ++i) {
        const auto v = static_cast<uint8_t>(255 - i);
        SetEntry(dib, i, v, v, v);
    }
    for (size_t i = 256; i < 300; ++i) SetEntry(dib, i, 7, 7, 7);
    tz3::GrayLevelMap map;
    ASSERT_TRUE(tz3::BuildGrayLevelMap(dib.data(), map));
    for (int i = 0; i < 256; ++i) {
        EXPECT_EQ(map.toLevel[i], 255 - i);
        EXPECT_EQ(map.toIndex[255 - i], i);
    }
}

TEST(GrayLevelMap, AllocationFailureGivesStatus3AndLeavesRecordAlone) {
    auto dib = MakeDibBytes(2, 2, 8);
    const size_t live = Tz3LiveBlocks();
    tz3::GrayLevelMap map;
    const uint8_t sentinel = 0;
    map.toLevel = &sentinel;
    map.toIndex = &sentinel;
    {
        FailingAllocator failing(0);
        tz3::SetErrorStatus(0);
        EXPECT_FALSE(tz3::BuildGrayLevelMap(dib.data(), map));
        EXPECT_EQ(tz3::ErrorStatus(), 3);
        EXPECT_EQ(failing.count, 1);
    }
    EXPECT_EQ(map.toLevel, &sentinel);
    EXPECT_EQ(map.toIndex, &sentinel);
    EXPECT_EQ(map.block.handle(), nullptr);
    EXPECT_EQ(Tz3LiveBlocks(), live);
}

TEST(GrayLevelMap, BlockIsFreedWhenTheRecordGoesOutOfScope) {
    auto dib = MakeDibBytes(2, 2, 8);
    const size_t live = Tz3LiveBlocks();
    {
        tz3::GrayLevelMap map;
        ASSERT_TRUE(tz3::BuildGrayLevelMap(dib.data(), map));
        EXPECT_EQ(Tz3LiveBlocks(), live + 1);
    }
    EXPECT_EQ(Tz3LiveBlocks(), live);
}

}  // namespace

TEST(FixedPalettes, SixteenColoursHoldTheirHalfLevelsAt127) {
    uint8_t table[64];
    tz3::WriteFixedPalette16(table);
    // Entry: blue, green, red, 0. Entry 1 is dark red, 8 the light gray, 15 white.
    const uint8_t expected[16][3] = {{0, 0, 0},       {0, 0, 127},   {0, 127, 0},   {0, 127, 127},
                                     {127, 0, 0},     {127, 0, 127}, {127, 127, 0}, {127, 127, 127},
                                     {192, 192, 192}, {0, 0, 255},   {0, 255, 0},   {0, 255, 255},
                                     {255, 0, 0},     {255, 0, 255}, {255, 255, 0}, {255, 255, 255}};
    for (int i = 0; i < 16; ++i) {
        for (int c = 0; c < 3; ++c) EXPECT_EQ(table[4 * i + c], expected[i][c]) << "entry " << i;
        EXPECT_EQ(table[4 * i + 3], 0);
    }
}

TEST(FixedPalettes, CubeRunsRedFastestInStepsOf51) {
    uint8_t table[4 * 216];
    tz3::WriteFixedPalette216(table);
    for (int b = 0; b < 6; ++b)
        for (int g = 0; g < 6; ++g)
            for (int r = 0; r < 6; ++r) {
                const uint8_t *e = table + 4 * (36 * b + 6 * g + r);
                EXPECT_EQ(e[0], 51 * b);
                EXPECT_EQ(e[1], 51 * g);
                EXPECT_EQ(e[2], 51 * r);
                EXPECT_EQ(e[3], 0);
            }
}
