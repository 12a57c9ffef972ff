// Memory blocks shared by caller and library: zeroing, sizes, locks, handles, the live count and the
// caller's allocator.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

#include "support/test_images.h"
#include "tz3effect.h"

namespace {

constexpr uint32_t kFlags = TZ3_GMEM_MOVEABLE | TZ3_GMEM_ZEROINIT;

bool AllBytesAre(const void *p, size_t n, uint8_t value) {
    const auto *b = static_cast<const uint8_t *>(p);
    for (size_t i = 0; i < n; ++i) {
        if (b[i] != value) return false;
    }
    return true;
}

// An allocator that hands out memory filled with 0xAA and counts its calls and bytes.
struct DirtyAllocator {
    long allocs = 0;
    long releases = 0;
    size_t lastBytes = 0;
    bool fail = false;
};

void *DirtyAlloc(void *user, size_t bytes) {
    auto *a = static_cast<DirtyAllocator *>(user);
    ++a->allocs;
    a->lastBytes = bytes;
    if (a->fail) return nullptr;
    void *p = std::malloc(bytes);
    if (p != nullptr) std::memset(p, 0xAA, bytes);
    return p;
}

void DirtyRelease(void *user, void *p) {
    ++static_cast<DirtyAllocator *>(user)->releases;
    std::free(p);
}

// Restores the default allocator however a test ends.
struct DefaultAllocatorAtEnd {
    ~DefaultAllocatorAtEnd() { Tz3SetAllocator(nullptr, nullptr, nullptr); }
};

TEST(MemoryBlock, AllocReturnsZeroedBytesEvenWhereFreedBlocksWereDirty) {
    for (int round = 0; round < 8; ++round) {
        DibHandle h = Tz3GlobalAlloc(kFlags, 1000);
        ASSERT_NE(h, nullptr);
        auto *p = static_cast<uint8_t *>(Tz3GlobalLock(h));
        ASSERT_NE(p, nullptr);
        EXPECT_TRUE(AllBytesAre(p, 1000, 0)) << "round " << round;
        std::memset(p, 0xCD, 1000);
        Tz3GlobalUnlock(h);
        EXPECT_EQ(Tz3GlobalFree(h), nullptr);
    }
}

TEST(MemoryBlock, SizeIsExactlyWhatWasAsked) {
    for (size_t bytes : {size_t{0}, size_t{1}, size_t{3}, size_t{7}, size_t{40}, size_t{63}, size_t{4097}}) {
        DibHandle h = Tz3GlobalAlloc(kFlags, bytes);
        ASSERT_NE(h, nullptr) << bytes;
        EXPECT_EQ(Tz3GlobalSize(h), bytes);
        Tz3GlobalFree(h);
    }
}

TEST(MemoryBlock, SizeOfNullIsZero) { EXPECT_EQ(Tz3GlobalSize(nullptr), 0u); }

TEST(MemoryBlock, FreeReturnsNull) {
    DibHandle h = Tz3GlobalAlloc(kFlags, 16);
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(Tz3GlobalFree(h), nullptr);
}

TEST(MemoryBlock, LocksNestAndUnlockTellsWhetherStillLocked) {
    DibHandle h = Tz3GlobalAlloc(kFlags, 32);
    ASSERT_NE(h, nullptr);
    void *first = Tz3GlobalLock(h);
    void *second = Tz3GlobalLock(h);
    void *third = Tz3GlobalLock(h);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(second, first);
    EXPECT_EQ(third, first);
    EXPECT_NE(Tz3GlobalUnlock(h), 0);  // two locks left
    EXPECT_NE(Tz3GlobalUnlock(h), 0);  // one lock left
    EXPECT_EQ(Tz3GlobalUnlock(h), 0);  // unlocked
    EXPECT_EQ(Tz3GlobalUnlock(h), 0);  // an unlocked block stays unlocked
    // Locking again after the count reached zero works and counts from one.
    EXPECT_EQ(Tz3GlobalLock(h), first);
    EXPECT_EQ(Tz3GlobalUnlock(h), 0);
    Tz3GlobalFree(h);
}

TEST(MemoryBlock, LockAndUnlockOfNullFail) {
    EXPECT_EQ(Tz3GlobalLock(nullptr), nullptr);
    EXPECT_EQ(Tz3GlobalUnlock(nullptr), 0);
}

TEST(MemoryBlock, BytesWrittenUnderOneLockAreSeenUnderTheNext) {
    DibHandle h = Tz3GlobalAlloc(kFlags, 5);
    ASSERT_NE(h, nullptr);
    std::memcpy(Tz3GlobalLock(h), "abcde", 5);
    Tz3GlobalUnlock(h);
    EXPECT_EQ(std::memcmp(Tz3GlobalLock(h), "abcde", 5), 0);
    Tz3GlobalUnlock(h);
    Tz3GlobalFree(h);
}

TEST(MemoryBlock, GlobalHandleOfLockedFirstByteIsTheBlock) {
    DibHandle a = Tz3GlobalAlloc(kFlags, 24);
    DibHandle b = Tz3GlobalAlloc(kFlags, 3 << 20);
    ASSERT_NE(a, nullptr);
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(Tz3GlobalHandle(Tz3GlobalLock(a)), a);
    EXPECT_EQ(Tz3GlobalHandle(Tz3GlobalLock(b)), b);
    EXPECT_EQ(Tz3GlobalHandle(nullptr), nullptr);
    Tz3GlobalUnlock(a);
    Tz3GlobalUnlock(b);
    Tz3GlobalFree(a);
    Tz3GlobalFree(b);
}

TEST(MemoryBlock, LiveBlocksCountsAllocationsNotYetFreed) {
    const size_t before = Tz3LiveBlocks();
    DibHandle a = Tz3GlobalAlloc(kFlags, 10);
    DibHandle b = Tz3GlobalAlloc(kFlags, 0);
    DibHandle c = Tz3GlobalAlloc(kFlags, 4 << 20);
    EXPECT_EQ(Tz3LiveBlocks(), before + 3);
    Tz3GlobalFree(b);
    EXPECT_EQ(Tz3LiveBlocks(), before + 2);
    Tz3GlobalFree(a);
    Tz3GlobalFree(c);
    EXPECT_EQ(Tz3LiveBlocks(), before);
}

TEST(MemoryBlock, LiveBlocksStaysExactUnderConcurrentThreads) {
    const size_t before = Tz3LiveBlocks();
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([] {
            for (int i = 0; i < 500; ++i) {
                DibHandle h = Tz3GlobalAlloc(kFlags, 64 + static_cast<size_t>(i));
                if (h == nullptr) std::abort();
                Tz3GlobalLock(h);
                Tz3GlobalUnlock(h);
                Tz3GlobalFree(h);
            }
        });
    }
    for (auto &t : threads) t.join();
    EXPECT_EQ(Tz3LiveBlocks(), before);
}

