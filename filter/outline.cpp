// TZ3Outline: each selected pixel becomes the strength of the gradient of one channel, a gray
// value: trunc(sqrt(gx^2 + gy^2) x gain) clamped to 0..255, where gx and gy are the sums of a pair
// of fixed 3 x 3 kernels over the clamped neighbourhood (the edge pixel repeats).
//
//   operator (low byte)   kernel A (rows top to bottom)     kernel B
//   0 neighbour diff.     0 0 0 / 0 1 -1 / 0 0 0            0 0 0 / 0 1 0 / 0 -1 0
//   2 Sobel               -1 0 1 / -2 0 2 / -1 0 1          -1 -2 -1 / 0 0 0 / 1 2 1
//   other: Roberts cross  0 0 0 / 0 1 0 / 0 0 -1            0 0 0 / 0 0 1 / 0 -1 0
//
// Kernel row 0 is the row above the pixel as the picture is seen, which is the next row up in the
// bottom-up rows. The gain is the float of 0..100, a plain factor: gain 1 is the unscaled gradient.
//
//   format   value                                        stored
//   8 gray   the level (the channel is not looked at)     the index that holds the result level
//   16       channel 0 luma of the expanded channels,     the result packed into all three fields
//            1, 2, 3 the expanded red, green, blue
//   24/32    channel 0 luma, 1, 2, 3 red, green, blue     the result in all three bytes; the fourth stays
//
// Luma is trunc(t0[R] + t1[G] + t2[B]) over the float luma tables, added in double. The values of
// three source rows are kept, each row's computed once as the walk moves up, so each pixel's luma is
// computed once however many windows hold it. A channel above 3 computes no gradient at all: each
// selected pixel takes the last stored result, which starts at 0, so it is black.
#include <algorithm>

#include "filter/filter_skeleton.h"
#include "frame/maths.h"

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#endif

namespace tz3 {
namespace {

struct Tap {
    int32_t dx, row;  // row 0 is y + 1, row 2 is y - 1
    int32_t a, b;
};

constexpr int32_t kKernels[3][2][9] = {
    {{0, 0, 0, 0, 1, -1, 0, 0, 0}, {0, 0, 0, 0, 1, 0, 0, -1, 0}},
    {{-1, 0, 1, -2, 0, 2, -1, 0, 1}, {-1, -2, -1, 0, 0, 0, 1, 2, 1}},
    {{0, 0, 0, 0, 1, 0, 0, 0, -1}, {0, 0, 0, 0, 0, 1, 0, -1, 0}},
};

// Luma of one pixel: the sum of three table entries, each in [0, 255 x weight), is below 255, so
// the conversion truncates without any range to guard.
inline uint8_t PixelLuma(const LumaTables &t, uint8_t r, uint8_t g, uint8_t b) {
    const double sum =
        static_cast<double>(t.t[0][r]) + static_cast<double>(t.t[1][g]) + static_cast<double>(t.t[2][b]);
    return static_cast<uint8_t>(static_cast<int32_t>(sum));
}

// The results of n pixels from their gradient sums: trunc(sqrt(gx^2 + gy^2) x gain) clamped to
// 0..255, in a plain loop and an AVX2 one. The square sum is exact in int32 and in double, sqrt is
// correctly rounded in both, and the product lies in 0 .. 145000, where the vector truncation and
// a clamp at 255 give TruncClamp255's byte: each result is the same.
void GradientResultsPlain(const int32_t *gx, const int32_t *gy, int32_t n, double gain, uint8_t *out) {
    for (int32_t i = 0; i < n; ++i) {
        const int32_t q = gx[i] * gx[i] + gy[i] * gy[i];
        out[i] = TruncClamp255(Sqrt(static_cast<double>(q)) * gain);
    }
}

#if defined(__x86_64__) || defined(__i386__)
[[gnu::target("avx2")]] void GradientResultsAvx2(const int32_t *gx, const int32_t *gy, int32_t n, double gain,
                                                 uint8_t *out) {
    const __m256d g = _mm256_set1_pd(gain);
    const __m128i top = _mm_set1_epi32(255);
    int32_t i = 0;
    for (; i + 4 <= n; i += 4) {
        const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i *>(gx + i));
        const __m128i y = _mm_loadu_si128(reinterpret_cast<const __m128i *>(gy + i));
        const __m128i q = _mm_add_epi32(_mm_mullo_epi32(x, x), _mm_mullo_epi32(y, y));
        const __m256d v = _mm256_mul_pd(_mm256_sqrt_pd(_mm256_cvtepi32_pd(q)), g);
        const __m128i t = _mm_min_epi32(_mm256_cvttpd_epi32(v), top);
        const __m128i bytes = _mm_packus_epi16(_mm_packs_epi32(t, t), _mm_setzero_si128());
        const int32_t four = _mm_cvtsi128_si32(bytes);
        std::memcpy(out + i, &four, 4);
    }
    GradientResultsPlain(gx + i, gy + i, n - i, gain, out + i);
}
#else
void GradientResultsAvx2(const int32_t *gx, const int32_t *gy, int32_t n, double gain, uint8_t *out) {
    GradientResultsPlain(gx, gy, n, gain, out);
}
#endif

struct OutlineOp {
    static constexpr uint8_t kFormats = kFormatFilters;
    OutlineOp(int32_t channelValue, int32_t operatorValue, int32_t gainValue)
        : channelArg(channelValue), operatorArg(operatorValue), gainArg(gainValue) {}
    int32_t channelArg, operatorArg, gainArg;
    uint8_t channel = 0;
    float gain = 0;
    Tap taps[9] = {};
    int32_t tapCount = 0;
    uint8_t lastResult = 0;

