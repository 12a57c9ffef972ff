// Image helpers: row stride, gray palettes, the format test, the block check and the clone.
#include "frame/dib.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "platform/companion.h"
#include "support/test_images.h"

namespace {

using tz3test::FromBlock;
using tz3test::HandleGuard;
using tz3test::MakeDibBytes;

void Put32(std::vector<uint8_t> &d, size_t at, uint32_t v) { std::memcpy(&d[at], &v, 4); }
uint32_t Get32(const std::vector<uint8_t> &d, size_t at) {
    uint32_t v;
    std::memcpy(&v, &d[at], 4);
    return v;
}
int32_t GetS32(const std::vector<uint8_t> &d, size_t at) { return static_cast<int32_t>(Get32(d, at)); }

// An 8-bit image whose entry i holds level levels[i] in all three channels.
std::vector<uint8_t> GrayDib(const std::vector<int> &levels, uint32_t clrUsed = 0) {
    std::vector<uint8_t> d = MakeDibBytes(4, 2, 8, clrUsed);
    if (d.size() < 40 + 4 * levels.size()) d.resize(40 + 4 * levels.size());  // room for every level given
    for (size_t i = 0; i < levels.size(); ++i) {
        d[40 + 4 * i] = d[41 + 4 * i] = d[42 + 4 * i] = static_cast<uint8_t>(levels[i]);
    }
    return d;
}

std::vector<int> Ramp() {
    std::vector<int> levels(256);
    for (int i = 0; i < 256; ++i) levels[static_cast<size_t>(i)] = i;
    return levels;
}

// An 8-bit image whose table is plainly coloured.
std::vector<uint8_t> ColourDib8() {
    std::vector<uint8_t> d = GrayDib(Ramp());
    d[40 + 4 * 10 + 2] = 200;  // entry 10: red differs from blue and green
    return d;
}

std::vector<uint8_t> BitFieldDib(int bitCount, uint32_t red, uint32_t green, uint32_t blue) {
    std::vector<uint8_t> d = MakeDibBytes(2, 2, bitCount, 3);
    Put32(d, 16, 3);
    Put32(d, 40, red);
    Put32(d, 44, green);
    Put32(d, 48, blue);
    return d;
}

// ---- DibRowBytes ----

TEST(DibRowBytes, OnePixelAtOneBitIsFourBytes) { EXPECT_EQ(tz3::DibRowBytes(1, 1), 4); }

TEST(DibRowBytes, WidthsOneToThirtyThreeAtEveryDepthPadToWholeWords) {
    for (int32_t bits : {1, 4, 8, 16, 24, 32}) {
        for (int32_t width = 1; width <= 33; ++width) {
            EXPECT_EQ(tz3::DibRowBytes(bits, width), (bits * width + 31) / 32 * 4) << bits << " x " << width;
        }
    }
}

TEST(DibRowBytes, KnownStrides) {
    EXPECT_EQ(tz3::DibRowBytes(1, 32), 4);
    EXPECT_EQ(tz3::DibRowBytes(1, 33), 8);
    EXPECT_EQ(tz3::DibRowBytes(4, 9), 8);
    EXPECT_EQ(tz3::DibRowBytes(24, 3), 12);
    EXPECT_EQ(tz3::DibRowBytes(24, 5), 16);
    EXPECT_EQ(tz3::DibRowBytes(16, 3), 8);
    EXPECT_EQ(tz3::DibRowBytes(32, 7), 28);
    EXPECT_EQ(tz3::DibRowBytes(24, 0), 0);
}

TEST(DibRowBytes, ReadFromTheHeaderMatchesTheExplicitForm) {
    const auto d = MakeDibBytes(13, 2, 24);
    EXPECT_EQ(tz3::DibRowBytes(d.data()), 40);
    const auto m = MakeDibBytes(45, 2, 1);
    EXPECT_EQ(tz3::DibRowBytes(m.data()), 8);
}

TEST(DibBits, RowsBeginAfterHeaderAndTable) {
    const auto d8 = MakeDibBytes(2, 2, 8);
    EXPECT_EQ(tz3::DibBits(d8.data()) - d8.data(), 40 + 1024);
    const auto d4 = MakeDibBytes(2, 2, 4, 3);
    EXPECT_EQ(tz3::DibBits(d4.data()) - d4.data(), 40 + 12);
    const auto d24 = MakeDibBytes(2, 2, 24);
    EXPECT_EQ(tz3::DibBits(d24.data()) - d24.data(), 40);
}

// ---- IsGrayPalette ----

TEST(GrayPalette, AscendingRampQualifies) { EXPECT_EQ(tz3::IsGrayPalette(GrayDib(Ramp()).data()), 1); }

TEST(GrayPalette, ReversedRampQualifies) {
    std::vector<int> levels(256);
    for (int i = 0; i < 256; ++i) levels[static_cast<size_t>(i)] = 255 - i;
    EXPECT_EQ(tz3::IsGrayPalette(GrayDib(levels).data()), 1);
}

TEST(GrayPalette, ShuffledLevelsQualify) {
    std::vector<int> levels = Ramp();
    std::mt19937 rng(7);
    std::shuffle(levels.begin(), levels.end(), rng);
    EXPECT_EQ(tz3::IsGrayPalette(GrayDib(levels).data()), 1);
}

TEST(GrayPalette, OneLevelTwiceFails) {
    std::vector<int> levels = Ramp();
    levels[200] = 17;  // 17 twice, 200 missing
    EXPECT_EQ(tz3::IsGrayPalette(GrayDib(levels).data()), 0);
}

TEST(GrayPalette, TwoHundredEntryTableFailsAtOnce) {
    // The bytes at offset 40 even hold a full ramp: the entry count alone decides.
    EXPECT_EQ(tz3::IsGrayPalette(GrayDib(Ramp(), 200).data()), 0);
}

TEST(GrayPalette, ClrUsed256Qualifies) { EXPECT_EQ(tz3::IsGrayPalette(GrayDib(Ramp(), 256).data()), 1); }

TEST(GrayPalette, OtherClrUsedFails) {
    EXPECT_EQ(tz3::IsGrayPalette(GrayDib(Ramp(), 257).data()), 0);
    EXPECT_EQ(tz3::IsGrayPalette(GrayDib(Ramp(), 255).data()), 0);
}

TEST(GrayPalette, NonGrayEntryFails) {
    for (int channel = 0; channel < 3; ++channel) {
        std::vector<uint8_t> d = GrayDib(Ramp());
        d[40 + 4 * 99 + static_cast<size_t>(channel)] = 98;
        EXPECT_EQ(tz3::IsGrayPalette(d.data()), 0) << channel;
    }
}

TEST(GrayPalette, ReservedByteIsIgnored) {
    std::vector<uint8_t> d = GrayDib(Ramp());
    for (int i = 0; i < 256; ++i) d[43 + 4 * static_cast<size_t>(i)] = static_cast<uint8_t>(i * 37 + 5);
    EXPECT_EQ(tz3::IsGrayPalette(d.data()), 1);
}

TEST(GrayPalette, OnlyEightBitImagesQualify) {
    std::vector<uint8_t> d = GrayDib(Ramp());
    d[14] = 4;
    EXPECT_EQ(tz3::IsGrayPalette(d.data()), 0);
    d[14] = 16;
    EXPECT_EQ(tz3::IsGrayPalette(d.data()), 0);
}

TEST(GrayPalette, SetsNoStatus) {
    tz3::SetErrorStatus(5);
    EXPECT_EQ(tz3::IsGrayPalette(ColourDib8().data()), 0);
    EXPECT_EQ(Tz3GetErrorStatus(), 5);
}

// ---- CheckDibFormat ----

struct FormatCase {
    const char *name;
    std::vector<uint8_t> dib;
    uint8_t acceptedBy;  // the format bits that accept it
};

std::vector<FormatCase> FormatCases() {
    return {
        {"1-bit", MakeDibBytes(3, 2, 1), 1},
        {"4-bit", MakeDibBytes(3, 2, 4), 2},
        {"8-bit gray", GrayDib(Ramp()), 4 | 8},
        {"8-bit colour", ColourDib8(), 8},
        {"16-bit", MakeDibBytes(3, 2, 16), 16},
        {"24-bit", MakeDibBytes(3, 2, 24), 32},
        {"32-bit", MakeDibBytes(3, 2, 32), 64},
    };
}

TEST(DibFormat, EachDepthAgainstEachFormatBit) {
    for (const FormatCase &c : FormatCases()) {
        for (int bit = 1; bit <= 64; bit <<= 1) {
            uint32_t r = 0, g = 0, b = 0;
            tz3::SetErrorStatus(0);
            const int32_t got = tz3::CheckDibFormat(c.dib.data(), static_cast<uint8_t>(bit), &r, &g, &b);
            const bool accepted = (c.acceptedBy & bit) != 0;
            EXPECT_EQ(got, accepted ? 1 : 0) << c.name << " with bit " << bit;
            EXPECT_EQ(Tz3GetErrorStatus(), accepted ? 0 : 7) << c.name << " with bit " << bit;
        }
    }
}

TEST(DibFormat, AllFormatsAcceptEveryDepth) {
    for (const FormatCase &c : FormatCases()) {
        uint32_t r = 0, g = 0, b = 0;
        EXPECT_EQ(tz3::CheckDibFormat(c.dib.data(), 127, &r, &g, &b), 1) << c.name;
    }
}

TEST(DibFormat, AnyEightBitAcceptsWithoutReadingThePalette) {
    // A header alone, in a block of exactly 40 bytes: looking at the table would read past it.
    const std::vector<uint8_t> full = MakeDibBytes(3, 2, 8);
    auto *exact = new uint8_t[40];
    std::memcpy(exact, full.data(), 40);
    uint32_t r = 0, g = 0, b = 0;
    EXPECT_EQ(tz3::CheckDibFormat(exact, 8, &r, &g, &b), 1);
    EXPECT_EQ(tz3::CheckDibFormat(exact, 8 | 4, &r, &g, &b), 1);
    delete[] exact;
}

TEST(DibFormat, GrayOnlyRefusesColourPaletteWithStatus7) {
    uint32_t r = 0, g = 0, b = 0;
    tz3::SetErrorStatus(0);
    EXPECT_EQ(tz3::CheckDibFormat(ColourDib8().data(), 4, &r, &g, &b), 0);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
}

TEST(DibFormat, GrayOnlyAcceptsGrayPalette) {
    uint32_t r = 0, g = 0, b = 0;
    std::vector<int> levels(256);
    for (int i = 0; i < 256; ++i) levels[static_cast<size_t>(i)] = 255 - i;
    EXPECT_EQ(tz3::CheckDibFormat(GrayDib(levels).data(), 4, &r, &g, &b), 1);
}

TEST(DibFormat, GrayOrAnyAcceptsColourPalette) {
    uint32_t r = 0, g = 0, b = 0;
    EXPECT_EQ(tz3::CheckDibFormat(ColourDib8().data(), 12, &r, &g, &b), 1);
}

TEST(DibFormat, SixteenBitPlainRgbHands555Masks) {
    uint32_t r = 1, g = 1, b = 1;
    EXPECT_EQ(tz3::CheckDibFormat(MakeDibBytes(3, 2, 16).data(), 16, &r, &g, &b), 1);
    EXPECT_EQ(r, 0x7C00u);
    EXPECT_EQ(g, 0x03E0u);
    EXPECT_EQ(b, 0x001Fu);
}

TEST(DibFormat, SixteenBitFields555Hands555Masks) {
    uint32_t r = 1, g = 1, b = 1;
    EXPECT_EQ(tz3::CheckDibFormat(BitFieldDib(16, 0x7C00, 0x03E0, 0x001F).data(), 127, &r, &g, &b), 1);
    EXPECT_EQ(r, 0x7C00u);
    EXPECT_EQ(g, 0x03E0u);
    EXPECT_EQ(b, 0x001Fu);
}

TEST(DibFormat, SixteenBitFields565Hands565Masks) {
    uint32_t r = 1, g = 1, b = 1;
    EXPECT_EQ(tz3::CheckDibFormat(BitFieldDib(16, 0xF800, 0x07E0, 0x001F).data(), 16, &r, &g, &b), 1);
    EXPECT_EQ(r, 0xF800u);
    EXPECT_EQ(g, 0x07E0u);
    EXPECT_EQ(b, 0x001Fu);
}

TEST(DibFormat, SixteenBitRefusedWithoutItsBitLeavesMasksUntouched) {
    uint32_t r = 11, g = 22, b = 33;
    tz3::SetErrorStatus(0);
    EXPECT_EQ(tz3::CheckDibFormat(MakeDibBytes(3, 2, 16).data(), 127 & ~16, &r, &g, &b), 0);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
    EXPECT_EQ(r, 11u);
    EXPECT_EQ(g, 22u);
    EXPECT_EQ(b, 33u);
}

TEST(DibFormat, SixteenBitWithUnusableMasksIsStatus7AndMasksUntouched) {
    uint32_t r = 11, g = 22, b = 33;
    tz3::SetErrorStatus(0);
    const auto d = BitFieldDib(16, 0x0F00, 0x00F0, 0x000F);
    ASSERT_EQ(tz3::GetBmp16Info(d.data()), -1);
    EXPECT_EQ(tz3::CheckDibFormat(d.data(), 127, &r, &g, &b), 0);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
    EXPECT_EQ(r, 11u);
    EXPECT_EQ(g, 22u);
    EXPECT_EQ(b, 33u);
}

TEST(DibFormat, OtherDepthsLeaveSixteenBitMasksUntouched) {
    uint32_t r = 11, g = 22, b = 33;
    EXPECT_EQ(tz3::CheckDibFormat(MakeDibBytes(3, 2, 24).data(), 127, &r, &g, &b), 1);
    EXPECT_EQ(tz3::CheckDibFormat(MakeDibBytes(3, 2, 32).data(), 127, &r, &g, &b), 1);
    EXPECT_EQ(r, 11u);
    EXPECT_EQ(g, 22u);
    EXPECT_EQ(b, 33u);
}

TEST(DibFormat, ThirtyTwoBitFieldsInBlueGreenRedOrderAreAccepted) {
    uint32_t r = 0, g = 0, b = 0;
    EXPECT_EQ(tz3::CheckDibFormat(BitFieldDib(32, 0xFF0000, 0xFF00, 0xFF).data(), 64, &r, &g, &b), 1);
}

TEST(DibFormat, ThirtyTwoBitFieldsWithOddMasksAreStatus7) {
    uint32_t r = 0, g = 0, b = 0;
    tz3::SetErrorStatus(0);
    EXPECT_EQ(tz3::CheckDibFormat(BitFieldDib(32, 0xFF, 0xFF00, 0xFF0000).data(), 127, &r, &g, &b), 0);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
}

TEST(DibFormat, UnknownBitCountsAreStatus7) {
    for (int bits : {0, 2, 3, 5, 12, 15, 48, 64}) {
        auto d = MakeDibBytes(3, 2, 24);
        d[14] = static_cast<uint8_t>(bits);
        uint32_t r = 0, g = 0, b = 0;
        tz3::SetErrorStatus(0);
        EXPECT_EQ(tz3::CheckDibFormat(d.data(), 127, &r, &g, &b), 0) << bits;
        EXPECT_EQ(Tz3GetErrorStatus(), 7) << bits;
    }
}

TEST(DibFormat, BitCountIsReadAsSixteenBits) {
    auto d = MakeDibBytes(3, 2, 24);
    d[15] = 1;  // bit count 24 + 256
    uint32_t r = 0, g = 0, b = 0;
    EXPECT_EQ(tz3::CheckDibFormat(d.data(), 127, &r, &g, &b), 0);
}

// ---- CheckDibBlock ----

TEST(DibBlock, ExactSizePassesAndOneByteShortIsStatus7) {
    for (int bits : {1, 4, 8, 16, 24, 32}) {
        const auto d = MakeDibBytes(5, 3, bits);
        tz3::SetErrorStatus(0);
        EXPECT_EQ(tz3::CheckDibBlock(d.data(), d.size()), 1) << bits;
        EXPECT_EQ(Tz3GetErrorStatus(), 0);
        EXPECT_EQ(tz3::CheckDibBlock(d.data(), d.size() - 1), 0) << bits;
        EXPECT_EQ(Tz3GetErrorStatus(), 7) << bits;
        EXPECT_EQ(tz3::CheckDibBlock(d.data(), d.size() + 100), 1) << bits;
    }
}

TEST(DibBlock, TableOfClrUsedEntriesIsCounted) {
    const auto d = MakeDibBytes(5, 3, 8, 7);
    ASSERT_EQ(d.size(), 40u + 28u + 8u * 3u);
    EXPECT_EQ(tz3::CheckDibBlock(d.data(), d.size()), 1);
    EXPECT_EQ(tz3::CheckDibBlock(d.data(), d.size() - 1), 0);
}

TEST(DibBlock, HugeClrUsedIsStatus7) {
    auto d = MakeDibBytes(5, 3, 24);
    for (uint32_t used : {0xFFFFFFFFu, 0x40000000u, 0x40000001u, 1000u}) {
        Put32(d, 32, used);
        tz3::SetErrorStatus(0);
        EXPECT_EQ(tz3::CheckDibBlock(d.data(), d.size()), 0) << used;
        EXPECT_EQ(Tz3GetErrorStatus(), 7);
    }
}

TEST(DibBlock, BlockShorterThanAHeaderIsStatus7) {
    const auto d = MakeDibBytes(0, 0, 24);  // a header that claims nothing more
    EXPECT_EQ(tz3::CheckDibBlock(d.data(), 40), 1);
    tz3::SetErrorStatus(0);
    EXPECT_EQ(tz3::CheckDibBlock(d.data(), 39), 0);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
    tz3::SetErrorStatus(0);
    EXPECT_EQ(tz3::CheckDibBlock(d.data(), 0), 0);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
    tz3::SetErrorStatus(0);
    EXPECT_EQ(tz3::CheckDibBlock(nullptr, 100), 0);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
}

TEST(DibBlock, TopDownHeightClaimsItsAbsoluteRowCount) {
    auto d = MakeDibBytes(5, 4, 24);  // 4 rows of 16 bytes
    Put32(d, 8, static_cast<uint32_t>(-4));
    EXPECT_EQ(tz3::CheckDibBlock(d.data(), d.size()), 1);
    EXPECT_EQ(tz3::CheckDibBlock(d.data(), d.size() - 1), 0);
    EXPECT_EQ(tz3::CheckDibBlock(d.data(), 40 + 16 * 3), 0);
}

TEST(DibBlock, ZeroWidthOrHeightClaimsNoRows) {
    auto d = MakeDibBytes(0, 3, 8);
    EXPECT_EQ(tz3::CheckDibBlock(d.data(), 40 + 1024), 1);
    EXPECT_EQ(tz3::CheckDibBlock(d.data(), 40 + 1023), 0);
    auto e = MakeDibBytes(3, 0, 24);
    EXPECT_EQ(tz3::CheckDibBlock(e.data(), 40), 1);
}

TEST(DibBlock, RowTooWideForTheStrideRuleIsStatus7) {
    auto d = MakeDibBytes(1, 1, 32);
    Put32(d, 4, 0x7FFFFFFF);  // 32 x width does not fit a signed 32-bit bit count
    tz3::SetErrorStatus(0);
    EXPECT_EQ(tz3::CheckDibBlock(d.data(), d.size()), 0);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
}

TEST(DibBlock, ClaimBeyondThirtyTwoBitsIsMeasuredInSixtyFourBits) {
    auto d = MakeDibBytes(1, 1, 32);
    Put32(d, 4, 65536);   // stride 262144
    Put32(d, 8, 16384);   // 4 GiB of rows: wraps to 0 in 32 bits
    EXPECT_EQ(tz3::CheckDibBlock(d.data(), d.size()), 0);
}

// ---- CloneDib ----

std::vector<uint8_t> SampleDib8() {
    std::mt19937 rng(11);
    std::vector<uint8_t> d = tz3test::RandomDib(rng, 5, 3, 8);
    Put32(d, 16, 0);
    Put32(d, 20, 12345);  // a wrong biSizeImage, to be rewritten
    Put32(d, 24, 2835);
    Put32(d, 28, 3780);
    Put32(d, 36, 17);
    return d;
}

TEST(CloneDib, ZeroWidthIsStatus5) {
    const auto d = SampleDib8();
    const size_t before = Tz3LiveBlocks();
    tz3::SetErrorStatus(0);
    EXPECT_EQ(tz3::CloneDib(d.data(), 0, 3, 1), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 5);
    tz3::SetErrorStatus(0);
    EXPECT_EQ(tz3::CloneDib(d.data(), -2, 3, 0), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 5);
    EXPECT_EQ(Tz3LiveBlocks(), before);
}

TEST(CloneDib, ZeroHeightIsStatus5) {
    const auto d = SampleDib8();
    const size_t before = Tz3LiveBlocks();
    tz3::SetErrorStatus(0);
    EXPECT_EQ(tz3::CloneDib(d.data(), 5, 0, 1), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 5);
    tz3::SetErrorStatus(0);
    EXPECT_EQ(tz3::CloneDib(d.data(), 5, -3, 1), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 5);
    EXPECT_EQ(Tz3LiveBlocks(), before);
}

TEST(CloneDib, UnknownBitCountIsStatus5) {
    for (int bits : {0, 2, 3, 7, 64}) {
        auto d = MakeDibBytes(4, 2, 24);
        d[14] = static_cast<uint8_t>(bits);
        tz3::SetErrorStatus(0);
        EXPECT_EQ(tz3::CloneDib(d.data(), 4, 2, 1), nullptr) << bits;
        EXPECT_EQ(Tz3GetErrorStatus(), 5) << bits;
    }
}

TEST(CloneDib, HeaderAndTableCopiedSizeFieldsRewrittenRowsZero) {
    const auto src = SampleDib8();
    const size_t before = Tz3LiveBlocks();
    HandleGuard clone(tz3::CloneDib(src.data(), 9, 4, 0));
    ASSERT_NE(clone.h, nullptr);
    EXPECT_EQ(Tz3LiveBlocks(), before + 1);
    const uint32_t stride = 12;  // 9 pixels of 8 bits
    EXPECT_EQ(Tz3GlobalSize(clone.h), 40u + 1024u + stride * 4u);
    // The block is handed out unlocked.
    ASSERT_NE(Tz3GlobalLock(clone.h), nullptr);
    EXPECT_EQ(Tz3GlobalUnlock(clone.h), 0);
    const auto out = FromBlock(clone.h);
    EXPECT_EQ(GetS32(out, 4), 9);
    EXPECT_EQ(GetS32(out, 8), 4);
    EXPECT_EQ(Get32(out, 20), stride * 4u);
    // Every other header byte and the whole table are the source's.
    for (size_t i = 0; i < 40 + 1024; ++i) {
        if ((i >= 4 && i < 12) || (i >= 20 && i < 24)) continue;
        EXPECT_EQ(out[i], src[i]) << "byte " << i;
    }
    for (size_t i = 40 + 1024; i < out.size(); ++i) EXPECT_EQ(out[i], 0) << "byte " << i;
}

TEST(CloneDib, WithPixelsAtTheSourceSizeCopiesEverything) {
    for (int bits : {1, 4, 8, 16, 24, 32}) {
        std::mt19937 rng(static_cast<unsigned>(bits));
        auto src = tz3test::RandomDib(rng, 7, 3, bits);
        Put32(src, 20, 0);
        HandleGuard clone(tz3::CloneDib(src.data(), 7, 3, 1));
        ASSERT_NE(clone.h, nullptr) << bits;
        auto out = FromBlock(clone.h);
        ASSERT_EQ(out.size(), src.size()) << bits;
        EXPECT_EQ(Get32(out, 20), tz3test::RowBytes(bits, 7) * 3) << bits;
        Put32(out, 20, 0);
        EXPECT_EQ(out, src) << bits;
    }
}

TEST(CloneDib, KeepsCompressionClrUsedAndBitFieldMasks) {
    auto src = MakeDibBytes(3, 2, 16, 3);
    Put32(src, 16, 3);
    Put32(src, 40, 0xF800);
    Put32(src, 44, 0x07E0);
    Put32(src, 48, 0x001F);
    HandleGuard clone(tz3::CloneDib(src.data(), 3, 2, 0));
    ASSERT_NE(clone.h, nullptr);
    const auto out = FromBlock(clone.h);
    EXPECT_EQ(out.size(), 40u + 12u + 8u * 2u);
    EXPECT_EQ(Get32(out, 16), 3u);
    EXPECT_EQ(Get32(out, 32), 3u);
    EXPECT_EQ(Get32(out, 40), 0xF800u);
    EXPECT_EQ(Get32(out, 44), 0x07E0u);
    EXPECT_EQ(Get32(out, 48), 0x001Fu);
}

TEST(CloneDib, LargerCloneWithPixelsReadsNoFurtherThanTheSourceRows) {
    // The source block holds exactly its own 2 rows; a clone of 4 rows keeps them as they lie and
    // leaves the rest zero, without reading past the source (the sanitizer build would see it).
    auto src = MakeDibBytes(4, 2, 24);
    for (size_t i = 40; i < src.size(); ++i) src[i] = static_cast<uint8_t>(i);
    auto *exact = new uint8_t[src.size()];
    std::memcpy(exact, src.data(), src.size());
    HandleGuard clone(tz3::CloneDib(exact, 4, 4, 1));
    delete[] exact;
    ASSERT_NE(clone.h, nullptr);
    const auto out = FromBlock(clone.h);
    ASSERT_EQ(out.size(), 40u + 12u * 4u);
    for (size_t i = 40; i < src.size(); ++i) EXPECT_EQ(out[i], src[i]) << i;
    for (size_t i = src.size(); i < out.size(); ++i) EXPECT_EQ(out[i], 0) << i;
}

TEST(CloneDib, SizeAboveTheBlockLimitIsStatus3) {
    // Only the header is read: the source need not hold any rows.
    auto header = MakeDibBytes(1, 1, 24);
    Put32(header, 4, 40000);
    Put32(header, 8, 20000);
    const size_t before = Tz3LiveBlocks();
    tz3::SetErrorStatus(0);
    EXPECT_EQ(tz3::CloneDib(header.data(), 40000, 20000, 0), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 3);
    EXPECT_EQ(Tz3LiveBlocks(), before);
}

TEST(CloneDib, SizeThatWrapsThirtyTwoBitsIsStatus3) {
    const auto header = MakeDibBytes(1, 1, 32);
    const size_t before = Tz3LiveBlocks();
    tz3::SetErrorStatus(0);
    EXPECT_EQ(tz3::CloneDib(header.data(), 65536, 16384, 0), nullptr);  // 4 GiB of rows
    EXPECT_EQ(Tz3GetErrorStatus(), 3);
    EXPECT_EQ(Tz3LiveBlocks(), before);
}

TEST(CloneDib, RowTooWideForTheStrideRuleIsStatus3) {
    // 32 x 0x08000001 bits wraps to 32 in a 32-bit product: a clone with a 4-byte stride would claim
    // rows far wider than its block.
    const auto header = MakeDibBytes(1, 1, 32);
    const size_t before = Tz3LiveBlocks();
    for (int32_t width : {0x08000001, 0x7FFFFFFF, 0x04000000}) {
        tz3::SetErrorStatus(0);
        EXPECT_EQ(tz3::CloneDib(header.data(), width, 1, 0), nullptr) << width;
        EXPECT_EQ(Tz3GetErrorStatus(), 3) << width;
    }
    EXPECT_EQ(Tz3LiveBlocks(), before);
}

TEST(CloneDib, AllocationFailureIsStatus3AndLeavesNoBlock) {
    const auto src = SampleDib8();
    const size_t before = Tz3LiveBlocks();
    {
        tz3test::FailingAllocator failing(0);
        tz3::SetErrorStatus(0);
        EXPECT_EQ(tz3::CloneDib(src.data(), 5, 3, 1), nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 3);
        EXPECT_EQ(failing.count, 1);
    }
    EXPECT_EQ(Tz3LiveBlocks(), before);
}

}  // namespace
