// TZ3SetSecretImage: the luma shift under a caller's stamp or one drawn from a text, its
// placement, its range rule, its statuses, progress, cancelling and allocation failure.
#include "hidden/set_secret_image.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "support/hidden_reference.h"
#include "support/test_images.h"

namespace {

using namespace tz3test;

struct TextMark {
    std::string text = "Tz3";
    std::string face = "DejaVu Sans";
    int32_t pointSize = 12, bold = 0, italic = 0, underline = 0, strikeOut = 0, direction = 0, angle = 0;
};

DibHandle MarkWithStamp(DibHandle image, DibHandle stamp, int32_t strength, int32_t x0, int32_t y0,
                        int32_t noDialog = 1) {
    return TZ3SetSecretImage(image, stamp, nullptr, nullptr, 0, 0, 0, 0, 0, 0, 0, strength, x0, y0, 0, 0, noDialog, 0,
                             0, 0);
}

DibHandle MarkWithText(DibHandle image, const TextMark &t, int32_t strength, int32_t x0, int32_t y0, int32_t x1,
                       int32_t y1, int32_t noDialog = 1) {
    return TZ3SetSecretImage(image, nullptr, t.text.c_str(), t.face.c_str(), t.pointSize, t.bold, t.italic,
                             t.underline, t.strikeOut, t.direction, t.angle, strength, x0, y0, x1, y1, noDialog, 0, 0,
                             0);
}

std::vector<uint8_t> Uniform24(int width, int height, uint8_t r, uint8_t g, uint8_t b) {
    std::vector<uint8_t> d = MakeDibBytes(width, height, 24);
    const size_t stride = RowBytes(24, width);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            uint8_t *p = &d[40 + stride * y + 3 * x];
            p[0] = b;
            p[1] = g;
            p[2] = r;
        }
    }
    return d;
}

// A stamp of width x height drawn from the text as the export draws it into its box.
std::vector<uint8_t> DrawnStamp(const TextMark &t, int width, int height) {
    std::vector<uint8_t> stamp = MakeDibBytes(width, height, 1);
    stamp[44] = stamp[45] = stamp[46] = 255;
    DibHandle h = ToBlock(stamp);
    tz3::SecretTextStyle s;
    std::strncpy(s.faceName, t.face.c_str(), 32);
    std::strncpy(s.text, t.text.c_str(), 128);
    s.pointSize = static_cast<uint16_t>(t.pointSize);
    s.bold = static_cast<uint8_t>(t.bold);
    s.italic = static_cast<uint8_t>(t.italic);
    s.underline = static_cast<uint8_t>(t.underline);
    s.strikeOut = static_cast<uint8_t>(t.strikeOut);
    s.direction = static_cast<uint8_t>(t.direction);
    s.angle = static_cast<uint16_t>(t.angle);
    EXPECT_EQ(tz3::DrawSecretText(h, 0, 0, width - 1, height - 1, s), 1);
    std::vector<uint8_t> out = FromBlock(h);
    Tz3GlobalFree(h);
    return out;
}

TEST(SetSecretImage, ACallersStampMatchesTheReferenceAtAnyPlaceAndStrength) {
    std::mt19937 rng(9101);
    for (int width = 1; width <= 33; ++width) {
        const int height = 1 + static_cast<int>(rng() % 6);
        const std::vector<uint8_t> src = RandomDib(rng, width, height, 24);
        const std::vector<uint8_t> stamp =
            RandomMask(rng, 1 + static_cast<int>(rng() % 40), 1 + static_cast<int>(rng() % 9));
        const int32_t strength = static_cast<int32_t>(rng() % 601) - 300;
        const int32_t x0 = static_cast<int32_t>(rng() % 50) - 20;
        const int32_t y0 = static_cast<int32_t>(rng() % 16) - 8;
        HandleGuard image(ToBlock(src));
        HandleGuard stampBlock(ToBlock(stamp));
        HandleGuard result(MarkWithStamp(image.h, stampBlock.h, strength, x0, y0));
        ASSERT_NE(result.h, nullptr) << width;
        EXPECT_EQ(Tz3GetErrorStatus(), TZ3_OK);
        EXPECT_EQ(FromBlock(result.h), ReferenceSecretMark(src, stamp, strength, x0, y0))
            << "width " << width << " strength " << strength << " at " << x0 << "," << y0;
        EXPECT_EQ(FromBlock(image.h), src);
        EXPECT_EQ(FromBlock(stampBlock.h), stamp);
        EXPECT_TRUE(IsUnlocked(image.h));
        EXPECT_TRUE(IsUnlocked(stampBlock.h));
    }
}

