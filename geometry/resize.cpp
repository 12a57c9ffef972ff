// TZ3Resize, TZ3ResizeEx and the core ResizeDib.
//
// The walk runs forward over the source: it cuts the source into runs of columns and runs of rows,
// each mapping to one target span, and paints one target tile per source block. Scales are
// single precision, sx = W' / W and sy = H' / H; a source coordinate i maps to
// T(i) = trunc(float(i) * s + 0.5) in double. At a scale of at least 1 a run is one coordinate
// spanning T(i) .. min(T(i + 1), N); below 1 a run grows until T changes or reaches N. A span is at
// least one long, and a write happens only inside the new image.
//
//   format          replication (interpolate 0)   averaging and spreading (interpolate non-zero)
//   1, 4            bits / nibbles OR-ed           never: replicates
//   8               raw index                      only with a full gray palette, levels through
//                                                  the gray level map; otherwise replicates
//   16              raw word                       expand, average, pack (lossy)
//   24              three bytes                    three channels; halfProgress ends at 50
//   32              whole word, fourth byte too    three channels; the fourth byte stays 0
//
// Averaging: when both scales reach 1 each block is one pixel and the tile spreads bilinearly
// between it and its right, upper and upper-right neighbours (the last column and row stay flat).
// When a scale is below 1 the block's mean takes their place, and the neighbours become means of the
// next column or row where the block is one wide; when both scales are below 1 the tile is the one
// pixel of the mean. The mask bit of a block's first pixel is OR-ed into every pixel it paints.
#include "geometry/resize.h"

#include <algorithm>
#include <cstring>

#include "frame/arith.h"
#include "frame/call.h"
#include "frame/colour_tables.h"
#include "frame/pixel.h"

namespace tz3 {
namespace {

// T(i): the coordinate is rounded to single precision first, the product and the sum are double.
inline int32_t MapCoord(int64_t i, float scale) {
    return TruncToInt32(static_cast<double>(static_cast<float>(i)) * static_cast<double>(scale) + 0.5);
}

// A run of source coordinates and the target span it paints.
struct Run {
    int32_t first;   // first source coordinate
    int32_t count;   // source coordinates in the run
    int32_t target;  // first target coordinate
    int32_t span;    // target length, at least 1
    int32_t end;     // end of the span's part inside the target, exclusive
};

Run NextRun(int64_t i, float scale, int32_t targetSize) {
    Run run{static_cast<int32_t>(i), 1, MapCoord(i, scale), 1, 0};
    int64_t end;
    if (scale >= 1.0f) {
        end = std::min(MapCoord(i + 1, scale), targetSize);
    } else {
        // The run may reach past the source's last coordinate; the block's reads stop at the edge.
        int64_t n = 1;
        int32_t next = MapCoord(i + n, scale);
        while (next == run.target && next < targetSize) next = MapCoord(i + ++n, scale);
        run.count = static_cast<int32_t>(std::min<int64_t>(n, INT32_MAX));
        end = next;
    }
    run.span = static_cast<int32_t>(std::max<int64_t>(end - run.target, 1));
    run.end = static_cast<int32_t>(
        std::max<int64_t>(std::min<int64_t>(int64_t{run.target} + run.span, targetSize), run.target));
    return run;
}

// ---- Pixel formats ----
// kChannels is 0 for the formats that only replicate. Fetch gives a pixel's channel values, Store
// writes them back; ReadRaw / WriteRaw move a pixel's stored value untouched.

template <int Bits>
uint32_t ReadRaw(const uint8_t *row, int32_t x) {
    if constexpr (Bits == 1) return (row[x >> 3] >> (7 - (x & 7))) & 1u;
    if constexpr (Bits == 4) return (x & 1) ? (row[x >> 1] & 15u) : (row[x >> 1] >> 4);
    if constexpr (Bits == 8) return row[x];
    if constexpr (Bits == 16) return ReadU16(row + 2 * static_cast<size_t>(x));
    if constexpr (Bits == 24) {
        const uint8_t *p = row + 3 * static_cast<size_t>(x);
        return p[0] | (static_cast<uint32_t>(p[1]) << 8) | (static_cast<uint32_t>(p[2]) << 16);
    }
    if constexpr (Bits == 32) return ReadU32(row + 4 * static_cast<size_t>(x));
}

// Bits and nibbles are OR-ed into the zeroed row; whole pixels are stored.
template <int Bits>
void WriteRaw(uint8_t *row, int32_t x, uint32_t v) {
    if constexpr (Bits == 1) row[x >> 3] = static_cast<uint8_t>(row[x >> 3] | (v << (7 - (x & 7))));
    if constexpr (Bits == 4) row[x >> 1] = static_cast<uint8_t>(row[x >> 1] | ((x & 1) ? v : v << 4));
    if constexpr (Bits == 8) row[x] = static_cast<uint8_t>(v);
    if constexpr (Bits == 16) WriteU16(row + 2 * static_cast<size_t>(x), static_cast<uint16_t>(v));
    if constexpr (Bits == 24) {
        uint8_t *p = row + 3 * static_cast<size_t>(x);
        p[0] = static_cast<uint8_t>(v);
        p[1] = static_cast<uint8_t>(v >> 8);
        p[2] = static_cast<uint8_t>(v >> 16);
    }
    if constexpr (Bits == 32) WriteU32(row + 4 * static_cast<size_t>(x), v);
}

struct Resize1 {
    static constexpr int kBits = 1;
    static constexpr int kChannels = 0;
};

struct Resize4 {
    static constexpr int kBits = 4;
    static constexpr int kChannels = 0;
};

// An 8-bit gray image averages levels, not indices: the map takes an index to its level and back.
struct Resize8 {
    static constexpr int kBits = 8;
    static constexpr int kChannels = 1;
    const uint8_t *toLevel;
    const uint8_t *toIndex;
    void Fetch(const uint8_t *row, int32_t x, int32_t *c) const { c[0] = toLevel[row[x]]; }
    void Store(uint8_t *row, int32_t x, const int32_t *c) const { row[x] = toIndex[c[0]]; }
    static constexpr int kSumStride = 1;
    void Accumulate(const uint8_t *row, int32_t width, int32_t *sums) const {
        for (int32_t x = 0; x < width; ++x) sums[x] += toLevel[row[x]];
    }
};

template <bool Is565>
struct Resize16 {
    static constexpr int kBits = 16;
    static constexpr int kChannels = 3;
    void Fetch(const uint8_t *row, int32_t x, int32_t *c) const {
        const Rgb v = ChannelExpand16(ReadU16(row + 2 * static_cast<size_t>(x)), Is565);
        c[0] = v.b;
        c[1] = v.g;
        c[2] = v.r;
    }
    void Store(uint8_t *row, int32_t x, const int32_t *c) const {
        const Rgb v{static_cast<uint8_t>(c[2]), static_cast<uint8_t>(c[1]), static_cast<uint8_t>(c[0])};
        WriteU16(row + 2 * static_cast<size_t>(x), ChannelPack16(v, Is565));
    }
    static constexpr int kSumStride = 3;
    void Accumulate(const uint8_t *row, int32_t width, int32_t *sums) const {
        int32_t c[3];
        for (int32_t x = 0; x < width; ++x, sums += 3) {
            Fetch(row, x, c);
            sums[0] += c[0];
            sums[1] += c[1];
            sums[2] += c[2];
        }
    }
};

// 24 and 32 bits average blue, green and red; a 32-bit pixel's fourth byte is not written, so it
// stays the 0 of the new image (replication, in contrast, copies the whole word).
template <int Bits>
struct ResizeBytes {
    static constexpr int kBits = Bits;
    static constexpr int kChannels = 3;
    static constexpr size_t kStep = Bits / 8;
    void Fetch(const uint8_t *row, int32_t x, int32_t *c) const {
        const uint8_t *p = row + kStep * static_cast<size_t>(x);
        c[0] = p[0];
        c[1] = p[1];
        c[2] = p[2];
    }
    void Store(uint8_t *row, int32_t x, const int32_t *c) const {
        uint8_t *p = row + kStep * static_cast<size_t>(x);
        p[0] = static_cast<uint8_t>(c[0]);
        p[1] = static_cast<uint8_t>(c[1]);
        p[2] = static_cast<uint8_t>(c[2]);
    }
    // Channel sums lie byte for byte over the pixels (a 32-bit pixel's fourth sum is never read), so
    // a row adds in as one run of bytes.
    static constexpr int kSumStride = static_cast<int>(kStep);
    void Accumulate(const uint8_t *row, int32_t width, int32_t *sums) const {
        const size_t bytes = kStep * static_cast<size_t>(width);
        for (size_t i = 0; i < bytes; ++i) sums[i] += row[i];
    }
};

// ---- The walk ----

struct ResizeJob {
    const uint8_t *src;
    const uint8_t *srcMask;  // null without a mask
    int32_t newWidth, newHeight;
    bool average;
    int32_t noDialog;
    int32_t percentHigh;
};

// The four corner values of a column run's current block, per channel.
struct Corners {
    int32_t c00[3], c10[3], c01[3], c11[3];
};

// mean + 0.5, truncated: the sum is rounded to single precision and divided by the count as a
// single-precision number; a count of 0 reads as 1.
inline int32_t MeanOf(int64_t sum, int32_t count) {
    const float quotient = static_cast<float>(sum) / static_cast<float>(count == 0 ? 1 : count);
    return TruncToInt32(static_cast<double>(quotient) + 0.5);
}

// MeanOf for many sums over one count, with the division replaced by a product. For a float
// numerator f and a count n below 2^20, f x (1 / n) in double lies within about 2^-52 (relative) of
// f / n, while f / n is either a float itself or lies at least about 2^-45 away from the midpoint
// between two floats: both round to the same single-precision quotient.
class MeanDivider {
  public:
    int32_t Mean(int64_t sum, int32_t count) {
        if (count != count_) {
            count_ = count;
            reciprocal_ = 1.0 / (count == 0 ? 1 : count);
        }
        if (count >= (1 << 20)) return MeanOf(sum, count);
        const auto quotient = static_cast<float>(static_cast<double>(static_cast<float>(sum)) * reciprocal_);
        return static_cast<int32_t>(static_cast<double>(quotient) + 0.5);
    }

