// TZ3CreateImage against a literal transcription of its rules at every depth and width, with its
// worked fills, its fixed tables, statuses, progress, cancellation and allocation failure.
#include <gtest/gtest.h>

#include "support/test_images.h"
#include "support/tone_harness.h"
#include "tz3effect.h"

using namespace tz3test;

namespace {

DibHandle Create(int32_t width, int32_t height, int32_t bits, int32_t r, int32_t g, int32_t b,
                 int32_t noDialog = 1) {
    return TZ3CreateImage(width, height, bits, r, g, b, noDialog, 0, 0, 0);
}

// The sixteen colours as red, green, blue.
const int kPalette16[16][3] = {{0, 0, 0},       {127, 0, 0},   {0, 127, 0},   {127, 127, 0},
                               {0, 0, 127},     {127, 0, 127}, {0, 127, 127}, {127, 127, 127},
                               {192, 192, 192}, {255, 0, 0},   {0, 255, 0},   {255, 255, 0},
                               {0, 0, 255},     {255, 0, 255}, {0, 255, 255}, {255, 255, 255}};

// The image the rules describe, written out pixel by pixel.
std::vector<uint8_t> ReferenceCreate(int width, int height, int bits, uint8_t r, uint8_t g, uint8_t b) {
    if (width < 1) width = 1;
    if (height < 1) height = 1;
    const uint32_t entries = bits == 1 ? 2 : bits == 4 ? 16 : bits == 8 ? 216 : 0;
    const size_t head = 40 + 4 * entries;
    const size_t stride = RowBytes(bits, width);
    std::vector<uint8_t> d(head + stride * height, 0);
    SetField32(d, 0, 40);
    SetField32(d, 4, static_cast<uint32_t>(width));
    SetField32(d, 8, static_cast<uint32_t>(height));
    d[12] = 1;
    d[14] = static_cast<uint8_t>(bits);
    SetField32(d, 20, static_cast<uint32_t>(stride * height));
    if (bits == 8) SetField32(d, 32, 216);
    std::vector<std::array<int, 3>> table;  // red, green, blue
    if (bits == 1) table = {{0, 0, 0}, {255, 255, 255}};
    if (bits == 4)
        for (const auto &c : kPalette16) table.push_back({c[0], c[1], c[2]});
    if (bits == 8)
        for (int a = 0; a < 6; ++a)
            for (int bb = 0; bb < 6; ++bb)
                for (int c = 0; c < 6; ++c) table.push_back({51 * c, 51 * bb, 51 * a});
    for (size_t i = 0; i < table.size(); ++i) {
        d[40 + 4 * i] = static_cast<uint8_t>(table[i][2]);
        d[41 + 4 * i] = static_cast<uint8_t>(table[i][1]);
        d[42 + 4 * i] = static_cast<uint8_t>(table[i][0]);
    }
    int nearest = 0, best = 200000;
    for (size_t i = 0; i < table.size(); ++i) {
        const int dist = (table[i][0] - r) * (table[i][0] - r) + (table[i][1] - g) * (table[i][1] - g) +
                         (table[i][2] - b) * (table[i][2] - b);
        if (dist < best) {
            best = dist;
            nearest = static_cast<int>(i);
        }
    }
    for (int y = 0; y < height; ++y) {
        const size_t row = head + stride * y;
        for (int x = 0; x < width; ++x) {
            if (bits == 1) {
                if ((r + g + b) / 3 > 127) d[row + x / 8] |= static_cast<uint8_t>(0x80 >> (x % 8));
            } else if (bits == 4) {
                d[row + x / 2] |= static_cast<uint8_t>(x % 2 == 0 ? nearest << 4 : nearest);
            } else if (bits == 8) {
                d[row + x] = static_cast<uint8_t>(nearest);
            } else if (bits == 16) {
                const int word = ((r * 31 / 255) << 10) | ((g * 31 / 255) << 5) | (b * 31 / 255);
                d[row + 2 * x] = static_cast<uint8_t>(word);
                d[row + 2 * x + 1] = static_cast<uint8_t>(word >> 8);
            } else {
                const size_t n = bits / 8;
                d[row + n * x] = b;
                d[row + n * x + 1] = g;
                d[row + n * x + 2] = r;
            }
        }
    }
    return d;
}

const int kDepths[6] = {1, 4, 8, 16, 24, 32};

}  // namespace

TEST(CreateImage, MatchesReferenceAtEveryDepthWidthAndColour) {
    std::mt19937 rng(7201);
    for (const int bits : kDepths) {
        for (int width = -1; width <= 33; ++width) {
            const int height = static_cast<int>(rng() % 5) - 1;
            const int r = static_cast<int>(rng() % 256), g = static_cast<int>(rng() % 256),
                      b = static_cast<int>(rng() % 256);
            HandleGuard out(Create(width, height, bits, r, g, b));
            ASSERT_NE(out.h, nullptr);
            EXPECT_EQ(Tz3GetErrorStatus(), 0);
            EXPECT_EQ(FromBlock(out.h), ReferenceCreate(width, height, bits, static_cast<uint8_t>(r),
                                                        static_cast<uint8_t>(g), static_cast<uint8_t>(b)))
                << bits << " bits, " << width << " x " << height << ", colour " << r << " " << g << " " << b;
        }
    }
}

