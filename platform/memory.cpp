// Memory blocks shared by caller and library.
//
// A block is one allocation: a 64-byte record (the handle points at it) followed by the caller's
// bytes. The record keeps the size as asked for, the lock count and the functions that made the
// bytes, so that a block is always released by its own allocator whatever is set later. Blocks
// never move, so a lock is only a count and Tz3GlobalHandle finds the record just before the bytes.
#include <sys/mman.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "tz3effect.h"

struct Tz3Block {
    uint64_t magic;
    size_t size;
    std::atomic<int32_t> locks;
    void (*release)(void *user, void *p);
    void *user;
    void *base;       // what the allocator returned
    size_t mapped;    // non-zero when the default allocator mapped the pages itself
};

namespace {

constexpr uint64_t kLiveMagic = 0x7A33426C6F636B21ull;  // "z3Block!"
constexpr uint64_t kDeadMagic = 0x7A33446561644221ull;
constexpr size_t kRecordBytes = 64;
static_assert(sizeof(Tz3Block) <= kRecordBytes);

// Blocks of 2 MiB and more are mapped directly and asked for as huge pages: the kernel hands them
// over zeroed, and a huge page costs one fault where 512 small pages cost 512.
constexpr size_t kHugeBlock = 2u << 20;

struct Allocator {
    void *(*alloc)(void *user, size_t bytes);
    void (*release)(void *user, void *p);
    void *user;
};

std::mutex g_allocatorLock;
Allocator g_allocator{nullptr, nullptr, nullptr};
std::atomic<size_t> g_live{0};

Allocator CurrentAllocator() {
    std::lock_guard<std::mutex> hold(g_allocatorLock);
    return g_allocator;
}

Tz3Block *Record(DibHandle h) {
    if (h == nullptr || h->magic != kLiveMagic) return nullptr;
    return h;
}

}  // namespace

extern "C" {

TZ3_API DibHandle Tz3GlobalAlloc(uint32_t flags, size_t bytes) {
    (void)flags;  // blocks are always movable and zeroed
    if (bytes > SIZE_MAX - kRecordBytes - 4096) return nullptr;
    const size_t total = kRecordBytes + bytes;
    const Allocator a = CurrentAllocator();
    void *base = nullptr;
    size_t mapped = 0;
    bool zeroed = false;
    if (a.alloc != nullptr) {
        base = a.alloc(a.user, total);
    } else if (total >= kHugeBlock) {
        void *p = mmap(nullptr, total, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (p != MAP_FAILED) {
#ifdef MADV_HUGEPAGE
            madvise(p, total, MADV_HUGEPAGE);
#endif
            base = p;
            mapped = total;
            zeroed = true;
        }
    } else {
        base = std::calloc(1, total);
        zeroed = true;
    }
    if (base == nullptr) return nullptr;
    if (!zeroed) std::memset(base, 0, total);
    auto *block = static_cast<Tz3Block *>(base);
    block->magic = kLiveMagic;
    block->size = bytes;
    block->locks.store(0);
    block->release = a.alloc != nullptr ? a.release : nullptr;
    block->user = a.user;
    block->base = base;
    block->mapped = mapped;
    g_live.fetch_add(1);
    return block;
}

TZ3_API void *Tz3GlobalLock(DibHandle h) {
    Tz3Block *b = Record(h);
    if (b == nullptr) return nullptr;
    b->locks.fetch_add(1);
    return reinterpret_cast<unsigned char *>(b) + kRecordBytes;
}

TZ3_API int32_t Tz3GlobalUnlock(DibHandle h) {
    Tz3Block *b = Record(h);
    if (b == nullptr) return 0;
    int32_t n = b->locks.load();
    while (n > 0 && !b->locks.compare_exchange_weak(n, n - 1)) {
    }
    return n > 1 ? 1 : 0;
}

TZ3_API DibHandle Tz3GlobalFree(DibHandle h) {
    Tz3Block *b = Record(h);
    if (b == nullptr) return h;
    b->magic = kDeadMagic;
    void *base = b->base;
    const size_t mapped = b->mapped;
    auto release = b->release;
    void *user = b->user;
    g_live.fetch_sub(1);
    if (mapped != 0) {
        munmap(base, mapped);
    } else if (release != nullptr) {
        release(user, base);
    } else {
        std::free(base);
    }
    return nullptr;
}

TZ3_API size_t Tz3GlobalSize(DibHandle h) {
    Tz3Block *b = Record(h);
    return b == nullptr ? 0 : b->size;
}

TZ3_API DibHandle Tz3GlobalHandle(const void *p) {
    if (p == nullptr) return nullptr;
    auto *b = reinterpret_cast<Tz3Block *>(const_cast<unsigned char *>(static_cast<const unsigned char *>(p)) -
                                          kRecordBytes);
    return Record(b);
}

TZ3_API size_t Tz3LiveBlocks(void) { return g_live.load(); }

TZ3_API void Tz3SetAllocator(void *(*alloc)(void *user, size_t bytes), void (*release)(void *user, void *p),
                             void *user) {
    std::lock_guard<std::mutex> hold(g_allocatorLock);
    if (alloc == nullptr || release == nullptr) {
        g_allocator = Allocator{nullptr, nullptr, nullptr};
    } else {
        g_allocator = Allocator{alloc, release, user};
    }
}

}  // extern "C"
