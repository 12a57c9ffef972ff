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

struct LumaCache {
    OwnedBlock block;
    uint16_t *words = nullptr;
    int32_t width = 0;
    const float *t[3] = {};

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
        return true;
    }

    // The lumas of source row y, computed on first use.
    template <class Pix>
    const uint16_t *Row(const FilterImage<Pix> &img, int32_t y) {
        uint16_t *row = words + static_cast<size_t>(width) * static_cast<size_t>(y);
        if (row[0] == kNotComputed) {
            const uint8_t *s = img.SrcRow(y);
            for (int32_t x = 0; x < width; ++x, s += Pix::kBytes) {
                const Rgb c = Pix::Fetch(s);
                row[x] = TableLuma(t, c.r, c.g, c.b);
            }
        }
        return row;
    }
};

}  // namespace tz3