TEST(SetSecretImage, StrengthZeroStillTakesStampedPixelsThroughYcc) {
    // White has luma 254 and comes back as 254, 254, 254; pixels off the stamp stay white.
    const std::vector<uint8_t> src = Uniform24(2, 1, 255, 255, 255);
    std::vector<uint8_t> stamp = MakeDibBytes(1, 1, 1);
    stamp[48] = 0x80;
    HandleGuard image(ToBlock(src));
    HandleGuard stampBlock(ToBlock(stamp));
    HandleGuard result(MarkWithStamp(image.h, stampBlock.h, 0, 0, 0));
    ASSERT_NE(result.h, nullptr);
    const std::vector<uint8_t> out = FromBlock(result.h);
    EXPECT_EQ(std::vector<uint8_t>(out.begin() + 40, out.begin() + 46),
              (std::vector<uint8_t>{254, 254, 254, 255, 255, 255}));
}

TEST(SetSecretImage, AShiftThatWouldLeaveTheRangeIsLeftOut) {
    // A gray of luma 250: + 10 would pass 255, so Y stays and the pixel is as with strength 0.
    int level = 240;
    while (level < 256 && ReferenceLumaByte(static_cast<uint8_t>(level), static_cast<uint8_t>(level),
                                        static_cast<uint8_t>(level)) != 250) {
        ++level;
    }
    ASSERT_LT(level, 256);
    const auto v = static_cast<uint8_t>(level);
    const std::vector<uint8_t> src = Uniform24(1, 1, v, v, v);
    std::vector<uint8_t> stamp = MakeDibBytes(1, 1, 1);
    stamp[48] = 0x80;
    HandleGuard image(ToBlock(src));
    HandleGuard stampBlock(ToBlock(stamp));
    HandleGuard ten(MarkWithStamp(image.h, stampBlock.h, 10, 0, 0));
    HandleGuard zero(MarkWithStamp(image.h, stampBlock.h, 0, 0, 0));
    ASSERT_NE(ten.h, nullptr);
    EXPECT_EQ(FromBlock(ten.h), FromBlock(zero.h));
    HandleGuard shown(TZ3CheckSecretImage(image.h, ten.h, 5, 1, 0, 0, 0));
    ASSERT_NE(shown.h, nullptr);
    EXPECT_FALSE(MaskBit(FromBlock(shown.h), 0, 0)) << "the bit leaves no mark there";
    // Five still fits (250 + 5 = 255) and shifts.
    HandleGuard five(MarkWithStamp(image.h, stampBlock.h, 5, 0, 0));
    const std::vector<uint8_t> out = FromBlock(five.h);
    EXPECT_GT(ReferenceLumaByte(out[42], out[41], out[40]), 250);
    EXPECT_EQ(out, ReferenceSecretMark(src, stamp, 5, 0, 0));
}

TEST(SetSecretImage, ANegativeStrengthDarkensExceptBelowItsSize) {
    std::vector<uint8_t> src = Uniform24(2, 1, 100, 100, 100);
    src[43] = src[44] = src[45] = 12;  // second pixel, luma 11 or 12
    std::vector<uint8_t> stamp = MakeDibBytes(2, 1, 1);
    stamp[48] = 0xC0;
    HandleGuard image(ToBlock(src));
    HandleGuard stampBlock(ToBlock(stamp));
    HandleGuard result(MarkWithStamp(image.h, stampBlock.h, -20, 0, 0));
    ASSERT_NE(result.h, nullptr);
    const std::vector<uint8_t> out = FromBlock(result.h);
    EXPECT_LT(ReferenceLumaByte(out[42], out[41], out[40]), ReferenceLumaByte(100, 100, 100) - 15);
    HandleGuard zero(MarkWithStamp(image.h, stampBlock.h, 0, 0, 0));
    const std::vector<uint8_t> unshifted = FromBlock(zero.h);
    EXPECT_TRUE(std::equal(out.begin() + 43, out.begin() + 46, unshifted.begin() + 43));
    EXPECT_EQ(out, ReferenceSecretMark(src, stamp, -20, 0, 0));
}

