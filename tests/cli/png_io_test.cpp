// Reading and writing PNG files: each colour type and depth as the block it loads as, round trips
// through the tool, the 16-bit and 32-bit write rules, and damaged files.
#include <gtest/gtest.h>

#include <random>

#include "tool_test_support.h"

namespace tz3clitest {
namespace {

class PngIoTest : public ToolTest {
  protected:
    // Writes the picture as in.png, converts it to out.bmp and returns the block it loaded as.
    Bytes LoadThroughTool(const PngPicture &picture) {
        WritePng(Path("in.png"), picture);
        const ToolRun run = RunTool({"convert", Path("in.png"), Path("out.bmp")});
        EXPECT_EQ(run.exitCode, 0) << run.err;
        return DibFromBmp(ReadFile(Path("out.bmp")));
    }
    // in.png through the tool to out.png: both decode to the same RGBA pixels.
    void ExpectPngRoundTrip() {
        const ToolRun run = RunTool({"convert", Path("in.png"), Path("out.png")});
        ASSERT_EQ(run.exitCode, 0) << run.err;
        EXPECT_EQ(PngToRgba(Path("out.png")), PngToRgba(Path("in.png")));
    }
};

PngPicture RandomPicture(uint32_t seed, uint32_t width, uint32_t height, int colourType, int depth) {
    std::mt19937 rng(seed);
    PngPicture p;
    p.width = width;
    p.height = height;
    p.colourType = colourType;
    p.depth = depth;
    int channels = 1;
    if (colourType == PNG_COLOR_TYPE_RGB) channels = 3;
    if (colourType == PNG_COLOR_TYPE_RGB_ALPHA) channels = 4;
    if (colourType == PNG_COLOR_TYPE_GRAY_ALPHA) channels = 2;
    const size_t rowBytes = (static_cast<size_t>(width) * static_cast<size_t>(channels * depth) + 7) / 8;
    for (uint32_t y = 0; y < height; ++y) {
        Bytes row(rowBytes);
        for (uint8_t &b : row) b = static_cast<uint8_t>(rng());
        p.rows.push_back(row);
    }
    if (colourType == PNG_COLOR_TYPE_PALETTE) {
        const int entries = 1 << depth;
        for (int i = 0; i < entries; ++i) {
            p.palette.push_back(png_color{static_cast<uint8_t>(rng()), static_cast<uint8_t>(rng()),
                                          static_cast<uint8_t>(rng())});
        }
    }
    return p;
}

// Sample x of a row of `bits`-bit samples, most significant first.
uint32_t SampleAt(const Bytes &row, uint32_t x, int bits) {
    if (bits == 16) return static_cast<uint32_t>(row[2 * x] << 8 | row[2 * x + 1]);
    const uint32_t perByte = 8 / static_cast<uint32_t>(bits);
    const uint32_t shift = 8 - static_cast<uint32_t>(bits) - (x % perByte) * static_cast<uint32_t>(bits);
    return (row[x / perByte] >> shift) & ((1u << bits) - 1);
}

// Pixel row y (top-down) of a block.
const uint8_t *BlockRow(const Bytes &dib, uint32_t y) {
    const int32_t width = static_cast<int32_t>(Rd32(&dib[4]));
    const uint32_t height = Rd32(&dib[8]);
    const uint32_t stride = Stride(Rd16(&dib[14]), width);
    return &dib[PixelOffset(dib) + static_cast<size_t>(stride) * (height - 1 - y)];
}

TEST_F(PngIoTest, GrayLoadsAsEightBitsWithAGrayRamp) {
    const PngPicture picture = RandomPicture(700, 13, 7, PNG_COLOR_TYPE_GRAY, 8);
    const Bytes dib = LoadThroughTool(picture);
    ASSERT_EQ(Rd16(&dib[14]), 8);
    EXPECT_EQ(Rd32(&dib[32]), 0u);
    for (uint32_t i = 0; i < 256; ++i) {
        const uint8_t *q = &dib[40 + 4 * i];
        EXPECT_TRUE(q[0] == i && q[1] == i && q[2] == i && q[3] == 0) << i;
    }
    for (uint32_t y = 0; y < 7; ++y) {
        for (uint32_t x = 0; x < 13; ++x) EXPECT_EQ(BlockRow(dib, y)[x], picture.rows[y][x]);
    }
    ExpectPngRoundTrip();
}

TEST_F(PngIoTest, GrayBelowEightBitsIsScaledUpAndSixteenBitsKeepTheHighByte) {
    for (int depth : {1, 2, 4, 16}) {
        SCOPED_TRACE(depth);
        const PngPicture picture =
            RandomPicture(710 + static_cast<uint32_t>(depth), 11, 5, PNG_COLOR_TYPE_GRAY, depth);
        const Bytes dib = LoadThroughTool(picture);
        ASSERT_EQ(Rd16(&dib[14]), 8);
        for (uint32_t y = 0; y < 5; ++y) {
            for (uint32_t x = 0; x < 11; ++x) {
                const uint32_t v = SampleAt(picture.rows[y], x, depth);
                const uint32_t expected = depth == 16 ? v >> 8 : v * 255 / ((1u << depth) - 1);
                EXPECT_EQ(BlockRow(dib, y)[x], expected) << x << "," << y;
            }
        }
        ExpectPngRoundTrip();
    }
}

TEST_F(PngIoTest, PaletteKeepsItsTableAndIndicesWithTwoBitsBecomingFour) {
    for (int depth : {1, 2, 4, 8}) {
        SCOPED_TRACE(depth);
        const PngPicture picture =
            RandomPicture(720 + static_cast<uint32_t>(depth), 21, 6, PNG_COLOR_TYPE_PALETTE, depth);
        const Bytes dib = LoadThroughTool(picture);
        const int bits = depth == 2 ? 4 : depth;
        ASSERT_EQ(Rd16(&dib[14]), bits);
        ASSERT_EQ(TableEntries(dib), picture.palette.size());
        for (size_t i = 0; i < picture.palette.size(); ++i) {
            EXPECT_EQ(dib[40 + 4 * i + 2], picture.palette[i].red);
            EXPECT_EQ(dib[40 + 4 * i + 1], picture.palette[i].green);
            EXPECT_EQ(dib[40 + 4 * i + 0], picture.palette[i].blue);
        }
        for (uint32_t y = 0; y < 6; ++y) {
            Bytes blockRow(BlockRow(dib, y), BlockRow(dib, y) + Stride(bits, 21));
            for (uint32_t x = 0; x < 21; ++x)
                EXPECT_EQ(SampleAt(blockRow, x, bits), SampleAt(picture.rows[y], x, depth));
        }
        ExpectPngRoundTrip();
        const PngPicture written = ReadPng(Path("out.png"));
        EXPECT_EQ(written.colourType, PNG_COLOR_TYPE_PALETTE);
        EXPECT_EQ(written.depth, bits);
    }
}

TEST_F(PngIoTest, ShortPaletteKeepsItsLength) {
    PngPicture picture = RandomPicture(730, 9, 4, PNG_COLOR_TYPE_PALETTE, 8);
    picture.palette.resize(5);
    for (Bytes &row : picture.rows) {
        for (uint8_t &b : row) b = static_cast<uint8_t>(b % 5);
    }
    const Bytes dib = LoadThroughTool(picture);
    EXPECT_EQ(Rd32(&dib[32]), 5u);
    ExpectPngRoundTrip();
    EXPECT_EQ(ReadPng(Path("out.png")).palette.size(), 5u);
}

TEST_F(PngIoTest, PaletteTransparencyIsIgnored) {
    PngPicture picture = RandomPicture(735, 9, 4, PNG_COLOR_TYPE_PALETTE, 4);
    picture.trnsAlpha = {0, 128, 255, 7};
    const Bytes dib = LoadThroughTool(picture);
    EXPECT_EQ(Rd16(&dib[14]), 4);
    ASSERT_EQ(RunTool({"convert", Path("in.png"), Path("out.png")}).exitCode, 0);
    EXPECT_TRUE(ReadPng(Path("out.png")).trnsAlpha.empty());
    Bytes opaque = PngToRgba(Path("in.png"));
    for (size_t i = 3; i < opaque.size(); i += 4) opaque[i] = 255;
    EXPECT_EQ(PngToRgba(Path("out.png")), opaque);
}

TEST_F(PngIoTest, RgbLoadsAsTwentyFourBitsAndIsWrittenBackAsRgb) {
    for (int depth : {8, 16}) {
        SCOPED_TRACE(depth);
        const PngPicture picture =
            RandomPicture(740 + static_cast<uint32_t>(depth), 10, 5, PNG_COLOR_TYPE_RGB, depth);
        const Bytes dib = LoadThroughTool(picture);
        ASSERT_EQ(Rd16(&dib[14]), 24);
        for (uint32_t y = 0; y < 5; ++y) {
            for (uint32_t x = 0; x < 10; ++x) {
                for (uint32_t c = 0; c < 3; ++c) {
                    const uint32_t v = SampleAt(picture.rows[y], 3 * x + c, depth);
                    EXPECT_EQ(BlockRow(dib, y)[3 * x + 2 - c], depth == 16 ? v >> 8 : v);
                }
            }
        }
        ExpectPngRoundTrip();
        EXPECT_EQ(ReadPng(Path("out.png")).colourType, PNG_COLOR_TYPE_RGB);
    }
}

TEST_F(PngIoTest, RgbaLoadsAsThirtyTwoBitsWithAlphaInTheFourthByte) {
    PngPicture picture = RandomPicture(750, 10, 5, PNG_COLOR_TYPE_RGB_ALPHA, 8);
    picture.rows[0][3] = 17;  // at least one alpha that is not zero
    const Bytes dib = LoadThroughTool(picture);
    ASSERT_EQ(Rd16(&dib[14]), 32);
    for (uint32_t y = 0; y < 5; ++y) {
        for (uint32_t x = 0; x < 10; ++x) {
            const uint8_t *p = BlockRow(dib, y) + 4 * x;
            const uint8_t *q = &picture.rows[y][4 * x];
            EXPECT_TRUE(p[0] == q[2] && p[1] == q[1] && p[2] == q[0] && p[3] == q[3]);
        }
    }
    ExpectPngRoundTrip();
    EXPECT_EQ(ReadPng(Path("out.png")).colourType, PNG_COLOR_TYPE_RGB_ALPHA);
}

TEST_F(PngIoTest, GrayWithAlphaLoadsAsThirtyTwoBits) {
    const PngPicture picture = RandomPicture(760, 8, 3, PNG_COLOR_TYPE_GRAY_ALPHA, 8);
    const Bytes dib = LoadThroughTool(picture);
    ASSERT_EQ(Rd16(&dib[14]), 32);
    const uint8_t *p = BlockRow(dib, 1) + 4 * 5;
    const uint8_t *q = &picture.rows[1][2 * 5];
    EXPECT_TRUE(p[0] == q[0] && p[1] == q[0] && p[2] == q[0] && p[3] == q[1]);
    ExpectPngRoundTrip();
}

TEST_F(PngIoTest, TransparentColourOfRgbAndGrayBecomesAlpha) {
    PngPicture rgb = RandomPicture(770, 6, 2, PNG_COLOR_TYPE_RGB, 8);
    rgb.rows[0] = {10, 20, 30, 1, 2, 3, 10, 20, 30, 4, 5, 6, 7, 8, 9, 10, 20, 31};
    rgb.hasTrnsColour = true;
    rgb.trnsColour.red = 10;
    rgb.trnsColour.green = 20;
    rgb.trnsColour.blue = 30;
    Bytes dib = LoadThroughTool(rgb);
    ASSERT_EQ(Rd16(&dib[14]), 32);
    const uint8_t alphas[6] = {0, 255, 0, 255, 255, 255};
    for (uint32_t x = 0; x < 6; ++x) EXPECT_EQ(BlockRow(dib, 0)[4 * x + 3], alphas[x]) << x;

    PngPicture gray = RandomPicture(771, 4, 1, PNG_COLOR_TYPE_GRAY, 8);
    gray.rows[0] = {5, 6, 5, 7};
    gray.hasTrnsColour = true;
    gray.trnsColour.gray = 5;
    dib = LoadThroughTool(gray);
    ASSERT_EQ(Rd16(&dib[14]), 32);
    const uint8_t *row = BlockRow(dib, 0);
    EXPECT_TRUE(row[0] == 5 && row[1] == 5 && row[2] == 5 && row[3] == 0);
    EXPECT_TRUE(row[4] == 6 && row[5] == 6 && row[6] == 6 && row[7] == 255);
    EXPECT_EQ(row[11], 0);
}

TEST_F(PngIoTest, InterlacedFileReadsLikeTheSequentialOne) {
    PngPicture picture = RandomPicture(780, 19, 13, PNG_COLOR_TYPE_RGB, 8);
    const Bytes sequential = LoadThroughTool(picture);
    picture.interlaced = true;
    EXPECT_EQ(LoadThroughTool(picture), sequential);
}

TEST_F(PngIoTest, TwentyFourBitBmpThroughPngAndBackKeepsEveryByte) {
    const Bytes file = BmpFromDib(RandomDib(790, 17, 9, 24));
    WriteFile(Path("in.bmp"), file);
    ASSERT_EQ(RunTool({"convert", Path("in.bmp"), Path("mid.png")}).exitCode, 0);
    ASSERT_EQ(RunTool({"convert", Path("mid.png"), Path("out.bmp")}).exitCode, 0);
    EXPECT_EQ(ReadFile(Path("out.bmp")), file);
}

TEST_F(PngIoTest, PaletteBmpThroughPngAndBackKeepsTheBlock) {
    for (int bits : {1, 4, 8}) {
        SCOPED_TRACE(bits);
        Bytes dib = RandomDib(800 + static_cast<uint32_t>(bits), 15, 4, bits, bits == 8 ? 100 : 0);
        for (size_t i = 43; i < PixelOffset(dib); i += 4) dib[i] = 0;  // PNG keeps no reserved byte
        WriteFile(Path("in.bmp"), BmpFromDib(dib));
        ASSERT_EQ(RunTool({"convert", Path("in.bmp"), Path("mid.png")}).exitCode, 0);
        EXPECT_EQ(ReadPng(Path("mid.png")).depth, bits);
        ASSERT_EQ(RunTool({"convert", Path("mid.png"), Path("out.bmp")}).exitCode, 0);
        EXPECT_EQ(DibFromBmp(ReadFile(Path("out.bmp"))), dib);
    }
}

TEST_F(PngIoTest, IndicesPastTheTableGetBlackPaletteEntries) {
    Bytes dib = MakeDib(4, 1, 8, 2);
    const size_t pixels = PixelOffset(dib);
    dib[40] = 10;  // entry 0: blue 10
    dib[pixels + 0] = 0;
    dib[pixels + 1] = 3;
    WriteFile(Path("in.bmp"), BmpFromDib(dib));
    ASSERT_EQ(RunTool({"convert", Path("in.bmp"), Path("out.png")}).exitCode, 0);
    const PngPicture written = ReadPng(Path("out.png"));
    ASSERT_EQ(written.palette.size(), 4u);
    EXPECT_EQ(written.palette[0].blue, 10);
    EXPECT_EQ(written.palette[3].red, 0);
}

TEST_F(PngIoTest, SixteenBitPixelsAreExpandedToRgbWithTruncation) {
    for (bool is565 : {false, true}) {
        SCOPED_TRACE(is565);
        const Bytes dib = RandomDib(810 + (is565 ? 1u : 0u), 9, 4, 16, 0, is565);
        WriteFile(Path("in.bmp"), BmpFromDib(dib));
        ASSERT_EQ(RunTool({"convert", Path("in.bmp"), Path("out.png")}).exitCode, 0);
        const PngPicture written = ReadPng(Path("out.png"));
        ASSERT_EQ(written.colourType, PNG_COLOR_TYPE_RGB);
        for (uint32_t y = 0; y < 4; ++y) {
            for (uint32_t x = 0; x < 9; ++x) {
                const uint32_t w = Rd16(BlockRow(dib, y) + 2 * x);
                const uint32_t r = is565 ? (w >> 11 & 31) * 255 / 31 : (w >> 10 & 31) * 255 / 31;
                const uint32_t g = is565 ? (w >> 5 & 63) * 255 / 63 : (w >> 5 & 31) * 255 / 31;
                const uint32_t b = (w & 31) * 255 / 31;
                const uint8_t *p = &written.rows[y][3 * x];
                EXPECT_TRUE(p[0] == r && p[1] == g && p[2] == b) << x << "," << y;
            }
        }
    }
}

TEST_F(PngIoTest, ThirtyTwoBitsAreRgbUnlessSomeFourthByteIsSet) {
    Bytes dib = RandomDib(820, 5, 3, 32);
    for (size_t i = PixelOffset(dib) + 3; i < dib.size(); i += 4) dib[i] = 0;
    WriteFile(Path("in.bmp"), BmpFromDib(dib));
    ASSERT_EQ(RunTool({"convert", Path("in.bmp"), Path("out.png")}).exitCode, 0);
    EXPECT_EQ(ReadPng(Path("out.png")).colourType, PNG_COLOR_TYPE_RGB);

    dib[PixelOffset(dib) + 4 * 7 + 3] = 200;
    WriteFile(Path("in.bmp"), BmpFromDib(dib));
    ASSERT_EQ(RunTool({"convert", Path("in.bmp"), Path("out.png")}).exitCode, 0);
    const PngPicture written = ReadPng(Path("out.png"));
    ASSERT_EQ(written.colourType, PNG_COLOR_TYPE_RGB_ALPHA);
    // Pixel 7 of the block, five to a row, is pixel 2 of its second row from the bottom: PNG row 1.
    EXPECT_EQ(written.rows[1][4 * 2 + 3], 200);
    EXPECT_EQ(written.rows[1][4 * 1 + 3], 0);
}

TEST_F(PngIoTest, RgbRevOnAGrayPngReversesTheLevels) {
    const PngPicture picture = RandomPicture(830, 8, 3, PNG_COLOR_TYPE_GRAY, 8);
    WritePng(Path("in.png"), picture);
    ASSERT_EQ(RunTool({"rgb-rev", Path("in.png"), Path("out.png")}).exitCode, 0);
    const Bytes before = PngToRgba(Path("in.png"));
    const Bytes after = PngToRgba(Path("out.png"));
    ASSERT_EQ(after.size(), before.size());
    for (size_t i = 0; i < before.size(); ++i) EXPECT_EQ(after[i], i % 4 == 3 ? 255 : 255 - before[i]);
}

TEST_F(PngIoTest, DamagedPngIsRefusedWithOneLineAndNoOutput) {
    WritePng(Path("good.png"), RandomPicture(840, 30, 20, PNG_COLOR_TYPE_RGB, 8));
    const Bytes good = ReadFile(Path("good.png"));
    Bytes badCrc = good;
    badCrc[good.size() / 2] ^= 0x55;
    Bytes badHeader = good;
    badHeader[16] = 0x7F;  // width above libpng's limit
    const std::vector<std::pair<const char *, Bytes>> cases = {
        {"Truncated", Bytes(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(good.size() / 2))},
        {"SignatureOnly", Bytes(good.begin(), good.begin() + 8)},
        {"CorruptedData", badCrc},
        {"ImpossibleHeader", badHeader},
    };
    const Bytes before = BmpFromDib(RandomDib(841, 2, 2, 24));
    for (const auto &[name, bytes] : cases) {
        SCOPED_TRACE(name);
        WriteFile(Path("in.png"), bytes);
        ExpectFailure(RunTool({"convert", Path("in.png"), Path("new.bmp")}), 1,
                      Path("in.png") + ": damaged PNG file");
        WriteFile(Path("old.bmp"), before);
        ExpectFailure(RunTool({"rgb-rev", Path("in.png"), Path("old.bmp")}), 1, "damaged PNG file");
        EXPECT_EQ(ReadFile(Path("old.bmp")), before);
        EXPECT_EQ(Entries(), (std::vector<std::string>{"good.png", "in.png", "old.bmp"}));
    }
}

}  // namespace
}  // namespace tz3clitest
