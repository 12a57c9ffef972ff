// Rotation and the quadrilateral warp on the 4096 x 4096 24-bit picture, beside OpenCV on one thread
// with fresh outputs: cv::warpAffine for 30 degrees (nearest and bilinear, the same grown size and a
// constant border), cv::rotate for 90 degrees, cv::warpPerspective (nearest) for the warp of a mildly
// skewed quadrilateral. Run them with the memcpy baselines (--benchmark_filter=Memcpy|Rotation|Affine).
#include <functional>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "bench_images.h"

namespace {

const DibPair *Whole() {
    static DibPair pair{tz3bench::Photo4096(), nullptr};
    return &pair;
}

// The picture's pixels as an OpenCV image (rows in storage order), copied once per run.
const cv::Mat &PhotoMat() {
    static const cv::Mat mat = [] {
        DibHandle h = tz3bench::Photo4096();
        const auto *p = static_cast<const uint8_t *>(Tz3GlobalLock(h));
        cv::Mat m(4096, 4096, CV_8UC3);
        for (int y = 0; y < 4096; ++y) std::memcpy(m.ptr(y), p + 40 + static_cast<size_t>(y) * 4096 * 3, 4096 * 3);
        Tz3GlobalUnlock(h);
        return m;
    }();
    return mat;
}

void RunPair(benchmark::State &state, const std::function<DibPair()> &call) {
    for (auto _ : state) {
        const DibPair out = call();
        if (out.image == nullptr) state.SkipWithError("the rotation failed");
        benchmark::DoNotOptimize(out.image);
        Tz3GlobalFree(out.image);
    }
}

void BM_Rotation30_Nearest_4096x4096x24(benchmark::State &state) {
    RunPair(state, [] { return TZ3Rotation(Whole(), 3000, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0); });
}
void BM_Rotation30_Bilinear_4096x4096x24(benchmark::State &state) {
    RunPair(state, [] { return TZ3Rotation(Whole(), 3000, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0); });
}
void BM_Rotation90_4096x4096x24(benchmark::State &state) {
    RunPair(state, [] { return TZ3Rotation(Whole(), 9000, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0); });
}
void BM_Affine_Skewed_4096x4096x24(benchmark::State &state) {
    tz3bench::RunOperation(state, Whole()->image,
                           [] { return TZ3Affine(Whole()->image, 60, 4000, 120, 90, 4010, 40, 4070, 4060, 1, 0, 0, 0); });
}

// OpenCV's rotation about the centre by 30 degrees into the same grown size as ours (5597 x 5597).
void OpenCvRotate30(benchmark::State &state, int interpolation) {
    cv::setNumThreads(1);
    const cv::Mat &src = PhotoMat();
    const cv::Size size(5597, 5597);
    cv::Mat m = cv::getRotationMatrix2D(cv::Point2f(2048.0F, 2048.0F), 30.0, 1.0);
    m.at<double>(0, 2) += (size.width - 4096) / 2.0;
    m.at<double>(1, 2) += (size.height - 4096) / 2.0;
    for (auto _ : state) {
        cv::Mat dst;
        cv::warpAffine(src, dst, m, size, interpolation, cv::BORDER_CONSTANT, cv::Scalar(0, 0, 0));
        benchmark::DoNotOptimize(dst.data);
    }
}
void BM_OpenCV_WarpAffine30_Nearest_4096x4096x24(benchmark::State &state) { OpenCvRotate30(state, cv::INTER_NEAREST); }
void BM_OpenCV_WarpAffine30_Linear_4096x4096x24(benchmark::State &state) { OpenCvRotate30(state, cv::INTER_LINEAR); }

void BM_OpenCV_Rotate90_4096x4096x24(benchmark::State &state) {
    cv::setNumThreads(1);
    const cv::Mat &src = PhotoMat();
    for (auto _ : state) {
        cv::Mat dst;
        cv::rotate(src, dst, cv::ROTATE_90_COUNTERCLOCKWISE);
        benchmark::DoNotOptimize(dst.data);
    }
}

// The same quadrilateral straightened by a perspective map into the size our warp makes.
void BM_OpenCV_WarpPerspective_Nearest_4096x4096x24(benchmark::State &state) {
    cv::setNumThreads(1);
    const cv::Mat &src = PhotoMat();
    const cv::Size size(3890, 3910);
    const cv::Point2f from[4] = {{60, 4000}, {120, 90}, {4010, 40}, {4070, 4060}};
    const cv::Point2f to[4] = {{0, 0}, {0, 3910}, {3890, 3910}, {3890, 0}};
    const cv::Mat m = cv::getPerspectiveTransform(from, to);
    for (auto _ : state) {
        cv::Mat dst;
        cv::warpPerspective(src, dst, m, size, cv::INTER_NEAREST, cv::BORDER_CONSTANT);
        benchmark::DoNotOptimize(dst.data);
    }
}

}  // namespace

BENCHMARK(BM_Rotation30_Nearest_4096x4096x24)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OpenCV_WarpAffine30_Nearest_4096x4096x24)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Rotation30_Bilinear_4096x4096x24)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OpenCV_WarpAffine30_Linear_4096x4096x24)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Rotation90_4096x4096x24)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OpenCV_Rotate90_4096x4096x24)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Affine_Skewed_4096x4096x24)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OpenCV_WarpPerspective_Nearest_4096x4096x24)->Unit(benchmark::kMillisecond);
