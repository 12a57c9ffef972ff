// TZ3CreateImage: a new image of one solid colour, with a fixed colour table at the palette depths.
//
//   depth   head   colour table                       fill
//   1       48     black, white                       every pixel bit set when (R + G + B) / 3 > 127
//   4       104    the 16 colours below                the nearest entry, high nibble for even columns
//   8       904    the 6 x 6 x 6 cube, biClrUsed 216   the nearest entry
//   16      40     none                               5-5-5: R x 31 / 255 << 10 | G x 31 / 255 << 5 | ...
//   24/32   40     none                               blue, green, red; a 32-bit fourth byte stays 0
//
// The progress total is the height argument minus one, taken before the height is raised to 1, so
// a height of 0 reports 0 of -1; the progress service accepts that.
#include <algorithm>
#include <cstring>

#include "frame/call.h"
#include "frame/colour_tables.h"
#include "frame/pixel.h"

namespace tz3 {
namespace {

constexpr uint32_t kCube = 216;

void WriteEntry(uint8_t *table, uint32_t i, uint8_t red, uint8_t green, uint8_t blue) {
    uint8_t *e = table + 4 * i;
    e[0] = blue;
    e[1] = green;
    e[2] = red;
    e[3] = 0;
}

// Bytes of header and colour table by depth; 0 for a depth this does not make.
uint32_t HeadBytes(int32_t bitCount) {
    switch (bitCount) {
        case 1:
            return 48;
        case 4:
            return 104;
        case 8:
            return 904;
        case 16:
        case 24:
        case 32:
            return 40;
        default:
            return 0;
    }
}

// The first row, as every row will be: pixels only, the pad left zero.
template <uint16_t Bits>
void FillFirstRow(uint8_t *row, const uint8_t *dib, int32_t width, uint8_t red, uint8_t green, uint8_t blue) {
    const auto w = static_cast<size_t>(width);
    if constexpr (Bits == 1) {
        if ((red + green + blue) / 3 > 127) {
            std::memset(row, 0xFF, w / 8);
            if (w % 8 != 0) row[w / 8] = static_cast<uint8_t>(0xFF00u >> (w % 8));
        }
    } else if constexpr (Bits == 4) {
        const uint8_t i = NearestPaletteIndex(red, green, blue, dib);
        std::memset(row, (i << 4) | i, w / 2);
        if (w % 2 != 0) row[w / 2] = static_cast<uint8_t>(i << 4);
    } else if constexpr (Bits == 8) {
        std::memset(row, NearestPaletteIndex(red, green, blue, dib), w);
    } else if constexpr (Bits == 16) {
        const auto word =
            static_cast<uint16_t>(((red * 31 / 255) << 10) | ((green * 31 / 255) << 5) | (blue * 31 / 255));
        for (size_t x = 0; x < w; ++x) WriteU16(row + 2 * x, word);
    } else {
        constexpr size_t kBytes = Bits / 8;
        for (size_t x = 0; x < w; ++x) {
            row[kBytes * x] = blue;
            row[kBytes * x + 1] = green;
            row[kBytes * x + 2] = red;
        }
    }
}

// Writes the first row, then each further one as its copy, reporting after each.
template <uint16_t Bits>
bool CreateImageWorker(uint8_t *dib, int32_t width, int32_t height, int32_t total, uint8_t red, uint8_t green,
                       uint8_t blue, int32_t noDialog) {
    const auto stride = static_cast<size_t>(DibRowBytes(Bits, width));
    uint8_t *bits = DibBits(dib);
    for (int32_t y = 0; y < height; ++y) {
        uint8_t *row = bits + stride * static_cast<size_t>(y);
        if (y == 0) {
            FillFirstRow<Bits>(row, dib, width, red, green, blue);
        } else {
            std::memcpy(row, bits, stride);
        }
        if (PercentProgress(y, total, 0, 100, noDialog) == 0) {
            SetErrorStatus(TZ3_CANCELLED);
            return false;
        }
    }
    return true;
}

DibHandle CreateImage(int32_t width, int32_t height, int32_t bitCountArg, int32_t redArg, int32_t greenArg,
                      int32_t blueArg, int32_t noDialog) {
    // height - 1 before the clamp, wrapping as 32-bit arithmetic does.
    const auto total = static_cast<int32_t>(static_cast<uint32_t>(height) - 1u);
    width = std::max(width, 1);
    height = std::max(height, 1);
    const int32_t bitCount = static_cast<int16_t>(bitCountArg);
    const uint32_t head = HeadBytes(bitCount);
    if (head == 0) {
        SetErrorStatus(TZ3_BAD_DEPTH);
        return nullptr;
    }
    // A row whose bit count passes the signed 32-bit stride rule would wrap to a short stride: such
    // a size is refused as too large.
    if (static_cast<int64_t>(bitCount) * width > INT32_MAX) {
        SetErrorStatus(TZ3_NO_MEMORY);
        return nullptr;
    }
    const int32_t stride = DibRowBytes(bitCount, width);
    const uint64_t imageBytes = static_cast<uint64_t>(stride) * static_cast<uint64_t>(height);
    OwnedBlock block = AllocLocked(head + imageBytes);
    if (!block) return nullptr;
    uint8_t *dib = block.bytes();
    WriteU32(dib, kHeaderBytes);
    WriteU32(dib + kWidthOffset, static_cast<uint32_t>(width));
    WriteU32(dib + kHeightOffset, static_cast<uint32_t>(height));
    WriteU16(dib + kPlanesOffset, 1);
    WriteU16(dib + kBitCountOffset, static_cast<uint16_t>(bitCount));
    WriteU32(dib + kSizeImageOffset, static_cast<uint32_t>(imageBytes));
    const auto red = static_cast<uint8_t>(redArg);
    const auto green = static_cast<uint8_t>(greenArg);
    const auto blue = static_cast<uint8_t>(blueArg);
    uint8_t *table = dib + kHeaderBytes;
    bool done = false;
    switch (bitCount) {
        case 1:
            WriteEntry(table, 1, 255, 255, 255);
            done = CreateImageWorker<1>(dib, width, height, total, red, green, blue, noDialog);
            break;
        case 4:
            WriteFixedPalette16(table);
            done = CreateImageWorker<4>(dib, width, height, total, red, green, blue, noDialog);
            break;
        case 8:
            // The table's length must be in the header before anything looks for the pixel rows.
            WriteU32(dib + kClrUsedOffset, kCube);
            WriteFixedPalette216(table);
            done = CreateImageWorker<8>(dib, width, height, total, red, green, blue, noDialog);
            break;
        case 16:
            done = CreateImageWorker<16>(dib, width, height, total, red, green, blue, noDialog);
            break;
        case 24:
            done = CreateImageWorker<24>(dib, width, height, total, red, green, blue, noDialog);
            break;
        default:
            done = CreateImageWorker<32>(dib, width, height, total, red, green, blue, noDialog);
            break;
    }
    if (!done) return nullptr;
    return block.Release();
}

}  // namespace
}  // namespace tz3

extern "C" TZ3_API DibHandle TZ3CreateImage(int32_t width, int32_t height, int32_t bitCount, int32_t red,
                                            int32_t green, int32_t blue, int32_t noDialog, intptr_t dialog1,
                                            intptr_t dialog2, intptr_t dialog3) {
    return tz3::RunExport<DibHandle>(noDialog, dialog1, dialog2, dialog3, [&] {
        return tz3::CreateImage(width, height, bitCount, red, green, blue, noDialog);
    });
}
