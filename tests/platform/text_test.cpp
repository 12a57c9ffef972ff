// The text rasteriser: MulDiv, UTF-8 characters, fonts and their sizes, extents, opaque drawing
// and the exact turning by 90, 180 and 270 degrees.
#include "platform/text.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

using tz3::TextFace;
using tz3::TextFont;
using tz3::TextSurface;

tz3::FontRequest Request(int32_t height, int32_t escapement = 0, const char *face = "DejaVu Sans") {
    tz3::FontRequest r;
    r.height = height;
    r.escapement = escapement;
    std::strncpy(r.faceName, face, 32);
    return r;
}

// A bottom-up 1-bit picture of width x height, all bits `fill`.
struct Picture {
    int32_t width, height, stride;
    std::vector<uint8_t> bits;
    Picture(int32_t w, int32_t h, bool fill = false)
        : width(w), height(h), stride(((w + 31) / 32) * 4), bits(static_cast<size_t>(stride) * h, fill ? 0xFF : 0) {}
    TextSurface Surface() { return TextSurface{bits.data(), width, height, stride}; }
    // Pixel at (x, y), y counted from the top.
    bool At(int32_t x, int32_t y) const {
        return (bits[static_cast<size_t>(height - 1 - y) * stride + x / 8] >> (7 - x % 8)) & 1;
    }
    int Count() const {
        int n = 0;
        for (int32_t y = 0; y < height; ++y) {
            for (int32_t x = 0; x < width; ++x) n += At(x, y) ? 1 : 0;
        }
        return n;
    }
};

TEST(MulDiv, RoundsHalvesAwayFromZero) {
    EXPECT_EQ(tz3::MulDiv(12, 96, 72), 16);
    EXPECT_EQ(tz3::MulDiv(10, 96, 72), 13);  // 13.33
    EXPECT_EQ(tz3::MulDiv(11, 96, 72), 15);  // 14.67
    EXPECT_EQ(tz3::MulDiv(1, 3, 2), 2);
    EXPECT_EQ(tz3::MulDiv(-1, 3, 2), -2);
    EXPECT_EQ(tz3::MulDiv(1, -3, 2), -2);
    EXPECT_EQ(tz3::MulDiv(65535, 96, 72), 87380);
    EXPECT_EQ(tz3::MulDiv(5, 5, 0), -1);
    EXPECT_EQ(tz3::MulDiv(INT32_MAX, 4, 1), -1);
    EXPECT_EQ(tz3::LogicalPixelsY(), 96);
}

TEST(CharacterBytes, OneCodePointIsOneCharacter) {
    EXPECT_EQ(tz3::CharacterBytes("A", 1), 1u);
    EXPECT_EQ(tz3::CharacterBytes("\xC3\xA9", 2), 2u);          // é
    EXPECT_EQ(tz3::CharacterBytes("\xE6\x97\xA5", 3), 3u);      // 日
    EXPECT_EQ(tz3::CharacterBytes("\xF0\x9F\x98\x80", 4), 4u);  // an emoji
    EXPECT_EQ(tz3::CharacterBytes("\x80", 1), 0u) << "a trail byte alone";
    EXPECT_EQ(tz3::CharacterBytes("\xE6\x97", 2), 0u) << "cut short";
    EXPECT_EQ(tz3::CharacterBytes("\xE6\x97\xA5", 2), 0u) << "not looked at past the end";
    EXPECT_EQ(tz3::CharacterBytes("\xC0\x80", 2), 0u) << "overlong";
    EXPECT_EQ(tz3::CharacterBytes("\xED\xA0\x80", 3), 0u) << "a surrogate";
    EXPECT_EQ(tz3::CharacterBytes("\xF4\x90\x80\x80", 4), 0u) << "above U+10FFFF";
    EXPECT_EQ(tz3::CharacterBytes("A", 0), 0u);
}

TEST(TextFont, ANegativeHeightIsTheCharacterHeightInPixels) {
    TextFace face;
    ASSERT_TRUE(face.Open(Request(0)));
    TextFont font;
    ASSERT_TRUE(tz3::MakeTextFont(face, Request(-20), font));
    EXPECT_EQ(font.ppem, 20);
    EXPECT_GT(font.cellHeight, 20) << "the cell holds the internal leading too";
    EXPECT_LT(font.ascent, font.cellHeight);
    ASSERT_TRUE(tz3::MakeTextFont(face, Request(30), font));
    EXPECT_NEAR(font.cellHeight, 30, 1) << "a positive height is the cell height";
    ASSERT_TRUE(tz3::MakeTextFont(face, Request(0), font));
    EXPECT_GT(font.ppem, 0) << "height 0 asks for a default size";
    ASSERT_TRUE(tz3::MakeTextFont(face, Request(-1), font));
    EXPECT_GE(font.cellHeight, 1);
}

