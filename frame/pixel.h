// Pixel formats that workers are written over. Each is a record of static inline functions: how to
// fetch a pixel's red, green and blue from its bytes and how to store them back, with the format's
// own rules (the 16-bit expand and pack losses, the fourth byte of a 32-bit pixel left alone).
#pragma once

#include <cstdint>

#include "frame/dib.h"

namespace tz3 {

struct Rgb {
    uint8_t r, g, b;
};

// 16-bit channels to 8 bits: c x 255 / 31 (or / 63), truncating.
inline Rgb ChannelExpand16(uint16_t word, bool is565) {
    const uint32_t blue = word & 31u;
    if (is565) {
        return Rgb{static_cast<uint8_t>(((word >> 11) & 31u) * 255 / 31),
                   static_cast<uint8_t>(((word >> 5) & 63u) * 255 / 63), static_cast<uint8_t>(blue * 255 / 31)};
    }
    return Rgb{static_cast<uint8_t>(((word >> 10) & 31u) * 255 / 31),
               static_cast<uint8_t>(((word >> 5) & 31u) * 255 / 31), static_cast<uint8_t>(blue * 255 / 31)};
}

// 8 bits to 16-bit channels: v x 31 / 255 (or x 63 / 255), truncating. After an expand this is no
// identity: a 5-bit channel c in 2..30 comes back as c - 1, and results depend on that loss. Bit 15
// of a 5-5-5 word is left clear.
inline uint16_t ChannelPack16(Rgb c, bool is565) {
    const uint32_t blue = c.b * 31u / 255;
    const uint32_t red = c.r * 31u / 255;
    if (is565) return static_cast<uint16_t>((red << 11) | ((c.g * 63u / 255) << 5) | blue);
    return static_cast<uint16_t>((red << 10) | ((c.g * 31u / 255) << 5) | blue);
}

struct Pix24 {
    static constexpr int32_t kBytes = 3;
    static constexpr uint16_t kBitCount = 24;
    static Rgb Fetch(const uint8_t *p) { return Rgb{p[2], p[1], p[0]}; }
    static void Store(uint8_t *p, Rgb c) {
        p[0] = c.b;
        p[1] = c.g;
        p[2] = c.r;
    }
};

// The fourth byte is neither read nor written: it keeps whatever the clone copied.
struct Pix32 {
    static constexpr int32_t kBytes = 4;
    static constexpr uint16_t kBitCount = 32;
    static Rgb Fetch(const uint8_t *p) { return Rgb{p[2], p[1], p[0]}; }
    static void Store(uint8_t *p, Rgb c) {
        p[0] = c.b;
        p[1] = c.g;
        p[2] = c.r;
    }
};

// A little-endian word, 5-5-5 or 5-6-5, chosen once per call from the red channel mask.
template <bool Is565>
struct Pix16 {
    static constexpr int32_t kBytes = 2;
    static constexpr uint16_t kBitCount = 16;
    static Rgb Fetch(const uint8_t *p) { return ChannelExpand16(ReadU16(p), Is565); }
    static void Store(uint8_t *p, Rgb c) { WriteU16(p, ChannelPack16(c, Is565)); }
};
using Pix16x555 = Pix16<false>;
using Pix16x565 = Pix16<true>;

// The 5-5-5 words are told from the 5-6-5 ones by the red mask alone.
constexpr uint32_t kRed555Mask = 0x7C00;

}  // namespace tz3
