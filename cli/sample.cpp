#include "sample.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace tz3cli {
namespace {

constexpr int kWidth = 640;
constexpr int kHeight = 480;

struct Rgb {
    uint8_t r, g, b;
};

constexpr Rgb kBlack{0, 0, 0};
constexpr Rgb kWhite{255, 255, 255};

// The picture top-down, three bytes a pixel in R, G, B order, before it becomes bottom-up B, G, R.
class Canvas {
  public:
    Canvas() : pixels_(static_cast<size_t>(kWidth) * kHeight) {}
    void Set(int x, int y, Rgb c) {
        if (x >= 0 && x < kWidth && y >= 0 && y < kHeight) pixels_[static_cast<size_t>(y) * kWidth + x] = c;
    }
    Rgb Get(int x, int y) const { return pixels_[static_cast<size_t>(y) * kWidth + x]; }
    template <typename Paint>
    void Fill(int x0, int y0, int x1, int y1, Paint paint) {  // inclusive corners
        for (int y = y0; y <= y1; ++y) {
            for (int x = x0; x <= x1; ++x) Set(x, y, paint(x, y));
        }
    }

  private:
    std::vector<Rgb> pixels_;
};

uint8_t Byte(int v) {
    return static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v);
}
Rgb Gray(int v) {
    return Rgb{Byte(v), Byte(v), Byte(v)};
}

// Fully saturated colour of a hue in 0..1535: six segments of 256 steps, red, yellow, green, cyan,
// blue, magenta.
Rgb Hue(int hue) {
    const int f = hue % 256;
    switch (hue / 256 % 6) {
        case 0:
            return Rgb{255, Byte(f), 0};
        case 1:
            return Rgb{Byte(255 - f), 255, 0};
        case 2:
            return Rgb{0, 255, Byte(f)};
        case 3:
            return Rgb{0, Byte(255 - f), 255};
        case 4:
            return Rgb{Byte(f), 0, 255};
        default:
            return Rgb{255, 0, Byte(255 - f)};
    }
}

// Mixes c towards white by amount/range.
Rgb TowardsWhite(Rgb c, int amount, int range) {
    auto mix = [amount, range](uint8_t v) { return Byte(v + (255 - v) * amount / range); };
    return Rgb{mix(c.r), mix(c.g), mix(c.b)};
}

// Angle of (dx, dy), dy upward, as 0..1535 for a full turn. It is the position along a diamond
// rather than a circle, which keeps the card free of floating point and equal everywhere.
int PseudoAngle(int dx, int dy) {
    const int ax = std::abs(dx), ay = std::abs(dy);
    if (ax + ay == 0) return 0;
    int angle;
    if (dx >= 0 && dy >= 0) {
        angle = 384 * ay / (ax + ay);
    } else if (dx < 0 && dy >= 0) {
        angle = 384 + 384 * ax / (ax + ay);
    } else if (dx < 0) {
        angle = 768 + 384 * ay / (ax + ay);
    } else {
        angle = 1152 + 384 * ax / (ax + ay);
    }
    return angle % 1536;
}

int IntSqrt(int v) {
    int r = 0;
    while ((r + 1) * (r + 1) <= v) ++r;
    return r;
}

// 5 x 7 glyphs, '#' set, for the few characters the card writes.
struct Glyph {
    char ch;
    const char *rows[7];
};

const Glyph kGlyphs[] = {
    {'A', {".###.", "#...#", "#...#", "#####", "#...#", "#...#", "#...#"}},
    {'C', {".###.", "#...#", "#....", "#....", "#....", "#...#", ".###."}},
    {'D', {"####.", "#...#", "#...#", "#...#", "#...#", "#...#", "####."}},
    {'E', {"#####", "#....", "#....", "####.", "#....", "#....", "#####"}},
    {'F', {"#####", "#....", "#....", "####.", "#....", "#....", "#...."}},
    {'R', {"####.", "#...#", "#...#", "####.", "#.#..", "#..#.", "#...#"}},
    {'S', {".####", "#....", "#....", ".###.", "....#", "....#", "####."}},
    {'T', {"#####", "..#..", "..#..", "..#..", "..#..", "..#..", "..#.."}},
    {'X', {"#...#", "#...#", ".#.#.", "..#..", ".#.#.", "#...#", "#...#"}},
    {'Z', {"#####", "....#", "...#.", "..#..", ".#...", "#....", "#####"}},
    {'0', {".###.", "#...#", "#..##", "#.#.#", "##..#", "#...#", ".###."}},
    {'1', {"..#..", ".##..", "..#..", "..#..", "..#..", "..#..", ".###."}},
    {'2', {".###.", "#...#", "....#", "...#.", "..#..", ".#...", "#####"}},
    {'3', {"#####", "...#.", "..#..", "...#.", "....#", "#...#", ".###."}},
    {'4', {"...#.", "..##.", ".#.#.", "#..#.", "#####", "...#.", "...#."}},
    {'5', {"#####", "#....", "####.", "....#", "....#", "#...#", ".###."}},
    {'6', {"..##.", ".#...", "#....", "####.", "#...#", "#...#", ".###."}},
    {'7', {"#####", "....#", "...#.", "..#..", ".#...", ".#...", ".#..."}},
    {'8', {".###.", "#...#", "#...#", ".###.", "#...#", "#...#", ".###."}},
    {'9', {".###.", "#...#", "#...#", ".####", "....#", "...#.", ".##.."}},
};
constexpr int kGlyphCount = static_cast<int>(sizeof kGlyphs / sizeof kGlyphs[0]);