  private:
    int32_t count_ = -1;
    double reciprocal_ = 0.0;
};

// Sets columns x0..x1 (inclusive) of a 1-bit row.
void OrBits(uint8_t *row, int32_t x0, int32_t x1) {
    int32_t x = x0;
    for (; x <= x1 && (x & 7) != 0; ++x) row[x >> 3] = static_cast<uint8_t>(row[x >> 3] | (0x80u >> (x & 7)));
    for (; x + 7 <= x1; x += 8) row[x >> 3] = 0xFF;
    for (; x <= x1; ++x) row[x >> 3] = static_cast<uint8_t>(row[x >> 3] | (0x80u >> (x & 7)));
}

// The spread value lies in 0.5 .. 255.5 (a convex mix of levels plus 0.5); the clamp to 255 keeps a
// sum that rounds just past the top a byte.
inline int32_t SpreadLevel(double v) {
    return std::min(static_cast<int32_t>(v), 255);
}

// Target columns whose across terms are held at once while a row run is spread.
constexpr int32_t kSpreadChunk = 1024;

struct SpreadChunk {
    double *across0 = nullptr;   // c00 (1 - fx) + c10 fx, per column and channel
    double *across1 = nullptr;   // c01 (1 - fx) + c11 fx
    int32_t *levels = nullptr;   // one row's results
    int32_t *targets = nullptr;  // the target column of each entry
};

// The working memory of a walk, in one block: the column runs and, when the walk averages, the
// spreading chunk, a corner record per column run and the per-column channel sums of a row run (four
// per column at most). The doubles come first, where the block is aligned for them.
struct WalkMemory {
    static constexpr uint64_t kChunkBytes =
        kSpreadChunk * (2 * 3 * sizeof(double) + 3 * sizeof(int32_t) + sizeof(int32_t));
    static uint64_t Bytes(int32_t width, bool average) {
        const uint64_t perColumn =
            sizeof(Run) + (average ? 2 * 3 * sizeof(double) + sizeof(Corners) + 4 * sizeof(int32_t) : 0);
        return static_cast<uint64_t>(width) * perColumn + (average ? kChunkBytes : 0);
    }
    WalkMemory(uint8_t *block, int32_t width, bool average) {
        const auto columnCount = static_cast<size_t>(width);
        if (average) {
            chunk.across0 = reinterpret_cast<double *>(block);
            chunk.across1 = chunk.across0 + 3 * kSpreadChunk;
            block += 2 * 3 * sizeof(double) * kSpreadChunk;
            lower = reinterpret_cast<double *>(block);
            upper = lower + 3 * columnCount;
            block += 2 * 3 * sizeof(double) * columnCount;
        }
        columns = reinterpret_cast<Run *>(block);
        block += sizeof(Run) * columnCount;
        if (!average) return;
        corners = reinterpret_cast<Corners *>(block);
        block += sizeof(Corners) * columnCount;
        sums = reinterpret_cast<int32_t *>(block);
        block += 4 * sizeof(int32_t) * columnCount;
        chunk.levels = reinterpret_cast<int32_t *>(block);
        chunk.targets = chunk.levels + 3 * kSpreadChunk;
    }
    Run *columns = nullptr;
    Corners *corners = nullptr;
    int32_t *sums = nullptr;
    double *lower = nullptr;  // a source row's channel values, for enlarging on both axes
    double *upper = nullptr;  // the row above it (the same row at the top)
    SpreadChunk chunk;
};

template <class Fmt>
class ResizeWalk {
  public:
    ResizeWalk(const ResizeJob &job, const Fmt &fmt, uint8_t *dst, uint8_t *dstMask, const WalkMemory &memory,
               int32_t paintCount)
        : job_(job),
          fmt_(fmt),
          dst_(dst),
          dstMask_(dstMask),
          columns_(memory.columns),
          corners_(memory.corners),
          sums_(memory.sums),
          chunk_(memory.chunk),
          lower_(memory.lower),
          upper_(memory.upper),
          paintCount_(paintCount) {}