TEST(CreateImage, WidthAndHeightZeroGiveOnePixelAndReportZeroOfMinusOne) {
    ProgressRecorder progress;
    HandleGuard out(Create(0, 0, 24, 1, 2, 3, 5));
    ASSERT_NE(out.h, nullptr);
    const std::vector<uint8_t> d = FromBlock(out.h);
    EXPECT_EQ(ImageWidth(d), 1);
    EXPECT_EQ(ImageHeight(d), 1);
    EXPECT_EQ(d.size(), 44u);
    ASSERT_EQ(progress.calls.size(), 1u);
    EXPECT_EQ(progress.calls[0].current, 0);
    EXPECT_EQ(progress.calls[0].total, -1);
    EXPECT_EQ(progress.calls[0].noDialog, 5);
}

TEST(CreateImage, NegativeHeightReportsItsOwnTotal) {
    ProgressRecorder progress;
    HandleGuard out(Create(2, -7, 8, 0, 0, 0));
    ASSERT_NE(out.h, nullptr);
    ASSERT_EQ(progress.calls.size(), 1u);
    EXPECT_EQ(progress.calls[0].total, -8);
}

TEST(CreateImage, OneBitGrayAt128SetsEveryPixelBitAnd127SetsNone) {
    HandleGuard light(Create(10, 2, 1, 128, 128, 128));
    HandleGuard dark(Create(10, 2, 1, 127, 127, 127));
    ASSERT_NE(light.h, nullptr);
    ASSERT_NE(dark.h, nullptr);
    const std::vector<uint8_t> l = FromBlock(light.h), d = FromBlock(dark.h);
    for (int y = 0; y < 2; ++y) {
        EXPECT_EQ(l[48 + 4 * y], 0xFF);
        EXPECT_EQ(l[49 + 4 * y], 0xC0);  // ten pixel bits; the rest of the row stays 0
        EXPECT_EQ(l[50 + 4 * y], 0);
        for (int i = 0; i < 4; ++i) EXPECT_EQ(d[48 + 4 * y + i], 0);
    }
    // The sum is divided before the test: (255 + 128 + 0) / 3 = 127.
    HandleGuard mixed(Create(1, 1, 1, 255, 128, 0));
    EXPECT_EQ(FromBlock(mixed.h)[48], 0);
}

TEST(CreateImage, RedIsEntry9At4BitsEntry5At8BitsAnd0x7C00At16Bits) {
    HandleGuard four(Create(3, 1, 4, 255, 0, 0));
    HandleGuard eight(Create(1, 1, 8, 255, 0, 0));
    HandleGuard sixteen(Create(1, 1, 16, 255, 0, 0));
    const std::vector<uint8_t> f = FromBlock(four.h), e = FromBlock(eight.h), s = FromBlock(sixteen.h);
    EXPECT_EQ(f[104], 0x99);
    EXPECT_EQ(f[105], 0x90);
    EXPECT_EQ(e[904], 5);
    EXPECT_EQ(WordAt(s, 40), 0x7C00);
}

TEST(CreateImage, FixedTablesAndHeadSizes) {
    HandleGuard four(Create(1, 1, 4, 0, 0, 0));
    HandleGuard eight(Create(1, 1, 8, 0, 0, 0));
    HandleGuard one(Create(1, 1, 1, 0, 0, 0));
    const std::vector<uint8_t> f = FromBlock(four.h), e = FromBlock(eight.h), o = FromBlock(one.h);
    EXPECT_EQ(f.size(), 104u + 4);
    EXPECT_EQ(e.size(), 904u + 4);
    EXPECT_EQ(o.size(), 48u + 4);
    EXPECT_EQ(Field32(f, 32), 0u);
    EXPECT_EQ(Field32(e, 32), 216u);
    // The middle level of the sixteen colours is 127: entry 7 is (127, 127, 127), entry 8 192s.
    EXPECT_EQ(Field32(f, 40 + 4 * 7), 0x007F7F7Fu);
    EXPECT_EQ(Field32(f, 40 + 4 * 8), 0x00C0C0C0u);
    EXPECT_EQ(Field32(f, 40 + 4 * 1), 0x007F0000u);  // red 127
    EXPECT_EQ(Field32(f, 40 + 4 * 4), 0x0000007Fu);  // blue 127
    // Red changes fastest in the cube: entry 1 is red 51, entry 6 green 51, entry 36 blue 51.
    EXPECT_EQ(Field32(e, 40 + 4 * 1), 0x00330000u);
    EXPECT_EQ(Field32(e, 40 + 4 * 6), 0x00003300u);
    EXPECT_EQ(Field32(e, 40 + 4 * 36), 0x00000033u);
    EXPECT_EQ(Field32(e, 40 + 4 * 215), 0x00FFFFFFu);
    EXPECT_EQ(Field32(o, 40), 0u);
    EXPECT_EQ(Field32(o, 44), 0x00FFFFFFu);
}

