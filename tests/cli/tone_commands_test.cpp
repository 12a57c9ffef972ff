// The tone subcommands of tz3 (rgb-gamma, rgb-level, ycc-gamma, ycc-level, ycc-rev, chroma,
// set-gray): each result, read back, is what the export gives when called directly on the same
// block with the same arguments; defaults, region options, usage errors, damaged input and
// cancellation.
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

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

// The six region arguments of a direct call, ready for an export.
struct RegionCallArgs {
    const DibPair *pair;
    int32_t kind;
    const Tz3Point *points;
    int32_t count;
    const Tz3Rect *rect;
    int32_t inside;
};

using DirectCall = std::function<DibHandle(const RegionCallArgs &)>;

// The export called on a copy of `dib` over `region`; the result's bytes.
Bytes Direct(const Bytes &dib, const Region &region, const DirectCall &call) {
    Block image(dib);
    Block mask(region.mask != nullptr ? NewBlock(*region.mask) : nullptr);
    const DibPair pair{image.h, mask.h};
    const RegionCallArgs r{&pair,         region.kind, region.points.empty() ? nullptr : region.points.data(),
                           static_cast<int32_t>(region.points.size()), &region.rect, region.inside};
    Block result(call(r));
    EXPECT_NE(result.h, nullptr) << "status " << Tz3GetErrorStatus();
    return result.ToBytes();
}

// ---- The direct calls, one per export, with the tool's noDialog 1 ----

DirectCall RgbGamma(double r, double g, double b) {
    return [=](const RegionCallArgs &a) {
        return TZ3RGBGamma(a.pair, a.kind, a.points, a.count, a.rect, a.inside, r, g, b, 1, 0, 0, 0);
    };
}
DirectCall RgbLevel(int32_t r, int32_t g, int32_t b) {
    return [=](const RegionCallArgs &a) {
        return TZ3RGBLevel(a.pair, a.kind, a.points, a.count, a.rect, a.inside, r, g, b, 1, 0, 0, 0);
    };
}
DirectCall YccGamma(double y, double cr, double cb) {
    return [=](const RegionCallArgs &a) {
        return TZ3YCCGamma(a.pair, a.kind, a.points, a.count, a.rect, a.inside, y, cr, cb, 1, 0, 0, 0);
    };
}
DirectCall YccLevel(int32_t y, int32_t cr, int32_t cb) {
    return [=](const RegionCallArgs &a) {
        return TZ3YCCLevel(a.pair, a.kind, a.points, a.count, a.rect, a.inside, y, cr, cb, 1, 0, 0, 0);
    };
}
DirectCall YccRev(int32_t y, int32_t cr, int32_t cb) {
    return [=](const RegionCallArgs &a) {
        return TZ3YCCRev(a.pair, a.kind, a.points, a.count, a.rect, a.inside, y, cr, cb, 1, 0, 0, 0);
    };
}
DirectCall Chroma(int32_t amount) {
    return [=](const RegionCallArgs &a) {
        return TZ3Chroma(a.pair, a.kind, a.points, a.count, a.rect, a.inside, amount, 1, 0, 0, 0);
    };
}
// set-gray takes no region: the direct call only uses the image.
DirectCall SetGray() {
    return [](const RegionCallArgs &a) { return TZ3SetGray(a.pair->image, 1, 0, 0, 0); };
}

// One way of running a subcommand: its options and the direct call it should amount to.
struct Choice {
    std::vector<std::string> options;
    DirectCall call;
    bool changesPixels;  // the result differs from the input at every depth used here
};

std::string Shown(const std::vector<std::string> &args) {
    std::string shown;
    for (const std::string &a : args) shown += (shown.empty() ? "" : " ") + a;
    return shown;
}

// 8-bit palette (full and short table), 16-bit 5-5-5 and 5-6-5, 24 and 32 bits, small.
std::vector<BmpVariant> ToneDepths(uint32_t seed) {
    std::vector<BmpVariant> chosen;
    for (BmpVariant &v : EveryBmpVariant(11, 5, seed)) {
        if (v.name == "8bit" || v.name == "8bitShortTable" || v.name == "16bit555" || v.name == "16bit565" ||
            v.name == "24bit" || v.name == "32bit") {
            chosen.push_back(std::move(v));
        }
    }
    return chosen;
}

