// TZ3PasteImage through its export frame: the pair it unpacks, the dialog, status 0 on success,
// the progress it reports, cancellation, allocation failure and the caller's blocks.
#include <gtest/gtest.h>

#include <random>
#include <thread>

#include "support/compose_reference.h"
#include "support/test_images.h"
#include "support/tone_harness.h"
#include "tz3effect.h"

using namespace tz3test;

namespace {

DibHandle Paste(DibHandle target, const DibPair *source, const PasteSettings &s, int32_t noDialog = 1,
                intptr_t d1 = 0, intptr_t d2 = 0, intptr_t d3 = 0) {
    return TZ3PasteImage(target, source, s.angle, s.mirror, s.flip, s.opacity, s.backRed, s.backGreen,
                         s.backBlue, s.pasteX, s.pasteY, s.keepSize, noDialog, d1, d2, d3);
}

}  // namespace

TEST(PasteImage, MatchesReferenceWithAndWithoutTheMaskOfThePair) {
    std::mt19937 rng(7401);
    for (const Format sf : kFormats) {
        for (int trial = 0; trial < 8; ++trial) {
            const Format tf = kFormats[rng() % 7];
            const int sw = 1 + static_cast<int>(rng() % 12), sh = 1 + static_cast<int>(rng() % 8);
            const std::vector<uint8_t> source = RandomSource(rng, sf, sw, sh);
            const std::vector<uint8_t> mask = RandomMask(rng, sw, sh);
            const std::vector<uint8_t> target = RandomSource(rng, tf, 1 + static_cast<int>(rng() % 12), 5);
            PasteSettings s;
            s.angle = static_cast<int32_t>(rng() % 36000);
            s.opacity = static_cast<int32_t>(rng() % 256);
            s.mirror = static_cast<int32_t>(rng() % 2);
            s.flip = static_cast<int32_t>(rng() % 2);
            s.pasteX = static_cast<int32_t>(rng() % 8) - 2;
            s.pasteY = static_cast<int32_t>(rng() % 8) - 2;
            s.keepSize = static_cast<int32_t>(rng() % 2);
            s.backRed = 0x1FF;  // only the low byte counts
            s.backGreen = 0x180;
            s.backBlue = -1;
            HandleGuard t(ToBlock(target)), img(ToBlock(source)), m(ToBlock(mask));
            const DibPair plain{img.h, nullptr};
            const DibPair masked{img.h, m.h};
            HandleGuard a(Paste(t.h, &plain, s));
            ASSERT_NE(a.h, nullptr);
            EXPECT_EQ(Tz3GetErrorStatus(), 0);
            EXPECT_EQ(FromBlock(a.h), ReferencePaste(target, source, nullptr, s))
                << sf.bits << " angle " << s.angle;
            HandleGuard b(Paste(t.h, &masked, s));
            ASSERT_NE(b.h, nullptr);
            EXPECT_EQ(FromBlock(b.h), ReferencePaste(target, source, &mask, s))
                << sf.bits << " angle " << s.angle;
            ExpectCallerBlocksUnchanged(t.h, target);
            ExpectCallerBlocksUnchanged(img.h, source, m.h);
            EXPECT_EQ(FromBlock(m.h), mask);
        }
    }
}

TEST(PasteImage, BackgroundChannelsCountByTheirLowByte) {
    HandleGuard t(ToBlock(MakeDibBytes(1, 1, 24))), img(ToBlock(MakeDibBytes(1, 1, 24)));
    const DibPair pair{img.h, nullptr};
    PasteSettings s;
    s.pasteX = 5;  // leaves a gap of Back between the two
    s.backRed = 256 + 10;
    s.backGreen = 512 + 20;
    s.backBlue = -256 + 30;
    HandleGuard out(Paste(t.h, &pair, s));
    ASSERT_NE(out.h, nullptr);
    EXPECT_EQ(Pixel24(FromBlock(out.h), 2, 0), (Bgr{30, 20, 10}));
}

