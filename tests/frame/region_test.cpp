// Regions and masks: the clipping helpers, the mask maker, the inversion, and region resolution as
// the first operation (TZ3RGBRev) meets it.
#include "frame/region.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "platform/companion.h"
#include "platform/raster.h"
#include "support/test_images.h"
#include "tz3effect.h"

namespace {

using tz3test::FromBlock;
using tz3test::HandleGuard;
using tz3test::MakeDibBytes;
using tz3test::ToBlock;

uint32_t Get32(const std::vector<uint8_t> &d, size_t at) {
    uint32_t v;
    std::memcpy(&v, &d[at], 4);
    return v;
}
uint16_t Get16(const std::vector<uint8_t> &d, size_t at) {
    uint16_t v;
    std::memcpy(&v, &d[at], 2);
    return v;
}

// ---- CheckMaskFits ----

TEST(MaskFits, SameSizeOneBitMaskFits) {
    const auto image = MakeDibBytes(13, 6, 24);
    const auto mask = MakeDibBytes(13, 6, 1);
    tz3::SetErrorStatus(0);
    EXPECT_EQ(tz3::CheckMaskFits(image.data(), mask.data()), 1);
    EXPECT_EQ(Tz3GetErrorStatus(), 0);
}

TEST(MaskFits, OtherWidthHeightOrDepthIsStatus7) {
    const auto image = MakeDibBytes(13, 6, 24);
    const std::vector<uint8_t> misfits[] = {MakeDibBytes(12, 6, 1), MakeDibBytes(13, 7, 1), MakeDibBytes(13, 6, 8),
                                            MakeDibBytes(13, 6, 4), MakeDibBytes(6, 13, 1)};
    for (const auto &mask : misfits) {
        tz3::SetErrorStatus(0);
        EXPECT_EQ(tz3::CheckMaskFits(image.data(), mask.data()), 0);
        EXPECT_EQ(Tz3GetErrorStatus(), 7);
    }
}

// ---- ClipPolygon ----

struct Box {
    int32_t x0, y0, x1, y1;
};

// The box comes in empty: x0 = maxX, y0 = maxY, x1 = 0, y1 = 0.
tz3::OwnedBlock Clip(const Tz3Point *points, int32_t count, int32_t maxX, int32_t maxY, int32_t inside, Box &box) {
    box = Box{maxX, maxY, 0, 0};
    return tz3::ClipPolygon(points, count, maxX, maxY, &box.x0, &box.y0, &box.x1, &box.y1, inside);
}

TEST(ClipPolygon, FewerThanTwoPointsIsStatus5) {
    const Tz3Point points[2] = {{1, 1}, {2, 2}};
    const size_t before = Tz3LiveBlocks();
    for (int32_t count : {1, 0, -5, INT32_MIN}) {
        Box box{};
        tz3::SetErrorStatus(0);
        tz3::OwnedBlock copy = Clip(points, count, 9, 7, 1, box);
        EXPECT_FALSE(copy) << count;
        EXPECT_EQ(Tz3GetErrorStatus(), 5) << count;
    }
    EXPECT_EQ(Tz3LiveBlocks(), before);
}

TEST(ClipPolygon, NullPointsIsStatus5) {
    Box box{};
    tz3::SetErrorStatus(0);
    tz3::OwnedBlock copy = Clip(nullptr, 3, 9, 7, 1, box);
    EXPECT_FALSE(copy);
    EXPECT_EQ(Tz3GetErrorStatus(), 5);
}

TEST(ClipPolygon, EachCoordinateIsClampedOnItsOwn) {
    const Tz3Point points[] = {{-3, 4}, {12, -2}, {5, 20}, {-1, -1}, {10, 8}, {4, 3}};
    Box box{};
    tz3::OwnedBlock copy = Clip(points, 6, 9, 7, 0, box);
    ASSERT_TRUE(copy);
    const auto *out = reinterpret_cast<const Tz3Point *>(copy.bytes());
    const Tz3Point expected[] = {{0, 4}, {9, 0}, {5, 7}, {0, 0}, {9, 7}, {4, 3}};
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(out[i].x, expected[i].x) << i;
        EXPECT_EQ(out[i].y, expected[i].y) << i;
    }
    EXPECT_EQ(Tz3GlobalSize(copy.handle()), 6 * sizeof(Tz3Point));
}

TEST(ClipPolygon, OutsideTheShapeTheBoxIsTheWholeImageAndPointsStay) {
    const Tz3Point points[] = {{2, 1}, {6, 3}, {4, 5}};
    Box box{};
    tz3::OwnedBlock copy = Clip(points, 3, 9, 7, 0, box);
    ASSERT_TRUE(copy);
    EXPECT_EQ(box.x0, 0);
    EXPECT_EQ(box.y0, 0);
    EXPECT_EQ(box.x1, 9);
    EXPECT_EQ(box.y1, 7);
    const auto *out = reinterpret_cast<const Tz3Point *>(copy.bytes());
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(out[i].x, points[i].x);
        EXPECT_EQ(out[i].y, points[i].y);
    }
}

TEST(ClipPolygon, InsideMovesPointsByTheBoxCornerAndFlipsTheBoxToBottomUpRows) {
    // Picture box x 2..6, y 1..5 on a 10 x 8 image; rows from the bottom: 7 - 5 = 2 to 7 - 1 = 6.
    const Tz3Point points[] = {{2, 1}, {6, 3}, {4, 5}};
    Box box{};
    tz3::OwnedBlock copy = Clip(points, 3, 9, 7, 1, box);
    ASSERT_TRUE(copy);
    EXPECT_EQ(box.x0, 2);
    EXPECT_EQ(box.y0, 2);
    EXPECT_EQ(box.x1, 6);
    EXPECT_EQ(box.y1, 6);
    const auto *out = reinterpret_cast<const Tz3Point *>(copy.bytes());
    const Tz3Point expected[] = {{0, 0}, {4, 2}, {2, 4}};
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(out[i].x, expected[i].x) << i;
        EXPECT_EQ(out[i].y, expected[i].y) << i;
    }
}

TEST(ClipPolygon, InsideWithClampedPointsUsesTheClampedBox) {
    // Clamped: (0, 6), (9, 3), (5, 7): picture box x 0..9, y 3..7; rows 0..4.
    const Tz3Point points[] = {{-4, 6}, {15, 3}, {5, 11}};
    Box box{};
    tz3::OwnedBlock copy = Clip(points, 3, 9, 7, 1, box);
    ASSERT_TRUE(copy);
    EXPECT_EQ(box.x0, 0);
    EXPECT_EQ(box.y0, 0);
    EXPECT_EQ(box.x1, 9);
    EXPECT_EQ(box.y1, 4);
    const auto *out = reinterpret_cast<const Tz3Point *>(copy.bytes());
    const Tz3Point expected[] = {{0, 3}, {9, 0}, {5, 4}};
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(out[i].x, expected[i].x) << i;
        EXPECT_EQ(out[i].y, expected[i].y) << i;
    }
}

