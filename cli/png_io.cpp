// PNG files through libpng. Reading maps each PNG colour type onto a packed bitmap:
//
//   PNG                              block
//   gray 1-16 bits                   8 bits, gray ramp table (levels below 8 bits scaled up)
//   palette 1, 4, 8 bits             the same depth and table; 2 bits become 4
//   RGB                              24 bits
//   RGBA, gray + alpha               32 bits, alpha in the fourth byte
//   gray or RGB with tRNS            32 bits, the transparent colour with alpha 0
//
// 16-bit samples keep their high byte. A palette's tRNS is ignored. Writing is the other way round:
// 1, 4, 8 bits as a palette PNG of that depth, 16 bits expanded to RGB, 24 bits as RGB, 32 bits as
// RGBA when any fourth byte is non-zero, else RGB.
//
// libpng reports errors by longjmp. The functions that call setjmp hold only plain values and
// pointers into a context record owned by their caller, so that nothing with a destructor is ever
// jumped over; the caller frees whatever the context holds on every way out.
#include <png.h>

#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "cli.h"
#include "image_file.h"

namespace tz3cli {
namespace {

constexpr double kInchesPerMeter = 39.37007874015748;

struct PngMessage {
    char text[200] = {};
};

void PngError(png_structp png, png_const_charp message) {
    auto *m = static_cast<PngMessage *>(png_get_error_ptr(png));
    if (m != nullptr) std::snprintf(m->text, sizeof m->text, "%s", message != nullptr ? message : "error");
    png_longjmp(png, 1);
}

// Warnings are not failures; the tool keeps standard error for its one line.
void PngWarning(png_structp, png_const_charp) {}

// ---- Reading ----

enum class PngTarget { kPalette, kGray, kRgb, kRgba };

struct ReadContext {
    const uint8_t *data = nullptr;
    size_t size = 0;
    size_t pos = 0;
    PngMessage message;
    png_structp png = nullptr;
    png_infop info = nullptr;
    png_uint_32 width = 0, height = 0;
    int depth = 0;  // of the source, for palettes
    PngTarget target = PngTarget::kRgb;
    size_t rowBytes = 0;
    uint8_t *pixels = nullptr;  // rows top-down, rowBytes each, after libpng's transformations
    png_bytep *rows = nullptr;
    png_color palette[256] = {};
    int paletteEntries = 0;
    png_uint_32 xPelsPerMeter = 0, yPelsPerMeter = 0;
    bool tooLarge = false;
    bool outOfMemory = false;

