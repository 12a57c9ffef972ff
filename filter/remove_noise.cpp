// TZ3RemoveNoise: a 3 x 3 median filter with two methods, over the window cut to the image (9
// pixels inside it, 6 along an edge, 4 in a corner), walked from the lowest row up and left to
// right in each row.
//
// Method 0, the plain median, takes the entry at position n / 2 of the sorted window, the pixel
// itself included.
//   8 gray   the levels sorted; the median level is written as the stored byte itself, not through
//            the index that holds it. On a ramp in order the two agree; on any other gray table the
//            index written is the level's number. The selective method stores through the table:
//            the two methods differ here on purpose and stay so.
//   16/24/32 a vector median by luma: the window's pixels sorted by luma with a stable sort, so
//            among equal lumas the walking order stays, and the pixel at position n / 2 copied
//            whole (the word at 16 bits, no conversion; three bytes at 24 and 32, the fourth stays).
//            A pixel always takes its colour from one pixel of its window.
// Method 1, the selective median, leaves the pixel out and takes each channel by itself: the
// channel is flagged when a neighbour differs from it by more than t = 255 - level, and a flagged
// channel takes the entry at position n / 2 of its sorted neighbours (4 of 8, 2 of 5, 1 of 3).
//   8 gray   stored through the table, only when flagged
//   16       when any channel is flagged all three are packed, the others with the pixel's own
//            expanded value; when none is the word stays exactly as it was
//   24/32    only the flagged bytes change
// Any other method byte returns the plain copy with no progress calls.
//
// Inside the image every window is whole, and a row of such pixels runs through fixed comparator
// networks (filter/small_median.h) in vector registers. A stable sort by luma orders the pixels as
// the key (luma, walking position) does, and those keys are distinct, so the median of the keys
// names the pixel the sort puts at position 4. Pixels on the image's edge take the plain sorts.
// Each source row's lumas are computed once, when the row first enters the window, and serve the
// three rows of windows that contain it. Where the processor has AVX2 the row loops (lumas, median
// places, selective channels) run in its wider lanes with the same arithmetic, lane by lane, so
// the results do not depend on the processor.
#include <algorithm>
#include <bit>

#include "filter/filter_skeleton.h"
#include "filter/small_median.h"

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#endif

