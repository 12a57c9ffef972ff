// Literal references of the colour arithmetic of the tone operations, written from the rules alone
// and sharing no code with the library: the walk over a table or the pixels, the 16-bit expand and
// pack, truncation, the YCC tables built from the bit patterns of their float weights, the Y, Cr
// and Cb sums in their written orders, and the way back with the float constants.
#pragma once

#include <cstdint>
#include <vector>

#include "support/test_images.h"

namespace tz3test {

struct Colour {
    int r, g, b;
};

int Clamp(int v, int lo, int hi);

// A 16-bit image stores the 5-6-5 bit fields.
bool Is565(const std::vector<uint8_t> &d);

Colour Expand16(uint16_t w, bool is565);
uint16_t Pack16(Colour c, bool is565);

// The walk of every tone operation: a palette image has each of its table entries changed and
// keeps its indices; a direct-colour image has each pixel with a set bit in an image-size mask (or
// every pixel without one) changed, 16-bit channels expanded before and packed after. The result's
// biSizeImage is stride x height.
template <class Rule>
std::vector<uint8_t> Reference(const std::vector<uint8_t> &src, const std::vector<uint8_t> *mask, Rule rule) {
    std::vector<uint8_t> out = src;
    const int bits = src[14];
    const int w = ImageWidth(src), h = ImageHeight(src);
    const size_t stride = RowBytes(bits, w);
    SetField32(out, 20, static_cast<uint32_t>(stride * h));
    if (bits <= 8) {
        for (uint32_t i = 0; i < TableEntries(src); ++i) {
            uint8_t *e = &out[40 + 4 * i];
            const Colour c = rule(Colour{e[2], e[1], e[0]});
            e[0] = static_cast<uint8_t>(c.b);
            e[1] = static_cast<uint8_t>(c.g);
            e[2] = static_cast<uint8_t>(c.r);
        }
        return out;
    }
    const size_t at = PixelOffset(src);
    const bool is565 = Is565(src);
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            if (mask != nullptr && !MaskBit(*mask, x, y)) continue;
            uint8_t *p = &out[at + stride * y + static_cast<size_t>(x) * (bits / 8)];
            if (bits == 16) {
                const uint16_t word =
                    Pack16(rule(Expand16(static_cast<uint16_t>(p[0] | (p[1] << 8)), is565)), is565);
                p[0] = static_cast<uint8_t>(word);
                p[1] = static_cast<uint8_t>(word >> 8);
            } else {
                const Colour c = rule(Colour{p[2], p[1], p[0]});
                p[0] = static_cast<uint8_t>(c.b);
                p[1] = static_cast<uint8_t>(c.g);
                p[2] = static_cast<uint8_t>(c.r);
            }
        }
    }
    return out;
}

// Floating point to integer truncates toward zero; beyond the 32-bit range it saturates, NaN is 0.
int Trunc(double v);

// The float of a bit pattern.
float FloatOf(uint32_t bits);

// A double stored as float, rounded to nearest; beyond float's range an infinity.
float ToFloat(double v);

// The nine single-precision tables: entry i is (float)i times the float weight, rounded once.
struct Tables {
    float t[9][256];
};
const Tables &YccTables();

struct Ycc {
    int y, cr, cb;
};

// Pixels: the table entries summed in double in the written order, then truncated; `offset` is
// the 128 added to the chroma sums before truncation.
Ycc PixelToYcc(Colour c, double offset);

// Palette entries: the double constants, each sum in its own order.
int PaletteYRedBlueGreen(Colour c);
int PaletteYGreenRedBlue(Colour c);
int PaletteCr(Colour c, double offset);
int PaletteCb(Colour c, double offset);

// The way back: the values held as floats, the float constants, double arithmetic, truncation,
// clamps.
Colour BackToRgb(float y, float cr, float cb);

// Integers (64-bit, so that no value can wrap) held as floats on the way back.
Colour BackToRgb(int64_t y, int64_t cr, int64_t cb);

}  // namespace tz3test