TEST(SetSecretImage, TheStampsTopRowLandsOnTheTopDownRowY0) {
    // A one-bit stamp of three rows whose top row holds the only set bit.
    const std::vector<uint8_t> src = Uniform24(4, 6, 90, 90, 90);
    std::vector<uint8_t> stamp = MakeDibBytes(1, 3, 1);
    stamp[48 + 2 * 4] = 0x80;  // bottom-up row 2 is the top row
    HandleGuard image(ToBlock(src));
    HandleGuard stampBlock(ToBlock(stamp));
    HandleGuard result(MarkWithStamp(image.h, stampBlock.h, 30, 2, 1));
    ASSERT_NE(result.h, nullptr);
    const std::vector<uint8_t> out = FromBlock(result.h);
    const size_t stride = RowBytes(24, 4);
    for (int y = 0; y < 6; ++y) {
        for (int x = 0; x < 4; ++x) {
            const size_t at = 40 + stride * y + 3 * x;
            const bool changed = !std::equal(out.begin() + at, out.begin() + at + 3, src.begin() + at);
            EXPECT_EQ(changed, x == 2 && y == 6 - 1 - 1) << x << "," << y;
        }
    }
}

TEST(SetSecretImage, AStampLargerThanTheImageIsWalkedInFull) {
    std::mt19937 rng(9102);
    const std::vector<uint8_t> src = RandomDib(rng, 5, 4, 24);
    const std::vector<uint8_t> stamp = RandomMask(rng, 30, 20);
    HandleGuard image(ToBlock(src));
    HandleGuard stampBlock(ToBlock(stamp));
    ProgressRecorder progress;
    HandleGuard result(MarkWithStamp(image.h, stampBlock.h, 25, -7, -9, 3));
    ASSERT_NE(result.h, nullptr);
    EXPECT_EQ(FromBlock(result.h), ReferenceSecretMark(src, stamp, 25, -7, -9));
    ASSERT_EQ(progress.calls.size(), 20u);
    for (int32_t i = 0; i < 20; ++i) {
        EXPECT_EQ(progress.calls[i].current, i);
        EXPECT_EQ(progress.calls[i].total, 19);
        EXPECT_EQ(progress.calls[i].noDialog, 3);
    }
}

TEST(SetSecretImage, AStampOfAnySizeIsAccepted) {
    std::mt19937 rng(9103);
    const std::vector<uint8_t> src = RandomDib(rng, 3, 3, 24);
    HandleGuard image(ToBlock(src));
    for (int height : {0, 1}) {
        HandleGuard stampBlock(ToBlock(MakeDibBytes(4, height, 1)));
        HandleGuard result(MarkWithStamp(image.h, stampBlock.h, 10, 0, 0));
        ASSERT_NE(result.h, nullptr) << height;
        EXPECT_EQ(FromBlock(result.h), src);
    }
}

TEST(SetSecretImage, ACallersStampIsRecoveredExactly) {
    std::mt19937 rng(9104);
    const std::vector<uint8_t> src = Uniform24(40, 24, 120, 110, 100);
    const std::vector<uint8_t> stamp = RandomMask(rng, 23, 11);
    HandleGuard image(ToBlock(src));
    HandleGuard stampBlock(ToBlock(stamp));
    HandleGuard marked(MarkWithStamp(image.h, stampBlock.h, 20, 9, 6));
    ASSERT_NE(marked.h, nullptr);
    HandleGuard shown(TZ3CheckSecretImage(image.h, marked.h, 10, 1, 0, 0, 0));
    ASSERT_NE(shown.h, nullptr);
    const std::vector<uint8_t> mask = FromBlock(shown.h);
    for (int y = 0; y < 24; ++y) {
        for (int x = 0; x < 40; ++x) {
            const int mx = x - 9;
            const int my = y - (24 - 1 - 6 - (11 - 1));
            const bool expected = mx >= 0 && mx < 23 && my >= 0 && my < 11 && MaskBit(stamp, mx, my);
            EXPECT_EQ(MaskBit(mask, x, y), expected) << x << "," << y;
        }
    }
}

