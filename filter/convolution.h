// The weighted sum over a kernel of up to 9 x 9 taps, shared by the custom filter and emboss (which
// is the same sum with a fixed 3 x 3 kernel and a divisor from its depth).
//
// For each channel of a pixel to compute: acc = sum of k x value over the non-zero taps, each tap's
// coordinates clamped into the image (the edge pixel repeats), in signed 32-bit arithmetic that
// wraps; then acc / divisor truncated toward zero, plus the bias, clamped to 0..255.
//
// How it is computed, with the same bits:
// - Each source row the kernel reaches is fetched once into a row of channel values padded with
//   four repeated edge pixels on each side, so the column clamp costs nothing per tap; the row
//   clamp picks which padded row a kernel row reads. A ring of 16 such rows serves the 9 rows a
//   box row needs, and each row is fetched once however many box rows read it.
// - Sums are wrapped 32-bit integer sums, so their order does not matter: the taps are summed over
//   a block of channel values at a time, which the compiler turns into vector code (AVX2 where the
//   processor has it, chosen once per call).
// - The division: when |acc| >= 256 x divisor the result clamps to 0 or 255 whatever the bias, so
//   acc is first cut to +-256 x divisor. Below that acc is exact as a float and acc / divisor is at
//   most 256, so the rounding of the float division (2^-16 at most) cannot cross an integer, and a
//   quotient that is not an integer stays at least 1 / divisor >= 1 / 255 away from one: the
//   truncated float quotient is the truncated integer quotient.
//
//   format   channels                  a channel that is not computed
//   8 gray   the level                 (all are computed: the flags are not looked at)
//   16       expanded blue green red   takes the pixel's own expanded value; all three are packed
//   24       blue green red            keeps the copied byte
//   32       the first three bytes     keeps the copied byte; the fourth byte is never touched
#pragma once

#include <algorithm>
#include <cstdint>

#include "filter/filter_skeleton.h"

namespace tz3 {

constexpr int32_t kKernelSide = 9;
constexpr int32_t kKernelTaps = kKernelSide * kKernelSide;
constexpr int32_t kKernelReach = 4;

// One non-zero weight and the row of padded channel values it reads, already moved to its column.
struct TapRow {
    const uint8_t *values;
    uint32_t weight;  // the signed weight's bits: products and sums wrap as signed 32-bit ones do
};

// Sums, divides, biases and clamps channel values 0..n-1 for the given taps.
[[gnu::always_inline]] inline void ConvolveSpanBody(const TapRow *taps, int32_t tapCount, int32_t n, int32_t divisor,
                                                    int32_t bias, uint8_t *out) {
    constexpr int32_t kBlock = 64;
    const int32_t limit = 256 * divisor;
    const auto fdivisor = static_cast<float>(divisor);
    for (int32_t i0 = 0; i0 < n; i0 += kBlock) {
        const int32_t m = std::min(kBlock, n - i0);
        uint32_t acc[kBlock];
        for (int32_t j = 0; j < m; ++j) acc[j] = 0;
        for (int32_t t = 0; t < tapCount; ++t) {
            const uint8_t *p = taps[t].values + i0;
            const uint32_t k = taps[t].weight;
            for (int32_t j = 0; j < m; ++j) acc[j] += k * p[j];
        }
        for (int32_t j = 0; j < m; ++j) {
            const int32_t a = ClampInt(static_cast<int32_t>(acc[j]), -limit, limit);
            const int32_t q = static_cast<int32_t>(static_cast<float>(a) / fdivisor) + bias;
            out[i0 + j] = static_cast<uint8_t>(q < 0 ? 0 : q > 255 ? 255 : q);
        }
    }
}

// The same loop compiled for the plain instruction set and for AVX2.
void ConvolveSpan(const TapRow *taps, int32_t tapCount, int32_t n, int32_t divisor, int32_t bias, uint8_t *out);
void ConvolveSpanAvx2(const TapRow *taps, int32_t tapCount, int32_t n, int32_t divisor, int32_t bias, uint8_t *out);

// The convolution for one call: the kernel (81 weights, row r reaching the source row y + 4 - r,
// column c the column x + c - 4), the low bytes of divisor and bias, and which colour channels are
// computed.
struct Convolution {
    static constexpr uint8_t kFormats = kFormatFilters;
    int32_t kernel[kKernelTaps] = {};
    int32_t divisor = 1;
    int32_t bias = 0;
    bool channelOn[3] = {true, true, true};  // blue, green, red

