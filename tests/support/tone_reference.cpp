#include "support/tone_reference.h"

#include <bit>
#include <cmath>
#include <limits>

namespace tz3test {

int Clamp(int v, int lo, int hi) {
    return v < lo ? lo : v > hi ? hi : v;
}

bool Is565(const std::vector<uint8_t> &d) {
    return Field32(d, 16) == 3 && Field32(d, 40) == 0xF800;
}

Colour Expand16(uint16_t w, bool is565) {
    if (is565) return Colour{((w >> 11) & 31) * 255 / 31, ((w >> 5) & 63) * 255 / 63, (w & 31) * 255 / 31};
    return Colour{((w >> 10) & 31) * 255 / 31, ((w >> 5) & 31) * 255 / 31, (w & 31) * 255 / 31};
}

uint16_t Pack16(Colour c, bool is565) {
    if (is565)
        return static_cast<uint16_t>(((c.r * 31 / 255) << 11) | ((c.g * 63 / 255) << 5) | (c.b * 31 / 255));
    return static_cast<uint16_t>(((c.r * 31 / 255) << 10) | ((c.g * 31 / 255) << 5) | (c.b * 31 / 255));
}

int Trunc(double v) {
    if (std::isnan(v)) return 0;
    if (v >= 2147483647.0) return std::numeric_limits<int>::max();
    if (v <= -2147483648.0) return std::numeric_limits<int>::min();
    return static_cast<int>(v);
}

float FloatOf(uint32_t bits) {
    return std::bit_cast<float>(bits);
}

float ToFloat(double v) {
    if (v >= 0x1.ffffffp127) return std::numeric_limits<float>::infinity();
    if (v <= -0x1.ffffffp127) return -std::numeric_limits<float>::infinity();
    return static_cast<float>(v);
}

const Tables &YccTables() {
    static const Tables tables = [] {
        const uint32_t weights[9] = {0x3E991687, 0x3F1645A2, 0x3DE978D5, 0x3F000000, 0xBED65E89,
                                     0xBDA685DB, 0xBE2CCA2E, 0xBEA99AE9, 0x3F000000};
        Tables t{};
        for (int n = 0; n < 9; ++n) {
            for (int i = 0; i < 256; ++i) t.t[n][i] = static_cast<float>(i) * FloatOf(weights[n]);
        }
        return t;
    }();
    return tables;
}

Ycc PixelToYcc(Colour c, double offset) {
    const auto &t = YccTables().t;
    const double d0 = t[0][c.r], d1 = t[1][c.g], d2 = t[2][c.b];
    const double d3 = t[3][c.r], d4 = t[4][c.g], d5 = t[5][c.b];
    const double d6 = t[6][c.r], d7 = t[7][c.g], d8 = t[8][c.b];
    return Ycc{Trunc(d0 + d1 + d2), Trunc(d3 + d4 + d5 + offset), Trunc(d6 + d7 + d8 + offset)};
}

int PaletteYRedBlueGreen(Colour c) {
    return Trunc(c.r * 0.299 + c.b * 0.114 + c.g * 0.587);
}
int PaletteYGreenRedBlue(Colour c) {
    return Trunc(c.g * 0.587 + c.r * 0.299 + c.b * 0.114);
}
int PaletteCr(Colour c, double offset) {
    return Trunc(c.b * -0.08131 + c.r * 0.5 + c.g * -0.41869 + offset);
}
int PaletteCb(Colour c, double offset) {
    return Trunc(c.g * -0.33126 + c.b * 0.5 + c.r * -0.16874 + offset);
}

Colour BackToRgb(float y, float cr, float cb) {
    const double toRed = FloatOf(0x3FB374BC), crToGreen = FloatOf(0x3F36D1E1),
                 cbToGreen = FloatOf(0x3EB0331E), toBlue = FloatOf(0x3FE2D0E5);
    const double yd = y, crd = cr, cbd = cb;
    const int blue = Trunc(cbd * toBlue + yd);
    const int green = Trunc(yd - cbd * cbToGreen - crd * crToGreen);
    const int red = Trunc(crd * toRed + yd);
    return Colour{Clamp(red, 0, 255), Clamp(green, 0, 255), Clamp(blue, 0, 255)};
}

Colour BackToRgb(int64_t y, int64_t cr, int64_t cb) {
    return BackToRgb(static_cast<float>(y), static_cast<float>(cr), static_cast<float>(cb));
}

}  // namespace tz3test