TEST(CreateImage, ThirtyTwoBitFourthByteIsZeroAndSixteenBitIs555) {
    HandleGuard t(Create(2, 1, 32, 10, 20, 30));
    HandleGuard s(Create(1, 1, 16, 255, 255, 255));
    const std::vector<uint8_t> pixels = FromBlock(t.h);
    EXPECT_EQ(std::vector<uint8_t>(pixels.begin() + 40, pixels.end()),
              (std::vector<uint8_t>{30, 20, 10, 0, 30, 20, 10, 0}));
    EXPECT_EQ(WordAt(FromBlock(s.h), 40), 0x7FFF);
    EXPECT_EQ(Field32(FromBlock(s.h), 16), 0u);
}

TEST(CreateImage, UnknownDepthsAreStatus4BeforeAnyAllocation) {
    FailingAllocator counter;
    for (const int32_t bits : {2, 0, 3, 12, 48, -24, 0x7FFF}) {
        EXPECT_EQ(Create(4, 4, bits, 0, 0, 0), nullptr) << bits;
        EXPECT_EQ(Tz3GetErrorStatus(), 4) << bits;
    }
    EXPECT_EQ(counter.count, 0);
}

TEST(CreateImage, BitCountIsASigned16BitValue) {
    HandleGuard out(Create(2, 2, 0x10018, 1, 2, 3));  // low 16 bits: 24
    ASSERT_NE(out.h, nullptr);
    EXPECT_EQ(FromBlock(out.h)[14], 24);
    EXPECT_EQ(Create(2, 2, 0x18 | 0x8000, 1, 2, 3), nullptr);  // negative as 16 bits
    EXPECT_EQ(Tz3GetErrorStatus(), 4);
}

TEST(CreateImage, ColourCountsByItsLowByte) {
    HandleGuard out(Create(1, 1, 24, 0x101, 0x2FF, -2));
    const std::vector<uint8_t> pixel = FromBlock(out.h);
    EXPECT_EQ(std::vector<uint8_t>(pixel.begin() + 40, pixel.begin() + 43),
              (std::vector<uint8_t>{254, 255, 1}));
}

TEST(CreateImage, SizesPastTheBlockLimitAreStatus3) {
    const size_t live = Tz3LiveBlocks();
    EXPECT_EQ(Create(0x7FFFFFFF, 1, 32, 0, 0, 0), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 3);
    EXPECT_EQ(Create(0x10000, 0x10000, 24, 0, 0, 0), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 3);
    EXPECT_EQ(Tz3LiveBlocks(), live);
}

TEST(CreateImage, ReportsEachRowAndCancelsAtEveryRowLeavingNothing) {
    for (const int bits : kDepths) {
        {
            ProgressRecorder progress;
            HandleGuard out(Create(3, 4, bits, 9, 9, 9, 2));
            ASSERT_NE(out.h, nullptr);
            ExpectCountingProgress(progress.calls, 4, 2);
        }
        ExpectCancelAtEveryProgressCall(
            4, [&] { return Create(3, 4, bits, 9, 9, 9); }, std::to_string(bits));
    }
}

TEST(CreateImage, FailureOfItsAllocationIsStatus3) {
    for (const int bits : kDepths) {
        long allocations = 0;
        CountAllocations([&] { return Create(5, 3, bits, 1, 2, 3); }, &allocations);
        EXPECT_EQ(allocations, 1);
        ExpectFailureAtEveryAllocation(
            allocations, [&] { return Create(5, 3, bits, 1, 2, 3); }, std::to_string(bits));
    }
}

TEST(CreateImage, DialogOpensOnceAndAFailedOpenMakesNothing) {
    {
        DialogRecorder dialog;
        HandleGuard out(TZ3CreateImage(2, 2, 8, 0, 0, 0, 0, 4, 5, 6));
        EXPECT_NE(out.h, nullptr);
        EXPECT_EQ(dialog.opens, 1);
        EXPECT_EQ(dialog.closes, 1);
        EXPECT_EQ(dialog.b, 5);
    }
    DialogRecorder failing(true);
    const size_t live = Tz3LiveBlocks();
    EXPECT_EQ(TZ3CreateImage(2, 2, 8, 0, 0, 0, 0, 4, 5, 6), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 2);
    EXPECT_EQ(Tz3LiveBlocks(), live);
    // With noDialog the handlers are not asked.
    HandleGuard quiet(TZ3CreateImage(2, 2, 8, 0, 0, 0, 1, 4, 5, 6));
    EXPECT_NE(quiet.h, nullptr);
    EXPECT_EQ(failing.opens, 1);
}
