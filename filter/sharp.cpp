// TZ3Sharp: raises the difference between each pixel's luma and that of its 3 x 3 neighbourhood.
// Only luma changes; a colour pixel keeps its own chroma.
//
// With the gain k = strength x 3 / 100 (a float: 3.0 at strength 100), for a pixel to compute:
//   the window x-1..x+1 by y-1..y+1 is cut to the image: n pixels (9, 6 along an edge, 4 in a corner)
//   S = the sum of their lumas, Lc the pixel's own, d = Lc x n - S
//   Y' = float(d) x k, rounded to float, + float(Lc), rounded to float again; not clamped
//   8 gray:    the level trunc(Y'), clamped to 0..255, stored through the gray map
//   16/24/32:  Cr and Cb of the pixel's own colour, each the three YCC table entries added in double
//              and stored as a float; then in double with float constants
//              blue = Y' + 1.772 Cb, green = Y' - 0.34414 Cb - 0.71414 Cr, red = Y' + 1.402 Cr,
//              each truncated and clamped. Even at strength 0 a colour is rebuilt from its integer
//              luma, so it may move by a level or two.
// The lumas come from LumaCache (the level itself at 8 bits): each is computed once, and the cache
// covers the whole image because windows reach out of the box and the mask.
#include <algorithm>
#include <bit>

#include "filter/luma_cache.h"
#include "filter/sharp_span.h"

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#endif