namespace tz3 {
namespace {

constexpr uint8_t kMethodMedian = 0;
constexpr uint8_t kMethodSelective = 1;

// Ascending, swapping only on strictly greater: equal keys keep their order.
template <class T, class Key>
void BubbleSort(T *v, int32_t n, Key key) {
    for (int32_t i = 0; i < n - 1; ++i) {
        for (int32_t j = 0; j < n - 1 - i; ++j) {
            if (key(v[j]) > key(v[j + 1])) std::swap(v[j], v[j + 1]);
        }
    }
}

// Luma of one pixel: three table entries added in double; the sum is below 255 and truncates
// without any range to guard.
inline uint8_t PixelLuma(const LumaTables &t, const uint8_t *bgr) {
    const double sum = static_cast<double>(t.t[0][bgr[2]]) + static_cast<double>(t.t[1][bgr[1]]) +
                       static_cast<double>(t.t[2][bgr[0]]);
    return static_cast<uint8_t>(static_cast<int32_t>(sum));
}

// The lumas of n pixels of blue, green, red bytes; a plain loop, and an AVX2 one. The luma tables
// hold YccEntry(i, weight), the float product of i and the channel's weight, so the AVX2 loop makes
// each entry by the same single-precision multiply in a vector lane instead of fetching it, then
// adds the three in double lanes in the same order (red, green, blue): each luma is the one
// PixelLuma gives.
void RowLumasPlain(const LumaTables &t, const uint8_t *bgr, int32_t n, uint8_t *out) {
    for (int32_t i = 0; i < n; ++i) out[i] = PixelLuma(t, bgr + static_cast<size_t>(i) * 3);
}

#if defined(__x86_64__) || defined(__i386__)

// trunc of the double sums of four lanes; every sum lies in 0..255, so the conversion is exact.
[[gnu::target("avx2")]] inline __m128i LumaOfFourLanes(__m128 red, __m128 green, __m128 blue) {
    const __m256d sum =
        _mm256_add_pd(_mm256_add_pd(_mm256_cvtps_pd(red), _mm256_cvtps_pd(green)), _mm256_cvtps_pd(blue));
    return _mm256_cvttpd_epi32(sum);
}

// Eight table entries: the low eight bytes as floats times the weight, in single precision.
[[gnu::target("avx2")]] inline __m256 TableEntries(__m128i bytes, __m256 weight) {
    return _mm256_mul_ps(_mm256_cvtepi32_ps(_mm256_cvtepu8_epi32(bytes)), weight);
}

[[gnu::target("avx2")]] void RowLumasAvx2(const LumaTables &t, const uint8_t *bgr, int32_t n, uint8_t *out) {
    // Four pixels' twelve bytes into blue 0..3, green 0..3, red 0..3.
    const __m128i spread = _mm_setr_epi8(0, 3, 6, 9, 1, 4, 7, 10, 2, 5, 8, 11, -1, -1, -1, -1);
    const __m256 redWeight = _mm256_set1_ps(kYccWeights[0]);
    const __m256 greenWeight = _mm256_set1_ps(kYccWeights[1]);
    const __m256 blueWeight = _mm256_set1_ps(kYccWeights[2]);
    int32_t i = 0;
    // Each group reads 28 bytes from its first pixel: it runs while they lie among the n pixels.
    for (; (i + 8) * 3 + 4 <= n * 3; i += 8) {
        const uint8_t *s = bgr + static_cast<size_t>(i) * 3;
        const __m128i a = _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i *>(s)), spread);
        const __m128i b = _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i *>(s + 12)), spread);
        const __m128i blueGreen = _mm_unpacklo_epi32(a, b);  // blue 0..7, green 0..7
        const __m128i red = _mm_unpackhi_epi32(a, b);        // red 0..7, then nothing used
        const __m256 rt = TableEntries(red, redWeight);
        const __m256 gt = TableEntries(_mm_srli_si128(blueGreen, 8), greenWeight);
        const __m256 bt = TableEntries(blueGreen, blueWeight);
        const __m128i low = LumaOfFourLanes(_mm256_castps256_ps128(rt), _mm256_castps256_ps128(gt),
                                            _mm256_castps256_ps128(bt));
        const __m128i high = LumaOfFourLanes(_mm256_extractf128_ps(rt, 1), _mm256_extractf128_ps(gt, 1),
                                             _mm256_extractf128_ps(bt, 1));
        const __m128i words = _mm_packs_epi32(low, high);
        _mm_storel_epi64(reinterpret_cast<__m128i *>(out + i), _mm_packus_epi16(words, words));
    }
    RowLumasPlain(t, bgr + static_cast<size_t>(i) * 3, n - i, out + i);
}

// n pixels of blue, green, red bytes into three planes of n bytes, blue first: eight pixels at a
// time by byte shuffles, the rest one by one.
[[gnu::target("avx2")]] void SplitPlanesAvx2(const uint8_t *bgr, int32_t n, uint8_t *planes) {
    const __m128i spread = _mm_setr_epi8(0, 3, 6, 9, 1, 4, 7, 10, 2, 5, 8, 11, -1, -1, -1, -1);
    uint8_t *blue = planes;
    uint8_t *green = planes + n;
    uint8_t *red = planes + 2 * static_cast<size_t>(n);
    int32_t i = 0;
    // Each group reads 28 bytes from its first pixel: it runs while they lie among the n pixels.
    for (; (i + 8) * 3 + 4 <= n * 3; i += 8) {
        const uint8_t *s = bgr + static_cast<size_t>(i) * 3;
        const __m128i a = _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i *>(s)), spread);
        const __m128i b = _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i *>(s + 12)), spread);
        const __m128i blueGreen = _mm_unpacklo_epi32(a, b);
        _mm_storel_epi64(reinterpret_cast<__m128i *>(blue + i), blueGreen);
        _mm_storel_epi64(reinterpret_cast<__m128i *>(green + i), _mm_srli_si128(blueGreen, 8));
        _mm_storel_epi64(reinterpret_cast<__m128i *>(red + i), _mm_unpackhi_epi32(a, b));
    }
    for (; i < n; ++i) {
        blue[i] = bgr[3 * static_cast<size_t>(i)];
        green[i] = bgr[3 * static_cast<size_t>(i) + 1];
        red[i] = bgr[3 * static_cast<size_t>(i) + 2];
    }
}

#else

void SplitPlanesAvx2(const uint8_t *bgr, int32_t n, uint8_t *planes) {
    for (int32_t i = 0; i < n; ++i) {
        for (int32_t k = 0; k < 3; ++k) planes[static_cast<size_t>(k) * n + i] = bgr[3 * static_cast<size_t>(i) + k];
    }
}

