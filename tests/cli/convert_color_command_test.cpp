// `tz3 convert-color`: its result, read back, is what TZ3ConvertColor gives when called directly
// on the same block with the same arguments, for every depth the tool reads and every target; the
// refused equal depth, PNG output, usage errors and cancellation.
#include <gtest/gtest.h>

#include <cstdio>

#include "tool_test_support.h"

namespace tz3clitest {
namespace {

struct Settings {
    std::vector<std::string> options;
    int32_t target, fixed, dither, threshold;
};

// The direct call on a copy of `dib`; empty when it gives no result.
Bytes Direct(const Bytes &dib, const Settings &s) {
    Block image(dib);
    Block result(TZ3ConvertColor(image.h, s.target, s.fixed, s.dither, s.threshold, 1, 0, 0, 0));
    return result.h != nullptr ? result.ToBytes() : Bytes{};
}

int Depth(const Bytes &dib) { return dib[14]; }

class ConvertColorCommand : public ToolTest {
  protected:
    ToolRun RunOn(const Bytes &file, const std::vector<std::string> &options, const std::string &out = "out.bmp") {
        WriteFile(Path("in.bmp"), file);
        std::vector<std::string> args = {"convert-color", Path("in.bmp"), Path(out)};
        args.insert(args.end(), options.begin(), options.end());
        return RunTool(args);
    }

