// The way into Y, Cr, Cb and back, shared by the YCC tone operations and chroma.
//
// Pixel workers go in through the float tables of BuildYccTables, summed in double in the order
// red, green, blue. Palette workers multiply with the double constants instead, in orders of their
// own: the two ways can differ by one, and gray 128 gives Y 128 in the gamma order but 127 in the
// level order. The way back is the same everywhere: the new values are exact integers (or, for
// chroma, scaled values) held as floats, multiplied by single-precision constants in double,
// truncated, clamped. Nothing rounds, so an unchanged pixel can move: white comes back as 254.
#pragma once

#include <bit>

#include "frame/arith.h"
#include "frame/colour_tables.h"
#include "frame/pixel.h"

namespace tz3 {

struct Ycc {
    int32_t y, cr, cb;
};

// Y, Cr, Cb from the tables, offset 128 added to the chroma sums before truncation (0 for chroma).
// Every sum lies within -256..512, so the plain conversion truncates it.
inline Ycc YccFromTables(const YccTables &t, Rgb c, double chromaOffset) {
    const auto at = [&](int32_t n, uint8_t v) { return static_cast<double>(t.t[n][v]); };
    return Ycc{static_cast<int32_t>(at(kTableYRed, c.r) + at(kTableYGreen, c.g) + at(kTableYBlue, c.b)),
               static_cast<int32_t>(at(kTableCrRed, c.r) + at(kTableCrGreen, c.g) + at(kTableCrBlue, c.b) +
                                    chromaOffset),
               static_cast<int32_t>(at(kTableCbRed, c.r) + at(kTableCbGreen, c.g) + at(kTableCbBlue, c.b) +
                                    chromaOffset)};
}

// Palette entries, Y in the order of gamma: red, blue, green.
inline int32_t PaletteLumaRBG(Rgb c) { return TruncToInt32(c.r * kYRed + c.b * kYBlue + c.g * kYGreen); }
// Palette entries, Y in the order of level, reverse and chroma: green, red, blue.
inline int32_t PaletteLumaGRB(Rgb c) { return TruncToInt32(c.g * kYGreen + c.r * kYRed + c.b * kYBlue); }
inline int32_t PaletteCr(Rgb c, double offset) {
    return TruncToInt32(c.b * kCrBlue + c.r * kCrRed + c.g * kCrGreen + offset);
}
inline int32_t PaletteCb(Rgb c, double offset) {
    return TruncToInt32(c.g * kCbGreen + c.b * kCbBlue + c.r * kCbRed + offset);
}

constexpr float kCrToRed = std::bit_cast<float>(0x3FB374BCu);    // 1.402
constexpr float kCrToGreen = std::bit_cast<float>(0x3F36D1E1u);  // 0.71414
constexpr float kCbToGreen = std::bit_cast<float>(0x3EB0331Eu);  // 0.34414
constexpr float kCbToBlue = std::bit_cast<float>(0x3FE2D0E5u);   // 1.772

// Back to red, green, blue; cr and cb have 128 already taken off.
inline Rgb RgbFromYcc(float y, float cr, float cb) {
    const double yd = y, crd = cr, cbd = cb;
    const uint8_t blue = TruncClamp255(cbd * static_cast<double>(kCbToBlue) + yd);
    const uint8_t green =
        TruncClamp255(yd - cbd * static_cast<double>(kCbToGreen) - crd * static_cast<double>(kCrToGreen));
    const uint8_t red = TruncClamp255(crd * static_cast<double>(kCrToRed) + yd);
    return Rgb{red, green, blue};
}

inline Rgb RgbFromYcc(int32_t y, int32_t cr, int32_t cb) {
    return RgbFromYcc(static_cast<float>(y), static_cast<float>(cr), static_cast<float>(cb));
}

}  // namespace tz3