TEST(SetSecretImage, ATextMarkInEveryDirectionAndAngleShowsInsideItsBox) {
    const std::vector<uint8_t> src = Uniform24(120, 80, 100, 100, 100);
    HandleGuard image(ToBlock(src));
    for (int32_t direction = 0; direction < 4; ++direction) {
        for (int32_t angle : {0, 90, 180, 270}) {
            TextMark t;
            t.text = "Mark";
            t.pointSize = 20;
            t.direction = direction;
            t.angle = angle;
            HandleGuard marked(MarkWithText(image.h, t, 20, 10, 5, 100, 70));
            ASSERT_NE(marked.h, nullptr) << direction << " " << angle << " status " << Tz3GetErrorStatus();
            HandleGuard shown(TZ3CheckSecretImage(image.h, marked.h, 10, 1, 0, 0, 0));
            ASSERT_NE(shown.h, nullptr);
            const std::vector<uint8_t> mask = FromBlock(shown.h);
            int inside = 0;
            int outside = 0;
            for (int y = 0; y < 80; ++y) {
                const int top = 80 - 1 - y;
                for (int x = 0; x < 120; ++x) {
                    if (!MaskBit(mask, x, y)) continue;
                    (x >= 10 && x <= 100 && top >= 5 && top <= 70 ? inside : outside) += 1;
                }
            }
            EXPECT_GT(inside, 20) << "direction " << direction << " angle " << angle;
            EXPECT_EQ(outside, 0) << "direction " << direction << " angle " << angle;
        }
    }
}

TEST(SetSecretImage, TheTextStampIsTheDrawnStampPlacedAtX0AndY0) {
    std::mt19937 rng(9105);
    const std::vector<uint8_t> src = RandomDib(rng, 60, 30, 24);
    HandleGuard image(ToBlock(src));
    TextMark t;
    t.text = "AbC";
    t.pointSize = 14;
    HandleGuard marked(MarkWithText(image.h, t, 15, 4, 3, 50, 25));
    ASSERT_NE(marked.h, nullptr);
    EXPECT_EQ(FromBlock(marked.h), ReferenceSecretMark(src, DrawnStamp(t, 47, 23), 15, 4, 3));
}

TEST(SetSecretImage, ABoxStartingOffTheImageIsClampedButTheStampIsPlacedFromX0) {
    std::mt19937 rng(9106);
    const std::vector<uint8_t> src = RandomDib(rng, 50, 24, 24);
    HandleGuard image(ToBlock(src));
    TextMark t;
    t.text = "WIDE";
    t.pointSize = 16;
    // The box is clamped to columns 0..35, 36 wide, and that stamp goes to column -10.
    HandleGuard marked(MarkWithText(image.h, t, 20, -10, 2, 35, 21));
    ASSERT_NE(marked.h, nullptr);
    const std::vector<uint8_t> stamp = DrawnStamp(t, 36, 20);
    EXPECT_EQ(FromBlock(marked.h), ReferenceSecretMark(src, stamp, 20, -10, 2));
    EXPECT_NE(FromBlock(marked.h), ReferenceSecretMark(src, stamp, 20, 0, 2)) << "the stamp is shifted";
}

TEST(SetSecretImage, AReversedBoxIsSizedAsSwappedButPlacedAtTheGivenX0) {
    std::mt19937 rng(9107);
    const std::vector<uint8_t> src = RandomDib(rng, 64, 30, 24);
    HandleGuard image(ToBlock(src));
    TextMark t;
    t.text = "Rev";
    HandleGuard marked(MarkWithText(image.h, t, 20, 40, 25, 10, 4));
    ASSERT_NE(marked.h, nullptr);
    EXPECT_EQ(FromBlock(marked.h), ReferenceSecretMark(src, DrawnStamp(t, 31, 22), 20, 40, 25));
}

