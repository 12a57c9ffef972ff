// The hidden mark and the clipboard on the 4096 x 4096 24-bit picture, no dialog: a caller's
// stamp over the whole picture (every other bit set), its reading, a text stamp drawn into the
// whole picture, and the copy to and from the clipboard store inside the process.
#include <cstdlib>

#include "bench_images.h"

namespace {

// A 1-bit stamp of the picture's size with a checkerboard of set bits.
DibHandle Checkerboard4096() {
    static DibHandle stamp = [] {
        const int32_t side = 4096;
        const uint32_t stride = side / 8;
        const size_t size = 48 + static_cast<size_t>(stride) * side;
        DibHandle h = Tz3GlobalAlloc(TZ3_GMEM_MOVEABLE | TZ3_GMEM_ZEROINIT, size);
        auto *p = static_cast<uint8_t *>(Tz3GlobalLock(h));
        const uint32_t head[12] = {40, side, side, 1u | (1u << 16), 0, stride * side, 0, 0, 0, 0, 0, 0x00FFFFFF};
        std::memcpy(p, head, 48);
        for (int32_t y = 0; y < side; ++y) std::memset(p + 48 + static_cast<size_t>(stride) * y, y % 2 ? 0xAA : 0x55, stride);
        Tz3GlobalUnlock(h);
        return h;
    }();
    return stamp;
}

DibHandle Marked4096() {
    static DibHandle marked =
        TZ3SetSecretImage(tz3bench::Photo4096(), Checkerboard4096(), nullptr, nullptr, 0, 0, 0, 0, 0, 0, 0, 8, 0, 0, 0,
                          0, 1, 0, 0, 0);
    return marked;
}

void BM_SetSecretImageStamp_4096x4096x24(benchmark::State &state) {
    DibHandle image = tz3bench::Photo4096();
    DibHandle stamp = Checkerboard4096();
    tz3bench::RunOperation(state, image, [&] {
        return TZ3SetSecretImage(image, stamp, nullptr, nullptr, 0, 0, 0, 0, 0, 0, 0, 8, 0, 0, 0, 0, 1, 0, 0, 0);
    });
}
BENCHMARK(BM_SetSecretImageStamp_4096x4096x24)->Unit(benchmark::kMillisecond);

void BM_SetSecretImageText_4096x4096x24(benchmark::State &state) {
    DibHandle image = tz3bench::Photo4096();
    tz3bench::RunOperation(state, image, [&] {
        return TZ3SetSecretImage(image, nullptr, "tz3effect", "DejaVu Sans", 600, 0, 0, 0, 0, 0, 0, 8, 0, 0, 4095,
                                 4095, 1, 0, 0, 0);
    });
}
BENCHMARK(BM_SetSecretImageText_4096x4096x24)->Unit(benchmark::kMillisecond);

void BM_CheckSecretImage_4096x4096x24(benchmark::State &state) {
    DibHandle image = tz3bench::Photo4096();
    DibHandle marked = Marked4096();
    tz3bench::RunOperation(state, image, [&] { return TZ3CheckSecretImage(image, marked, 4, 1, 0, 0, 0); });
}
BENCHMARK(BM_CheckSecretImage_4096x4096x24)->Unit(benchmark::kMillisecond);

void BM_ClipboardRoundTrip_4096x4096x24(benchmark::State &state) {
    setenv("TZ3_CLIPBOARD", "memory", 1);
    DibHandle image = tz3bench::Photo4096();
    tz3bench::RunOperation(state, image, [&] {
        TZ3SetToClipBrd(nullptr, image, 1, 0, 0, 0);
        return TZ3GetFromClipBrd(nullptr, 1, 0, 0, 0);
    });
    TZ3ClearClipBrd(nullptr);
}
BENCHMARK(BM_ClipboardRoundTrip_4096x4096x24)->Unit(benchmark::kMillisecond);

}  // namespace