void RowLumasAvx2(const LumaTables &t, const uint8_t *bgr, int32_t n, uint8_t *out) {
    RowLumasPlain(t, bgr, n, out);
}

#endif

// Method 0 at 16, 24 and 32 bits over a run of whole windows: the walking position (0..8) of each
// window's median pixel into out, from the lumas of the three rows. The key is luma x 16 +
// position: distinct keys in the order of the stable sort. The loop writes through a local pointer
// that nothing else reaches, so that the compiler runs a row's pixels side by side; the AVX2 copy
// is the same loop in wider lanes.
[[gnu::always_inline]] inline void MedianPlacesSpan(const uint8_t *__restrict lo, const uint8_t *__restrict mid,
                                                    const uint8_t *__restrict up, int32_t from, int32_t to,
                                                    uint8_t *__restrict out) {
    for (int32_t i = from; i <= to; ++i) {
        const auto key = [](uint8_t l, int16_t place) { return static_cast<int16_t>((l << 4) | place); };
        const int16_t m = MedianOfNine(key(lo[i], 0), key(lo[i + 1], 1), key(lo[i + 2], 2), key(mid[i], 3),
                                       key(mid[i + 1], 4), key(mid[i + 2], 5), key(up[i], 6), key(up[i + 1], 7),
                                       key(up[i + 2], 8));
        out[i] = static_cast<uint8_t>(m & 15);
    }
}

void MedianPlacesPlain(const uint8_t *lo, const uint8_t *mid, const uint8_t *up, int32_t from, int32_t to,
                       uint8_t *out) {
    MedianPlacesSpan(lo, mid, up, from, to, out);
}

#if defined(__x86_64__) || defined(__i386__)
[[gnu::target("avx2")]] void MedianPlacesAvx2(const uint8_t *lo, const uint8_t *mid, const uint8_t *up,
                                              int32_t from, int32_t to, uint8_t *out) {
    MedianPlacesSpan(lo, mid, up, from, to, out);
}
#else
void MedianPlacesAvx2(const uint8_t *lo, const uint8_t *mid, const uint8_t *up, int32_t from, int32_t to,
                      uint8_t *out) {
    MedianPlacesSpan(lo, mid, up, from, to, out);
}
#endif

// Method 1 over a run of whole windows of one channel plane: the new value (or the pixel's own)
// into out, and `bit` into flag where the channel is flagged. A neighbour differs by more than t
// exactly when the largest lies more than t above the pixel or the smallest more than t below it;
// the differences are taken from max(hi, own) and min(lo, own) so that they never wrap.
[[gnu::always_inline]] inline void SelectivePlaneSpan(const uint8_t *__restrict a, const uint8_t *__restrict b,
                                                      const uint8_t *__restrict c, int32_t from, int32_t to,
                                                      uint8_t t, uint8_t bit, uint8_t *__restrict out,
                                                      uint8_t *__restrict flag) {
    for (int32_t i = from; i <= to; ++i) {
        const uint8_t own = b[i + 1];
        const uint8_t n0 = a[i], n1 = a[i + 1], n2 = a[i + 2], n3 = b[i], n4 = b[i + 2], n5 = c[i], n6 = c[i + 1],
                      n7 = c[i + 2];
        const uint8_t hi = std::max(std::max(std::max(n0, n1), std::max(n2, n3)),
                                    std::max(std::max(n4, n5), std::max(n6, n7)));
        const uint8_t lw = std::min(std::min(std::min(n0, n1), std::min(n2, n3)),
                                    std::min(std::min(n4, n5), std::min(n6, n7)));
        const auto above = static_cast<uint8_t>(std::max(hi, own) - own);
        const auto below = static_cast<uint8_t>(own - std::min(lw, own));
        const uint8_t mask = std::max(above, below) > t ? 0xFF : 0x00;
        const uint8_t med = FifthOfEight(n0, n1, n2, n3, n4, n5, n6, n7);
        out[i] = static_cast<uint8_t>((med & mask) | (own & ~mask));
        flag[i] = static_cast<uint8_t>(flag[i] | (bit & mask));
    }
}

void SelectivePlanePlain(const uint8_t *a, const uint8_t *b, const uint8_t *c, int32_t from, int32_t to, uint8_t t,
                         uint8_t bit, uint8_t *out, uint8_t *flag) {
    SelectivePlaneSpan(a, b, c, from, to, t, bit, out, flag);
}

