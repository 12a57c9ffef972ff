// TZ3CopyImage: the byte-for-byte copy of any block in its steps, with progress, cancellation and
// allocation failure.
#include <gtest/gtest.h>

#include <cstdlib>

#include "support/test_images.h"
#include "support/tone_harness.h"
#include "tz3effect.h"

using namespace tz3test;

namespace {

DibHandle Copy(DibHandle image, int32_t noDialog = 1) {
    return TZ3CopyImage(image, noDialog, 0, 0, 0);
}

// A block of `size` bytes, none of them zero, that is no image at all.
std::vector<uint8_t> Pattern(size_t size) {
    std::vector<uint8_t> bytes(size);
    for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>(1 + i % 251);
    return bytes;
}

// Watches the copy while it is made: an allocator that remembers its last allocation, and a
// progress handler that counts how many bytes of that allocation's tail (the copy's bytes) are
// already written.
struct CopyWatch {
    void *last = nullptr;
    size_t lastBytes = 0;
    size_t size = 0;
    std::vector<size_t> copiedAtStep;
    std::vector<int32_t> steps;
};
void *WatchAlloc(void *user, size_t bytes) {
    auto *w = static_cast<CopyWatch *>(user);
    w->last = std::malloc(bytes);
    w->lastBytes = bytes;
    return w->last;
}
void WatchRelease(void *, void *p) {
    std::free(p);
}
int32_t WatchProgress(void *user, int32_t current, int32_t, int32_t, int32_t, int32_t) {
    auto *w = static_cast<CopyWatch *>(user);
    const uint8_t *copy = static_cast<const uint8_t *>(w->last) + (w->lastBytes - w->size);
    size_t copied = 0;
    for (size_t i = 0; i < w->size; ++i) copied += copy[i] != 0 ? 1 : 0;
    w->copiedAtStep.push_back(copied);
    w->steps.push_back(current);
    return 1;
}

// The bytes copied after each reported step, for a block of `size` bytes.
CopyWatch WatchCopy(size_t size) {
    const std::vector<uint8_t> bytes = Pattern(size);
    HandleGuard image(ToBlock(bytes));
    CopyWatch watch;
    watch.size = size;
    Tz3SetAllocator(WatchAlloc, WatchRelease, &watch);
    Tz3SetProgressHandler(WatchProgress, &watch);
    DibHandle out = Copy(image.h);
    Tz3SetProgressHandler(nullptr, nullptr);
    Tz3SetAllocator(nullptr, nullptr, nullptr);
    EXPECT_NE(out, nullptr);
    EXPECT_EQ(FromBlock(out), bytes);
    Tz3GlobalFree(out);
    return watch;
}

}  // namespace

TEST(CopyImage, CopiesAnyBlockByteForByteWhateverItHolds) {
    std::mt19937 rng(7301);
    for (const size_t size : {1u, 2u, 39u, 100u, 101u, 199u, 200u, 201u, 1000u, 12345u}) {
        std::vector<uint8_t> bytes(size);
        for (uint8_t &b : bytes) b = static_cast<uint8_t>(rng());
        HandleGuard image(ToBlock(bytes));
        HandleGuard out(Copy(image.h));
        ASSERT_NE(out.h, nullptr) << size;
        EXPECT_EQ(Tz3GetErrorStatus(), 0);
        EXPECT_EQ(FromBlock(out.h), bytes) << size;
        EXPECT_EQ(Tz3GlobalSize(out.h), size);
        ExpectCallerBlocksUnchanged(image.h, bytes);
    }
    // Images of every depth, random content.
    for (const Format f : kFormats) {
        const std::vector<uint8_t> src = RandomDib(rng, 7, 3, f.bits, f.is565);
        HandleGuard image(ToBlock(src));
        HandleGuard out(Copy(image.h));
        EXPECT_EQ(FromBlock(out.h), src);
    }
}

TEST(CopyImage, TheBlockSizeDecidesWhatIsCopiedSlackIncluded) {
    std::vector<uint8_t> src = MakeDibBytes(2, 2, 24);
    src.resize(src.size() + 37, 0xEE);  // slack the header knows nothing of
    HandleGuard image(ToBlock(src));
    HandleGuard out(Copy(image.h));
    EXPECT_EQ(FromBlock(out.h), src);
}