TEST(ClipPolygon, InsideAllPointsOutsideDegeneratesToAnEdgeLine) {
    const Tz3Point points[] = {{20, -5}, {30, -1}};  // both onto (9, 0)
    Box box{};
    tz3::OwnedBlock copy = Clip(points, 2, 9, 7, 1, box);
    ASSERT_TRUE(copy);
    EXPECT_EQ(box.x0, 9);
    EXPECT_EQ(box.x1, 9);
    EXPECT_EQ(box.y0, 7);
    EXPECT_EQ(box.y1, 7);
}

TEST(ClipPolygon, CopyIsLockedAndFoundByItsFirstByte) {
    const Tz3Point points[] = {{1, 1}, {2, 2}};
    Box box{};
    tz3::OwnedBlock copy = Clip(points, 2, 9, 7, 1, box);
    ASSERT_TRUE(copy);
    EXPECT_EQ(Tz3GlobalHandle(copy.bytes()), copy.handle());
}

TEST(ClipPolygon, CountWhoseCopyPassesTheBlockLimitIsStatus3) {
    // 0x10000000 points of 8 bytes are 2 GiB: refused before any point is read.
    const Tz3Point points[2] = {{1, 1}, {2, 2}};
    const size_t before = Tz3LiveBlocks();
    for (int32_t count : {0x10000000, INT32_MAX}) {
        Box box{};
        tz3::SetErrorStatus(0);
        tz3::OwnedBlock copy = Clip(points, count, 9, 7, 1, box);
        EXPECT_FALSE(copy) << count;
        EXPECT_EQ(Tz3GetErrorStatus(), 3) << count;
    }
    EXPECT_EQ(Tz3LiveBlocks(), before);
}

TEST(ClipPolygon, AllocationFailureIsStatus3AndLeavesNoBlock) {
    const Tz3Point points[] = {{1, 1}, {2, 2}, {3, 1}};
    const size_t before = Tz3LiveBlocks();
    {
        tz3test::FailingAllocator failing(0);
        Box box{};
        tz3::SetErrorStatus(0);
        tz3::OwnedBlock copy = Clip(points, 3, 9, 7, 1, box);
        EXPECT_FALSE(copy);
        EXPECT_EQ(Tz3GetErrorStatus(), 3);
        EXPECT_EQ(failing.count, 1);
    }
    EXPECT_EQ(Tz3LiveBlocks(), before);
}

// ---- ClipRectCorners ----

struct RectCase {
    Tz3Rect in;
    int32_t inside;
    Box box;
    Tz3Rect draw;
};

void ExpectRect(const RectCase &c, int32_t maxX, int32_t maxY) {
    Box box{-99, -99, -99, -99};
    const Tz3Rect draw = tz3::ClipRectCorners(c.in.left, c.in.top, c.in.right, c.in.bottom, maxX, maxY, &box.x0,
                                              &box.y0, &box.x1, &box.y1, c.inside);
    EXPECT_EQ(box.x0, c.box.x0);
    EXPECT_EQ(box.y0, c.box.y0);
    EXPECT_EQ(box.x1, c.box.x1);
    EXPECT_EQ(box.y1, c.box.y1);
    EXPECT_EQ(draw.left, c.draw.left);
    EXPECT_EQ(draw.top, c.draw.top);
    EXPECT_EQ(draw.right, c.draw.right);
    EXPECT_EQ(draw.bottom, c.draw.bottom);
}

TEST(ClipRectCorners, OutsideTheShapeBoxIsWholeImageAndRectStaysInPictureCoordinates) {
    ExpectRect({{2, 1, 8, 6}, 0, {0, 0, 9, 7}, {2, 1, 8, 6}}, 9, 7);
}

TEST(ClipRectCorners, InsideBoxIsFlippedAndRectStartsAtZero) {
    // Rows from the bottom: 7 - 6 = 1 to 7 - 1 = 6.
    ExpectRect({{2, 1, 8, 6}, 1, {2, 1, 8, 6}, {0, 0, 6, 5}}, 9, 7);
    ExpectRect({{1, 2, 5, 6}, 1, {1, 1, 5, 5}, {0, 0, 4, 4}}, 9, 7);
    ExpectRect({{0, 0, 3, 1}, 1, {0, 6, 3, 7}, {0, 0, 3, 1}}, 9, 7);
}

TEST(ClipRectCorners, ReversedCornersAreSwapped) {
    ExpectRect({{8, 6, 2, 1}, 0, {0, 0, 9, 7}, {2, 1, 8, 6}}, 9, 7);
    ExpectRect({{8, 6, 2, 1}, 1, {2, 1, 8, 6}, {0, 0, 6, 5}}, 9, 7);
    ExpectRect({{8, 1, 2, 6}, 1, {2, 1, 8, 6}, {0, 0, 6, 5}}, 9, 7);
}

TEST(ClipRectCorners, EachCornerIsClampedBeforeOrdering) {
    ExpectRect({{-5, -3, 20, 30}, 1, {0, 0, 9, 7}, {0, 0, 9, 7}}, 9, 7);
    ExpectRect({{20, 30, -5, -3}, 0, {0, 0, 9, 7}, {0, 0, 9, 7}}, 9, 7);
    ExpectRect({{3, -2, 12, 4}, 1, {3, 3, 9, 7}, {0, 0, 6, 4}}, 9, 7);
}

TEST(ClipRectCorners, WhollyOutsideClampsToAnEdgeLine) {
    // Right of the image: column 9, picture rows 2..5, rows from the bottom 2..5.
    ExpectRect({{12, 2, 15, 5}, 1, {9, 2, 9, 5}, {0, 0, 0, 3}}, 9, 7);
    ExpectRect({{12, 2, 15, 5}, 0, {0, 0, 9, 7}, {9, 2, 9, 5}}, 9, 7);
    // Above the image: picture row 0, which is row 7 from the bottom.
    ExpectRect({{2, -10, 5, -3}, 1, {2, 7, 5, 7}, {0, 0, 3, 0}}, 9, 7);
    // Below and to the left: the bottom-left corner pixel.
    ExpectRect({{-9, 40, -2, 50}, 1, {0, 0, 0, 0}, {0, 0, 0, 0}}, 9, 7);
}

TEST(ClipRectCorners, ANullRectangleIsOneCornerPixel) {
    ExpectRect({{0, 0, 0, 0}, 1, {0, 7, 0, 7}, {0, 0, 0, 0}}, 9, 7);
}

