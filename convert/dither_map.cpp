// The row conversion that every reduction to 1, 4 or 8 bits or to gray ends in: each source row is
// turned into plain 8-bit colours, each colour is mapped to an index of the new table, and with the
// dither flag the mapping's error is spread over the pixels to come.
//
// Rows run serpentine by their number in storage: row 0, the bottom row, left to right, row 1 right
// to left, and so on. The error of each channel, e = value - table entry, goes out in the
// Floyd-Steinberg weights, each share truncated toward zero on its own:
//
//   share    next row            this row
//   e / 16   pixel ahead         -
//   5e / 16  same pixel          -
//   3e / 16  pixel behind        -
//   7e / 16  -                   pixel ahead
//
// With a fixed table (and always at 1 bit) the 7/16 is added to what lies there: plain diffusion.
// With a table made from the image it replaces it, so a pixel keeps only the 7/16 of its
// predecessor and drops what the row before sent down; only a row's first pixel takes that. Images
// from the median cut and the popularity count thus carry their error along rows and hardly from
// row to row, and that look is this library's own.
//
//   target            mapping of a colour (blue, green, red)
//   1 bit             1 when (b + g + r) / 3 >= threshold: all channels weigh the same
//   4 bits            nearest of the 16 entries, from a best of 195075 that must be beaten;
//                     an exact hit ends the search
//   8 bits, cube      levels[r] + 6 levels[g] + 36 levels[b]
//   8 bits, median    the colour map's byte of the colour's histogram cell: the box that holds
//                     it, not the nearest colour
//   gray              trunc(t0[r] + t1[g] + t2[b]), float luma tables summed in double; no error
//
// The error rows hold 3 x width + 30 terms each, the pointers three terms in, so the shares that
// fall left of the first pixel or right of the last land in margins that are never read.
#include <cstring>
#include <type_traits>
#include <utility>

#include "convert/convert_state.h"
#include "frame/arith.h"
#include "frame/colour_tables.h"
#include "frame/owners.h"

