// The kernel filter subcommands of tz3 (custom-filter, sharp, anti-alias, emboss): each result,
// read back, is what the export gives when called directly on the same block with the same
// arguments, at every depth the filters take; the kernel file's forms and faults, defaults, region
// options, refused depths and parameters, usage errors and cancellation.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "tool_test_support.h"

namespace tz3clitest {
namespace {

using Kernel = std::array<int32_t, 81>;

struct Region {
    int32_t kind = 1;
    std::vector<Tz3Point> points;
    Tz3Rect rect{0, 0, 0, 0};
    int32_t inside = 1;
    const Bytes *mask = nullptr;
};

struct Args6 {
    const DibPair *pair;
    int32_t kind;
    const Tz3Point *points;
    int32_t count;
    const Tz3Rect *rect;
    int32_t inside;
};
using DirectCall = std::function<DibHandle(const Args6 &)>;

Bytes Direct(const Bytes &dib, const Region &region, const DirectCall &call) {
    Block image(dib);
    Block mask(region.mask != nullptr ? NewBlock(*region.mask) : nullptr);
    const DibPair pair{image.h, mask.h};
    const Args6 a{&pair,        region.kind, region.points.empty() ? nullptr : region.points.data(),
                  static_cast<int32_t>(region.points.size()), &region.rect, region.inside};
    Block result(call(a));
    EXPECT_NE(result.h, nullptr) << "status " << Tz3GetErrorStatus();
    return result.ToBytes();
}

DirectCall Custom(const Kernel &k, int32_t divisor, int32_t bias, int32_t r = 1, int32_t g = 1, int32_t b = 1) {
    return [=](const Args6 &a) {
        return TZ3CustomFilter(a.pair, a.kind, a.points, a.count, a.rect, a.inside, k.data(), divisor, bias, r, g, b,
                               1, 0, 0, 0);
    };
}
DirectCall Sharp(int32_t strength) {
    return [=](const Args6 &a) {
        return TZ3Sharp(a.pair, a.kind, a.points, a.count, a.rect, a.inside, strength, 1, 0, 0, 0);
    };
}
DirectCall AntiAlias() {
    return [](const Args6 &a) { return TZ3AntiAlias(a.pair, a.kind, a.points, a.count, a.rect, a.inside, 1, 0, 0, 0); };
}
DirectCall Emboss(int32_t direction, int32_t depth, int32_t bias) {
    return [=](const Args6 &a) {
        return TZ3Emboss(a.pair, a.kind, a.points, a.count, a.rect, a.inside, direction, depth, bias, 1, 0, 0, 0);
    };
}

// A kernel of side 1..9 (odd) centred in the 9 x 9 one; rows as written.
Kernel Centred(int side, const std::vector<int32_t> &weights) {
    Kernel k{};
    const int offset = (9 - side) / 2;
    for (int r = 0; r < side; ++r) {
        for (int c = 0; c < side; ++c) k[(r + offset) * 9 + c + offset] = weights[r * side + c];
    }
    return k;
}

std::string KernelText(int side, const std::vector<int32_t> &weights) {
    std::string text;
    for (int r = 0; r < side; ++r) {
        for (int c = 0; c < side; ++c) text += std::to_string(weights[r * side + c]) + (c + 1 < side ? " " : "\n");
    }
    return text;
}

// An 8-bit image with a gray table (levels in a scrambled but complete order) and random indices.
Bytes GrayDib(uint32_t seed, int width, int height) {
    Bytes dib = RandomDib(seed, width, height, 8);
    for (int i = 0; i < 256; ++i) {
        const auto level = static_cast<uint8_t>((i * 97 + 13) % 256);
        dib[40 + 4 * i] = dib[41 + 4 * i] = dib[42 + 4 * i] = level;
        dib[43 + 4 * i] = 0;
    }
    return dib;
}

// The depths the filters take: gray 8-bit, 16-bit 5-5-5 and 5-6-5, 24 and 32.
std::vector<std::pair<std::string, Bytes>> FilterDepths(uint32_t seed) {
    return {{"gray8", GrayDib(seed, 11, 6)},
            {"16bit555", RandomDib(seed + 1, 11, 6, 16)},
            {"16bit565", RandomDib(seed + 2, 11, 6, 16, 0, true)},
            {"24bit", RandomDib(seed + 3, 11, 6, 24)},
            {"32bit", RandomDib(seed + 4, 11, 6, 32)}};
}

std::string Shown(const std::vector<std::string> &args) {
    std::string shown;
    for (const std::string &a : args) shown += (shown.empty() ? "" : " ") + a;
    return shown;
}

class FilterKernelCommands : public ToolTest {
  protected:
    Bytes RunOn(const std::string &command, const Bytes &dib, const std::vector<std::string> &options) {
        WriteFile(Path("in.bmp"), BmpFromDib(dib));
        std::vector<std::string> args = {command, Path("in.bmp"), Path("out.bmp")};
        args.insert(args.end(), options.begin(), options.end());
        const ToolRun run = RunTool(args);
        EXPECT_EQ(run.exitCode, 0) << Shown(args) << ": " << run.err;
        EXPECT_EQ(run.err, "");
        if (run.exitCode != 0) return {};
        const Bytes out = DibFromBmp(ReadFile(Path("out.bmp")));
        std::remove(Path("out.bmp").c_str());
        return out;
    }
    std::string KernelFile(const std::string &text, const std::string &name = "kernel.txt") {
        WriteFile(Path(name), Bytes(text.begin(), text.end()));
        return Path(name);
    }
    // A run that fails: exit code, one line holding `needle`, and no output file.
    void ExpectRefused(const std::string &command, const Bytes &dib, const std::vector<std::string> &options,
                       int exitCode, const std::string &needle) {
        SCOPED_TRACE(command + " " + Shown(options));
        WriteFile(Path("in.bmp"), BmpFromDib(dib));
        std::vector<std::string> args = {command, Path("in.bmp"), Path("out.bmp")};
        args.insert(args.end(), options.begin(), options.end());
        ExpectFailure(RunTool(args), exitCode, needle);
        EXPECT_FALSE(FileExists(Path("out.bmp")));
    }
};

// ---- Each command at each depth ----

TEST_F(FilterKernelCommands, CustomFilterMatchesTheDirectCallAtEveryDepth) {
    const std::vector<int32_t> w3 = {1, 2, 1, 2, 4, 2, 1, 2, 1};
    std::vector<int32_t> w9(81);
    for (int i = 0; i < 81; ++i) w9[i] = (i * 7) % 5 - 2;
    const std::string k3 = KernelFile(KernelText(3, w3), "k3.txt");
    const std::string k9 = KernelFile(KernelText(9, w9), "k9.txt");
    for (const auto &[name, dib] : FilterDepths(1100)) {
        SCOPED_TRACE(name);
        // The divisor defaults to the sum of the weights (16 here).
        const Bytes blurred = RunOn("custom-filter", dib, {"--kernel", k3});
        EXPECT_EQ(blurred, Direct(dib, Region{}, Custom(Centred(3, w3), 16, 0)));
        EXPECT_NE(blurred, dib);
        EXPECT_EQ(RunOn("custom-filter", dib, {"--kernel=" + k9, "--divisor", "3", "--bias", "100"}),
                  Direct(dib, Region{}, Custom(Centred(9, w9), 3, 100)));
    }
}

TEST_F(FilterKernelCommands, SharpMatchesTheDirectCallAtEveryDepth) {
    for (const auto &[name, dib] : FilterDepths(1200)) {
        SCOPED_TRACE(name);
        const Bytes byDefault = RunOn("sharp", dib, {});
        EXPECT_EQ(byDefault, Direct(dib, Region{}, Sharp(50)));
        EXPECT_EQ(RunOn("sharp", dib, {"--strength", "90"}), Direct(dib, Region{}, Sharp(90)));
        // The number goes to the library as given: 356 has the low byte 100.
        EXPECT_EQ(RunOn("sharp", dib, {"--strength=356"}), Direct(dib, Region{}, Sharp(100)));
        EXPECT_NE(byDefault, Direct(dib, Region{}, Sharp(90)));
    }
}

TEST_F(FilterKernelCommands, AntiAliasMatchesTheDirectCallAtEveryDepth) {
    for (const auto &[name, dib] : FilterDepths(1300)) {
        SCOPED_TRACE(name);
        const Bytes out = RunOn("anti-alias", dib, {});
        EXPECT_EQ(out, Direct(dib, Region{}, AntiAlias()));
        EXPECT_NE(out, dib);
    }
}

TEST_F(FilterKernelCommands, EmbossMatchesTheDirectCallAtEveryDepth) {
    for (const auto &[name, dib] : FilterDepths(1400)) {
        SCOPED_TRACE(name);
        const Bytes byDefault = RunOn("emboss", dib, {});
        EXPECT_EQ(byDefault, Direct(dib, Region{}, Emboss(1, 3, 128)));
        EXPECT_EQ(RunOn("emboss", dib, {"--direction", "6", "--depth", "5", "--bias", "40"}),
                  Direct(dib, Region{}, Emboss(6, 5, 40)));
        EXPECT_NE(byDefault, Direct(dib, Region{}, Emboss(6, 5, 40)));
    }
}

// ---- The kernel file ----

TEST_F(FilterKernelCommands, KernelFileTakesEveryOddSquareWithCommasAndComments) {
    const Bytes dib = RandomDib(1500, 13, 9, 24);
    struct Case {
        std::string text;
        Kernel kernel;
        int32_t divisor;
    };
    std::vector<int32_t> w5(25), w7(49), w9(81);
    for (int i = 0; i < 25; ++i) w5[i] = i % 3 - 1;
    for (int i = 0; i < 49; ++i) w7[i] = (i * 5) % 7 - 3;
    for (int i = 0; i < 81; ++i) w9[i] = i == 40 ? 200 : (i % 4 == 0 ? -1 : 0);
    const std::vector<Case> cases = {
        {"3\n", Centred(1, {3}), 3},
        {"# an edge finder\n-1,-1,-1\n-1, 8,-1   # centre\n-1,-1,-1\n", Centred(3, {-1, -1, -1, -1, 8, -1, -1, -1, -1}), 1},
        {"\t0 -1 0 -1 5 -1 0 -1 0\r\n", Centred(3, {0, -1, 0, -1, 5, -1, 0, -1, 0}), 1},
        {KernelText(5, w5), Centred(5, w5), 1},
        {KernelText(7, w7), Centred(7, w7), 1},
        {KernelText(9, w9), Centred(9, w9), 180},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.text);
        const std::string path = KernelFile(c.text);
        EXPECT_EQ(RunOn("custom-filter", dib, {"--kernel", path}), Direct(dib, Region{}, Custom(c.kernel, c.divisor, 0)));
    }
    // The divisor falls back to 1 when the sum passes 255.
    const std::string big = KernelFile("300\n");
    EXPECT_EQ(RunOn("custom-filter", dib, {"--kernel", big}), Direct(dib, Region{}, Custom(Centred(1, {300}), 1, 0)));
}

TEST_F(FilterKernelCommands, KernelRowsReadTopToBottomAsOnPaper) {
    // Weight 1 above the centre copies each pixel's upper neighbour into it.
    const Bytes dib = RandomDib(1510, 7, 5, 24);
    const std::string path = KernelFile("0 1 0\n0 0 0\n0 0 0\n");
    const Bytes out = RunOn("custom-filter", dib, {"--kernel", path});
    const uint32_t stride = Stride(24, 7);
    for (int y = 0; y < 4; ++y) {  // bottom-up rows: row y takes row y + 1
        for (uint32_t i = 0; i < 21; ++i) EXPECT_EQ(out[40 + stride * y + i], dib[40 + stride * (y + 1) + i]);
    }
}

TEST_F(FilterKernelCommands, ChannelOptionsPickTheChannels) {
    const Bytes dib = RandomDib(1520, 9, 6, 32);
    const std::string path = KernelFile("1 1 1\n1 1 1\n1 1 1\n");
    const Kernel k = Centred(3, {1, 1, 1, 1, 1, 1, 1, 1, 1});
    EXPECT_EQ(RunOn("custom-filter", dib, {"--kernel", path, "--red"}), Direct(dib, Region{}, Custom(k, 9, 0, 1, 0, 0)));
    EXPECT_EQ(RunOn("custom-filter", dib, {"--green", "--blue", "--kernel", path}),
              Direct(dib, Region{}, Custom(k, 9, 0, 0, 1, 1)));
    EXPECT_EQ(RunOn("custom-filter", dib, {"--kernel", path, "--red", "--green", "--blue"}),
              RunOn("custom-filter", dib, {"--kernel", path}));
    EXPECT_NE(Direct(dib, Region{}, Custom(k, 9, 0, 1, 0, 0)), Direct(dib, Region{}, Custom(k, 9, 0, 0, 1, 1)));
}

TEST_F(FilterKernelCommands, KernelFileFaultsGiveOneLineAndNoOutput) {
    const Bytes dib = RandomDib(1530, 6, 4, 24);
    ExpectRefused("custom-filter", dib, {"--kernel", Path("none.txt")}, 1, "none.txt: cannot open the kernel file");
    ExpectRefused("custom-filter", dib, {"--kernel", KernelFile("1 2 3 4\n")}, 1,
                  "the kernel has 4 numbers; it needs 81, 49, 25, 9 or 1");
    std::string eightyTwo;
    for (int i = 0; i < 82; ++i) eightyTwo += "1 ";
    ExpectRefused("custom-filter", dib, {"--kernel", KernelFile(eightyTwo)}, 1, "the kernel has 82 numbers");
    ExpectRefused("custom-filter", dib, {"--kernel", KernelFile("")}, 1, "the kernel has 0 numbers");
    ExpectRefused("custom-filter", dib, {"--kernel", KernelFile("1 2 x 4 5 6 7 8 9\n")}, 1,
                  "not a whole 32-bit number in the kernel: 'x'");
    ExpectRefused("custom-filter", dib, {"--kernel", KernelFile("1 2 3 4 1.5 6 7 8 9\n")}, 1, "'1.5'");
    ExpectRefused("custom-filter", dib, {"--kernel", KernelFile("5000000000\n")}, 1, "'5000000000'");
    ExpectRefused("custom-filter", dib, {}, 2, "--kernel is required");
    ExpectRefused("custom-filter", dib, {"--kernel="}, 2, "--kernel needs a file name");
}

// ---- Regions ----

TEST_F(FilterKernelCommands, RegionOptionsMatchTheDirectCall) {
    const Bytes dib = RandomDib(1600, 30, 20, 24);
    const Bytes mask = RandomDib(1601, 30, 20, 1);
    WriteFile(Path("mask.bmp"), BmpFromDib(mask));
    const std::string path = KernelFile("1 2 1\n2 -12 2\n1 2 1\n");
    const Kernel k = Centred(3, {1, 2, 1, 2, -12, 2, 1, 2, 1});
    struct Command {
        std::string name;
        std::vector<std::string> options;
        DirectCall call;
    };
    const std::vector<Command> commands = {
        {"custom-filter", {"--kernel", path, "--bias", "128"}, Custom(k, 1, 128)},
        {"sharp", {"--strength", "100"}, Sharp(100)},
        {"anti-alias", {}, AntiAlias()},
        {"emboss", {"--direction", "3"}, Emboss(3, 3, 128)},
    };
    for (const Command &c : commands) {
        SCOPED_TRACE(c.name);
        Region ellipse;
        ellipse.kind = 3;
        ellipse.rect = Tz3Rect{4, 3, 25, 17};
        std::vector<std::string> options = c.options;
        options.insert(options.end(), {"--ellipse", "4,3,25,17"});
        const Bytes inside = RunOn(c.name, dib, options);
        EXPECT_EQ(inside, Direct(dib, ellipse, c.call));
        EXPECT_NE(inside, Direct(dib, Region{}, c.call));
        options.push_back("--outside");
        ellipse.inside = 0;
        EXPECT_EQ(RunOn(c.name, dib, options), Direct(dib, ellipse, c.call));

        Region polygon;
        polygon.kind = 2;
        polygon.points = {{2, 1}, {27, 4}, {11, 18}};
        options = c.options;
        options.insert(options.end(), {"--polygon", "2,1,27,4,11,18"});
        EXPECT_EQ(RunOn(c.name, dib, options), Direct(dib, polygon, c.call));

        Region masked;
        masked.kind = 0;
        masked.mask = &mask;
        options = c.options;
        options.insert(options.end(), {"--mask", Path("mask.bmp")});
        EXPECT_EQ(RunOn(c.name, dib, options), Direct(dib, masked, c.call));
    }
}

// ---- Refusals ----

TEST_F(FilterKernelCommands, RefusedDepthsAndParametersGiveTheLibrarysStatus) {
    const std::string path = KernelFile("1\n");
    for (const int bits : {1, 4, 8}) {
        // A random 8-bit table is not gray.
        const Bytes dib = RandomDib(1700 + static_cast<uint32_t>(bits), 6, 4, bits);
        ExpectRefused("sharp", dib, {}, 1, "tz3: sharp: bad image or mask (status 7)");
        ExpectRefused("anti-alias", dib, {}, 1, "tz3: anti-alias: bad image or mask (status 7)");
        ExpectRefused("emboss", dib, {}, 1, "tz3: emboss: bad image or mask (status 7)");
        ExpectRefused("custom-filter", dib, {"--kernel", path}, 1, "tz3: custom-filter: bad image or mask (status 7)");
    }
    const Bytes dib = RandomDib(1710, 6, 4, 24);
    ExpectRefused("emboss", dib, {"--direction", "8"}, 1, "tz3: emboss: bad parameter (status 5)");
    ExpectRefused("emboss", dib, {"--direction", "264"}, 1, "bad parameter (status 5)");
    ExpectRefused("custom-filter", dib, {"--kernel", path, "--divisor", "256"}, 1,
                  "tz3: custom-filter: bad parameter (status 5)");
    EXPECT_EQ(RunOn("emboss", dib, {"--direction", "256"}), RunOn("emboss", dib, {"--direction", "0"}));
}

TEST_F(FilterKernelCommands, MalformedAndUnknownOptionsAreUsageErrors) {
    const Bytes dib = RandomDib(1720, 6, 4, 24);
    const std::string path = KernelFile("1\n");
    struct Case {
        std::string command;
        std::vector<std::string> options;
        std::string needle;
    };
    const std::vector<Case> cases = {
        {"sharp", {"--strength", "1.5"}, "--strength needs one whole number"},
        {"sharp", {"--strength"}, "--strength needs a value"},
        {"sharp", {"--amount", "5"}, "unknown option --amount"},
        {"anti-alias", {"--strength", "5"}, "unknown option --strength"},
        {"anti-alias", {"extra"}, "unexpected argument"},
        {"emboss", {"--direction", "x"}, "--direction needs one whole number"},
        {"emboss", {"--depth", "0x3"}, "--depth needs one whole number"},
        {"emboss", {"--bias", " 4"}, "--bias needs one whole number"},
        {"custom-filter", {"--kernel", path, "--divisor", "2.5"}, "--divisor needs one whole number"},
        {"custom-filter", {"--kernel", path, "--red=1"}, "--red takes no value"},
        {"custom-filter", {"--kernel", path, "--strength", "3"}, "unknown option --strength"},
        {"custom-filter", {"--kernel"}, "--kernel needs a value"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.command + " " + Shown(c.options));
        WriteFile(Path("in.bmp"), BmpFromDib(dib));
        std::vector<std::string> args = {c.command, Path("in.bmp"), Path("out.bmp")};
        args.insert(args.end(), c.options.begin(), c.options.end());
        const ToolRun run = RunTool(args);
        ExpectFailure(run, 2, "(usage: tz3 " + c.command + " IN OUT");
        EXPECT_NE(run.err.find(c.needle), std::string::npos) << run.err;
        EXPECT_FALSE(FileExists(Path("out.bmp")));
    }
}

TEST_F(FilterKernelCommands, CancelledRunLeavesNoFileBehind) {
    const std::string path = KernelFile("1 1 1\n1 1 1\n1 1 1\n");
    const std::vector<std::pair<std::string, std::vector<std::string>>> commands = {
        {"custom-filter", {"--kernel", path}}, {"sharp", {}}, {"anti-alias", {}}, {"emboss", {}}};
    for (const auto &[command, options] : commands) {
        SCOPED_TRACE(command);
        WriteFile(Path("in.bmp"), BmpFromDib(RandomDib(1800, 12, 6, 24)));
        std::vector<std::string> args = {command, Path("in.bmp"), Path("out.bmp")};
        args.insert(args.end(), options.begin(), options.end());
        ExpectFailure(RunTool(args, {"TZ3_CANCEL_AFTER=3"}), 130, "tz3: " + command + ": cancelled (status 1)");
        EXPECT_FALSE(FileExists(Path("out.bmp")));
    }
}

}  // namespace
}  // namespace tz3clitest