    // Walks every row run; false with status 1 when cancelled (or 3 when a 24-bit whole-row path
    // cannot have its tables).
    bool WalkRows(float sx, float sy) {
        const bool reduceX = !(sx >= 1.0f);
        const bool reduceY = !(sy >= 1.0f);
        if constexpr (Fmt::kBits == 24) {
            if (job_.average && !reduceX && !reduceY && ColumnsTile()) return WalkEnlarged24(sy);
            if (job_.average && reduceX && reduceY && TargetsConsecutive()) return WalkReduced24(sy);
        }
        for (int64_t y = 0; y < height_;) {
            const Run rows = NextRun(y, sy, job_.newHeight);
            if (rows.target < job_.newHeight) {
                if constexpr (Fmt::kChannels > 0) {
                    if (!job_.average) {
                        Replicate(rows);
                    } else if (reduceX && reduceY) {
                        AverageBlocks(rows);
                    } else {
                        Spread(rows, reduceX, reduceY);
                    }
                } else {
                    Replicate(rows);
                }
            }
            if (PercentProgress(rows.first, height_ - 1, 0, job_.percentHigh, job_.noDialog) == 0) {
                SetErrorStatus(TZ3_CANCELLED);
                return false;
            }
            y += rows.count;
        }
        return true;
    }

  private:
    // ---- 24-bit whole rows ----
    // When the painting column runs cover the target columns 0 .. end - 1 one after another, with
    // no overlap, a target row is one run of bytes and every value in it can be worked out by a
    // plain loop over per-column tables made once per call.
    bool ColumnsTile() const {
        if (paintCount_ == 0 || columns_[0].target != 0) return false;
        for (int32_t k = 1; k < paintCount_; ++k)
            if (columns_[k].target != columns_[k - 1].end) return false;
        return true;
    }

    // With both scales below 1 each painting column run writes the one target column k.
    bool TargetsConsecutive() const {
        for (int32_t k = 0; k < paintCount_; ++k)
            if (columns_[k].target != k) return false;
        return paintCount_ > 0;
    }

    bool Progress(const Run &rows) const {
        if (PercentProgress(rows.first, height_ - 1, 0, job_.percentHigh, job_.noDialog) == 0) {
            SetErrorStatus(TZ3_CANCELLED);
            return false;
        }
        return true;
    }

    // Both scales below 1, 24 bits: the mean of every block of a row run, in the order of the
    // target columns, which here are 0, 1, 2 ... The column sums of the run are 16 or 32-bit, the
    // block sums 32-bit while a block holds fewer than 2^20 pixels, and the mean is MeanDivider's
    // product by the reciprocal of the count. A block's count is its width times the run's height,
    // and the widths of a reduction take few values, so while a count stays small the means of every
    // sum from 0 to 255 x count are worked out once into a table (by that same product), and each
    // block's three means are three look-ups. The tables are made again only when the run's height
    // changes. Counts too large for a table take the product directly; runs too tall for 32-bit
    // sums take the general walk.
    static constexpr int32_t kMeanTables = 4;
    static constexpr int32_t kMeanTableCount = 256;  // largest count with a table
    static constexpr size_t kMeanTableBytes = 255 * kMeanTableCount + 1;

    bool WalkReduced24(float sy) {
        const int32_t n = paintCount_;
        const auto values = 3 * static_cast<size_t>(n);
        OwnedBlock block =
            AllocLocked(values * (sizeof(double) + sizeof(int32_t)) +
                        sizeof(int32_t) * 2 * static_cast<size_t>(n) + kMeanTables * kMeanTableBytes);
        if (!block) return false;
        auto *reciprocals = reinterpret_cast<double *>(block.bytes());
        auto *blockSums = reinterpret_cast<int32_t *>(reciprocals + values);
        int32_t *widths = blockSums + values;
        int32_t *tableOf = widths + n;  // table index of each block, -1 without one
        uint8_t *tables = reinterpret_cast<uint8_t *>(tableOf + n);
        int32_t widest = 0;
        for (int32_t k = 0; k < n; ++k) {
            const Run &c = columns_[k];
            widths[k] = static_cast<int32_t>(std::min<int64_t>(int64_t{c.first} + c.count, width_) - c.first);
            widest = std::max(widest, widths[k]);
        }
        const int32_t sumEnd = columns_[n - 1].first + widths[n - 1];  // columns the blocks read
        int32_t preparedRows = 0;
        bool allTabled = false;
        for (int64_t y = 0; y < height_;) {
            const Run rows = NextRun(y, sy, job_.newHeight);
            if (rows.target < job_.newHeight) {
                const int32_t yEnd =
                    static_cast<int32_t>(std::min<int64_t>(int64_t{rows.first} + rows.count, height_));
                const int32_t rowsIn = yEnd - rows.first;
                if (int64_t{widest} * rowsIn >= (1 << 20)) {
                    AverageBlocks(rows);
                } else {
                    if (rowsIn != preparedRows) {
                        preparedRows = rowsIn;
                        allTabled = PrepareMeans(widths, n, rowsIn, reciprocals, tableOf, tables);
                    }
                    // Column sums of up to 257 rows of levels fit 16 bits, which halves their traffic.
                    if (rowsIn <= 257)
                        SumBlocks24(rows.first, yEnd, sumEnd, reinterpret_cast<uint16_t *>(sums_), widths,
                                    tableOf, tables, allTabled, blockSums, DstRow(rows.target));
                    else
                        SumBlocks24(rows.first, yEnd, sumEnd, sums_, widths, tableOf, tables, allTabled,
                                    blockSums, DstRow(rows.target));
                    const Run *columns = columns_;
                    uint8_t *out = DstRow(rows.target);
                    if (!allTabled) {
                        for (int32_t k = 0; k < n; ++k) {
                            if (tableOf[k] >= 0) continue;
                            for (size_t i = 3 * static_cast<size_t>(k); i < 3 * static_cast<size_t>(k) + 3;
                                 ++i)
                                out[i] = MeanByReciprocal(blockSums[i], reciprocals[k]);
                        }
                    }
                    if (dstMask_ != nullptr) {
                        for (int32_t k = 0; k < n; ++k)
                            if (SrcMaskBit(columns[k].first, rows.first))
                                OrBits(MaskRow(rows.target), columns[k].target, columns[k].target);
                    }
                }
            }
            if (!Progress(rows)) return false;
            y += rows.count;
        }
        return true;
    }

