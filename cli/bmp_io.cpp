// BMP files: a 14-byte file header, then a bitmap header of 40, 52, 56, 108 or 124 bytes, channel
// masks, a colour table and the pixel rows at bfOffBits. Every variant that a packed bitmap can hold
// is normalised on reading into a 40-byte header with bottom-up rows:
//
//   bits   in the file                         in the block
//   1-8    palette of biClrUsed or 2^bits      the same table and indices
//   16     BI_RGB, or bit fields 5-5-5         biCompression 0 (5-5-5)
//   16     bit fields 5-6-5                    biCompression 3, biClrUsed 3, masks as the table
//   24     BI_RGB                              the same
//   32     BI_RGB, or one byte per mask        B, G, R and the remaining byte, biCompression 0
//
// A 16 or 32-bit file's optional colour table is dropped. Every size is computed in 64 bits and
// checked against the file before a byte is read.
#include <string>

#include "cli.h"
#include "image_file.h"

namespace tz3cli {
namespace {

constexpr uint64_t kFileHeaderBytes = 14;

bool IsOneByteMask(uint32_t mask) {
    return mask == 0x000000FF || mask == 0x0000FF00 || mask == 0x00FF0000 || mask == 0xFF000000;
}

// Shift of a one-byte mask: 0, 8, 16 or 24.
uint32_t MaskShift(uint32_t mask) {
    uint32_t shift = 0;
    while ((mask & 0xFF) == 0) {
        mask >>= 8;
        shift += 8;
    }
    return shift;
}

std::string CompressionRefusal(uint32_t compression) {
    switch (compression) {
        case 1:
        case 2:
            return "RLE-compressed BMP is not supported";
        case 4:
            return "JPEG-compressed BMP is not supported";
        case 5:
            return "PNG-compressed BMP is not supported";
        case 6:
            return "BMP with alpha bit fields (compression 6) is not supported";
        default:
            return "BMP compression " + std::to_string(compression) + " is not supported";
    }
}

}  // namespace

LoadedImage DecodeBmp(const uint8_t *data, size_t size, const std::string &name) {
    auto fail = [&name](const std::string &reason) { return Failure(name + ": " + reason); };
    const uint64_t fileSize = size;
    if (fileSize < kFileHeaderBytes + 4) throw fail("truncated BMP header");
    if (data[0] != 'B' || data[1] != 'M') throw fail("not a BMP file");
    const uint64_t offBits = ReadU32(data + 10);
    const uint32_t headerSize = ReadU32(data + kFileHeaderBytes);
    switch (headerSize) {
        case 40:
        case 52:
        case 56:
        case 108:
        case 124:
            break;
        case 12:
        case 64:
            throw fail("OS/2 BMP header is not supported");
        default:
            throw fail("unknown BMP header size " + std::to_string(headerSize));
    }
    const uint64_t headerEnd = kFileHeaderBytes + headerSize;
    if (fileSize < headerEnd) throw fail("truncated BMP header");

    const uint8_t *h = data + kFileHeaderBytes;
    const int32_t width = ReadI32(h + 4);
    const int32_t rawHeight = ReadI32(h + 8);
    const uint32_t bitCount = ReadU16(h + 14);
    const uint32_t compression = ReadU32(h + 16);
    const uint32_t clrUsed = ReadU32(h + 32);

    if (compression != kBiRgb && compression != kBiBitfields) throw fail(CompressionRefusal(compression));
    switch (bitCount) {
        case 1:
        case 4:
        case 8:
        case 16:
        case 24:
        case 32:
            break;
        default:
            throw fail("bad bit count " + std::to_string(bitCount));
    }
    if (compression == kBiBitfields && bitCount != 16 && bitCount != 32) {
        throw fail("bit fields with " + std::to_string(bitCount) + " bits per pixel");
    }
    if (width <= 0) throw fail("bad width " + std::to_string(width));
    // INT32_MIN has no positive twin.
    if (rawHeight == 0 || rawHeight == INT32_MIN) throw fail("bad height " + std::to_string(rawHeight));
    const bool topDown = rawHeight < 0;
    const int32_t height = topDown ? -rawHeight : rawHeight;

    // Channel masks: inside the header from 52 bytes on, else right after a 40-byte header.
    uint64_t tableStart = headerEnd;
    uint32_t masks[3] = {0, 0, 0};
    if (compression == kBiBitfields) {
        const uint8_t *maskBytes = h + 40;
        if (headerSize == 40) {
            tableStart += 12;
            if (fileSize < tableStart) throw fail("truncated BMP header");
        }
        for (int i = 0; i < 3; ++i) masks[i] = ReadU32(maskBytes + 4 * i);
    }

    const uint64_t fullTable = DefaultTableEntries(bitCount);
    const uint64_t fileEntries = clrUsed != 0 ? clrUsed : fullTable;
    if (bitCount <= 8 && fileEntries > fullTable) {
        throw fail("colour table of " + std::to_string(fileEntries) + " entries for " +
                   std::to_string(bitCount) + "-bit pixels");
    }
    const uint64_t stride = RowStride(bitCount, static_cast<uint64_t>(width));
    // A stride above the block limit would let the product wrap even in 64 bits.
    const uint64_t rowBytes =
        stride > kMaxBlockBytes ? kMaxBlockBytes + 1 : stride * static_cast<uint64_t>(height);

    // What the block holds: the table for palettes, the three masks for 5-6-5.
    Layout16 layout16 = Layout16::k555;
    uint32_t blockCompression = kBiRgb;
    uint64_t blockEntries = bitCount <= 8 ? fileEntries : 0;
    if (bitCount == 16 && compression == kBiBitfields) {
        if (masks[0] == 0xF800 && masks[1] == 0x07E0 && masks[2] == 0x001F) {
            layout16 = Layout16::k565;
            blockCompression = kBiBitfields;
            blockEntries = 3;
        } else if (!(masks[0] == 0x7C00 && masks[1] == 0x03E0 && masks[2] == 0x001F)) {
            throw fail("16-bit bit fields other than 5-5-5 and 5-6-5 are not supported");
        }
    }
    if (bitCount == 32 && compression == kBiBitfields) {
        const bool oneByteEach =
            IsOneByteMask(masks[0]) && IsOneByteMask(masks[1]) && IsOneByteMask(masks[2]);
        if (!oneByteEach || masks[0] == masks[1] || masks[1] == masks[2] || masks[0] == masks[2]) {
            throw fail("32-bit bit fields other than one byte per channel are not supported");
        }
    }
    const uint64_t blockBytes = kHeaderBytes + 4 * blockEntries + rowBytes;
    if (blockBytes > kMaxBlockBytes) {
        throw fail("image of " + std::to_string(width) + " x " + std::to_string(height) + " at " +
                   std::to_string(bitCount) + " bits is too large");
    }

    const uint64_t tableEnd = tableStart + (bitCount <= 8 ? 4 * fileEntries : 0);
    if (tableEnd > fileSize) throw fail("colour table runs past the end of the file");
    if (offBits < tableEnd)
        throw fail("pixel data offset " + std::to_string(offBits) + " overlaps the header");
    if (offBits > fileSize || fileSize - offBits < rowBytes) {
        const uint64_t have = offBits > fileSize ? 0 : fileSize - offBits;
        throw fail("pixel data truncated (" + std::to_string(have) + " of " + std::to_string(rowBytes) +
                   " bytes)");
    }

    LoadedImage out{
        AllocBlock(blockBytes),
        ImageInfo{FileFormat::kBmp, width, height, bitCount, compression,
                  bitCount <= 8 ? static_cast<uint32_t>(fileEntries) : clrUsed, layout16, topDown}};
    LockedDib block(out.dib.Get());
    uint8_t *dib = block.Data();
    WriteDibHeader(dib, width, height, bitCount, blockCompression,
                   bitCount <= 8 ? clrUsed : static_cast<uint32_t>(blockEntries), ReadI32(h + 24),
                   ReadI32(h + 28), bitCount <= 8 ? ReadU32(h + 36) : 0);
    uint8_t *table = dib + kHeaderBytes;
    if (bitCount <= 8) {
        for (uint64_t i = 0; i < 4 * fileEntries; ++i) table[i] = data[tableStart + i];
    } else if (layout16 == Layout16::k565) {
        for (int i = 0; i < 3; ++i) WriteU32(table + 4 * i, masks[i]);
    }

    uint8_t *pixels = table + 4 * blockEntries;
    const bool reorder32 = bitCount == 32 && compression == kBiBitfields;
    uint32_t shiftBlue = 0, shiftGreen = 8, shiftRed = 16, shiftSpare = 24;
    if (reorder32) {
        shiftRed = MaskShift(masks[0]);
        shiftGreen = MaskShift(masks[1]);
        shiftBlue = MaskShift(masks[2]);
        // The byte that no channel mask names travels as the fourth byte: the shifts add up to 48.
        shiftSpare = 48 - shiftRed - shiftGreen - shiftBlue;
    }
    for (int32_t row = 0; row < height; ++row) {
        const int32_t fileRow = topDown ? height - 1 - row : row;
        const uint8_t *src = data + offBits + stride * static_cast<uint64_t>(fileRow);
        uint8_t *dst = pixels + stride * static_cast<uint64_t>(row);
        if (!reorder32) {
            for (uint64_t i = 0; i < stride; ++i) dst[i] = src[i];
            continue;
        }
        for (int32_t x = 0; x < width; ++x) {
            const uint32_t v = ReadU32(src + 4 * x);
            dst[4 * x + 0] = static_cast<uint8_t>(v >> shiftBlue);
            dst[4 * x + 1] = static_cast<uint8_t>(v >> shiftGreen);
            dst[4 * x + 2] = static_cast<uint8_t>(v >> shiftRed);
            dst[4 * x + 3] = static_cast<uint8_t>(v >> shiftSpare);
        }
    }
    return out;
}

std::vector<uint8_t> EncodeBmp(DibHandle handle) {
    LockedDib block(handle);
    const uint8_t *dib = block.Data();
    const DibLayout l = ReadDibLayout(dib, block.Size(), "image");
    // A bit-field image is written as a standard one: biClrUsed 0 and the three masks after the
    // header, so that every reader finds them where it looks.
    const bool bitfields = l.compression == kBiBitfields;
    const uint64_t tableBytes = bitfields ? 12 : 4 * static_cast<uint64_t>(l.tableEntries);
    const uint64_t offBits = kFileHeaderBytes + kHeaderBytes + tableBytes;
    const uint64_t rowBytes = l.stride * static_cast<uint64_t>(l.height);
    const uint64_t fileSize = offBits + rowBytes;
    if (fileSize > kMaxBlockBytes) throw Failure("image too large for a BMP file");

    std::vector<uint8_t> out(static_cast<size_t>(fileSize));
    out[0] = 'B';
    out[1] = 'M';
    WriteU32(&out[2], static_cast<uint32_t>(fileSize));
    WriteU32(&out[10], static_cast<uint32_t>(offBits));
    uint8_t *h = &out[kFileHeaderBytes];
    WriteDibHeader(h, l.width, l.height, l.bitCount, l.compression, bitfields ? 0 : ReadU32(dib + 32),
                   ReadI32(dib + 24), ReadI32(dib + 28), ReadU32(dib + 36));
    for (uint64_t i = 0; i < tableBytes; ++i) h[kHeaderBytes + i] = dib[kHeaderBytes + i];
    for (uint64_t i = 0; i < rowBytes; ++i) out[offBits + i] = dib[l.pixelOffset + i];
    return out;
}

}  // namespace tz3cli
