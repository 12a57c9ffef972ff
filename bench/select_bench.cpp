// Selection, new images and block copies on the 4096 x 4096 24-bit picture, beside memcpy into a
// fresh block and OpenCV's nearest counterparts (one thread, fresh outputs).
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "bench_images.h"

namespace {

// Runs an operation that returns an image and a mask, freeing both each time.
template <class Operation>
void RunPair(benchmark::State &state, DibHandle source, Operation &&operation) {
    for (auto _ : state) {
        const DibPair out = operation();
        if (out.image == nullptr) state.SkipWithError("the operation failed");
        benchmark::DoNotOptimize(out.image);
        Tz3GlobalFree(out.image);
        Tz3GlobalFree(out.mask);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(Tz3GlobalSize(source)));
}

// The ellipse inscribed in the picture, less a margin.
const Tz3Rect kEllipse{200, 300, 3900, 3800};

void BM_Select_MemcpyFresh_4096x4096x24(benchmark::State &state) {
    tz3bench::MemcpyFresh(state, tz3bench::Photo4096());
}
BENCHMARK(BM_Select_MemcpyFresh_4096x4096x24)->Unit(benchmark::kMillisecond);

void BM_Select_MemcpyPreallocated_4096x4096x24(benchmark::State &state) {
    tz3bench::MemcpyPreallocated(state, tz3bench::Photo4096());
}
BENCHMARK(BM_Select_MemcpyPreallocated_4096x4096x24)->Unit(benchmark::kMillisecond);

void BM_Select_SelectImageEllipse_4096x4096x24(benchmark::State &state) {
    DibHandle image = tz3bench::Photo4096();
    RunPair(state, image,
            [&] { return TZ3SelectImage(image, 3, nullptr, 0, &kEllipse, 1, 255, 0, 255, 1, 0, 0, 0); });
}
BENCHMARK(BM_Select_SelectImageEllipse_4096x4096x24)->Unit(benchmark::kMillisecond);

void BM_Select_AutoSelectImage_4096x4096x24(benchmark::State &state) {
    DibHandle image = tz3bench::Photo4096();
    const auto metric = static_cast<int32_t>(state.range(0));
    RunPair(state, image, [&] {
        return TZ3AutoSelectImage(image, 1, nullptr, 0, nullptr, 1, 120, 140, 90, metric, 30, 1, 0, 0, 0);
    });
}
BENCHMARK(BM_Select_AutoSelectImage_4096x4096x24)
    ->Arg(0)
    ->Arg(1)
    ->Arg(2)
    ->ArgName("metric")
    ->Unit(benchmark::kMillisecond);

void BM_Select_CreateImage_4096x4096x24(benchmark::State &state) {
    tz3bench::RunOperation(state, tz3bench::Photo4096(),
                           [] { return TZ3CreateImage(4096, 4096, 24, 10, 200, 30, 1, 0, 0, 0); });
}
BENCHMARK(BM_Select_CreateImage_4096x4096x24)->Unit(benchmark::kMillisecond);

void BM_Select_CopyImage_4096x4096x24(benchmark::State &state) {
    DibHandle image = tz3bench::Photo4096();
    tz3bench::RunOperation(state, image, [&] { return TZ3CopyImage(image, 1, 0, 0, 0); });
}
BENCHMARK(BM_Select_CopyImage_4096x4096x24)->Unit(benchmark::kMillisecond);

// ---- OpenCV, one thread, a fresh output each time ----

cv::Mat PhotoMat() {
    static cv::Mat mat = [] {
        DibHandle image = tz3bench::Photo4096();
        auto *p = static_cast<uint8_t *>(Tz3GlobalLock(image));
        cv::Mat m(4096, 4096, CV_8UC3, p + 40);
        cv::Mat copy = m.clone();
        Tz3GlobalUnlock(image);
        return copy;
    }();
    return mat;
}

// The ellipse as a mask, then the picture copied through it onto a filled canvas of the box.
void BM_Select_OpenCVEllipseMaskedCopy_4096x4096x24(benchmark::State &state) {
    cv::setNumThreads(1);
    const cv::Mat photo = PhotoMat();
    const cv::Rect box(kEllipse.left, kEllipse.top, kEllipse.right - kEllipse.left,
                       kEllipse.bottom - kEllipse.top);
    for (auto _ : state) {
        cv::Mat mask(box.size(), CV_8UC1, cv::Scalar(0));
        cv::ellipse(mask, cv::Point(box.width / 2, box.height / 2), cv::Size(box.width / 2, box.height / 2),
                    0, 0, 360, cv::Scalar(255), cv::FILLED);
        cv::Mat out(box.size(), CV_8UC3, cv::Scalar(255, 0, 255));
        photo(box).copyTo(out, mask);
        benchmark::DoNotOptimize(out.data);
    }
}
BENCHMARK(BM_Select_OpenCVEllipseMaskedCopy_4096x4096x24)->Unit(benchmark::kMillisecond);

// A colour box test: the nearest OpenCV has to a tolerance around a key colour.
void BM_Select_OpenCVInRange_4096x4096x24(benchmark::State &state) {
    cv::setNumThreads(1);
    const cv::Mat photo = PhotoMat();
    for (auto _ : state) {
        cv::Mat mask;
        cv::inRange(photo, cv::Scalar(60, 110, 90), cv::Scalar(120, 170, 150), mask);
        cv::Mat out = photo.clone();
        benchmark::DoNotOptimize(mask.data);
        benchmark::DoNotOptimize(out.data);
    }
}
BENCHMARK(BM_Select_OpenCVInRange_4096x4096x24)->Unit(benchmark::kMillisecond);

void BM_Select_OpenCVSolidImage_4096x4096x24(benchmark::State &state) {
    cv::setNumThreads(1);
    for (auto _ : state) {
        cv::Mat out(4096, 4096, CV_8UC3, cv::Scalar(30, 200, 10));
        benchmark::DoNotOptimize(out.data);
    }
}
BENCHMARK(BM_Select_OpenCVSolidImage_4096x4096x24)->Unit(benchmark::kMillisecond);

void BM_Select_OpenCVClone_4096x4096x24(benchmark::State &state) {
    cv::setNumThreads(1);
    const cv::Mat photo = PhotoMat();
    for (auto _ : state) {
        cv::Mat out = photo.clone();
        benchmark::DoNotOptimize(out.data);
    }
}
BENCHMARK(BM_Select_OpenCVClone_4096x4096x24)->Unit(benchmark::kMillisecond);

}  // namespace