TEST(CopyImage, HundredBytesTakeOneStepReportedAs100Of100) {
    ProgressRecorder progress;
    HandleGuard image(ToBlock(Pattern(100)));
    HandleGuard out(Copy(image.h, 4));
    ASSERT_NE(out.h, nullptr);
    ASSERT_EQ(progress.calls.size(), 1u);
    EXPECT_EQ(progress.calls[0].current, 100);
    EXPECT_EQ(progress.calls[0].total, 100);
    EXPECT_EQ(progress.calls[0].low, 0);
    EXPECT_EQ(progress.calls[0].high, 100);
    EXPECT_EQ(progress.calls[0].noDialog, 4);
}

TEST(CopyImage, HundredAndOneBytesTakeOneByteInEachOf101Steps) {
    const CopyWatch watch = WatchCopy(101);
    ASSERT_EQ(watch.steps.size(), 101u);
    for (size_t i = 0; i <= 100; ++i) {
        EXPECT_EQ(watch.steps[i], static_cast<int32_t>(i));
        EXPECT_EQ(watch.copiedAtStep[i], i + 1) << i;
    }
}

TEST(CopyImage, AMultipleOf100HasAnEmptyLastStepThatIsStillReported) {
    const CopyWatch watch = WatchCopy(300);
    ASSERT_EQ(watch.steps.size(), 101u);
    for (size_t i = 0; i < 100; ++i) EXPECT_EQ(watch.copiedAtStep[i], 3 * (i + 1)) << i;
    EXPECT_EQ(watch.copiedAtStep[100], 300u);
    EXPECT_EQ(watch.steps[100], 100);
}

TEST(CopyImage, TheLastStepCopiesTheRemainder) {
    const CopyWatch watch = WatchCopy(1057);
    ASSERT_EQ(watch.steps.size(), 101u);
    EXPECT_EQ(watch.copiedAtStep[0], 10u);
    EXPECT_EQ(watch.copiedAtStep[99], 1000u);
    EXPECT_EQ(watch.copiedAtStep[100], 1057u);
}

TEST(CopyImage, CancelAtEveryStepLeavesNothing) {
    HandleGuard small(ToBlock(Pattern(100)));
    ExpectCancelAtEveryProgressCall(
        1, [&] { return Copy(small.h); }, "one step");
    HandleGuard large(ToBlock(Pattern(250)));
    ExpectCancelAtEveryProgressCall(
        101, [&] { return Copy(large.h); }, "stepped");
    ExpectCallerBlocksUnchanged(large.h, Pattern(250));
}

TEST(CopyImage, NullHandleIsStatus7AndAFailedAllocationStatus3) {
    EXPECT_EQ(Copy(nullptr), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
    HandleGuard image(ToBlock(Pattern(500)));
    long allocations = 0;
    CountAllocations([&] { return Copy(image.h); }, &allocations);
    EXPECT_EQ(allocations, 1);
    ExpectFailureAtEveryAllocation(
        allocations, [&] { return Copy(image.h); }, "copy");
    EXPECT_TRUE(IsUnlocked(image.h));
}

TEST(CopyImage, AnEmptyBlockIsStatus3) {
    HandleGuard empty(Tz3GlobalAlloc(TZ3_GMEM_MOVEABLE | TZ3_GMEM_ZEROINIT, 0));
    ASSERT_NE(empty.h, nullptr);
    const size_t live = Tz3LiveBlocks();
    EXPECT_EQ(Copy(empty.h), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 3);
    EXPECT_EQ(Tz3LiveBlocks(), live);
}

TEST(CopyImage, DialogOpensOnceAndAFailedOpenCopiesNothing) {
    HandleGuard image(ToBlock(Pattern(10)));
    {
        DialogRecorder dialog;
        HandleGuard out(TZ3CopyImage(image.h, 0, 7, 8, 9));
        EXPECT_NE(out.h, nullptr);
        EXPECT_EQ(dialog.opens, 1);
        EXPECT_EQ(dialog.closes, 1);
        EXPECT_EQ(dialog.c, 9);
    }
    DialogRecorder failing(true);
    EXPECT_EQ(TZ3CopyImage(image.h, 0, 7, 8, 9), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 2);
}
