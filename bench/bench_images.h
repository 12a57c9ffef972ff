// Images and baselines shared by the benchmarks.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>

#include "tz3effect.h"

namespace tz3bench {

// A 24-bit picture with smooth gradients and a little texture, so that no path sees flat data.
inline DibHandle MakePhoto24(int32_t width, int32_t height) {
    const uint32_t stride = static_cast<uint32_t>((24 * width + 31) / 32 * 4);
    const size_t size = 40 + static_cast<size_t>(stride) * height;
    DibHandle h = Tz3GlobalAlloc(TZ3_GMEM_MOVEABLE | TZ3_GMEM_ZEROINIT, size);
    auto *p = static_cast<uint8_t *>(Tz3GlobalLock(h));
    const uint32_t head[10] = {40, static_cast<uint32_t>(width), static_cast<uint32_t>(height), 1u | (24u << 16), 0,
                               stride * static_cast<uint32_t>(height), 0, 0, 0, 0};
    std::memcpy(p, head, 40);
    uint32_t noise = 12345;
    for (int32_t y = 0; y < height; ++y) {
        uint8_t *row = p + 40 + static_cast<size_t>(stride) * y;
        for (int32_t x = 0; x < width; ++x) {
            noise = noise * 1103515245u + 12345u;
            const uint32_t n = (noise >> 16) & 15;
            row[3 * x + 0] = static_cast<uint8_t>((x * 255 / width + n) & 255);
            row[3 * x + 1] = static_cast<uint8_t>((y * 255 / height + n) & 255);
            row[3 * x + 2] = static_cast<uint8_t>(((x + y) * 255 / (width + height) + 2 * n) & 255);
        }
    }
    Tz3GlobalUnlock(h);
    return h;
}

// The 4096 x 4096 24-bit picture every tone benchmark works on, made once per run.
inline DibHandle Photo4096() {
    static DibHandle image = MakePhoto24(4096, 4096);
    return image;
}

// Runs an operation that returns a new block once per iteration and frees the result.
template <class Operation>
void RunOperation(benchmark::State &state, DibHandle source, Operation &&operation) {
    for (auto _ : state) {
        DibHandle out = operation();
        if (out == nullptr) state.SkipWithError("the operation failed");
        benchmark::DoNotOptimize(out);
        Tz3GlobalFree(out);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(Tz3GlobalSize(source)));
}

// memcpy of a whole block into a freshly allocated one, allocated the way results are.
inline void MemcpyFresh(benchmark::State &state, DibHandle source) {
    const size_t size = Tz3GlobalSize(source);
    const void *from = Tz3GlobalLock(source);
    for (auto _ : state) {
        DibHandle out = Tz3GlobalAlloc(TZ3_GMEM_MOVEABLE | TZ3_GMEM_ZEROINIT, size);
        void *to = Tz3GlobalLock(out);
        std::memcpy(to, from, size);
        benchmark::DoNotOptimize(to);
        benchmark::ClobberMemory();
        Tz3GlobalUnlock(out);
        Tz3GlobalFree(out);
    }
    Tz3GlobalUnlock(source);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(size));
}

// memcpy into one block allocated before the loop.
inline void MemcpyPreallocated(benchmark::State &state, DibHandle source) {
    const size_t size = Tz3GlobalSize(source);
    const void *from = Tz3GlobalLock(source);
    DibHandle out = Tz3GlobalAlloc(TZ3_GMEM_MOVEABLE | TZ3_GMEM_ZEROINIT, size);
    void *to = Tz3GlobalLock(out);
    for (auto _ : state) {
        std::memcpy(to, from, size);
        benchmark::DoNotOptimize(to);
        benchmark::ClobberMemory();
    }
    Tz3GlobalUnlock(out);
    Tz3GlobalFree(out);
    Tz3GlobalUnlock(source);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(size));
}

}  // namespace tz3bench