namespace tz3 {
namespace {

constexpr float kSharpCrToRed = std::bit_cast<float>(0x3FB374BCu);    // 1.402
constexpr float kSharpCrToGreen = std::bit_cast<float>(0x3F36D1E1u);  // 0.71414
constexpr float kSharpCbToGreen = std::bit_cast<float>(0x3EB0331Eu);  // 0.34414
constexpr float kSharpCbToBlue = std::bit_cast<float>(0x3FE2D0E5u);   // 1.772

// trunc(v) clamped to 0..255 for the finite values of this filter (|v| stays far below 2^31): the
// cut to -1..256 first keeps the conversion in range and lets the loop run as vector code.
inline uint8_t TruncClamp255Fast(double v) {
    const double cut = std::min(std::max(v, -1.0), 256.0);
    const auto t = static_cast<int32_t>(cut);
    return static_cast<uint8_t>(std::min(std::max(t, 0), 255));
}

}  // namespace

// The colour step for n pixels of channel values r, g, b and new lumas y: Cr and Cb of the pixel's
// own colour (table entries added in double, stored as floats), then back to blue, green, red in
// double with the float constants, truncated and clamped.
[[gnu::always_inline]] inline void SharpColourBody(const float *const *t, const int32_t *r, const int32_t *g,
                                                   const int32_t *b, const float *y, int32_t n, uint8_t *blue,
                                                   uint8_t *green, uint8_t *red) {
    for (int32_t i = 0; i < n; ++i) {
        const auto cr = static_cast<float>(static_cast<double>(t[kTableCrRed][r[i]]) +
                                           static_cast<double>(t[kTableCrGreen][g[i]]) +
                                           static_cast<double>(t[kTableCrBlue][b[i]]));
        const auto cb = static_cast<float>(static_cast<double>(t[kTableCbRed][r[i]]) +
                                           static_cast<double>(t[kTableCbGreen][g[i]]) +
                                           static_cast<double>(t[kTableCbBlue][b[i]]));
        const double yd = y[i], crd = cr, cbd = cb;
        blue[i] = TruncClamp255Fast(yd + cbd * static_cast<double>(kSharpCbToBlue));
        green[i] = TruncClamp255Fast(yd - cbd * static_cast<double>(kSharpCbToGreen) -
                                     crd * static_cast<double>(kSharpCrToGreen));
        red[i] = TruncClamp255Fast(yd + crd * static_cast<double>(kSharpCrToRed));
    }
}

void SharpColourSpan(const float *const *t, const int32_t *r, const int32_t *g, const int32_t *b, const float *y,
                     int32_t n, uint8_t *blue, uint8_t *green, uint8_t *red) {
    SharpColourBody(t, r, g, b, y, n, blue, green, red);
}

#if defined(__x86_64__) || defined(__i386__)
// Eight pixels at a time: table entries by gathers, each sum and product in four double lanes in
// the same order as the plain loop, so every rounding is the same.
namespace {

[[gnu::target("avx2")]] __m256 SumToFloat(__m256 a, __m256 b, __m256 c) {
    const __m256d low = _mm256_add_pd(_mm256_add_pd(_mm256_cvtps_pd(_mm256_castps256_ps128(a)),
                                                    _mm256_cvtps_pd(_mm256_castps256_ps128(b))),
                                      _mm256_cvtps_pd(_mm256_castps256_ps128(c)));
    const __m256d high = _mm256_add_pd(_mm256_add_pd(_mm256_cvtps_pd(_mm256_extractf128_ps(a, 1)),
                                                     _mm256_cvtps_pd(_mm256_extractf128_ps(b, 1))),
                                       _mm256_cvtps_pd(_mm256_extractf128_ps(c, 1)));
    return _mm256_set_m128(_mm256_cvtpd_ps(high), _mm256_cvtpd_ps(low));
}

// trunc, clamped to 0..255, of two groups of four doubles, as eight bytes.
[[gnu::target("avx2")]] void StoreTruncClamped(__m256d low, __m256d high, uint8_t *out) {
    const __m256d lowest = _mm256_set1_pd(-1.0), highest = _mm256_set1_pd(256.0);
    const __m128i a = _mm256_cvttpd_epi32(_mm256_min_pd(_mm256_max_pd(low, lowest), highest));
    const __m128i b = _mm256_cvttpd_epi32(_mm256_min_pd(_mm256_max_pd(high, lowest), highest));
    // The saturating packs clamp -1 to 0 and 256 to 255.
    const __m128i bytes = _mm_packus_epi16(_mm_packs_epi32(a, b), _mm_setzero_si128());
    _mm_storel_epi64(reinterpret_cast<__m128i *>(out), bytes);
}

}  // namespace

[[gnu::target("avx2")]] void SharpColourSpanAvx2(const float *const *t, const int32_t *r, const int32_t *g,
                                                 const int32_t *b, const float *y, int32_t n, uint8_t *blue,
                                                 uint8_t *green, uint8_t *red) {
    const __m256d toBlue = _mm256_set1_pd(static_cast<double>(kSharpCbToBlue));
    const __m256d cbToGreen = _mm256_set1_pd(static_cast<double>(kSharpCbToGreen));
    const __m256d crToGreen = _mm256_set1_pd(static_cast<double>(kSharpCrToGreen));
    const __m256d toRed = _mm256_set1_pd(static_cast<double>(kSharpCrToRed));
    int32_t i = 0;
    for (; i + 8 <= n; i += 8) {
        const __m256i ri = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(r + i));
        const __m256i gi = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(g + i));
        const __m256i bi = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(b + i));
        const __m256 cr = SumToFloat(_mm256_i32gather_ps(t[kTableCrRed], ri, 4),
                                     _mm256_i32gather_ps(t[kTableCrGreen], gi, 4),
                                     _mm256_i32gather_ps(t[kTableCrBlue], bi, 4));
        const __m256 cb = SumToFloat(_mm256_i32gather_ps(t[kTableCbRed], ri, 4),
                                     _mm256_i32gather_ps(t[kTableCbGreen], gi, 4),
                                     _mm256_i32gather_ps(t[kTableCbBlue], bi, 4));
        const __m256 yv = _mm256_loadu_ps(y + i);
        __m256d ys[2], crs[2], cbs[2];
        ys[0] = _mm256_cvtps_pd(_mm256_castps256_ps128(yv));
        ys[1] = _mm256_cvtps_pd(_mm256_extractf128_ps(yv, 1));
        crs[0] = _mm256_cvtps_pd(_mm256_castps256_ps128(cr));
        crs[1] = _mm256_cvtps_pd(_mm256_extractf128_ps(cr, 1));
        cbs[0] = _mm256_cvtps_pd(_mm256_castps256_ps128(cb));
        cbs[1] = _mm256_cvtps_pd(_mm256_extractf128_ps(cb, 1));
        __m256d bl[2], gr[2], rd[2];
        for (int h = 0; h < 2; ++h) {
            bl[h] = _mm256_add_pd(ys[h], _mm256_mul_pd(cbs[h], toBlue));
            gr[h] = _mm256_sub_pd(_mm256_sub_pd(ys[h], _mm256_mul_pd(cbs[h], cbToGreen)),
                                  _mm256_mul_pd(crs[h], crToGreen));
            rd[h] = _mm256_add_pd(ys[h], _mm256_mul_pd(crs[h], toRed));
        }
        StoreTruncClamped(bl[0], bl[1], blue + i);
        StoreTruncClamped(gr[0], gr[1], green + i);
        StoreTruncClamped(rd[0], rd[1], red + i);
    }
    SharpColourBody(t, r + i, g + i, b + i, y + i, n - i, blue + i, green + i, red + i);
}
#else
void SharpColourSpanAvx2(const float *const *t, const int32_t *r, const int32_t *g, const int32_t *b, const float *y,
                         int32_t n, uint8_t *blue, uint8_t *green, uint8_t *red) {
    SharpColourBody(t, r, g, b, y, n, blue, green, red);
}
#endif

