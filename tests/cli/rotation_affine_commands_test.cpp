// The rotation and affine subcommands of tz3: each result, read back, is what the export gives when
// called directly on the same block with the same arguments, at every depth; the mask in and out,
// usage errors, damaged input and cancellation, which leave no file behind.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tool_test_support.h"

namespace tz3clitest {
namespace {

struct DirectPair {
    Bytes image, mask;
};

DirectPair DirectRotation(const Bytes &dib, const Bytes *mask, int32_t angle, bool flipH, bool flipV, bool interp,
                          int32_t r, int32_t g, int32_t b, bool keep) {
    Block image(dib);
    Block maskBlock(mask != nullptr ? NewBlock(*mask) : nullptr);
    const DibPair source{image.h, maskBlock.h};
    const DibPair out = TZ3Rotation(&source, angle, flipH, flipV, interp, r, g, b, keep, 1, 0, 0, 0);
    Block turned(out.image), turnedMask(out.mask);
    EXPECT_NE(out.image, nullptr) << "status " << Tz3GetErrorStatus();
    DirectPair result;
    if (out.image != nullptr) result.image = turned.ToBytes();
    if (out.mask != nullptr) result.mask = turnedMask.ToBytes();
    return result;
}

Bytes DirectAffine(const Bytes &dib, const int32_t (&p)[8]) {
    Block image(dib);
    Block out(TZ3Affine(image.h, p[0], p[1], p[2], p[3], p[4], p[5], p[6], p[7], 1, 0, 0, 0));
    EXPECT_NE(out.h, nullptr) << "status " << Tz3GetErrorStatus();
    return out.h != nullptr ? out.ToBytes() : Bytes();
}

// Every depth the tool reads, small.
std::vector<BmpVariant> Depths(uint32_t seed) {
    std::vector<BmpVariant> chosen;
    for (BmpVariant &v : EveryBmpVariant(11, 7, seed)) {
        if (v.name == "1bit" || v.name == "4bit" || v.name == "8bit" || v.name == "8bitShortTable" ||
            v.name == "16bit555" || v.name == "16bit565" || v.name == "24bit" || v.name == "32bit") {
            chosen.push_back(std::move(v));
        }
    }
    return chosen;
}

// A 1-bit mask of the size with a seeded pattern.
Bytes PatternMask(int width, int height, uint32_t seed) {
    Bytes m = MakeDib(width, height, 1);
    m[44] = m[45] = m[46] = 255;
    uint32_t s = seed;
    for (size_t i = PixelOffset(m); i < m.size(); ++i) {
        s = s * 1103515245u + 12345u;
        m[i] = static_cast<uint8_t>(s >> 16);
    }
    // Pad bits clear, as a file read back has them.
    const uint32_t stride = Stride(1, width);
    for (int y = 0; y < height; ++y)
        for (uint32_t bit = static_cast<uint32_t>(width); bit < stride * 8; ++bit)
            m[PixelOffset(m) + stride * static_cast<uint32_t>(y) + bit / 8] &= static_cast<uint8_t>(~(0x80u >> (bit % 8)));
    return m;
}

class GeometryCommands : public ToolTest {
  protected:
    ToolRun Run(const std::vector<std::string> &args, const std::vector<std::string> &env = {}) {
        return RunTool(args, env);
    }
};

TEST_F(GeometryCommands, RotationMatchesTheDirectCallAtEveryDepth) {
    for (const BmpVariant &v : Depths(31)) {
        SCOPED_TRACE(v.name);
        WriteFile(Path("in.bmp"), v.file);
        const ToolRun general = Run({"rotation", Path("in.bmp"), Path("out.bmp"), "--angle", "3000", "--interpolate",
                                     "--background", "10,20,300"});
        ASSERT_EQ(general.exitCode, 0) << general.err;
        EXPECT_EQ(general.err, "");
        EXPECT_EQ(DibFromBmp(ReadFile(Path("out.bmp"))),
                  DirectRotation(v.dib, nullptr, 3000, false, false, true, 10, 20, 300, false).image);
        const ToolRun right = Run({"rotation", Path("in.bmp"), Path("out.bmp"), "--angle=-9000", "--keep-size",
                                   "--flip-h", "--flip-v"});
        ASSERT_EQ(right.exitCode, 0) << right.err;
        EXPECT_EQ(DibFromBmp(ReadFile(Path("out.bmp"))),
                  DirectRotation(v.dib, nullptr, -9000, true, true, false, 255, 255, 255, true).image);
    }
}

TEST_F(GeometryCommands, RotationTurnsTheMaskAndSavesItWhenAsked) {
    const Bytes dib = RandomDib(41, 13, 9, 24);
    const Bytes mask = PatternMask(13, 9, 42);
    WriteFile(Path("in.bmp"), BmpFromDib(dib));
    WriteFile(Path("mask.bmp"), BmpFromDib(mask));
    const ToolRun run = Run({"rotation", Path("in.bmp"), Path("out.png"), "--angle", "2000", "--mask",
                             Path("mask.bmp"), "--mask-out", Path("turned-mask.bmp")});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const DirectPair direct = DirectRotation(dib, &mask, 2000, false, false, false, 255, 255, 255, false);
    EXPECT_EQ(DibFromBmp(ReadFile(Path("turned-mask.bmp"))), direct.mask);
    uint32_t width = 0, height = 0;
    const Bytes rgba = PngToRgba(Path("out.png"), &width, &height);
    EXPECT_EQ(width, Rd32(direct.image.data() + 4));
    EXPECT_EQ(height, Rd32(direct.image.data() + 8));
    const uint32_t stride = Stride(24, static_cast<int>(width));
    for (uint32_t y = 0; y < height; ++y)
        for (uint32_t x = 0; x < width; ++x) {
            const uint8_t *pixel = direct.image.data() + 40 + stride * y + 3 * x;
            const uint8_t *png = rgba.data() + 4 * ((height - 1 - y) * width + x);
            ASSERT_EQ(png[0], pixel[2]);
            ASSERT_EQ(png[1], pixel[1]);
            ASSERT_EQ(png[2], pixel[0]);
        }
    // Without --mask-out the mask only rides along; the image is the same.
    const ToolRun plain =
        Run({"rotation", Path("in.bmp"), Path("plain.bmp"), "--angle", "2000", "--mask", Path("mask.bmp")});
    ASSERT_EQ(plain.exitCode, 0) << plain.err;
    EXPECT_EQ(DibFromBmp(ReadFile(Path("plain.bmp"))), direct.image);
}

TEST_F(GeometryCommands, RotationRefusesWrongArgumentsBeforeTouchingFiles) {
    WriteFile(Path("in.bmp"), BmpFromDib(RandomDib(51, 6, 4, 24)));
    const std::vector<std::vector<std::string>> wrong = {
        {"rotation", Path("in.bmp"), Path("out.bmp")},
        {"rotation", Path("in.bmp"), Path("out.bmp"), "--angle", "ten"},
        {"rotation", Path("in.bmp"), Path("out.bmp"), "--angle", "10", "--background", "1,2"},
        {"rotation", Path("in.bmp"), Path("out.bmp"), "--angle", "10", "--mask-out", Path("m.bmp")},
        {"rotation", Path("in.bmp"), Path("out.gif"), "--angle", "10"},
        {"rotation", Path("in.bmp"), Path("out.bmp"), "--angle", "10", "--spin"},
        {"rotation", Path("in.bmp"), "--angle", "10"},
    };
    for (const auto &args : wrong) {
        const ToolRun run = Run(args);
        ExpectFailure(run, 2, "usage: tz3 rotation");
        EXPECT_EQ(Entries(), std::vector<std::string>{"in.bmp"});
    }
}

TEST_F(GeometryCommands, RotationWithAMaskOfAnotherSizeFailsInOneLine) {
    WriteFile(Path("in.bmp"), BmpFromDib(RandomDib(61, 6, 4, 24)));
    WriteFile(Path("mask.bmp"), BmpFromDib(PatternMask(5, 4, 62)));
    const ToolRun run = Run({"rotation", Path("in.bmp"), Path("out.bmp"), "--angle", "10", "--mask", Path("mask.bmp"),
                             "--mask-out", Path("mo.bmp")});
    ExpectFailure(run, 1, "mask must be a 1-bit image of 6 x 4");
    EXPECT_EQ(Entries(), (std::vector<std::string>{"in.bmp", "mask.bmp"}));
}

TEST_F(GeometryCommands, CancelledRunsLeaveNoFileBehind) {
    WriteFile(Path("in.bmp"), BmpFromDib(RandomDib(71, 12, 6, 24)));
    WriteFile(Path("mask.bmp"), BmpFromDib(PatternMask(12, 6, 72)));
    const ToolRun turned = Run({"rotation", Path("in.bmp"), Path("out.bmp"), "--angle", "4500", "--mask",
                                Path("mask.bmp"), "--mask-out", Path("mo.bmp")},
                               {"TZ3_CANCEL_AFTER=2"});
    ExpectFailure(turned, 130, "tz3: rotation: cancelled (status 1)");
    const ToolRun warped = Run({"affine", Path("in.bmp"), Path("out.bmp"), "--points", "0,5,2,0,11,1,9,5"},
                               {"TZ3_CANCEL_AFTER=1"});
    ExpectFailure(warped, 130, "tz3: affine: cancelled (status 1)");
    EXPECT_EQ(Entries(), (std::vector<std::string>{"in.bmp", "mask.bmp"}));
}

TEST_F(GeometryCommands, AffineMatchesTheDirectCallAtEveryDepth) {
    const int32_t warp[8] = {0, 6, 3, 0, 10, 1, 9, 6};
    const int32_t crop[8] = {9, 1, 1, 5, 1, 1, 9, 5};
    for (const BmpVariant &v : Depths(81)) {
        SCOPED_TRACE(v.name);
        WriteFile(Path("in.bmp"), v.file);
        const ToolRun a = Run({"affine", Path("in.bmp"), Path("out.bmp"), "--points", "0,6,3,0,10,1,9,6"});
        ASSERT_EQ(a.exitCode, 0) << a.err;
        EXPECT_EQ(DibFromBmp(ReadFile(Path("out.bmp"))), DirectAffine(v.dib, warp));
        const ToolRun b = Run({"affine", Path("in.bmp"), Path("out.bmp"), "--points=9,1,1,5,1,1,9,5"});
        ASSERT_EQ(b.exitCode, 0) << b.err;
        EXPECT_EQ(DibFromBmp(ReadFile(Path("out.bmp"))), DirectAffine(v.dib, crop));
    }
}

TEST_F(GeometryCommands, AffineRefusesWrongPointsAndReportsADegenerateQuadrilateral) {
    WriteFile(Path("in.bmp"), BmpFromDib(RandomDib(91, 8, 8, 24)));
    for (const std::vector<std::string> &args : std::vector<std::vector<std::string>>{
             {"affine", Path("in.bmp"), Path("out.bmp")},
             {"affine", Path("in.bmp"), Path("out.bmp"), "--points", "1,2,3,4,5,6,7"},
             {"affine", Path("in.bmp"), Path("out.bmp"), "--points", "1,2,3,4,5,6,7,x"},
             {"affine", Path("in.bmp"), Path("out.bmp"), "--points", "1,2,3,4,5,6,7,8", "--mask", "m.bmp"}}) {
        ExpectFailure(Run(args), 2, "usage: tz3 affine");
    }
    ExpectFailure(Run({"affine", Path("in.bmp"), Path("out.bmp"), "--points", "3,3,3,3,3,3,3,3"}), 1,
                  "tz3: affine: bad parameter (status 5)");
    ExpectFailure(Run({"affine", Path("nothing.bmp"), Path("out.bmp"), "--points", "0,7,0,0,7,0,7,7"}), 1,
                  "nothing.bmp");
    WriteFile(Path("damaged.bmp"), Bytes{'B', 'M', 1, 2, 3});
    ExpectFailure(Run({"affine", Path("damaged.bmp"), Path("out.bmp"), "--points", "0,7,0,0,7,0,7,7"}), 1,
                  "damaged.bmp");
    EXPECT_EQ(Entries(), (std::vector<std::string>{"damaged.bmp", "in.bmp"}));
}

}  // namespace
}  // namespace tz3clitest
