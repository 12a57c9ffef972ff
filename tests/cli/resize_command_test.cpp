// `tz3 resize`: its image and mask, read back, are what TZ3Resize gives when called directly on the
// same blocks; required options, usage errors, refused masks and cancellation.
#include <gtest/gtest.h>

#include "tool_test_support.h"

namespace tz3clitest {
namespace {

struct DirectPair {
    Bytes image, mask;
};

DirectPair DirectResize(const Bytes &dib, const Bytes *mask, int w, int h, int interpolate) {
    Block image(dib);
    Block maskBlock(mask != nullptr ? NewBlock(*mask) : nullptr);
    const DibPair in{image.h, maskBlock.h};
    const DibPair out = TZ3Resize(&in, w, h, interpolate, 1, 0, 0, 0);
    EXPECT_NE(out.image, nullptr) << "status " << Tz3GetErrorStatus();
    Block outImage(out.image), outMask(out.mask);
    return {outImage.ToBytes(), out.mask != nullptr ? outMask.ToBytes() : Bytes()};
}

// A 1-bit mask with random bits and the standard black and white table.
Bytes MaskDib(uint32_t seed, int width, int height) {
    Bytes mask = RandomDib(seed, width, height, 1);
    for (int i = 0; i < 4; ++i) {
        mask[40 + i] = 0;
        mask[44 + i] = i < 3 ? 255 : 0;
    }
    return mask;
}

class ResizeCommandTest : public ToolTest {};

TEST_F(ResizeCommandTest, EveryDepthMatchesTheDirectCallWithAndWithoutInterpolation) {
    const int depths[] = {1, 4, 8, 16, 24, 32};
    uint32_t seed = 700;
    for (int bits : depths) {
        const Bytes dib = RandomDib(++seed, 11, 7, bits);
        WriteFile(Path("in.bmp"), BmpFromDib(dib));
        for (int interpolate : {0, 1}) {
            std::vector<std::string> args = {"resize",  Path("in.bmp"), Path("out.bmp"),
                                             "--width", "23",           "--height=4"};
            if (interpolate) args.push_back("--interpolate");
            const ToolRun run = RunTool(args);
            ASSERT_EQ(run.exitCode, 0) << run.err;
            EXPECT_EQ(run.err, "");
            EXPECT_EQ(DibFromBmp(ReadFile(Path("out.bmp"))),
                      DirectResize(dib, nullptr, 23, 4, interpolate).image)
                << bits << " bits, interpolate " << interpolate;
        }
    }
}

TEST_F(ResizeCommandTest, TheMaskIsResizedWithTheImageAndWrittenToMaskOut) {
    const Bytes dib = RandomDib(710, 9, 6, 24);
    const Bytes mask = MaskDib(711, 9, 6);
    WriteFile(Path("in.bmp"), BmpFromDib(dib));
    WriteFile(Path("mask.bmp"), BmpFromDib(mask));
    const ToolRun run =
        RunTool({"resize", Path("in.bmp"), Path("out.bmp"), "--width", "20", "--height", "3", "--interpolate",
                 "--mask", Path("mask.bmp"), "--mask-out", Path("mask-out.bmp")});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const DirectPair want = DirectResize(dib, &mask, 20, 3, 1);
    EXPECT_EQ(DibFromBmp(ReadFile(Path("out.bmp"))), want.image);
    EXPECT_EQ(DibFromBmp(ReadFile(Path("mask-out.bmp"))), want.mask);
}

TEST_F(ResizeCommandTest, AMaskOfTheWrongSizeIsRefusedAndNothingIsWritten) {
    WriteFile(Path("in.bmp"), BmpFromDib(RandomDib(712, 9, 6, 24)));
    WriteFile(Path("mask.bmp"), BmpFromDib(MaskDib(713, 8, 6)));
    const ToolRun run = RunTool({"resize", Path("in.bmp"), Path("out.bmp"), "--width", "4", "--height", "4",
                                 "--mask", Path("mask.bmp"), "--mask-out", Path("m.bmp")});
    ExpectFailure(run, 1, "mask must be a 1-bit image of 9 x 6");
    EXPECT_EQ(Entries(), (std::vector<std::string>{"in.bmp", "mask.bmp"}));
}

TEST_F(ResizeCommandTest, ASizeBelowOneFailsWithTheLibrarysStatus) {
    WriteFile(Path("in.bmp"), BmpFromDib(RandomDib(714, 5, 5, 8)));
    const ToolRun run = RunTool({"resize", Path("in.bmp"), Path("out.bmp"), "--width", "0", "--height", "4"});
    ExpectFailure(run, 1, "tz3: resize: ");
    EXPECT_NE(run.err.find("(status 5)"), std::string::npos) << run.err;
    EXPECT_FALSE(FileExists(Path("out.bmp")));
}

TEST_F(ResizeCommandTest, MalformedArgumentsAreUsageErrors) {
    WriteFile(Path("in.bmp"), BmpFromDib(RandomDib(715, 5, 5, 24)));
    const std::vector<std::vector<std::string>> cases = {
        {"resize", Path("in.bmp"), Path("out.bmp"), "--width", "4"},
        {"resize", Path("in.bmp"), Path("out.bmp"), "--height", "4"},
        {"resize", Path("in.bmp"), "--width", "4", "--height", "4"},
        {"resize", Path("in.bmp"), Path("out.bmp"), "--width", "x", "--height", "4"},
        {"resize", Path("in.bmp"), Path("out.bmp"), "--width", "4", "--height", "4", "--mask-out",
         Path("m.bmp")},
        {"resize", Path("in.bmp"), Path("out.txt"), "--width", "4", "--height", "4"},
        {"resize", Path("in.bmp"), Path("out.bmp"), "--width", "4", "--height", "4", "--angle", "3"},
        {"resize", Path("in.bmp"), Path("out.bmp"), "--width", "4", "--height", "4", "--interpolate=1"},
    };
    for (const auto &args : cases) {
        const ToolRun run = RunTool(args);
        ExpectFailure(run, 2, "(usage: tz3 resize IN OUT");
    }
    EXPECT_EQ(Entries(), std::vector<std::string>{"in.bmp"});
}

TEST_F(ResizeCommandTest, CancelledRunLeavesNoFileBehind) {
    WriteFile(Path("in.bmp"), BmpFromDib(RandomDib(716, 12, 6, 24)));
    WriteFile(Path("mask.bmp"), BmpFromDib(MaskDib(717, 12, 6)));
    const ToolRun run = RunTool({"resize", Path("in.bmp"), Path("out.bmp"), "--width", "30", "--height", "9",
                                 "--mask", Path("mask.bmp"), "--mask-out", Path("m.bmp")},
                                {"TZ3_CANCEL_AFTER=6"});
    ExpectFailure(run, 130, "tz3: resize: cancelled (status 1)");
    EXPECT_EQ(Entries(), (std::vector<std::string>{"in.bmp", "mask.bmp"}));
}

}  // namespace
}  // namespace tz3clitest