namespace {

struct SharpOp {
    static constexpr uint8_t kFormats = kFormatFilters;
    int32_t strengthArg = 0;
    float gain = 0.0f;
    YccTables tables;
    LumaCache cache;
    OwnedBlock scratch;
    int32_t *columnSums = nullptr;  // luma sums of columns x0 - 1 .. x1 + 1 over the window's rows
    float *yValues = nullptr;
    bool avx2 = false;
    uint8_t *values = nullptr;
    uint8_t *planes = nullptr;  // blue, green and red of the box row, one plane each

    // Low byte; above 100 acts as 100.
    bool Normalise() {
        auto strength = static_cast<uint8_t>(strengthArg);
        if (strength > 100) strength = 100;
        gain = static_cast<float>(static_cast<double>(static_cast<float>(strength)) * 3.0 / 100.0);
        return true;
    }

    template <class Pix>
    bool Prepare(const FilterImage<Pix> &img) {
        if constexpr (!kIsGray<Pix>) {
            if (!BuildYccTables(tables)) return false;
            if (!cache.Make(img.width, img.height, tables.t)) return false;
        }
        const uint64_t count = static_cast<uint64_t>(static_cast<int64_t>(img.box.x1) - img.box.x0 + 1);
        // Column sums (count + 2), then Y' of the box row, its channel values and three planes.
        if (AllocScratch<uint8_t>(scratch, 4 * (count + 2) + 4 * count + 6 * count) == nullptr) return false;
        columnSums = reinterpret_cast<int32_t *>(scratch.bytes());
        yValues = reinterpret_cast<float *>(columnSums + count + 2);
        values = reinterpret_cast<uint8_t *>(yValues + count);
        avx2 = ProcessorHasAvx2();
        planes = values + 3 * count;
        return true;
    }

