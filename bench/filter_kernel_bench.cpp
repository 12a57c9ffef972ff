// The custom filter (a full 9 x 9 kernel and a 3 x 3 one), sharpen, anti-alias and emboss on the
// 4096 x 4096 24-bit picture, whole image, no dialog; the convolutions beside cv::filter2D with the
// same kernel on one thread, into an output OpenCV allocates and (the FreshBlock variants, the
// like-for-like comparison) into a fresh block allocated the way the library's results are, so that
// both sides pay the same first touch of new memory. Run with the memcpy baselines
// (--benchmark_filter='FilterKernel|Memcpy').
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <array>

#include "bench_images.h"

namespace {

const DibPair *Whole() {
    static DibPair pair{tz3bench::Photo4096(), nullptr};
    return &pair;
}

// A dense 9 x 9 kernel of small weights (a blur with a sharp centre) and a 3 x 3 sharpening one.
std::array<int32_t, 81> Dense9x9() {
    std::array<int32_t, 81> k{};
    for (int r = 0; r < 9; ++r) {
        for (int c = 0; c < 9; ++c) k[r * 9 + c] = 1 + (r + c) % 3;
    }
    k[40] = 20;
    return k;
}
std::array<int32_t, 81> Sharp3x3() {
    std::array<int32_t, 81> k{};
    const int32_t w[9] = {0, -1, 0, -1, 8, -1, 0, -1, 0};
    for (int i = 0; i < 9; ++i) k[(3 + i / 3) * 9 + 3 + i % 3] = w[i];
    return k;
}
int32_t Sum(const std::array<int32_t, 81> &k) {
    int32_t s = 0;
    for (int32_t v : k) s += v;
    return s;
}

// The picture's rows as an OpenCV matrix over the block (the row order does not matter here).
cv::Mat PhotoMat() {
    DibHandle h = tz3bench::Photo4096();
    auto *p = static_cast<uint8_t *>(Tz3GlobalLock(h));
    Tz3GlobalUnlock(h);  // blocks never move
    return cv::Mat(4096, 4096, CV_8UC3, p + 40, static_cast<size_t>((24 * 4096 + 31) / 32 * 4));
}

// The middle side x side of a 9 x 9 kernel, divided, as OpenCV's float kernel.
cv::Mat OpenCvKernel(const int32_t *weights, int side, double divisor) {
    cv::Mat kernel(side, side, CV_32F);
    const int offset = (9 - side) / 2;
    for (int r = 0; r < side; ++r) {
        for (int c = 0; c < side; ++c) {
            kernel.at<float>(r, c) = static_cast<float>(weights[(r + offset) * 9 + c + offset] / divisor);
        }
    }
    return kernel;
}

void OpenCvFilter2D(benchmark::State &state, const int32_t *weights, int side, double divisor, double delta) {
    cv::setNumThreads(1);
    const cv::Mat src = PhotoMat();
    const cv::Mat kernel = OpenCvKernel(weights, side, divisor);
    for (auto _ : state) {
        cv::Mat dst;
        cv::filter2D(src, dst, -1, kernel, cv::Point(-1, -1), delta, cv::BORDER_REPLICATE);
        benchmark::DoNotOptimize(dst.data);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(src.total() * 3));
}

// The same into a fresh block from Tz3GlobalAlloc, of the result's size, freed each iteration.
void OpenCvFreshFilter2D(benchmark::State &state, const int32_t *weights, int side, double divisor,
                         double delta) {
    cv::setNumThreads(1);
    const cv::Mat src = PhotoMat();
    const cv::Mat kernel = OpenCvKernel(weights, side, divisor);
    const size_t stride = src.step[0];
    for (auto _ : state) {
        DibHandle block = Tz3GlobalAlloc(TZ3_GMEM_MOVEABLE | TZ3_GMEM_ZEROINIT, 40 + stride * src.rows);
        cv::Mat dst(src.rows, src.cols, CV_8UC3, static_cast<uint8_t *>(Tz3GlobalLock(block)) + 40, stride);
        cv::filter2D(src, dst, -1, kernel, cv::Point(-1, -1), delta, cv::BORDER_REPLICATE);
        benchmark::DoNotOptimize(dst.data);
        Tz3GlobalUnlock(block);
        Tz3GlobalFree(block);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(src.total() * 3));
}

void BM_FilterKernel_Custom9x9_4096x4096x24(benchmark::State &state) {
    const DibPair *pair = Whole();
    const auto k = Dense9x9();
    tz3bench::RunOperation(state, pair->image, [&] {
        return TZ3CustomFilter(pair, 1, nullptr, 0, nullptr, 1, k.data(), Sum(k) & 255, 0, 1, 1, 1, 1, 0, 0, 0);
    });
}
void BM_FilterKernel_OpenCvFilter2D9x9_4096x4096x24(benchmark::State &state) {
    const auto k = Dense9x9();
    OpenCvFilter2D(state, k.data(), 9, Sum(k) & 255, 0);
}
void BM_FilterKernel_OpenCvFreshBlockFilter2D9x9_4096x4096x24(benchmark::State &state) {
    const auto k = Dense9x9();
    OpenCvFreshFilter2D(state, k.data(), 9, Sum(k) & 255, 0);
}
void BM_FilterKernel_Custom3x3_4096x4096x24(benchmark::State &state) {
    const DibPair *pair = Whole();
    const auto k = Sharp3x3();
    tz3bench::RunOperation(state, pair->image, [&] {
        return TZ3CustomFilter(pair, 1, nullptr, 0, nullptr, 1, k.data(), 4, 0, 1, 1, 1, 1, 0, 0, 0);
    });
}
void BM_FilterKernel_OpenCvFilter2D3x3_4096x4096x24(benchmark::State &state) {
    const auto k = Sharp3x3();
    OpenCvFilter2D(state, k.data(), 3, 4, 0);
}
void BM_FilterKernel_OpenCvFreshBlockFilter2D3x3_4096x4096x24(benchmark::State &state) {
    const auto k = Sharp3x3();
    OpenCvFreshFilter2D(state, k.data(), 3, 4, 0);
}
void BM_FilterKernel_Sharp_4096x4096x24(benchmark::State &state) {
    const DibPair *pair = Whole();
    tz3bench::RunOperation(state, pair->image,
                           [&] { return TZ3Sharp(pair, 1, nullptr, 0, nullptr, 1, 60, 1, 0, 0, 0); });
}
void BM_FilterKernel_AntiAlias_4096x4096x24(benchmark::State &state) {
    const DibPair *pair = Whole();
    tz3bench::RunOperation(state, pair->image,
                           [&] { return TZ3AntiAlias(pair, 1, nullptr, 0, nullptr, 1, 1, 0, 0, 0); });
}
void BM_FilterKernel_Emboss_4096x4096x24(benchmark::State &state) {
    const DibPair *pair = Whole();
    tz3bench::RunOperation(state, pair->image,
                           [&] { return TZ3Emboss(pair, 1, nullptr, 0, nullptr, 1, 1, 3, 128, 1, 0, 0, 0); });
}
// Direction 1 at depth 3: the lower-right kernel divided by 3, plus 128.
std::array<int32_t, 81> EmbossKernel() {
    std::array<int32_t, 81> k{};
    const int32_t w[9] = {-2, -1, 0, -1, 0, 1, 0, 1, 2};
    for (int i = 0; i < 9; ++i) k[(3 + i / 3) * 9 + 3 + i % 3] = w[i];
    return k;
}
void BM_FilterKernel_OpenCvEmboss_4096x4096x24(benchmark::State &state) {
    const auto k = EmbossKernel();
    OpenCvFilter2D(state, k.data(), 3, 3, 128);
}
void BM_FilterKernel_OpenCvFreshBlockEmboss_4096x4096x24(benchmark::State &state) {
    const auto k = EmbossKernel();
    OpenCvFreshFilter2D(state, k.data(), 3, 3, 128);
}

}  // namespace

BENCHMARK(BM_FilterKernel_Custom9x9_4096x4096x24)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FilterKernel_OpenCvFilter2D9x9_4096x4096x24)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FilterKernel_OpenCvFreshBlockFilter2D9x9_4096x4096x24)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FilterKernel_Custom3x3_4096x4096x24)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FilterKernel_OpenCvFilter2D3x3_4096x4096x24)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FilterKernel_OpenCvFreshBlockFilter2D3x3_4096x4096x24)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FilterKernel_Sharp_4096x4096x24)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FilterKernel_AntiAlias_4096x4096x24)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FilterKernel_Emboss_4096x4096x24)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FilterKernel_OpenCvEmboss_4096x4096x24)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FilterKernel_OpenCvFreshBlockEmboss_4096x4096x24)->Unit(benchmark::kMillisecond);