// ---- ClampFourCoords ----

TEST(ClampFourCoords, EachValueIsClampedOnItsOwnWithoutOrdering) {
    const auto dib = MakeDibBytes(10, 8, 24);
    int32_t p = -1, q = 8, r = 10, s = -100;
    tz3::ClampFourCoords(dib.data(), &p, &q, &r, &s);
    EXPECT_EQ(p, 0);
    EXPECT_EQ(q, 7);
    EXPECT_EQ(r, 9);
    EXPECT_EQ(s, 0);
    p = 7, q = 6, r = 2, s = 1;
    tz3::ClampFourCoords(dib.data(), &p, &q, &r, &s);
    EXPECT_EQ(p, 7);
    EXPECT_EQ(q, 6);
    EXPECT_EQ(r, 2);
    EXPECT_EQ(s, 1);
    p = INT32_MIN, q = INT32_MAX, r = INT32_MAX, s = INT32_MIN;
    tz3::ClampFourCoords(dib.data(), &p, &q, &r, &s);
    EXPECT_EQ(p, 0);
    EXPECT_EQ(q, 7);
    EXPECT_EQ(r, 9);
    EXPECT_EQ(s, 0);
}

TEST(ClampFourCoords, XUsesWidthAndYUsesHeight) {
    const auto dib = MakeDibBytes(3, 20, 8);
    int32_t p = 15, q = 15, r = 15, s = 15;
    tz3::ClampFourCoords(dib.data(), &p, &q, &r, &s);
    EXPECT_EQ(p, 2);
    EXPECT_EQ(q, 15);
    EXPECT_EQ(r, 2);
    EXPECT_EQ(s, 15);
}

TEST(ClampFourCoords, LowerClampComesFirstSoAnEmptyImageGivesMinusOne) {
    const auto dib = MakeDibBytes(0, 0, 24);
    int32_t p = -5, q = 5, r = 0, s = -1;
    tz3::ClampFourCoords(dib.data(), &p, &q, &r, &s);
    EXPECT_EQ(p, -1);
    EXPECT_EQ(q, -1);
    EXPECT_EQ(r, -1);
    EXPECT_EQ(s, -1);
}

// ---- MakeRegionMask and InvertMaskBits ----

TEST(MakeRegionMask, HeadIsExactlyTheMaskLayout) {
    const size_t before = Tz3LiveBlocks();
    HandleGuard mask(tz3::MakeRegionMask(13, 5, 1, nullptr, 0, 0, 0, 0, 0, 1));
    ASSERT_NE(mask.h, nullptr);
    EXPECT_EQ(Tz3LiveBlocks(), before + 1);
    EXPECT_EQ(Tz3GlobalSize(mask.h), 48u + 4u * 5u);
    ASSERT_NE(Tz3GlobalLock(mask.h), nullptr);
    EXPECT_EQ(Tz3GlobalUnlock(mask.h), 0);  // handed out unlocked
    const auto m = FromBlock(mask.h);
    EXPECT_EQ(Get32(m, 0), 40u);
    EXPECT_EQ(Get32(m, 4), 13u);
    EXPECT_EQ(Get32(m, 8), 5u);
    EXPECT_EQ(Get16(m, 12), 1u);
    EXPECT_EQ(Get16(m, 14), 1u);
    EXPECT_EQ(Get32(m, 16), 0u);
    EXPECT_EQ(Get32(m, 20), 20u);
    EXPECT_EQ(Get32(m, 24), 0u);
    EXPECT_EQ(Get32(m, 28), 0u);
    EXPECT_EQ(Get32(m, 32), 0u);
    EXPECT_EQ(Get32(m, 36), 0u);
    const uint8_t black[4] = {0, 0, 0, 0};
    const uint8_t white[4] = {255, 255, 255, 0};
    EXPECT_EQ(std::memcmp(&m[40], black, 4), 0);
    EXPECT_EQ(std::memcmp(&m[44], white, 4), 0);
    for (size_t i = 48; i < m.size(); ++i) EXPECT_EQ(m[i], 0) << i;
}

TEST(MakeRegionMask, SizeIsStrideTimesHeightPlusHead) {
    const struct {
        int32_t w, h;
        size_t bytes;
    } cases[] = {{1, 1, 52}, {32, 2, 56}, {33, 3, 72}, {64, 1, 56}, {65, 2, 72}};
    for (const auto &c : cases) {
        HandleGuard mask(tz3::MakeRegionMask(c.w, c.h, 1, nullptr, 0, 0, 0, 0, 0, 1));
        ASSERT_NE(mask.h, nullptr);
        EXPECT_EQ(Tz3GlobalSize(mask.h), c.bytes) << c.w << " x " << c.h;
        EXPECT_EQ(Get32(FromBlock(mask.h), 20), c.bytes - 48) << c.w << " x " << c.h;
    }
}

TEST(MakeRegionMask, OutsideInvertsEveryBitIncludingPadBits) {
    for (int32_t width : {1, 13, 32, 33, 40, 65}) {
        for (uint8_t kind : {uint8_t{1}, uint8_t{0}, uint8_t{7}}) {
            HandleGuard mask(tz3::MakeRegionMask(width, 3, kind, nullptr, 0, 0, 0, 0, 0, 0));
            ASSERT_NE(mask.h, nullptr);
            const auto m = FromBlock(mask.h);
            ASSERT_EQ(m.size(), 48u + static_cast<size_t>(tz3test::RowBytes(1, width)) * 3);
            for (size_t i = 48; i < m.size(); ++i) EXPECT_EQ(m[i], 0xFF) << "width " << width << " byte " << i;
            // The head is not touched by the inversion.
            EXPECT_EQ(m[44], 255);
            EXPECT_EQ(m[40], 0);
        }
    }
}

TEST(MakeRegionMask, AnyInsideBitCounts) {
    for (int32_t inside : {1, 256, 0x10000, INT32_MIN, -1}) {
        HandleGuard mask(tz3::MakeRegionMask(9, 2, 1, nullptr, 0, 0, 0, 0, 0, inside));
        ASSERT_NE(mask.h, nullptr);
        const auto m = FromBlock(mask.h);
        for (size_t i = 48; i < m.size(); ++i) EXPECT_EQ(m[i], 0) << inside;
    }
}

TEST(MakeRegionMask, NonPositiveSizeIsStatus5) {
    const size_t before = Tz3LiveBlocks();
    const int32_t sizes[][2] = {{0, 3}, {3, 0}, {-1, 3}, {3, -7}};
    for (const auto &s : sizes) {
        tz3::SetErrorStatus(0);
        EXPECT_EQ(tz3::MakeRegionMask(s[0], s[1], 1, nullptr, 0, 0, 0, 0, 0, 1), nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 5);
    }
    EXPECT_EQ(Tz3LiveBlocks(), before);
}

