// The span loop of the convolution, compiled twice: for the instruction set every x86-64 has and,
// where the processor offers it, for AVX2. Both are the same integer sums and give the same bits.
#include "filter/convolution.h"

namespace tz3 {

void ConvolveSpan(const TapRow *taps, int32_t tapCount, int32_t n, int32_t divisor, int32_t bias, uint8_t *out) {
    ConvolveSpanBody(taps, tapCount, n, divisor, bias, out);
}

#if defined(__x86_64__) || defined(__i386__)
[[gnu::target("avx2")]] void ConvolveSpanAvx2(const TapRow *taps, int32_t tapCount, int32_t n, int32_t divisor,
                                              int32_t bias, uint8_t *out) {
    ConvolveSpanBody(taps, tapCount, n, divisor, bias, out);
}
bool ProcessorHasAvx2() { return __builtin_cpu_supports("avx2") != 0; }
#else
void ConvolveSpanAvx2(const TapRow *taps, int32_t tapCount, int32_t n, int32_t divisor, int32_t bias, uint8_t *out) {
    ConvolveSpanBody(taps, tapCount, n, divisor, bias, out);
}
bool ProcessorHasAvx2() { return false; }
#endif

}  // namespace tz3
