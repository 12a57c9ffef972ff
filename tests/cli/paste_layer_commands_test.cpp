// The paste-image and layer subcommands of tz3: each result, read back, is what the export gives
// when called directly on the same blocks with the same arguments; defaults, the mask file, usage
// errors, damaged or missing input and cancellation, none of which leaves a file behind.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "tool_test_support.h"

namespace tz3clitest {
namespace {

class PasteLayerCommands : public ToolTest {};

struct PasteArgs {
    int32_t angle = 0, mirror = 0, flip = 0, opacity = 255, back[3] = {0, 0, 0}, x = 0, y = 0, keep = 0;
};

Bytes DirectPaste(const Bytes &target, const Bytes &source, const Bytes *mask, const PasteArgs &a) {
    Block t(target), s(source);
    Block m(mask != nullptr ? NewBlock(*mask) : nullptr);
    const DibPair pair{s.h, m.h};
    Block result(TZ3PasteImage(t.h, &pair, a.angle, a.mirror, a.flip, a.opacity, a.back[0], a.back[1],
                               a.back[2], a.x, a.y, a.keep, 1, 0, 0, 0));
    EXPECT_NE(result.h, nullptr) << "status " << Tz3GetErrorStatus();
    return result.ToBytes();
}

struct LayerArgs {
    int32_t opacity = 255, key[3] = {255, 0, 255}, back[3] = {0, 0, 0}, x = 0, y = 0, keep = 0;
};

Bytes DirectLayer(const Bytes &base, const Bytes &over, const LayerArgs &a) {
    Block b(base), o(over);
    Block result(TZ3Layer(b.h, o.h, a.opacity, a.key[0], a.key[1], a.key[2], a.back[0], a.back[1], a.back[2],
                          a.x, a.y, a.keep, 1, 0, 0, 0));
    EXPECT_NE(result.h, nullptr) << "status " << Tz3GetErrorStatus();
    return result.ToBytes();
}

// A 1-bit mask with random bits.
Bytes MaskDib(uint32_t seed, int width, int height) {
    Bytes m = RandomDib(seed, width, height, 1);
    // Black and white table, as a mask file would carry; the bits are what count.
    const uint8_t table[8] = {0, 0, 0, 0, 255, 255, 255, 0};
    std::copy(table, table + 8, m.begin() + 40);
    return m;
}

TEST_F(PasteLayerCommands, PasteImageMatchesTheDirectCallAtEveryDepth) {
    const int depths[] = {1, 4, 8, 16, 24, 32};
    int round = 0;
    for (int sourceBits : depths) {
        const int targetBits = depths[(round + 2) % 6];
        SCOPED_TRACE(std::to_string(sourceBits) + " over " + std::to_string(targetBits));
        const Bytes target = RandomDib(100 + round, 13, 9, targetBits);
        const Bytes source = RandomDib(200 + round, 7, 6, sourceBits, 0, sourceBits == 16 && round % 2 == 1);
        const Bytes mask = MaskDib(300 + round, 7, 6);
        WriteFile(Path("t.bmp"), BmpFromDib(target));
        WriteFile(Path("s.bmp"), BmpFromDib(source));
        WriteFile(Path("m.bmp"), BmpFromDib(mask));
        PasteArgs a;
        a.angle = 2500 * (round + 1);
        a.mirror = round % 2;
        a.flip = round % 3 == 0;
        a.opacity = 60 + 30 * round;
        a.back[0] = 10;
        a.back[1] = 20;
        a.back[2] = 30;
        a.x = 3 + round;
        a.y = 2;
        a.keep = round % 2;
        std::vector<std::string> args = {"paste-image",
                                         Path("t.bmp"),
                                         Path("s.bmp"),
                                         Path("out.bmp"),
                                         "--angle",
                                         std::to_string(a.angle),
                                         "--opacity=" + std::to_string(a.opacity),
                                         "--back",
                                         "10,20,30",
                                         "--at",
                                         std::to_string(a.x) + ",2",
                                         "--mask",
                                         Path("m.bmp")};
        if (a.mirror) args.push_back("--mirror");
        if (a.flip) args.push_back("--flip");
        if (a.keep) args.push_back("--keep-size");
        const ToolRun run = RunTool(args);
        ASSERT_EQ(run.exitCode, 0) << run.err;
        EXPECT_EQ(DibFromBmp(ReadFile(Path("out.bmp"))), DirectPaste(target, source, &mask, a));
        ++round;
    }
}

TEST_F(PasteLayerCommands, PasteImageDefaultsToTheTargetCentreFullOpacityAndGrowth) {
    const Bytes target = RandomDib(11, 10, 7, 24);
    const Bytes source = RandomDib(12, 15, 3, 8);
    WriteFile(Path("t.bmp"), BmpFromDib(target));
    WriteFile(Path("s.bmp"), BmpFromDib(source));
    const ToolRun run = RunTool({"paste-image", Path("t.bmp"), Path("s.bmp"), Path("out.bmp")});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    PasteArgs a;
    a.x = 5;
    a.y = 3;
    const Bytes expected = DirectPaste(target, source, nullptr, a);
    EXPECT_EQ(DibFromBmp(ReadFile(Path("out.bmp"))), expected);
    // The source is wider than the target, so the result grew.
    EXPECT_EQ(Rd32(expected.data() + 4), 15u);
}

TEST_F(PasteLayerCommands, LayerMatchesTheDirectCallAtEveryDepth) {
    const int depths[] = {1, 4, 8, 16, 24, 32};
    int round = 0;
    for (int baseBits : depths) {
        const int overBits = depths[(round + 3) % 6];
        SCOPED_TRACE(std::to_string(overBits) + " over " + std::to_string(baseBits));
        const Bytes base = RandomDib(400 + round, 11, 8, baseBits);
        const Bytes over = RandomDib(500 + round, 6, 5, overBits);
        WriteFile(Path("b.bmp"), BmpFromDib(base));
        WriteFile(Path("o.bmp"), BmpFromDib(over));
        LayerArgs a;
        a.opacity = 40 * round + 10;
        a.key[0] = 0;
        a.key[1] = 0;
        a.key[2] = 0;  // random pictures lean to 0 and 255, so black is often present
        a.back[0] = 7;
        a.x = round - 2;
        a.y = 5 - round;
        a.keep = round % 2;
        std::vector<std::string> args = {
            "layer",         Path("b.bmp"), Path("o.bmp"),
            Path("out.bmp"), "--opacity",   std::to_string(a.opacity),
            "--key",         "0,0,0",       "--back",
            "7,0,0",         "--at",        std::to_string(a.x) + "," + std::to_string(a.y)};
        if (a.keep) args.push_back("--keep-size");
        const ToolRun run = RunTool(args);
        ASSERT_EQ(run.exitCode, 0) << run.err;
        EXPECT_EQ(DibFromBmp(ReadFile(Path("out.bmp"))), DirectLayer(base, over, a));
        ++round;
    }
}

TEST_F(PasteLayerCommands, LayerKeysMagentaByDefault) {
    Bytes over = MakeDib(2, 1, 24);
    const size_t at = PixelOffset(over);
    over[at] = 255;  // blue
    over[at + 1] = 0;
    over[at + 2] = 255;  // red: magenta
    const Bytes base = RandomDib(13, 2, 1, 24);
    WriteFile(Path("b.bmp"), BmpFromDib(base));
    WriteFile(Path("o.bmp"), BmpFromDib(over));
    const ToolRun run = RunTool({"layer", Path("b.bmp"), Path("o.bmp"), Path("out.png")});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const Bytes expected = DirectLayer(base, over, LayerArgs{});
    // Column 0 shows the base (keyed), column 1 the black over pixel.
    const Bytes rgba = PngToRgba(Path("out.png"));
    ASSERT_EQ(rgba.size(), 8u);
    EXPECT_EQ(rgba[0], base[PixelOffset(base) + 2]);
    EXPECT_EQ(rgba[1], base[PixelOffset(base) + 1]);
    EXPECT_EQ(rgba[2], base[PixelOffset(base)]);
    EXPECT_EQ(rgba[4], 0);
    EXPECT_EQ(rgba[4], expected[40 + 5]);
}

TEST_F(PasteLayerCommands, UsageErrorsGiveOneLineAndNoOutput) {
    WriteFile(Path("a.bmp"), BmpFromDib(RandomDib(20, 4, 4, 24)));
    const std::string a = Path("a.bmp"), out = Path("out.bmp");
    const std::vector<std::vector<std::string>> bad = {
        {"paste-image", a, out},
        {"paste-image", a, a, out, "extra.bmp"},
        {"paste-image", a, a, out, "--at", "1"},
        {"paste-image", a, a, out, "--at", "1,2,3"},
        {"paste-image", a, a, out, "--back", "1,2"},
        {"paste-image", a, a, out, "--angle", "30.5"},
        {"paste-image", a, a, out, "--opacity"},
        {"paste-image", a, a, out, "--mask"},
        {"paste-image", a, a, out, "--mirror=1"},
        {"paste-image", a, a, out, "--outside"},
        {"paste-image", a, a, Path("out.gif")},
        {"layer", a, out},
        {"layer", a, a, out, "--key", "1,2"},
        {"layer", a, a, out, "--at", "x,y"},
        {"layer", a, a, out, "--mask", a},
        {"layer", a, a, out, "--keep-size=yes"},
        {"layer", a, a, Path("out.jpg")},
    };
    for (const auto &args : bad) {
        std::string line;
        for (const auto &s : args) line += s + " ";
        SCOPED_TRACE(line);
        ExpectFailure(RunTool(args), 2, "usage: tz3 " + args[0]);
        EXPECT_EQ(Entries(), std::vector<std::string>{"a.bmp"});
    }
}

TEST_F(PasteLayerCommands, MaskOfTheWrongSizeOrDepthIsRefusedInOneLine) {
    WriteFile(Path("t.bmp"), BmpFromDib(RandomDib(30, 5, 5, 24)));
    WriteFile(Path("s.bmp"), BmpFromDib(RandomDib(31, 4, 3, 24)));
    WriteFile(Path("wide.bmp"), BmpFromDib(MaskDib(32, 5, 3)));
    WriteFile(Path("deep.bmp"), BmpFromDib(RandomDib(33, 4, 3, 8)));
    for (const std::string mask : {"wide.bmp", "deep.bmp"}) {
        ExpectFailure(
            RunTool({"paste-image", Path("t.bmp"), Path("s.bmp"), Path("out.bmp"), "--mask", Path(mask)}), 1,
            "mask must be a 1-bit image of the source's 4 x 3");
        EXPECT_FALSE(FileExists(Path("out.bmp")));
    }
}

TEST_F(PasteLayerCommands, MissingOrDamagedInputGivesOneLineAndNoOutput) {
    WriteFile(Path("good.bmp"), BmpFromDib(RandomDib(40, 4, 4, 24)));
    Bytes damaged = BmpFromDib(RandomDib(41, 4, 4, 24));
    damaged.resize(damaged.size() - 5);
    WriteFile(Path("damaged.bmp"), damaged);
    for (const std::string command : {"paste-image", "layer"}) {
        for (const auto &[first, second] :
             {std::pair{"good.bmp", "missing.bmp"}, std::pair{"missing.bmp", "good.bmp"},
              std::pair{"good.bmp", "damaged.bmp"}, std::pair{"damaged.bmp", "good.bmp"}}) {
            SCOPED_TRACE(command + " " + first + " " + second);
            const ToolRun run = RunTool({command, Path(first), Path(second), Path("out.bmp")});
            ExpectFailure(run, 1, std::string(first == std::string("good.bmp") ? second : first));
            EXPECT_FALSE(FileExists(Path("out.bmp")));
        }
    }
}

TEST_F(PasteLayerCommands, CancelledRunLeavesNoFileAndKeepsAnExistingOne) {
    WriteFile(Path("a.bmp"), BmpFromDib(RandomDib(50, 6, 5, 24)));
    WriteFile(Path("b.bmp"), BmpFromDib(RandomDib(51, 3, 3, 8)));
    for (const std::string command : {"paste-image", "layer"}) {
        SCOPED_TRACE(command);
        const ToolRun run =
            RunTool({command, Path("a.bmp"), Path("b.bmp"), Path("out.bmp")}, {"TZ3_CANCEL_AFTER=1"});
        ExpectFailure(run, 130, "tz3: " + command + ": cancelled (status 1)");
        EXPECT_FALSE(FileExists(Path("out.bmp")));
        const Bytes before = BmpFromDib(RandomDib(52, 2, 2, 24));
        WriteFile(Path("old.bmp"), before);
        const ToolRun again = RunTool({command, Path("a.bmp"), Path("b.bmp"), Path("old.bmp"), "--keep-size"},
                                      {"TZ3_CANCEL_AFTER=3"});
        ExpectFailure(again, 130, "status 1");
        EXPECT_EQ(ReadFile(Path("old.bmp")), before);
        std::remove(Path("old.bmp").c_str());
    }
}

}  // namespace
}  // namespace tz3clitest