#if defined(__x86_64__) || defined(__i386__)
[[gnu::target("avx2")]] void SelectivePlaneAvx2(const uint8_t *a, const uint8_t *b, const uint8_t *c, int32_t from,
                                                int32_t to, uint8_t t, uint8_t bit, uint8_t *out, uint8_t *flag) {
    SelectivePlaneSpan(a, b, c, from, to, t, bit, out, flag);
}
#else
void SelectivePlaneAvx2(const uint8_t *a, const uint8_t *b, const uint8_t *c, int32_t from, int32_t to, uint8_t t,
                        uint8_t bit, uint8_t *out, uint8_t *flag) {
    SelectivePlaneSpan(a, b, c, from, to, t, bit, out, flag);
}
#endif

struct RemoveNoiseOp {
    static constexpr uint8_t kFormats = kFormatFilters;
    RemoveNoiseOp(int32_t methodValue, int32_t levelValue) : methodArg(methodValue), levelArg(levelValue) {}
    int32_t methodArg, levelArg;
    uint8_t method = 0;
    uint8_t threshold = 0;

    LumaTables luma;
    OwnedBlock scratchBlock;
    int32_t span = 0;            // box width + 2: columns x0 - 1 .. x1 + 1
    uint8_t *fetched = nullptr;  // span x channels, one source row as fetched
    uint8_t *rows = nullptr;     // 3 slots of `planes` planes of span values
    int32_t rowOf[3] = {-1, -1, -1};
    int32_t planes = 1;
    uint8_t *results = nullptr;  // `planes` planes of box-width values
    uint8_t *flags = nullptr;    // box width: the flagged channels of method 1, bit k for channel k
    bool avx2 = false;           // the row loops in AVX2 lanes

    // Low bytes; the threshold is 255 - level, as a byte.
    bool Normalise() {
        method = static_cast<uint8_t>(methodArg);
        threshold = static_cast<uint8_t>(255 - static_cast<uint8_t>(levelArg));
        return true;
    }
    bool WalksPixels() const { return method == kMethodMedian || method == kMethodSelective; }

    template <class Pix>
    bool Prepare(const FilterImage<Pix> &img) {
        constexpr int32_t C = kChannels<Pix>;
        // The vector median compares lumas: one plane of them. Every other case compares channels.
        const bool byLuma = method == kMethodMedian && !kIsGray<Pix>;
        if (byLuma && !BuildLumaTables(luma)) return false;
        avx2 = ProcessorHasAvx2();
        planes = byLuma ? 1 : C;
        span = img.box.x1 - img.box.x0 + 3;
        const auto s = static_cast<uint64_t>(span);
        const auto p = static_cast<uint64_t>(planes);
        uint8_t *scratch = AllocScratch<uint8_t>(scratchBlock, C * s + 3 * p * s + p * s + s);
        if (scratch == nullptr) return false;
        fetched = scratch;
        rows = fetched + C * s;
        results = rows + 3 * p * s;
        flags = results + p * s;
        return true;
    }

    // The planes of source row y over columns x0 - 1 .. x1 + 1, columns clamped into the image (the
    // clamped ones are read only by edge pixels, which do not use these rows).
    template <class Pix>
    const uint8_t *Planes(const FilterImage<Pix> &img, int32_t y) {
        constexpr int32_t C = kChannels<Pix>;
        const int32_t slot = y % 3;
        uint8_t *out = rows + static_cast<size_t>(slot) * planes * span;
        if (rowOf[slot] == y) return out;
        rowOf[slot] = y;
        img.FetchRowClamped(y, img.box.x0 - 1, span, fetched);
        if (planes == 1 && C == 3) {
            if (avx2) {
                RowLumasAvx2(luma, fetched, span, out);
            } else {
                RowLumasPlain(luma, fetched, span, out);
            }
        } else {
            if constexpr (C == 3) {
                if (avx2) {
                    SplitPlanesAvx2(fetched, span, out);
                    return out;
                }
            }
            // Locals, so that the stores are not taken to reach the op's own fields.
            const int32_t n = span;
            const uint8_t *__restrict from = fetched;
            uint8_t *__restrict to = out;
            for (int32_t k = 0; k < C; ++k) {
                for (int32_t i = 0; i < n; ++i) to[static_cast<size_t>(k) * n + i] = from[static_cast<size_t>(i) * C + k];
            }
        }
        return out;
    }