    // The column sums of rows y .. yEnd - 1, then each block's sums, with the means of the blocks
    // that have a table written out and the others' sums kept for the product.
    template <class Sum>
    void SumBlocks24(int32_t y, int32_t yEnd, int32_t sumEnd, Sum *sums, const int32_t *widths,
                     const int32_t *tableOf, const uint8_t *tables, bool allTabled, int32_t *blockSums,
                     uint8_t *out) const {
        const auto sumBytes = 3 * static_cast<size_t>(sumEnd);
        const uint8_t *first = SrcRow(y);
        for (size_t i = 0; i < sumBytes; ++i) sums[i] = first[i];
        for (int32_t yy = y + 1; yy < yEnd; ++yy) {
            const uint8_t *row = SrcRow(yy);
            for (size_t i = 0; i < sumBytes; ++i) sums[i] = static_cast<Sum>(sums[i] + row[i]);
        }
        const Run *columns = columns_;
        const int32_t n = paintCount_;
        for (int32_t k = 0; k < n; ++k) {
            const Sum *s = sums + 3 * static_cast<size_t>(columns[k].first);
            int32_t b = s[0], g = s[1], r = s[2];
            for (int32_t i = 1; i < widths[k]; ++i) {
                b += s[3 * i];
                g += s[3 * i + 1];
                r += s[3 * i + 2];
            }
            if (allTabled || tableOf[k] >= 0) {
                const uint8_t *table = tables + kMeanTableBytes * static_cast<size_t>(tableOf[k]);
                out[3 * k] = table[b];
                out[3 * k + 1] = table[g];
                out[3 * k + 2] = table[r];
            } else {
                blockSums[3 * k] = b;
                blockSums[3 * k + 1] = g;
                blockSums[3 * k + 2] = r;
            }
        }
    }

    // MeanDivider's mean of a sum whose count is below 2^20, from the count's reciprocal in double.
    static uint8_t MeanByReciprocal(int32_t sum, double reciprocal) {
        const auto quotient = static_cast<float>(static_cast<double>(static_cast<float>(sum)) * reciprocal);
        return static_cast<uint8_t>(static_cast<int32_t>(static_cast<double>(quotient) + 0.5));
    }

    // Reciprocals of every block's count for runs of rowsIn rows and, for up to kMeanTables small
    // counts, the table of means of every possible sum; true when every block has a table.
    static bool PrepareMeans(const int32_t *widths, int32_t n, int32_t rowsIn, double *reciprocals,
                             int32_t *tableOf, uint8_t *tables) {
        int32_t tabledWidth[kMeanTables];
        int32_t made = 0;
        bool all = true;
        for (int32_t k = 0; k < n; ++k) {
            const int32_t count = widths[k] * rowsIn;
            reciprocals[k] = 1.0 / count;
            tableOf[k] = -1;
            if (count > kMeanTableCount) {
                all = false;
                continue;
            }
            for (int32_t t = 0; t < made; ++t)
                if (tabledWidth[t] == widths[k]) tableOf[k] = t;
            if (tableOf[k] < 0 && made < kMeanTables) {
                uint8_t *table = tables + kMeanTableBytes * static_cast<size_t>(made);
                for (int32_t sum = 0; sum <= 255 * count; ++sum)
                    table[sum] = MeanByReciprocal(sum, reciprocals[k]);
                tabledWidth[made] = widths[k];
                tableOf[k] = made++;
            }
            if (tableOf[k] < 0) all = false;
        }
        return all;
    }

