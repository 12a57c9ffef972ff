// The subcommands shade, mosaic, outline and remove-noise: each result, read back, is what the
// export gives when called directly on the same block with the same arguments, at every depth the
// filter takes and over each kind of region; defaults, usage errors, and refusals by the library
// reported in one line with no output file.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <random>
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

using DirectCall = std::function<DibHandle(const DibPair *pair, int32_t kind, const Tz3Point *points,
                                           int32_t count, const Tz3Rect *rect, int32_t inside)>;

// The export called on a copy of `dib` over `region`; the result's bytes, or none on failure.
Bytes Direct(const Bytes &dib, const Region &region, const DirectCall &call) {
    Block image(dib);
    Block mask(region.mask != nullptr ? NewBlock(*region.mask) : nullptr);
    const DibPair pair{image.h, mask.h};
    Block result(call(&pair, region.kind, region.points.empty() ? nullptr : region.points.data(),
                      static_cast<int32_t>(region.points.size()), &region.rect, region.inside));
    EXPECT_NE(result.h, nullptr) << "status " << Tz3GetErrorStatus();
    return result.h == nullptr ? Bytes{} : result.ToBytes();
}

DirectCall Shade(int32_t radius) {
    return [=](const DibPair *p, int32_t k, const Tz3Point *pts, int32_t n, const Tz3Rect *r, int32_t in) {
        return TZ3Shade(p, k, pts, n, r, in, radius, 1, 0, 0, 0);
    };
}
DirectCall Mosaic(int32_t tw, int32_t th) {
    return [=](const DibPair *p, int32_t k, const Tz3Point *pts, int32_t n, const Tz3Rect *r, int32_t in) {
        return TZ3Mosaic(p, k, pts, n, r, in, tw, th, 1, 0, 0, 0);
    };
}
DirectCall Outline(int32_t channel, int32_t op, int32_t gain) {
    return [=](const DibPair *p, int32_t k, const Tz3Point *pts, int32_t n, const Tz3Rect *r, int32_t in) {
        return TZ3Outline(p, k, pts, n, r, in, channel, op, gain, 1, 0, 0, 0);
    };
}
DirectCall RemoveNoise(int32_t method, int32_t level) {
    return [=](const DibPair *p, int32_t k, const Tz3Point *pts, int32_t n, const Tz3Rect *r, int32_t in) {
        return TZ3RemoveNoise(p, k, pts, n, r, in, method, level, 1, 0, 0, 0);
    };
}

// An 8-bit image with the 256 gray levels in a shuffled table and random pixels.
Bytes GrayImage(uint32_t seed, int width, int height) {
    Bytes d = MakeDib(width, height, 8);
    std::mt19937 rng(seed);
    std::vector<int> levels(256);
    for (int i = 0; i < 256; ++i) levels[i] = i;
    std::shuffle(levels.begin(), levels.end(), rng);
    for (int i = 0; i < 256; ++i)
        d[40 + 4 * i] = d[41 + 4 * i] = d[42 + 4 * i] = static_cast<uint8_t>(levels[i]);
    for (size_t i = PixelOffset(d); i < d.size(); ++i) d[i] = static_cast<uint8_t>(rng());
    return d;
}

// The depths of the window filters: 8-bit gray, 16 bits both ways, 24 and 32 bits.
std::vector<std::pair<std::string, Bytes>> FilterDepths(uint32_t seed) {
    return {{"8bitGray", GrayImage(seed, 13, 7)},
            {"16bit555", RandomDib(seed + 1, 13, 7, 16)},
            {"16bit565", RandomDib(seed + 2, 13, 7, 16, 0, true)},
            {"24bit", RandomDib(seed + 3, 13, 7, 24)},
            {"32bit", RandomDib(seed + 4, 13, 7, 32)}};
}

struct Choice {
    std::vector<std::string> options;
    DirectCall call;
};