    // ---- Pixels whose window is whole: a run of box columns from..to, all inside the image ----

    // The loops below write through local pointers that nothing else reaches, so that the compiler
    // can keep them in registers and run a row's pixels side by side.

    // Method 0 at 8 bits: the median level of each window into plane 0 of results.
    void MedianLevels(const uint8_t *__restrict lo, const uint8_t *__restrict mid,
                      const uint8_t *__restrict up, int32_t from, int32_t to) {
        uint8_t *__restrict out = results;
        for (int32_t i = from; i <= to; ++i) {
            out[i] = MedianOfNine(lo[i], lo[i + 1], lo[i + 2], mid[i], mid[i + 1], mid[i + 2], up[i],
                                  up[i + 1], up[i + 2]);
        }
    }

    // Method 1: each channel plane's new value (or its own) and the flags.
    void SelectiveChannels(const uint8_t *lo, const uint8_t *mid, const uint8_t *up, int32_t from,
                           int32_t to) {
        std::fill(flags + from, flags + to + 1, uint8_t{0});
        for (int32_t k = 0; k < planes; ++k) {
            const size_t at = static_cast<size_t>(k) * span;
            const auto bit = static_cast<uint8_t>(1 << k);
            if (avx2) {
                SelectivePlaneAvx2(lo + at, mid + at, up + at, from, to, threshold, bit, results + at, flags);
            } else {
                SelectivePlanePlain(lo + at, mid + at, up + at, from, to, threshold, bit, results + at, flags);
            }
        }
    }

    // ---- Pixels on the image's edge: the window cut, the rules as written ----

    template <class Pix>
    void EdgeMedian(const FilterImage<Pix> &img, int32_t x, int32_t y, uint8_t *dstRow) {
        constexpr int32_t C = kChannels<Pix>;
        uint32_t keys[9];
        int32_t n = 0;
        for (int32_t wy = y - 1; wy <= y + 1; ++wy) {
            if (wy < 0 || wy >= img.height) continue;
            const uint8_t *row = img.SrcRow(wy);
            for (int32_t wx = x - 1; wx <= x + 1; ++wx) {
                if (wx < 0 || wx >= img.width) continue;
                uint8_t ch[C];
                img.Fetch(row, wx, ch);
                const uint32_t value = kIsGray<Pix> ? ch[0] : PixelLuma(luma, ch);
                const auto place = static_cast<uint32_t>((wy - y + 4) * 9 + (wx - x + 4));
                keys[n++] = value | (place << 8);
            }
        }
        BubbleSort(keys, n, [](uint32_t k) { return k & 0xFF; });
        const uint32_t chosen = keys[n / 2];
        if constexpr (kIsGray<Pix>) {
            // The level itself is the byte written.
            dstRow[x] = static_cast<uint8_t>(chosen & 0xFF);
        } else {
            const auto place = static_cast<int32_t>(chosen >> 8);
            CopyPixel(img, x, y, place % 9 - 4, place / 9 - 4, dstRow);
        }
    }

    template <class Pix>
    void EdgeSelective(const FilterImage<Pix> &img, int32_t x, int32_t y, uint8_t *dstRow) {
        constexpr int32_t C = kChannels<Pix>;
        uint8_t own[C];
        img.Fetch(img.SrcRow(y), x, own);
        uint8_t list[C][8];
        int32_t n = 0;
        for (int32_t wy = y - 1; wy <= y + 1; ++wy) {
            if (wy < 0 || wy >= img.height) continue;
            const uint8_t *row = img.SrcRow(wy);
            for (int32_t wx = x - 1; wx <= x + 1; ++wx) {
                if (wx < 0 || wx >= img.width || (wx == x && wy == y)) continue;
                uint8_t ch[C];
                img.Fetch(row, wx, ch);
                for (int32_t k = 0; k < C; ++k) list[k][n] = ch[k];
                ++n;
            }
        }
        uint8_t next[C];
        int32_t flagged = 0;
        for (int32_t k = 0; k < C; ++k) {
            next[k] = own[k];
            bool differs = false;
            for (int32_t i = 0; i < n; ++i) differs = differs || std::abs(list[k][i] - own[k]) > threshold;
            if (!differs) continue;
            BubbleSort(list[k], n, [](uint8_t v) { return v; });
            next[k] = list[k][n / 2];
            flagged |= 1 << k;
        }
        StoreSelective(img, x, flagged, next, dstRow);
    }