const std::vector<std::string> kRegionCommands = {"rgb-gamma", "rgb-level", "ycc-gamma",
                                                  "ycc-level", "ycc-rev",   "chroma"};
const std::vector<std::string> kAllCommands = {"rgb-gamma", "rgb-level", "ycc-gamma", "ycc-level",
                                               "ycc-rev",   "chroma",    "set-gray"};

// Options that make each region command change every pixel, with the matching call.
Choice StrongChoice(const std::string &command) {
    if (command == "rgb-gamma") return {{"--red", "0.9", "--green", "-0.7", "--blue", "0.4"}, RgbGamma(0.9, -0.7, 0.4), true};
    if (command == "rgb-level") return {{"--red", "60", "--green", "-45", "--blue", "30"}, RgbLevel(60, -45, 30), true};
    if (command == "ycc-gamma") return {{"--y", "0.8", "--cr", "-0.5", "--cb", "0.6"}, YccGamma(0.8, -0.5, 0.6), true};
    if (command == "ycc-level") return {{"--y", "40", "--cr", "-35", "--cb", "25"}, YccLevel(40, -35, 25), true};
    if (command == "ycc-rev") return {{}, YccRev(1, 1, 1), true};
    if (command == "chroma") return {{"--amount", "150"}, Chroma(150), true};
    return {{}, SetGray(), true};
}

class ToneCommands : public ToolTest {
  protected:
    // Runs the command on `inFile` written as in.bmp; the block read back from out.bmp.
    Bytes RunOnFile(const std::string &command, const Bytes &inFile, const std::vector<std::string> &options) {
        WriteFile(Path("in.bmp"), inFile);
        std::vector<std::string> args = {command, Path("in.bmp"), Path("out.bmp")};
        args.insert(args.end(), options.begin(), options.end());
        const ToolRun run = RunTool(args);
        EXPECT_EQ(run.exitCode, 0) << run.err;
        EXPECT_EQ(run.err, "");
        EXPECT_EQ(run.out, "");
        if (run.exitCode != 0) return {};
        return DibFromBmp(ReadFile(Path("out.bmp")));
    }
    Bytes RunOn(const std::string &command, const Bytes &dib, const std::vector<std::string> &options) {
        return RunOnFile(command, BmpFromDib(dib), options);
    }

    // Every choice at every depth: the tool's result equals the direct call over the whole image.
    void ExpectEveryDepthMatches(const std::string &command, const std::vector<Choice> &choices, uint32_t seed) {
        for (const BmpVariant &v : ToneDepths(seed)) {
            for (const Choice &choice : choices) {
                SCOPED_TRACE(command + " " + Shown(choice.options) + " on " + v.name);
                const Bytes expected = Direct(v.dib, Region{}, choice.call);
                EXPECT_EQ(RunOnFile(command, v.file, choice.options), expected);
                if (choice.changesPixels) {
                    EXPECT_NE(expected, v.dib);
                }
            }
        }
    }

    // A usage error: exit 2, one line naming the command and its usage, no output file.
    void ExpectUsageError(const std::string &command, const std::vector<std::string> &options,
                          const std::string &needle = "") {
        SCOPED_TRACE(command + " " + Shown(options));
        std::vector<std::string> args = {command, Path("in.bmp"), Path("out.bmp")};
        args.insert(args.end(), options.begin(), options.end());
        const ToolRun run = RunTool(args);
        ExpectFailure(run, 2, "(usage: tz3 " + command + " IN OUT");
        EXPECT_EQ(run.err.rfind("tz3: " + command + ": ", 0), 0u) << run.err;
        if (!needle.empty()) {
            EXPECT_NE(run.err.find(needle), std::string::npos) << run.err;
        }
        EXPECT_FALSE(FileExists(Path("out.bmp")));
        std::remove(Path("out.bmp").c_str());  // so that one wrong success does not blur the next case
    }
};

