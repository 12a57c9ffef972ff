// Reading and writing BMP files through `tz3 convert`: every variant that maps onto a packed
// bitmap, top-down files, the larger headers, and damaged files refused without output.
#include <gtest/gtest.h>

#include "tool_test_support.h"

namespace tz3clitest {
namespace {

class BmpIoTest : public ToolTest {};

TEST_F(BmpIoTest, EveryVariantReadsAsItsBlockAndIsWrittenAsAStandardFile) {
    for (const BmpVariant &v : EveryBmpVariant(13, 5, 100)) {
        SCOPED_TRACE(v.name);
        WriteFile(Path("in.bmp"), v.file);
        const ToolRun run = RunTool({"convert", Path("in.bmp"), Path("out.bmp")});
        ASSERT_EQ(run.exitCode, 0) << run.err;
        EXPECT_EQ(run.err, "");
        const Bytes out = ReadFile(Path("out.bmp"));
        EXPECT_EQ(DibFromBmp(out), v.dib);
        EXPECT_EQ(out, BmpFromDib(v.dib));
    }
}

TEST_F(BmpIoTest, WidthsThatNeedRowPaddingKeepEveryPixel) {
    for (int width : {1, 3, 8, 33}) {
        for (const BmpVariant &v : EveryBmpVariant(width, 3, 200 + static_cast<uint32_t>(width))) {
            SCOPED_TRACE(v.name + " width " + std::to_string(width));
            WriteFile(Path("in.bmp"), v.file);
            ASSERT_EQ(RunTool({"convert", Path("in.bmp"), Path("out.bmp")}).exitCode, 0);
            EXPECT_EQ(DibFromBmp(ReadFile(Path("out.bmp"))), v.dib);
        }
    }
}

TEST_F(BmpIoTest, TopDownFileReadsAsTheSamePictureAsItsBottomUpTwin) {
    for (const BmpVariant &v : EveryBmpVariant(11, 6, 300)) {
        SCOPED_TRACE(v.name);
        WriteFile(Path("up.bmp"), v.file);
        WriteFile(Path("down.bmp"), TopDownTwin(v.file));
        ASSERT_EQ(RunTool({"convert", Path("up.bmp"), Path("up-out.bmp")}).exitCode, 0);
        const ToolRun run = RunTool({"convert", Path("down.bmp"), Path("down-out.bmp")});
        ASSERT_EQ(run.exitCode, 0) << run.err;
        EXPECT_EQ(ReadFile(Path("down-out.bmp")), ReadFile(Path("up-out.bmp")));
        EXPECT_EQ(DibFromBmp(ReadFile(Path("down-out.bmp"))), v.dib);
    }
}

// The same 32-bit picture in bit fields with an alpha byte, under each header that holds masks.
TEST_F(BmpIoTest, LargerHeadersWithMasksInsideReadLikeTheFortyByteHeader) {
    const Bytes dib = RandomDib(400, 9, 4, 32);
    for (uint32_t headerSize : {52u, 56u, 108u, 124u}) {
        SCOPED_TRACE(headerSize);
        BmpParts parts;
        parts.headerSize = headerSize;
        parts.width = 9;
        parts.height = 4;
        parts.bitCount = 32;
        parts.compression = 3;
        parts.masks = {0x00FF0000, 0x0000FF00, 0x000000FF};
        if (headerSize >= 56) parts.masks.push_back(0xFF000000);
        parts.pixels.assign(dib.begin() + 40, dib.end());
        WriteFile(Path("in.bmp"), BuildBmp(parts));
        const ToolRun run = RunTool({"convert", Path("in.bmp"), Path("out.bmp")});
        ASSERT_EQ(run.exitCode, 0) << run.err;
        EXPECT_EQ(DibFromBmp(ReadFile(Path("out.bmp"))), dib);
    }
}

TEST_F(BmpIoTest, V5HeaderReadsForPaletteRgbAnd565Pictures) {
    const Bytes palette = RandomDib(410, 10, 3, 8, 20);
    const Bytes rgb = RandomDib(411, 10, 3, 24);
    const Bytes rgb565 = RandomDib(412, 10, 3, 16, 0, true);
    for (const Bytes *dib : {&palette, &rgb, &rgb565}) {
        BmpParts parts;
        parts.headerSize = 124;
        parts.width = 10;
        parts.height = 3;
        parts.bitCount = Rd16(&(*dib)[14]);
        parts.compression = Rd32(&(*dib)[16]);
        parts.clrUsed = parts.compression == 3 ? 0 : Rd32(&(*dib)[32]);
        if (parts.compression == 3) {
            parts.masks = {0xF800, 0x07E0, 0x001F, 0};
        } else {
            parts.table.assign(dib->begin() + 40,
                               dib->begin() + static_cast<std::ptrdiff_t>(PixelOffset(*dib)));
        }
        parts.pixels.assign(dib->begin() + static_cast<std::ptrdiff_t>(PixelOffset(*dib)), dib->end());
        WriteFile(Path("in.bmp"), BuildBmp(parts));
        const ToolRun run = RunTool({"convert", Path("in.bmp"), Path("out.bmp")});
        ASSERT_EQ(run.exitCode, 0) << run.err;
        EXPECT_EQ(DibFromBmp(ReadFile(Path("out.bmp"))), *dib);
    }
}

TEST_F(BmpIoTest, PixelDataIsTakenFromBfOffBitsPastAGap) {
    const Bytes dib = RandomDib(420, 5, 5, 24);
    Bytes file = BmpFromDib(dib);
    const uint32_t offBits = Rd32(&file[10]);
    file.insert(file.begin() + offBits, 17, 0xAB);
    Wr32(&file[10], offBits + 17);
    Wr32(&file[2], static_cast<uint32_t>(file.size()));
    WriteFile(Path("in.bmp"), file);
    ASSERT_EQ(RunTool({"convert", Path("in.bmp"), Path("out.bmp")}).exitCode, 0);
    EXPECT_EQ(DibFromBmp(ReadFile(Path("out.bmp"))), dib);
}

TEST_F(BmpIoTest, OptionalColourTableOfA24BitFileIsDropped) {
    const Bytes dib = RandomDib(430, 6, 2, 24);
    BmpParts parts;
    parts.width = 6;
    parts.height = 2;
    parts.bitCount = 24;
    parts.clrUsed = 2;
    parts.table = {1, 2, 3, 0, 4, 5, 6, 0};
    parts.pixels.assign(dib.begin() + 40, dib.end());
    WriteFile(Path("in.bmp"), BuildBmp(parts));
    ASSERT_EQ(RunTool({"convert", Path("in.bmp"), Path("out.bmp")}).exitCode, 0);
    EXPECT_EQ(DibFromBmp(ReadFile(Path("out.bmp"))), dib);
}

struct DamagedCase {
    const char *name;
    Bytes file;
    const char *message;
};

BmpParts Valid24(int32_t width, int32_t height) {
    BmpParts parts;
    parts.width = width;
    parts.height = height;
    parts.bitCount = 24;
    parts.pixels.assign(static_cast<size_t>(Stride(24, width)) * 4, 0x5A);
    return parts;
}

std::vector<DamagedCase> DamagedFiles() {
    std::vector<DamagedCase> cases;
    const Bytes good = BuildBmp(Valid24(8, 4));
    cases.push_back({"TruncatedRows", Bytes(good.begin(), good.end() - 10), "pixel data truncated"});
    cases.push_back({"TruncatedInfoHeader", Bytes(good.begin(), good.begin() + 30), "truncated BMP header"});
    cases.push_back({"TruncatedFileHeader", Bytes(good.begin(), good.begin() + 10), "truncated BMP header"});
    Bytes offsetPastEnd = good;
    Wr32(&offsetPastEnd[10], 100000);
    cases.push_back({"PixelOffsetPastTheEnd", offsetPastEnd, "pixel data truncated"});
    Bytes offsetInHeader = good;
    Wr32(&offsetInHeader[10], 20);
    cases.push_back({"PixelOffsetInsideTheHeader", offsetInHeader, "overlaps the header"});

    auto variant = [&cases](const char *name, const char *message, auto change) {
        BmpParts parts = Valid24(8, 4);
        change(parts);
        cases.push_back({name, BuildBmp(parts), message});
    };
    variant("Rle8", "RLE-compressed BMP is not supported", [](BmpParts &p) {
        p.bitCount = 8;
        p.compression = 1;
        p.table.assign(1024, 0);
    });
    variant("Rle4", "RLE-compressed BMP is not supported", [](BmpParts &p) {
        p.bitCount = 4;
        p.compression = 2;
        p.table.assign(64, 0);
    });
    variant("JpegInside", "JPEG-compressed BMP is not supported", [](BmpParts &p) {
        p.bitCount = 0;
        p.compression = 4;
    });
    variant("PngInside", "PNG-compressed BMP is not supported", [](BmpParts &p) {
        p.bitCount = 0;
        p.compression = 5;
    });
    variant("UnknownCompression", "BMP compression 11 is not supported",
            [](BmpParts &p) { p.compression = 11; });
    variant("BitCountTwo", "bad bit count 2", [](BmpParts &p) { p.bitCount = 2; });
    variant("BitCountZero", "bad bit count 0", [](BmpParts &p) { p.bitCount = 0; });
    variant("BitCount48", "bad bit count 48", [](BmpParts &p) { p.bitCount = 48; });
    variant("HugeDimensions", "too large", [](BmpParts &p) {
        p.width = 100000;
        p.height = 100000;
    });
    variant("SizeArithmeticOverflow", "too large", [](BmpParts &p) {
        p.width = 0x7FFFFFFF;
        p.height = 0x7FFFFFFF;
        p.bitCount = 32;
    });
    variant("TallestTopDown", "bad height", [](BmpParts &p) { p.height = INT32_MIN; });
    variant("ZeroWidth", "bad width 0", [](BmpParts &p) { p.width = 0; });
    variant("NegativeWidth", "bad width -8", [](BmpParts &p) { p.width = -8; });
    variant("ZeroHeight", "bad height 0", [](BmpParts &p) { p.height = 0; });
    variant("ColourTableTooLarge", "colour table of 17 entries", [](BmpParts &p) {
        p.bitCount = 4;
        p.clrUsed = 17;
        p.table.assign(68, 0);
    });
    variant("Unknown16BitMasks", "16-bit bit fields", [](BmpParts &p) {
        p.bitCount = 16;
        p.compression = 3;
        p.masks = {0x0F00, 0x00F0, 0x000F};
    });
    variant("TenBit32BitMasks", "32-bit bit fields", [](BmpParts &p) {
        p.bitCount = 32;
        p.compression = 3;
        p.masks = {0x3FF00000, 0x000FFC00, 0x000003FF};
    });
    variant("Repeated32BitMask", "32-bit bit fields", [](BmpParts &p) {
        p.bitCount = 32;
        p.compression = 3;
        p.masks = {0x000000FF, 0x000000FF, 0x00FF0000};
    });
    variant("BitfieldsAt24Bits", "bit fields with 24 bits", [](BmpParts &p) {
        p.compression = 3;
        p.masks = {0xFF0000, 0xFF00, 0xFF};
    });
    variant("Os2Header", "OS/2 BMP header is not supported", [](BmpParts &p) { p.headerSize = 12; });
    variant("UnknownHeaderSize", "unknown BMP header size 44", [](BmpParts &p) { p.headerSize = 44; });

    // A full 256-entry table announced, the file ending a hundred bytes into it.
    BmpParts palette = Valid24(8, 4);
    palette.bitCount = 8;
    palette.table.assign(1024, 0);
    const Bytes paletteFile = BuildBmp(palette);
    cases.push_back({"ColourTablePastTheEnd", Bytes(paletteFile.begin(), paletteFile.begin() + 154),
                     "colour table runs past the end of the file"});
    cases.push_back({"NotAnImage", Bytes{'h', 'e', 'l', 'l', 'o'}, "not a BMP or PNG file"});
    cases.push_back({"EmptyFile", Bytes{}, "not a BMP or PNG file"});
    return cases;
}

TEST_F(BmpIoTest, DamagedFileIsRefusedWithOneLineAndNoOutput) {
    for (const DamagedCase &c : DamagedFiles()) {
        SCOPED_TRACE(c.name);
        WriteFile(Path("in.bmp"), c.file);
        for (const char *command : {"convert", "rgb-rev", "info"}) {
            SCOPED_TRACE(command);
            std::vector<std::string> args = {command, Path("in.bmp")};
            if (std::string(command) != "info") args.push_back(Path("out.bmp"));
            const ToolRun run = RunTool(args);
            ExpectFailure(run, 1, c.message);
            EXPECT_EQ(run.err.rfind("tz3: " + Path("in.bmp") + ": ", 0), 0u) << run.err;
            EXPECT_EQ(run.out, "");
            EXPECT_EQ(Entries(), std::vector<std::string>{"in.bmp"});
        }
    }
}

TEST_F(BmpIoTest, DamagedFileLeavesAnExistingOutputUntouched) {
    const Bytes before = BmpFromDib(RandomDib(500, 4, 4, 24));
    for (const DamagedCase &c : DamagedFiles()) {
        SCOPED_TRACE(c.name);
        WriteFile(Path("in.bmp"), c.file);
        WriteFile(Path("out.bmp"), before);
        const ToolRun run = RunTool({"rgb-rev", Path("in.bmp"), Path("out.bmp")});
        ExpectFailure(run, 1, c.message);
        EXPECT_EQ(ReadFile(Path("out.bmp")), before);
        EXPECT_EQ(Entries(), (std::vector<std::string>{"in.bmp", "out.bmp"}));
    }
}

TEST_F(BmpIoTest, MissingInputFileIsNamedInTheMessage) {
    const ToolRun run = RunTool({"convert", Path("nothing.bmp"), Path("out.bmp")});
    ExpectFailure(run, 1, Path("nothing.bmp") + ": cannot open");
    EXPECT_FALSE(FileExists(Path("out.bmp")));
}

TEST_F(BmpIoTest, OutputExtensionIsMatchedWithoutRegardToCase) {
    const Bytes dib = RandomDib(510, 3, 3, 24);
    WriteFile(Path("in.bmp"), BmpFromDib(dib));
    ASSERT_EQ(RunTool({"convert", Path("in.bmp"), Path("OUT.BMP")}).exitCode, 0);
    EXPECT_EQ(DibFromBmp(ReadFile(Path("OUT.BMP"))), dib);
    ASSERT_EQ(RunTool({"convert", Path("in.bmp"), Path("out.Png")}).exitCode, 0);
    EXPECT_EQ(ReadPng(Path("out.Png")).width, 3u);
}

TEST_F(BmpIoTest, UnknownOutputExtensionIsAUsageErrorBeforeAnyWork) {
    WriteFile(Path("in.bmp"), BmpFromDib(RandomDib(520, 3, 3, 24)));
    for (const char *name : {"out.jpg", "out", "out.bmp.txt"}) {
        const ToolRun run = RunTool({"convert", Path("in.bmp"), Path(name)});
        ExpectFailure(run, 2, "must end in .bmp or .png");
        EXPECT_FALSE(FileExists(Path(name)));
    }
}

TEST_F(BmpIoTest, OutputMayReplaceTheInputFile) {
    const Bytes dib = RandomDib(530, 5, 3, 24);
    WriteFile(Path("pic.bmp"), BmpFromDib(dib));
    ASSERT_EQ(RunTool({"rgb-rev", Path("pic.bmp"), Path("pic.bmp")}).exitCode, 0);
    ASSERT_EQ(RunTool({"rgb-rev", Path("pic.bmp"), Path("pic.bmp")}).exitCode, 0);
    EXPECT_EQ(DibFromBmp(ReadFile(Path("pic.bmp"))), dib);
    EXPECT_EQ(Entries(), std::vector<std::string>{"pic.bmp"});
}

TEST_F(BmpIoTest, UnwritableOutputDirectoryFailsWithOneLine) {
    WriteFile(Path("in.bmp"), BmpFromDib(RandomDib(540, 3, 3, 24)));
    const ToolRun run = RunTool({"convert", Path("in.bmp"), Path("missing/out.bmp")});
    ExpectFailure(run, 1, Path("missing/out.bmp") + ": cannot create");
}

}  // namespace
}  // namespace tz3clitest
