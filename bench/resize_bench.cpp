// Resize of the 4096 x 4096 24-bit picture to half and to double size, replicating and averaging,
// beside OpenCV on one thread (nearest for replication; area for the reduction and bilinear for the
// enlargement) and beside memcpy into a fresh block of the result's size.
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "bench_images.h"

namespace {

const DibPair *Whole() {
    static DibPair pair{tz3bench::Photo4096(), nullptr};
    return &pair;
}

// A picture of the enlarged result's size, for the memcpy baseline of the enlargement.
DibHandle Photo8192() {
    static DibHandle image = tz3bench::MakePhoto24(8192, 8192);
    return image;
}

void ResizeBench(benchmark::State &state, int32_t size, int32_t interpolate) {
    const DibPair *pair = Whole();
    tz3bench::RunOperation(state, pair->image, [&] {
        const DibPair out = TZ3Resize(pair, size, size, interpolate, 1, 0, 0, 0);
        return out.image;
    });
}

void BM_Resize_Half_Replicate_4096x4096x24(benchmark::State &state) {
    ResizeBench(state, 2048, 0);
}
void BM_Resize_Half_Average_4096x4096x24(benchmark::State &state) {
    ResizeBench(state, 2048, 1);
}
void BM_Resize_Double_Replicate_4096x4096x24(benchmark::State &state) {
    ResizeBench(state, 8192, 0);
}
void BM_Resize_Double_Spread_4096x4096x24(benchmark::State &state) {
    ResizeBench(state, 8192, 1);
}

// OpenCV reads the pixel rows in place and makes a new output on every iteration.
void OpenCvBench(benchmark::State &state, int size, int method) {
    cv::setNumThreads(1);
    DibHandle source = tz3bench::Photo4096();
    auto *bytes = static_cast<uint8_t *>(Tz3GlobalLock(source));
    const cv::Mat in(4096, 4096, CV_8UC3, bytes + 40, static_cast<size_t>(4096 * 3));
    for (auto _ : state) {
        cv::Mat out;
        cv::resize(in, out, cv::Size(size, size), 0, 0, method);
        benchmark::DoNotOptimize(out.data);
    }
    Tz3GlobalUnlock(source);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(Tz3GlobalSize(source)));
}

// The same, writing into a fresh block allocated the way the library's results are, so that both
// sides pay the same first touch of new memory.
void OpenCvFreshBench(benchmark::State &state, int size, int method) {
    cv::setNumThreads(1);
    DibHandle source = tz3bench::Photo4096();
    auto *bytes = static_cast<uint8_t *>(Tz3GlobalLock(source));
    const cv::Mat in(4096, 4096, CV_8UC3, bytes + 40, static_cast<size_t>(4096 * 3));
    const size_t outBytes = static_cast<size_t>(size) * size * 3;
    for (auto _ : state) {
        DibHandle block = Tz3GlobalAlloc(TZ3_GMEM_MOVEABLE | TZ3_GMEM_ZEROINIT, 40 + outBytes);
        cv::Mat out(size, size, CV_8UC3, static_cast<uint8_t *>(Tz3GlobalLock(block)) + 40);
        cv::resize(in, out, cv::Size(size, size), 0, 0, method);
        benchmark::DoNotOptimize(out.data);
        Tz3GlobalUnlock(block);
        Tz3GlobalFree(block);
    }
    Tz3GlobalUnlock(source);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(Tz3GlobalSize(source)));
}

void BM_OpenCV_Resize_Half_Nearest_4096x4096x24(benchmark::State &state) {
    OpenCvBench(state, 2048, cv::INTER_NEAREST);
}
void BM_OpenCV_Resize_Half_Area_4096x4096x24(benchmark::State &state) {
    OpenCvBench(state, 2048, cv::INTER_AREA);
}
void BM_OpenCV_Resize_Double_Nearest_4096x4096x24(benchmark::State &state) {
    OpenCvBench(state, 8192, cv::INTER_NEAREST);
}
void BM_OpenCV_Resize_Double_Linear_4096x4096x24(benchmark::State &state) {
    OpenCvBench(state, 8192, cv::INTER_LINEAR);
}

void BM_OpenCV_FreshBlock_Resize_Half_Nearest_4096x4096x24(benchmark::State &state) {
    OpenCvFreshBench(state, 2048, cv::INTER_NEAREST);
}
void BM_OpenCV_FreshBlock_Resize_Half_Area_4096x4096x24(benchmark::State &state) {
    OpenCvFreshBench(state, 2048, cv::INTER_AREA);
}
void BM_OpenCV_FreshBlock_Resize_Double_Nearest_4096x4096x24(benchmark::State &state) {
    OpenCvFreshBench(state, 8192, cv::INTER_NEAREST);
}
void BM_OpenCV_FreshBlock_Resize_Double_Linear_4096x4096x24(benchmark::State &state) {
    OpenCvFreshBench(state, 8192, cv::INTER_LINEAR);
}

void BM_Memcpy_Fresh_8192x8192x24(benchmark::State &state) {
    tz3bench::MemcpyFresh(state, Photo8192());
}

}  // namespace

BENCHMARK(BM_Resize_Half_Replicate_4096x4096x24)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Resize_Half_Average_4096x4096x24)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Resize_Double_Replicate_4096x4096x24)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Resize_Double_Spread_4096x4096x24)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OpenCV_Resize_Half_Nearest_4096x4096x24)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OpenCV_Resize_Half_Area_4096x4096x24)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OpenCV_Resize_Double_Nearest_4096x4096x24)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OpenCV_Resize_Double_Linear_4096x4096x24)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OpenCV_FreshBlock_Resize_Half_Nearest_4096x4096x24)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OpenCV_FreshBlock_Resize_Half_Area_4096x4096x24)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OpenCV_FreshBlock_Resize_Double_Nearest_4096x4096x24)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OpenCV_FreshBlock_Resize_Double_Linear_4096x4096x24)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Memcpy_Fresh_8192x8192x24)->Unit(benchmark::kMillisecond);