// ---- Each command at each depth, over the whole image ----

TEST_F(ToneCommands, RgbGammaMatchesTheDirectCallAtEveryDepth) {
    ExpectEveryDepthMatches("rgb-gamma",
                            {
                                {{}, RgbGamma(0, 0, 0), false},
                                {{"--red", "0.9", "--green", "-0.7", "--blue", "0.4"}, RgbGamma(0.9, -0.7, 0.4), true},
                                {{"--green=1.5"}, RgbGamma(0, 1.5, 0), true},
                                {{"--blue", "-2", "--red", "-.25"}, RgbGamma(-0.25, 0, -2), true},
                            },
                            700);
}

TEST_F(ToneCommands, RgbLevelMatchesTheDirectCallAtEveryDepth) {
    ExpectEveryDepthMatches("rgb-level",
                            {
                                {{}, RgbLevel(0, 0, 0), false},
                                {{"--red", "60", "--green", "-45", "--blue", "+30"}, RgbLevel(60, -45, 30), true},
                                {{"--green=-255"}, RgbLevel(0, -255, 0), true},
                                // Beyond the range the library clamps; the tool passes the number on.
                                {{"--blue", "400", "--red", "-999"}, RgbLevel(-999, 0, 400), true},
                            },
                            710);
}

TEST_F(ToneCommands, YccGammaMatchesTheDirectCallAtEveryDepth) {
    ExpectEveryDepthMatches("ycc-gamma",
                            {
                                {{}, YccGamma(0, 0, 0), false},
                                {{"--y", "0.8", "--cr", "-0.5", "--cb", "0.6"}, YccGamma(0.8, -0.5, 0.6), true},
                                {{"--cb=1e0"}, YccGamma(0, 0, 1), true},
                                {{"--cr", "2.5", "--y", "-1"}, YccGamma(-1, 2.5, 0), true},
                            },
                            720);
}

TEST_F(ToneCommands, YccLevelMatchesTheDirectCallAtEveryDepth) {
    ExpectEveryDepthMatches("ycc-level",
                            {
                                {{}, YccLevel(0, 0, 0), false},
                                {{"--y", "40", "--cr", "-35", "--cb", "25"}, YccLevel(40, -35, 25), true},
                                {{"--cr=120"}, YccLevel(0, 120, 0), true},
                                {{"--cb", "-300", "--y", "-80"}, YccLevel(-80, 0, -300), true},
                            },
                            730);
}

TEST_F(ToneCommands, YccRevMatchesTheDirectCallAtEveryDepth) {
    ExpectEveryDepthMatches("ycc-rev",
                            {
                                {{}, YccRev(1, 1, 1), true},
                                {{"--y"}, YccRev(1, 0, 0), true},
                                {{"--cr", "--cb"}, YccRev(0, 1, 1), true},
                                {{"--cb"}, YccRev(0, 0, 1), true},
                            },
                            740);
}

TEST_F(ToneCommands, ChromaMatchesTheDirectCallAtEveryDepth) {
    ExpectEveryDepthMatches("chroma",
                            {
                                {{"--amount", "0"}, Chroma(0), false},
                                {{"--amount", "150"}, Chroma(150), true},
                                {{"--amount=-100"}, Chroma(-100), true},
                                {{"--amount", "-40"}, Chroma(-40), true},
                            },
                            750);
}

TEST_F(ToneCommands, SetGrayMatchesTheDirectCallAtEveryDepth) {
    ExpectEveryDepthMatches("set-gray", {{{}, SetGray(), true}}, 760);
}

// ---- Defaults and flags ----

