// TZ3ConvertColor on the 4096 x 4096 24-bit picture, no dialog: the median cut to 256 colours with
// and without diffusion, the fixed 16 colours, 1 bit with diffusion, gray, and an 8-bit picture
// (the median cut's own result) widened back to 24 bits. OpenCV's gray conversion and threshold
// stand beside the gray and 1-bit paths; run with BM_Memcpy for the baselines.
#include <opencv2/imgproc.hpp>

#include "bench_images.h"

namespace {

DibHandle Photo8() {
    static DibHandle image = TZ3ConvertColor(tz3bench::Photo4096(), 8, 0, 1, 0, 1, 0, 0, 0);
    return image;
}

#define TZ3_CONVERT_BENCH(name, source, target, fixed, dither)                                               \
    void BM_ConvertColor_##name##_4096x4096(benchmark::State &state) {                                      \
        DibHandle image = source;                                                                         \
        tz3bench::RunOperation(state, image,                                                              \
                               [&] { return TZ3ConvertColor(image, target, fixed, dither, 128, 1, 0, 0, 0); }); \
    }                                                                                                     \
    BENCHMARK(BM_ConvertColor_##name##_4096x4096)->Unit(benchmark::kMillisecond)

TZ3_CONVERT_BENCH(24to8MedianCutDither, tz3bench::Photo4096(), 8, 0, 1);
TZ3_CONVERT_BENCH(24to8MedianCut, tz3bench::Photo4096(), 8, 0, 0);
TZ3_CONVERT_BENCH(24to8FixedCubeDither, tz3bench::Photo4096(), 8, 1, 1);
TZ3_CONVERT_BENCH(24to4Fixed, tz3bench::Photo4096(), 4, 1, 0);
TZ3_CONVERT_BENCH(24to4FixedDither, tz3bench::Photo4096(), 4, 1, 1);
TZ3_CONVERT_BENCH(24to1Dither, tz3bench::Photo4096(), 1, 0, 1);
TZ3_CONVERT_BENCH(24toGray, tz3bench::Photo4096(), 80, 0, 0);
TZ3_CONVERT_BENCH(8to24, Photo8(), 24, 0, 0);
TZ3_CONVERT_BENCH(24to32, tz3bench::Photo4096(), 32, 0, 0);

// The source's rows as an OpenCV matrix (bottom-up makes no difference to these peers).
cv::Mat PhotoMat() {
    DibHandle image = tz3bench::Photo4096();
    auto *p = static_cast<uint8_t *>(Tz3GlobalLock(image));
    cv::Mat m(4096, 4096, CV_8UC3, p + 40, static_cast<size_t>(4096 * 3));
    Tz3GlobalUnlock(image);  // blocks never move: the pointer stays good
    return m;
}

void BM_OpenCV_CvtColorGray_4096x4096(benchmark::State &state) {
    cv::setNumThreads(1);
    const cv::Mat src = PhotoMat();
    for (auto _ : state) {
        cv::Mat gray;
        cv::cvtColor(src, gray, cv::COLOR_BGR2GRAY);
        benchmark::DoNotOptimize(gray.data);
    }
}
BENCHMARK(BM_OpenCV_CvtColorGray_4096x4096)->Unit(benchmark::kMillisecond);

void BM_OpenCV_GrayThreshold_4096x4096(benchmark::State &state) {
    cv::setNumThreads(1);
    const cv::Mat src = PhotoMat();
    for (auto _ : state) {
        cv::Mat gray, binary;
        cv::cvtColor(src, gray, cv::COLOR_BGR2GRAY);
        cv::threshold(gray, binary, 128, 255, cv::THRESH_BINARY);
        benchmark::DoNotOptimize(binary.data);
    }
}
BENCHMARK(BM_OpenCV_GrayThreshold_4096x4096)->Unit(benchmark::kMillisecond);

}  // namespace
