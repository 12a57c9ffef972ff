// The span loop of the convolution, compiled for the instruction set every x86-64 has and, where
// the processor offers it, for AVX2. All of them are the same wrapped 32-bit integer sums, so they
// give the same bits in any order of summation.
#include "filter/convolution.h"

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#endif

namespace tz3 {

void ConvolveSpan(const TapRow *taps, int32_t tapCount, int32_t n, int32_t divisor, int32_t bias, uint8_t *out) {
    ConvolveSpanBody(taps, tapCount, n, divisor, bias, out);
}

#if defined(__x86_64__) || defined(__i386__)

namespace {

// Weights of 16 bits let two taps share one multiply-add: pmaddwd forms k1 x v1 + k2 x v2 exactly
// in 32 bits (at most 2 x 32768 x 255 in size), and the 32-bit adds wrap as the plain sum does.
bool WeightsFit16(const TapRow *taps, int32_t tapCount) {
    for (int32_t t = 0; t < tapCount; ++t) {
        const auto k = static_cast<int32_t>(taps[t].weight);
        if (k < -32768 || k > 32767) return false;
    }
    return true;
}

}  // namespace

[[gnu::target("avx2")]] void ConvolveSpanAvx2(const TapRow *taps, int32_t tapCount, int32_t n, int32_t divisor,
                                              int32_t bias, uint8_t *out) {
    constexpr int32_t kWide = 32;
    if (n < kWide || !WeightsFit16(taps, tapCount)) {
        ConvolveSpanBody(taps, tapCount, n, divisor, bias, out);
        return;
    }
    // Taps in pairs; an odd last tap is paired with itself at weight 0.
    const int32_t pairs = (tapCount + 1) / 2;
    const uint8_t *first[kKernelTaps / 2 + 1];
    const uint8_t *second[kKernelTaps / 2 + 1];
    __m256i weights[kKernelTaps / 2 + 1];
    for (int32_t p = 0; p < pairs; ++p) {
        const TapRow &a = taps[2 * p];
        const bool paired = 2 * p + 1 < tapCount;
        const TapRow &b = paired ? taps[2 * p + 1] : a;
        first[p] = a.values;
        second[p] = b.values;
        const uint32_t low = a.weight & 0xFFFFu;
        const uint32_t high = paired ? (b.weight & 0xFFFFu) : 0u;
        weights[p] = _mm256_set1_epi32(static_cast<int32_t>(low | (high << 16)));
    }
    const int32_t limit = 256 * divisor;
    const __m256i lowLimit = _mm256_set1_epi32(-limit), highLimit = _mm256_set1_epi32(limit);
    const __m256 fdivisor = _mm256_set1_ps(static_cast<float>(divisor));
    const __m256i biasV = _mm256_set1_epi32(bias);
    int32_t i0 = 0;
    for (; i0 + kWide <= n; i0 += kWide) {
        __m256i acc[4] = {_mm256_setzero_si256(), _mm256_setzero_si256(), _mm256_setzero_si256(),
                          _mm256_setzero_si256()};
        for (int32_t p = 0; p < pairs; ++p) {
            for (int32_t h = 0; h < 2; ++h) {
                const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i *>(first[p] + i0 + 16 * h));
                const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i *>(second[p] + i0 + 16 * h));
                const __m256i lo = _mm256_cvtepu8_epi16(_mm_unpacklo_epi8(a, b));
                const __m256i hi = _mm256_cvtepu8_epi16(_mm_unpackhi_epi8(a, b));
                acc[2 * h] = _mm256_add_epi32(acc[2 * h], _mm256_madd_epi16(lo, weights[p]));
                acc[2 * h + 1] = _mm256_add_epi32(acc[2 * h + 1], _mm256_madd_epi16(hi, weights[p]));
            }
        }
        // acc[0..3] hold values i0 + 0..7, 8..15, 16..23, 24..31. The division as in the plain loop.
        __m256i q[4];
        for (int32_t v = 0; v < 4; ++v) {
            const __m256i a = _mm256_min_epi32(_mm256_max_epi32(acc[v], lowLimit), highLimit);
            q[v] = _mm256_add_epi32(_mm256_cvttps_epi32(_mm256_div_ps(_mm256_cvtepi32_ps(a), fdivisor)), biasV);
        }
        // Saturating packs clamp to 0..255 exactly as the plain loop does; they work within 128-bit
        // lanes, and the final permutation puts the four quarters back in order.
        const __m256i words0 = _mm256_packs_epi32(q[0], q[1]);
        const __m256i words1 = _mm256_packs_epi32(q[2], q[3]);
        const __m256i bytes = _mm256_packus_epi16(words0, words1);
        const __m256i ordered = _mm256_permutevar8x32_epi32(bytes, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(out + i0), ordered);
    }
    if (i0 < n) {
        TapRow rest[kKernelTaps];
        for (int32_t t = 0; t < tapCount; ++t) rest[t] = TapRow{taps[t].values + i0, taps[t].weight};
        ConvolveSpanBody(rest, tapCount, n - i0, divisor, bias, out + i0);
    }
}

bool ProcessorHasAvx2() { return __builtin_cpu_supports("avx2") != 0; }

#else

void ConvolveSpanAvx2(const TapRow *taps, int32_t tapCount, int32_t n, int32_t divisor, int32_t bias, uint8_t *out) {
    ConvolveSpanBody(taps, tapCount, n, divisor, bias, out);
}
bool ProcessorHasAvx2() { return false; }

#endif

}  // namespace tz3