TEST_F(ToneCommands, DefaultsDifferFromOtherArguments) {
    const Bytes dib = RandomDib(770, 10, 6, 24);
    // No option is the same as the zero strengths and amounts written out.
    EXPECT_EQ(RunOn("rgb-gamma", dib, {}), RunOn("rgb-gamma", dib, {"--red", "0", "--green", "0", "--blue", "0"}));
    EXPECT_EQ(RunOn("ycc-gamma", dib, {}), RunOn("ycc-gamma", dib, {"--y", "0", "--cr", "0", "--cb", "0"}));
    EXPECT_EQ(RunOn("ycc-level", dib, {}), RunOn("ycc-level", dib, {"--y", "0", "--cr", "0", "--cb", "0"}));
    EXPECT_EQ(RunOn("rgb-level", dib, {}), dib);
    // Each channel's option reaches its own argument.
    EXPECT_NE(Direct(dib, Region{}, RgbGamma(0.5, 0, 0)), Direct(dib, Region{}, RgbGamma(0, 0.5, 0)));
    EXPECT_EQ(RunOn("rgb-gamma", dib, {"--green", "0.5"}), Direct(dib, Region{}, RgbGamma(0, 0.5, 0)));
    EXPECT_NE(Direct(dib, Region{}, YccLevel(0, 30, 0)), Direct(dib, Region{}, YccLevel(0, 0, 30)));
    EXPECT_EQ(RunOn("ycc-level", dib, {"--cb", "30"}), Direct(dib, Region{}, YccLevel(0, 0, 30)));
    EXPECT_NE(Direct(dib, Region{}, YccGamma(0, 0.7, 0)), Direct(dib, Region{}, YccGamma(0, 0, 0.7)));
    EXPECT_EQ(RunOn("ycc-gamma", dib, {"--cr", "0.7"}), Direct(dib, Region{}, YccGamma(0, 0.7, 0)));
}

TEST_F(ToneCommands, YccRevAllThreeFlagsActLikeNone) {
    const Bytes dib = RandomDib(775, 9, 4, 32);
    const Bytes all = RunOn("ycc-rev", dib, {"--y", "--cr", "--cb"});
    EXPECT_EQ(all, RunOn("ycc-rev", dib, {}));
    EXPECT_NE(all, RunOn("ycc-rev", dib, {"--y"}));
    EXPECT_NE(all, Direct(dib, Region{}, YccRev(0, 0, 0)));
}

TEST_F(ToneCommands, LaterValueOfARepeatedOptionWins) {
    const Bytes dib = RandomDib(778, 9, 4, 24);
    EXPECT_EQ(RunOn("rgb-level", dib, {"--red", "10", "--red", "50"}), Direct(dib, Region{}, RgbLevel(50, 0, 0)));
    EXPECT_EQ(RunOn("chroma", dib, {"--amount", "10", "--amount=300"}), Direct(dib, Region{}, Chroma(300)));
}

TEST_F(ToneCommands, GammaStrengthsAcceptDecimalAndExponentForms) {
    const Bytes dib = RandomDib(779, 9, 4, 24);
    EXPECT_EQ(RunOn("rgb-gamma", dib, {"--red", "+.5", "--green", "2E-1", "--blue", "-3."}),
              Direct(dib, Region{}, RgbGamma(0.5, 0.2, -3.0)));
    // A strength too small for a normal double is still a finite number.
    EXPECT_EQ(RunOn("ycc-gamma", dib, {"--y", "1e-310"}), Direct(dib, Region{}, YccGamma(1e-310, 0, 0)));
}

TEST_F(ToneCommands, OutputAsPngHoldsTheSamePixels) {
    const Bytes dib = RandomDib(780, 8, 5, 24);
    WriteFile(Path("in.bmp"), BmpFromDib(dib));
    const ToolRun run = RunTool({"chroma", Path("in.bmp"), Path("out.png"), "--amount", "200"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const Bytes expected = Direct(dib, Region{}, Chroma(200));
    uint32_t width = 0, height = 0;
    const Bytes rgba = PngToRgba(Path("out.png"), &width, &height);
    ASSERT_EQ(width, 8u);
    ASSERT_EQ(height, 5u);
    const uint32_t stride = Stride(24, 8);
    for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t x = 0; x < width; ++x) {
            const size_t at = 40 + static_cast<size_t>(height - 1 - y) * stride + 3 * x;
            const size_t p = (static_cast<size_t>(y) * width + x) * 4;
            EXPECT_EQ(rgba[p], expected[at + 2]);
            EXPECT_EQ(rgba[p + 1], expected[at + 1]);
            EXPECT_EQ(rgba[p + 2], expected[at]);
        }
    }
}