    // Computes the whole box row in three passes (window sums, the new luma with the pixel's own
    // chroma, the way back to colour), so that the arithmetic runs over plain arrays, then stores
    // the selected pixels.
    template <class Pix>
    void Row(const FilterImage<Pix> &img, int32_t y) {
        const int32_t x0 = img.box.x0;
        const int32_t count = img.box.x1 - x0 + 1;
        // The window's rows and columns, cut to the image.
        const int32_t yLow = y > 0 ? y - 1 : 0;
        const int32_t yHigh = y < img.height - 1 ? y + 1 : y;
        const int32_t xLow = x0 > 0 ? x0 - 1 : 0;
        const int32_t xHigh = img.box.x1 < img.width - 1 ? img.box.x1 + 1 : img.box.x1;
        // The sum of column x lies at columnSums[x - x0 + 1].
        int32_t *sums = columnSums + (xLow - x0 + 1);
        const int32_t columnCount = xHigh - xLow + 1;
        for (int32_t i = 0; i < columnCount; ++i) sums[i] = 0;
        const uint16_t *centre = nullptr;
        const uint8_t *src = img.SrcRow(y);
        for (int32_t sy = yLow; sy <= yHigh; ++sy) {
            if constexpr (kIsGray<Pix>) {
                const uint8_t *s = img.SrcRow(sy) + xLow;
                for (int32_t i = 0; i < columnCount; ++i) sums[i] += img.toLevel[s[i]];
            } else {
                const uint16_t *l = cache.Row(img, sy);
                for (int32_t i = 0; i < columnCount; ++i) sums[i] += l[xLow + i];
                if (sy == y) centre = l;
            }
        }
        const int32_t rows = yHigh - yLow + 1;
        const int32_t *sumOf = columnSums + 1;  // sumOf[i] for the column x0 + i, i from -1
        // Y' = float(d) x k rounded to float, + float(Lc) rounded to float again.
        for (int32_t i = 0; i < count; ++i) {
            const int32_t x = x0 + i;
            int32_t sum = sumOf[i];
            int32_t columns = 1;
            if (x > 0) {
                sum += sumOf[i - 1];
                ++columns;
            }
            if (x < img.width - 1) {
                sum += sumOf[i + 1];
                ++columns;
            }
            int32_t lc;
            if constexpr (kIsGray<Pix>) {
                lc = img.toLevel[src[x]];
            } else {
                lc = centre[x];
            }
            const int32_t d = lc * (rows * columns) - sum;
            const float scaled = static_cast<float>(d) * gain;
            yValues[i] = scaled + static_cast<float>(lc);
        }
        if constexpr (kIsGray<Pix>) {
            for (int32_t i = 0; i < count; ++i) values[i] = TruncClamp255(static_cast<double>(yValues[i]));
        } else {
            // The pixel's own channels, a chunk at a time, then the colour step over the chunk.
            uint8_t *blue = planes, *green = planes + count, *red = planes + 2 * static_cast<size_t>(count);
            constexpr int32_t kChunk = 64;
            int32_t r[kChunk], g[kChunk], b[kChunk];
            const uint8_t *p = src + static_cast<size_t>(x0) * Pix::kBytes;
            for (int32_t i0 = 0; i0 < count; i0 += kChunk) {
                const int32_t m = std::min(kChunk, count - i0);
                for (int32_t j = 0; j < m; ++j, p += Pix::kBytes) {
                    const Rgb c = Pix::Fetch(p);
                    r[j] = c.r;
                    g[j] = c.g;
                    b[j] = c.b;
                }
                if (avx2) {
                    SharpColourSpanAvx2(tables.t, r, g, b, yValues + i0, m, blue + i0, green + i0, red + i0);
                } else {
                    SharpColourSpan(tables.t, r, g, b, yValues + i0, m, blue + i0, green + i0, red + i0);
                }
            }
            for (int32_t i = 0; i < count; ++i) {
                values[3 * i] = blue[i];
                values[3 * i + 1] = green[i];
                values[3 * i + 2] = red[i];
            }
        }
        StoreSelected(img, y, values);
    }
};

}  // namespace
}  // namespace tz3

extern "C" TZ3_API DibHandle TZ3Sharp(const DibPair *pair, int32_t kind, const Tz3Point *points, int32_t count,
                                      const Tz3Rect *rect, int32_t inside, int32_t strength, int32_t noDialog,
                                      intptr_t dialog1, intptr_t dialog2, intptr_t dialog3) {
    using namespace tz3;
    return RunExport<DibHandle>(noDialog, dialog1, dialog2, dialog3, [&] {
        const RegionArgs args = UnpackRegion(pair, kind, points, count, rect, inside);
        SharpOp op;
        op.strengthArg = strength;
        return FilterDispatcher(args, op, noDialog);
    });
}
