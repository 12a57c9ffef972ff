#include "dib_block.h"

#include <string>

#include "cli.h"

namespace tz3cli {

DibOwner AllocBlock(uint64_t bytes) {
    if (bytes > kMaxBlockBytes) throw Failure("image too large for one block");
    DibOwner block(Tz3GlobalAlloc(TZ3_GMEM_MOVEABLE | TZ3_GMEM_ZEROINIT, static_cast<size_t>(bytes)));
    if (!block) throw Failure("out of memory");
    return block;
}

LockedDib::LockedDib(DibHandle h) : h_(h), data_(nullptr), size_(0) {
    void *p = h == nullptr ? nullptr : Tz3GlobalLock(h);
    if (p == nullptr) throw Failure("cannot lock an image block");
    data_ = static_cast<uint8_t *>(p);
    size_ = Tz3GlobalSize(h);
}

DibLayout ReadDibLayout(const uint8_t *dib, size_t size, const char *what) {
    auto fail = [what](const std::string &reason) { return Failure(std::string(what) + ": " + reason); };
    if (size < kHeaderBytes) throw fail("image block shorter than its header");
    DibLayout l{};
    l.width = ReadI32(dib + 4);
    l.height = ReadI32(dib + 8);
    l.bitCount = ReadU16(dib + 14);
    l.compression = ReadU32(dib + 16);
    const uint32_t clrUsed = ReadU32(dib + 32);
    if (l.width < 1 || l.height < 1) {
        throw fail("image of " + std::to_string(l.width) + " x " + std::to_string(l.height) + " pixels");
    }
    switch (l.bitCount) {
        case 1:
        case 4:
        case 8:
        case 16:
        case 24:
        case 32:
            break;
        default:
            throw fail("image of " + std::to_string(l.bitCount) + " bits per pixel");
    }
    const uint64_t entries = clrUsed != 0 ? clrUsed : DefaultTableEntries(l.bitCount);
    if (l.bitCount <= 8 && entries > DefaultTableEntries(l.bitCount)) {
        throw fail("colour table of " + std::to_string(entries) + " entries for " +
                   std::to_string(l.bitCount) + "-bit pixels");
    }
    l.tableEntries = static_cast<uint32_t>(entries);
    l.pixelOffset = kHeaderBytes + 4 * entries;
    l.stride = RowStride(l.bitCount, static_cast<uint64_t>(l.width));
    if (l.pixelOffset + l.stride * static_cast<uint64_t>(l.height) > size) {
        throw fail("image block shorter than its header claims");
    }
    l.layout16 = Layout16::k555;
    if (l.compression == kBiBitfields && (l.bitCount == 16 || l.bitCount == 32) && entries >= 3) {
        // Bit-field images carry their three channel masks as the first three table entries.
        const uint32_t r = ReadU32(dib + 40), g = ReadU32(dib + 44), b = ReadU32(dib + 48);
        if (l.bitCount == 16 && r == 0xF800 && g == 0x07E0 && b == 0x001F) {
            l.layout16 = Layout16::k565;
        } else if (l.bitCount == 16 && r == 0x7C00 && g == 0x03E0 && b == 0x001F) {
            l.layout16 = Layout16::k555;
        } else if (!(l.bitCount == 32 && r == 0x00FF0000 && g == 0x0000FF00 && b == 0x000000FF)) {
            throw fail("image with channel masks that cannot be written");
        }
    } else if (l.compression != kBiRgb) {
        throw fail("image with compression " + std::to_string(l.compression));
    }
    return l;
}

void WriteDibHeader(uint8_t *dib, int32_t width, int32_t height, uint32_t bitCount, uint32_t compression,
                    uint32_t clrUsed, int32_t xPelsPerMeter, int32_t yPelsPerMeter, uint32_t clrImportant) {
    WriteU32(dib, kHeaderBytes);
    WriteI32(dib + 4, width);
    WriteI32(dib + 8, height);
    WriteU16(dib + 12, 1);
    WriteU16(dib + 14, static_cast<uint16_t>(bitCount));
    WriteU32(dib + 16, compression);
    const uint64_t rows = RowStride(bitCount, static_cast<uint64_t>(width)) * static_cast<uint64_t>(height);
    WriteU32(dib + 20, static_cast<uint32_t>(rows));
    WriteI32(dib + 24, xPelsPerMeter);
    WriteI32(dib + 28, yPelsPerMeter);
    WriteU32(dib + 32, clrUsed);
    WriteU32(dib + 36, clrImportant);
}

}  // namespace tz3cli