    // ---- Stores ----

    // The source pixel at (x + dx, y + dy), copied whole into pixel x of the clone row.
    template <class Pix>
    static void CopyPixel(const FilterImage<Pix> &img, int32_t x, int32_t y, int32_t dx, int32_t dy,
                          uint8_t *dstRow) {
        const uint8_t *from = img.SrcRow(y + dy) + static_cast<size_t>(x + dx) * Pix::kBytes;
        uint8_t *to = dstRow + static_cast<size_t>(x) * Pix::kBytes;
        to[0] = from[0];
        to[1] = from[1];
        if constexpr (Pix::kBytes >= 3) to[2] = from[2];
    }

    // Box columns from..to of row y of the clone, each copied whole from the source pixel at the
    // walking place its window chose (results), the offset of each place taken from a table.
    template <class Pix>
    void CopyPlaces(const FilterImage<Pix> &img, int32_t y, int32_t from, int32_t to, uint8_t *dstRow) const {
        constexpr int32_t B = Pix::kBytes;
        const auto stride = static_cast<ptrdiff_t>(img.stride);
        ptrdiff_t offset[9];
        for (int32_t k = 0; k < 9; ++k) offset[k] = (k / 3 - 1) * stride + (k % 3 - 1) * B;
        const uint8_t *src = img.SrcRow(y) + static_cast<size_t>(img.box.x0) * B;
        uint8_t *dst = dstRow + static_cast<size_t>(img.box.x0) * B;
        const uint8_t *places = results;
        int32_t i = from;
        if constexpr (B == 3 && std::endian::native == std::endian::little) {
            // Four bytes at a time: read from the byte before the pixel (a row's first pixel is
            // preceded by the header or the row below, so the read stays in the block) and write four
            // bytes, the fourth of which the next pixel rewrites; the last pixel writes only its own.
            for (; i < to; ++i) {
                uint32_t word;
                std::memcpy(&word, src + static_cast<ptrdiff_t>(i) * 3 + offset[places[i]] - 1, 4);
                word >>= 8;
                std::memcpy(dst + static_cast<ptrdiff_t>(i) * 3, &word, 4);
            }
        } else if constexpr (B == 4 && std::endian::native == std::endian::little) {
            // The first three bytes of the chosen pixel; the fourth keeps the copy's own.
            for (; i <= to; ++i) {
                uint32_t word, own;
                uint8_t *q = dst + static_cast<ptrdiff_t>(i) * 4;
                std::memcpy(&word, src + static_cast<ptrdiff_t>(i) * 4 + offset[places[i]], 4);
                std::memcpy(&own, q, 4);
                word = (word & 0x00FFFFFFu) | (own & 0xFF000000u);
                std::memcpy(q, &word, 4);
            }
        }
        for (; i <= to; ++i) {
            const uint8_t *p = src + static_cast<ptrdiff_t>(i) * B + offset[places[i]];
            uint8_t *q = dst + static_cast<ptrdiff_t>(i) * B;
            q[0] = p[0];
            q[1] = p[1];
            if constexpr (B >= 3) q[2] = p[2];
        }
    }

    // Method 1 at 24 and 32 bits, box columns from..to of a clone row: the three channel values
    // (an unflagged one is the pixel's own, the byte the copy holds already); a fourth byte stays.
    template <class Pix>
    void StoreSelectedChannels(const FilterImage<Pix> &img, int32_t from, int32_t to, uint8_t *dstRow) const {
        constexpr int32_t B = Pix::kBytes;
        const size_t n = static_cast<size_t>(span);
        const uint8_t *__restrict blue = results;
        const uint8_t *__restrict green = results + n;
        const uint8_t *__restrict red = results + 2 * n;
        uint8_t *__restrict dst = dstRow + static_cast<size_t>(img.box.x0) * B;
        for (int32_t i = from; i <= to; ++i) {
            dst[static_cast<size_t>(i) * B] = blue[i];
            dst[static_cast<size_t>(i) * B + 1] = green[i];
            dst[static_cast<size_t>(i) * B + 2] = red[i];
        }
    }

