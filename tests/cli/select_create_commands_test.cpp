// The selection and new-image subcommands of tz3 (select-image, auto-select-image, create-image,
// copy-image): each result and mask, read back, is what the export gives when called directly on
// the same block with the same arguments; defaults, usage errors, library failures and
// cancellation, with no partial file left behind.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "tool_test_support.h"

namespace tz3clitest {
namespace {

struct Shape {
    int32_t kind = 1;
    std::vector<Tz3Point> points;
    Tz3Rect rect{0, 0, 0, 0};
    int32_t inside = 1;
    std::vector<std::string> options;  // the same shape as the tool's options
};

Shape WholeShape() {
    return Shape{};
}
Shape PolygonShape(bool outside) {
    Shape s{2, {{1, 0}, {9, 2}, {3, 4}}, {0, 0, 0, 0}, outside ? 0 : 1, {"--polygon", "1,0,9,2,3,4"}};
    if (outside) s.options.push_back("--outside");
    return s;
}
Shape EllipseShape(bool outside) {
    Shape s{3, {}, {2, 1, 10, 5}, outside ? 0 : 1, {"--ellipse", "2,1,10,5"}};
    if (outside) s.options.push_back("--outside");
    return s;
}
std::vector<Shape> EveryShape() {
    return {WholeShape(), PolygonShape(false), PolygonShape(true), EllipseShape(false), EllipseShape(true)};
}

using PairCall = std::function<DibPair(DibHandle image, const Shape &shape)>;

// The export called on a copy of `dib`: the result's image and mask bytes.
std::pair<Bytes, Bytes> Direct(const Bytes &dib, const Shape &shape, const PairCall &call) {
    Block image(dib);
    const DibPair p = call(image.h, shape);
    Block result(p.image), mask(p.mask);
    EXPECT_NE(result.h, nullptr) << "status " << Tz3GetErrorStatus();
    return {result.ToBytes(), mask.ToBytes()};
}

PairCall SelectCall(int32_t r, int32_t g, int32_t b) {
    return [=](DibHandle image, const Shape &s) {
        return TZ3SelectImage(image, s.kind, s.points.empty() ? nullptr : s.points.data(),
                              static_cast<int32_t>(s.points.size()), &s.rect, s.inside, r, g, b, 1, 0, 0, 0);
    };
}
PairCall AutoSelectCall(int32_t r, int32_t g, int32_t b, int32_t metric, int32_t tolerance) {
    return [=](DibHandle image, const Shape &s) {
        return TZ3AutoSelectImage(image, s.kind, s.points.empty() ? nullptr : s.points.data(),
                                  static_cast<int32_t>(s.points.size()), &s.rect, s.inside, r, g, b, metric,
                                  tolerance, 1, 0, 0, 0);
    };
}

// Depths the selection keeps as they are in a file: 1, 4 and 8-bit palettes, 16 bits both ways,
// 24 and 32 bits.
std::vector<BmpVariant> SelectionDepths(uint32_t seed) {
    std::vector<BmpVariant> chosen;
    for (BmpVariant &v : EveryBmpVariant(12, 6, seed)) {
        if (v.name == "1bit" || v.name == "4bit" || v.name == "8bit" || v.name == "16bit555" ||
            v.name == "16bit565" || v.name == "24bit" || v.name == "32bit") {
            chosen.push_back(std::move(v));
        }
    }
    return chosen;
}

class SelectCreateCommands : public ToolTest {
  protected:
    // Runs a selection command on the variant's file; the image and mask it wrote.
    std::pair<Bytes, Bytes> RunSelection(const std::string &command, const BmpVariant &v, const Shape &shape,
                                         const std::vector<std::string> &own) {
        WriteFile(Path("in.bmp"), v.file);
        std::vector<std::string> args{command, Path("in.bmp"), Path("out.bmp"), "--mask-out",
                                      Path("mask.bmp")};
        args.insert(args.end(), shape.options.begin(), shape.options.end());
        args.insert(args.end(), own.begin(), own.end());
        const ToolRun run = RunTool(args);
        EXPECT_EQ(run.exitCode, 0) << run.err;
        if (run.exitCode != 0) return {};
        return {DibFromBmp(ReadFile(Path("out.bmp"))), DibFromBmp(ReadFile(Path("mask.bmp")))};
    }
    // A failed run that leaves only the input behind.
    void ExpectNoOutput(const std::vector<std::string> &args, int exitCode, const std::string &needle,
                        const std::vector<std::string> &env = {}) {
        const ToolRun run = RunTool(args, env);
        ExpectFailure(run, exitCode, needle);
        EXPECT_EQ(Entries(), std::vector<std::string>{"in.bmp"});
    }
};

TEST_F(SelectCreateCommands, SelectImageMatchesTheDirectCallAtEveryDepthAndShape) {
    for (const BmpVariant &v : SelectionDepths(801)) {
        for (const Shape &shape : EveryShape()) {
            SCOPED_TRACE(v.name + " " + (shape.options.empty() ? "whole" : shape.options[0]) +
                         (shape.inside ? "" : " outside"));
            const auto got = RunSelection("select-image", v, shape, {"--fill", "200,30,90"});
            const auto expected = Direct(v.dib, shape, SelectCall(200, 30, 90));
            EXPECT_EQ(got.first, expected.first);
            EXPECT_EQ(got.second, expected.second);
        }
    }
}

TEST_F(SelectCreateCommands, SelectImageFillsWithBlackByDefault) {
    const BmpVariant v = SelectionDepths(802)[5];  // 24 bits
    ASSERT_EQ(v.name, "24bit");
    const auto got = RunSelection("select-image", v, EllipseShape(false), {});
    EXPECT_EQ(got.first, Direct(v.dib, EllipseShape(false), SelectCall(0, 0, 0)).first);
}

TEST_F(SelectCreateCommands, AutoSelectImageMatchesTheDirectCallForEachMetricDepthAndShape) {
    const std::vector<std::pair<std::string, int32_t>> metrics = {{"rgb", 0}, {"chroma", 1}, {"luma", 2}};
    // Every depth and shape, the metric turning with them so that each meets every depth.
    size_t turn = 0;
    for (const BmpVariant &v : SelectionDepths(803)) {
        for (const Shape &shape : EveryShape()) {
            {
                const auto &[name, metric] = metrics[turn++ % metrics.size()];
                SCOPED_TRACE(v.name + " " + name + " " +
                             (shape.options.empty() ? "whole" : shape.options[0]));
                const auto got =
                    RunSelection("auto-select-image", v, shape,
                                 {"--key", "255,255,255", "--metric", name, "--tolerance", "70"});
                const auto expected = Direct(v.dib, shape, AutoSelectCall(255, 255, 255, metric, 70));
                EXPECT_EQ(got.first, expected.first);
                EXPECT_EQ(got.second, expected.second);
            }
        }
    }
}

TEST_F(SelectCreateCommands, AutoSelectImageDefaultsToRgbWithTolerance16) {
    const BmpVariant v = SelectionDepths(804)[5];
    const auto got = RunSelection("auto-select-image", v, WholeShape(), {"--key", "0,0,0"});
    const auto expected = Direct(v.dib, WholeShape(), AutoSelectCall(0, 0, 0, 0, 16));
    EXPECT_EQ(got.second, expected.second);
    EXPECT_NE(got.second, Direct(v.dib, WholeShape(), AutoSelectCall(0, 0, 0, 0, 100)).second);
}

TEST_F(SelectCreateCommands, WithoutMaskOutOnlyTheImageIsWritten) {
    WriteFile(Path("in.bmp"), SelectionDepths(805)[5].file);
    const ToolRun run = RunTool({"select-image", Path("in.bmp"), Path("out.png"), "--ellipse", "0,0,5,5"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(Entries(), (std::vector<std::string>{"in.bmp", "out.png"}));
}

TEST_F(SelectCreateCommands, MaskWrittenAsPngHoldsTheSelectionAsBlackAndWhite) {
    const BmpVariant v = SelectionDepths(810)[5];
    WriteFile(Path("in.bmp"), v.file);
    const ToolRun run =
        RunTool({"auto-select-image", Path("in.bmp"), Path("out.png"), "--key", "0,0,0", "--tolerance", "90",
                 "--mask-out", Path("mask.png"), "--ellipse", "1,0,11,6"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const Shape shape{3, {}, {1, 0, 11, 6}, 1, {}};
    const Bytes mask = Direct(v.dib, shape, AutoSelectCall(0, 0, 0, 0, 90)).second;
    uint32_t width = 0, height = 0;
    const Bytes rgba = PngToRgba(Path("mask.png"), &width, &height);
    ASSERT_EQ(width, Rd32(&mask[4]));
    ASSERT_EQ(height, Rd32(&mask[8]));
    const uint32_t stride = Stride(1, static_cast<int>(width));
    int set = 0;
    for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t x = 0; x < width; ++x) {
            // PNG rows run from the top; the mask's from the bottom.
            const bool bit = (mask[48 + stride * (height - 1 - y) + x / 8] >> (7 - x % 8)) & 1;
            set += bit ? 1 : 0;
            EXPECT_EQ(rgba[4 * (y * width + x)], bit ? 255 : 0) << x << "," << y;
        }
    }
    EXPECT_GT(set, 0);
}

TEST_F(SelectCreateCommands, CreateImageMatchesTheDirectCallAtEveryDepth) {
    for (const int depth : {1, 4, 8, 16, 24, 32}) {
        const ToolRun run = RunTool({"create-image", Path("new.bmp"), "--width", "13", "--height", "3",
                                     "--depth", std::to_string(depth), "--colour", "255,0,0"});
        ASSERT_EQ(run.exitCode, 0) << run.err;
        Block direct(TZ3CreateImage(13, 3, depth, 255, 0, 0, 1, 0, 0, 0));
        EXPECT_EQ(DibFromBmp(ReadFile(Path("new.bmp"))), direct.ToBytes()) << depth;
    }
}

TEST_F(SelectCreateCommands, CreateImageIsBlack24BitByDefault) {
    const ToolRun run = RunTool({"create-image", Path("new.bmp"), "--width", "4", "--height", "2"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    Block direct(TZ3CreateImage(4, 2, 24, 0, 0, 0, 1, 0, 0, 0));
    EXPECT_EQ(DibFromBmp(ReadFile(Path("new.bmp"))), direct.ToBytes());
}

TEST_F(SelectCreateCommands, CopyImageWritesTheSamePicture) {
    for (const BmpVariant &v : SelectionDepths(806)) {
        WriteFile(Path("in.bmp"), v.file);
        const ToolRun run = RunTool({"copy-image", Path("in.bmp"), Path("out.bmp")});
        ASSERT_EQ(run.exitCode, 0) << run.err;
        EXPECT_EQ(DibFromBmp(ReadFile(Path("out.bmp"))), v.dib) << v.name;
    }
}

TEST_F(SelectCreateCommands, UsageErrorsWriteNothing) {
    WriteFile(Path("in.bmp"), SelectionDepths(807)[5].file);
    const std::string in = Path("in.bmp"), out = Path("out.bmp"), mask = Path("m.bmp");
    ExpectNoOutput({"select-image", in, out, "--mask", in}, 2, "unknown option --mask");
    ExpectNoOutput({"select-image", in, out, "--fill", "1,2"}, 2, "--fill needs R,G,B");
    ExpectNoOutput({"select-image", in, out, "--fill", "1,2,256"}, 2, "0 to 255");
    ExpectNoOutput({"select-image", in, out, "--mask-out", mask + ".gif"}, 2, "usage: tz3 select-image");
    ExpectNoOutput({"select-image", in, out, "--outside"}, 2, "--outside needs");
    ExpectNoOutput({"auto-select-image", in, out}, 2, "--key is required");
    ExpectNoOutput({"auto-select-image", in, out, "--key", "1,2,3", "--metric", "hue"}, 2,
                   "rgb, chroma or luma");
    ExpectNoOutput({"auto-select-image", in, out, "--key", "1,2,3", "--tolerance", "256"}, 2, "0 to 255");
    ExpectNoOutput({"create-image", out, "--width", "3"}, 2, "--width and --height are required");
    ExpectNoOutput({"create-image", out, "--width", "0", "--height", "3"}, 2, "at least 1");
    ExpectNoOutput({"create-image", out, "--width", "3", "--height", "3", "--depth", "2"}, 2, "--depth is");
    ExpectNoOutput({"copy-image", in}, 2, "usage: tz3 copy-image");
}

TEST_F(SelectCreateCommands, LibraryFailuresAreOneLineAndWriteNothing) {
    WriteFile(Path("in.bmp"), SelectionDepths(808)[5].file);
    ExpectNoOutput({"create-image", Path("big.bmp"), "--width", "100000", "--height", "100000"}, 1,
                   "tz3: create-image: out of memory (status 3)");
    ExpectNoOutput({"select-image", Path("missing.bmp"), Path("out.bmp")}, 1, "missing.bmp");
}

TEST_F(SelectCreateCommands, CancelledRunsLeaveNeitherImageNorMask) {
    WriteFile(Path("in.bmp"), SelectionDepths(809)[5].file);
    const std::vector<std::string> env{"TZ3_CANCEL_AFTER=1"};
    ExpectNoOutput({"select-image", Path("in.bmp"), Path("out.bmp"), "--mask-out", Path("m.bmp")}, 130,
                   "tz3: select-image: cancelled (status 1)", env);
    ExpectNoOutput(
        {"auto-select-image", Path("in.bmp"), Path("out.bmp"), "--key", "0,0,0", "--mask-out", Path("m.bmp")},
        130, "tz3: auto-select-image: cancelled (status 1)", env);
    ExpectNoOutput({"create-image", Path("out.bmp"), "--width", "3", "--height", "3"}, 130,
                   "tz3: create-image: cancelled (status 1)", env);
    ExpectNoOutput({"copy-image", Path("in.bmp"), Path("out.bmp")}, 130,
                   "tz3: copy-image: cancelled (status 1)", env);
}

}  // namespace
}  // namespace tz3clitest