// ---- Region options ----

TEST_F(ToneCommands, EllipseInsideAndOutsideMatchTheDirectCall) {
    for (const std::string &command : kRegionCommands) {
        const Choice choice = StrongChoice(command);
        for (int bits : {16, 24, 32}) {
            SCOPED_TRACE(command + " at " + std::to_string(bits) + " bits");
            const Bytes dib = RandomDib(800 + static_cast<uint32_t>(bits), 30, 20, bits, 0, false);
            Region region;
            region.kind = 3;
            region.rect = Tz3Rect{4, 3, 25, 17};
            std::vector<std::string> options = choice.options;
            options.insert(options.end(), {"--ellipse", "4,3,25,17"});
            const Bytes inside = RunOn(command, dib, options);
            EXPECT_EQ(inside, Direct(dib, region, choice.call));
            EXPECT_NE(inside, dib);
            EXPECT_NE(inside, Direct(dib, Region{}, choice.call));

            options.push_back("--outside");
            region.inside = 0;
            const Bytes outside = RunOn(command, dib, options);
            EXPECT_EQ(outside, Direct(dib, region, choice.call));
            EXPECT_NE(outside, dib);
            EXPECT_NE(outside, inside);
        }
    }
}

TEST_F(ToneCommands, PolygonInsideAndOutsideMatchTheDirectCall) {
    for (const std::string &command : kRegionCommands) {
        const Choice choice = StrongChoice(command);
        for (int bits : {16, 24, 32}) {
            SCOPED_TRACE(command + " at " + std::to_string(bits) + " bits");
            const Bytes dib = RandomDib(820 + static_cast<uint32_t>(bits), 30, 20, bits, 0, bits == 16);
            Region region;
            region.kind = 2;
            region.points = {{2, 1}, {27, 4}, {11, 18}};
            std::vector<std::string> options = {"--polygon", "2,1,27,4,11,18"};
            options.insert(options.end(), choice.options.begin(), choice.options.end());
            const Bytes inside = RunOn(command, dib, options);
            EXPECT_EQ(inside, Direct(dib, region, choice.call));
            EXPECT_NE(inside, dib);
            EXPECT_NE(inside, Direct(dib, Region{}, choice.call));

            options.insert(options.begin(), "--outside");
            region.inside = 0;
            const Bytes outside = RunOn(command, dib, options);
            EXPECT_EQ(outside, Direct(dib, region, choice.call));
            EXPECT_NE(outside, dib);
            EXPECT_NE(outside, inside);
        }
    }
}

TEST_F(ToneCommands, DefaultsAlsoHoldInsideARegion) {
    const Bytes dib = RandomDib(840, 24, 16, 24);
    Region region;
    region.kind = 3;
    region.rect = Tz3Rect{2, 2, 20, 13};
    region.inside = 0;
    const std::vector<std::string> ellipse = {"--ellipse", "2,2,20,13", "--outside"};
    EXPECT_EQ(RunOn("ycc-gamma", dib, ellipse), Direct(dib, region, YccGamma(0, 0, 0)));
    EXPECT_EQ(RunOn("rgb-gamma", dib, ellipse), Direct(dib, region, RgbGamma(0, 0, 0)));
    EXPECT_EQ(RunOn("rgb-level", dib, ellipse), Direct(dib, region, RgbLevel(0, 0, 0)));
    EXPECT_EQ(RunOn("ycc-level", dib, ellipse), Direct(dib, region, YccLevel(0, 0, 0)));
    const Bytes reversed = RunOn("ycc-rev", dib, ellipse);
    EXPECT_EQ(reversed, Direct(dib, region, YccRev(1, 1, 1)));
    EXPECT_NE(reversed, dib);
}

