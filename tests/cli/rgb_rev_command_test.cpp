// `tz3 rgb-rev`: its result, read back, is what TZ3RGBRev gives when called directly on the same
// block with the same arguments; region options, channel flags, usage errors and cancellation.
#include <gtest/gtest.h>

#include "tool_test_support.h"

namespace tz3clitest {
namespace {

struct Region {
    int32_t kind = 1;
    std::vector<Tz3Point> points;
    Tz3Rect rect{0, 0, 0, 0};
    int32_t inside = 1;
    const Bytes *mask = nullptr;
};

Bytes DirectRgbRev(const Bytes &dib, const Region &region, int red, int green, int blue) {
    Block image(dib);
    Block mask(region.mask != nullptr ? NewBlock(*region.mask) : nullptr);
    const DibPair pair{image.h, mask.h};
    Block result(TZ3RGBRev(&pair, region.kind, region.points.empty() ? nullptr : region.points.data(),
                           static_cast<int32_t>(region.points.size()), &region.rect, region.inside, red,
                           green, blue, 1, 0, 0, 0));
    EXPECT_NE(result.h, nullptr) << "status " << Tz3GetErrorStatus();
    return result.ToBytes();
}

// Pixels (as bytes of the rows) that differ between two blocks of the same layout.
size_t ChangedBytes(const Bytes &a, const Bytes &b) {
    size_t changed = 0;
    for (size_t i = PixelOffset(a); i < a.size() && i < b.size(); ++i) changed += a[i] != b[i] ? 1 : 0;
    return changed;
}

class RgbRevCommandTest : public ToolTest {
  protected:
    // Runs rgb-rev on the block written as in.bmp and returns the block read back from out.bmp.
    Bytes RunOn(const Bytes &dib, const std::vector<std::string> &options) {
        WriteFile(Path("in.bmp"), BmpFromDib(dib));
        std::vector<std::string> args = {"rgb-rev", Path("in.bmp"), Path("out.bmp")};
        args.insert(args.end(), options.begin(), options.end());
        const ToolRun run = RunTool(args);
        EXPECT_EQ(run.exitCode, 0) << run.err;
        EXPECT_EQ(run.err, "");
        return DibFromBmp(ReadFile(Path("out.bmp")));
    }
};

TEST_F(RgbRevCommandTest, EveryDepthMatchesTheDirectCallForEachChannelChoice) {
    struct Choice {
        std::vector<std::string> flags;
        int red, green, blue;
    };
    const Choice choices[] = {
        {{}, 1, 1, 1},
        {{"--red"}, 1, 0, 0},
        {{"--green", "--blue"}, 0, 1, 1},
        {{"--blue"}, 0, 0, 1},
    };
    for (const BmpVariant &v : EveryBmpVariant(13, 6, 600)) {
        for (const Choice &choice : choices) {
            SCOPED_TRACE(v.name + " with " + std::to_string(choice.flags.size()) + " flags");
            WriteFile(Path("in.bmp"), v.file);
            std::vector<std::string> args = {"rgb-rev", Path("in.bmp"), Path("out.bmp")};
            args.insert(args.end(), choice.flags.begin(), choice.flags.end());
            const ToolRun run = RunTool(args);
            ASSERT_EQ(run.exitCode, 0) << run.err;
            const Bytes expected = DirectRgbRev(v.dib, Region{}, choice.red, choice.green, choice.blue);
            EXPECT_EQ(DibFromBmp(ReadFile(Path("out.bmp"))), expected);
            EXPECT_GT(ChangedBytes(v.dib, expected) + (Rd16(&v.dib[14]) <= 8 ? 1 : 0), 0u);
        }
    }
}

TEST_F(RgbRevCommandTest, AllThreeChannelFlagsActLikeNone) {
    const Bytes dib = RandomDib(605, 9, 4, 24);
    EXPECT_EQ(RunOn(dib, {"--red", "--green", "--blue"}), RunOn(dib, {}));
}

TEST_F(RgbRevCommandTest, PolygonChangesOnlyThePixelsTheLibraryChangesForIt) {
    Region region;
    region.kind = 2;
    region.points = {{3, 2}, {30, 5}, {12, 20}};
    for (int bits : {16, 24, 32}) {
        SCOPED_TRACE(bits);
        const Bytes dib = RandomDib(610 + static_cast<uint32_t>(bits), 34, 24, bits);
        const Bytes out = RunOn(dib, {"--polygon", "3,2,30,5,12,20"});
        const Bytes expected = DirectRgbRev(dib, region, 1, 1, 1);
        EXPECT_EQ(out, expected);
        // Some pixels are inside and some are not.
        EXPECT_GT(ChangedBytes(dib, out), 0u);
        EXPECT_NE(out, DirectRgbRev(dib, Region{}, 1, 1, 1));
    }
}

TEST_F(RgbRevCommandTest, PolygonOutsideWorksOnTheRestOfThePicture) {
    const Bytes dib = RandomDib(620, 34, 24, 24);
    Region region;
    region.kind = 2;
    region.points = {{3, 2}, {30, 5}, {12, 20}};
    region.inside = 0;
    const Bytes out = RunOn(dib, {"--polygon=3,2,30,5,12,20", "--outside"});
    EXPECT_EQ(out, DirectRgbRev(dib, region, 1, 1, 1));
    region.inside = 1;
    EXPECT_NE(out, DirectRgbRev(dib, region, 1, 1, 1));
}

TEST_F(RgbRevCommandTest, PolygonPointsMayLieOutsideThePicture) {
    const Bytes dib = RandomDib(625, 20, 15, 24);
    Region region;
    region.kind = 2;
    region.points = {{-5, -5}, {40, 3}, {10, 30}};
    EXPECT_EQ(RunOn(dib, {"--polygon", "-5,-5,40,3,10,30"}), DirectRgbRev(dib, region, 1, 1, 1));
}

TEST_F(RgbRevCommandTest, EllipseInsideAndOutsideMatchTheDirectCall) {
    for (int bits : {16, 24, 32}) {
        SCOPED_TRACE(bits);
        const Bytes dib = RandomDib(630 + static_cast<uint32_t>(bits), 33, 21, bits, 0, bits == 16);
        Region region;
        region.kind = 3;
        region.rect = Tz3Rect{4, 3, 28, 18};
        EXPECT_EQ(RunOn(dib, {"--ellipse", "4,3,28,18", "--green"}), DirectRgbRev(dib, region, 0, 1, 0));
        region.inside = 0;
        EXPECT_EQ(RunOn(dib, {"--outside", "--ellipse", "4,3,28,18"}), DirectRgbRev(dib, region, 1, 1, 1));
    }
}

TEST_F(RgbRevCommandTest, MaskFileSelectsThePixelsOfItsSetBits) {
    const Bytes dib = RandomDib(640, 19, 11, 24);
    const Bytes mask = RandomDib(641, 19, 11, 1);
    WriteFile(Path("mask.bmp"), BmpFromDib(mask));
    Region region;
    region.kind = 0;
    region.mask = &mask;
    const Bytes expected = DirectRgbRev(dib, region, 1, 0, 1);
    EXPECT_EQ(RunOn(dib, {"--mask", Path("mask.bmp"), "--red", "--blue"}), expected);
    EXPECT_NE(expected, DirectRgbRev(dib, Region{}, 1, 0, 1));

    // The same mask as a 1-bit PNG.
    ASSERT_EQ(RunTool({"convert", Path("mask.bmp"), Path("mask.png")}).exitCode, 0);
    EXPECT_EQ(RunOn(dib, {"--mask=" + Path("mask.png"), "--red", "--blue"}), expected);
}

TEST_F(RgbRevCommandTest, PaletteImageIsReversedWholeWhateverTheRegion) {
    const Bytes dib = RandomDib(650, 17, 9, 8, 40);
    const Bytes whole = DirectRgbRev(dib, Region{}, 1, 1, 1);
    EXPECT_EQ(RunOn(dib, {"--polygon", "1,1,5,1,3,4"}), whole);
    EXPECT_EQ(RunOn(dib, {"--ellipse", "0,0,4,4", "--outside"}), whole);
}

TEST_F(RgbRevCommandTest, MaskOfTheWrongSizeOrDepthIsRefused) {
    const Bytes dib = RandomDib(660, 10, 8, 24);
    WriteFile(Path("in.bmp"), BmpFromDib(dib));
    WriteFile(Path("small.bmp"), BmpFromDib(RandomDib(661, 9, 8, 1)));
    WriteFile(Path("deep.bmp"), BmpFromDib(RandomDib(662, 10, 8, 8)));
    for (const char *mask : {"small.bmp", "deep.bmp"}) {
        SCOPED_TRACE(mask);
        const ToolRun run = RunTool({"rgb-rev", Path("in.bmp"), Path("out.bmp"), "--mask", Path(mask)});
        ExpectFailure(run, 1, Path(mask) + ": mask must be a 1-bit image of 10 x 8");
        EXPECT_FALSE(FileExists(Path("out.bmp")));
    }
}

TEST_F(RgbRevCommandTest, MalformedArgumentsAreUsageErrors) {
    WriteFile(Path("in.bmp"), BmpFromDib(RandomDib(670, 10, 8, 24)));
    const std::string in = Path("in.bmp"), out = Path("out.bmp");
    const std::vector<std::vector<std::string>> cases = {
        {in, out, "--polygon", "1,2,3"},
        {in, out, "--polygon", "1,2"},
        {in, out, "--polygon", "1,2,x,4"},
        {in, out, "--polygon", "1,,2,3"},
        {in, out, "--polygon", "1, 2,3,4"},
        {in, out, "--polygon", "1,2,3,99999999999"},
        {in, out, "--polygon"},
        {in, out, "--ellipse", "1,2,3"},
        {in, out, "--ellipse", "1,2,3,4,5"},
        {in, out, "--ellipse", "0x10,2,3,4"},
        {in, out, "--mask"},
        {in, out, "--polygon", "1,2,3,4", "--ellipse", "1,2,3,4"},
        {in, out, "--ellipse", "1,2,3,4", "--mask", in},
        {in, out, "--outside"},
        {in, out, "--mask", in, "--outside"},
        {in, out, "--purple"},
        {in, out, "--red=1"},
        {in, out, "extra"},
        {in},
        {},
    };
    for (const auto &extra : cases) {
        std::vector<std::string> args = {"rgb-rev"};
        args.insert(args.end(), extra.begin(), extra.end());
        std::string shown;
        for (const std::string &a : extra) shown += a + " ";
        SCOPED_TRACE(shown);
        const ToolRun run = RunTool(args);
        ExpectFailure(run, 2, "(usage: tz3 rgb-rev IN OUT");
        EXPECT_FALSE(FileExists(out));
    }
}

TEST_F(RgbRevCommandTest, CancelledRunLeavesNoFileBehind) {
    WriteFile(Path("in.bmp"), BmpFromDib(RandomDib(680, 12, 6, 24)));
    const ToolRun run = RunTool({"rgb-rev", Path("in.bmp"), Path("out.bmp")}, {"TZ3_CANCEL_AFTER=1"});
    ExpectFailure(run, 130, "tz3: rgb-rev: cancelled (status 1)");
    EXPECT_EQ(Entries(), std::vector<std::string>{"in.bmp"});
}

TEST_F(RgbRevCommandTest, CancelledRunLeavesAnExistingOutputUntouched) {
    WriteFile(Path("in.bmp"), BmpFromDib(RandomDib(681, 12, 6, 8)));
    const Bytes before = BmpFromDib(RandomDib(682, 3, 3, 24));
    WriteFile(Path("out.png"), before);
    const ToolRun run = RunTool({"rgb-rev", Path("in.bmp"), Path("out.png")}, {"TZ3_CANCEL_AFTER=1"});
    ExpectFailure(run, 130, "status 1");
    EXPECT_EQ(ReadFile(Path("out.png")), before);
    EXPECT_EQ(Entries(), (std::vector<std::string>{"in.bmp", "out.png"}));
}

// One progress report per row: the sixth report of a six-row picture is its last.
TEST_F(RgbRevCommandTest, CancelAtTheLastProgressReportStillCancels) {
    WriteFile(Path("in.bmp"), BmpFromDib(RandomDib(683, 12, 6, 24)));
    ExpectFailure(RunTool({"rgb-rev", Path("in.bmp"), Path("out.bmp")}, {"TZ3_CANCEL_AFTER=6"}), 130,
                  "status 1");
    EXPECT_FALSE(FileExists(Path("out.bmp")));
    const ToolRun run = RunTool({"rgb-rev", Path("in.bmp"), Path("out.bmp")}, {"TZ3_CANCEL_AFTER=7"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_TRUE(FileExists(Path("out.bmp")));
}

// A one-row picture and a one-entry palette report progress with a total of 0.
TEST_F(RgbRevCommandTest, SingleStepProgressIsHandled) {
    const Bytes row = RandomDib(690, 7, 1, 24);
    EXPECT_EQ(RunOn(row, {}), DirectRgbRev(row, Region{}, 1, 1, 1));
    const Bytes oneColour = RandomDib(691, 7, 2, 8, 1);
    EXPECT_EQ(RunOn(oneColour, {}), DirectRgbRev(oneColour, Region{}, 1, 1, 1));
}

TEST_F(RgbRevCommandTest, ProgressBarIsDrawnOnATerminalAndErasedAtTheEnd) {
    const Bytes dib = RandomDib(695, 16, 40, 24);
    WriteFile(Path("in.bmp"), BmpFromDib(dib));
    const ToolRun run = RunToolOnTerminal({"rgb-rev", Path("in.bmp"), Path("out.bmp")});
    if (run.exitCode == kNoTerminal) GTEST_SKIP() << "no pseudo-terminal on this system";
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_NE(run.err.find("rgb-rev ["), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("100%"), std::string::npos) << run.err;
    EXPECT_EQ(run.err.substr(run.err.size() >= 4 ? run.err.size() - 4 : 0), "\r\033[K");
    EXPECT_EQ(DibFromBmp(ReadFile(Path("out.bmp"))), DirectRgbRev(dib, Region{}, 1, 1, 1));
}

TEST_F(RgbRevCommandTest, NoProgressBarWhenStandardErrorIsNotATerminal) {
    WriteFile(Path("in.bmp"), BmpFromDib(RandomDib(696, 16, 40, 24)));
    const ToolRun run = RunTool({"rgb-rev", Path("in.bmp"), Path("out.bmp")});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out, "");
}

}  // namespace
}  // namespace tz3clitest
