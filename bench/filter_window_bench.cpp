// Shade, mosaic, outline and remove noise on the 4096 x 4096 24-bit picture, whole image, no
// dialog, beside memcpy into a fresh block and OpenCV's like operations on one thread. Each OpenCV
// operation runs twice: into an output it allocates itself, and into a fresh block allocated the
// way the library's results are (the FreshBlock variants), so that both sides pay the same first
// touch of new memory; the latter is the like-for-like comparison.
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "bench_images.h"

namespace {

const DibPair *Whole() {
    static DibPair pair{tz3bench::Photo4096(), nullptr};
    return &pair;
}

// The picture's pixels as an OpenCV image (rows bottom-up, which no operation here cares about).
const cv::Mat &PhotoMat() {
    static cv::Mat mat = [] {
        DibHandle h = tz3bench::Photo4096();
        auto *p = static_cast<uint8_t *>(Tz3GlobalLock(h));
        cv::Mat copy = cv::Mat(4096, 4096, CV_8UC3, p + 40, static_cast<size_t>(4096 * 3)).clone();
        Tz3GlobalUnlock(h);
        return copy;
    }();
    return mat;
}

template <class Operation>
void RunOpenCv(benchmark::State &state, Operation &&operation) {
    cv::setNumThreads(1);
    const cv::Mat &src = PhotoMat();
    for (auto _ : state) {
        cv::Mat out;
        operation(src, out);
        benchmark::DoNotOptimize(out.data);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(src.total() * 3));
}

// The same, with each of `outputs` outputs of the source's size and `type` written into a fresh
// block from Tz3GlobalAlloc, freed at the end of each iteration.
template <class Operation>
void RunOpenCvFresh(benchmark::State &state, int type, int outputs, Operation &&operation) {
    cv::setNumThreads(1);
    const cv::Mat &src = PhotoMat();
    const size_t bytes = src.total() * static_cast<size_t>(CV_ELEM_SIZE(type));
    for (auto _ : state) {
        DibHandle blocks[2] = {nullptr, nullptr};
        cv::Mat out[2];
        for (int i = 0; i < outputs; ++i) {
            blocks[i] = Tz3GlobalAlloc(TZ3_GMEM_MOVEABLE | TZ3_GMEM_ZEROINIT, 40 + bytes);
            out[i] = cv::Mat(src.rows, src.cols, type, static_cast<uint8_t *>(Tz3GlobalLock(blocks[i])) + 40);
        }
        operation(src, out);
        for (int i = 0; i < outputs; ++i) {
            benchmark::DoNotOptimize(out[i].data);
            Tz3GlobalUnlock(blocks[i]);
            Tz3GlobalFree(blocks[i]);
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(src.total() * 3));
}

void BM_FilterWindow_MemcpyFresh_4096x4096x24(benchmark::State &state) {
    tz3bench::MemcpyFresh(state, Whole()->image);
}
BENCHMARK(BM_FilterWindow_MemcpyFresh_4096x4096x24)->Unit(benchmark::kMillisecond);

void BM_Shade_4096x4096x24(benchmark::State &state) {
    const auto radius = static_cast<int32_t>(state.range(0));
    const DibPair *pair = Whole();
    tz3bench::RunOperation(state, pair->image,
                           [&] { return TZ3Shade(pair, 1, nullptr, 0, nullptr, 1, radius, 1, 0, 0, 0); });
}
BENCHMARK(BM_Shade_4096x4096x24)->Arg(1)->Arg(5)->Arg(20)->Unit(benchmark::kMillisecond);

void BM_OpenCvBlur_4096x4096x24(benchmark::State &state) {
    const int size = 2 * static_cast<int>(state.range(0)) + 1;
    RunOpenCv(state, [&](const cv::Mat &src, cv::Mat &out) { cv::blur(src, out, cv::Size(size, size)); });
}
BENCHMARK(BM_OpenCvBlur_4096x4096x24)->Arg(1)->Arg(5)->Arg(20)->Unit(benchmark::kMillisecond);

void BM_OpenCvFreshBlock_Blur_4096x4096x24(benchmark::State &state) {
    const int size = 2 * static_cast<int>(state.range(0)) + 1;
    RunOpenCvFresh(state, CV_8UC3, 1,
                   [&](const cv::Mat &src, cv::Mat *out) { cv::blur(src, out[0], cv::Size(size, size)); });
}
BENCHMARK(BM_OpenCvFreshBlock_Blur_4096x4096x24)->Arg(1)->Arg(5)->Arg(20)->Unit(benchmark::kMillisecond);

void BM_Mosaic_4096x4096x24(benchmark::State &state) {
    const auto tile = static_cast<int32_t>(state.range(0));
    const DibPair *pair = Whole();
    tz3bench::RunOperation(state, pair->image, [&] {
        return TZ3Mosaic(pair, 1, nullptr, 0, nullptr, 1, tile, tile, 1, 0, 0, 0);
    });
}
BENCHMARK(BM_Mosaic_4096x4096x24)->Arg(2)->Arg(16)->Unit(benchmark::kMillisecond);

void BM_Outline_4096x4096x24(benchmark::State &state) {
    const auto op = static_cast<int32_t>(state.range(0));
    const DibPair *pair = Whole();
    tz3bench::RunOperation(state, pair->image,
                           [&] { return TZ3Outline(pair, 1, nullptr, 0, nullptr, 1, 0, op, 1, 1, 0, 0, 0); });
}
BENCHMARK(BM_Outline_4096x4096x24)->Arg(0)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond);

// The gradient of both directions, as outline's Sobel computes it: dx and dy of 16-bit depth.
void BM_OpenCvSobel_4096x4096x24(benchmark::State &state) {
    RunOpenCv(state, [](const cv::Mat &src, cv::Mat &out) {
        cv::Mat dy;
        cv::Sobel(src, out, CV_16S, 1, 0);
        cv::Sobel(src, dy, CV_16S, 0, 1);
    });
}
BENCHMARK(BM_OpenCvSobel_4096x4096x24)->Unit(benchmark::kMillisecond);

void BM_OpenCvFreshBlock_Sobel_4096x4096x24(benchmark::State &state) {
    RunOpenCvFresh(state, CV_16SC3, 2, [](const cv::Mat &src, cv::Mat *out) {
        cv::Sobel(src, out[0], CV_16S, 1, 0);
        cv::Sobel(src, out[1], CV_16S, 0, 1);
    });
}
BENCHMARK(BM_OpenCvFreshBlock_Sobel_4096x4096x24)->Unit(benchmark::kMillisecond);

void BM_RemoveNoise_4096x4096x24(benchmark::State &state) {
    const auto method = static_cast<int32_t>(state.range(0));
    const DibPair *pair = Whole();
    tz3bench::RunOperation(state, pair->image, [&] {
        return TZ3RemoveNoise(pair, 1, nullptr, 0, nullptr, 1, method, 128, 1, 0, 0, 0);
    });
}
BENCHMARK(BM_RemoveNoise_4096x4096x24)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void BM_OpenCvMedianBlur3_4096x4096x24(benchmark::State &state) {
    RunOpenCv(state, [](const cv::Mat &src, cv::Mat &out) { cv::medianBlur(src, out, 3); });
}
BENCHMARK(BM_OpenCvMedianBlur3_4096x4096x24)->Unit(benchmark::kMillisecond);

void BM_OpenCvFreshBlock_MedianBlur3_4096x4096x24(benchmark::State &state) {
    RunOpenCvFresh(state, CV_8UC3, 1, [](const cv::Mat &src, cv::Mat *out) { cv::medianBlur(src, out[0], 3); });
}
BENCHMARK(BM_OpenCvFreshBlock_MedianBlur3_4096x4096x24)->Unit(benchmark::kMillisecond);

}  // namespace
