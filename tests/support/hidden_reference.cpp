#include "support/hidden_reference.h"

#include <cstring>

#include "support/test_images.h"

namespace tz3test {
namespace {

float FloatBits(uint32_t bits) {
    float f;
    std::memcpy(&f, &bits, 4);
    return f;
}

// Table entry: the float of i times the float weight, rounded once to float.
double Entry(int i, uint32_t weightBits) { return static_cast<double>(static_cast<float>(i) * FloatBits(weightBits)); }

int Trunc255(double v) {
    if (v <= -1.0) return 0;
    if (v >= 256.0) return 255;
    const int t = static_cast<int>(v);
    return t < 0 ? 0 : t > 255 ? 255 : t;
}

}  // namespace

int32_t ReferenceLumaByte(uint8_t red, uint8_t green, uint8_t blue) {
    const double sum = Entry(red, 0x3E991687) + Entry(green, 0x3F1645A2) + Entry(blue, 0x3DE978D5);
    return static_cast<int32_t>(static_cast<int64_t>(sum) & 0xFF);
}

std::vector<uint8_t> ReferenceSecretMark(const std::vector<uint8_t> &image, const std::vector<uint8_t> &stamp,
                                         int32_t strength, int32_t x0, int32_t y0) {
    std::vector<uint8_t> out = image;
    const int width = ImageWidth(image);
    const int height = ImageHeight(image);
    const size_t stride = RowBytes(24, width);
    const size_t bits = PixelOffset(image);
    const int stampWidth = ImageWidth(stamp);
    const int stampHeight = ImageHeight(stamp);
    for (int my = 0; my < stampHeight; ++my) {
        for (int mx = 0; mx < stampWidth; ++mx) {
            if (!MaskBit(stamp, mx, my)) continue;
            const int64_t ix = static_cast<int64_t>(x0) + mx;
            const int64_t iy = (height - 1) - static_cast<int64_t>(y0) - ((stampHeight - 1) - my);
            if (ix < 0 || ix >= width || iy < 0 || iy >= height) continue;
            const size_t at = bits + stride * static_cast<size_t>(iy) + 3 * static_cast<size_t>(ix);
            const int blue = image[at], green = image[at + 1], red = image[at + 2];
            int64_t y = ReferenceLumaByte(static_cast<uint8_t>(red), static_cast<uint8_t>(green),
                                      static_cast<uint8_t>(blue));
            const float cr = static_cast<float>(Entry(red, 0x3F000000) + Entry(green, 0xBED65E89) +
                                                Entry(blue, 0xBDA685DB) + 128.0);
            const float cb = static_cast<float>(Entry(red, 0xBE2CCA2E) + Entry(green, 0xBEA99AE9) +
                                                Entry(blue, 0x3F000000) + 128.0);
            if (y <= 255 - static_cast<int64_t>(strength) && y >= -static_cast<int64_t>(strength)) {
                y = (y + strength) % 256;
            }
            const float a = cb - 128.0f;
            const float b = cr - 128.0f;
            const double yd = static_cast<float>(y);
            out[at] = static_cast<uint8_t>(Trunc255(yd + static_cast<double>(a) * FloatBits(0x3FE2D0E5)));
            out[at + 1] = static_cast<uint8_t>(Trunc255(yd - static_cast<double>(a) * FloatBits(0x3EB0331E) -
                                                        static_cast<double>(b) * FloatBits(0x3F36D1E1)));
            out[at + 2] = static_cast<uint8_t>(Trunc255(yd + static_cast<double>(b) * FloatBits(0x3FB374BC)));
        }
    }
    return out;
}

std::vector<uint8_t> ReferenceSecretCheck(const std::vector<uint8_t> &plain, const std::vector<uint8_t> &marked,
                                          int32_t threshold) {
    const int width = ImageWidth(plain);
    const int height = ImageHeight(plain);
    std::vector<uint8_t> mask = MakeDibBytes(width, height, 1);
    mask[44] = mask[45] = mask[46] = 255;
    const size_t stride = RowBytes(24, width);
    const size_t maskStride = RowBytes(1, width);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const size_t p = PixelOffset(plain) + stride * y + 3 * x;
            const size_t m = PixelOffset(marked) + stride * y + 3 * x;
            const int rise = ReferenceLumaByte(marked[m + 2], marked[m + 1], marked[m]) -
                             ReferenceLumaByte(plain[p + 2], plain[p + 1], plain[p]);
            if (rise >= threshold) mask[48 + maskStride * y + x / 8] |= static_cast<uint8_t>(0x80 >> (x % 8));
        }
    }
    return mask;
}

}  // namespace tz3test