    ~ReadContext() {
        std::free(rows);
        std::free(pixels);
        if (png != nullptr) png_destroy_read_struct(&png, info != nullptr ? &info : nullptr, nullptr);
    }
};

void ReadFromMemory(png_structp png, png_bytep out, png_size_t length) {
    auto *c = static_cast<ReadContext *>(png_get_io_ptr(png));
    if (length > c->size - c->pos) png_error(png, "file truncated");
    std::memcpy(out, c->data + c->pos, length);
    c->pos += length;
}

// Decodes into c->pixels. False on any libpng error, with its message in c->message.
bool ReadPngRows(ReadContext *c) {
    if (setjmp(png_jmpbuf(c->png))) return false;
    png_set_read_fn(c->png, c, ReadFromMemory);
    png_read_info(c->png, c->info);
    int colourType = 0, interlace = 0;
    png_get_IHDR(c->png, c->info, &c->width, &c->height, &c->depth, &colourType, &interlace, nullptr,
                 nullptr);
    const bool hasTrns = png_get_valid(c->png, c->info, PNG_INFO_tRNS) != 0;
    png_set_strip_16(c->png);
    switch (colourType) {
        case PNG_COLOR_TYPE_PALETTE:
            c->target = PngTarget::kPalette;
            // 2-bit indices are unpacked to one a byte and packed again as 4-bit nibbles.
            if (c->depth == 2) png_set_packing(c->png);
            break;
        case PNG_COLOR_TYPE_GRAY:
            if (hasTrns) {
                c->target = PngTarget::kRgba;
                png_set_tRNS_to_alpha(c->png);
                png_set_gray_to_rgb(c->png);
                png_set_bgr(c->png);
            } else {
                c->target = PngTarget::kGray;
            }
            png_set_expand_gray_1_2_4_to_8(c->png);
            break;
        case PNG_COLOR_TYPE_GRAY_ALPHA:
            c->target = PngTarget::kRgba;
            png_set_gray_to_rgb(c->png);
            png_set_bgr(c->png);
            break;
        case PNG_COLOR_TYPE_RGB:
            c->target = hasTrns ? PngTarget::kRgba : PngTarget::kRgb;
            if (hasTrns) png_set_tRNS_to_alpha(c->png);
            png_set_bgr(c->png);
            break;
        default:
            c->target = PngTarget::kRgba;
            png_set_bgr(c->png);
            break;
    }
    png_set_interlace_handling(c->png);
    png_read_update_info(c->png, c->info);
    c->rowBytes = png_get_rowbytes(c->png, c->info);
    const int channels = png_get_channels(c->png, c->info);
    const int depthOut = png_get_bit_depth(c->png, c->info);
    const int expectedChannels = c->target == PngTarget::kRgba ? 4 : c->target == PngTarget::kRgb ? 3 : 1;
    if (channels != expectedChannels || (c->target != PngTarget::kPalette && depthOut != 8)) {
        png_error(c->png, "unexpected pixel layout after conversion");
    }
    // libpng keeps both sides at or below a million by default, so the product cannot wrap.
    const uint64_t total = static_cast<uint64_t>(c->rowBytes) * c->height;
    if (total > kMaxBlockBytes) {
        c->tooLarge = true;
        return false;
    }
    c->pixels = static_cast<uint8_t *>(std::calloc(static_cast<size_t>(total) + 1, 1));
    c->rows = static_cast<png_bytep *>(std::calloc(c->height, sizeof(png_bytep)));
    if (c->pixels == nullptr || c->rows == nullptr) {
        c->outOfMemory = true;
        return false;
    }
    for (png_uint_32 y = 0; y < c->height; ++y) c->rows[y] = c->pixels + static_cast<size_t>(y) * c->rowBytes;
    png_read_image(c->png, c->rows);

    if (c->target == PngTarget::kPalette) {
        png_colorp plte = nullptr;
        int n = 0;
        if (png_get_PLTE(c->png, c->info, &plte, &n) == 0 || n < 1) png_error(c->png, "missing palette");
        c->paletteEntries = n > 256 ? 256 : n;
        std::memcpy(c->palette, plte, sizeof(png_color) * static_cast<size_t>(c->paletteEntries));
    }
    png_uint_32 resX = 0, resY = 0;
    int unit = 0;
    if (png_get_pHYs(c->png, c->info, &resX, &resY, &unit) != 0 && unit == PNG_RESOLUTION_METER) {
        c->xPelsPerMeter = resX;
        c->yPelsPerMeter = resY;
    }
    return true;
}

// Index of pixel x in a row of `bits`-bit indices, most significant bits leftmost.
uint32_t IndexAt(const uint8_t *row, uint32_t x, uint32_t bits) {
    const uint32_t perByte = 8 / bits;
    const uint32_t shift = 8 - bits - (x % perByte) * bits;
    return (row[x / perByte] >> shift) & ((1u << bits) - 1);
}

int32_t ClampPelsPerMeter(png_uint_32 v) {
    return v > 0x7FFFFFFF ? 0 : static_cast<int32_t>(v);
}

// ---- Writing ----

struct WriteContext {
    std::vector<uint8_t> *out = nullptr;
    PngMessage message;
    png_structp png = nullptr;
    png_infop info = nullptr;
    bool outOfMemory = false;