    // Both scales at least 1, 24 bits. The across terms c00 (1 - fx) + c10 fx of a source row depend
    // on that row alone, and the upper terms c01 (1 - fx) + c11 fx of one row run are the lower terms
    // of the next, so each source row's terms are worked out once and kept for the next run. Two
    // places differ and are worked out apart: at the last source column c11 falls back to c00, which
    // lies in the lower row, and at the last source row both upper corners are c00.
    //
    // When the tiles of a row run are 2^m columns by 2^p rows, every weight is i / 2^m or j / 2^p
    // exactly, every product and sum of the formula is exact in double (fewer than 53 bits), so the
    // value is the exact rational number and its truncation is an integer division: with
    // a = c00 (2^M - i') + c10 i' over the common column denominator 2^M, the result is
    // (a0 (2^p - j) + a1 j + 2^(M+p-1)) / 2^(M+p), which never exceeds 255. Such runs are worked in
    // 16-bit integers while M + p stays at most 7; all others in double, as the formula is written.
    bool WalkEnlarged24(float sy) {
        const int32_t paintEnd = columns_[paintCount_ - 1].end;
        const auto values = 3 * static_cast<size_t>(paintEnd);
        // Per target column: source byte offsets of c00 and c10, the weights in double and, when
        // every column span is a power of two, in integers over 2^shiftX.
        int32_t shiftX = 0;
        bool exactX = true;
        for (int32_t k = 0; k < paintCount_; ++k) {
            const int32_t span = columns_[k].span;
            if ((span & (span - 1)) != 0 || span > 64) {
                exactX = false;
                break;
            }
            int32_t m = 0;
            while ((1 << m) < span) ++m;
            shiftX = std::max(shiftX, m);
        }
        const uint64_t perColumn = 2 * sizeof(int32_t) + 2 * sizeof(double) + 2 * sizeof(uint16_t);
        const uint64_t perValue = 4 * sizeof(double) + 4 * sizeof(uint16_t);
        OwnedBlock block = AllocLocked(static_cast<uint64_t>(paintEnd) * perColumn + values * perValue);
        if (!block) return false;
        auto *weight0 = reinterpret_cast<double *>(block.bytes());
        double *weight1 = weight0 + paintEnd;
        double *rowTerms[2] = {weight1 + paintEnd, weight1 + paintEnd + values};
        double *flatTerms = rowTerms[1] + values;
        double *edgeTerms = flatTerms + values;  // upper terms at the last source column
        auto *at0 = reinterpret_cast<int32_t *>(edgeTerms + values);
        int32_t *at1 = at0 + paintEnd;
        auto *exact0 = reinterpret_cast<uint16_t *>(at1 + paintEnd);
        uint16_t *exact1 = exact0 + paintEnd;
        uint16_t *exactRowTerms[2] = {exact1 + paintEnd, exact1 + paintEnd + values};
        uint16_t *exactFlat = exactRowTerms[1] + values;
        uint16_t *exactEdge = exactFlat + values;
        int32_t lastStart = paintEnd;  // first target column painted from the last source column
        for (int32_t k = 0; k < paintCount_; ++k) {
            const Run &c = columns_[k];
            const bool lastX = c.first >= width_ - 1;
            if (lastX) lastStart = std::min(lastStart, c.target);
            const double colStep = 1.0 / c.span;
            int32_t m = 0;
            while (exactX && (1 << m) < c.span) ++m;
            for (int32_t tx = c.target; tx < c.end; ++tx) {
                const float fx = static_cast<float>(colStep * (tx - c.target));
                weight1[tx] = fx;
                weight0[tx] = 1.0 - weight1[tx];
                at0[tx] = 3 * c.first;
                at1[tx] = lastX ? at0[tx] : at0[tx] + 3;
                if (exactX) {
                    exact1[tx] = static_cast<uint16_t>((tx - c.target) << (shiftX - m));
                    exact0[tx] = static_cast<uint16_t>((c.span - (tx - c.target)) << (shiftX - m));
                }
            }
        }
        // The lower terms of a source row; c10 is c00 at the last column.
        auto termsOf = [&](int32_t y, double *out) {
            const uint8_t *row = SrcRow(y);
            for (int32_t tx = 0; tx < paintEnd; ++tx) {
                const uint8_t *p0 = row + at0[tx];
                const uint8_t *p1 = row + at1[tx];
                const double w0 = weight0[tx], w1 = weight1[tx];
                for (int ch = 0; ch < 3; ++ch)
                    out[3 * tx + ch] = static_cast<double>(p0[ch]) * w0 + static_cast<double>(p1[ch]) * w1;
            }
        };
        auto exactTermsOf = [&](int32_t y, uint16_t *out) {
            const uint8_t *row = SrcRow(y);
            for (int32_t tx = 0; tx < paintEnd; ++tx) {
                const uint8_t *p0 = row + at0[tx];
                const uint8_t *p1 = row + at1[tx];
                const uint16_t w0 = exact0[tx], w1 = exact1[tx];
                for (int ch = 0; ch < 3; ++ch)
                    out[3 * tx + ch] = static_cast<uint16_t>(p0[ch] * w0 + p1[ch] * w1);
            }
        };
        // Two source rows' terms are kept, in double and in integers; a row is worked out only
        // when it is not among them, into the slot that does not hold the row to keep.
        int32_t heldRow[2] = {-1, -1}, exactHeldRow[2] = {-1, -1};
        auto held = [&](int32_t y, int32_t keep) -> const double * {
            for (int i = 0; i < 2; ++i)
                if (heldRow[i] == y) return rowTerms[i];
            const int slot = heldRow[0] == keep ? 1 : 0;
            termsOf(y, rowTerms[slot]);
            heldRow[slot] = y;
            return rowTerms[slot];
        };
        auto exactHeld = [&](int32_t y, int32_t keep) -> const uint16_t * {
            for (int i = 0; i < 2; ++i)
                if (exactHeldRow[i] == y) return exactRowTerms[i];
            const int slot = exactHeldRow[0] == keep ? 1 : 0;
            exactTermsOf(y, exactRowTerms[slot]);
            exactHeldRow[slot] = y;
            return exactRowTerms[slot];
        };
        for (int64_t yRun = 0; yRun < height_;) {
            const Run rows = NextRun(yRun, sy, job_.newHeight);
            if (rows.target < job_.newHeight) {
                const int32_t y = rows.first;
                const bool lastY = y >= height_ - 1;
                int32_t p = 0;
                while (p < 7 && (1 << p) < rows.span) ++p;
                const bool exact = exactX && (1 << p) == rows.span && shiftX + p <= 7;
                const size_t split = 3 * static_cast<size_t>(lastStart);
                if (exact) {
                    const uint16_t *lower = exactHeld(y, -1);
                    const uint16_t *upper;
                    if (lastY) {
                        // Both upper corners are c00.
                        const uint8_t *row = SrcRow(y);
                        for (int32_t tx = 0; tx < paintEnd; ++tx)
                            for (int ch = 0; ch < 3; ++ch)
                                exactFlat[3 * tx + ch] = static_cast<uint16_t>(row[at0[tx] + ch] << shiftX);
                        upper = exactFlat;
                    } else {
                        upper = exactHeld(y + 1, y);
                        lower = exactHeld(y, y + 1);
                        const uint8_t *row = SrcRow(y), *above = SrcRow(y + 1);
                        for (int32_t tx = lastStart; tx < paintEnd; ++tx)
                            for (int ch = 0; ch < 3; ++ch)
                                exactEdge[3 * tx + ch] = static_cast<uint16_t>(
                                    above[at0[tx] + ch] * exact0[tx] + row[at0[tx] + ch] * exact1[tx]);
                    }
                    // The sums are never negative and the divisor is 2^shift, so the division is
                    // the shift, which the compiler cannot know for a divisor found at run time.
                    const auto shift = static_cast<uint32_t>(shiftX + p);
                    const auto half = static_cast<uint16_t>((1u << shift) / 2);
                    for (int32_t ty = rows.target; ty < rows.end; ++ty) {
                        const auto j = static_cast<uint16_t>(ty - rows.target);
                        const auto wy0 = static_cast<uint16_t>(rows.span - j);
                        uint8_t *out = DstRow(ty);
                        const size_t end = lastY ? values : split;
                        for (size_t i = 0; i < end; ++i)
                            out[i] = static_cast<uint8_t>(
                                static_cast<uint16_t>(lower[i] * wy0 + upper[i] * j + half) >> shift);
                        for (size_t i = end; i < values; ++i)
                            out[i] = static_cast<uint8_t>(
                                static_cast<uint16_t>(lower[i] * wy0 + exactEdge[i] * j + half) >> shift);
                    }
                } else {
                    const double *lower = held(y, -1);
                    const double *upper;
                    if (lastY) {
                        const uint8_t *row = SrcRow(y);
                        for (int32_t tx = 0; tx < paintEnd; ++tx)
                            for (int ch = 0; ch < 3; ++ch) {
                                const auto c = static_cast<double>(row[at0[tx] + ch]);
                                flatTerms[3 * tx + ch] = c * weight0[tx] + c * weight1[tx];
                            }
                        upper = flatTerms;
                    } else {
                        upper = held(y + 1, y);
                        lower = held(y, y + 1);
                        const uint8_t *row = SrcRow(y), *above = SrcRow(y + 1);
                        for (int32_t tx = lastStart; tx < paintEnd; ++tx)
                            for (int ch = 0; ch < 3; ++ch)
                                edgeTerms[3 * tx + ch] =
                                    static_cast<double>(above[at0[tx] + ch]) * weight0[tx] +
                                    static_cast<double>(row[at0[tx] + ch]) * weight1[tx];
                    }
                    const double rowStep = 1.0 / rows.span;
                    for (int32_t ty = rows.target; ty < rows.end; ++ty) {
                        const float fy = static_cast<float>(rowStep * (ty - rows.target));
                        const double wy1 = fy;
                        const double wy0 = 1.0 - wy1;
                        uint8_t *out = DstRow(ty);
                        const size_t end = lastY ? values : split;
                        for (size_t i = 0; i < end; ++i)
                            out[i] = static_cast<uint8_t>(SpreadLevel(lower[i] * wy0 + upper[i] * wy1 + 0.5));
                        for (size_t i = end; i < values; ++i)
                            out[i] =
                                static_cast<uint8_t>(SpreadLevel(lower[i] * wy0 + edgeTerms[i] * wy1 + 0.5));
                    }
                }
                for (int32_t ty = rows.target; ty < rows.end; ++ty) PaintMaskRow(y, ty);
            }
            if (!Progress(rows)) return false;
            yRun += rows.count;
        }
        return true;
    }

