// The fixed tables of a reduction: the 216-colour cube and its biClrUsed, the 16 colours with their
// half levels of 127, black and white, and the gray ramp.
#include <gtest/gtest.h>

#include <random>

#include "support/convert_calls.h"
#include "support/test_images.h"
#include "tz3effect.h"

using namespace tz3test;

namespace {

TEST(FixedPalette, CubeOf216ColoursInStepsOf51) {
    std::mt19937 rng(471);
    for (int bits : {16, 24, 32}) {
        const Converted c = ConvertBytes(RandomDib(rng, 3, 2, bits), 8, 1, 0);
        ASSERT_EQ(c.status, 0);
        EXPECT_EQ(Field32(c.bytes, 32), 216u);
        EXPECT_EQ(c.bytes.size(), 40u + 864u + 8u);
        for (int i = 0; i < 6; ++i)
            for (int j = 0; j < 6; ++j)
                for (int k = 0; k < 6; ++k)
                    EXPECT_EQ(EntryAt(c.bytes, 36 * i + 6 * j + k), (Entry{51 * i, 51 * j, 51 * k, 0}));
    }
}

TEST(FixedPalette, SixteenColoursWithHalfLevelsOf127) {
    const Entry expected[16] = {{0, 0, 0, 0},       {0, 0, 127, 0},     {0, 127, 0, 0},   {0, 127, 127, 0},
                                {127, 0, 0, 0},     {127, 0, 127, 0},   {127, 127, 0, 0}, {127, 127, 127, 0},
                                {192, 192, 192, 0}, {0, 0, 255, 0},     {0, 255, 0, 0},   {0, 255, 255, 0},
                                {255, 0, 0, 0},     {255, 0, 255, 0},   {255, 255, 0, 0}, {255, 255, 255, 0}};
    std::mt19937 rng(472);
    for (int bits : {8, 16, 24, 32}) {
        const Converted c = ConvertBytes(RandomDib(rng, 3, 2, bits), 4, 1, 1);
        ASSERT_EQ(c.status, 0);
        EXPECT_EQ(Field32(c.bytes, 32), 0u);
        for (int i = 0; i < 16; ++i) EXPECT_EQ(EntryAt(c.bytes, i), expected[i]) << bits << " entry " << i;
    }
}

TEST(FixedPalette, OneBitIsBlackThenWhiteAndGrayIsARamp) {
    std::mt19937 rng(473);
    for (int bits : {4, 8, 16, 24, 32}) {
        const Converted c = ConvertBytes(RandomDib(rng, 3, 2, bits), 1, 0, 0);
        ASSERT_EQ(c.status, 0);
        EXPECT_EQ(EntryAt(c.bytes, 0), (Entry{0, 0, 0, 0}));
        EXPECT_EQ(EntryAt(c.bytes, 1), (Entry{255, 255, 255, 0}));
        EXPECT_EQ(c.bytes.size(), 48u + 8u);
    }
    for (int bits : {16, 24, 32}) {
        const Converted c = ConvertBytes(RandomDib(rng, 3, 2, bits), 80, 0, 0);
        ASSERT_EQ(c.status, 0);
        EXPECT_EQ(Field32(c.bytes, 32), 0u);
        for (int i = 0; i < 256; ++i) EXPECT_EQ(EntryAt(c.bytes, i), (Entry{i, i, i, 0}));
    }
}

}  // namespace
