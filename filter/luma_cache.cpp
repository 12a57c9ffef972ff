// The luma spans of LumaCache: a plain loop, and an AVX2 one that gathers the table entries and adds
// them in four double lanes in the same order (red, green, blue), so each luma is the same.
#include "filter/luma_cache.h"

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#endif

namespace tz3 {

void LumaSpan(const float *const t[3], const int32_t *r, const int32_t *g, const int32_t *b, int32_t n,
              uint16_t *out) {
    for (int32_t i = 0; i < n; ++i) {
        out[i] = TableLuma(t, static_cast<uint8_t>(r[i]), static_cast<uint8_t>(g[i]), static_cast<uint8_t>(b[i]));
    }
}

#if defined(__x86_64__) || defined(__i386__)

namespace {

// trunc of the double sums of four lanes; every sum lies in 0..255, so the conversion is exact.
[[gnu::target("avx2")]] __m128i LumaOfFour(__m128 red, __m128 green, __m128 blue) {
    const __m256d sum =
        _mm256_add_pd(_mm256_add_pd(_mm256_cvtps_pd(red), _mm256_cvtps_pd(green)), _mm256_cvtps_pd(blue));
    return _mm256_cvttpd_epi32(sum);
}

}  // namespace

[[gnu::target("avx2")]] void LumaSpanAvx2(const float *const t[3], const int32_t *r, const int32_t *g,
                                          const int32_t *b, int32_t n, uint16_t *out) {
    int32_t i = 0;
    for (; i + 8 <= n; i += 8) {
        const __m256 red = _mm256_i32gather_ps(t[0], _mm256_loadu_si256(reinterpret_cast<const __m256i *>(r + i)), 4);
        const __m256 green =
            _mm256_i32gather_ps(t[1], _mm256_loadu_si256(reinterpret_cast<const __m256i *>(g + i)), 4);
        const __m256 blue = _mm256_i32gather_ps(t[2], _mm256_loadu_si256(reinterpret_cast<const __m256i *>(b + i)), 4);
        const __m128i low = LumaOfFour(_mm256_castps256_ps128(red), _mm256_castps256_ps128(green),
                                       _mm256_castps256_ps128(blue));
        const __m128i high = LumaOfFour(_mm256_extractf128_ps(red, 1), _mm256_extractf128_ps(green, 1),
                                        _mm256_extractf128_ps(blue, 1));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(out + i), _mm_packus_epi32(low, high));
    }
    LumaSpan(t, r + i, g + i, b + i, n - i, out + i);
}

#else

void LumaSpanAvx2(const float *const t[3], const int32_t *r, const int32_t *g, const int32_t *b, int32_t n,
                  uint16_t *out) {
    LumaSpan(t, r, g, b, n, out);
}

#endif

}  // namespace tz3