TEST(PasteImage, NullTargetNullPairAndPairWithoutImageAreStatus7) {
    HandleGuard img(ToBlock(MakeDibBytes(2, 2, 24)));
    const DibPair pair{img.h, nullptr};
    const DibPair empty{nullptr, nullptr};
    const size_t live = Tz3LiveBlocks();
    EXPECT_EQ(Paste(nullptr, &pair, PasteSettings{}), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
    EXPECT_EQ(Paste(img.h, nullptr, PasteSettings{}), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
    EXPECT_EQ(Paste(img.h, &empty, PasteSettings{}), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
    EXPECT_EQ(Tz3LiveBlocks(), live);
    EXPECT_TRUE(IsUnlocked(img.h));
}

TEST(PasteImage, UnusableSixteenBitMasksAreStatus7) {
    std::mt19937 rng(7402);
    std::vector<uint8_t> bad = RandomDib(rng, 3, 3, 16, true);
    SetField32(bad, 44, 0x0001);  // green mask of neither kind
    HandleGuard b(ToBlock(bad)), good(ToBlock(MakeDibBytes(3, 3, 24)));
    const DibPair badPair{b.h, nullptr}, goodPair{good.h, nullptr};
    EXPECT_EQ(Paste(good.h, &badPair, PasteSettings{}), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
    EXPECT_EQ(Paste(b.h, &goodPair, PasteSettings{}), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
}

TEST(PasteImage, OpensAndClosesTheDialogAndSetsStatus0) {
    HandleGuard t(ToBlock(MakeDibBytes(3, 2, 8))), img(ToBlock(MakeDibBytes(2, 2, 1)));
    const DibPair pair{img.h, nullptr};
    {
        DialogRecorder dialog;
        ProgressRecorder progress;
        HandleGuard out(Paste(t.h, &pair, PasteSettings{}, 0, 11, 22, 33));
        ASSERT_NE(out.h, nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 0);
        EXPECT_EQ(dialog.opens, 1);
        EXPECT_EQ(dialog.closes, 1);
        EXPECT_EQ(dialog.a, 11);
        EXPECT_EQ(dialog.b, 22);
        EXPECT_EQ(dialog.c, 33);
        ASSERT_FALSE(progress.calls.empty());
        EXPECT_EQ(progress.calls[0].noDialog, 0);
    }
    {
        // A failed open: status 2, nothing run, no close.
        DialogRecorder dialog(true);
        ProgressRecorder progress;
        EXPECT_EQ(Paste(t.h, &pair, PasteSettings{}, 0), nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 2);
        EXPECT_EQ(dialog.closes, 0);
        EXPECT_TRUE(progress.calls.empty());
    }
    {
        // With noDialog the dialog is never touched; a failure still closes nothing.
        DialogRecorder dialog;
        EXPECT_EQ(Paste(nullptr, &pair, PasteSettings{}, 9), nullptr);
        EXPECT_EQ(dialog.opens, 0);
        EXPECT_EQ(dialog.closes, 0);
        // An open dialog is closed after a failure too.
        EXPECT_EQ(Paste(nullptr, &pair, PasteSettings{}, 0), nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 7);
        EXPECT_EQ(dialog.opens, 1);
        EXPECT_EQ(dialog.closes, 1);
    }
}

TEST(PasteImage, ReportsEachResultRowOverTheWholeSpan) {
    HandleGuard t(ToBlock(MakeDibBytes(4, 6, 24))), img(ToBlock(MakeDibBytes(2, 2, 24)));
    const DibPair pair{img.h, nullptr};
    PasteSettings s;
    s.keepSize = 1;
    ProgressRecorder progress;
    HandleGuard out(Paste(t.h, &pair, s, 4));
    ASSERT_NE(out.h, nullptr);
    ExpectCountingProgress(progress.calls, 6, 4, "paste rows");
}

TEST(PasteImage, CancelAtEveryProgressCallAndFailureOfEveryAllocationLeaveNothing) {
    std::mt19937 rng(7403);
    const std::vector<uint8_t> source = RandomSource(rng, Format{8, false}, 5, 4);
    const std::vector<uint8_t> mask = RandomMask(rng, 5, 4);
    const std::vector<uint8_t> target = RandomSource(rng, Format{16, true}, 6, 3);
    HandleGuard t(ToBlock(target)), img(ToBlock(source)), m(ToBlock(mask));
    const DibPair pair{img.h, m.h};
    PasteSettings s;
    s.angle = -4000;
    s.mirror = 1;
    s.pasteX = 3;
    s.pasteY = 1;
    s.keepSize = 1;
    s.opacity = 100;
    const auto once = [&] { return Paste(t.h, &pair, s); };
    // mirror 4 rows, mask scan 3 rows, walk 3 rows
    ExpectCancelAtEveryProgressCall(10, once, "paste");
    long allocations = 0;
    ASSERT_NO_FATAL_FAILURE(CountAllocations(once, &allocations));
    ExpectFailureAtEveryAllocation(allocations, once, "paste");
    ExpectCallerBlocksUnchanged(t.h, target);
    ExpectCallerBlocksUnchanged(img.h, source, m.h);
}

TEST(PasteImage, CallsOnSeveralThreadsAtOnceGiveTheSameResults) {
    std::mt19937 rng(7404);
    const std::vector<uint8_t> source = RandomSource(rng, Format{24, false}, 30, 20);
    const std::vector<uint8_t> target = RandomSource(rng, Format{32, false}, 40, 30);
    HandleGuard t(ToBlock(target)), img(ToBlock(source));
    const DibPair pair{img.h, nullptr};
    PasteSettings s;
    s.angle = 3333;
    s.opacity = 77;
    s.pasteX = 20;
    s.pasteY = 15;
    const std::vector<uint8_t> expected = ReferencePaste(target, source, nullptr, s);
    std::vector<std::vector<uint8_t>> results(4);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&, i] {
            for (int k = 0; k < 5; ++k) {
                DibHandle out = Paste(t.h, &pair, s);
                if (out == nullptr) return;
                results[i] = FromBlock(out);
                Tz3GlobalFree(out);
            }
        });
    }
    for (std::thread &th : threads) th.join();
    for (const auto &r : results) EXPECT_EQ(r, expected);
}
