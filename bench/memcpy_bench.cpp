// The baselines: memcpy of the 4096 x 4096 24-bit picture's block, into a fresh block allocated as
// results are, and into one allocated before the loop.
#include "bench_images.h"

namespace {

void BM_Memcpy_Fresh_4096x4096x24(benchmark::State &state) { tz3bench::MemcpyFresh(state, tz3bench::Photo4096()); }
void BM_Memcpy_Preallocated_4096x4096x24(benchmark::State &state) {
    tz3bench::MemcpyPreallocated(state, tz3bench::Photo4096());
}

}  // namespace

BENCHMARK(BM_Memcpy_Fresh_4096x4096x24)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Memcpy_Preallocated_4096x4096x24)->Unit(benchmark::kMillisecond);