TEST_F(ToneCommands, MaskFileSelectsThePixelsOfItsSetBits) {
    const Bytes dib = RandomDib(850, 19, 11, 24);
    const Bytes mask = RandomDib(851, 19, 11, 1);
    WriteFile(Path("mask.bmp"), BmpFromDib(mask));
    Region region;
    region.kind = 0;
    region.mask = &mask;
    for (const std::string &command : kRegionCommands) {
        SCOPED_TRACE(command);
        const Choice choice = StrongChoice(command);
        std::vector<std::string> options = choice.options;
        options.insert(options.end(), {"--mask", Path("mask.bmp")});
        const Bytes expected = Direct(dib, region, choice.call);
        EXPECT_EQ(RunOn(command, dib, options), expected);
        EXPECT_NE(expected, Direct(dib, Region{}, choice.call));
        EXPECT_NE(expected, dib);
    }
}

TEST_F(ToneCommands, PaletteImageIsWorkedWholeWhateverTheRegion) {
    const Bytes dib = RandomDib(860, 17, 9, 8, 40);
    for (const std::string &command : kRegionCommands) {
        SCOPED_TRACE(command);
        const Choice choice = StrongChoice(command);
        const Bytes whole = Direct(dib, Region{}, choice.call);
        EXPECT_NE(whole, dib);
        std::vector<std::string> options = choice.options;
        options.insert(options.end(), {"--polygon", "1,1,5,1,3,4", "--outside"});
        EXPECT_EQ(RunOn(command, dib, options), whole);
    }
}

// ---- Usage errors ----

TEST_F(ToneCommands, ChromaWithoutAnAmountIsAUsageError) {
    WriteFile(Path("in.bmp"), BmpFromDib(RandomDib(870, 8, 4, 24)));
    ExpectUsageError("chroma", {}, "--amount");
    ExpectUsageError("chroma", {"--ellipse", "1,1,5,3"}, "--amount");
    ExpectUsageError("chroma", {"--amount"}, "--amount");
    EXPECT_EQ(Entries(), std::vector<std::string>{"in.bmp"});
    // Found before the input is looked at: a missing input does not change the answer.
    ExpectFailure(RunTool({"chroma", Path("none.bmp"), Path("out.bmp")}), 2, "--amount is required");
    ExpectFailure(RunTool({"rgb-gamma", Path("none.bmp"), Path("out.bmp"), "--red", "nan"}), 2,
                  "--red needs a finite number");
    EXPECT_EQ(Entries(), std::vector<std::string>{"in.bmp"});
}

TEST_F(ToneCommands, MalformedNumbersAreUsageErrors) {
    WriteFile(Path("in.bmp"), BmpFromDib(RandomDib(875, 8, 4, 24)));
    struct Case {
        std::string command;
        std::vector<std::string> options;
        std::string needle;
    };
    const std::vector<Case> cases = {
        {"rgb-gamma", {"--red", "abc"}, "--red"},
        {"rgb-gamma", {"--red", "nan"}, "--red"},
        {"rgb-gamma", {"--green", "-inf"}, "--green"},
        {"rgb-gamma", {"--blue", "infinity"}, "--blue"},
        {"rgb-gamma", {"--blue", "1e999"}, "--blue"},
        {"rgb-gamma", {"--red", "0.5x"}, "--red"},
        {"rgb-gamma", {"--red", ""}, "--red"},
        {"rgb-gamma", {"--red="}, "--red"},
        {"rgb-gamma", {"--red", " 0.5"}, "--red"},
        {"rgb-gamma", {"--red", "0.5 "}, "--red"},
        {"rgb-gamma", {"--green", "0x1p-1"}, "--green"},
        {"rgb-gamma", {"--red", "0,5"}, "--red"},
        {"rgb-gamma", {"--red"}, "--red needs a value"},
        {"ycc-gamma", {"--y", "NaN"}, "--y"},
        {"ycc-gamma", {"--cb", "abc"}, "--cb"},
        {"ycc-gamma", {"--cr", "1..2"}, "--cr"},
        {"rgb-level", {"--red", "abc"}, "--red"},
        {"rgb-level", {"--red", "1.5"}, "--red"},
        {"rgb-level", {"--green", "1,2"}, "--green"},
        {"rgb-level", {"--blue", "99999999999"}, "--blue"},
        {"rgb-level", {"--blue", "0x10"}, "--blue"},
        {"rgb-level", {"--red", " 5"}, "--red"},
        {"rgb-level", {"--red="}, "--red"},
        {"ycc-level", {"--y", "1.5"}, "--y"},
        {"ycc-level", {"--cr", "1e2"}, "--cr"},
        {"ycc-level", {"--cb", "-"}, "--cb"},
        {"chroma", {"--amount", "1.5"}, "--amount"},
        {"chroma", {"--amount", "abc"}, "--amount"},
        {"chroma", {"--amount", "10%"}, "--amount"},
    };
    for (const Case &c : cases) ExpectUsageError(c.command, c.options, c.needle);
    EXPECT_EQ(Entries(), std::vector<std::string>{"in.bmp"});
}

