// TZ3Mosaic: the box is cut into tiles of tw x th pixels, anchored at its lower left corner, and
// every selected pixel of a tile takes one colour drawn from the whole tile in the source.
//
// A tile is cut by the image, not by the box, so the last tile of a row or column may overhang
// the box on its right or top side; its colour then comes from pixels outside the box too, and its
// pixels beyond the box are left alone when a mask is present (the mask does not reach them). The
// colour is taken over every pixel of the tile, selected or not.
//
//   format   tile colour                                          written as
//   1        bit 1 when more pixels hold 1 than 0 (a tie is 0)    the bit
//   4/8      mean of the table entries' blue, green and red,      the index (a nibble at 4 bits)
//            each sum / count truncated, then the nearest entry
//   16       mean of the expanded channels                        one word packed from the means
//   24/32    mean of each byte                                    three bytes; the fourth stays
//
// An 8-bit gray image is averaged through its table like any other 8-bit image. Tiles are summed a
// band of th rows at a time, one accumulator per tile of the band, so each source row is read once
// and in order.
#include <algorithm>

#include "filter/filter_skeleton.h"

namespace tz3 {
namespace {

// The sums of one tile; after the band they hold the tile's colour (channels or index).
struct TileSums {
    uint64_t r, g, b;
};

// A palette image's entries as colours, for every index a pixel of the depth can hold. An index past
// the table reads the bytes that follow it in the block, and a byte past the block reads as 0.
struct EntryColours {
    Rgb c[256];
};
void ReadEntryColours(const uint8_t *dib, size_t blockSize, uint32_t count, EntryColours &out) {
    const auto byteAt = [&](uint64_t at) -> uint8_t { return at < blockSize ? dib[at] : 0; };
    for (uint32_t i = 0; i < count; ++i) {
        const uint64_t at = kHeaderBytes + 4ull * i;
        out.c[i] = Rgb{byteAt(at + 2), byteAt(at + 1), byteAt(at)};
    }
}

// The per-format steps of the tile walk.
struct Mosaic1 {
    static void Add(const uint8_t *row, int32_t x, TileSums &s, const EntryColours &) {
        s.r += (row[x >> 3] >> (7 - (x & 7))) & 1u;
    }
    static void Resolve(TileSums &s, uint64_t count, const uint8_t *) { s.r = s.r > count - s.r ? 1 : 0; }
    static void Store(uint8_t *row, int32_t x, const TileSums &s) {
        const auto bit = static_cast<uint8_t>(0x80u >> (x & 7));
        row[x >> 3] = static_cast<uint8_t>(s.r != 0 ? row[x >> 3] | bit : row[x >> 3] & ~bit);
    }
};

template <int32_t Bits>
struct MosaicPalette {
    static uint8_t Index(const uint8_t *row, int32_t x) {
        if constexpr (Bits == 4) return (x & 1) == 0 ? row[x >> 1] >> 4 : row[x >> 1] & 15;
        return row[x];
    }
    static void Add(const uint8_t *row, int32_t x, TileSums &s, const EntryColours &e) {
        const Rgb c = e.c[Index(row, x)];
        s.r += c.r;
        s.g += c.g;
        s.b += c.b;
    }
    static void Resolve(TileSums &s, uint64_t count, const uint8_t *dib) {
        s.r = NearestPaletteIndex(static_cast<uint8_t>(s.r / count), static_cast<uint8_t>(s.g / count),
                                  static_cast<uint8_t>(s.b / count), dib);
    }
    static void Store(uint8_t *row, int32_t x, const TileSums &s) {
        const auto index = static_cast<uint8_t>(s.r);
        if constexpr (Bits == 4) {
            uint8_t &b = row[x >> 1];
            b = (x & 1) == 0 ? static_cast<uint8_t>((b & 0x0F) | (index << 4))
                             : static_cast<uint8_t>((b & 0xF0) | index);
        } else {
            row[x] = index;
        }
    }
};

// 16, 24 and 32 bits: the channel means, stored through the format (one packed word at 16 bits).
template <class Pix>
struct MosaicDirect {
    static void Add(const uint8_t *row, int32_t x, TileSums &s, const EntryColours &) {
        const Rgb c = Pix::Fetch(row + static_cast<size_t>(x) * Pix::kBytes);
        s.r += c.r;
        s.g += c.g;
        s.b += c.b;
    }
    static void Resolve(TileSums &s, uint64_t count, const uint8_t *) {
        s.r /= count;
        s.g /= count;
        s.b /= count;
    }
    static void Store(uint8_t *row, int32_t x, const TileSums &s) {
        Pix::Store(row + static_cast<size_t>(x) * Pix::kBytes,
                   Rgb{static_cast<uint8_t>(s.r), static_cast<uint8_t>(s.g), static_cast<uint8_t>(s.b)});
    }
};

// The format's steps for a pixel type of the skeleton.
template <class Pix>
struct MosaicFormatOf {
    using type = MosaicDirect<Pix>;
};
template <>
struct MosaicFormatOf<PixIndex1> {
    using type = Mosaic1;
};
template <>
struct MosaicFormatOf<PixIndex4> {
    using type = MosaicPalette<4>;
};
template <>
struct MosaicFormatOf<PixIndex8> {
    using type = MosaicPalette<8>;
};

struct MosaicOp {
    static constexpr uint8_t kFormats = kFormatAll;
    MosaicOp(int32_t tileWidth, int32_t tileHeight) : tileWidthArg(tileWidth), tileHeightArg(tileHeight) {}
    int32_t tileWidthArg, tileHeightArg;
    int64_t tw = 1, th = 1;
    int64_t tiles = 0;
    OwnedBlock sumsBlock;
    TileSums *sums = nullptr;
    EntryColours entries{};