TEST(SetSecretImage, OddDirectionsAndAnglesCountAsZero) {
    const std::vector<uint8_t> src = Uniform24(70, 30, 90, 90, 90);
    HandleGuard image(ToBlock(src));
    TextMark plain;
    plain.text = "Odd";
    TextMark odd = plain;
    odd.angle = 45;
    odd.direction = 7;
    HandleGuard a(MarkWithText(image.h, plain, 20, 2, 2, 67, 27));
    HandleGuard b(MarkWithText(image.h, odd, 20, 2, 2, 67, 27));
    ASSERT_NE(a.h, nullptr);
    ASSERT_NE(b.h, nullptr);
    EXPECT_EQ(FromBlock(a.h), FromBlock(b.h));
    // Only the low byte of the direction and the low 16 bits of the angle count.
    odd.direction = 0x102;  // 2
    odd.angle = 0x10000 + 90;
    TextMark two = plain;
    two.direction = 2;
    two.angle = 90;
    HandleGuard c(MarkWithText(image.h, odd, 20, 2, 2, 67, 27));
    HandleGuard d(MarkWithText(image.h, two, 20, 2, 2, 67, 27));
    ASSERT_NE(c.h, nullptr);
    EXPECT_EQ(FromBlock(c.h), FromBlock(d.h));
}

// Bounding box of the set bits of a stamp, in top-down rows.
struct InkBox {
    int left = 1 << 30, top = 1 << 30, right = -1, bottom = -1;
};
InkBox InkOf(const std::vector<uint8_t> &stamp) {
    InkBox b;
    const int h = ImageHeight(stamp);
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < ImageWidth(stamp); ++x) {
            if (!MaskBit(stamp, x, y)) continue;
            const int top = h - 1 - y;
            b.left = std::min(b.left, x);
            b.right = std::max(b.right, x);
            b.top = std::min(b.top, top);
            b.bottom = std::max(b.bottom, top);
        }
    }
    return b;
}

TEST(SetSecretImage, DirectionTwoUprightStacksTheCharactersDownward) {
    TextMark t;
    t.text = "ABCD";
    t.pointSize = 10;
    t.direction = 2;
    const InkBox down = InkOf(DrawnStamp(t, 60, 90));
    EXPECT_GT(down.bottom - down.top, 3 * (down.right - down.left)) << "a column of upright letters";
    t.direction = 0;
    const InkBox across = InkOf(DrawnStamp(t, 60, 90));
    EXPECT_GT(across.right - across.left, 2 * (across.bottom - across.top)) << "a row of letters";
}

TEST(SetSecretImage, TurnedCharactersPlacedOneByOneDropUnderlineAndStrikeout) {
    TextMark t;
    t.text = "ABC";
    t.pointSize = 10;
    t.direction = 0;
    t.angle = 90;
    const std::vector<uint8_t> plain = DrawnStamp(t, 80, 40);
    t.underline = 1;
    t.strikeOut = 1;
    EXPECT_EQ(DrawnStamp(t, 80, 40), plain);
    const InkBox box = InkOf(plain);
    EXPECT_GT(box.right - box.left, box.bottom - box.top) << "turned letters advance to the right";
    // The whole string at angle 0 does carry the lines.
    t.angle = 0;
    t.underline = 0;
    t.strikeOut = 0;
    const std::vector<uint8_t> bare = DrawnStamp(t, 80, 40);
    t.underline = 1;
    EXPECT_NE(DrawnStamp(t, 80, 40), bare);
}

TEST(SetSecretImage, AFarTooLargePointSizeShrinksUntilTheTextFits) {
    TextMark t;
    t.text = "fit";
    t.pointSize = 400;
    const InkBox box = InkOf(DrawnStamp(t, 40, 20));
    EXPECT_GE(box.left, 0);
    EXPECT_LE(box.right, 39);
    EXPECT_GE(box.top, 0);
    EXPECT_LE(box.bottom, 19);
    EXPECT_GT(box.right, box.left);
}