    LumaTables luma;
    OwnedBlock scratchBlock;
    int32_t span = 0;             // box width + 2: columns x0 - 1 .. x1 + 1
    uint8_t *channels = nullptr;  // span x channels, one source row
    uint8_t *values = nullptr;    // 3 rows of span values
    int32_t valueRow[3] = {-1, -1, -1};
    uint8_t *results = nullptr;  // box width x channels
    int32_t *sumA = nullptr;     // box width: the sums of kernel A, then of kernel B
    int32_t *sumB = nullptr;
    uint8_t *gradient = nullptr;  // box width: each pixel's result
    bool avx2 = false;

    bool Normalise() {
        const auto op = static_cast<uint8_t>(operatorArg);
        const int32_t which = op == 0 ? 0 : op == 2 ? 1 : 2;
        tapCount = 0;
        for (int32_t i = 0; i < 9; ++i) {
            const int32_t a = kKernels[which][0][i];
            const int32_t b = kKernels[which][1][i];
            if (a == 0 && b == 0) continue;
            taps[tapCount++] = Tap{i % 3 - 1, i / 3, a, b};
        }
        const int32_t g = std::min<int32_t>(static_cast<uint8_t>(gainArg), 100);
        gain = static_cast<float>(g);
        channel = static_cast<uint8_t>(channelArg);
        return true;
    }

    template <class Pix>
    bool Prepare(const FilterImage<Pix> &img) {
        constexpr uint64_t C = kChannels<Pix>;
        // The luma tables are made at 16, 24 and 32 bits whatever the channel.
        if constexpr (!kIsGray<Pix>) {
            if (!BuildLumaTables(luma)) return false;
        }
        span = img.box.x1 - img.box.x0 + 3;
        const auto s = static_cast<uint64_t>(span);
        const auto w = static_cast<uint64_t>(img.box.x1 - img.box.x0 + 1);
        // The sums first, so that they sit on the block's own alignment.
        uint8_t *scratch = AllocScratch<uint8_t>(scratchBlock, 8 * w + w + C * s + 3 * s + C * s);
        if (scratch == nullptr) return false;
        sumA = reinterpret_cast<int32_t *>(scratch);
        sumB = sumA + w;
        gradient = scratch + 8 * w;
        scratch = gradient + w;
        avx2 = ProcessorHasAvx2();
        channels = scratch;
        values = channels + C * s;
        results = values + 3 * s;
        return true;
    }