    // Values below 1 act as 1; the refusal of two such values came before the image was locked.
    bool Normalise() {
        tw = std::max(tileWidthArg, 1);
        th = std::max(tileHeightArg, 1);
        return true;
    }
    // One band of tiles per step of the walk, one progress call per band.
    int32_t RowStep() const { return static_cast<int32_t>(th); }

    template <class Pix>
    bool Prepare(const FilterImage<Pix> &img) {
        if constexpr (std::is_same_v<Pix, PixIndex4> || std::is_same_v<Pix, PixIndex8>) {
            ReadEntryColours(img.src, Tz3GlobalSize(Tz3GlobalHandle(img.src)), 1u << Pix::kBitCount, entries);
        }
        // Tiles of a band start at x0, x0 + tw, ... while at most x1.
        tiles = (img.box.x1 - img.box.x0) / tw + 1;
        sums = AllocScratch<TileSums>(sumsBlock, static_cast<uint64_t>(tiles));
        return sums != nullptr;
    }

    template <class Pix>
    void Row(const FilterImage<Pix> &img, int32_t bandStart) {
        using Fmt = typename MosaicFormatOf<Pix>::type;
        const RegionBox &box = img.box;
        const int64_t width = img.width;
        const int64_t ty = bandStart;
        // A tile is cut by the image, not by the box.
        const int64_t h = ty + th > img.height ? img.height - ty : th;
        const auto tileWidth = [&](int64_t tx) { return tx + tw > width ? width - tx : tw; };
        std::fill(sums, sums + tiles, TileSums{0, 0, 0});
        for (int64_t y = ty; y < ty + h; ++y) {
            const uint8_t *row = img.SrcRow(static_cast<int32_t>(y));
            int64_t tx = box.x0;
            for (int64_t j = 0; j < tiles; ++j, tx += tw) {
                const int64_t end = tx + tileWidth(tx);
                for (int64_t x = tx; x < end; ++x) Fmt::Add(row, static_cast<int32_t>(x), sums[j], entries);
            }
        }
        int64_t tx = box.x0;
        for (int64_t j = 0; j < tiles; ++j, tx += tw) {
            Fmt::Resolve(sums[j], static_cast<uint64_t>(tileWidth(tx) * h), img.src);
        }
        // The mask has bits only inside the box: the overhang of a tile keeps its pixels.
        const bool masked = img.mask.bits != nullptr;
        const int64_t lastRow = masked ? std::min<int64_t>(ty + h - 1, box.y1) : ty + h - 1;
        const int64_t lastColumn = masked ? box.x1 : width - 1;
        for (int64_t y = ty; y <= lastRow; ++y) {
            uint8_t *row = img.DstRow(static_cast<int32_t>(y));
            const uint8_t *maskRow = img.MaskRow(static_cast<int32_t>(y));
            tx = box.x0;
            for (int64_t j = 0; j < tiles; ++j, tx += tw) {
                const int64_t end = std::min(tx + tileWidth(tx) - 1, lastColumn);
                if (maskRow == nullptr) {
                    for (int64_t x = tx; x <= end; ++x) Fmt::Store(row, static_cast<int32_t>(x), sums[j]);
                } else {
                    for (int64_t x = tx; x <= end; ++x) {
                        if (MaskBitSet(maskRow, static_cast<int32_t>(x - box.x0))) {
                            Fmt::Store(row, static_cast<int32_t>(x), sums[j]);
                        }
                    }
                }
            }
        }
    }
};

DibHandle Mosaic(const RegionArgs &args, int32_t tileWidth, int32_t tileHeight, int32_t noDialog) {
    if (args.image == nullptr) {
        SetErrorStatus(TZ3_BAD_IMAGE);
        return nullptr;
    }
    // A tile must be more than one pixel; this is tested before the image is even locked.
    if (tileWidth < 2 && tileHeight < 2) {
        SetErrorStatus(TZ3_BAD_PARAMETER);
        return nullptr;
    }
    MosaicOp op{tileWidth, tileHeight};
    return FilterDispatcher(args, op, noDialog);
}

}  // namespace
}  // namespace tz3

extern "C" TZ3_API DibHandle TZ3Mosaic(const DibPair *pair, int32_t kind, const Tz3Point *points,
                                       int32_t count, const Tz3Rect *rect, int32_t inside, int32_t tileWidth,
                                       int32_t tileHeight, int32_t noDialog, intptr_t dialog1,
                                       intptr_t dialog2, intptr_t dialog3) {
    using namespace tz3;
    return RunExport<DibHandle>(noDialog, dialog1, dialog2, dialog3, [&] {
        return Mosaic(UnpackRegion(pair, kind, points, count, rect, inside), tileWidth, tileHeight, noDialog);
    });
}