namespace tz3 {
namespace {

// ---- Sources: one row into blue, green, red bytes ----

template <class Pix>
struct FromPixels {
    static void Fill(const uint8_t *row, int32_t width, const Rgb *, uint8_t *out) {
        for (int32_t x = 0; x < width; ++x, row += Pix::kBytes, out += 3) {
            const Rgb c = Pix::Fetch(row);
            out[0] = c.b;
            out[1] = c.g;
            out[2] = c.r;
        }
    }
};

struct FromIndex8 {
    static void Fill(const uint8_t *row, int32_t width, const Rgb *entries, uint8_t *out) {
        for (int32_t x = 0; x < width; ++x, out += 3) {
            const Rgb c = entries[row[x]];
            out[0] = c.b;
            out[1] = c.g;
            out[2] = c.r;
        }
    }
};

// The high nibble is the left pixel.
struct FromIndex4 {
    static void Fill(const uint8_t *row, int32_t width, const Rgb *entries, uint8_t *out) {
        for (int32_t x = 0; x < width; ++x, out += 3) {
            const uint8_t byte = row[x / 2];
            const Rgb c = entries[x % 2 == 0 ? byte >> 4 : byte & 15];
            out[0] = c.b;
            out[1] = c.g;
            out[2] = c.r;
        }
    }
};

// ---- Mappings: a clamped colour to an index, and where the index goes ----

template <int32_t Bits>
void PutIndex(uint8_t *row, int32_t x, uint32_t index) {
    if constexpr (Bits == 1) {
        row[x / 8] |= static_cast<uint8_t>(index << (7 - x % 8));
    } else if constexpr (Bits == 4) {
        row[x / 2] |= static_cast<uint8_t>(x % 2 == 0 ? index << 4 : index);
    } else {
        row[x] = static_cast<uint8_t>(index);
    }
}

struct ThresholdMap {
    static constexpr int32_t kBits = 1;
    uint32_t threshold;
    uint32_t Map(uint32_t blue, uint32_t green, uint32_t red) const {
        return (blue + green + red) / 3 >= threshold ? 1u : 0u;
    }
};

// The search of the 4-bit table: from a best of 195075 that must be beaten, the earliest entry
// with the strictly lowest distance, an exact hit ending the search. That is the first index of the
// smallest distance whatever the table (no distance exceeds 195075, and 0 is the smallest there
// is), so all 16 distances are computed side by side and the first smallest is taken.
struct NearestMap {
    static constexpr int32_t kBits = 4;
    static constexpr int32_t kEntries = 16;
    int32_t blue[kEntries], green[kEntries], red[kEntries];
    uint32_t Map(uint32_t b, uint32_t g, uint32_t r) const {
        int32_t d[kEntries];
        for (int32_t i = 0; i < kEntries; ++i) {
            const int32_t db = blue[i] - static_cast<int32_t>(b);
            const int32_t dg = green[i] - static_cast<int32_t>(g);
            const int32_t dr = red[i] - static_cast<int32_t>(r);
            d[i] = db * db + dg * dg + dr * dr;
        }
        int32_t best = d[0];
        for (int32_t i = 1; i < kEntries; ++i) best = d[i] < best ? d[i] : best;
        uint32_t index = 0;
        while (d[index] != best) ++index;
        return index;
    }
};

struct CubeMap {
    static constexpr int32_t kBits = 8;
    const uint8_t *levels;
    uint32_t Map(uint32_t blue, uint32_t green, uint32_t red) const {
        return levels[red] + 6u * levels[green] + 36u * levels[blue];
    }
};

struct ColourMapLookup {
    static constexpr int32_t kBits = 8;
    const uint8_t *colourMap;
    uint32_t Map(uint32_t blue, uint32_t green, uint32_t red) const {
        return colourMap[HistogramIndex(blue, green, red)];
    }
};

enum class Diffusion { kNone, kAdded, kReplaced };

// One row in one direction (Step +1 forward, -1 backward). `current` holds what the row before
// sent down; `next` is cleared and gathers what goes to the row after.
//
// The shares are kept in registers as they roll along the row, which gives the same sums as adding
// each share into its term (integer addition does not care about order, and every share is still
// truncated on its own):
//   - the 7/16 for the pixel ahead is `carry`. Added, the pixel ahead reads its term from the row
//     before plus the carry; replaced, it reads the carry alone, and only the row's first pixel
//     reads the term from the row before. This row's terms are read by no one afterwards (the block
//     becomes the next row's cleared `next`), so they are never written.
//   - the next row's term of a pixel gets e / 16 from the pixel before it, 5e / 16 from itself and
//     3e / 16 from the pixel after it. `here` and `behind` hold the two terms still open, and a term
//     is stored once its third share is in.
template <class Mapping, Diffusion D, int32_t Step>
void MapRow(const Mapping &map, const uint8_t *colours, int32_t width, const uint8_t *table, const int32_t *current,
            int32_t *next, uint8_t *out) {
    int32_t x = Step > 0 ? 0 : width - 1;
    if constexpr (D == Diffusion::kNone) {
        for (int32_t n = 0; n < width; ++n, x += Step) {
            const uint8_t *c = colours + 3 * x;
            PutIndex<Mapping::kBits>(out, x, map.Map(c[0], c[1], c[2]));
        }
        return;
    } else {
        int32_t carry[3], behind[3] = {0, 0, 0}, here[3] = {0, 0, 0};
        for (int32_t ch = 0; ch < 3; ++ch) carry[ch] = D == Diffusion::kReplaced ? current[3 * x + ch] : 0;
        for (int32_t n = 0; n < width; ++n, x += Step) {
            const uint8_t *c = colours + 3 * x;
            int32_t v[3];
            for (int32_t ch = 0; ch < 3; ++ch) {
                int32_t term = carry[ch];
                if constexpr (D == Diffusion::kAdded) term += current[3 * x + ch];
                v[ch] = ClampInt(c[ch] + term, 0, 255);
            }
            const uint32_t index = map.Map(static_cast<uint32_t>(v[0]), static_cast<uint32_t>(v[1]),
                                           static_cast<uint32_t>(v[2]));
            PutIndex<Mapping::kBits>(out, x, index);
            const uint8_t *entry = table + 4 * index;
            for (int32_t ch = 0; ch < 3; ++ch) {
                const int32_t e = v[ch] - entry[ch];
                next[3 * (x - Step) + ch] = behind[ch] + 3 * e / 16;
                behind[ch] = here[ch] + 5 * e / 16;
                here[ch] = e / 16;
                carry[ch] = 7 * e / 16;
            }
        }
        // x is one step past the last pixel: close the last pixel's term and the margin beyond it.
        for (int32_t ch = 0; ch < 3; ++ch) {
            next[3 * (x - Step) + ch] = behind[ch];
            next[3 * x + ch] = here[ch];
        }
    }
}

// The blocks of the row conversion, owned for its length.
struct RowBlocks {
    OwnedBlock colours, current, next;
    LumaTables luma;
};

template <class Source, class Mapping, Diffusion D>
bool MapRowsWorker(ConvertState &s, const Mapping &map, const Rgb *entries, int32_t width, int32_t height,
                   int32_t startPercent) {
    const auto outStride = static_cast<size_t>(s.targetStride);
    for (int32_t y = 0; y < height; ++y) {
        const uint8_t *src = s.sourcePixels + static_cast<size_t>(s.sourceStride) * static_cast<size_t>(y);
        Source::Fill(src, width, entries, s.rowColours);
        uint8_t *out = s.targetPixels + outStride * static_cast<size_t>(y);
        if constexpr (D == Diffusion::kNone) {
            // Without diffusion no term is ever written, so the rows of terms stay zero.
            MapRow<Mapping, D, 1>(map, s.rowColours, width, s.targetPalette, nullptr, nullptr, out);
        } else {
            std::swap(s.errorCurrent, s.errorNext);
            std::memset(s.errorNext - 3, 0, sizeof(int32_t) * (3 * static_cast<size_t>(width) + 18));
            if (y % 2 == 0) {
                MapRow<Mapping, D, 1>(map, s.rowColours, width, s.targetPalette, s.errorCurrent, s.errorNext, out);
            } else {
                MapRow<Mapping, D, -1>(map, s.rowColours, width, s.targetPalette, s.errorCurrent, s.errorNext, out);
            }
        }
        if (!ReportConvertStep(s, y, height, startPercent, 100)) return false;
    }
    return true;
}

template <class Source>
bool GrayRowsWorker(ConvertState &s, const LumaTables &luma, const Rgb *entries, int32_t width, int32_t height,
                    int32_t startPercent) {
    const float *t0 = luma.t[0];
    const float *t1 = luma.t[1];
    const float *t2 = luma.t[2];
    for (int32_t y = 0; y < height; ++y) {
        const uint8_t *src = s.sourcePixels + static_cast<size_t>(s.sourceStride) * static_cast<size_t>(y);
        Source::Fill(src, width, entries, s.rowColours);
        uint8_t *out = s.targetPixels + static_cast<size_t>(s.targetStride) * static_cast<size_t>(y);
        const uint8_t *c = s.rowColours;
        for (int32_t x = 0; x < width; ++x, c += 3) {
            const double sum = static_cast<double>(t0[c[2]]) + static_cast<double>(t1[c[1]]) +
                               static_cast<double>(t2[c[0]]);
            out[x] = static_cast<uint8_t>(TruncToInt32(sum));
        }
        if (!ReportConvertStep(s, y, height, startPercent, 100)) return false;
    }
    return true;
}

template <class Source, class Mapping>
bool MapRowsWithDiffusion(ConvertState &s, const Mapping &map, const Rgb *entries, int32_t width, int32_t height,
                          int32_t startPercent) {
    if (s.dither == 0) return MapRowsWorker<Source, Mapping, Diffusion::kNone>(s, map, entries, width, height, startPercent);
    if (s.fixedPalette != 0) {
        return MapRowsWorker<Source, Mapping, Diffusion::kAdded>(s, map, entries, width, height, startPercent);
    }
    return MapRowsWorker<Source, Mapping, Diffusion::kReplaced>(s, map, entries, width, height, startPercent);
}

// Picks the mapping for the target once; a 4-bit source only ever goes to 1 bit and an 8-bit one
// to 1 or 4 bits, so only those mappings are made for them.
template <class Source>
bool ConvertRowsFrom(ConvertState &s, const LumaTables &luma, const Rgb *entries, int32_t width, int32_t height,
                     int32_t startPercent) {
    constexpr bool kFromPixels = !std::is_same_v<Source, FromIndex4> && !std::is_same_v<Source, FromIndex8>;
    switch (s.targetBits) {
        case 1:
            return MapRowsWithDiffusion<Source>(s, ThresholdMap{s.threshold}, entries, width, height, startPercent);
        case 4:
            if constexpr (!std::is_same_v<Source, FromIndex4>) {
                // A 4-bit table always has its 16 entries.
                NearestMap map{};
                for (int32_t i = 0; i < NearestMap::kEntries; ++i) {
                    map.blue[i] = s.targetPalette[4 * i];
                    map.green[i] = s.targetPalette[4 * i + 1];
                    map.red[i] = s.targetPalette[4 * i + 2];
                }
                return MapRowsWithDiffusion<Source>(s, map, entries, width, height, startPercent);
            }
            break;
        case 8:
            if constexpr (kFromPixels) {
                if (s.levelTable != nullptr) {
                    return MapRowsWithDiffusion<Source>(s, CubeMap{s.levelTable}, entries, width, height, startPercent);
                }
                return MapRowsWithDiffusion<Source>(s, ColourMapLookup{s.colourMap}, entries, width, height,
                                                    startPercent);
            }
            break;
        case kGrayTarget:
            if constexpr (kFromPixels) return GrayRowsWorker<Source>(s, luma, entries, width, height, startPercent);
            break;
        default:
            break;
    }
    SetErrorStatus(TZ3_BAD_DEPTH);
    return false;
}

}  // namespace

bool ConvertRows(ConvertState &s, int32_t width, int32_t height, int32_t startPercent) {
    const uint64_t terms = 3 * static_cast<uint64_t>(width) + 30;
    RowBlocks blocks;
    blocks.colours = AllocLocked(3 * static_cast<uint64_t>(width));
    if (!blocks.colours) return false;
    blocks.current = AllocLocked(terms * sizeof(int32_t));
    if (!blocks.current) return false;
    blocks.next = AllocLocked(terms * sizeof(int32_t));
    if (!blocks.next) return false;
    if (!BuildLumaTables(blocks.luma)) return false;
    s.rowColours = blocks.colours.bytes();
    // Three terms in, so the pixel left of the first has terms of its own.
    s.errorCurrent = reinterpret_cast<int32_t *>(blocks.current.bytes()) + 3;
    s.errorNext = reinterpret_cast<int32_t *>(blocks.next.bytes()) + 3;

    // The colour of every index a palette source can hold.
    Rgb entries[256] = {};
    if (s.sourceBits <= 8) {
        for (uint32_t i = 0; i < 256; ++i) entries[i] = SourceEntry(s, i);
    }
    bool done;
    switch (s.sourceBits) {
        case 4: done = ConvertRowsFrom<FromIndex4>(s, blocks.luma, entries, width, height, startPercent); break;
        case 8: done = ConvertRowsFrom<FromIndex8>(s, blocks.luma, entries, width, height, startPercent); break;
        case 16:
            done = s.redMask == kRed555Mask
                       ? ConvertRowsFrom<FromPixels<Pix16x555>>(s, blocks.luma, entries, width, height, startPercent)
                       : ConvertRowsFrom<FromPixels<Pix16x565>>(s, blocks.luma, entries, width, height, startPercent);
            break;
        case 24: done = ConvertRowsFrom<FromPixels<Pix24>>(s, blocks.luma, entries, width, height, startPercent); break;
        case 32: done = ConvertRowsFrom<FromPixels<Pix32>>(s, blocks.luma, entries, width, height, startPercent); break;
        default:
            SetErrorStatus(TZ3_BAD_DEPTH);
            done = false;
            break;
    }
    s.rowColours = nullptr;
    s.errorCurrent = s.errorNext = nullptr;
    return done;
}

}  // namespace tz3
