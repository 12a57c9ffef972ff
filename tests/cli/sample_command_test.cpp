// `tz3 sample OUT`: the built-in test card.
#include <gtest/gtest.h>

#include <set>

#include "tool_test_support.h"

namespace tz3clitest {
namespace {

class SampleCommandTest : public ToolTest {};

TEST_F(SampleCommandTest, WritesA640By480TwentyFourBitBmp) {
    const ToolRun run = RunTool({"sample", Path("card.bmp")});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.err, "");
    const Bytes dib = DibFromBmp(ReadFile(Path("card.bmp")));
    ASSERT_GE(dib.size(), 40u);
    EXPECT_EQ(Rd32(&dib[4]), 640u);
    EXPECT_EQ(Rd32(&dib[8]), 480u);
    EXPECT_EQ(Rd16(&dib[14]), 24);
    EXPECT_EQ(Rd32(&dib[16]), 0u);
    EXPECT_EQ(dib.size(), 40u + 640u * 480u * 3u);
    EXPECT_EQ(RunTool({"info", Path("card.bmp")}).out,
              Path("card.bmp") + ": 640 x 480, 24 bits, 0 colours, compression 0\n");
}

TEST_F(SampleCommandTest, IsTheSameBytesEveryTime) {
    ASSERT_EQ(RunTool({"sample", Path("a.bmp")}).exitCode, 0);
    ASSERT_EQ(RunTool({"sample", Path("b.bmp")}).exitCode, 0);
    EXPECT_EQ(ReadFile(Path("a.bmp")), ReadFile(Path("b.bmp")));
    ASSERT_EQ(RunTool({"sample", Path("a.png")}).exitCode, 0);
    ASSERT_EQ(RunTool({"sample", Path("b.png")}).exitCode, 0);
    EXPECT_EQ(ReadFile(Path("a.png")), ReadFile(Path("b.png")));
}

// Many colours, the pure ones among them, and both 1-pixel alternations somewhere.
TEST_F(SampleCommandTest, IsNotFlat) {
    ASSERT_EQ(RunTool({"sample", Path("card.bmp")}).exitCode, 0);
    const Bytes dib = DibFromBmp(ReadFile(Path("card.bmp")));
    std::set<uint32_t> colours;
    for (size_t i = 40; i + 2 < dib.size(); i += 3)
        colours.insert(static_cast<uint32_t>(dib[i] | dib[i + 1] << 8 | dib[i + 2] << 16));
    EXPECT_GT(colours.size(), 5000u);
    for (uint32_t pure :
         {0x000000u, 0xFFFFFFu, 0xFF0000u, 0x00FF00u, 0x0000FFu, 0xFFFF00u, 0x00FFFFu, 0xFF00FFu}) {
        EXPECT_EQ(colours.count(pure), 1u) << std::hex << pure;
    }
    size_t flips = 0;
    for (size_t i = 40 + 3; i + 2 < dib.size(); i += 3) flips += dib[i] != dib[i - 3] ? 1 : 0;
    EXPECT_GT(flips, 640u * 480u / 10);
}

TEST_F(SampleCommandTest, PngCardHasTheSamePixelsAsTheBmpCard) {
    ASSERT_EQ(RunTool({"sample", Path("card.bmp")}).exitCode, 0);
    ASSERT_EQ(RunTool({"sample", Path("card.png")}).exitCode, 0);
    const Bytes dib = DibFromBmp(ReadFile(Path("card.bmp")));
    uint32_t width = 0, height = 0;
    const Bytes rgba = PngToRgba(Path("card.png"), &width, &height);
    ASSERT_EQ(width, 640u);
    ASSERT_EQ(height, 480u);
    Bytes expected;
    for (uint32_t y = 0; y < 480; ++y) {
        const uint8_t *row = &dib[40 + static_cast<size_t>(1920) * (479 - y)];
        for (uint32_t x = 0; x < 640; ++x)
            expected.insert(expected.end(), {row[3 * x + 2], row[3 * x + 1], row[3 * x], 255});
    }
    EXPECT_EQ(rgba, expected);
}

TEST_F(SampleCommandTest, ReplacesAnExistingFile) {
    WriteFile(Path("card.bmp"), Bytes{'o', 'l', 'd'});
    ASSERT_EQ(RunTool({"sample", Path("card.bmp")}).exitCode, 0);
    EXPECT_EQ(ReadFile(Path("card.bmp")).size(), 54u + 640u * 480u * 3u);
    EXPECT_EQ(Entries(), std::vector<std::string>{"card.bmp"});
}

TEST_F(SampleCommandTest, WrongArgumentsAreUsageErrors) {
    for (const std::vector<std::string> &args :
         std::vector<std::vector<std::string>>{{"sample"},
                                               {"sample", Path("a.bmp"), Path("b.bmp")},
                                               {"sample", Path("a.gif")},
                                               {"sample", "--big", Path("a.bmp")}}) {
        ExpectFailure(RunTool(args), 2, "(usage: tz3 sample OUT)");
    }
    EXPECT_TRUE(Entries().empty());
}

}  // namespace
}  // namespace tz3clitest