TEST(MemoryBlock, LargeBlocksAreZeroedWritableAndExactInSize) {
    const size_t before = Tz3LiveBlocks();
    for (size_t bytes : {size_t{2} << 20, (size_t{2} << 20) - 64, (size_t{2} << 20) + 1, size_t{5} << 20}) {
        for (int round = 0; round < 2; ++round) {
            DibHandle h = Tz3GlobalAlloc(kFlags, bytes);
            ASSERT_NE(h, nullptr) << bytes;
            EXPECT_EQ(Tz3GlobalSize(h), bytes);
            auto *p = static_cast<uint8_t *>(Tz3GlobalLock(h));
            ASSERT_NE(p, nullptr);
            EXPECT_TRUE(AllBytesAre(p, bytes, 0)) << bytes << " round " << round;
            std::memset(p, 0x5A, bytes);
            EXPECT_EQ(p[bytes - 1], 0x5A);
            Tz3GlobalUnlock(h);
            EXPECT_EQ(Tz3GlobalFree(h), nullptr);
        }
    }
    EXPECT_EQ(Tz3LiveBlocks(), before);
}

TEST(MemoryAllocator, BytesGoThroughTheCallersFunctions) {
    DefaultAllocatorAtEnd restore;
    DirtyAllocator counter;
    Tz3SetAllocator(DirtyAlloc, DirtyRelease, &counter);
    DibHandle a = Tz3GlobalAlloc(kFlags, 100);
    DibHandle b = Tz3GlobalAlloc(kFlags, 200);
    ASSERT_NE(a, nullptr);
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(counter.allocs, 2);
    EXPECT_GE(counter.lastBytes, 200u);
    EXPECT_EQ(counter.releases, 0);
    Tz3GlobalFree(a);
    EXPECT_EQ(counter.releases, 1);
    Tz3GlobalFree(b);
    EXPECT_EQ(counter.releases, 2);
    EXPECT_EQ(counter.allocs, 2);
}