void DrawGlyph(Canvas &canvas, const Glyph &glyph, int x, int y, int scale, Rgb ink) {
    for (int row = 0; row < 7; ++row) {
        for (int col = 0; col < 5; ++col) {
            if (glyph.rows[row][col] != '#') continue;
            canvas.Fill(x + col * scale, y + row * scale, x + col * scale + scale - 1,
                        y + row * scale + scale - 1, [ink](int, int) { return ink; });
        }
    }
}

// Writes text with one column of space between glyphs; characters without a glyph are spaces.
void DrawText(Canvas &canvas, const char *text, int x, int y, int scale, Rgb ink) {
    for (; *text != '\0'; ++text, x += 6 * scale) {
        for (const Glyph &glyph : kGlyphs) {
            if (glyph.ch == *text) DrawGlyph(canvas, glyph, x, y, scale, ink);
        }
    }
}

void DrawBands(Canvas &c) {
    c.Fill(0, 0, 639, 39, [](int x, int) { return Gray(x * 255 / 639); });
    c.Fill(0, 40, 639, 59, [](int x, int) { return Gray(x / 40 * 17); });
    c.Fill(0, 60, 639, 79, [](int x, int) { return Rgb{Byte(x * 255 / 639), 0, 0}; });
    c.Fill(0, 80, 639, 99, [](int x, int) { return Rgb{0, Byte(x * 255 / 639), 0}; });
    c.Fill(0, 100, 639, 119, [](int x, int) { return Rgb{0, 0, Byte(x * 255 / 639)}; });
    c.Fill(0, 120, 639, 149, [](int x, int) { return Hue(x * 1536 / 640); });
    c.Fill(0, 150, 639, 179, [](int x, int y) { return TowardsWhite(Hue(x * 1536 / 640), y - 150, 29); });
}

void DrawHueWheel(Canvas &c) {
    constexpr int cx = 120, cy = 330, radius = 105;
    c.Fill(0, 180, 239, 479, [](int, int) { return Gray(128); });
    c.Fill(cx - radius, cy - radius, cx + radius, cy + radius, [&c](int x, int y) {
        const int dx = x - cx, dy = cy - y;
        const int r = IntSqrt(dx * dx + dy * dy);
        if (r > radius) return c.Get(x, y);
        return TowardsWhite(Hue(PseudoAngle(dx, dy)), radius - r, radius);
    });
}

void DrawFineDetail(Canvas &c) {
    auto ink = [](bool black) { return black ? kBlack : kWhite; };
    // 1-pixel and 2-pixel checkerboards, vertical and horizontal 1-pixel lines.
    c.Fill(240, 180, 289, 239, [&](int x, int y) { return ink(((x + y) & 1) != 0); });
    c.Fill(290, 180, 339, 239, [&](int x, int y) { return ink(((x / 2 + y / 2) & 1) != 0); });
    c.Fill(340, 180, 389, 239, [&](int x, int) { return ink((x & 1) != 0); });
    c.Fill(390, 180, 439, 239, [&](int, int y) { return ink((y & 1) != 0); });
    // Diagonal lines, rings that narrow outwards, a dot grid, bars widening downwards.
    c.Fill(240, 240, 289, 299, [&](int x, int y) { return ink((x + y) % 4 == 0); });
    c.Fill(290, 240, 339, 299, [&](int x, int y) {
        const int dx = x - 314, dy = y - 269;
        return ink(((dx * dx + dy * dy) / 24 & 1) != 0);
    });
    c.Fill(340, 240, 389, 299, [&](int x, int y) { return ink(x % 3 == 0 && y % 3 == 0); });
    c.Fill(390, 240, 439, 299, [&](int x, int y) { return ink((x - 390) / (1 + (y - 240) / 15) % 2 == 0); });
    // Sharp edges: black to white, a slanted edge, red to cyan, blue over yellow.
    c.Fill(240, 300, 289, 329, [&](int x, int) { return ink(x < 265); });
    c.Fill(290, 300, 339, 329, [&](int x, int y) { return ink((x - 290) * 30 < (y - 300) * 50); });
    c.Fill(340, 300, 389, 329, [](int x, int) { return x < 365 ? Rgb{255, 0, 0} : Rgb{0, 255, 255}; });
    c.Fill(390, 300, 439, 329, [](int, int y) { return y < 315 ? Rgb{0, 0, 255} : Rgb{255, 255, 0}; });
}