class FilterWindowCommands : public ToolTest {
  protected:
    Bytes RunOn(const std::string &command, const Bytes &dib, const std::vector<std::string> &options) {
        WriteFile(Path("in.bmp"), BmpFromDib(dib));
        std::vector<std::string> args = {command, Path("in.bmp"), Path("out.bmp")};
        args.insert(args.end(), options.begin(), options.end());
        const ToolRun run = RunTool(args);
        EXPECT_EQ(run.exitCode, 0) << run.err;
        EXPECT_EQ(run.err, "");
        if (run.exitCode != 0) return {};
        return DibFromBmp(ReadFile(Path("out.bmp")));
    }

    void ExpectEveryDepthMatches(const std::string &command, const std::vector<Choice> &choices,
                                 const std::vector<std::pair<std::string, Bytes>> &depths) {
        for (const auto &[name, dib] : depths) {
            for (const Choice &choice : choices) {
                std::string shown;
                for (const std::string &o : choice.options) shown += " " + o;
                SCOPED_TRACE(command + shown + " on " + name);
                const Bytes expected = Direct(dib, Region{}, choice.call);
                EXPECT_EQ(RunOn(command, dib, choice.options), expected);
                EXPECT_NE(expected, dib);
            }
        }
    }

    // A failure: exit code, one line naming the command, no output file.
    void ExpectRefused(const std::string &command, const Bytes &dib, const std::vector<std::string> &options,
                       int exitCode, const std::string &needle) {
        WriteFile(Path("in.bmp"), BmpFromDib(dib));
        std::vector<std::string> args = {command, Path("in.bmp"), Path("out.bmp")};
        args.insert(args.end(), options.begin(), options.end());
        const ToolRun run = RunTool(args);
        ExpectFailure(run, exitCode, needle);
        EXPECT_EQ(run.err.rfind("tz3: " + command + ": ", 0), 0u) << run.err;
        EXPECT_FALSE(FileExists(Path("out.bmp")));
        std::remove(Path("out.bmp").c_str());
    }
};

}  // namespace

TEST_F(FilterWindowCommands, ShadeMatchesTheDirectCallAtEveryDepth) {
    ExpectEveryDepthMatches("shade",
                            {{{}, Shade(2)},
                             {{"--radius", "1"}, Shade(1)},
                             {{"--radius=20"}, Shade(20)},
                             {{"--radius", "300"}, Shade(300)}},
                            FilterDepths(900));
}

TEST_F(FilterWindowCommands, MosaicMatchesTheDirectCallAtEveryDepthPalettesIncluded) {
    auto depths = FilterDepths(910);
    depths.push_back({"1bit", RandomDib(915, 13, 7, 1)});
    depths.push_back({"4bit", RandomDib(916, 13, 7, 4)});
    depths.push_back({"8bitColour", RandomDib(917, 13, 7, 8, 40)});
    ExpectEveryDepthMatches("mosaic",
                            {{{"--width", "3", "--height", "2"}, Mosaic(3, 2)},
                             {{"--width=1", "--height=4"}, Mosaic(1, 4)},
                             {{"--height", "0", "--width", "5"}, Mosaic(5, 0)}},
                            depths);
    // The defaults are tiles of 8 x 8.
    const Bytes dib = RandomDib(918, 20, 19, 24);
    EXPECT_EQ(RunOn("mosaic", dib, {}), Direct(dib, Region{}, Mosaic(8, 8)));
}

TEST_F(FilterWindowCommands, OutlineMatchesTheDirectCallAtEveryDepth) {
    ExpectEveryDepthMatches("outline",
                            {{{}, Outline(0, 2, 1)},
                             {{"--channel", "2", "--operator", "0", "--gain", "3"}, Outline(2, 0, 3)},
                             {{"--operator=1", "--gain=100"}, Outline(0, 1, 100)},
                             {{"--channel", "1", "--gain", "7"}, Outline(1, 2, 7)}},
                            FilterDepths(920));
}