    const uint8_t *SrcRow(int32_t y) const { return srcBits_ + srcStride_ * static_cast<size_t>(y); }
    uint8_t *DstRow(int32_t y) const { return DibBits(dst_) + dstStride_ * static_cast<size_t>(y); }
    uint8_t *MaskRow(int32_t y) const { return DibBits(dstMask_) + maskStride_ * static_cast<size_t>(y); }
    bool SrcMaskBit(int32_t x, int32_t y) const {
        return job_.srcMask != nullptr &&
               MaskBitSet(srcMaskBits_ + srcMaskStride_ * static_cast<size_t>(y), x);
    }

    // The mask bit of each block's first pixel, OR-ed into the painted part of its tile in row ty.
    void PaintMaskRow(int32_t y, int32_t ty) const {
        if (dstMask_ == nullptr) return;
        uint8_t *row = MaskRow(ty);
        for (int32_t k = 0; k < paintCount_; ++k) {
            const Run &c = columns_[k];
            if (SrcMaskBit(c.first, y)) OrBits(row, c.target, c.end - 1);
        }
    }

    void Replicate(const Run &rows) {
        const int32_t y = rows.first;
        const uint8_t *srcRow = SrcRow(y);
        // Stores through byte pointers may alias anything, so the loop keeps its own copies.
        const Run *columns = columns_;
        const int32_t paintCount = paintCount_;
        for (int32_t ty = rows.target; ty < rows.end; ++ty) {
            uint8_t *dstRow = DstRow(ty);
            if (Fmt::kBits >= 8 && ty > rows.target) {
                // Every row of a replicated tile holds the same pixels.
                std::memcpy(dstRow, DstRow(rows.target), dstStride_);
            } else {
                for (int32_t k = 0; k < paintCount; ++k) {
                    const Run c = columns[k];
                    const uint32_t v = ReadRaw<Fmt::kBits>(srcRow, c.first);
                    for (int32_t tx = c.target; tx < c.end; ++tx) WriteRaw<Fmt::kBits>(dstRow, tx, v);
                }
            }
            PaintMaskRow(y, ty);
        }
    }

    // Channel sums of columns x .. x + nx - 1 of rows y .. y + ny - 1 that lie inside the source.
    int32_t SumBlock(int32_t x, int32_t nx, int32_t y, int32_t ny, int64_t *sum) const {
        const int32_t xEnd = static_cast<int32_t>(std::min<int64_t>(int64_t{x} + nx, width_));
        const int32_t yEnd = static_cast<int32_t>(std::min<int64_t>(int64_t{y} + ny, height_));
        for (int ch = 0; ch < Fmt::kChannels; ++ch) sum[ch] = 0;
        int32_t c[3];
        for (int32_t yy = y; yy < yEnd; ++yy) {
            const uint8_t *row = SrcRow(yy);
            for (int32_t xx = x; xx < xEnd; ++xx) {
                fmt_.Fetch(row, xx, c);
                for (int ch = 0; ch < Fmt::kChannels; ++ch) sum[ch] += c[ch];
            }
        }
        return (xEnd - x) * (yEnd - y);
    }
    void Mean(int32_t x, int32_t nx, int32_t y, int32_t ny, int32_t *out) const {
        int64_t sum[3];
        const int32_t count = SumBlock(x, nx, y, ny, sum);
        for (int ch = 0; ch < Fmt::kChannels; ++ch) out[ch] = MeanOf(sum[ch], count);
    }
    void Pixel(int32_t x, int32_t y, int32_t *out) const { fmt_.Fetch(SrcRow(y), x, out); }
    static void Copy(const int32_t *from, int32_t *to) {
        for (int ch = 0; ch < Fmt::kChannels; ++ch) to[ch] = from[ch];
    }

    // Both scales below 1: each block paints the one pixel of its mean. The run's rows are summed
    // per column first, so the source is read row by row.
    void AverageBlocks(const Run &rows) {
        const int32_t y = rows.first;
        const int32_t yEnd = static_cast<int32_t>(std::min<int64_t>(int64_t{y} + rows.count, height_));
        uint8_t *dstRow = DstRow(rows.target);
        int32_t mean[3];
        // Column sums of 32 bits hold up to 2^31 / 256 rows of levels; taller runs sum each block in
        // 64 bits.
        if (yEnd - y > (1 << 23)) {
            for (int32_t k = 0; k < paintCount_; ++k) {
                const Run &c = columns_[k];
                Mean(c.first, c.count, y, rows.count, mean);
                fmt_.Store(dstRow, c.target, mean);
                if (SrcMaskBit(c.first, y)) OrBits(MaskRow(rows.target), c.target, c.target);
            }
            return;
        }
        constexpr int kStride = Fmt::kSumStride;
        int32_t *sums = sums_;
        const Fmt fmt = fmt_;
        const int32_t width = width_;
        std::memset(sums, 0, sizeof(int32_t) * kStride * static_cast<size_t>(width));
        for (int32_t yy = y; yy < yEnd; ++yy) fmt.Accumulate(SrcRow(yy), width, sums);
        const Run *columns = columns_;
        const int32_t paintCount = paintCount_;
        const int32_t rowsIn = yEnd - y;
        MeanDivider divider;
        for (int32_t k = 0; k < paintCount; ++k) {
            const Run c = columns[k];
            const int32_t xEnd = static_cast<int32_t>(std::min<int64_t>(int64_t{c.first} + c.count, width));
            int64_t sum[3] = {0, 0, 0};
            for (int32_t x = c.first; x < xEnd; ++x) {
                for (int ch = 0; ch < Fmt::kChannels; ++ch)
                    sum[ch] += sums[kStride * static_cast<size_t>(x) + ch];
            }
            const int32_t count = (xEnd - c.first) * rowsIn;
            for (int ch = 0; ch < Fmt::kChannels; ++ch) mean[ch] = divider.Mean(sum[ch], count);
            fmt.Store(dstRow, c.target, mean);
        }
        if (dstMask_ == nullptr) return;
        for (int32_t k = 0; k < paintCount; ++k) {
            const Run &c = columns[k];
            if (SrcMaskBit(c.first, y)) OrBits(MaskRow(rows.target), c.target, c.target);
        }
    }

    // The four corners of the block of column run c in the row run starting at y.
    void FindCorners(const Run &c, Corners &out, int32_t y, int32_t ny, bool reduceX, bool reduceY) const {
        const int32_t x = c.first;
        const int32_t nx = c.count;
        const bool lastX = x >= width_ - 1;
        const bool lastY = y >= height_ - 1;
        if (!reduceX && !reduceY) {
            // The upper-right corner falls back to the block itself, not to an edge neighbour.
            Pixel(x, y, out.c00);
            if (lastX)
                Copy(out.c00, out.c10);
            else
                Pixel(x + 1, y, out.c10);
            if (lastY)
                Copy(out.c00, out.c01);
            else
                Pixel(x, y + 1, out.c01);
            if (lastX || lastY)
                Copy(out.c00, out.c11);
            else
                Pixel(x + 1, y + 1, out.c11);
            return;
        }
        Mean(x, nx, y, ny, out.c00);
        if (nx >= 2) {
            Copy(out.c00, out.c10);
        } else if (lastX) {
            Pixel(x, y, out.c10);
        } else if (ny == 1) {
            Pixel(x + 1, y, out.c10);
        } else {
            Mean(x + 1, 1, y, ny, out.c10);
        }
        if (ny >= 2) {
            Copy(out.c00, out.c01);
        } else if (lastY) {
            Pixel(x, y, out.c01);
        } else if (nx == 1) {
            Pixel(x, y + 1, out.c01);
        } else {
            Mean(x, nx, y + 1, 1, out.c01);
        }
        if (nx >= 2 && ny >= 2) {
            Copy(out.c00, out.c11);
        } else if (nx == 1 && ny >= 2) {
            Copy(out.c10, out.c11);
        } else if (nx >= 2) {
            Copy(out.c01, out.c11);
        } else if (!lastX && !lastY) {
            Pixel(x + 1, y + 1, out.c11);
        } else if (!lastY) {
            Pixel(x, y + 1, out.c11);
        } else if (!lastX) {
            Pixel(x + 1, y, out.c11);
        } else {
            Pixel(x, y, out.c11);
        }
    }