TEST(MakeRegionMask, SizeAboveTheBlockLimitIsStatus3) {
    const size_t before = Tz3LiveBlocks();
    tz3::SetErrorStatus(0);
    EXPECT_EQ(tz3::MakeRegionMask(1, 0x7FFFFFFF, 1, nullptr, 0, 0, 0, 0, 0, 1), nullptr);  // 8 GiB
    EXPECT_EQ(Tz3GetErrorStatus(), 3);
    tz3::SetErrorStatus(0);
    EXPECT_EQ(tz3::MakeRegionMask(0x7FFFFFFF, 16, 1, nullptr, 0, 0, 0, 0, 0, 1), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 3);
    EXPECT_EQ(Tz3LiveBlocks(), before);
}

TEST(MakeRegionMask, AllocationFailureIsStatus3AndLeavesNoBlock) {
    const size_t before = Tz3LiveBlocks();
    {
        tz3test::FailingAllocator failing(0);
        tz3::SetErrorStatus(0);
        EXPECT_EQ(tz3::MakeRegionMask(10, 10, 1, nullptr, 0, 0, 0, 0, 0, 0), nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 3);
        EXPECT_EQ(failing.count, 1);
    }
    EXPECT_EQ(Tz3LiveBlocks(), before);
}

TEST(InvertMaskBits, ComplementsWholeWordsOfEachRow) {
    std::mt19937 rng(3);
    for (int32_t width : {1, 13, 32, 33, 65}) {
        const auto original = tz3test::RandomMask(rng, width, 4);
        HandleGuard mask(ToBlock(original));
        const int32_t stride = static_cast<int32_t>(tz3test::RowBytes(1, width));
        EXPECT_EQ(tz3::InvertMaskBits(mask.h, stride), 1);
        const auto once = FromBlock(mask.h);
        for (size_t i = 0; i < 48; ++i) EXPECT_EQ(once[i], original[i]) << i;
        for (size_t i = 48; i < once.size(); ++i) {
            EXPECT_EQ(once[i], static_cast<uint8_t>(~original[i])) << "width " << width << " byte " << i;
        }
        EXPECT_EQ(tz3::InvertMaskBits(mask.h, stride), 1);
        EXPECT_EQ(FromBlock(mask.h), original) << width;
    }
}

TEST(InvertMaskBits, LeavesTheBlockUnlocked) {
    HandleGuard mask(ToBlock(MakeDibBytes(8, 2, 1)));
    EXPECT_EQ(tz3::InvertMaskBits(mask.h, 4), 1);
    ASSERT_NE(Tz3GlobalLock(mask.h), nullptr);
    EXPECT_EQ(Tz3GlobalUnlock(mask.h), 0);
}

TEST(InvertMaskBits, ImageWithoutRowsIsLeftAlone) {
    auto bytes = MakeDibBytes(8, 0, 1);
    bytes.resize(bytes.size() + 8, 0x5A);
    HandleGuard mask(ToBlock(bytes));
    EXPECT_EQ(tz3::InvertMaskBits(mask.h, 4), 1);
    EXPECT_EQ(FromBlock(mask.h), bytes);
}

TEST(InvertMaskBits, NullHandleGivesZero) { EXPECT_EQ(tz3::InvertMaskBits(nullptr, 4), 0); }

// ---- ResolveRegion directly: boxes and mask sizes ----

tz3::RegionArgs Args(uint8_t kind, const Tz3Point *points, int32_t count, Tz3Rect rect, int32_t inside,
                     DibHandle mask = nullptr) {
    tz3::RegionArgs a{};
    a.kind = kind;
    a.points = points;
    a.count = count;
    a.rect = rect;
    a.inside = inside;
    a.mask = mask;
    return a;
}

void ExpectBox(const tz3::RegionBox &b, int32_t x0, int32_t y0, int32_t x1, int32_t y1) {
    EXPECT_EQ(b.x0, x0);
    EXPECT_EQ(b.y0, y0);
    EXPECT_EQ(b.x1, x1);
    EXPECT_EQ(b.y1, y1);
}

TEST(ResolveRegion, WholeImageHasNoMask) {
    const auto dib = MakeDibBytes(10, 8, 24);
    tz3::ResolvedRegion r;
    ASSERT_TRUE(tz3::ResolveRegion(dib.data(), Args(1, nullptr, 0, {}, 0), r));
    ExpectBox(r.box, 0, 0, 9, 7);
    EXPECT_EQ(r.mask.bits, nullptr);
}

TEST(ResolveRegion, CallersMaskIsIndexedLikeTheImage) {
    const auto dib = MakeDibBytes(10, 8, 24);
    HandleGuard mask(ToBlock(MakeDibBytes(10, 8, 1)));
    tz3::ResolvedRegion r;
    ASSERT_TRUE(tz3::ResolveRegion(dib.data(), Args(0, nullptr, 0, {}, 1, mask.h), r));
    ExpectBox(r.box, 0, 0, 9, 7);
    EXPECT_EQ(r.mask.stride, 4);
    const auto *locked = static_cast<const uint8_t *>(Tz3GlobalLock(mask.h));
    EXPECT_EQ(r.mask.bits, locked + 48);
    Tz3GlobalUnlock(mask.h);
}

TEST(ResolveRegion, PolygonInsideGivesFlippedBoxAndMaskOfItsSize) {
    const auto dib = MakeDibBytes(10, 8, 24);
    const Tz3Point points[] = {{2, 1}, {6, 3}, {4, 5}};
    tz3::ResolvedRegion r;
    ASSERT_TRUE(tz3::ResolveRegion(dib.data(), Args(2, points, 3, {}, 1), r));
    ExpectBox(r.box, 2, 2, 6, 6);
    ASSERT_NE(r.mask.bits, nullptr);
    EXPECT_EQ(r.mask.stride, 4);
    const uint8_t *head = r.mask.bits - 48;
    EXPECT_EQ(tz3::DibWidth(head), 5);
    EXPECT_EQ(tz3::DibHeight(head), 5);
}

TEST(ResolveRegion, PolygonOutsideGivesWholeImageAndMaskOfItsSize) {
    const auto dib = MakeDibBytes(10, 8, 24);
    const Tz3Point points[] = {{2, 1}, {6, 3}, {4, 5}};
    tz3::ResolvedRegion r;
    ASSERT_TRUE(tz3::ResolveRegion(dib.data(), Args(2, points, 3, {}, 0), r));
    ExpectBox(r.box, 0, 0, 9, 7);
    const uint8_t *head = r.mask.bits - 48;
    EXPECT_EQ(tz3::DibWidth(head), 10);
    EXPECT_EQ(tz3::DibHeight(head), 8);
}