TEST(TextFont, AnUnknownFaceNameFallsBackToAFace) {
    TextFace face;
    EXPECT_TRUE(face.Open(Request(-12, 0, "No Such Face At All")));
    TextFont font;
    EXPECT_TRUE(tz3::MakeTextFont(face, Request(-12), font));
}

TEST(TextFont, OnlyQuarterTurnsAreKept) {
    TextFace face;
    ASSERT_TRUE(face.Open(Request(0)));
    TextFont font;
    for (int32_t e : {0, 900, 1800, 2700}) {
        ASSERT_TRUE(tz3::MakeTextFont(face, Request(-10, e), font));
        EXPECT_EQ(font.escapement, e);
    }
    ASSERT_TRUE(tz3::MakeTextFont(face, Request(-10, 450), font));
    EXPECT_EQ(font.escapement, 0);
    TextFace closed;
    EXPECT_FALSE(tz3::MakeTextFont(closed, Request(-10), font));
}

TEST(TextExtent, IsTheSumOfTheCharactersAdvancesAndTheCellHeight) {
    TextFace face;
    ASSERT_TRUE(face.Open(Request(0)));
    TextFont font;
    ASSERT_TRUE(tz3::MakeTextFont(face, Request(-17), font));
    int32_t cx = 0, cy = 0, ax = 0, bx = 0, turnedX = 0, turnedY = 0;
    ASSERT_EQ(tz3::TextExtent(font, "AbW", 3, &cx, &cy), 1);
    EXPECT_EQ(cy, font.cellHeight);
    int32_t sum = 0;
    for (const char *c : {"A", "b", "W"}) {
        ASSERT_EQ(tz3::TextExtent(font, c, 1, &ax, &bx), 1);
        sum += ax;
    }
    EXPECT_EQ(cx, sum);
    EXPECT_GT(cx, 17);
    // Bytes that start no character add nothing.
    ASSERT_EQ(tz3::TextExtent(font, "A\x80" "b\xFFW", 5, &ax, &bx), 1);
    EXPECT_EQ(ax, cx);
    // A turned font measures the unturned string.
    TextFont turned;
    ASSERT_TRUE(tz3::MakeTextFont(face, Request(-17, 900), turned));
    ASSERT_EQ(tz3::TextExtent(turned, "AbW", 3, &turnedX, &turnedY), 1);
    EXPECT_EQ(turnedX, cx);
    EXPECT_EQ(turnedY, cy);
}

TEST(DrawText, InkStaysInTheCellAndTheCellIsClearedFirst) {
    TextFace face;
    ASSERT_TRUE(face.Open(Request(0)));
    TextFont font;
    ASSERT_TRUE(tz3::MakeTextFont(face, Request(-16), font));
    int32_t cx = 0, cy = 0;
    tz3::TextExtent(font, "HH", 2, &cx, &cy);
    Picture ink(60, 40);
    TextSurface s = ink.Surface();
    EXPECT_EQ(tz3::DrawTextOnSurface(s, font, "HH", 2, 5, 7), cy);
    EXPECT_GT(ink.Count(), 20);
    for (int32_t y = 0; y < 40; ++y) {
        for (int32_t x = 0; x < 60; ++x) {
            if (ink.At(x, y)) {
                EXPECT_TRUE(x >= 5 && x < 5 + cx && y >= 7 && y < 7 + cy) << x << "," << y;
            }
        }
    }
    // On a surface full of ink a space clears exactly its cell.
    tz3::TextExtent(font, " ", 1, &cx, &cy);
    Picture full(60, 40, true);
    TextSurface f = full.Surface();
    EXPECT_GT(tz3::DrawTextOnSurface(f, font, " ", 1, 5, 7), 0);
    for (int32_t y = 0; y < 40; ++y) {
        for (int32_t x = 0; x < 60; ++x) {
            const bool inCell = x >= 5 && x < 5 + cx && y >= 7 && y < 7 + cy;
            EXPECT_EQ(full.At(x, y), !inCell) << x << "," << y;
        }
    }
}

