#include "support/test_images.h"

#include <cstdlib>

namespace tz3test {

uint32_t RowBytes(int bitCount, int width) { return static_cast<uint32_t>((bitCount * width + 31) / 32 * 4); }

std::vector<uint8_t> MakeDibBytes(int width, int height, int bitCount, uint32_t clrUsed) {
    uint32_t entries = clrUsed;
    if (entries == 0) entries = bitCount == 1 ? 2 : bitCount == 4 ? 16 : bitCount == 8 ? 256 : 0;
    const size_t size = 40 + 4 * entries + static_cast<size_t>(RowBytes(bitCount, width)) * height;
    std::vector<uint8_t> d(size, 0);
    auto put32 = [&](size_t at, uint32_t v) { std::memcpy(&d[at], &v, 4); };
    put32(0, 40);
    put32(4, static_cast<uint32_t>(width));
    put32(8, static_cast<uint32_t>(height));
    d[12] = 1;
    d[14] = static_cast<uint8_t>(bitCount);
    put32(20, RowBytes(bitCount, width) * static_cast<uint32_t>(height));
    put32(32, clrUsed);
    return d;
}

uint32_t TableEntries(const std::vector<uint8_t> &dib) {
    uint32_t used;
    std::memcpy(&used, &dib[32], 4);
    if (used != 0) return used;
    return dib[14] == 1 ? 2 : dib[14] == 4 ? 16 : dib[14] == 8 ? 256 : 0;
}

size_t PixelOffset(const std::vector<uint8_t> &dib) { return 40 + 4 * static_cast<size_t>(TableEntries(dib)); }

DibHandle ToBlock(const std::vector<uint8_t> &bytes) {
    DibHandle h = Tz3GlobalAlloc(TZ3_GMEM_MOVEABLE | TZ3_GMEM_ZEROINIT, bytes.size());
    if (h == nullptr) std::abort();
    std::memcpy(Tz3GlobalLock(h), bytes.data(), bytes.size());
    Tz3GlobalUnlock(h);
    return h;
}

std::vector<uint8_t> FromBlock(DibHandle h) {
    const size_t n = Tz3GlobalSize(h);
    std::vector<uint8_t> out(n);
    const void *p = Tz3GlobalLock(h);
    if (p != nullptr && n != 0) std::memcpy(out.data(), p, n);
    Tz3GlobalUnlock(h);
    return out;
}

static uint8_t BiasedByte(std::mt19937 &rng) {
    const auto r = static_cast<uint32_t>(rng());
    switch (r % 8) {
        case 0: return 0;
        case 1: return 255;
        default: return static_cast<uint8_t>(r >> 8);
    }
}

std::vector<uint8_t> RandomDib(std::mt19937 &rng, int width, int height, int bitCount, bool is565) {
    std::vector<uint8_t> d = MakeDibBytes(width, height, bitCount, is565 ? 3 : 0);
    if (is565) {
        d[16] = 3;
        const uint32_t masks[3] = {0xF800, 0x07E0, 0x001F};
        std::memcpy(&d[40], masks, 12);
    } else {
        for (size_t i = 40; i < PixelOffset(d); ++i) d[i] = BiasedByte(rng);
    }
    for (size_t i = PixelOffset(d); i < d.size(); ++i) d[i] = BiasedByte(rng);
    return d;
}

std::vector<uint8_t> RandomPaletteDib(std::mt19937 &rng, int width, int height, int bitCount, uint32_t clrUsed) {
    std::vector<uint8_t> d = MakeDibBytes(width, height, bitCount, clrUsed);
    for (size_t i = 40; i < d.size(); ++i) d[i] = BiasedByte(rng);
    return d;
}

int32_t ImageWidth(const std::vector<uint8_t> &dib) { return static_cast<int32_t>(Field32(dib, 4)); }
int32_t ImageHeight(const std::vector<uint8_t> &dib) { return static_cast<int32_t>(Field32(dib, 8)); }

uint16_t WordAt(const std::vector<uint8_t> &bytes, size_t at) {
    return static_cast<uint16_t>(bytes[at] | (bytes[at + 1] << 8));
}

uint32_t Field32(const std::vector<uint8_t> &bytes, size_t at) {
    uint32_t v;
    std::memcpy(&v, &bytes[at], 4);
    return v;
}

void SetField32(std::vector<uint8_t> &bytes, size_t at, uint32_t value) { std::memcpy(&bytes[at], &value, 4); }

bool IsUnlocked(DibHandle h) {
    if (Tz3GlobalLock(h) == nullptr) return false;
    return Tz3GlobalUnlock(h) == 0;
}

std::vector<uint8_t> RandomMask(std::mt19937 &rng, int width, int height) {
    std::vector<uint8_t> m = MakeDibBytes(width, height, 1);
    m[44] = m[45] = m[46] = 255;
    for (size_t i = PixelOffset(m); i < m.size(); ++i) m[i] = static_cast<uint8_t>(rng());
    return m;
}

bool MaskBit(const std::vector<uint8_t> &mask, int x, int y) {
    int32_t width;
    std::memcpy(&width, &mask[4], 4);
    const size_t at = PixelOffset(mask) + static_cast<size_t>(RowBytes(1, width)) * y + x / 8;
    return (mask[at] >> (7 - x % 8)) & 1;
}

static int32_t RecordProgress(void *user, int32_t current, int32_t total, int32_t low, int32_t high,
                              int32_t noDialog) {
    auto *r = static_cast<ProgressRecorder *>(user);
    r->calls.push_back(ProgressCall{current, total, low, high, noDialog});
    return static_cast<long>(r->calls.size()) - 1 == r->cancelAt ? 0 : 1;
}

ProgressRecorder::ProgressRecorder(long cancel) : cancelAt(cancel) { Tz3SetProgressHandler(RecordProgress, this); }
ProgressRecorder::~ProgressRecorder() { Tz3SetProgressHandler(nullptr, nullptr); }

static int32_t RecordOpen(void *user, intptr_t a, intptr_t b, intptr_t c) {
    auto *d = static_cast<DialogRecorder *>(user);
    ++d->opens;
    d->a = a;
    d->b = b;
    d->c = c;
    return d->openFails ? 0 : 1;
}
static void RecordClose(void *user) { ++static_cast<DialogRecorder *>(user)->closes; }

DialogRecorder::DialogRecorder(bool fails) : openFails(fails) { Tz3SetDialogHandlers(RecordOpen, RecordClose, this); }
DialogRecorder::~DialogRecorder() { Tz3SetDialogHandlers(nullptr, nullptr, nullptr); }

static void *CountingAlloc(void *user, size_t bytes) {
    auto *a = static_cast<FailingAllocator *>(user);
    const long n = a->count++;
    if (n == a->failAt) return nullptr;
    return std::malloc(bytes);
}
static void CountingRelease(void *, void *p) { std::free(p); }

FailingAllocator::FailingAllocator(long fail) : failAt(fail) { Tz3SetAllocator(CountingAlloc, CountingRelease, this); }
FailingAllocator::~FailingAllocator() { Tz3SetAllocator(nullptr, nullptr, nullptr); }

}  // namespace tz3test
