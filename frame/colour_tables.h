// Colour tables shared by the tone operations, the gray level map of 8-bit gray images and the
// nearest-colour search in a palette.
//
// A per-pixel conversion is the same for every pixel, so its products are tabulated once per call:
// 256 single-precision floats per table, indexed by an 8-bit channel value, all tables of one
// builder end to end in one block of their own that stays locked for the record's whole life and is
// freed with it. Nothing is cached between calls.
#pragma once

#include <bit>
#include <cstdint>

#include "frame/maths.h"
#include "frame/owners.h"

namespace tz3 {

constexpr int32_t kTableEntries = 256;

// The JFIF luma and chroma weights in double precision. Palette workers multiply with these
// directly, while pixel workers go through the float tables below, so the two paths can differ by
// one step.
constexpr double kYRed = 0.299;
constexpr double kYGreen = 0.587;
constexpr double kYBlue = 0.114;
constexpr double kCrRed = 0.5;
constexpr double kCrGreen = -0.41869;
constexpr double kCrBlue = -0.08131;
constexpr double kCbRed = -0.16874;
constexpr double kCbGreen = -0.33126;
constexpr double kCbBlue = 0.5;

// The tables of BuildYccTables, in block order; the luma tables are the first three.
enum YccTable : int32_t {
    kTableYRed,
    kTableYGreen,
    kTableYBlue,
    kTableCrRed,
    kTableCrGreen,
    kTableCrBlue,
    kTableCbRed,
    kTableCbGreen,
    kTableCbBlue,
    kYccTableCount,
};
constexpr int32_t kLumaTableCount = 3;
constexpr int32_t kGammaTableCount = 3;

// The same weights as single-precision constants, fixed by their bit patterns so that no
// decimal-to-float rounding of a compiler can move them.
constexpr uint32_t kYccWeightBits[kYccTableCount] = {
    0x3E991687,  // 0.299
    0x3F1645A2,  // 0.587
    0x3DE978D5,  // 0.114
    0x3F000000,  // 0.5
    0xBED65E89,  // -0.41869
    0xBDA685DB,  // -0.08131
    0xBE2CCA2E,  // -0.16874
    0xBEA99AE9,  // -0.33126
    0x3F000000,  // 0.5
};
constexpr float kYccWeights[kYccTableCount] = {
    std::bit_cast<float>(kYccWeightBits[0]), std::bit_cast<float>(kYccWeightBits[1]),
    std::bit_cast<float>(kYccWeightBits[2]), std::bit_cast<float>(kYccWeightBits[3]),
    std::bit_cast<float>(kYccWeightBits[4]), std::bit_cast<float>(kYccWeightBits[5]),
    std::bit_cast<float>(kYccWeightBits[6]), std::bit_cast<float>(kYccWeightBits[7]),
    std::bit_cast<float>(kYccWeightBits[8]),
};

// YCC table entry: table[i] = (float)i * weight, a single-precision product rounded once. The
// weight is the float constant, never the double one.
inline float YccEntry(int32_t i, float weight) {
    return static_cast<float>(i) * weight;
}

// A double stored as float with round-to-nearest, as the hardware does; a value beyond float's
// range becomes an infinity here rather than undefined behaviour.
inline float StoreAsFloat(double v) {
    constexpr double kOverflow = 0x1.ffffffp127;  // FLT_MAX plus half a unit: rounds up to infinity
    if (v >= kOverflow) return std::bit_cast<float>(0x7F800000u);
    if (v <= -kOverflow) return std::bit_cast<float>(0xFF800000u);
    return static_cast<float>(v);
}

// Gamma table entry, in double with x = i / 255:
//   table[i] = (float)((x - (sqrt(x) - x) * k) * 255.0)
// A curve on the square root: k = 0 is the identity, positive k pulls mid-tones down, negative k
// lifts them, and 0 and 255 stay fixed whatever k is. Not clamped: the caller clamps.
inline float GammaEntry(int32_t i, double k) {
    const double x = static_cast<double>(i) / 255.0;
    return StoreAsFloat((x - (Sqrt(x) - x) * k) * 255.0);
}

// Squared distance between a colour table entry and a colour; at most 3 x 255 x 255 = 195075.
inline int32_t PaletteDistance(int32_t entryRed, int32_t entryGreen, int32_t entryBlue, int32_t red,
                               int32_t green, int32_t blue) {
    const int32_t dr = entryRed - red;
    const int32_t dg = entryGreen - green;
    const int32_t db = entryBlue - blue;
    return dr * dr + dg * dg + db * db;
}

// The nine YCC tables, t[n][i] = YccEntry(i, kYccWeights[n]), in one 9216-byte block.
struct YccTables {
    OwnedBlock block;
    const float *t[kYccTableCount] = {};
};
// The luma tables t0..t2 of the YCC set, in one 3072-byte block.
struct LumaTables {
    OwnedBlock block;
    const float *t[kLumaTableCount] = {};
};
// Three gamma curves, t[n][i] = GammaEntry(i, kn), in one 3072-byte block.
struct GammaTables {
    OwnedBlock block;
    const float *t[kGammaTableCount] = {};
};

// Each builder fills a fresh block and hands it to out, ending any block out held before. Without
// memory: false, status 3, and out untouched.
bool BuildYccTables(YccTables &out);
bool BuildLumaTables(LumaTables &out);
bool BuildGammaTables(GammaTables &out, double k0, double k1, double k2);

// Index of the colour table entry nearest to the colour by squared distance. The table holds
// biClrUsed entries, or 2, 16 or 256 by depth when that is 0; a direct-colour image without
// biClrUsed has none and gives 0. The whole table is searched and the lowest of equally near
// indices wins. Sets no status.
uint8_t NearestPaletteIndex(uint8_t red, uint8_t green, uint8_t blue, const uint8_t *dib);

// The 8-bit gray images' two-way map in one 512-byte block: toLevel[index] is the gray level
// (rgbBlue) of a palette entry and toIndex[level] the entry that holds it, so any order of the gray
// levels in the palette, a reversed ramp included, is served.
constexpr uint32_t kGrayMapBytes = 512;
struct GrayLevelMap {
    OwnedBlock block;
    const uint8_t *toLevel = nullptr;
    const uint8_t *toIndex = nullptr;
};
// Built from the entries of dib's colour table in ascending order, at most 256 of them. Without
// memory: false, status 3, and out untouched.
bool BuildGrayLevelMap(const uint8_t *dib, GrayLevelMap &out);

// The fixed tables that new images and fixed-table reductions share, written as colour-table
// entries (blue, green, red, 0).
// The 16 colours hold their half levels at 127, not 128: the table is this library's own and
// results depend on it.
void WriteFixedPalette16(uint8_t *table);
// The 6 x 6 x 6 cube: entry 36 b + 6 g + r holds blue 51 b, green 51 g, red 51 r (each the integer
// part of level / 5.0 x 255.0, which is level x 51 exactly), so red changes fastest.
void WriteFixedPalette216(uint8_t *table);

}  // namespace tz3
