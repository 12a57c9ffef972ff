// The tone operations on the 4096 x 4096 24-bit picture, whole image, no dialog.
#include "bench_images.h"

namespace {

const DibPair *Whole() {
    static DibPair pair{tz3bench::Photo4096(), nullptr};
    return &pair;
}

#define TZ3_TONE_BENCH(name, call)                                                                     \
    void BM_##name##_4096x4096x24(benchmark::State &state) {                                           \
        const DibPair *pair = Whole();                                                                 \
        tz3bench::RunOperation(state, pair->image, [&] { return call; });                              \
    }                                                                                                  \
    BENCHMARK(BM_##name##_4096x4096x24)->Unit(benchmark::kMillisecond)

TZ3_TONE_BENCH(RGBRev, TZ3RGBRev(pair, 1, nullptr, 0, nullptr, 1, 1, 1, 1, 1, 0, 0, 0));
TZ3_TONE_BENCH(RGBGamma, TZ3RGBGamma(pair, 1, nullptr, 0, nullptr, 1, 0.5, -0.3, 1.0, 1, 0, 0, 0));
TZ3_TONE_BENCH(RGBLevel, TZ3RGBLevel(pair, 1, nullptr, 0, nullptr, 1, 40, -20, 10, 1, 0, 0, 0));
TZ3_TONE_BENCH(YCCGamma, TZ3YCCGamma(pair, 1, nullptr, 0, nullptr, 1, 0.5, 0.2, -0.2, 1, 0, 0, 0));
TZ3_TONE_BENCH(YCCLevel, TZ3YCCLevel(pair, 1, nullptr, 0, nullptr, 1, 30, -10, 10, 1, 0, 0, 0));
TZ3_TONE_BENCH(YCCRev, TZ3YCCRev(pair, 1, nullptr, 0, nullptr, 1, 1, 0, 1, 1, 0, 0, 0));
TZ3_TONE_BENCH(Chroma, TZ3Chroma(pair, 1, nullptr, 0, nullptr, 1, 50, 1, 0, 0, 0));
TZ3_TONE_BENCH(SetGray, TZ3SetGray(pair->image, 1, 0, 0, 0));

}  // namespace
