// LumaCache: the luma of each pixel of the whole image, computed once however many windows contain
// it. One 16-bit word a pixel, width words a row without padding, in one block whose bytes all start
// at 255, so that 0xFFFF marks a luma not computed yet (a luma is at most 254).
//
// Luma L = trunc(t0[R] + t1[G] + t2[B]) over the float luma tables, the three entries added in
// double precision in that order. The cache covers the whole image because windows reach out of
// the box. A row is computed whole the first time any of its pixels is asked for; its first word
// tells whether that happened.
#pragma once

#include <cstdint>
#include <cstring>

#include "filter/filter_skeleton.h"

namespace tz3 {

// The luma of a colour by the three luma tables (the first three YCC tables are the same ones).
inline uint8_t TableLuma(const float *const t[3], uint8_t r, uint8_t g, uint8_t b) {
    return static_cast<uint8_t>(static_cast<int32_t>(static_cast<double>(t[0][r]) + static_cast<double>(t[1][g]) +
                                                     static_cast<double>(t[2][b])));
}

// The lumas of n pixels of channel values r, g, b (0..255) by the tables t, in a plain loop and in
// an AVX2 one (gathers, the same double sums); LumaCache picks one once per call.
void LumaSpan(const float *const t[3], const int32_t *r, const int32_t *g, const int32_t *b, int32_t n,
              uint16_t *out);
void LumaSpanAvx2(const float *const t[3], const int32_t *r, const int32_t *g, const int32_t *b, int32_t n,
                  uint16_t *out);

struct LumaCache {
    OwnedBlock block;
    uint16_t *words = nullptr;
    int32_t width = 0;
    const float *t[3] = {};
    bool avx2 = false;

    static constexpr uint16_t kNotComputed = 0xFFFF;

    // The block for width x height words, every byte 255. Without memory, or above the block limit:
    // false and status 3.
    bool Make(int32_t w, int32_t h, const float *const tables[3]) {
        const uint64_t bytes = 2ull * static_cast<uint64_t>(w) * static_cast<uint64_t>(h);
        block = AllocLocked(bytes);
        if (!block) return false;
        std::memset(block.bytes(), 255, static_cast<size_t>(bytes));
        words = reinterpret_cast<uint16_t *>(block.bytes());
        width = w;
        for (int32_t i = 0; i < 3; ++i) t[i] = tables[i];
        avx2 = ProcessorHasAvx2();
        return true;
    }

    // The lumas of source row y, computed on first use.
    template <class Pix>
    const uint16_t *Row(const FilterImage<Pix> &img, int32_t y) {
        uint16_t *row = words + static_cast<size_t>(width) * static_cast<size_t>(y);
        if (row[0] == kNotComputed) {
            // A chunk of pixels at a time: their channels, then their lumas.
            constexpr int32_t kChunk = 64;
            int32_t r[kChunk], g[kChunk], b[kChunk];
            const uint8_t *s = img.SrcRow(y);
            for (int32_t x0 = 0; x0 < width; x0 += kChunk) {
                const int32_t m = width - x0 < kChunk ? width - x0 : kChunk;
                for (int32_t j = 0; j < m; ++j, s += Pix::kBytes) {
                    const Rgb c = Pix::Fetch(s);
                    r[j] = c.r;
                    g[j] = c.g;
                    b[j] = c.b;
                }
                if (avx2) {
                    LumaSpanAvx2(t, r, g, b, m, row + x0);
                } else {
                    LumaSpan(t, r, g, b, m, row + x0);
                }
            }
        }
        return row;
    }
};

}  // namespace tz3