    template <class Pix>
    static void StoreSelective(const FilterImage<Pix> &img, int32_t x, int32_t flagged, const uint8_t *next,
                               uint8_t *dstRow) {
        if constexpr (kIs16<Pix>) {
            // Packing an unflagged word would lose a level: it stays exactly as it was.
            if (flagged != 0) img.Store(dstRow, x, next);
        } else if constexpr (kIsGray<Pix>) {
            if (flagged != 0) img.Store(dstRow, x, next);
        } else {
            // An unflagged byte is rewritten with its own value, the byte the copy already holds.
            img.Store(dstRow, x, next);
        }
    }

    template <class Pix>
    void Row(const FilterImage<Pix> &img, int32_t y) {
        constexpr int32_t C = kChannels<Pix>;
        const int32_t x0 = img.box.x0;
        // Box columns whose window lies wholly inside the image, as indices from x0.
        int32_t from = std::max(1, x0) - x0;
        int32_t to = std::min(img.box.x1, img.width - 2) - x0;
        if (y < 1 || y > img.height - 2) to = from - 1;
        if (from <= to) {
            const uint8_t *lo = Planes(img, y - 1);
            const uint8_t *mid = Planes(img, y);
            const uint8_t *up = Planes(img, y + 1);
            if (method == kMethodSelective) {
                SelectiveChannels(lo, mid, up, from, to);
            } else if constexpr (kIsGray<Pix>) {
                MedianLevels(lo, mid, up, from, to);
            } else {
                if (avx2) {
                    MedianPlacesAvx2(lo, mid, up, from, to, results);
                } else {
                    MedianPlacesPlain(lo, mid, up, from, to, results);
                }
            }
        }
        uint8_t *dstRow = img.DstRow(y);
        if constexpr (!kIsGray<Pix> && !kIs16<Pix>) {
            if (method == kMethodSelective && img.mask.bits == nullptr) {
                const int32_t count = img.box.x1 - x0 + 1;
                if (from > to) {
                    for (int32_t i = 0; i < count; ++i) EdgeSelective(img, x0 + i, y, dstRow);
                    return;
                }
                for (int32_t i = 0; i < from; ++i) EdgeSelective(img, x0 + i, y, dstRow);
                for (int32_t i = to + 1; i < count; ++i) EdgeSelective(img, x0 + i, y, dstRow);
                StoreSelectedChannels(img, from, to, dstRow);
                return;
            }
        }
        if constexpr (!kIsGray<Pix>) {
            if (method == kMethodMedian && img.mask.bits == nullptr) {
                // Every pixel of the box row: the edge ones by the cut window, the others copied
                // from the place each window chose.
                const int32_t count = img.box.x1 - x0 + 1;
                if (from > to) {
                    for (int32_t i = 0; i < count; ++i) EdgeMedian(img, x0 + i, y, dstRow);
                    return;
                }
                for (int32_t i = 0; i < from; ++i) EdgeMedian(img, x0 + i, y, dstRow);
                for (int32_t i = to + 1; i < count; ++i) EdgeMedian(img, x0 + i, y, dstRow);
                CopyPlaces(img, y, from, to, dstRow);
                return;
            }
        }
        ForEachSelected(img, y, [&](int32_t x) {
            const int32_t i = x - x0;
            if (i < from || i > to) {
                if (method == kMethodSelective) {
                    EdgeSelective(img, x, y, dstRow);
                } else {
                    EdgeMedian(img, x, y, dstRow);
                }
                return;
            }
            if (method == kMethodSelective) {
                uint8_t next[C];
                for (int32_t k = 0; k < C; ++k) next[k] = results[static_cast<size_t>(k) * span + i];
                StoreSelective(img, x, flags[i], next, dstRow);
            } else if constexpr (kIsGray<Pix>) {
                dstRow[x] = results[i];
            } else {
                const int32_t place = results[i];
                CopyPixel(img, x, y, place % 3 - 1, place / 3 - 1, dstRow);
            }
        });
    }
};

}  // namespace
}  // namespace tz3

extern "C" TZ3_API DibHandle TZ3RemoveNoise(const DibPair *pair, int32_t kind, const Tz3Point *points,
                                            int32_t count, const Tz3Rect *rect, int32_t inside,
                                            int32_t method, int32_t level, int32_t noDialog, intptr_t dialog1,
                                            intptr_t dialog2, intptr_t dialog3) {
    using namespace tz3;
    return RunExport<DibHandle>(noDialog, dialog1, dialog2, dialog3, [&] {
        RemoveNoiseOp op{method, level};
        return FilterDispatcher(UnpackRegion(pair, kind, points, count, rect, inside), op, noDialog);
    });
}