    // The non-zero taps, in the order r = 0..8, c = 0..8.
    int32_t tapCount = 0;
    int8_t tapRow[kKernelTaps] = {};
    int8_t tapColumn[kKernelTaps] = {};
    bool avx2 = false;

    // One block: the ring of padded rows, then the computed channel values of a box row.
    OwnedBlock scratch;
    uint8_t *ring = nullptr;
    uint8_t *values = nullptr;
    int32_t padded = 0;  // channel values in one padded row
    int32_t ringRow[16] = {};

    template <class Pix>
    bool Prepare(const FilterImage<Pix> &img) {
        constexpr int32_t C = kChannels<Pix>;
        tapCount = 0;
        for (int32_t r = 0; r < kKernelSide; ++r) {
            for (int32_t c = 0; c < kKernelSide; ++c) {
                if (kernel[r * kKernelSide + c] == 0) continue;
                tapRow[tapCount] = static_cast<int8_t>(r);
                tapColumn[tapCount] = static_cast<int8_t>(c);
                ++tapCount;
            }
        }
        const int64_t count = static_cast<int64_t>(img.box.x1) - img.box.x0 + 1;
        padded = static_cast<int32_t>((count + 2 * kKernelReach) * C);
        const uint64_t bytes = 16ull * static_cast<uint64_t>(padded) + static_cast<uint64_t>(count * C);
        if (AllocScratch<uint8_t>(scratch, bytes) == nullptr) return false;
        ring = scratch.bytes();
        values = ring + 16 * static_cast<size_t>(padded);
        for (int32_t &r : ringRow) r = -1;
        avx2 = ProcessorHasAvx2();
        return true;
    }

    // Padded channel values of source row sy, columns x0 - 4 .. x1 + 4 clamped into the image.
    template <class Pix>
    const uint8_t *PaddedRow(const FilterImage<Pix> &img, int32_t sy) {
        const int32_t slot = sy & 15;
        uint8_t *row = ring + static_cast<size_t>(slot) * padded;
        if (ringRow[slot] != sy) {
            img.FetchRowClamped(sy, img.box.x0 - kKernelReach, padded / kChannels<Pix>, row);
            ringRow[slot] = sy;
        }
        return row;
    }

    template <class Pix>
    void Row(const FilterImage<Pix> &img, int32_t y) {
        constexpr int32_t C = kChannels<Pix>;
        const int32_t count = img.box.x1 - img.box.x0 + 1;
        TapRow taps[kKernelTaps];
        for (int32_t t = 0; t < tapCount; ++t) {
            const int32_t sy = img.ClampY(y + kKernelReach - tapRow[t]);
            taps[t] = TapRow{PaddedRow(img, sy) + static_cast<size_t>(tapColumn[t]) * C,
                             static_cast<uint32_t>(kernel[tapRow[t] * kKernelSide + tapColumn[t]])};
        }
        if (avx2) {
            ConvolveSpanAvx2(taps, tapCount, count * C, divisor, bias, values);
        } else {
            ConvolveSpan(taps, tapCount, count * C, divisor, bias, values);
        }
        StoreRow(img, y);
    }

    template <class Pix>
    void StoreRow(const FilterImage<Pix> &img, int32_t y) {
        constexpr int32_t C = kChannels<Pix>;
        const bool all = channelOn[0] && channelOn[1] && channelOn[2];
        // A gray image has one channel and is always filtered.
        if (kIsGray<Pix> || all) {
            StoreSelected(img, y, values);
            return;
        }
        uint8_t *dst = img.DstRow(y);
        const uint8_t *src = img.SrcRow(y);
        const int32_t x0 = img.box.x0;
        ForEachSelected(img, y, [&](int32_t x) {
            uint8_t ch[C];
            const uint8_t *computed = values + static_cast<size_t>(x - x0) * C;
            if constexpr (kIs16<Pix>) {
                // The word is packed anew from all three channels, so a channel left out goes
                // through expansion and packing like the others.
                img.Fetch(src, x, ch);
                for (int32_t c = 0; c < C; ++c) {
                    if (channelOn[c]) ch[c] = computed[c];
                }
                img.Store(dst, x, ch);
            } else {
                uint8_t *p = dst + static_cast<size_t>(x) * Pix::kBytes;
                for (int32_t c = 0; c < C; ++c) {
                    if (channelOn[c]) p[c] = computed[c];
                }
            }
        });
    }
};

}  // namespace tz3