TEST(ResolveRegion, EllipseInsideGivesFlippedBoxAndMaskOfItsSize) {
    const auto dib = MakeDibBytes(10, 8, 24);
    tz3::ResolvedRegion r;
    ASSERT_TRUE(tz3::ResolveRegion(dib.data(), Args(3, nullptr, 0, {5, 6, 1, 2}, 1), r));
    ExpectBox(r.box, 1, 1, 5, 5);
    const uint8_t *head = r.mask.bits - 48;
    EXPECT_EQ(tz3::DibWidth(head), 5);
    EXPECT_EQ(tz3::DibHeight(head), 5);
}

TEST(ResolveRegion, BlocksEndWithTheResolvedRegion) {
    const auto dib = MakeDibBytes(10, 8, 24);
    const Tz3Point points[] = {{2, 1}, {6, 3}, {4, 5}};
    const size_t before = Tz3LiveBlocks();
    {
        tz3::ResolvedRegion r;
        ASSERT_TRUE(tz3::ResolveRegion(dib.data(), Args(2, points, 3, {}, 1), r));
        EXPECT_EQ(Tz3LiveBlocks(), before + 2);  // the clipped points and the mask
    }
    EXPECT_EQ(Tz3LiveBlocks(), before);
}

// ---- Region resolution through TZ3RGBRev ----

// Reverses all three channels with no dialog.
DibHandle RevAll(DibHandle image, int32_t kind, const Tz3Point *points, int32_t count, const Tz3Rect *rect,
                 int32_t inside, DibHandle mask = nullptr) {
    const DibPair pair{image, mask};
    return TZ3RGBRev(&pair, kind, points, count, rect, inside, 1, 1, 1, 1, 0, 0, 0);
}

// A seeded 24-bit image with no byte 127 or 128, so a reversed pixel differs in every byte.
std::vector<uint8_t> Image24(int width, int height, unsigned seed = 5) {
    std::mt19937 rng(seed);
    return tz3test::RandomDib(rng, width, height, 24);
}

size_t Offset24(int width, int x, int row) {
    return 40 + static_cast<size_t>(tz3test::RowBytes(24, width)) * static_cast<size_t>(row) + 3 * static_cast<size_t>(x);
}

// Which pixels of a 24-bit result are reversed (by rows from the bottom); every other pixel must be
// the source's exactly.
std::vector<std::vector<bool>> Reversed24(const std::vector<uint8_t> &src, const std::vector<uint8_t> &out, int width,
                                          int height) {
    std::vector<std::vector<bool>> changed(static_cast<size_t>(height), std::vector<bool>(static_cast<size_t>(width)));
    for (int row = 0; row < height; ++row) {
        for (int x = 0; x < width; ++x) {
            const size_t at = Offset24(width, x, row);
            bool same = true, reversed = true;
            for (size_t k = 0; k < 3; ++k) {
                same = same && out[at + k] == src[at + k];
                reversed = reversed && out[at + k] == static_cast<uint8_t>(255 - src[at + k]);
            }
            EXPECT_TRUE(same || reversed) << "pixel " << x << ", row " << row;
            changed[static_cast<size_t>(row)][static_cast<size_t>(x)] = reversed && !same;
        }
    }
    return changed;
}

void ExpectFailsWith(DibHandle result, int32_t status) {
    EXPECT_EQ(result, nullptr);
    if (result != nullptr) Tz3GlobalFree(result);
    EXPECT_EQ(Tz3GetErrorStatus(), status);
}

TEST(RegionResolution, CallersMaskNullIsStatus7) {
    HandleGuard image(ToBlock(Image24(6, 4)));
    const size_t before = Tz3LiveBlocks();
    ExpectFailsWith(RevAll(image.h, 0, nullptr, 0, nullptr, 1, nullptr), 7);
    EXPECT_EQ(Tz3LiveBlocks(), before);
}

TEST(RegionResolution, CallersMaskOfWrongSizeIsStatus7) {
    HandleGuard image(ToBlock(Image24(6, 4)));
    HandleGuard wide(ToBlock(MakeDibBytes(7, 4, 1)));
    HandleGuard tall(ToBlock(MakeDibBytes(6, 5, 1)));
    ExpectFailsWith(RevAll(image.h, 0, nullptr, 0, nullptr, 1, wide.h), 7);
    ExpectFailsWith(RevAll(image.h, 0, nullptr, 0, nullptr, 1, tall.h), 7);
}

TEST(RegionResolution, CallersMaskOfEightBitsIsStatus7) {
    HandleGuard image(ToBlock(Image24(6, 4)));
    HandleGuard mask(ToBlock(MakeDibBytes(6, 4, 8)));
    ExpectFailsWith(RevAll(image.h, 0, nullptr, 0, nullptr, 1, mask.h), 7);
}

TEST(RegionResolution, CallersMaskInATooShortBlockIsStatus7) {
    HandleGuard image(ToBlock(Image24(6, 4)));
    auto bytes = MakeDibBytes(6, 4, 1);
    bytes.pop_back();
    HandleGuard mask(ToBlock(bytes));
    const size_t before = Tz3LiveBlocks();
    ExpectFailsWith(RevAll(image.h, 0, nullptr, 0, nullptr, 1, mask.h), 7);
    EXPECT_EQ(Tz3LiveBlocks(), before);
    // The caller's mask is left unlocked.
    ASSERT_NE(Tz3GlobalLock(mask.h), nullptr);
    EXPECT_EQ(Tz3GlobalUnlock(mask.h), 0);
}

TEST(RegionResolution, CallersMaskSelectsExactlyItsSetPixels) {
    std::mt19937 rng(21);
    const int w = 13, h = 6;
    const auto src = Image24(w, h);
    auto maskBytes = tz3test::RandomMask(rng, w, h);
    HandleGuard image(ToBlock(src));
    HandleGuard mask(ToBlock(maskBytes));
    HandleGuard out(RevAll(image.h, 0, nullptr, 0, nullptr, 1, mask.h));
    ASSERT_NE(out.h, nullptr);
    const auto changed = Reversed24(src, FromBlock(out.h), w, h);
    for (int row = 0; row < h; ++row) {
        for (int x = 0; x < w; ++x) {
            EXPECT_EQ(changed[static_cast<size_t>(row)][static_cast<size_t>(x)], tz3test::MaskBit(maskBytes, x, row))
                << x << ", " << row;
        }
    }
    // The caller's image and mask are unchanged and unlocked.
    EXPECT_EQ(FromBlock(image.h), src);
    EXPECT_EQ(FromBlock(mask.h), maskBytes);
    ASSERT_NE(Tz3GlobalLock(mask.h), nullptr);
    EXPECT_EQ(Tz3GlobalUnlock(mask.h), 0);
}