TEST(SetSecretImage, TextThatFitsNoFontFailsWithStatus9) {
    const std::vector<uint8_t> src = Uniform24(10, 10, 90, 90, 90);
    HandleGuard image(ToBlock(src));
    TextMark t;
    t.text = std::string(100, 'W');
    const size_t live = Tz3LiveBlocks();
    EXPECT_EQ(MarkWithText(image.h, t, 20, 0, 0, 3, 2), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), TZ3_DRAWING_FAILED);
    EXPECT_EQ(Tz3LiveBlocks(), live);
    EXPECT_EQ(tz3::MaxFitSteps(-13), 16);
}

TEST(SetSecretImage, StatusCodes) {
    std::mt19937 rng(9108);
    const std::vector<uint8_t> src = Uniform24(30, 20, 90, 90, 90);
    HandleGuard image(ToBlock(src));
    HandleGuard gray(ToBlock(RandomDib(rng, 30, 20, 8)));
    HandleGuard stamp8(ToBlock(RandomDib(rng, 4, 4, 8)));
    HandleGuard stamp1(ToBlock(RandomMask(rng, 4, 4)));
    std::vector<uint8_t> shortImage = src;
    shortImage.pop_back();
    HandleGuard cut(ToBlock(shortImage));
    TextMark ok;
    const auto expectStatus = [&](DibHandle result, int32_t status, const char *what) {
        EXPECT_EQ(result, nullptr) << what;
        if (result != nullptr) Tz3GlobalFree(result);
        EXPECT_EQ(Tz3GetErrorStatus(), status) << what;
    };
    expectStatus(MarkWithStamp(nullptr, stamp1.h, 10, 0, 0), TZ3_BAD_IMAGE, "null image");
    expectStatus(MarkWithStamp(gray.h, stamp1.h, 10, 0, 0), TZ3_BAD_IMAGE, "8-bit image");
    expectStatus(MarkWithStamp(cut.h, stamp1.h, 10, 0, 0), TZ3_BAD_IMAGE, "image block too short");
    expectStatus(MarkWithStamp(image.h, stamp8.h, 10, 0, 0), TZ3_BAD_IMAGE, "8-bit stamp");
    TextMark longText = ok;
    longText.text = std::string(129, 'a');
    expectStatus(MarkWithText(image.h, longText, 10, 0, 0, 29, 19), TZ3_BAD_PARAMETER, "129-byte text");
    TextMark longFace = ok;
    longFace.face = std::string(33, 'F');
    expectStatus(MarkWithText(image.h, longFace, 10, 0, 0, 29, 19), TZ3_BAD_PARAMETER, "33-byte face name");
    TextMark empty = ok;
    empty.text = "";
    expectStatus(MarkWithText(image.h, empty, 10, 0, 0, 29, 19), TZ3_DRAWING_FAILED, "empty text");
    TextMark noFace = ok;
    noFace.face = "";
    expectStatus(MarkWithText(image.h, noFace, 10, 0, 0, 29, 19), TZ3_DRAWING_FAILED, "empty face name");
    TextMark zero = ok;
    zero.pointSize = 0x10000;  // low 16 bits 0
    expectStatus(MarkWithText(image.h, zero, 10, 0, 0, 29, 19), TZ3_DRAWING_FAILED, "point size 0");
    expectStatus(MarkWithText(image.h, ok, 10, 5, 0, 5, 19), TZ3_DRAWING_FAILED, "box one pixel wide");
    expectStatus(MarkWithText(image.h, ok, 10, 0, 7, 29, 7), TZ3_DRAWING_FAILED, "box one pixel high");
    expectStatus(TZ3SetSecretImage(image.h, nullptr, nullptr, "DejaVu Sans", 12, 0, 0, 0, 0, 0, 0, 10, 0, 0, 29, 19,
                                   1, 0, 0, 0),
                 TZ3_DRAWING_FAILED, "no text");
    // A 128-byte text and a 32-byte face name are allowed; an unknown face falls back.
    TextMark longest = ok;
    longest.text = std::string(128, 'i');
    longest.face = std::string(32, 'Q');
    HandleGuard result(MarkWithText(image.h, longest, 10, 0, 0, 119, 19));
    EXPECT_NE(Tz3GetErrorStatus(), TZ3_BAD_PARAMETER) << "128 and 32 bytes are within the limits";
    HandleGuard fine(MarkWithText(image.h, ok, 10, 0, 0, 29, 19));
    EXPECT_NE(fine.h, nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), TZ3_OK);
    EXPECT_EQ(FromBlock(image.h), src);
    EXPECT_TRUE(IsUnlocked(image.h));
}

