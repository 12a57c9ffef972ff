// Image helpers: the block check, the format test, the gray palette test and the clone.
#include "frame/dib.h"

#include <algorithm>
#include <cstdlib>

#include "frame/owners.h"
#include "platform/companion.h"

namespace tz3 {

uint8_t *DibBits(uint8_t *dib) { return dib + kHeaderBytes + GetDibPalSize(dib); }
const uint8_t *DibBits(const uint8_t *dib) { return dib + kHeaderBytes + GetDibPalSize(dib); }

OwnedBlock AllocLocked(uint64_t bytes) {
    if (bytes > kMaxBlockBytes) {
        SetErrorStatus(TZ3_NO_MEMORY);
        return OwnedBlock();
    }
    OwnedBlock block(Tz3GlobalAlloc(TZ3_GMEM_MOVEABLE | TZ3_GMEM_ZEROINIT, static_cast<size_t>(bytes)));
    if (!block) SetErrorStatus(TZ3_NO_MEMORY);
    return block;
}

namespace {

bool KnownBitCount(uint32_t bitCount) {
    return bitCount == 1 || bitCount == 4 || bitCount == 8 || bitCount == 16 || bitCount == 24 || bitCount == 32;
}

int32_t Refuse() {
    SetErrorStatus(TZ3_BAD_IMAGE);
    return 0;
}

}  // namespace

int32_t CheckDibBlock(const uint8_t *dib, size_t size) {
    if (dib == nullptr || size < kHeaderBytes) return Refuse();
    uint64_t need = kHeaderBytes + 4ull * DibNumColors(dib);
    const int64_t width = DibWidth(dib);
    const int64_t height = DibHeight(dib);
    const uint32_t bitCount = DibBitCount(dib);
    if (KnownBitCount(bitCount) && width > 0) {
        // A row whose bit count does not fit the signed 32-bit stride rule cannot be addressed.
        const int64_t bits = width * bitCount;
        if (bits > INT32_MAX) return Refuse();
        need += static_cast<uint64_t>(DibRowBytes(static_cast<int32_t>(bitCount), static_cast<int32_t>(width))) *
                static_cast<uint64_t>(std::llabs(height));
    }
    return need <= size ? 1 : Refuse();
}

int32_t CheckDibFormat(const uint8_t *dib, uint8_t formatMask, uint32_t *redMask, uint32_t *greenMask,
                       uint32_t *blueMask) {
    switch (DibBitCount(dib)) {
        case 1:
            if (formatMask & kFormat1) return 1;
            break;
        case 4:
            if (formatMask & kFormat4) return 1;
            break;
        case 8:
            // Any 8-bit image passes at once when any palette is accepted; gray-only asks the table.
            if (formatMask & kFormat8) return 1;
            if ((formatMask & kFormat8Gray) && IsGrayPalette(dib)) return 1;
            break;
        case 16: {
            if (!(formatMask & kFormat16)) break;
            const int32_t info = GetBmp16Info(dib);
            if (info == -1) break;
            if (info == 1 || info == 3) {
                *redMask = 0x7C00;
                *greenMask = 0x03E0;
                *blueMask = 0x001F;
            } else if (info == 2) {
                *redMask = 0xF800;
                *greenMask = 0x07E0;
                *blueMask = 0x001F;
            }
            return 1;
        }
        case 24:
            if (formatMask & kFormat24) return 1;
            break;
        case 32:
            if ((formatMask & kFormat32) && GetBmp32Info(dib) != -1) return 1;
            break;
        default:
            break;
    }
    return Refuse();
}

int32_t IsGrayPalette(const uint8_t *dib) {
    if (DibBitCount(dib) != 8) return 0;
    const uint32_t used = ReadU32(dib + kClrUsedOffset);
    if (used != 0 && used != 256) return 0;
    bool seen[256] = {};
    const uint8_t *entry = dib + kHeaderBytes;
    for (int i = 0; i < 256; ++i, entry += 4) {
        const uint8_t blue = entry[0];
        if (entry[1] != blue || entry[2] != blue || seen[blue]) return 0;
        seen[blue] = true;
    }
    return 1;  // 256 distinct levels out of 256: each appears exactly once
}

DibHandle CloneDib(const uint8_t *dib, int32_t width, int32_t height, int32_t withPixels) {
    if (width < 1 || height < 1) {
        SetErrorStatus(TZ3_BAD_PARAMETER);
        return nullptr;
    }
    const uint16_t bitCount = DibBitCount(dib);
    if (!KnownBitCount(bitCount)) {
        SetErrorStatus(TZ3_BAD_PARAMETER);
        return nullptr;
    }
    // A row whose bit count does not fit the signed 32-bit stride rule would get a wrapped stride
    // (32 x 0x08000001 bits gives 4 bytes), far smaller than the row: refused as a size too large.
    if (static_cast<int64_t>(bitCount) * width > INT32_MAX) {
        SetErrorStatus(TZ3_NO_MEMORY);
        return nullptr;
    }
    const int32_t stride = DibRowBytes(bitCount, width);
    const uint64_t head = kHeaderBytes + static_cast<uint64_t>(GetDibPalSize(dib));
    const uint64_t total = head + static_cast<uint64_t>(static_cast<uint32_t>(stride)) * static_cast<uint64_t>(height);
    OwnedBlock clone = AllocLocked(total);
    if (!clone) return nullptr;
    uint8_t *out = clone.bytes();
    uint64_t copy = head;
    if (withPixels) {
        // The rows are copied as they lie, but never more than the source's own header claims: a
        // clone larger than its source keeps zero rows past the source's end.
        const int32_t srcWidth = DibWidth(dib);
        const bool srcRowsFit = srcWidth > 0 && static_cast<int64_t>(bitCount) * srcWidth <= INT32_MAX;
        const uint64_t srcRows =
            srcRowsFit ? static_cast<uint64_t>(DibRowBytes(bitCount, srcWidth)) *
                             static_cast<uint64_t>(std::llabs(static_cast<int64_t>(DibHeight(dib))))
                       : 0;
        copy = std::min(total, head + srcRows);
    }
    std::memcpy(out, dib, static_cast<size_t>(copy));
    WriteU32(out + kHeightOffset, static_cast<uint32_t>(height));
    WriteU32(out + kWidthOffset, static_cast<uint32_t>(width));
    WriteU32(out + kSizeImageOffset, static_cast<uint32_t>(static_cast<int64_t>(stride) * height));
    return clone.Release();
}

}  // namespace tz3