TEST_F(FilterWindowCommands, RemoveNoiseMatchesTheDirectCallAtEveryDepth) {
    ExpectEveryDepthMatches("remove-noise",
                            {{{}, RemoveNoise(0, 128)},
                             {{"--method", "1", "--level", "255"}, RemoveNoise(1, 255)},
                             {{"--method=1"}, RemoveNoise(1, 128)}},
                            FilterDepths(930));
}

TEST_F(FilterWindowCommands, RegionOptionsReachTheCall) {
    const Bytes dib = RandomDib(940, 24, 16, 24);
    const Bytes mask = RandomDib(941, 24, 16, 1);
    WriteFile(Path("mask.bmp"), BmpFromDib(mask));
    Region ellipse;
    ellipse.kind = 3;
    ellipse.rect = Tz3Rect{3, 2, 20, 13};
    ellipse.inside = 0;
    Region polygon;
    polygon.kind = 2;
    polygon.points = {{2, 1}, {21, 3}, {9, 14}};
    Region masked;
    masked.kind = 0;
    masked.mask = &mask;
    const std::vector<std::string> ellipseOptions = {"--ellipse", "3,2,20,13", "--outside"};
    const std::vector<std::string> polygonOptions = {"--polygon", "2,1,21,3,9,14"};
    const std::vector<std::string> maskOptions = {"--mask", Path("mask.bmp")};
    const std::vector<std::pair<std::string, Choice>> commands = {
        {"shade", {{"--radius", "3"}, Shade(3)}},
        {"mosaic", {{"--width", "4", "--height", "3"}, Mosaic(4, 3)}},
        {"outline", {{"--gain", "2"}, Outline(0, 2, 2)}},
        {"remove-noise", {{"--method", "1", "--level", "200"}, RemoveNoise(1, 200)}},
    };
    for (const auto &[command, choice] : commands) {
        SCOPED_TRACE(command);
        for (const auto &[region, options] :
             {std::pair{&ellipse, ellipseOptions}, {&polygon, polygonOptions}, {&masked, maskOptions}}) {
            std::vector<std::string> all = choice.options;
            all.insert(all.end(), options.begin(), options.end());
            const Bytes expected = Direct(dib, *region, choice.call);
            EXPECT_EQ(RunOn(command, dib, all), expected) << options[0];
            EXPECT_NE(expected, Direct(dib, Region{}, choice.call)) << options[0];
        }
    }
}

TEST_F(FilterWindowCommands, LibraryRefusalsAreOneLineWithNoOutput) {
    // One-pixel tiles, and a colour palette for the filters that take only gray ones.
    ExpectRefused("mosaic", RandomDib(950, 8, 4, 24), {"--width", "1", "--height", "1"}, 1, "(status 5)");
    const Bytes palette = RandomDib(951, 8, 4, 8, 40);
    ExpectRefused("shade", palette, {}, 1, "(status 7)");
    ExpectRefused("outline", palette, {}, 1, "(status 7)");
    ExpectRefused("remove-noise", palette, {}, 1, "(status 7)");
    ExpectRefused("shade", RandomDib(952, 8, 4, 4), {}, 1, "(status 7)");
}

TEST_F(FilterWindowCommands, MalformedOptionsAreUsageErrors) {
    const Bytes dib = RandomDib(960, 8, 4, 24);
    for (const auto &[command, options] : std::vector<std::pair<std::string, std::vector<std::string>>>{
             {"shade", {"--radius", "x"}},
             {"shade", {"--radius"}},
             {"shade", {"--size", "3"}},
             {"mosaic", {"--width", "0x10"}},
             {"mosaic", {"--tile", "4"}},
             {"outline", {"--gain", "1.5"}},
             {"outline", {"--channel", " 1"}},
             {"remove-noise", {"--method", ""}},
             {"remove-noise", {"--level", "2", "--radius", "1"}},
         }) {
        ExpectRefused(command, dib, options, 2, "(usage: tz3 " + command + " IN OUT");
    }
    EXPECT_EQ(Entries(), std::vector<std::string>{"in.bmp"});
}

}  // namespace tz3clitest
