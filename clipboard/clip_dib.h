// What the clipboard exports share: the size of a packed bitmap as the clipboard counts it, and
// the row-by-row copy that reports progress.
#pragma once

#include <cstdint>
#include <cstring>

#include "frame/dib.h"
#include "platform/companion.h"

namespace tz3 {

// The layout of a packed bitmap on its way to or from the clipboard: head bytes (header, colour
// table and, for the reader, any channel masks), then height rows of stride bytes.
struct ClipLayout {
    uint64_t head = 0;
    uint64_t stride = 0;
    int32_t height = 0;
    uint64_t Total() const { return head + stride * static_cast<uint64_t>(height); }
};

// The header's own biSize counts, so a larger header passes; the table is 4 x DibNumColors. A
// block too short for the header or for what the header claims, a top-down or negative-width
// image, or rows too wide to address cannot be copied without reading outside the block: false.
inline bool ClipLayoutOf(const uint8_t *dib, size_t size, bool withChannelMasks, ClipLayout &out) {
    if (dib == nullptr || size < kHeaderBytes) return false;
    const uint32_t biSize = ReadU32(dib);
    const uint16_t bitCount = DibBitCount(dib);
    uint64_t head = static_cast<uint64_t>(biSize) + 4ull * DibNumColors(dib);
    if (withChannelMasks && (bitCount == 16 || bitCount == 32) && biSize != 12 &&
        ReadU32(dib + kCompressionOffset) == kBiBitfields) {
        head += 12;
    }
    const int64_t bits = static_cast<int64_t>(bitCount) * DibWidth(dib);
    const int32_t height = DibHeight(dib);
    if (bits < 0 || bits > INT32_MAX || height < 0) return false;
    out.head = head;
    out.stride = static_cast<uint64_t>(DibRowBytes(bitCount, DibWidth(dib)));
    out.height = height;
    return out.Total() <= size;
}

// Copies the head and then each row, reporting PercentProgress(row, height) after each. False
// (status 1) when the user cancelled.
inline bool CopyClipRows(const uint8_t *from, uint8_t *to, const ClipLayout &layout, int32_t noDialog) {
    std::memcpy(to, from, static_cast<size_t>(layout.head));
    const auto stride = static_cast<size_t>(layout.stride);
    const uint8_t *s = from + layout.head;
    uint8_t *d = to + layout.head;
    for (int32_t row = 0; row < layout.height; ++row, s += stride, d += stride) {
        std::memcpy(d, s, stride);
        if (PercentProgress(row, layout.height, 0, 100, noDialog) == 0) {
            SetErrorStatus(TZ3_CANCELLED);
            return false;
        }
    }
    return true;
}

}  // namespace tz3
