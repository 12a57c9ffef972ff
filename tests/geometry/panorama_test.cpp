// The panorama: directions, seam ends, equal segments, turned and scaled seconds against the same
// steps done one by one, seam sides, statuses, progress, cancellation, allocation failure and the
// caller's images.
#include "geometry/panorama.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "frame/region.h"
#include "platform/companion.h"
#include "platform/raster.h"
#include "support/test_images.h"
#include "support/tone_harness.h"

namespace {

using namespace tz3test;

struct Points {
    int32_t x1a, y1a, x1b, y1b, x2a, y2a, x2b, y2b;
};

DibHandle RunPanorama(DibHandle first, DibHandle second, int32_t seam, const Points &p,
                      int32_t noDialog = 1) {
    return TZ3Panorama(first, second, seam, p.x1a, p.y1a, p.x1b, p.y1b, p.x2a, p.y2a, p.x2b, p.y2b, 10, 20,
                       30, noDialog, 0, 0, 0);
}

uint32_t Pixel24(const std::vector<uint8_t> &dib, int x, int topY) {
    const int y = ImageHeight(dib) - 1 - topY;
    const uint8_t *p =
        dib.data() + PixelOffset(dib) + RowBytes(24, ImageWidth(dib)) * static_cast<size_t>(y) + 3 * x;
    return p[0] | (p[1] << 8) | (p[2] << 16);
}

int32_t Clamp(int32_t v, int32_t hi) {
    return v < 0 ? 0 : v > hi ? hi : v;
}

// The same steps as the panorama, each written out here from the rules and run through the public
// resize and paste: scale, angle, position, and the seam mask from the mask drawing operations.
std::vector<uint8_t> StepByStep(const std::vector<uint8_t> &first, const std::vector<uint8_t> &second,
                                int32_t seam, Points p) {
    const int W1 = ImageWidth(first), H1 = ImageHeight(first), W2 = ImageWidth(second),
              H2 = ImageHeight(second);
    p.x1a = Clamp(p.x1a, W1 - 1), p.x1b = Clamp(p.x1b, W1 - 1), p.y1a = Clamp(p.y1a, H1 - 1),
    p.y1b = Clamp(p.y1b, H1 - 1);
    p.x2a = Clamp(p.x2a, W2 - 1), p.x2b = Clamp(p.x2b, W2 - 1), p.y2a = Clamp(p.y2a, H2 - 1),
    p.y2b = Clamp(p.y2b, H2 - 1);
    const int y1a = H1 - 1 - p.y1a, y1b = H1 - 1 - p.y1b, y2a = H2 - 1 - p.y2a, y2b = H2 - 1 - p.y2b;
    const int d1 =
        static_cast<int>(std::sqrt(double((p.x1b - p.x1a) * (p.x1b - p.x1a) + (y1b - y1a) * (y1b - y1a))));
    const int d2 =
        static_cast<int>(std::sqrt(double((p.x2b - p.x2a) * (p.x2b - p.x2a) + (y2b - y2a) * (y2b - y2a))));
    const double ratio = static_cast<double>(d1) / d2;
    const int newW = static_cast<int>(W2 * ratio), newH = static_cast<int>(H2 * ratio);
    const int angle = static_cast<int>(
        (tz3::DirectionDegrees(p.x1a, y1a, p.x1b, y1b) - tz3::DirectionDegrees(p.x2a, y2a, p.x2b, y2b)) *
        100.0);
    const double a = ((angle / 100.0) * 3.141592657) / 180.0;
    const int dx = static_cast<int>(p.x2a * ratio) - (newW - 1) / 2;
    const int dy = static_cast<int>(y2a * ratio) - newH / 2;
    const int rx = static_cast<int>(dx * std::cos(a) - dy * std::sin(a));
    const int ry = static_cast<int>(dy * std::cos(a) + dx * std::sin(a));
    HandleGuard mask(nullptr);
    const uint8_t side = static_cast<uint8_t>(seam) <= 2 ? static_cast<uint8_t>(seam) : 0;
    if (side != 0) {
        mask.h = tz3::MakeRegionMask(W2, H2, 0, nullptr, 0, 0, 0, 0, 0, 1);
        const tz3::SeamEnds e = tz3::SeamLineEnds(W2, H2, p.x2a, y2a, p.x2b, y2b);
        EXPECT_EQ(tz3::DrawMaskLine(mask.h, e.x0, e.y0, e.x1, e.y1), 1);
        const bool up = y2a < y2b, right = p.x2a < p.x2b;
        int sx, sy;
        if (up && right)
            sx = side == 1 ? 0 : W2 - 1, sy = side == 1 ? 0 : H2 - 1;
        else if (up)
            sx = side == 1 ? 0 : W2 - 1, sy = side == 1 ? H2 - 1 : 0;
        else if (right)
            sx = side == 1 ? W2 - 1 : 0, sy = side == 1 ? 0 : H2 - 1;
        else
            sx = side == 1 ? W2 - 1 : 0, sy = side == 1 ? H2 - 1 : 0;
        EXPECT_EQ(tz3::FloodMaskSide(mask.h, sx, sy, 0, 0xFFFFFF), 1);
    }
    HandleGuard firstBlock(ToBlock(first)), secondBlock(ToBlock(second));
    const DibPair in{secondBlock.h, mask.h};
    const DibPair scaled = TZ3Resize(&in, newW, newH, 1, 1, 0, 0, 0);
    EXPECT_NE(scaled.image, nullptr);
    HandleGuard scaledImage(scaled.image), scaledMask(scaled.mask);
    HandleGuard out(TZ3PasteImage(firstBlock.h, &scaled, angle, 0, 0, 255, 10, 20, 30, p.x1a - rx, p.y1a + ry,
                                  0, 1, 0, 0, 0));
    EXPECT_NE(out.h, nullptr);
    return FromBlock(out.h);
}

TEST(DirectionDegrees, UpLeftDownAndRightAreNinetyOneEightyTwoSeventyAndZero) {
    const int H = 100;
    EXPECT_EQ(tz3::DirectionDegrees(10, H - 1 - 50, 10, H - 1 - 20), 90.0);
    EXPECT_EQ(tz3::DirectionDegrees(10, 5, 3, 5), 180.0);
    EXPECT_EQ(tz3::DirectionDegrees(10, H - 1 - 20, 10, H - 1 - 50), 270.0);
    EXPECT_EQ(tz3::DirectionDegrees(3, 5, 10, 5), 0.0);
    EXPECT_NEAR(tz3::DirectionDegrees(0, 0, 4, 4), 45.0, 1e-6);
    EXPECT_NEAR(tz3::DirectionDegrees(0, 0, -4, 4), 135.0, 1e-6);
    EXPECT_NEAR(tz3::DirectionDegrees(0, 0, -4, -4), 225.0, 1e-6);
    EXPECT_NEAR(tz3::DirectionDegrees(0, 0, 4, -4), 315.0, 1e-6);
    // In the second quadrant the angle is measured from the vertical: atan2(dX, dY) plus 90.
    EXPECT_EQ(tz3::DirectionDegrees(0, 0, -1, 3),
              ((std::atan2(1.0, 3.0) + 1.5707963285) / 3.141592657) * 180.0);
}

TEST(SeamLineEnds, VerticalHorizontalAndSlopedLinesReachTenPixelsBeyondThePicture) {
    const tz3::SeamEnds v = tz3::SeamLineEnds(8, 6, 3, 1, 3, 4);
    EXPECT_EQ(v.x0, 3);
    EXPECT_EQ(v.y0, -10);
    EXPECT_EQ(v.x1, 3);
    EXPECT_EQ(v.y1, 6 + 9);
    const tz3::SeamEnds h = tz3::SeamLineEnds(8, 6, 1, 2, 5, 2);
    EXPECT_EQ(h.x0, -10);
    EXPECT_EQ(h.y0, 6 - 1 - 2);
    EXPECT_EQ(h.x1, 8 + 9);
    EXPECT_EQ(h.y1, 6 - 1 - 2);
    // y = x on a 10 x 10 picture: x runs from -10 to 19, and the ends' y count from the top.
    const tz3::SeamEnds d = tz3::SeamLineEnds(10, 10, 0, 0, 4, 4);
    EXPECT_EQ(d.x0, -10);
    EXPECT_EQ(d.y0, 9 + 10);
    EXPECT_EQ(d.x1, 19);
    EXPECT_EQ(d.y1, 9 - 19);
    // A steep line: m = 4, b = -8 through (2, 0) and (3, 4); x stays within the picture.
    const tz3::SeamEnds s = tz3::SeamLineEnds(10, 10, 2, 0, 3, 4);
    // At yy = -10, x = -0.5 rounds away from zero to -1; at yy = 19, x = 6.75 rounds to 7.
    EXPECT_EQ(s.x0, -1);
    EXPECT_EQ(s.y0, 9 - (-1 * 4 - 8));
    EXPECT_EQ(s.x1, 7);
    EXPECT_EQ(s.y1, 9 - (7 * 4 - 8));
}

TEST(TZ3Panorama, EqualSegmentsPutTheSecondPictureOnAtItsOwnSizeShiftedByTheFirstPoints) {
    std::mt19937 rng(901);
    const auto first = RandomDib(rng, 16, 12, 24);
    const auto second = RandomDib(rng, 6, 5, 24);
    HandleGuard a(ToBlock(first)), b(ToBlock(second));
    // Same length (4), same direction (right): ratio 1, angle 0, shift (4, 2).
    HandleGuard out(RunPanorama(a.h, b.h, 0, Points{5, 3, 9, 3, 1, 1, 5, 1}));
    ASSERT_NE(out.h, nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 0);
    const auto result = FromBlock(out.h);
    ASSERT_EQ(ImageWidth(result), 16);
    ASSERT_EQ(ImageHeight(result), 12);
    for (int y = 0; y < 12; ++y)
        for (int x = 0; x < 16; ++x) {
            const bool inSecond = x >= 4 && x < 10 && y >= 2 && y < 7;
            const uint32_t want = inSecond ? Pixel24(second, x - 4, y - 2) : Pixel24(first, x, y);
            ASSERT_EQ(Pixel24(result, x, y), want) << x << "," << y;
        }
}

TEST(TZ3Panorama, TurnedAndScaledSecondsMatchTheStepsDoneOneByOne) {
    std::mt19937 rng(902);
    const Points cases[] = {
        {5, 10, 5, 2, 1, 1, 7, 1},     // first points up, second right: a quarter turn, scaled up
        {2, 2, 12, 9, 3, 6, 1, 1},     // oblique, shorter second
        {12, 3, 2, 3, 0, 0, 4, 4},     // left against a diagonal
        {3, 3, 9, 9, 9, 0, 0, 9},      // a longer second, reduced
        {-5, 40, 30, -2, 2, 2, 5, 4},  // points clamped into the pictures
    };
    for (const Points &p : cases) {
        const auto first = RandomDib(rng, 14, 11, 24);
        const auto second = RandomDib(rng, 10, 7, 24);
        HandleGuard a(ToBlock(first)), b(ToBlock(second));
        for (int32_t seam : {0, 1, 2, 3, 257}) {
            HandleGuard out(RunPanorama(a.h, b.h, seam, p));
            ASSERT_NE(out.h, nullptr) << Describe("case", p.x1a, p.y1a, p.x1b, p.y1b, seam);
            const auto result = FromBlock(out.h);
            EXPECT_EQ(result, StepByStep(first, second, seam, p))
                << Describe("case", p.x1a, p.y1a, p.x1b, p.y1b, seam);
            EXPECT_EQ(WordAt(result, 14), 24);
            EXPECT_GE(ImageWidth(result), 14);
            EXPECT_GE(ImageHeight(result), 11);
        }
        ExpectCallerBlocksUnchanged(a.h, first);
        ExpectCallerBlocksUnchanged(b.h, second);
    }
}

TEST(TZ3Panorama, SeamSidesKeepTheirSideOfTheLineAndTheLineItself) {
    // A white second picture over a black first, equal vertical segments at column 4 of the second,
    // shifted by (5, 3). Side 1 of a segment pointing up and side 2 of one pointing down are both
    // the part left of the line. (The paste at no turn looks a masked source up from the corner of
    // the masked part's box, so the sides that leave the picture's left edge out are covered by the
    // step-by-step comparison instead.)
    std::vector<uint8_t> first = MakeDibBytes(20, 16, 24);
    std::vector<uint8_t> second = MakeDibBytes(9, 8, 24);
    for (size_t i = PixelOffset(second); i < second.size(); ++i) second[i] = 0xFF;
    HandleGuard a(ToBlock(first)), b(ToBlock(second));
    const Points up{9, 10, 9, 4, 4, 7, 4, 1};
    const Points down{9, 4, 9, 10, 4, 1, 4, 7};
    HandleGuard upLeft(RunPanorama(a.h, b.h, 1, up)), downRight(RunPanorama(a.h, b.h, 2, down));
    HandleGuard whole(RunPanorama(a.h, b.h, 0, up));
    for (const auto &result : {FromBlock(upLeft.h), FromBlock(downRight.h)}) {
        for (int y = 4; y < 10; ++y) {
            for (int x = 0; x <= 4; ++x)
                EXPECT_EQ(Pixel24(result, 5 + x, y), 0xFFFFFFu) << "kept side and line " << x;
            for (int x = 5; x < 9; ++x) EXPECT_EQ(Pixel24(result, 5 + x, y), 0u) << "other side " << x;
        }
    }
    const auto w = FromBlock(whole.h);
    for (int y = 3; y < 11; ++y)
        for (int x = 0; x < 9; ++x)
            EXPECT_EQ(Pixel24(w, 5 + x, y), 0xFFFFFFu) << "no seam: the whole picture";
}

TEST(TZ3Panorama, NullPicturesGiveStatusSevenBeforeEqualPointsGiveFive) {
    HandleGuard a(ToBlock(MakeDibBytes(6, 6, 24)));
    const Points same{1, 1, 1, 1, 2, 2, 3, 3};
    EXPECT_EQ(RunPanorama(nullptr, a.h, 0, same), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
    EXPECT_EQ(RunPanorama(a.h, nullptr, 0, same), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
    EXPECT_EQ(RunPanorama(a.h, a.h, 0, same), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 5);
    EXPECT_EQ(RunPanorama(a.h, a.h, 0, Points{1, 1, 2, 2, 4, 0, 4, 0}), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 5);
}

TEST(TZ3Panorama, PointsThatClampToOnePlaceGiveAZeroLengthAndStatusFiveFromTheResize) {
    HandleGuard a(ToBlock(MakeDibBytes(6, 6, 24)));
    const size_t live = Tz3LiveBlocks();
    for (int32_t seam : {0, 1}) {
        // The second segment clamps to one point: an infinite ratio.
        EXPECT_EQ(RunPanorama(a.h, a.h, seam, Points{1, 1, 4, 4, -3, 2, -8, 2}), nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 5);
        // The first does: a ratio of 0.
        EXPECT_EQ(RunPanorama(a.h, a.h, seam, Points{9, 1, 12, 1, 0, 0, 3, 3}), nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 5);
        // Both do: no ratio at all.
        EXPECT_EQ(RunPanorama(a.h, a.h, seam, Points{9, 1, 12, 1, -3, 2, -8, 2}), nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 5);
        EXPECT_EQ(Tz3LiveBlocks(), live);
    }
}

TEST(TZ3Panorama, PicturesOtherThanTwentyFourBitsAndShortBlocksGiveStatusSeven) {
    std::mt19937 rng(903);
    HandleGuard good(ToBlock(RandomDib(rng, 6, 6, 24)));
    const Points p{0, 0, 3, 0, 0, 0, 3, 0};
    for (int bits : {1, 4, 8, 16, 32}) {
        const auto other = RandomDib(rng, 6, 6, bits);
        HandleGuard bad(ToBlock(other));
        EXPECT_EQ(RunPanorama(bad.h, good.h, 0, p), nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 7);
        EXPECT_EQ(RunPanorama(good.h, bad.h, 1, p), nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 7);
        ExpectCallerBlocksUnchanged(bad.h, other);
    }
    auto shortBlock = RandomDib(rng, 6, 6, 24);
    shortBlock.pop_back();
    HandleGuard cut(ToBlock(shortBlock));
    EXPECT_EQ(RunPanorama(good.h, cut.h, 0, p), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
    EXPECT_TRUE(IsUnlocked(good.h));
}

TEST(TZ3Panorama, TheResizeReportsUpToFiftyAndThePasteFromFiftyOneToAHundred) {
    std::mt19937 rng(904);
    HandleGuard a(ToBlock(RandomDib(rng, 9, 7, 24))), b(ToBlock(RandomDib(rng, 5, 4, 24)));
    for (int32_t seam : {0, 2}) {
        ProgressRecorder progress;
        HandleGuard out(RunPanorama(a.h, b.h, seam, Points{1, 1, 5, 1, 0, 0, 2, 0}, 6));
        ASSERT_NE(out.h, nullptr);
        // Ratio 2: four row runs of the second picture, then the paste's rows.
        ASSERT_GT(progress.calls.size(), 4u);
        for (size_t i = 0; i < progress.calls.size(); ++i) {
            const ProgressCall &c = progress.calls[i];
            EXPECT_EQ(c.noDialog, 6);
            if (i < 4) {
                EXPECT_EQ(c.current, static_cast<int32_t>(i));
                EXPECT_EQ(c.total, 3);
                EXPECT_EQ(c.low, 0);
                EXPECT_EQ(c.high, 50);
            } else {
                EXPECT_GE(c.low, 51);
                EXPECT_LE(c.high, 100);
            }
        }
        EXPECT_EQ(progress.calls.back().high, 100);
    }
}

TEST(TZ3Panorama, ACancelAtAnyProgressCallLeavesNothingWithStatusOne) {
    std::mt19937 rng(905);
    const auto first = RandomDib(rng, 9, 7, 24), second = RandomDib(rng, 5, 4, 24);
    HandleGuard a(ToBlock(first)), b(ToBlock(second));
    for (int32_t seam : {0, 1}) {
        const Points p{1, 1, 5, 1, 0, 0, 2, 0};
        size_t calls = 0;
        {
            ProgressRecorder progress;
            HandleGuard out(RunPanorama(a.h, b.h, seam, p));
            calls = progress.calls.size();
        }
        ASSERT_GT(calls, 4u);
        const size_t live = Tz3LiveBlocks();
        for (size_t at = 0; at < calls; ++at) {
            ProgressRecorder progress(static_cast<long>(at));
            EXPECT_EQ(RunPanorama(a.h, b.h, seam, p), nullptr);
            EXPECT_EQ(Tz3GetErrorStatus(), 1);
            EXPECT_EQ(progress.calls.size(), at + 1);
            EXPECT_EQ(Tz3LiveBlocks(), live) << "cancel at " << at;
        }
        ExpectCallerBlocksUnchanged(a.h, first);
        ExpectCallerBlocksUnchanged(b.h, second);
    }
}

TEST(TZ3Panorama, AFailedAllocationLeavesNothingWithStatusThreeOrTwoForTheSeam) {
    std::mt19937 rng(906);
    const auto first = RandomDib(rng, 9, 7, 24), second = RandomDib(rng, 5, 4, 24);
    HandleGuard a(ToBlock(first)), b(ToBlock(second));
    const Points p{1, 5, 5, 1, 0, 0, 3, 3};
    long plain = 0, seamed = 0;
    {
        FailingAllocator counter;
        HandleGuard out(RunPanorama(a.h, b.h, 0, p));
        ASSERT_NE(out.h, nullptr);
        plain = counter.count;
    }
    {
        FailingAllocator counter;
        HandleGuard out(RunPanorama(a.h, b.h, 2, p));
        ASSERT_NE(out.h, nullptr);
        seamed = counter.count;
    }
    // The seam's mask and the fill's working memory come first, and their failure is a drawing
    // failure; the resize also makes a mask beside the image.
    EXPECT_EQ(seamed, plain + 3);
    const size_t live = Tz3LiveBlocks();
    for (int32_t seam : {0, 2}) {
        const long total = seam == 0 ? plain : seamed;
        for (long at = 0; at < total; ++at) {
            FailingAllocator failing(at);
            EXPECT_EQ(RunPanorama(a.h, b.h, seam, p), nullptr);
            EXPECT_EQ(Tz3GetErrorStatus(), seam != 0 && at < 2 ? 2 : 3)
                << "seam " << seam << ", allocation " << at;
            EXPECT_EQ(Tz3LiveBlocks(), live);
        }
    }
    ExpectCallerBlocksUnchanged(a.h, first);
    ExpectCallerBlocksUnchanged(b.h, second);
}

TEST(TZ3Panorama, ADialogThatCannotOpenGivesStatusTwoAndNoWork) {
    HandleGuard a(ToBlock(MakeDibBytes(6, 6, 24)));
    DialogRecorder dialog(true);
    ProgressRecorder progress;
    EXPECT_EQ(RunPanorama(a.h, a.h, 0, Points{0, 0, 3, 0, 0, 0, 3, 0}, 0), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 2);
    EXPECT_TRUE(progress.calls.empty());
    EXPECT_EQ(dialog.opens, 1);
    EXPECT_EQ(dialog.closes, 0);
}

TEST(TZ3Panorama, OpensAndClosesTheDialogOnce) {
    HandleGuard a(ToBlock(MakeDibBytes(6, 6, 24)));
    DialogRecorder dialog;
    HandleGuard out(TZ3Panorama(a.h, a.h, 1, 0, 0, 3, 0, 0, 0, 3, 0, 0, 0, 0, 0, 4, 5, 6));
    EXPECT_NE(out.h, nullptr);
    EXPECT_EQ(dialog.opens, 1);
    EXPECT_EQ(dialog.closes, 1);
    EXPECT_EQ(dialog.b, 5);
}

}  // namespace
