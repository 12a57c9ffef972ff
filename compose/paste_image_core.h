// Pasting one image over another: the shared core behind TZ3PasteImage and the panorama, and the
// pixel reading and opacity blend that layering uses too.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/dib.h"
#include "frame/owners.h"
#include "frame/pixel.h"
#include "tz3effect.h"

namespace tz3 {

// The paste behind the export: checks and locks the inputs, mirrors and flips private copies of the
// source (and its mask) when asked, and runs PasteRotatedDib. The result is a new unlocked 24-bit
// image, or null with the status set (7 null or refused image or unfit mask, 3 lock or memory,
// 1 cancelled, or what CloneDib set). progressBase non-zero moves the worker's span to 51..100, for
// a caller that reports its own stage before it.
DibHandle PasteImageCore(DibHandle target, DibHandle sourceImage, DibHandle sourceMask, int32_t angle,
                         int32_t mirror, int32_t flip, int32_t opacity, int32_t backRed, int32_t backGreen,
                         int32_t backBlue, int32_t pasteX, int32_t pasteY, int32_t keepSize, int32_t noDialog,
                         int32_t progressBase);

// One locked image as the worker reads it: the block size bounds every colour table read.
struct PasteImageView {
    const uint8_t *dib = nullptr;
    size_t blockSize = 0;
    uint32_t redMask = 0;  // chooses 5-5-5 (0x7C00) or 5-6-5 words for a 16-bit image
};

// What PasteRotatedDib works from. The source (or its mirrored copy) and the target must hold at
// least one row and one column; the mask, when given, has the source's size.
struct PasteRequest {
    PasteImageView target;
    PasteImageView source;
    const uint8_t *mask = nullptr;
    size_t maskBlockSize = 0;
    int32_t angle = 0;  // already clamped to -35999..35999
    uint8_t opacity = 255;
    Rgb back{0, 0, 0};
    int32_t pasteX = 0, pasteY = 0;
    int32_t keepSize = 0;
    int32_t noDialog = 0;
    int32_t percentLow = 0, percentHigh = 100;
};

// The worker: rotates the source about its centre pixel, lays it on the target at (pasteX, pasteY)
// and returns the new unlocked 24-bit result, or null with the status set.
DibHandle PasteRotatedDib(const PasteRequest &request);

// Blue, green and red of the pixel at (column, row), row counted from the bottom. A palette index
// is used as it stands, however short the table; table bytes beyond the block read as 0.
Rgb ReadDibPixel(const uint8_t *dib, size_t blockSize, int32_t column, int32_t row, uint32_t redMask);

// The opacity blend of a source value S over a target value T, for one channel:
//   A = 0: T.  A = 255: S.  S = T: S.
//   otherwise trunc(((255 - A) x T) / 255 + (S x A) / 255), products and quotients unrounded to
//   integers, the sum truncated once.
// The products are exact integers and each quotient is taken in double, so the sum can fall a hair
// below a whole number where the exact value is one; the blend keeps that truncation as it is.
inline uint8_t BlendChannel(uint8_t s, uint8_t t, uint8_t opacity) {
    if (opacity == 0) return t;
    if (opacity == 255 || s == t) return s;
    const float a = static_cast<float>(opacity);
    const float inverse = 255.0f - a;
    const double sum = static_cast<double>(inverse) * t / static_cast<double>(255.0f) +
                       static_cast<double>(s) * a / static_cast<double>(255.0f);
    return static_cast<uint8_t>(static_cast<int32_t>(sum));
}

// The blend for one opacity as a table of 256 x 256 bytes, indexed [s x 256 + t], built from
// BlendChannel itself; null with status 3 when no block can be had. The caller frees it.
OwnedBlock BuildBlendTable(uint8_t opacity);

// The blend of one call as rows use it. The blend's sum is (A s + (255 - A) t) / 255 within a few
// units in the last place of a double; where that lies off a whole number by at least 1/255 its
// truncation is the integer quotient, and where it is whole the double sum can only miss it by a
// hair. quotient records whether the table is that integer quotient for every pair, checked once
// per call, so that rows can be worked out without the table and still give its bytes.
struct RowBlend {
    const uint8_t *table;  // from BuildBlendTable(opacity)
    uint8_t opacity;
    bool quotient;
};
RowBlend MakeRowBlend(const uint8_t *table, uint8_t opacity);

// out[i] = table[s[i] x 256 + t[i]] for count bytes. out must not overlap s or t.
void BlendBytes(const uint8_t *s, const uint8_t *t, size_t count, const RowBlend &blend, uint8_t *out);

// Readers of one pixel of a row, one per stored format, for workers written over the format.
// Palette readers go through a copy of the table's 2, 16 or 256 entries made once per call.
struct PaletteCopy {
    Rgb entries[256];
};
// Entry i is read at offset 40 + 4i whatever the table's length; bytes beyond the block read as 0.
void CopyPalette(const uint8_t *dib, size_t blockSize, PaletteCopy &out);

template <int Bits>
struct PaletteReader {
    const Rgb *table;
    Rgb operator()(const uint8_t *row, int32_t column) const {
        if constexpr (Bits == 1) {
            return table[(row[column >> 3] >> (7 - (column & 7))) & 1];
        } else if constexpr (Bits == 4) {
            // An even column is the high nibble.
            const uint8_t byte = row[column >> 1];
            return table[(column & 1) ? (byte & 15) : (byte >> 4)];
        } else {
            return table[row[column]];
        }
    }
};

template <bool Is565>
struct WordReader {
    Rgb operator()(const uint8_t *row, int32_t column) const {
        return ChannelExpand16(ReadU16(row + 2 * static_cast<size_t>(column)), Is565);
    }
};

// 24 and 32 bits: blue, green, red in the first three bytes; a 32-bit pixel's fourth is not read.
template <int Bytes>
struct ByteReader {
    Rgb operator()(const uint8_t *row, int32_t column) const {
        const uint8_t *p = row + static_cast<size_t>(Bytes) * static_cast<size_t>(column);
        return Rgb{p[2], p[1], p[0]};
    }
};

// Calls visit(reader) once with the reader of the image's format (the format is known to have
// passed CheckDibFormat); `table` must outlive the call.
template <class Visit>
auto WithPixelReader(const uint8_t *dib, uint32_t redMask, const PaletteCopy &table, Visit &&visit) {
    switch (DibBitCount(dib)) {
        case 1:
            return visit(PaletteReader<1>{table.entries});
        case 4:
            return visit(PaletteReader<4>{table.entries});
        case 8:
            return visit(PaletteReader<8>{table.entries});
        case 16:
            if (redMask == kRed555Mask) return visit(WordReader<false>{});
            return visit(WordReader<true>{});
        case 32:
            return visit(ByteReader<4>{});
        default:
            return visit(ByteReader<3>{});
    }
}

// A 24-bit result of width x height with its header written (the other four fields 0), locked and
// zeroed; empty with status 3 when the size passes the block limit or no block can be had.
OwnedBlock AllocResult24(int64_t width, int64_t height);

}  // namespace tz3