    // At least one scale reaches 1: every tile spreads bilinearly between its four corners.
    void Spread(const Run &rows, bool reduceX, bool reduceY) {
        if (!reduceX && !reduceY) {
            SpreadEnlarged(rows);
            return;
        }
        const int32_t y = rows.first;
        for (int32_t k = 0; k < paintCount_; ++k)
            FindCorners(columns_[k], corners_[k], y, rows.count, reduceX, reduceY);
        // The value is (across0 x (1 - fy)) + (across1 x fy) + 0.5 with across0 = c00 (1 - fx) + c10 fx
        // and across1 = c01 (1 - fx) + c11 fx. The two across terms depend on the column alone, so
        // they are worked out once per row run for a chunk of target columns, and each row of the
        // run then costs two products and two sums per channel, in the same order as the formula.
        constexpr int kCh = Fmt::kChannels;
        const Run *columns = columns_;
        const Corners *corners = corners_;
        const int32_t paintCount = paintCount_;
        const SpreadChunk chunk = chunk_;
        int32_t n = 0;
        for (int32_t k = 0; k < paintCount; ++k) {
            const Run c = columns[k];
            const Corners &corner = corners[k];
            const double colStep = 1.0 / c.span;
            for (int32_t tx = c.target; tx < c.end; ++tx) {
                if (n == kSpreadChunk) {
                    PaintChunk(rows, n);
                    n = 0;
                }
                // Weights run from 0 up to (n - 1) / n: 1 / n in double, its multiple rounded to single.
                const float fx = static_cast<float>(colStep * (tx - c.target));
                const double wx1 = fx;
                const double wx0 = 1.0 - wx1;
                for (int ch = 0; ch < kCh; ++ch) {
                    chunk.across0[kCh * n + ch] =
                        static_cast<double>(corner.c00[ch]) * wx0 + corner.c10[ch] * wx1;
                    chunk.across1[kCh * n + ch] =
                        static_cast<double>(corner.c01[ch]) * wx0 + corner.c11[ch] * wx1;
                }
                chunk.targets[n++] = tx;
            }
        }
        if (n != 0) PaintChunk(rows, n);
        for (int32_t ty = rows.target; ty < rows.end; ++ty) PaintMaskRow(y, ty);
    }

    // Both scales at least 1: every block is one pixel, and its corners are the pixel, its right
    // neighbour, the pixel above and the one above right, each falling back to the pixel itself at
    // the last column or row (the upper right one at either). The two rows are read once per run.
    void SpreadEnlarged(const Run &rows) {
        constexpr int kCh = Fmt::kChannels;
        const int32_t y = rows.first;
        const bool lastY = y >= height_ - 1;
        const Fmt fmt = fmt_;
        double *lower = lower_;
        double *upper = lastY ? lower_ : upper_;
        const int32_t paintCount = paintCount_;
        const Run *columns = columns_;
        // Columns up to the right neighbour of the last painting run.
        const int32_t readEnd = paintCount == 0 ? 0 : std::min(columns[paintCount - 1].first + 2, width_);
        int32_t c[3];
        for (int32_t x = 0; x < readEnd; ++x) {
            fmt.Fetch(SrcRow(y), x, c);
            for (int ch = 0; ch < kCh; ++ch) lower[kCh * x + ch] = c[ch];
            if (!lastY) {
                fmt.Fetch(SrcRow(y + 1), x, c);
                for (int ch = 0; ch < kCh; ++ch) upper[kCh * x + ch] = c[ch];
            }
        }
        const SpreadChunk chunk = chunk_;
        int32_t n = 0;
        for (int32_t k = 0; k < paintCount; ++k) {
            const Run run = columns[k];
            const int32_t x = run.first;
            const bool lastX = x >= width_ - 1;
            const double *c00 = lower + kCh * x;
            const double *c10 = lastX ? c00 : c00 + kCh;
            const double *c01 = upper + kCh * x;
            const double *c11 = lastX || lastY ? c00 : c01 + kCh;
            const double colStep = 1.0 / run.span;
            for (int32_t tx = run.target; tx < run.end; ++tx) {
                if (n == kSpreadChunk) {
                    PaintChunk(rows, n);
                    n = 0;
                }
                const float fx = static_cast<float>(colStep * (tx - run.target));
                const double wx1 = fx;
                const double wx0 = 1.0 - wx1;
                for (int ch = 0; ch < kCh; ++ch) {
                    chunk.across0[kCh * n + ch] = c00[ch] * wx0 + c10[ch] * wx1;
                    chunk.across1[kCh * n + ch] = c01[ch] * wx0 + c11[ch] * wx1;
                }
                chunk.targets[n++] = tx;
            }
        }
        if (n != 0) PaintChunk(rows, n);
        for (int32_t ty = rows.target; ty < rows.end; ++ty) PaintMaskRow(y, ty);
    }

    // Every row of the row run over the n target columns held in the chunk.
    void PaintChunk(const Run &rows, int32_t n) {
        constexpr int kCh = Fmt::kChannels;
        const SpreadChunk chunk = chunk_;
        const Fmt fmt = fmt_;
        const double rowStep = 1.0 / rows.span;
        const int32_t values = kCh * n;
        // 24-bit pixels of consecutive columns are consecutive bytes: the values go straight there.
        const bool straight = Fmt::kBits == 24 && chunk.targets[n - 1] - chunk.targets[0] == n - 1;
        for (int32_t ty = rows.target; ty < rows.end; ++ty) {
            const float fy = static_cast<float>(rowStep * (ty - rows.target));
            const double wy1 = fy;
            const double wy0 = 1.0 - wy1;
            if (straight) {
                uint8_t *out = DstRow(ty) + 3 * static_cast<size_t>(chunk.targets[0]);
                for (int32_t i = 0; i < values; ++i)
                    out[i] = static_cast<uint8_t>(
                        SpreadLevel(chunk.across0[i] * wy0 + chunk.across1[i] * wy1 + 0.5));
                continue;
            }
            for (int32_t i = 0; i < values; ++i)
                chunk.levels[i] = SpreadLevel(chunk.across0[i] * wy0 + chunk.across1[i] * wy1 + 0.5);
            uint8_t *dstRow = DstRow(ty);
            for (int32_t e = 0; e < n; ++e) fmt.Store(dstRow, chunk.targets[e], chunk.levels + kCh * e);
        }
    }

