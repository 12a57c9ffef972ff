// The clipboard and hidden-mark subcommands of tz3: results equal to the exports called directly,
// usage errors, refused images, and the clipboard through a private X display (skipped where none
// can be started) or the store inside the process, which ends with each run of the tool.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tool_test_support.h"
// The private display of the unit tests, compiled into this program too.
#include "support/xvfb_display.h"

namespace tz3clitest {
namespace {

using ClipboardHiddenCommands = ToolTest;

Bytes Gray24(int width, int height, uint8_t level) {
    Bytes dib = MakeDib(width, height, 24);
    for (size_t i = PixelOffset(dib); i < dib.size(); ++i) dib[i] = level;
    return dib;
}

TEST_F(ClipboardHiddenCommands, ATextMarkIsWhatTheExportGives) {
    const Bytes plain = RandomDib(301, 90, 40, 24);
    WriteFile(Path("in.bmp"), BmpFromDib(plain));
    const ToolRun run = RunTool({"set-secret-image", Path("in.bmp"), Path("out.bmp"), "--text", "Hi there", "--size",
                                 "14", "--bold", "--direction", "2", "--angle", "90", "--box", "5,4,80,35",
                                 "--strength", "-12"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    Block image(plain);
    Block direct(TZ3SetSecretImage(image.h, nullptr, "Hi there", "DejaVu Sans", 14, 1, 0, 0, 0, 2, 90, -12, 5, 4, 80,
                                   35, 1, 0, 0, 0));
    ASSERT_NE(direct.h, nullptr);
    EXPECT_EQ(DibFromBmp(ReadFile(Path("out.bmp"))), direct.ToBytes());
}

TEST_F(ClipboardHiddenCommands, ATextMarkFillsTheWholeImageByDefault) {
    const Bytes plain = Gray24(60, 30, 100);
    WriteFile(Path("in.bmp"), BmpFromDib(plain));
    ASSERT_EQ(RunTool({"set-secret-image", Path("in.bmp"), Path("out.bmp"), "--text", "abc"}).exitCode, 0);
    Block image(plain);
    Block direct(TZ3SetSecretImage(image.h, nullptr, "abc", "DejaVu Sans", 12, 0, 0, 0, 0, 0, 0, 8, 0, 0, 59, 29, 1,
                                   0, 0, 0));
    EXPECT_EQ(DibFromBmp(ReadFile(Path("out.bmp"))), direct.ToBytes());
}

TEST_F(ClipboardHiddenCommands, AStampMarkIsFoundAgainByCheck) {
    const Bytes plain = Gray24(32, 16, 90);
    Bytes stamp = MakeDib(8, 4, 1);
    Wr32(&stamp[44], 0x00FFFFFF);
    for (size_t i = PixelOffset(stamp); i < stamp.size(); i += 4) stamp[i] = 0xA5;
    WriteFile(Path("in.bmp"), BmpFromDib(plain));
    WriteFile(Path("stamp.bmp"), BmpFromDib(stamp));
    ToolRun run = RunTool({"set-secret-image", Path("in.bmp"), Path("marked.bmp"), "--stamp", Path("stamp.bmp"),
                           "--at", "3,2", "--strength", "20"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    run = RunTool({"check-secret-image", Path("in.bmp"), Path("marked.bmp"), Path("found.bmp"), "--threshold", "10"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    Block image(plain);
    Block stampBlock(stamp);
    Block marked(TZ3SetSecretImage(image.h, stampBlock.h, nullptr, nullptr, 0, 0, 0, 0, 0, 0, 0, 20, 3, 2, 0, 0, 1, 0,
                                   0, 0));
    EXPECT_EQ(DibFromBmp(ReadFile(Path("marked.bmp"))), marked.ToBytes());
    Block found(TZ3CheckSecretImage(image.h, marked.h, 10, 1, 0, 0, 0));
    EXPECT_EQ(DibFromBmp(ReadFile(Path("found.bmp"))), found.ToBytes());
    // Default threshold 4.
    ASSERT_EQ(RunTool({"check-secret-image", Path("in.bmp"), Path("marked.bmp"), Path("four.bmp")}).exitCode, 0);
    Block four(TZ3CheckSecretImage(image.h, marked.h, 4, 1, 0, 0, 0));
    EXPECT_EQ(DibFromBmp(ReadFile(Path("four.bmp"))), four.ToBytes());
}

TEST_F(ClipboardHiddenCommands, WrongArgumentsAreUsageErrors) {
    WriteFile(Path("in.bmp"), BmpFromDib(Gray24(8, 8, 50)));
    WriteFile(Path("stamp.bmp"), BmpFromDib(MakeDib(2, 2, 1)));
    const std::vector<std::vector<std::string>> wrong = {
        {"set-secret-image", Path("in.bmp"), Path("out.bmp")},
        {"set-secret-image", Path("in.bmp"), Path("out.bmp"), "--text", "a", "--stamp", Path("stamp.bmp")},
        {"set-secret-image", Path("in.bmp"), Path("out.bmp"), "--text", "a", "--box", "1,2,3"},
        {"set-secret-image", Path("in.bmp"), Path("out.bmp"), "--text", "a", "--at", "1,2"},
        {"set-secret-image", Path("in.bmp"), Path("out.bmp"), "--stamp", Path("stamp.bmp"), "--box", "1,2,3,4"},
        {"set-secret-image", Path("in.bmp"), Path("out.txt"), "--text", "a"},
        {"check-secret-image", Path("in.bmp"), Path("out.bmp")},
        {"check-secret-image", Path("in.bmp"), Path("in.bmp"), Path("out.bmp"), "--threshold", "x"},
        {"get-from-clip-brd"},
        {"set-to-clip-brd", Path("in.bmp"), Path("in.bmp")},
        {"is-clip-brd-data", "extra"},
        {"clear-clip-brd", "extra"},
    };
    for (const std::vector<std::string> &args : wrong) {
        const ToolRun run = RunTool(args);
        EXPECT_EQ(run.exitCode, 2) << args[0] << " " << run.err;
    }
    EXPECT_FALSE(FileExists(Path("out.bmp")));
}

TEST_F(ClipboardHiddenCommands, RefusedImagesGiveOneLineAndNoFile) {
    WriteFile(Path("gray.bmp"), BmpFromDib(RandomDib(302, 8, 8, 8)));
    WriteFile(Path("in.bmp"), BmpFromDib(Gray24(8, 8, 50)));
    WriteFile(Path("small.bmp"), BmpFromDib(Gray24(8, 7, 50)));
    ExpectFailure(RunTool({"set-secret-image", Path("gray.bmp"), Path("out.bmp"), "--text", "a"}), 1,
                  "set-secret-image: bad image or mask (status 7)");
    ExpectFailure(RunTool({"set-secret-image", Path("in.bmp"), Path("out.bmp"), "--stamp", Path("in.bmp")}), 1,
                  "(status 7)");
    ExpectFailure(RunTool({"set-secret-image", Path("in.bmp"), Path("out.bmp"), "--text", "a", "--box", "2,2,2,6"}), 1,
                  "(status 9)");
    ExpectFailure(RunTool({"check-secret-image", Path("in.bmp"), Path("small.bmp"), Path("out.bmp")}), 1,
                  "check-secret-image: bad image or mask (status 7)");
    EXPECT_FALSE(FileExists(Path("out.bmp")));
}

TEST_F(ClipboardHiddenCommands, TheStoreInsideTheProcessEndsWithTheTool) {
    WriteFile(Path("in.bmp"), BmpFromDib(Gray24(4, 4, 10)));
    const std::vector<std::string> memory = {"TZ3_CLIPBOARD=memory"};
    EXPECT_EQ(RunTool({"set-to-clip-brd", Path("in.bmp")}, memory).exitCode, 0);
    const ToolRun is = RunTool({"is-clip-brd-data"}, memory);
    EXPECT_EQ(is.exitCode, 0);
    EXPECT_EQ(is.out, "no\n");
    ExpectFailure(RunTool({"get-from-clip-brd", Path("out.bmp")}, memory), 1,
                  "get-from-clip-brd: bad image or mask (status 7)");
    EXPECT_FALSE(FileExists(Path("out.bmp")));
    EXPECT_EQ(RunTool({"clear-clip-brd"}, memory).exitCode, 0);
}

TEST_F(ClipboardHiddenCommands, ASystemClipboardWithoutXclipIsReported) {
    WriteFile(Path("in.bmp"), BmpFromDib(Gray24(4, 4, 10)));
    const std::vector<std::string> env = {"DISPLAY=:9999", "TZ3_XCLIP=/nonexistent/xclip", "TZ3_CLIPBOARD=x11"};
    ExpectFailure(RunTool({"set-to-clip-brd", Path("in.bmp")}, env), 1,
                  "set-to-clip-brd: the system clipboard could not be reached");
    ExpectFailure(RunTool({"clear-clip-brd"}, env), 1, "could not be reached");
    const ToolRun is = RunTool({"is-clip-brd-data"}, env);
    EXPECT_EQ(is.out, "no\n");
}

TEST_F(ClipboardHiddenCommands, AnImageGoesThroughTheX11ClipboardBetweenRuns) {
    tz3test::XvfbDisplay x;
    TZ3_REQUIRE_DISPLAY(x);
    const Bytes dib = RandomDib(303, 13, 6, 24);
    WriteFile(Path("in.bmp"), BmpFromDib(dib));
    const std::vector<std::string> env = {"TZ3_CLIPBOARD=x11"};
    EXPECT_EQ(RunTool({"is-clip-brd-data"}, env).out, "no\n");
    ToolRun run = RunTool({"set-to-clip-brd", Path("in.bmp")}, env);
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(RunTool({"is-clip-brd-data"}, env).out, "yes\n");
    run = RunTool({"get-from-clip-brd", Path("out.png")}, env);
    ASSERT_EQ(run.exitCode, 0) << run.err;
    run = RunTool({"convert", Path("out.png"), Path("out.bmp")});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(DibFromBmp(ReadFile(Path("out.bmp"))), dib);
    EXPECT_EQ(RunTool({"clear-clip-brd"}, env).exitCode, 0);
    EXPECT_EQ(RunTool({"is-clip-brd-data"}, env).out, "no\n");
}

}  // namespace
}  // namespace tz3clitest