TEST_F(ToneCommands, WrongOptionsAreUsageErrors) {
    WriteFile(Path("in.bmp"), BmpFromDib(RandomDib(880, 8, 4, 24)));
    ExpectUsageError("rgb-gamma", {"--y", "0.5"}, "unknown option --y");
    ExpectUsageError("rgb-level", {"--amount", "5"}, "unknown option --amount");
    ExpectUsageError("ycc-gamma", {"--red", "0.5"}, "unknown option --red");
    ExpectUsageError("ycc-level", {"--blue", "5"}, "unknown option --blue");
    ExpectUsageError("ycc-rev", {"--red"}, "unknown option --red");
    ExpectUsageError("ycc-rev", {"--y=1"}, "--y takes no value");
    ExpectUsageError("ycc-rev", {"--cb", "--outside"}, "--outside");
    ExpectUsageError("chroma", {"--amount", "10", "--red", "5"}, "unknown option --red");
    ExpectUsageError("rgb-level", {"--red", "5", "extra"}, "unexpected argument");
    EXPECT_EQ(Entries(), std::vector<std::string>{"in.bmp"});
}

TEST_F(ToneCommands, SetGrayTakesNoRegionOptions) {
    WriteFile(Path("in.bmp"), BmpFromDib(RandomDib(885, 8, 4, 24)));
    WriteFile(Path("mask.bmp"), BmpFromDib(RandomDib(886, 8, 4, 1)));
    const std::vector<std::vector<std::string>> cases = {
        {"--polygon", "1,1,6,1,3,3"},
        {"--ellipse", "0,0,5,3"},
        {"--mask", Path("mask.bmp")},
        {"--outside"},
        {"--red", "5"},
    };
    for (const auto &options : cases) {
        SCOPED_TRACE(Shown(options));
        std::vector<std::string> args = {"set-gray", Path("in.bmp"), Path("out.bmp")};
        args.insert(args.end(), options.begin(), options.end());
        const ToolRun run = RunTool(args);
        ExpectFailure(run, 2, "(usage: tz3 set-gray IN OUT)");
        EXPECT_NE(run.err.find("unknown option " + options[0]), std::string::npos) << run.err;
        EXPECT_FALSE(FileExists(Path("out.bmp")));
    }
    ExpectFailure(RunTool({"set-gray", Path("in.bmp")}), 2, "missing file name");
    ExpectFailure(RunTool({"set-gray", Path("in.bmp"), Path("out.bmp"), Path("x.bmp")}), 2, "unexpected argument");
    EXPECT_EQ(Entries(), (std::vector<std::string>{"in.bmp", "mask.bmp"}));
}

// ---- Damaged input and cancellation ----

