// `tz3 info FILE`: size, bits per pixel with the 16-bit layout, colour-table entries and the
// compression field, as the file has them.
#include <gtest/gtest.h>

#include "tool_test_support.h"

namespace tz3clitest {
namespace {

class InfoCommandTest : public ToolTest {};

TEST_F(InfoCommandTest, EveryBmpVariantIsDescribedAsTheFileHasIt) {
    for (const BmpVariant &v : EveryBmpVariant(13, 5, 900)) {
        SCOPED_TRACE(v.name);
        WriteFile(Path("in.bmp"), v.file);
        const ToolRun run = RunTool({"info", Path("in.bmp")});
        EXPECT_EQ(run.exitCode, 0) << run.err;
        EXPECT_EQ(run.out, Path("in.bmp") + ": " + v.info + "\n");
        EXPECT_EQ(run.err, "");
    }
}

TEST_F(InfoCommandTest, Sixteen565ImageOfVgaSize) {
    WriteFile(Path("vga.bmp"), BmpFromDib(MakeDib(640, 480, 16, 0, true)));
    const ToolRun run = RunTool({"info", Path("vga.bmp")});
    EXPECT_EQ(run.out, Path("vga.bmp") + ": 640 x 480, 16 bits (565), 0 colours, compression 3\n");
}

TEST_F(InfoCommandTest, TopDownFileReportsItsHeightAsAPositiveNumber) {
    const Bytes file = BmpFromDib(RandomDib(910, 7, 9, 24));
    WriteFile(Path("down.bmp"), TopDownTwin(file));
    EXPECT_EQ(RunTool({"info", Path("down.bmp")}).out,
              Path("down.bmp") + ": 7 x 9, 24 bits, 0 colours, compression 0\n");
}

TEST_F(InfoCommandTest, PngIsDescribedAsTheImageItLoadsAs) {
    PngPicture gray;
    gray.width = 3;
    gray.height = 2;
    gray.colourType = PNG_COLOR_TYPE_GRAY;
    gray.rows = {Bytes{1, 2, 3}, Bytes{4, 5, 6}};
    WritePng(Path("gray.png"), gray);
    EXPECT_EQ(RunTool({"info", Path("gray.png")}).out,
              Path("gray.png") + ": 3 x 2, 8 bits, 256 colours, compression 0\n");

    PngPicture palette = gray;
    palette.colourType = PNG_COLOR_TYPE_PALETTE;
    palette.depth = 2;
    palette.palette = {{1, 2, 3}, {4, 5, 6}, {7, 8, 9}};
    palette.rows = {Bytes{0x24}, Bytes{0x90}};
    WritePng(Path("palette.png"), palette);
    EXPECT_EQ(RunTool({"info", Path("palette.png")}).out,
              Path("palette.png") + ": 3 x 2, 4 bits, 3 colours, compression 0\n");

    PngPicture rgba = gray;
    rgba.colourType = PNG_COLOR_TYPE_RGB_ALPHA;
    rgba.rows = {Bytes(12, 9), Bytes(12, 200)};
    WritePng(Path("rgba.png"), rgba);
    EXPECT_EQ(RunTool({"info", Path("rgba.png")}).out,
              Path("rgba.png") + ": 3 x 2, 32 bits, 0 colours, compression 0\n");
}

TEST_F(InfoCommandTest, WrongArgumentsAreUsageErrors) {
    WriteFile(Path("in.bmp"), BmpFromDib(RandomDib(920, 2, 2, 24)));
    for (const std::vector<std::string> &args : std::vector<std::vector<std::string>>{
             {"info"}, {"info", Path("in.bmp"), Path("in.bmp")}, {"info", "--verbose", Path("in.bmp")}}) {
        const ToolRun run = RunTool(args);
        ExpectFailure(run, 2, "tz3: info: ");
        EXPECT_NE(run.err.find("(usage: tz3 info FILE)"), std::string::npos) << run.err;
        EXPECT_EQ(run.out, "");
    }
}

}  // namespace
}  // namespace tz3clitest