    // The values of source row y over columns x0 - 1 .. x1 + 1, each column clamped into the image.
    template <class Pix>
    const uint8_t *Values(const FilterImage<Pix> &img, int32_t y) {
        constexpr int32_t C = kChannels<Pix>;
        const int32_t slot = y % 3;
        uint8_t *out = values + static_cast<size_t>(slot) * span;
        if (valueRow[slot] == y) return out;
        valueRow[slot] = y;
        img.FetchRowClamped(y, img.box.x0 - 1, span, channels);
        if constexpr (kIsGray<Pix>) {
            std::copy(channels, channels + span, out);
        } else if (channel == 0) {
            for (int32_t i = 0; i < span; ++i) {
                const uint8_t *c = channels + static_cast<size_t>(i) * C;
                out[i] = PixelLuma(luma, c[2], c[1], c[0]);
            }
        } else {
            // Channel values are stored blue, green, red: red is 2, blue is 0.
            const int32_t k = 3 - channel;
            for (int32_t i = 0; i < span; ++i) out[i] = channels[static_cast<size_t>(i) * C + k];
        }
        return out;
    }

    template <class Pix>
    void Row(const FilterImage<Pix> &img, int32_t y) {
        constexpr int32_t C = kChannels<Pix>;
        const int32_t count = img.box.x1 - img.box.x0 + 1;
        if (!kIsGray<Pix> && channel > 3) {
            std::fill(results, results + static_cast<size_t>(count) * C, lastResult);
            StoreSelected(img, y, results);
            return;
        }
        const uint8_t *rows[3] = {Values(img, img.ClampY(y + 1)), Values(img, img.ClampY(y)),
                                  Values(img, img.ClampY(y - 1))};
        const double g = static_cast<double>(gain);
        // The sums a tap at a time over the whole row, so that the row's pixels run side by side;
        // integer sums do not depend on the order of their terms. Column i + 1 of a value row is
        // pixel x0 + i.
        int32_t *__restrict gx = sumA;
        int32_t *__restrict gy = sumB;
        std::fill(gx, gx + count, 0);
        std::fill(gy, gy + count, 0);
        for (int32_t t = 0; t < tapCount; ++t) {
            const uint8_t *__restrict v = rows[taps[t].row] + 1 + taps[t].dx;
            const int32_t a = taps[t].a, b = taps[t].b;
            for (int32_t i = 0; i < count; ++i) {
                gx[i] += a * v[i];
                gy[i] += b * v[i];
            }
        }
        if (avx2) {
            GradientResultsAvx2(gx, gy, count, g, gradient);
        } else {
            GradientResultsPlain(gx, gy, count, g, gradient);
        }
        if constexpr (C == 1) {
            StoreSelected(img, y, gradient);
        } else {
            uint8_t *__restrict out = results;
            const uint8_t *__restrict in = gradient;
            for (int32_t i = 0; i < count; ++i) {
                for (int32_t k = 0; k < C; ++k) out[static_cast<size_t>(i) * C + k] = in[i];
            }
            StoreSelected(img, y, results);
        }
    }
};

}  // namespace
}  // namespace tz3

extern "C" TZ3_API DibHandle TZ3Outline(const DibPair *pair, int32_t kind, const Tz3Point *points,
                                        int32_t count, const Tz3Rect *rect, int32_t inside, int32_t channel,
                                        int32_t op, int32_t gain, int32_t noDialog, intptr_t dialog1,
                                        intptr_t dialog2, intptr_t dialog3) {
    using namespace tz3;
    return RunExport<DibHandle>(noDialog, dialog1, dialog2, dialog3, [&] {
        OutlineOp outline{channel, op, gain};
        return FilterDispatcher(UnpackRegion(pair, kind, points, count, rect, inside), outline, noDialog);
    });
}