    ~WriteContext() {
        if (png != nullptr) png_destroy_write_struct(&png, info != nullptr ? &info : nullptr);
    }
};

void WriteToMemory(png_structp png, png_bytep data, png_size_t length) {
    auto *c = static_cast<WriteContext *>(png_get_io_ptr(png));
    try {
        c->out->insert(c->out->end(), data, data + length);
    } catch (...) {
        c->outOfMemory = true;
    }
    // Jumped from outside the handler, so that the exception has ended first.
    if (c->outOfMemory) png_error(png, "out of memory");
}

void FlushMemory(png_structp) {}

// What EncodePng has prepared for libpng: rows top-down in the PNG's own sample layout.
struct PngPicture {
    png_uint_32 width, height;
    int depth, colourType;
    std::vector<png_color> palette;
    std::vector<uint8_t> pixels;
    size_t rowBytes;
    png_uint_32 xPelsPerMeter, yPelsPerMeter;
};

bool WritePngRows(WriteContext *c, const PngPicture *p, png_bytep *rows) {
    if (setjmp(png_jmpbuf(c->png))) return false;
    png_set_write_fn(c->png, c, WriteToMemory, FlushMemory);
    png_set_IHDR(c->png, c->info, p->width, p->height, p->depth, p->colourType, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (p->colourType == PNG_COLOR_TYPE_PALETTE) {
        png_set_PLTE(c->png, c->info, p->palette.data(), static_cast<int>(p->palette.size()));
    }
    if (p->xPelsPerMeter > 0 && p->yPelsPerMeter > 0) {
        png_set_pHYs(c->png, c->info, p->xPelsPerMeter, p->yPelsPerMeter, PNG_RESOLUTION_METER);
    }
    png_write_info(c->png, c->info);
    png_write_image(c->png, rows);
    png_write_end(c->png, c->info);
    return true;
}

}  // namespace

LoadedImage DecodePng(const uint8_t *data, size_t size, const std::string &name) {
    auto fail = [&name](const std::string &reason) { return Failure(name + ": " + reason); };
    ReadContext c;
    c.data = data;
    c.size = size;
    c.png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &c.message, PngError, PngWarning);
    if (c.png == nullptr) throw fail("out of memory");
    c.info = png_create_info_struct(c.png);
    if (c.info == nullptr) throw fail("out of memory");
    if (!ReadPngRows(&c)) {
        if (c.tooLarge) {
            throw fail("image of " + std::to_string(c.width) + " x " + std::to_string(c.height) +
                       " is too large");
        }
        if (c.outOfMemory) throw fail("out of memory");
        throw fail(std::string("damaged PNG file (") + c.message.text + ")");
    }

    const int32_t width = static_cast<int32_t>(c.width);
    const int32_t height = static_cast<int32_t>(c.height);
    uint32_t bitCount = 24;
    uint32_t entries = 0;
    switch (c.target) {
        case PngTarget::kPalette:
            bitCount = c.depth == 2 ? 4 : static_cast<uint32_t>(c.depth);
            break;
        case PngTarget::kGray:
            bitCount = 8;
            entries = 256;
            break;
        case PngTarget::kRgb:
            bitCount = 24;
            break;
        case PngTarget::kRgba:
            bitCount = 32;
            break;
    }
    if (c.target == PngTarget::kPalette) {
        // Indices past the palette would make the library read past the table: lengthen the table
        // with black entries instead.
        uint32_t maxIndex = 0;
        const uint32_t sourceBits = c.depth == 2 ? 8 : static_cast<uint32_t>(c.depth);
        for (png_uint_32 y = 0; y < c.height; ++y) {
            for (png_uint_32 x = 0; x < c.width; ++x) {
                const uint32_t index = IndexAt(c.rows[y], x, sourceBits);
                if (index > maxIndex) maxIndex = index;
            }
        }
        entries = static_cast<uint32_t>(c.paletteEntries);
        if (maxIndex + 1 > entries) entries = maxIndex + 1;
    }
    const uint64_t stride = RowStride(bitCount, c.width);
    const uint64_t blockBytes = kHeaderBytes + 4 * static_cast<uint64_t>(entries) + stride * c.height;
    if (blockBytes > kMaxBlockBytes) {
        throw fail("image of " + std::to_string(c.width) + " x " + std::to_string(c.height) +
                   " is too large");
    }