TEST(RegionResolution, CallersMaskTableIsNotConsulted) {
    std::mt19937 rng(22);
    const int w = 9, h = 3;
    const auto src = Image24(w, h);
    auto maskBytes = tz3test::RandomMask(rng, w, h);
    // Entry 0 white, entry 1 black: the bits alone decide.
    maskBytes[40] = maskBytes[41] = maskBytes[42] = 255;
    maskBytes[44] = maskBytes[45] = maskBytes[46] = 0;
    HandleGuard image(ToBlock(src));
    HandleGuard mask(ToBlock(maskBytes));
    HandleGuard out(RevAll(image.h, 0, nullptr, 0, nullptr, 0, mask.h));
    ASSERT_NE(out.h, nullptr);
    const auto changed = Reversed24(src, FromBlock(out.h), w, h);
    for (int row = 0; row < h; ++row) {
        for (int x = 0; x < w; ++x) {
            EXPECT_EQ(changed[static_cast<size_t>(row)][static_cast<size_t>(x)], tz3test::MaskBit(maskBytes, x, row));
        }
    }
}

TEST(RegionResolution, CallersMaskOnThirtyTwoBitsKeepsTheFourthByte) {
    std::mt19937 rng(23);
    const int w = 5, h = 3;
    const auto src = tz3test::RandomDib(rng, w, h, 32);
    const auto maskBytes = tz3test::RandomMask(rng, w, h);
    HandleGuard image(ToBlock(src));
    HandleGuard mask(ToBlock(maskBytes));
    HandleGuard out(RevAll(image.h, 0, nullptr, 0, nullptr, 1, mask.h));
    ASSERT_NE(out.h, nullptr);
    const auto o = FromBlock(out.h);
    for (int row = 0; row < h; ++row) {
        for (int x = 0; x < w; ++x) {
            const size_t at = 40 + static_cast<size_t>(row) * 20 + 4 * static_cast<size_t>(x);
            const bool set = tz3test::MaskBit(maskBytes, x, row);
            for (size_t k = 0; k < 3; ++k) {
                EXPECT_EQ(o[at + k], set ? static_cast<uint8_t>(255 - src[at + k]) : src[at + k]);
            }
            EXPECT_EQ(o[at + 3], src[at + 3]);
        }
    }
}

TEST(RegionResolution, UnknownKindOnDirectColourIsStatus5) {
    for (int bits : {16, 24, 32}) {
        std::mt19937 rng(static_cast<unsigned>(bits));
        HandleGuard image(ToBlock(tz3test::RandomDib(rng, 6, 4, bits)));
        for (int32_t kind : {4, 255, 4 + 256, -1}) {
            const size_t before = Tz3LiveBlocks();
            ExpectFailsWith(RevAll(image.h, kind, nullptr, 0, nullptr, 1), 5);
            EXPECT_EQ(Tz3LiveBlocks(), before) << bits << " kind " << kind;
        }
    }
}

// An 8-bit image's table reversed entry by entry; indices and reserved bytes kept.
void ExpectPaletteReversed(const std::vector<uint8_t> &src, const std::vector<uint8_t> &out) {
    ASSERT_EQ(out.size(), src.size());
    const size_t entries = tz3test::TableEntries(src);
    for (size_t i = 0; i < entries; ++i) {
        for (size_t k = 0; k < 3; ++k) {
            EXPECT_EQ(out[40 + 4 * i + k], static_cast<uint8_t>(255 - src[40 + 4 * i + k])) << "entry " << i;
        }
        EXPECT_EQ(out[43 + 4 * i], src[43 + 4 * i]);
    }
    for (size_t i = tz3test::PixelOffset(src); i < src.size(); ++i) EXPECT_EQ(out[i], src[i]) << i;
}

TEST(RegionResolution, UnknownKindOnPaletteImageSucceeds) {
    std::mt19937 rng(31);
    const auto src = tz3test::RandomDib(rng, 6, 4, 8);
    HandleGuard image(ToBlock(src));
    for (int32_t kind : {4, 255}) {
        tz3::SetErrorStatus(9);
        HandleGuard out(RevAll(image.h, kind, nullptr, 0, nullptr, 1));
        ASSERT_NE(out.h, nullptr) << kind;
        EXPECT_EQ(Tz3GetErrorStatus(), 0);
        ExpectPaletteReversed(src, FromBlock(out.h));
    }
}

TEST(RegionResolution, KindCountsByItsLowByte) {
    const int w = 6, h = 4;
    const auto src = Image24(w, h);
    HandleGuard image(ToBlock(src));
    // 257 is the whole image.
    HandleGuard out(RevAll(image.h, 257, nullptr, 0, nullptr, 1));
    ASSERT_NE(out.h, nullptr);
    const auto changed = Reversed24(src, FromBlock(out.h), w, h);
    for (const auto &row : changed) {
        for (bool c : row) EXPECT_TRUE(c);
    }
    // 256 is the caller's mask, here missing.
    ExpectFailsWith(RevAll(image.h, 256, nullptr, 0, nullptr, 1), 7);
    // 258 is a polygon, here of one point.
    const Tz3Point one[] = {{1, 1}};
    ExpectFailsWith(RevAll(image.h, 258, one, 1, nullptr, 1), 5);
}

TEST(RegionResolution, PolygonOfOnePointOrNoneIsStatus5OnDirectColour) {
    HandleGuard image(ToBlock(Image24(6, 4)));
    const Tz3Point points[] = {{1, 1}, {4, 2}};
    const size_t before = Tz3LiveBlocks();
    ExpectFailsWith(RevAll(image.h, 2, points, 1, nullptr, 1), 5);
    ExpectFailsWith(RevAll(image.h, 2, points, 0, nullptr, 0), 5);
    ExpectFailsWith(RevAll(image.h, 2, points, -5, nullptr, 1), 5);
    EXPECT_EQ(Tz3LiveBlocks(), before);
}

TEST(RegionResolution, PolygonWithNullPointsIsStatus5OnDirectColour) {
    HandleGuard image(ToBlock(Image24(6, 4)));
    ExpectFailsWith(RevAll(image.h, 2, nullptr, 3, nullptr, 1), 5);
}

TEST(RegionResolution, PolygonOfOnePointOnPaletteImageReversesTheWholePalette) {
    std::mt19937 rng(41);
    const auto src = tz3test::RandomDib(rng, 6, 4, 8);
    HandleGuard image(ToBlock(src));
    const Tz3Point one[] = {{1, 1}};
    tz3::SetErrorStatus(7);
    HandleGuard out(RevAll(image.h, 2, one, 1, nullptr, 1));
    ASSERT_NE(out.h, nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 0);
    ExpectPaletteReversed(src, FromBlock(out.h));
}

