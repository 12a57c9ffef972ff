// Image blocks as the tool holds them: an owner that frees the block on every way out, a lock that
// is released the same way, little-endian field access and the checked layout of a packed bitmap.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>

#include "tz3effect.h"

namespace tz3cli {

// Largest block the library accepts.
constexpr uint64_t kMaxBlockBytes = 0x7FFFFFFF;
constexpr uint32_t kHeaderBytes = 40;
constexpr uint32_t kBiRgb = 0;
constexpr uint32_t kBiBitfields = 3;

class DibOwner {
  public:
    DibOwner() = default;
    explicit DibOwner(DibHandle h) : h_(h) {}
    DibOwner(const DibOwner &) = delete;
    DibOwner &operator=(const DibOwner &) = delete;
    DibOwner(DibOwner &&other) noexcept : h_(std::exchange(other.h_, nullptr)) {}
    DibOwner &operator=(DibOwner &&other) noexcept {
        Reset(std::exchange(other.h_, nullptr));
        return *this;
    }
    ~DibOwner() { Reset(); }

    DibHandle Get() const { return h_; }
    explicit operator bool() const { return h_ != nullptr; }
    void Reset(DibHandle h = nullptr) {
        if (h_ != nullptr) Tz3GlobalFree(h_);
        h_ = h;
    }

  private:
    DibHandle h_ = nullptr;
};

// A zeroed block of `bytes`; throws Failure("out of memory") when the allocator refuses.
DibOwner AllocBlock(uint64_t bytes);

// The bytes of a block while it is locked. Throws Failure when the block cannot be locked.
class LockedDib {
  public:
    explicit LockedDib(DibHandle h);
    LockedDib(const LockedDib &) = delete;
    LockedDib &operator=(const LockedDib &) = delete;
    ~LockedDib() { Tz3GlobalUnlock(h_); }

    uint8_t *Data() const { return data_; }
    size_t Size() const { return size_; }

  private:
    DibHandle h_;
    uint8_t *data_;
    size_t size_;
};

inline uint16_t ReadU16(const uint8_t *p) {
    return static_cast<uint16_t>(p[0] | (p[1] << 8));
}
inline uint32_t ReadU32(const uint8_t *p) {
    return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) |
           (static_cast<uint32_t>(p[2]) << 16) | (static_cast<uint32_t>(p[3]) << 24);
}
inline int32_t ReadI32(const uint8_t *p) {
    return static_cast<int32_t>(ReadU32(p));
}
inline void WriteU16(uint8_t *p, uint16_t v) {
    p[0] = static_cast<uint8_t>(v);
    p[1] = static_cast<uint8_t>(v >> 8);
}
inline void WriteU32(uint8_t *p, uint32_t v) {
    for (int i = 0; i < 4; ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
}
inline void WriteI32(uint8_t *p, int32_t v) {
    WriteU32(p, static_cast<uint32_t>(v));
}

// Row stride of a packed bitmap: bits per row rounded up to whole 32-bit words.
inline uint64_t RowStride(uint32_t bitCount, uint64_t width) {
    return (bitCount * width + 31) / 32 * 4;
}

// Colour-table entries that a header announces: biClrUsed, or the full table of 1, 4 and 8 bits.
inline uint64_t DefaultTableEntries(uint32_t bitCount) {
    return bitCount <= 8 ? (uint64_t{1} << bitCount) : 0;
}

// Which 16-bit layout a pixel word has.
enum class Layout16 { k555, k565 };

// The layout of a packed bitmap held in a block, after checking that the block holds everything
// the header claims. Throws Failure naming `what` when it does not.
struct DibLayout {
    int32_t width;
    int32_t height;
    uint32_t bitCount;
    uint32_t compression;
    uint32_t tableEntries;  // entries at offset 40, the masks of a bit-field image included
    uint64_t pixelOffset;
    uint64_t stride;
    Layout16 layout16;  // meaningful for 16 bits only
};
DibLayout ReadDibLayout(const uint8_t *dib, size_t size, const char *what);

// Writes the 40-byte header of a new image (biPlanes 1, biSizeImage stride x height).
void WriteDibHeader(uint8_t *dib, int32_t width, int32_t height, uint32_t bitCount, uint32_t compression,
                    uint32_t clrUsed, int32_t xPelsPerMeter, int32_t yPelsPerMeter, uint32_t clrImportant);

// Writes colour-table entry i (blue, green, red, reserved 0).
inline void WriteRgbQuad(uint8_t *table, uint32_t i, uint8_t red, uint8_t green, uint8_t blue) {
    uint8_t *q = table + 4 * static_cast<size_t>(i);
    q[0] = blue;
    q[1] = green;
    q[2] = red;
    q[3] = 0;
}

// Expands an n-bit channel value to 8 bits, truncating: c * 255 / (2^n - 1).
inline uint8_t ExpandChannel(uint32_t c, uint32_t bits) {
    return static_cast<uint8_t>(c * 255 / ((1u << bits) - 1));
}

}  // namespace tz3cli
