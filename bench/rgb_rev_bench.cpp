// TZ3RGBRev on a 4096 x 4096 24-bit image, whole image, all channels, beside memcpy of its block.
#include "bench_images.h"

namespace {

constexpr int32_t kSide = 4096;

DibHandle Source() {
    static DibHandle image = tz3bench::MakePhoto24(kSide, kSide);
    return image;
}

void BM_Memcpy_Fresh_4096x4096x24(benchmark::State &state) { tz3bench::MemcpyFresh(state, Source()); }
void BM_Memcpy_Preallocated_4096x4096x24(benchmark::State &state) {
    tz3bench::MemcpyPreallocated(state, Source());
}

void BM_RGBRev_All_4096x4096x24(benchmark::State &state) {
    DibPair pair{Source(), nullptr};
    for (auto _ : state) {
        DibHandle out = TZ3RGBRev(&pair, 1, nullptr, 0, nullptr, 0, 1, 1, 1, 1, 0, 0, 0);
        if (out == nullptr) state.SkipWithError("TZ3RGBRev failed");
        benchmark::DoNotOptimize(out);
        Tz3GlobalFree(out);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(Tz3GlobalSize(Source())));
}

}  // namespace

BENCHMARK(BM_Memcpy_Fresh_4096x4096x24)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Memcpy_Preallocated_4096x4096x24)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RGBRev_All_4096x4096x24)->Unit(benchmark::kMillisecond);
