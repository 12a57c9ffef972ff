// Palette pixels: indices of 1, 4 or 8 bits packed in a row. Bit 7 of a byte is the leftmost of its
// eight 1-bit pixels; the high nibble is the left one of its two 4-bit pixels.
#pragma once

#include <cstdint>

namespace tz3 {

template <uint16_t Bits>
struct IndexPixel {
    static_assert(Bits == 1 || Bits == 4 || Bits == 8, "palette pixels have 1, 4 or 8 bits");
    static constexpr uint16_t kBitCount = Bits;

    // The index at column x of a row.
    static uint8_t Get(const uint8_t *row, int32_t x) {
        if constexpr (Bits == 1) {
            return static_cast<uint8_t>((row[x >> 3] >> (7 - (x & 7))) & 1u);
        } else if constexpr (Bits == 4) {
            return (x & 1) == 0 ? static_cast<uint8_t>(row[x >> 1] >> 4)
                                : static_cast<uint8_t>(row[x >> 1] & 15u);
        } else {
            return row[x];
        }
    }

    // ORs a value into the place of column x of a row that starts zeroed. The value is shifted into
    // place as it stands: at 1 bit only its low bit fits, at 4 bits an even column keeps its low
    // nibble while an odd column takes the whole byte.
    static void Or(uint8_t *row, int32_t x, uint8_t value) {
        if constexpr (Bits == 1) {
            if ((value & 1u) != 0) row[x >> 3] = static_cast<uint8_t>(row[x >> 3] | (0x80u >> (x & 7)));
        } else if constexpr (Bits == 4) {
            row[x >> 1] =
                static_cast<uint8_t>(row[x >> 1] | ((x & 1) == 0 ? static_cast<uint8_t>(value << 4) : value));
        } else {
            row[x] = static_cast<uint8_t>(row[x] | value);
        }
    }
};
using Index1 = IndexPixel<1>;
using Index4 = IndexPixel<4>;
using Index8 = IndexPixel<8>;

}  // namespace tz3