    const ResizeJob &job_;
    const Fmt &fmt_;
    uint8_t *dst_;
    uint8_t *dstMask_;
    const Run *columns_;
    Corners *corners_;
    int32_t *sums_;
    SpreadChunk chunk_;
    double *lower_;
    double *upper_;
    int32_t paintCount_;  // column runs whose span starts inside the new image
    const int32_t width_ = DibWidth(job_.src);
    const int32_t height_ = DibHeight(job_.src);
    const uint8_t *srcBits_ = DibBits(job_.src);
    const size_t srcStride_ = static_cast<uint32_t>(DibRowBytes(job_.src));
    const size_t dstStride_ = static_cast<uint32_t>(DibRowBytes(dst_));
    const uint8_t *srcMaskBits_ = job_.srcMask != nullptr ? DibBits(job_.srcMask) : nullptr;
    const size_t srcMaskStride_ =
        job_.srcMask != nullptr ? static_cast<uint32_t>(DibRowBytes(job_.srcMask)) : 0;
    const size_t maskStride_ = dstMask_ != nullptr ? static_cast<uint32_t>(DibRowBytes(dstMask_)) : 0;
};

// A new image with the header and table of `of` at the new size, rows zero; locked.
OwnedBlock NewImageOf(const uint8_t *of, int32_t width, int32_t height) {
    DibHandle clone = CloneDib(of, width, height, 0);
    if (clone == nullptr) return OwnedBlock();
    OwnedBlock owned(clone);
    if (!owned) SetErrorStatus(TZ3_NO_MEMORY);
    return owned;
}

template <class Fmt>
DibPair ResizeWorker(const ResizeJob &job, const Fmt &fmt) {
    OwnedBlock image = NewImageOf(job.src, job.newWidth, job.newHeight);
    if (!image) return DibPair{};
    OwnedBlock mask;
    if (job.srcMask != nullptr) {
        mask = NewImageOf(job.srcMask, job.newWidth, job.newHeight);
        if (!mask) return DibPair{};
    }
    const int32_t width = DibWidth(job.src);
    const int32_t height = DibHeight(job.src);
    // A source with no columns or no rows walks nothing and leaves the new image zero.
    if (width >= 1 && height >= 1) {
        const float sx = static_cast<float>(job.newWidth) / static_cast<float>(width);
        const float sy = static_cast<float>(job.newHeight) / static_cast<float>(height);
        const bool average = Fmt::kChannels > 0 && job.average;
        OwnedBlock memoryBlock = AllocLocked(WalkMemory::Bytes(width, average));
        if (!memoryBlock) return DibPair{};
        const WalkMemory memory(memoryBlock.bytes(), width, average);
        // The column runs are the same for every row run: cut once. Their targets never decrease,
        // so the runs that paint anything come first.
        int32_t paintCount = 0;
        for (int64_t x = 0, k = 0; x < width; ++k) {
            memory.columns[k] = NextRun(x, sx, job.newWidth);
            if (memory.columns[k].target < job.newWidth) paintCount = static_cast<int32_t>(k + 1);
            x += memory.columns[k].count;
        }
        ResizeWalk<Fmt> walk(job, fmt, image.bytes(), mask.bytes(), memory, paintCount);
        if (!walk.WalkRows(sx, sy)) return DibPair{};
    }
    return DibPair{image.Release(), mask.Release()};
}

}  // namespace

DibPair ResizeDib(DibHandle image, DibHandle mask, int32_t newWidth, int32_t newHeight, int32_t interpolate,
                  int32_t noDialog, int32_t halfProgress) {
    OpenedDib source;
    if (!OpenDib(image, kFormatAll, source)) return DibPair{};
    LockedBlock maskLock;
    const uint8_t *maskBytes = nullptr;
    if (mask != nullptr) {
        maskLock = LockedBlock(mask);
        if (!maskLock) {
            SetErrorStatus(TZ3_NO_MEMORY);
            return DibPair{};
        }
        if (!CheckDibBlock(maskLock.bytes(), maskLock.size()) || !CheckMaskFits(source.dib, maskLock.bytes()))
            return DibPair{};
        maskBytes = maskLock.bytes();
    }
    const uint8_t *dib = source.dib;
    ResizeJob job{dib, maskBytes, newWidth, newHeight, interpolate != 0, noDialog, 100};
    switch (DibBitCount(dib)) {
        case 1:
            job.average = false;
            return ResizeWorker(job, Resize1{});
        case 4:
            job.average = false;
            return ResizeWorker(job, Resize4{});
        case 8: {
            // The map is made whether or not the palette lets the image average.
            GrayLevelMap map;
            if (!BuildGrayLevelMap(dib, map)) return DibPair{};
            job.average = job.average && IsGrayPalette(dib) != 0;
            return ResizeWorker(job, Resize8{map.toLevel, map.toIndex});
        }
        case 16:
            if (source.redMask == kRed555Mask) return ResizeWorker(job, Resize16<false>{});
            return ResizeWorker(job, Resize16<true>{});
        case 24:
            // The panorama gives the second half of its progress to the paste.
            job.percentHigh = halfProgress != 0 ? 50 : 100;
            return ResizeWorker(job, ResizeBytes<24>{});
        case 32:
            return ResizeWorker(job, ResizeBytes<32>{});
        default:
            SetErrorStatus(TZ3_BAD_DEPTH);
            return DibPair{};
    }
}

}  // namespace tz3

extern "C" TZ3_API DibPair TZ3Resize(const DibPair *source, int32_t newWidth, int32_t newHeight,
                                     int32_t interpolate, int32_t noDialog, intptr_t dialog1,
                                     intptr_t dialog2, intptr_t dialog3) {
    using namespace tz3;
    return RunExport<DibPair>(noDialog, dialog1, dialog2, dialog3, [&] {
        const DibPair in = source != nullptr ? *source : DibPair{};
        return ResizeDib(in.image, in.mask, newWidth, newHeight, interpolate, noDialog, 0);
    });
}

extern "C" TZ3_API int32_t TZ3ResizeEx(const DibPair *source, DibPair *result, int32_t newWidth,
                                       int32_t newHeight, int32_t interpolate, int32_t noDialog,
                                       intptr_t dialog1, intptr_t dialog2, intptr_t dialog3) {
    using namespace tz3;
    return RunExport<int32_t>(noDialog, dialog1, dialog2, dialog3, [&]() -> int32_t {
        // With nowhere to put the pair, nothing is made.
        if (result == nullptr) {
            SetErrorStatus(TZ3_BAD_PARAMETER);
            return 0;
        }
        const DibPair in = source != nullptr ? *source : DibPair{};
        *result = ResizeDib(in.image, in.mask, newWidth, newHeight, interpolate, noDialog, 0);
        return result->image != nullptr ? 1 : 0;
    });
}
