// Mirror: both flips copy the image (and mask) aside, zero the pixel rows, and write each row back
// from the copy, reporting progress after every row.
//
//   depth      horizontal flip
//   1, 4       OR-ed into the zeroed row bit by bit / nibble by nibble, so padding ends up zero
//   8..32      whole pixels copied; a 32-bit pixel keeps its fourth byte
//   mask       flipped like a 1-bit image with its own stride
// The vertical flip moves whole rows, padding included, and does not depend on the depth.
#include "geometry/mirror.h"

#include <cstring>

#include "frame/dib.h"
#include "frame/owners.h"
#include "platform/companion.h"

namespace tz3 {
namespace {

// A locked copy of a whole image; empty with the status set on failure.
OwnedBlock CopyOf(const uint8_t *dib) {
    DibHandle clone = CloneDib(dib, DibWidth(dib), DibHeight(dib), 1);
    if (clone == nullptr) return OwnedBlock();
    OwnedBlock owned(clone);
    if (!owned) SetErrorStatus(TZ3_NO_MEMORY);
    return owned;
}

void ZeroRows(uint8_t *dib) {
    std::memset(DibBits(dib), 0, static_cast<size_t>(DibRowBytes(dib)) * static_cast<uint32_t>(DibHeight(dib)));
}

template <int Bits>
void MirrorRow(const uint8_t *from, uint8_t *to, int32_t width) {
    if constexpr (Bits == 1) {
        for (int32_t x = 0; x < width; ++x) {
            const int32_t bit = (from[x >> 3] >> (7 - (x & 7))) & 1;
            const int32_t t = width - 1 - x;
            to[t >> 3] = static_cast<uint8_t>(to[t >> 3] | (bit << (7 - (t & 7))));
        }
    } else if constexpr (Bits == 4) {
        // An even column is the high nibble, at the source as at the target.
        for (int32_t x = 0; x < width; ++x) {
            const int32_t value = (x & 1) ? (from[x >> 1] & 15) : (from[x >> 1] >> 4);
            const int32_t t = width - 1 - x;
            to[t >> 1] = static_cast<uint8_t>(to[t >> 1] | ((t & 1) ? value : value << 4));
        }
    } else {
        constexpr int32_t kBytes = Bits / 8;
        for (int32_t x = 0; x < width; ++x) std::memcpy(to + (width - 1 - x) * kBytes, from + x * kBytes, kBytes);
    }
}

template <int Bits>
bool FlipRowsHorizontal(uint8_t *image, const uint8_t *imageCopy, uint8_t *mask, const uint8_t *maskCopy,
                        int32_t noDialog, uint8_t percentLow, uint8_t percentHigh) {
    const int32_t width = DibWidth(image);
    const int32_t height = DibHeight(image);
    const size_t stride = static_cast<uint32_t>(DibRowBytes(image));
    const size_t maskStride = mask != nullptr ? static_cast<uint32_t>(DibRowBytes(mask)) : 0;
    for (int32_t y = 0; y < height; ++y) {
        MirrorRow<Bits>(DibBits(imageCopy) + stride * y, DibBits(image) + stride * y, width);
        if (mask != nullptr)
            MirrorRow<1>(DibBits(maskCopy) + maskStride * y, DibBits(mask) + maskStride * y, DibWidth(mask));
        if (PercentProgress(y, height - 1, percentLow, percentHigh, noDialog) == 0) {
            SetErrorStatus(TZ3_CANCELLED);
            return false;
        }
    }
    return true;
}

}  // namespace

int32_t FlipDibHorizontal(uint8_t *image, uint8_t *mask, int32_t noDialog, uint8_t percentLow, uint8_t percentHigh) {
    OwnedBlock imageCopy = CopyOf(image);
    if (!imageCopy) return 0;
    OwnedBlock maskCopy;
    if (mask != nullptr) {
        maskCopy = CopyOf(mask);
        if (!maskCopy) return 0;
        ZeroRows(mask);
    }
    ZeroRows(image);
    const uint8_t *from = imageCopy.bytes();
    const uint8_t *maskFrom = maskCopy.bytes();
    bool done = false;
    switch (DibBitCount(image)) {
        case 1: done = FlipRowsHorizontal<1>(image, from, mask, maskFrom, noDialog, percentLow, percentHigh); break;
        case 4: done = FlipRowsHorizontal<4>(image, from, mask, maskFrom, noDialog, percentLow, percentHigh); break;
        case 8: done = FlipRowsHorizontal<8>(image, from, mask, maskFrom, noDialog, percentLow, percentHigh); break;
        case 16: done = FlipRowsHorizontal<16>(image, from, mask, maskFrom, noDialog, percentLow, percentHigh); break;
        case 24: done = FlipRowsHorizontal<24>(image, from, mask, maskFrom, noDialog, percentLow, percentHigh); break;
        case 32: done = FlipRowsHorizontal<32>(image, from, mask, maskFrom, noDialog, percentLow, percentHigh); break;
        default: SetErrorStatus(TZ3_BAD_IMAGE); break;
    }
    return done ? 1 : 0;
}

int32_t FlipDibVertical(uint8_t *image, uint8_t *mask, int32_t noDialog, uint8_t percentLow, uint8_t percentHigh) {
    OwnedBlock imageCopy = CopyOf(image);
    if (!imageCopy) return 0;
    OwnedBlock maskCopy;
    if (mask != nullptr) {
        maskCopy = CopyOf(mask);
        if (!maskCopy) return 0;
        ZeroRows(mask);
    }
    ZeroRows(image);
    const int32_t height = DibHeight(image);
    const size_t stride = static_cast<uint32_t>(DibRowBytes(image));
    const size_t maskStride = mask != nullptr ? static_cast<uint32_t>(DibRowBytes(mask)) : 0;
    for (int32_t y = 0; y < height; ++y) {
        std::memcpy(DibBits(image) + stride * (height - 1 - y), DibBits(imageCopy.bytes()) + stride * y, stride);
        if (mask != nullptr)
            std::memcpy(DibBits(mask) + maskStride * (height - 1 - y), DibBits(maskCopy.bytes()) + maskStride * y,
                        maskStride);
        if (PercentProgress(y, height - 1, percentLow, percentHigh, noDialog) == 0) {
            SetErrorStatus(TZ3_CANCELLED);
            return 0;
        }
    }
    return 1;
}

}  // namespace tz3