    LoadedImage out{AllocBlock(blockBytes), ImageInfo{FileFormat::kPng, width, height, bitCount, kBiRgb,
                                                      entries, Layout16::k555, false}};
    LockedDib block(out.dib.Get());
    uint8_t *dib = block.Data();
    // A table that fills its depth is written as biClrUsed 0, as BMP writers do; a gray image has
    // the full 256-entry ramp, which the library knows as gray.
    const uint32_t clrUsed = entries == DefaultTableEntries(bitCount) ? 0 : entries;
    WriteDibHeader(dib, width, height, bitCount, kBiRgb, clrUsed, ClampPelsPerMeter(c.xPelsPerMeter),
                   ClampPelsPerMeter(c.yPelsPerMeter), 0);
    uint8_t *table = dib + kHeaderBytes;
    for (uint32_t i = 0; i < entries; ++i) {
        if (c.target == PngTarget::kGray) {
            const auto level = static_cast<uint8_t>(i);
            WriteRgbQuad(table, i, level, level, level);
        } else if (i < static_cast<uint32_t>(c.paletteEntries)) {
            WriteRgbQuad(table, i, c.palette[i].red, c.palette[i].green, c.palette[i].blue);
        }
    }
    uint8_t *pixels = table + 4 * static_cast<uint64_t>(entries);
    for (png_uint_32 y = 0; y < c.height; ++y) {
        const uint8_t *src = c.rows[y];
        uint8_t *dst = pixels + stride * (c.height - 1 - y);
        if (c.target == PngTarget::kPalette && c.depth == 2) {
            for (png_uint_32 x = 0; x < c.width; ++x) {
                dst[x / 2] = static_cast<uint8_t>(dst[x / 2] | (src[x] << (x % 2 == 0 ? 4 : 0)));
            }
        } else {
            std::memcpy(dst, src, c.rowBytes);
        }
    }
    return out;
}

std::vector<uint8_t> EncodePng(DibHandle handle) {
    LockedDib block(handle);
    const uint8_t *dib = block.Data();
    const DibLayout l = ReadDibLayout(dib, block.Size(), "image");
    const uint8_t *pixels = dib + l.pixelOffset;
    const auto width = static_cast<uint32_t>(l.width);
    const auto height = static_cast<uint32_t>(l.height);

    PngPicture p{width, height, 8, PNG_COLOR_TYPE_RGB, {}, {}, 0, 0, 0};
    const int32_t xPels = ReadI32(dib + 24), yPels = ReadI32(dib + 28);
    if (xPels > 0 && yPels > 0) {
        p.xPelsPerMeter = static_cast<png_uint_32>(xPels);
        p.yPelsPerMeter = static_cast<png_uint_32>(yPels);
    }
    bool alpha = false;
    if (l.bitCount == 32) {
        for (uint32_t y = 0; y < height && !alpha; ++y) {
            const uint8_t *row = pixels + l.stride * y;
            for (uint32_t x = 0; x < width; ++x) alpha = alpha || row[4 * x + 3] != 0;
        }
    }
    if (l.bitCount <= 8) {
        p.depth = static_cast<int>(l.bitCount);
        p.colourType = PNG_COLOR_TYPE_PALETTE;
        p.rowBytes = (static_cast<size_t>(width) * l.bitCount + 7) / 8;
    } else {
        p.colourType = alpha ? PNG_COLOR_TYPE_RGB_ALPHA : PNG_COLOR_TYPE_RGB;
        p.rowBytes = static_cast<size_t>(width) * (alpha ? 4 : 3);
    }
    const uint64_t total = static_cast<uint64_t>(p.rowBytes) * height;
    if (total > kMaxBlockBytes) throw Failure("image too large for a PNG file");
    p.pixels.assign(static_cast<size_t>(total), 0);

    uint32_t maxIndex = 0;
    for (uint32_t y = 0; y < height; ++y) {
        // PNG rows run top-down.
        const uint8_t *src = pixels + l.stride * (height - 1 - y);
        uint8_t *dst = p.pixels.data() + p.rowBytes * y;
        switch (l.bitCount) {
            case 1:
            case 4:
            case 8:
                std::memcpy(dst, src, p.rowBytes);
                // Bits past the last pixel are left clear, whatever the block held there.
                dst[p.rowBytes - 1] = static_cast<uint8_t>(
                    dst[p.rowBytes - 1] &
                    (0xFF << (p.rowBytes * 8 - static_cast<size_t>(width) * l.bitCount)));
                for (uint32_t x = 0; x < width; ++x) {
                    const uint32_t index = IndexAt(src, x, l.bitCount);
                    if (index > maxIndex) maxIndex = index;
                }
                break;
            case 16:
                for (uint32_t x = 0; x < width; ++x) {
                    const uint32_t w = ReadU16(src + 2 * x);
                    if (l.layout16 == Layout16::k565) {
                        dst[3 * x + 0] = ExpandChannel((w >> 11) & 31, 5);
                        dst[3 * x + 1] = ExpandChannel((w >> 5) & 63, 6);
                    } else {
                        dst[3 * x + 0] = ExpandChannel((w >> 10) & 31, 5);
                        dst[3 * x + 1] = ExpandChannel((w >> 5) & 31, 5);
                    }
                    dst[3 * x + 2] = ExpandChannel(w & 31, 5);
                }
                break;
            case 24:
                for (uint32_t x = 0; x < width; ++x) {
                    dst[3 * x + 0] = src[3 * x + 2];
                    dst[3 * x + 1] = src[3 * x + 1];
                    dst[3 * x + 2] = src[3 * x + 0];
                }
                break;
            default: {
                const uint32_t n = alpha ? 4 : 3;
                for (uint32_t x = 0; x < width; ++x) {
                    dst[n * x + 0] = src[4 * x + 2];
                    dst[n * x + 1] = src[4 * x + 1];
                    dst[n * x + 2] = src[4 * x + 0];
                    if (alpha) dst[n * x + 3] = src[4 * x + 3];
                }
                break;
            }
        }
    }
    if (l.bitCount <= 8) {
        // Every index in the picture needs a palette entry; missing ones are written black.
        const uint32_t entries = maxIndex + 1 > l.tableEntries ? maxIndex + 1 : l.tableEntries;
        p.palette.resize(entries);
        for (uint32_t i = 0; i < l.tableEntries; ++i) {
            const uint8_t *q = dib + kHeaderBytes + 4 * static_cast<size_t>(i);
            p.palette[i] = png_color{q[2], q[1], q[0]};
        }
    }

    std::vector<png_bytep> rows(height);
    for (uint32_t y = 0; y < height; ++y) rows[y] = p.pixels.data() + p.rowBytes * y;
    std::vector<uint8_t> out;
    WriteContext c;
    c.out = &out;
    c.png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &c.message, PngError, PngWarning);
    if (c.png == nullptr) throw Failure("out of memory");
    c.info = png_create_info_struct(c.png);
    if (c.info == nullptr) throw Failure("out of memory");
    if (!WritePngRows(&c, &p, rows.data())) {
        if (c.outOfMemory) throw Failure("out of memory");
        throw Failure(std::string("cannot encode PNG (") + c.message.text + ")");
    }
    return out;
}

}  // namespace tz3cli