TEST(MemoryAllocator, LibraryZeroesWhatTheCallersAllocReturns) {
    DefaultAllocatorAtEnd restore;
    DirtyAllocator counter;
    Tz3SetAllocator(DirtyAlloc, DirtyRelease, &counter);
    for (size_t bytes : {size_t{1}, size_t{777}, (size_t{2} << 20) + 3}) {
        DibHandle h = Tz3GlobalAlloc(kFlags, bytes);
        ASSERT_NE(h, nullptr);
        EXPECT_EQ(Tz3GlobalSize(h), bytes);
        const void *p = Tz3GlobalLock(h);
        ASSERT_NE(p, nullptr);
        EXPECT_TRUE(AllBytesAre(p, bytes, 0)) << bytes;
        Tz3GlobalUnlock(h);
        Tz3GlobalFree(h);
    }
    EXPECT_EQ(counter.allocs, 3);
    EXPECT_EQ(counter.releases, 3);
}

TEST(MemoryAllocator, BlockIsReleasedByTheAllocatorThatMadeIt) {
    DefaultAllocatorAtEnd restore;
    DirtyAllocator first, second;
    Tz3SetAllocator(DirtyAlloc, DirtyRelease, &first);
    DibHandle a = Tz3GlobalAlloc(kFlags, 50);
    DibHandle b = Tz3GlobalAlloc(kFlags, 60);
    ASSERT_NE(a, nullptr);
    ASSERT_NE(b, nullptr);
    Tz3SetAllocator(nullptr, nullptr, nullptr);
    DibHandle madeByDefault = Tz3GlobalAlloc(kFlags, 50);
    ASSERT_NE(madeByDefault, nullptr);
    EXPECT_EQ(first.allocs, 2);  // the default allocator does not call the caller's
    // Under the default allocator, a block of the caller's goes back to the caller's release.
    Tz3GlobalFree(a);
    EXPECT_EQ(first.releases, 1);
    // Under another caller's allocator, too; and a default block never reaches a caller's release.
    Tz3SetAllocator(DirtyAlloc, DirtyRelease, &second);
    Tz3GlobalFree(b);
    EXPECT_EQ(first.releases, 2);
    Tz3GlobalFree(madeByDefault);
    EXPECT_EQ(first.releases, 2);
    EXPECT_EQ(second.releases, 0);
    EXPECT_EQ(second.allocs, 0);
}

TEST(MemoryAllocator, FailingAllocGivesNullAndNoLiveBlock) {
    DefaultAllocatorAtEnd restore;
    DirtyAllocator counter;
    counter.fail = true;
    const size_t before = Tz3LiveBlocks();
    Tz3SetAllocator(DirtyAlloc, DirtyRelease, &counter);
    EXPECT_EQ(Tz3GlobalAlloc(kFlags, 10), nullptr);
    EXPECT_EQ(counter.allocs, 1);
    EXPECT_EQ(counter.releases, 0);
    EXPECT_EQ(Tz3LiveBlocks(), before);
}

TEST(MemoryAllocator, FailingAllocatorHelperFailsOnlyTheChosenCall) {
    const size_t before = Tz3LiveBlocks();
    tz3test::FailingAllocator failing(1);
    DibHandle a = Tz3GlobalAlloc(kFlags, 8);
    DibHandle b = Tz3GlobalAlloc(kFlags, 8);
    DibHandle c = Tz3GlobalAlloc(kFlags, 8);
    EXPECT_NE(a, nullptr);
    EXPECT_EQ(b, nullptr);
    EXPECT_NE(c, nullptr);
    EXPECT_EQ(failing.count, 3);
    EXPECT_EQ(Tz3LiveBlocks(), before + 2);
    Tz3GlobalFree(a);
    Tz3GlobalFree(c);
    EXPECT_EQ(Tz3LiveBlocks(), before);
}

TEST(MemoryAllocator, NullFunctionsRestoreTheDefault) {
    DefaultAllocatorAtEnd restore;
    DirtyAllocator counter;
    Tz3SetAllocator(DirtyAlloc, DirtyRelease, &counter);
    Tz3SetAllocator(nullptr, nullptr, nullptr);
    DibHandle h = Tz3GlobalAlloc(kFlags, 10);
    ASSERT_NE(h, nullptr);
    Tz3GlobalFree(h);
    EXPECT_EQ(counter.allocs, 0);
    EXPECT_EQ(counter.releases, 0);
}

}  // namespace
