// Calling TZ3ConvertColor from the tests: on a fresh copy of an image, with the caller's block
// checked afterwards, and reading indices and table entries of a result.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "support/test_images.h"
#include "tz3effect.h"

namespace tz3test {

struct Converted {
    std::vector<uint8_t> bytes;  // the result, empty when there is none
    int32_t status = -1;
};

// Converts a copy of `src` without a dialog; the copy must come back unchanged and unlocked.
inline Converted ConvertBytes(const std::vector<uint8_t> &src, int32_t target, int32_t fixedPalette = 0,
                              int32_t dither = 0, int32_t threshold = 128) {
    HandleGuard image(ToBlock(src));
    Converted c;
    DibHandle out = TZ3ConvertColor(image.h, target, fixedPalette, dither, threshold, 1, 0, 0, 0);
    c.status = Tz3GetErrorStatus();
    if (out != nullptr) {
        c.bytes = FromBlock(out);
        Tz3GlobalFree(out);
    }
    EXPECT_EQ(FromBlock(image.h), src) << "the caller's image changed";
    EXPECT_TRUE(IsUnlocked(image.h)) << "the caller's image was left locked";
    return c;
}

// The index of pixel (x, y) of a palette result (biSize 40, rows after its table).
inline int IndexAt(const std::vector<uint8_t> &d, int x, int y) {
    const int bits = d[14];
    const uint8_t *row = &d[PixelOffset(d) + static_cast<size_t>(RowBytes(bits, ImageWidth(d))) * y];
    if (bits == 1) return (row[x / 8] >> (7 - x % 8)) & 1;
    if (bits == 4) return x % 2 == 0 ? row[x / 2] >> 4 : row[x / 2] & 15;
    return row[x];
}

// Table entry i as blue, green, red, reserved.
struct Entry {
    int b, g, r, reserved;
    bool operator==(const Entry &o) const = default;
};
inline Entry EntryAt(const std::vector<uint8_t> &d, int i) {
    return Entry{d[40 + 4 * i], d[41 + 4 * i], d[42 + 4 * i], d[43 + 4 * i]};
}

// A 24-bit image whose pixels are given row by row from the bottom row, as gray levels.
inline std::vector<uint8_t> Gray24(int width, int height, const std::vector<int> &levels) {
    std::vector<uint8_t> d = MakeDibBytes(width, height, 24);
    const size_t stride = RowBytes(24, width);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const auto v = static_cast<uint8_t>(levels[static_cast<size_t>(y * width + x)]);
            uint8_t *p = &d[40 + stride * y + 3 * static_cast<size_t>(x)];
            p[0] = p[1] = p[2] = v;
        }
    }
    return d;
}

}  // namespace tz3test