// Directions of the 16 lines through the star's centre, 11.25 degrees apart, times 1000, rounded.
const int kStarLines[16][2] = {
    {1000, 0}, {981, 195},  {924, 383},  {831, 556},  {707, 707},  {556, 831},  {383, 924},  {195, 981},
    {0, 1000}, {-195, 981}, {-383, 924}, {-556, 831}, {-707, 707}, {-831, 556}, {-924, 383}, {-981, 195},
};

void DrawStar(Canvas &c) {
    constexpr int cx = 540, cy = 255, radius = 70;
    c.Fill(440, 180, 639, 329, [](int x, int y) {
        if (x == 440 || x == 639 || y == 180 || y == 329) return kBlack;
        const int dx = x - cx, dy = cy - y;
        if (dx * dx + dy * dy > radius * radius) return kWhite;
        // Each line crossed flips the count's parity, so the 32 sectors alternate.
        int side = 0;
        for (const auto &line : kStarLines) side += line[0] * dy - line[1] * dx > 0 ? 1 : 0;
        return side % 2 == 0 ? kBlack : kWhite;
    });
}

void DrawTextArea(Canvas &c) {
    c.Fill(240, 330, 639, 409, [](int, int) { return kWhite; });
    DrawText(c, "TZ3EFFECT TEST CARD", 248, 334, 2, kBlack);
    DrawText(c, "TZ3", 544, 334, 4, Rgb{200, 0, 0});
    DrawText(c, "640 X 480  0123456789", 248, 352, 1, kBlack);
    // Lines of glyph-like words, drawn from a fixed linear congruential sequence.
    uint32_t seed = 12345;
    auto next = [&seed](uint32_t range) {
        seed = seed * 1103515245u + 12345u;
        return (seed >> 16) % range;
    };
    for (int line = 0; line < 4; ++line) {
        const int y = 364 + line * 11;
        int x = 248;
        while (x + 6 <= 630) {
            const int word = 2 + static_cast<int>(next(6));
            for (int i = 0; i < word && x + 6 <= 630; ++i, x += 6) {
                DrawGlyph(c, kGlyphs[next(static_cast<uint32_t>(kGlyphCount))], x, y, 1, Rgb{20, 40, 120});
            }
            x += 6;
        }
    }
}

void DrawPatches(Canvas &c) {
    const Rgb patches[16] = {
        {0, 0, 0},     {255, 255, 255}, {255, 0, 0},     {0, 255, 0},     {0, 0, 255},     {0, 255, 255},
        {255, 0, 255}, {255, 255, 0},   {255, 128, 0},   {224, 172, 140}, {110, 160, 220}, {60, 140, 60},
        {64, 64, 64},  {128, 128, 128}, {192, 192, 192}, {120, 72, 32},
    };
    for (int i = 0; i < 16; ++i) {
        const int x0 = 240 + (i % 8) * 50, y0 = 410 + (i / 8) * 35;
        c.Fill(x0, y0, x0 + 49, y0 + 34, [&](int, int) { return patches[i]; });
    }
}

}  // namespace

DibOwner MakeTestCard() {
    Canvas canvas;
    DrawBands(canvas);
    DrawHueWheel(canvas);
    DrawFineDetail(canvas);
    DrawStar(canvas);
    DrawTextArea(canvas);
    DrawPatches(canvas);

    const uint64_t stride = RowStride(24, kWidth);
    DibOwner block = AllocBlock(kHeaderBytes + stride * kHeight);
    LockedDib bytes(block.Get());
    WriteDibHeader(bytes.Data(), kWidth, kHeight, 24, kBiRgb, 0, 0, 0, 0);
    for (int y = 0; y < kHeight; ++y) {
        uint8_t *row = bytes.Data() + kHeaderBytes + stride * static_cast<uint64_t>(kHeight - 1 - y);
        for (int x = 0; x < kWidth; ++x) {
            const Rgb p = canvas.Get(x, y);
            row[3 * x + 0] = p.b;
            row[3 * x + 1] = p.g;
            row[3 * x + 2] = p.r;
        }
    }
    return block;
}

}  // namespace tz3cli