TEST(RegionResolution, PaletteImageIgnoresMissingMaskAndPoints) {
    std::mt19937 rng(42);
    for (int bits : {1, 4, 8}) {
        const auto src = tz3test::RandomDib(rng, 6, 4, bits);
        HandleGuard image(ToBlock(src));
        HandleGuard byMask(RevAll(image.h, 0, nullptr, 0, nullptr, 1, nullptr));
        ASSERT_NE(byMask.h, nullptr) << bits;
        ExpectPaletteReversed(src, FromBlock(byMask.h));
        HandleGuard byPolygon(RevAll(image.h, 2, nullptr, -3, nullptr, 0));
        ASSERT_NE(byPolygon.h, nullptr) << bits;
        ExpectPaletteReversed(src, FromBlock(byPolygon.h));
    }
}

// The progress calls of one run tell which rows the worker walked: one per row of the box.
std::vector<tz3test::ProgressCall> ProgressOf(DibHandle image, int32_t kind, const Tz3Point *points, int32_t count,
                                              const Tz3Rect *rect, int32_t inside) {
    tz3test::ProgressRecorder recorder;
    HandleGuard out(RevAll(image, kind, points, count, rect, inside));
    EXPECT_NE(out.h, nullptr);
    return recorder.calls;
}

void ExpectRows(const std::vector<tz3test::ProgressCall> &calls, int32_t rows) {
    ASSERT_EQ(calls.size(), static_cast<size_t>(rows));
    for (int32_t i = 0; i < rows; ++i) {
        EXPECT_EQ(calls[static_cast<size_t>(i)].current, i);
        EXPECT_EQ(calls[static_cast<size_t>(i)].total, rows - 1);
        EXPECT_EQ(calls[static_cast<size_t>(i)].low, 0);
        EXPECT_EQ(calls[static_cast<size_t>(i)].high, 100);
        EXPECT_EQ(calls[static_cast<size_t>(i)].noDialog, 1);
    }
}

TEST(RegionResolution, PolygonInsideWalksTheRowsOfItsClampedBox) {
    HandleGuard image(ToBlock(Image24(10, 8)));
    const Tz3Point points[] = {{2, 1}, {6, 3}, {4, 5}};
    ExpectRows(ProgressOf(image.h, 2, points, 3, nullptr, 1), 5);
    const Tz3Point clamped[] = {{-4, 6}, {15, 3}, {5, 11}};  // picture rows 3..7
    ExpectRows(ProgressOf(image.h, 2, clamped, 3, nullptr, 1), 5);
    const Tz3Point line[] = {{20, -5}, {30, -1}};  // one corner
    ExpectRows(ProgressOf(image.h, 2, line, 2, nullptr, 1), 1);
}

TEST(RegionResolution, ShapesOutsideWalkTheWholeImage) {
    HandleGuard image(ToBlock(Image24(10, 8)));
    const Tz3Point points[] = {{2, 1}, {6, 3}, {4, 5}};
    const Tz3Rect rect{1, 2, 5, 6};
    ExpectRows(ProgressOf(image.h, 2, points, 3, nullptr, 0), 8);
    ExpectRows(ProgressOf(image.h, 3, nullptr, 0, &rect, 0), 8);
}

TEST(RegionResolution, EllipseInsideWalksTheRowsOfItsClampedBox) {
    HandleGuard image(ToBlock(Image24(10, 8)));
    const Tz3Rect rect{1, 2, 5, 6};
    ExpectRows(ProgressOf(image.h, 3, nullptr, 0, &rect, 1), 5);
    const Tz3Rect reversed{5, 6, 1, 2};
    ExpectRows(ProgressOf(image.h, 3, nullptr, 0, &reversed, 1), 5);
    const Tz3Rect outside{12, -4, 20, -1};  // the top edge line
    ExpectRows(ProgressOf(image.h, 3, nullptr, 0, &outside, 1), 1);
}

// Fails each allocation of one run in turn until the run succeeds. The first allocation (the
// points, or the mask of an ellipse) and the last (the clone) give status 3; one the rasteriser may
// make for its surface gives 3 or, as a surface that cannot be made, 2. No block is left behind.
template <class Run>
long FailEachAllocation(Run run) {
    long failAt = 0;
    for (;; ++failAt) {
        const size_t before = Tz3LiveBlocks();
        DibHandle result;
        long made;
        {
            tz3test::FailingAllocator failing(failAt);
            tz3::SetErrorStatus(0);
            result = run();
            made = failing.count;
        }
        if (result != nullptr) {
            Tz3GlobalFree(result);
            EXPECT_EQ(made, failAt);  // the run that succeeds made every allocation without failing
            break;
        }
        const int32_t status = Tz3GetErrorStatus();
        EXPECT_TRUE(status == 3 || status == 2) << "failing allocation " << failAt << " gave " << status;
        if (failAt == 0) {
            EXPECT_EQ(status, 3);
        }
        EXPECT_EQ(Tz3LiveBlocks(), before) << failAt;
        if (failAt > 50) {
            ADD_FAILURE() << "never succeeds";
            break;
        }
    }
    return failAt;
}

TEST(RegionResolution, AllocationFailureAtEachStepLeavesNoBlock) {
    HandleGuard image(ToBlock(Image24(10, 8)));
    const Tz3Point points[] = {{2, 1}, {6, 3}, {4, 5}};
    const Tz3Rect rect{1, 2, 5, 6};
    // Polygon: at least the points, the mask and the clone.
    EXPECT_GE(FailEachAllocation([&] { return RevAll(image.h, 2, points, 3, nullptr, 1); }), 3);
    // Ellipse: at least the mask and the clone.
    EXPECT_GE(FailEachAllocation([&] { return RevAll(image.h, 3, nullptr, 0, &rect, 0); }), 2);
}

TEST(RegionResolution, FailingCloneAfterTheMaskIsStatus3) {
    HandleGuard image(ToBlock(Image24(10, 8)));
    const Tz3Point points[] = {{2, 1}, {6, 3}, {4, 5}};
    const long allocations = FailEachAllocation([&] { return RevAll(image.h, 2, points, 3, nullptr, 1); });
    const size_t before = Tz3LiveBlocks();
    {
        tz3test::FailingAllocator failing(allocations - 1);  // the clone is the last one made
        tz3::SetErrorStatus(0);
        ExpectFailsWith(RevAll(image.h, 2, points, 3, nullptr, 1), 3);
    }
    EXPECT_EQ(Tz3LiveBlocks(), before);
}

// ---- Shapes drawn by the rasteriser ----

