// The packed bitmap in a block: a 40-byte header, the colour table at offset 40, and bottom-up rows
// padded to four bytes at 40 + GetDibPalSize. Header fields are little-endian and read byte-wise.
#pragma once

#include <cfloat>
#include <cstdint>
#include <cstring>

#include "tz3effect.h"

// Single-precision values stay single and double sums stay double only when the compiler evaluates
// each type in its own precision (SSE, not x87).
static_assert(FLT_EVAL_METHOD == 0, "floating point must be evaluated in each type's own precision");

namespace tz3 {

constexpr uint32_t kHeaderBytes = 40;
constexpr uint32_t kWidthOffset = 4;
constexpr uint32_t kHeightOffset = 8;
constexpr uint32_t kPlanesOffset = 12;
constexpr uint32_t kBitCountOffset = 14;
constexpr uint32_t kCompressionOffset = 16;
constexpr uint32_t kSizeImageOffset = 20;
constexpr uint32_t kClrUsedOffset = 32;
constexpr uint32_t kBiRgb = 0;
constexpr uint32_t kBiBitfields = 3;
// Every size handed to the allocator stays at or below this.
constexpr uint64_t kMaxBlockBytes = 0x7FFFFFFF;

// Accepted formats, as a byte of flags.
enum FormatMask : uint8_t {
    kFormat1 = 1,
    kFormat4 = 2,
    kFormat8Gray = 4,
    kFormat8 = 8,
    kFormat16 = 16,
    kFormat24 = 32,
    kFormat32 = 64,
    kFormatAll = 127,
};

inline uint16_t ReadU16(const uint8_t *p) { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }
inline uint32_t ReadU32(const uint8_t *p) {
    return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) | (static_cast<uint32_t>(p[2]) << 16) |
           (static_cast<uint32_t>(p[3]) << 24);
}
inline int32_t ReadS32(const uint8_t *p) { return static_cast<int32_t>(ReadU32(p)); }
inline void WriteU16(uint8_t *p, uint16_t v) {
    p[0] = static_cast<uint8_t>(v);
    p[1] = static_cast<uint8_t>(v >> 8);
}
inline void WriteU32(uint8_t *p, uint32_t v) {
    p[0] = static_cast<uint8_t>(v);
    p[1] = static_cast<uint8_t>(v >> 8);
    p[2] = static_cast<uint8_t>(v >> 16);
    p[3] = static_cast<uint8_t>(v >> 24);
}

inline int32_t DibWidth(const uint8_t *dib) { return ReadS32(dib + kWidthOffset); }
inline int32_t DibHeight(const uint8_t *dib) { return ReadS32(dib + kHeightOffset); }
inline uint16_t DibBitCount(const uint8_t *dib) { return ReadU16(dib + kBitCountOffset); }

// The row stride: bits = bitCount x width as a signed 32-bit product, q = bits / 32, stride 4q when
// bits is a whole number of words, else 4q + 4. The only place strides are computed.
inline int32_t DibRowBytes(int32_t bitCount, int32_t width) {
    const auto bits = static_cast<int32_t>(static_cast<uint32_t>(static_cast<int64_t>(bitCount) * width));
    const int32_t q = bits / 32;
    return bits == 32 * q ? 4 * q : 4 * q + 4;
}
inline int32_t DibRowBytes(const uint8_t *dib) { return DibRowBytes(DibBitCount(dib), DibWidth(dib)); }

// Where the pixel rows begin.
uint8_t *DibBits(uint8_t *dib);
const uint8_t *DibBits(const uint8_t *dib);

// 1 when the block of `size` bytes holds the header, the colour table and every row the header
// claims, computed in 64 bits; else status 7 and 0. Run before any other look at a caller's block.
int32_t CheckDibBlock(const uint8_t *dib, size_t size);

// 1 when the image's format is among those of formatMask, else status 7 and 0. The three 16-bit
// channel masks are written only for an accepted 16-bit image with known masks.
int32_t CheckDibFormat(const uint8_t *dib, uint8_t formatMask, uint32_t *redMask, uint32_t *greenMask,
                       uint32_t *blueMask);

// 1 for an 8-bit image whose 256 entries are gray and hold each level exactly once, in any order.
int32_t IsGrayPalette(const uint8_t *dib);

// A new unlocked block with the header and colour table of dib, width x height pixels; with
// withPixels the rows are copied as they lie (meaningful only at the source's own size).
DibHandle CloneDib(const uint8_t *dib, int32_t width, int32_t height, int32_t withPixels);

}  // namespace tz3