TEST(SetSecretImage, ADialogThatDoesNotOpenStopsTheCall) {
    HandleGuard image(ToBlock(Uniform24(4, 4, 1, 2, 3)));
    HandleGuard stamp(ToBlock(MakeDibBytes(2, 2, 1)));
    DialogRecorder dialog(true);
    EXPECT_EQ(MarkWithStamp(image.h, stamp.h, 10, 0, 0, 0), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), TZ3_DIALOG_FAILED);
    EXPECT_EQ(dialog.closes, 0);
}

TEST(SetSecretImage, CancellingAtEachRowLeavesNoBlock) {
    std::mt19937 rng(9109);
    const std::vector<uint8_t> src = RandomDib(rng, 20, 12, 24);
    HandleGuard image(ToBlock(src));
    HandleGuard stamp(ToBlock(RandomMask(rng, 9, 5)));
    for (long at = 0; at < 5; ++at) {
        const size_t live = Tz3LiveBlocks();
        ProgressRecorder progress(at);
        EXPECT_EQ(MarkWithStamp(image.h, stamp.h, 10, 2, 2), nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), TZ3_CANCELLED);
        EXPECT_EQ(progress.calls.size(), static_cast<size_t>(at + 1));
        EXPECT_EQ(Tz3LiveBlocks(), live);
    }
    TextMark t;
    const int32_t stampRows = 11 - 2 + 1;
    for (long at = 0; at < stampRows; ++at) {
        const size_t live = Tz3LiveBlocks();
        ProgressRecorder progress(at);
        EXPECT_EQ(MarkWithText(image.h, t, 10, 1, 2, 19, 11), nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), TZ3_CANCELLED);
        EXPECT_EQ(Tz3LiveBlocks(), live);
    }
    EXPECT_EQ(FromBlock(image.h), src);
    EXPECT_TRUE(IsUnlocked(image.h));
    EXPECT_TRUE(IsUnlocked(stamp.h));
}

TEST(SetSecretImage, EachAllocationFailureGivesStatus3AndNoBlock) {
    std::mt19937 rng(9110);
    const std::vector<uint8_t> src = RandomDib(rng, 20, 12, 24);
    HandleGuard image(ToBlock(src));
    HandleGuard stamp(ToBlock(RandomMask(rng, 9, 5)));
    TextMark t;
    for (bool withText : {false, true}) {
        long allocations = 0;
        {
            FailingAllocator counting;
            HandleGuard result(withText ? MarkWithText(image.h, t, 10, 0, 0, 19, 11)
                                        : MarkWithStamp(image.h, stamp.h, 10, 0, 0));
            ASSERT_NE(result.h, nullptr);
            allocations = counting.count;
        }
        EXPECT_EQ(allocations, withText ? 3 : 2) << "the drawn stamp, the clone and the tables";
        for (long at = 0; at < allocations; ++at) {
            const size_t live = Tz3LiveBlocks();
            {
                FailingAllocator failing(at);
                EXPECT_EQ(withText ? MarkWithText(image.h, t, 10, 0, 0, 19, 11)
                                   : MarkWithStamp(image.h, stamp.h, 10, 0, 0),
                          nullptr);
                EXPECT_EQ(Tz3GetErrorStatus(), TZ3_NO_MEMORY) << "allocation " << at;
            }
            EXPECT_EQ(Tz3LiveBlocks(), live);
        }
    }
    EXPECT_EQ(FromBlock(image.h), src);
}

}  // namespace