    void ExpectUsageError(const std::vector<std::string> &options, const std::string &needle) {
        const ToolRun run = RunOn(BmpFromDib(RandomDib(1, 3, 3, 24)), options);
        ExpectFailure(run, 2, "(usage: tz3 convert-color IN OUT");
        EXPECT_NE(run.err.find(needle), std::string::npos) << run.err;
        EXPECT_FALSE(FileExists(Path("out.bmp")));
    }
};

TEST_F(ConvertColorCommand, EveryDepthAndTargetMatchesTheDirectCall) {
    const std::vector<Settings> settings = {
        {{"--target", "1"}, 1, 0, 0, 128},
        {{"--target", "1", "--dither", "--threshold", "90"}, 1, 0, 1, 90},
        {{"--target", "4"}, 4, 0, 0, 128},
        {{"--target=4", "--fixed-palette", "--dither"}, 4, 1, 1, 128},
        {{"--target", "8", "--dither"}, 8, 0, 1, 128},
        {{"--fixed-palette", "--target", "8"}, 8, 1, 0, 128},
        {{"--target", "80"}, 80, 0, 0, 128},
        {{"--target", "16"}, 16, 0, 0, 128},
        {{"--target", "24"}, 24, 0, 0, 128},
        {{"--target", "32"}, 32, 0, 0, 128},
    };
    // Each depth with every other setting, alternating, so that every pair of depth and setting
    // parity is covered while the run stays short.
    size_t n = 0;
    for (const BmpVariant &v : EveryBmpVariant(11, 5, 800)) {
        ++n;
        for (size_t i = 0; i < settings.size(); ++i) {
            if ((n + i) % 2 != 0 && !(v.name == "24bit" || v.name == "8bit")) continue;
            const Settings &s = settings[i];
            std::string shown;
            for (const std::string &o : s.options) shown += " " + o;
            SCOPED_TRACE(v.name + shown);
            const ToolRun run = RunOn(v.file, s.options);
            if (Depth(v.dib) == s.target) {
                ExpectFailure(run, 1, "convert-color: bad parameter (status 5)");
                EXPECT_FALSE(FileExists(Path("out.bmp")));
                continue;
            }
            ASSERT_EQ(run.exitCode, 0) << run.err;
            EXPECT_EQ(run.err, "");
            const Bytes expected = Direct(v.dib, s);
            ASSERT_FALSE(expected.empty());
            EXPECT_EQ(DibFromBmp(ReadFile(Path("out.bmp"))), expected);
            std::remove(Path("out.bmp").c_str());
        }
    }
}

TEST_F(ConvertColorCommand, ThresholdZeroMakesEveryPixelWhite) {
    const ToolRun run = RunOn(BmpFromDib(RandomDib(2, 9, 4, 24)), {"--target", "1", "--threshold", "0"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const Bytes out = DibFromBmp(ReadFile(Path("out.bmp")));
    const size_t at = PixelOffset(out);
    for (int y = 0; y < 4; ++y) {
        EXPECT_EQ(out[at + 4 * y], 0xFF);
        EXPECT_EQ(out[at + 4 * y + 1], 0x80);
    }
}

TEST_F(ConvertColorCommand, PngOutputHoldsTheSamePicture) {
    const Bytes dib = RandomDib(3, 13, 6, 24);
    const Bytes expected = Direct(dib, Settings{{}, 8, 0, 1, 128});
    const ToolRun run = RunOn(BmpFromDib(dib), {"--target", "8", "--dither"}, "out.png");
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const PngPicture png = ReadPng(Path("out.png"));
    EXPECT_EQ(png.colourType, PNG_COLOR_TYPE_PALETTE);
    EXPECT_EQ(png.depth, 8);
    ASSERT_EQ(png.rows.size(), 6u);
    // PNG rows run top-down; the block's row 0 is the bottom one.
    const size_t at = PixelOffset(expected);
    for (int y = 0; y < 6; ++y)
        for (int x = 0; x < 13; ++x) EXPECT_EQ(png.rows[static_cast<size_t>(5 - y)][static_cast<size_t>(x)], expected[at + 16 * y + x]);
    for (int i = 0; i < 256 && i < static_cast<int>(png.palette.size()); ++i) {
        EXPECT_EQ(png.palette[static_cast<size_t>(i)].blue, expected[40 + 4 * i]);
        EXPECT_EQ(png.palette[static_cast<size_t>(i)].red, expected[42 + 4 * i]);
    }
}

TEST_F(ConvertColorCommand, UsageErrorsWriteNothing) {
    ExpectUsageError({}, "--target is required");
    ExpectUsageError({"--dither"}, "--target is required");
    ExpectUsageError({"--target", "2"}, "--target must be 1, 4, 8, 16, 24, 32 or 80");
    ExpectUsageError({"--target", "65544"}, "--target must be");
    ExpectUsageError({"--target", "eight"}, "--target needs one whole number");
    ExpectUsageError({"--target", "8", "--threshold", "256"}, "--threshold must be 0..255");
    ExpectUsageError({"--target", "8", "--threshold", "-1"}, "--threshold must be 0..255");
    ExpectUsageError({"--target", "8", "--dither=1"}, "--dither");
    ExpectUsageError({"--target", "8", "--palette"}, "unknown option --palette");
}

TEST_F(ConvertColorCommand, CancelledRunLeavesNoFileBehind) {
    for (const std::vector<std::string> &options :
         {std::vector<std::string>{"--target", "8", "--dither"}, std::vector<std::string>{"--target", "32"}}) {
        const ToolRun run = [&] {
            WriteFile(Path("in.bmp"), BmpFromDib(RandomDib(4, 12, 6, 24)));
            std::vector<std::string> args = {"convert-color", Path("in.bmp"), Path("out.bmp")};
            args.insert(args.end(), options.begin(), options.end());
            return RunTool(args, {"TZ3_CANCEL_AFTER=2"});
        }();
        ExpectFailure(run, 130, "tz3: convert-color: cancelled (status 1)");
        EXPECT_EQ(Entries(), std::vector<std::string>{"in.bmp"});
    }
}

TEST_F(ConvertColorCommand, MissingInputGivesOneLineAndNoOutput) {
    const ToolRun run = RunTool({"convert-color", Path("none.bmp"), Path("out.bmp"), "--target", "8"});
    ExpectFailure(run, 1, Path("none.bmp") + ": cannot open");
    EXPECT_TRUE(Entries().empty());
}

}  // namespace
}  // namespace tz3clitest