// Whether the rasteriser draws at all yet: a filled 4 x 4 square must set bits.
bool PolygonRasteriserDraws() {
    const Tz3Point square[] = {{0, 0}, {3, 0}, {3, 3}, {0, 3}};
    HandleGuard mask(tz3::MakeRegionMask(4, 4, 2, square, 4, 0, 0, 0, 0, 1));
    if (mask.h == nullptr) return false;
    const auto m = FromBlock(mask.h);
    for (size_t i = 48; i < m.size(); ++i) {
        if (m[i] != 0) return true;
    }
    return false;
}

bool EllipseRasteriserDraws() {
    HandleGuard mask(tz3::MakeRegionMask(9, 9, 3, nullptr, 0, 0, 0, 9, 9, 1));
    if (mask.h == nullptr) return false;
    const auto m = FromBlock(mask.h);
    for (size_t i = 48; i < m.size(); ++i) {
        if (m[i] != 0) return true;
    }
    return false;
}

#define REQUIRE_POLYGON_RASTERISER()                                                                   \
    if (!PolygonRasteriserDraws()) GTEST_SKIP() << "PolygonToMask in platform/raster.cpp draws nothing yet"
#define REQUIRE_ELLIPSE_RASTERISER()                                                                   \
    if (!EllipseRasteriserDraws()) GTEST_SKIP() << "EllipseToMask in platform/raster.cpp draws nothing yet"

// Changed pixels of a 24-bit result, by picture coordinates (y from the top).
std::vector<std::vector<bool>> ChangedByPictureRow(const std::vector<uint8_t> &src, DibHandle out, int w, int h) {
    const auto byRow = Reversed24(src, FromBlock(out), w, h);
    std::vector<std::vector<bool>> picture(static_cast<size_t>(h));
    for (int y = 0; y < h; ++y) picture[static_cast<size_t>(y)] = byRow[static_cast<size_t>(h - 1 - y)];
    return picture;
}

TEST(RegionShapes, PolygonInsideChangesOnlyPixelsInItsClampedBox) {
    REQUIRE_POLYGON_RASTERISER();
    const int w = 12, h = 10;
    const auto src = Image24(w, h);
    HandleGuard image(ToBlock(src));
    // Clamped: (0, 2), (7, 1), (9, 6), (3, 9): picture box x 0..9, y 1..9.
    const Tz3Point points[] = {{-3, 2}, {7, 1}, {9, 6}, {3, 14}};
    HandleGuard out(RevAll(image.h, 2, points, 4, nullptr, 1));
    ASSERT_NE(out.h, nullptr);
    const auto changed = ChangedByPictureRow(src, out.h, w, h);
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            const bool inBox = x <= 9 && y >= 1;
            if (!inBox) {
                EXPECT_FALSE(changed[static_cast<size_t>(y)][static_cast<size_t>(x)]) << x << ", " << y;
            }
        }
    }
    // The outline counts as inside: every clamped vertex is changed, and so is an inner pixel.
    EXPECT_TRUE(changed[2][0]);
    EXPECT_TRUE(changed[1][7]);
    EXPECT_TRUE(changed[6][9]);
    EXPECT_TRUE(changed[9][3]);
    EXPECT_TRUE(changed[5][5]);
}

TEST(RegionShapes, PolygonOutsideChangesEverythingButTheShape) {
    REQUIRE_POLYGON_RASTERISER();
    const int w = 12, h = 10;
    const auto src = Image24(w, h);
    HandleGuard image(ToBlock(src));
    const Tz3Point points[] = {{2, 1}, {8, 1}, {8, 6}, {2, 6}};
    HandleGuard out(RevAll(image.h, 2, points, 4, nullptr, 0));
    ASSERT_NE(out.h, nullptr);
    const auto changed = ChangedByPictureRow(src, out.h, w, h);
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            const bool inShape = x >= 2 && x <= 8 && y >= 1 && y <= 6;
            EXPECT_EQ(changed[static_cast<size_t>(y)][static_cast<size_t>(x)], !inShape) << x << ", " << y;
        }
    }
}

TEST(RegionShapes, TwoPointPolygonChangesTheLineBetweenThem) {
    REQUIRE_POLYGON_RASTERISER();
    const int w = 10, h = 8;
    const auto src = Image24(w, h);
    HandleGuard image(ToBlock(src));
    const Tz3Point line[] = {{1, 3}, {6, 3}};
    HandleGuard out(RevAll(image.h, 2, line, 2, nullptr, 1));
    ASSERT_NE(out.h, nullptr);
    const auto changed = ChangedByPictureRow(src, out.h, w, h);
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            EXPECT_EQ(changed[static_cast<size_t>(y)][static_cast<size_t>(x)], y == 3 && x >= 1 && x <= 6)
                << x << ", " << y;
        }
    }
}

TEST(RegionShapes, EllipseInsideNeverReachesTheBoxRightColumnOrBottomRow) {
    REQUIRE_ELLIPSE_RASTERISER();
    const int w = 12, h = 10;
    const auto src = Image24(w, h);
    HandleGuard image(ToBlock(src));
    const Tz3Rect rect{1, 1, 9, 7};  // picture box x 1..9, y 1..7
    HandleGuard out(RevAll(image.h, 3, nullptr, 0, &rect, 1));
    ASSERT_NE(out.h, nullptr);
    const auto changed = ChangedByPictureRow(src, out.h, w, h);
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            const bool reachable = x >= 1 && x <= 8 && y >= 1 && y <= 6;
            if (!reachable) {
                EXPECT_FALSE(changed[static_cast<size_t>(y)][static_cast<size_t>(x)]) << x << ", " << y;
            }
        }
    }
    EXPECT_TRUE(changed[4][5]);  // around the centre
    EXPECT_TRUE(changed[3][4]);
}

TEST(RegionShapes, EllipseOutsideChangesAllButTheEllipse) {
    REQUIRE_ELLIPSE_RASTERISER();
    const int w = 12, h = 10;
    const auto src = Image24(w, h);
    HandleGuard image(ToBlock(src));
    const Tz3Rect rect{1, 1, 9, 7};
    HandleGuard out(RevAll(image.h, 3, nullptr, 0, &rect, 0));
    ASSERT_NE(out.h, nullptr);
    const auto changed = ChangedByPictureRow(src, out.h, w, h);
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            const bool reachable = x >= 1 && x <= 8 && y >= 1 && y <= 6;
            if (!reachable) {
                EXPECT_TRUE(changed[static_cast<size_t>(y)][static_cast<size_t>(x)]) << x << ", " << y;
            }
        }
    }
    EXPECT_FALSE(changed[4][5]);
    EXPECT_FALSE(changed[3][4]);
}

}  // namespace
