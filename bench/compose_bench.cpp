// Paste and layer on 4096 x 4096 24-bit pictures, no dialog: a straight paste at half opacity
// beside OpenCV's addWeighted on one thread, a paste turned by 30 degrees through a round mask, and a
// layer with a key colour. Compare with BM_Memcpy_Fresh of the same run.
//
// addWeighted runs twice: once into a cv::Mat of its own making, and once into a block allocated the
// way the library's results are. The second is the like-for-like peer: both sides then pay the same
// first touch of new memory, which on a system that gives huge pages only on request costs far more
// for OpenCV's own allocation than for ours.
#include <opencv2/core.hpp>

#include "bench_images.h"

namespace {

constexpr int32_t kSide = 4096;

// The negative of the photo, so that source and target differ in every channel.
DibHandle Negative4096() {
    static DibHandle image = [] {
        const DibPair pair{tz3bench::Photo4096(), nullptr};
        return TZ3RGBRev(&pair, 1, nullptr, 0, nullptr, 1, 1, 1, 1, 1, 0, 0, 0);
    }();
    return image;
}

// A 1-bit mask of the picture's size holding the disc inscribed in it.
DibHandle Disc4096() {
    static DibHandle mask = [] {
        const uint32_t stride = (kSide + 31) / 32 * 4;
        const size_t size = 48 + static_cast<size_t>(stride) * kSide;
        DibHandle h = Tz3GlobalAlloc(TZ3_GMEM_MOVEABLE | TZ3_GMEM_ZEROINIT, size);
        auto *p = static_cast<uint8_t *>(Tz3GlobalLock(h));
        const uint32_t head[10] = {40, kSide, kSide, 1u | (1u << 16), 0, stride * kSide, 0, 0, 0, 0};
        std::memcpy(p, head, 40);
        p[44] = p[45] = p[46] = 255;
        const int64_t r = kSide / 2;
        for (int32_t y = 0; y < kSide; ++y) {
            uint8_t *row = p + 48 + static_cast<size_t>(stride) * y;
            for (int32_t x = 0; x < kSide; ++x) {
                const int64_t dx = x - r, dy = y - r;
                if (dx * dx + dy * dy < r * r)
                    row[x >> 3] = static_cast<uint8_t>(row[x >> 3] | (0x80 >> (x & 7)));
            }
        }
        Tz3GlobalUnlock(h);
        return h;
    }();
    return mask;
}

void BM_PasteImage_Angle0_Opacity128_4096x4096x24(benchmark::State &state) {
    const DibPair source{Negative4096(), nullptr};
    // The source's centre pixel on the target's, so that the two coincide.
    tz3bench::RunOperation(state, source.image, [&] {
        return TZ3PasteImage(tz3bench::Photo4096(), &source, 0, 0, 0, 128, 0, 0, 0, kSide / 2 - 1,
                             kSide - 1 - kSide / 2, 1, 1, 0, 0, 0);
    });
}

void BM_OpenCV_AddWeighted_Opacity128_4096x4096x24(benchmark::State &state) {
    cv::setNumThreads(1);
    const uint32_t stride = (24 * kSide + 31) / 32 * 4;
    auto *target = static_cast<uint8_t *>(Tz3GlobalLock(tz3bench::Photo4096()));
    auto *source = static_cast<uint8_t *>(Tz3GlobalLock(Negative4096()));
    const cv::Mat t(kSide, kSide, CV_8UC3, target + 40, stride);
    const cv::Mat s(kSide, kSide, CV_8UC3, source + 40, stride);
    for (auto _ : state) {
        cv::Mat out;
        cv::addWeighted(s, 128 / 255.0, t, 127 / 255.0, 0.0, out);
        benchmark::DoNotOptimize(out.data);
    }
    Tz3GlobalUnlock(Negative4096());
    Tz3GlobalUnlock(tz3bench::Photo4096());
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(Tz3GlobalSize(tz3bench::Photo4096())));
}

// The same blend written into a fresh block of the paste result's size, allocated and freed each
// iteration as the paste's result is.
void BM_OpenCV_FreshBlock_AddWeighted_Opacity128_4096x4096x24(benchmark::State &state) {
    cv::setNumThreads(1);
    const uint32_t stride = (24 * kSide + 31) / 32 * 4;
    auto *target = static_cast<uint8_t *>(Tz3GlobalLock(tz3bench::Photo4096()));
    auto *source = static_cast<uint8_t *>(Tz3GlobalLock(Negative4096()));
    const cv::Mat t(kSide, kSide, CV_8UC3, target + 40, stride);
    const cv::Mat s(kSide, kSide, CV_8UC3, source + 40, stride);
    const size_t outBytes = 40 + static_cast<size_t>(stride) * kSide;
    for (auto _ : state) {
        DibHandle block = Tz3GlobalAlloc(TZ3_GMEM_MOVEABLE | TZ3_GMEM_ZEROINIT, outBytes);
        cv::Mat out(kSide, kSide, CV_8UC3, static_cast<uint8_t *>(Tz3GlobalLock(block)) + 40, stride);
        cv::addWeighted(s, 128 / 255.0, t, 127 / 255.0, 0.0, out);
        benchmark::DoNotOptimize(out.data);
        benchmark::ClobberMemory();
        Tz3GlobalUnlock(block);
        Tz3GlobalFree(block);
    }
    Tz3GlobalUnlock(Negative4096());
    Tz3GlobalUnlock(tz3bench::Photo4096());
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(Tz3GlobalSize(tz3bench::Photo4096())));
}

void BM_PasteImage_Angle30_Mask_4096x4096x24(benchmark::State &state) {
    const DibPair source{Negative4096(), Disc4096()};
    tz3bench::RunOperation(state, source.image, [&] {
        return TZ3PasteImage(tz3bench::Photo4096(), &source, 3000, 0, 0, 255, 0, 0, 0, kSide / 2, kSide / 2,
                             1, 1, 0, 0, 0);
    });
}

void BM_Layer_Key_4096x4096x24(benchmark::State &state) {
    // The negative's colour at its first pixel is the key; the photo shows through wherever it recurs.
    const auto *over = static_cast<const uint8_t *>(Tz3GlobalLock(Negative4096()));
    const int32_t blue = over[40], green = over[41], red = over[42];
    Tz3GlobalUnlock(Negative4096());
    tz3bench::RunOperation(state, tz3bench::Photo4096(), [&] {
        return TZ3Layer(tz3bench::Photo4096(), Negative4096(), 255, red, green, blue, 0, 0, 0, 0, 0, 1, 1, 0,
                        0, 0);
    });
}

}  // namespace

BENCHMARK(BM_PasteImage_Angle0_Opacity128_4096x4096x24)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OpenCV_AddWeighted_Opacity128_4096x4096x24)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OpenCV_FreshBlock_AddWeighted_Opacity128_4096x4096x24)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PasteImage_Angle30_Mask_4096x4096x24)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Layer_Key_4096x4096x24)->Unit(benchmark::kMillisecond);