TEST(DrawText, TurnedTextIsTheUnturnedTextTurnedPixelForPixel) {
    TextFace face;
    ASSERT_TRUE(face.Open(Request(0)));
    TextFont upright;
    ASSERT_TRUE(tz3::MakeTextFont(face, Request(-14), upright));
    int32_t cx = 0, cy = 0;
    tz3::TextExtent(upright, "Fig", 3, &cx, &cy);
    Picture base(80, 80, true);
    TextSurface bs = base.Surface();
    tz3::DrawTextOnSurface(bs, upright, "Fig", 3, 10, 10);
    for (int32_t e : {900, 1800, 2700}) {
        TextFont turned;
        ASSERT_TRUE(tz3::MakeTextFont(face, Request(-14, e), turned));
        Picture p(80, 80, true);
        TextSurface ps = p.Surface();
        const int32_t x = 40, y = 40;
        tz3::DrawTextOnSurface(ps, turned, "Fig", 3, x, y);
        for (int32_t v = 0; v < cy; ++v) {
            for (int32_t u = 0; u < cx; ++u) {
                int32_t px = 0, py = 0;
                if (e == 900) {
                    px = x + v;
                    py = y - u - 1;
                } else if (e == 1800) {
                    px = x - u - 1;
                    py = y - v - 1;
                } else {
                    px = x - v - 1;
                    py = y + u;
                }
                ASSERT_EQ(p.At(px, py), base.At(10 + u, 10 + v)) << e << ": " << u << "," << v;
            }
        }
    }
}

TEST(DrawText, UnderlineAndStrikeoutAddLinesAcrossTheText) {
    TextFace face;
    ASSERT_TRUE(face.Open(Request(0)));
    tz3::FontRequest r = Request(-20);
    TextFont plain, under, struck;
    ASSERT_TRUE(tz3::MakeTextFont(face, r, plain));
    r.underline = 1;
    ASSERT_TRUE(tz3::MakeTextFont(face, r, under));
    r.underline = 0;
    r.strikeOut = 1;
    ASSERT_TRUE(tz3::MakeTextFont(face, r, struck));
    Picture a(80, 40), b(80, 40), c(80, 40);
    TextSurface as = a.Surface(), bs = b.Surface(), cs = c.Surface();
    tz3::DrawTextOnSurface(as, plain, "ab", 2, 2, 2);
    tz3::DrawTextOnSurface(bs, under, "ab", 2, 2, 2);
    tz3::DrawTextOnSurface(cs, struck, "ab", 2, 2, 2);
    EXPECT_GT(b.Count(), a.Count());
    EXPECT_GT(c.Count(), a.Count());
    EXPECT_NE(b.bits, c.bits);
}

TEST(DrawText, AnOpaqueCellErasesInkOfTheCharacterBefore) {
    TextFace face;
    ASSERT_TRUE(face.Open(Request(0)));
    TextFont font;
    ASSERT_TRUE(tz3::MakeTextFont(face, Request(-20), font));
    Picture p(60, 40);
    TextSurface s = p.Surface();
    tz3::DrawTextOnSurface(s, font, "M", 1, 4, 4);
    const int before = p.Count();
    // A space drawn half a character to the right wipes the right half of the M.
    int32_t cx = 0, cy = 0;
    tz3::TextExtent(font, "M", 1, &cx, &cy);
    tz3::DrawTextOnSurface(s, font, " ", 1, 4 + cx / 2, 4);
    EXPECT_LT(p.Count(), before);
    EXPECT_GT(p.Count(), 0);
}

TEST(DrawText, PixelsOffTheSurfaceAreDropped) {
    TextFace face;
    ASSERT_TRUE(face.Open(Request(0)));
    TextFont font;
    ASSERT_TRUE(tz3::MakeTextFont(face, Request(-30, 1800), font));
    Picture p(10, 10);
    TextSurface s = p.Surface();
    EXPECT_GT(tz3::DrawTextOnSurface(s, font, "Wide text", 9, -50, 200), 0);
    EXPECT_EQ(p.Count(), 0);
    EXPECT_GT(tz3::DrawTextOnSurface(s, font, "Wide text", 9, 8, 8), 0);
}

}  // namespace