TEST_F(ToneCommands, DamagedInputGivesOneLineAndNoOutput) {
    const Bytes good = BmpFromDib(RandomDib(890, 9, 6, 24));
    struct Damage {
        std::string name;
        Bytes file;
        std::string needle;
    };
    const std::vector<Damage> damages = {
        {"TruncatedRows", Bytes(good.begin(), good.end() - 10), "pixel data truncated"},
        {"TruncatedHeader", Bytes(good.begin(), good.begin() + 30), "truncated BMP header"},
        {"NotAnImage", Bytes{'h', 'e', 'l', 'l', 'o', '\n'}, "not a BMP or PNG file"},
    };
    for (const std::string &command : kAllCommands) {
        for (const Damage &d : damages) {
            SCOPED_TRACE(command + " on " + d.name);
            WriteFile(Path("in.bmp"), d.file);
            std::vector<std::string> args = {command, Path("in.bmp"), Path("out.bmp")};
            if (command == "chroma") args.insert(args.end(), {"--amount", "20"});
            ExpectFailure(RunTool(args), 1, Path("in.bmp") + ": " + d.needle);
            EXPECT_EQ(Entries(), std::vector<std::string>{"in.bmp"});
        }
    }
}

TEST_F(ToneCommands, MissingInputGivesOneLineAndNoOutput) {
    for (const std::string &command : kAllCommands) {
        SCOPED_TRACE(command);
        std::vector<std::string> args = {command, Path("none.bmp"), Path("out.bmp")};
        if (command == "chroma") args.insert(args.end(), {"--amount", "20"});
        ExpectFailure(RunTool(args), 1, Path("none.bmp") + ": cannot open");
        EXPECT_TRUE(Entries().empty());
    }
}

TEST_F(ToneCommands, CancelledRunLeavesNoFileBehind) {
    for (const std::string &command : kAllCommands) {
        for (int bits : {8, 24}) {
            SCOPED_TRACE(command + " at " + std::to_string(bits) + " bits");
            WriteFile(Path("in.bmp"), BmpFromDib(RandomDib(900 + static_cast<uint32_t>(bits), 12, 6, bits)));
            std::vector<std::string> args = StrongChoice(command).options;
            args.insert(args.begin(), {command, Path("in.bmp"), Path("out.bmp")});
            const ToolRun run = RunTool(args, {"TZ3_CANCEL_AFTER=1"});
            ExpectFailure(run, 130, "tz3: " + command + ": cancelled (status 1)");
            EXPECT_EQ(Entries(), std::vector<std::string>{"in.bmp"});
        }
    }
}

TEST_F(ToneCommands, CancelledRunLeavesAnExistingOutputUntouched) {
    WriteFile(Path("in.bmp"), BmpFromDib(RandomDib(910, 12, 6, 32)));
    const Bytes before = BmpFromDib(RandomDib(911, 3, 3, 24));
    for (const std::string &command : {std::string("set-gray"), std::string("rgb-level")}) {
        SCOPED_TRACE(command);
        WriteFile(Path("out.bmp"), before);
        const ToolRun run = RunTool({command, Path("in.bmp"), Path("out.bmp"), "--ellipse"}, {"TZ3_CANCEL_AFTER=1"});
        EXPECT_EQ(run.exitCode, 2) << run.err;  // a usage error touches no file either
        EXPECT_EQ(ReadFile(Path("out.bmp")), before);
        const ToolRun cancelled = RunTool({command, Path("in.bmp"), Path("out.bmp")}, {"TZ3_CANCEL_AFTER=2"});
        ExpectFailure(cancelled, 130, "status 1");
        EXPECT_EQ(ReadFile(Path("out.bmp")), before);
        EXPECT_EQ(Entries(), (std::vector<std::string>{"in.bmp", "out.bmp"}));
    }
}

// One progress report per row: a six-row picture cancelled at its seventh report runs to the end.
TEST_F(ToneCommands, CancelAfterTheLastReportDoesNotCancel) {
    const Bytes dib = RandomDib(920, 12, 6, 24);
    WriteFile(Path("in.bmp"), BmpFromDib(dib));
    ExpectFailure(RunTool({"set-gray", Path("in.bmp"), Path("out.bmp")}, {"TZ3_CANCEL_AFTER=6"}), 130, "status 1");
    EXPECT_FALSE(FileExists(Path("out.bmp")));
    const ToolRun run = RunTool({"set-gray", Path("in.bmp"), Path("out.bmp")}, {"TZ3_CANCEL_AFTER=7"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(DibFromBmp(ReadFile(Path("out.bmp"))), Direct(dib, Region{}, SetGray()));
}

}  // namespace
}  // namespace tz3clitest
