// The frame every export goes through, seen through TZ3RGBRev: the dialog, the unpacking of the
// pointer arguments, the final status; and the dispatcher's head that opens the caller's image.
#include "frame/call.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <thread>
#include <vector>

#include "support/test_images.h"
#include "tz3effect.h"

namespace {

using tz3test::DialogRecorder;
using tz3test::FromBlock;
using tz3test::HandleGuard;
using tz3test::ProgressRecorder;
using tz3test::ToBlock;

std::vector<uint8_t> Image24(int width = 6, int height = 4) {
    std::mt19937 rng(77);
    return tz3test::RandomDib(rng, width, height, 24);
}

DibHandle Rev(const DibPair *pair, int32_t kind, const Tz3Rect *rect, int32_t inside, int32_t noDialog, intptr_t a = 0,
              intptr_t b = 0, intptr_t c = 0) {
    return TZ3RGBRev(pair, kind, nullptr, 0, rect, inside, 1, 1, 1, noDialog, a, b, c);
}

// ---- The dialog ----

TEST(ExportFrame, DialogOpensOnceWithTheThreeValuesAndClosesOnce) {
    HandleGuard image(ToBlock(Image24()));
    const DibPair pair{image.h, nullptr};
    DialogRecorder dialog;
    int marker = 0;
    HandleGuard out(Rev(&pair, 1, nullptr, 0, 0, -3, INTPTR_MAX, reinterpret_cast<intptr_t>(&marker)));
    ASSERT_NE(out.h, nullptr);
    EXPECT_EQ(dialog.opens, 1);
    EXPECT_EQ(dialog.closes, 1);
    EXPECT_EQ(dialog.a, -3);
    EXPECT_EQ(dialog.b, INTPTR_MAX);
    EXPECT_EQ(dialog.c, reinterpret_cast<intptr_t>(&marker));
}

TEST(ExportFrame, DialogClosesOnceWhenTheOperationFails) {
    DialogRecorder dialog;
    const DibPair nullImage{nullptr, nullptr};
    EXPECT_EQ(Rev(&nullImage, 1, nullptr, 0, 0, 1, 2, 3), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
    EXPECT_EQ(dialog.opens, 1);
    EXPECT_EQ(dialog.closes, 1);
    EXPECT_EQ(dialog.a, 1);
    EXPECT_EQ(dialog.b, 2);
    EXPECT_EQ(dialog.c, 3);
}

TEST(ExportFrame, DialogClosesOnceWhenTheOperationIsCancelled) {
    HandleGuard image(ToBlock(Image24()));
    const DibPair pair{image.h, nullptr};
    const size_t before = Tz3LiveBlocks();
    DialogRecorder dialog;
    ProgressRecorder progress(0);
    EXPECT_EQ(Rev(&pair, 1, nullptr, 0, 0), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 1);
    EXPECT_EQ(progress.calls.size(), 1u);
    EXPECT_EQ(dialog.opens, 1);
    EXPECT_EQ(dialog.closes, 1);
    EXPECT_EQ(Tz3LiveBlocks(), before);
}

TEST(ExportFrame, CancelAtTheLastRowFreesTheResult) {
    HandleGuard image(ToBlock(Image24(6, 4)));
    const DibPair pair{image.h, nullptr};
    const size_t before = Tz3LiveBlocks();
    DialogRecorder dialog;
    ProgressRecorder progress(3);
    EXPECT_EQ(Rev(&pair, 1, nullptr, 0, 0), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 1);
    EXPECT_EQ(progress.calls.size(), 4u);
    EXPECT_EQ(dialog.closes, 1);
    EXPECT_EQ(Tz3LiveBlocks(), before);
}

TEST(ExportFrame, FailingOpenIsStatus2AndTheOperationDoesNotRun) {
    HandleGuard image(ToBlock(Image24()));
    const DibPair pair{image.h, nullptr};
    const size_t before = Tz3LiveBlocks();
    DialogRecorder dialog(true);
    ProgressRecorder progress;
    tz3::SetErrorStatus(0);
    EXPECT_EQ(Rev(&pair, 1, nullptr, 0, 0, 4, 5, 6), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 2);
    EXPECT_EQ(dialog.opens, 1);
    EXPECT_EQ(dialog.a, 4);
    EXPECT_EQ(dialog.closes, 0);
    EXPECT_TRUE(progress.calls.empty());
    EXPECT_EQ(Tz3LiveBlocks(), before);
}

TEST(ExportFrame, FailingOpenComesBeforeAnyArgumentCheck) {
    DialogRecorder dialog(true);
    EXPECT_EQ(Rev(nullptr, 99, nullptr, 0, 0), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 2);
    EXPECT_EQ(dialog.closes, 0);
}

TEST(ExportFrame, AnyNoDialogBitSkipsOpenAndCloseButProgressGetsTheValue) {
    HandleGuard image(ToBlock(Image24(6, 4)));
    const DibPair pair{image.h, nullptr};
    for (int32_t noDialog : {1, 256, 0x10000, INT32_MIN, -1}) {
        DialogRecorder dialog(true);  // an open would fail the call
        ProgressRecorder progress;
        HandleGuard out(Rev(&pair, 1, nullptr, 0, noDialog));
        ASSERT_NE(out.h, nullptr) << noDialog;
        EXPECT_EQ(Tz3GetErrorStatus(), 0);
        EXPECT_EQ(dialog.opens, 0) << noDialog;
        EXPECT_EQ(dialog.closes, 0) << noDialog;
        ASSERT_EQ(progress.calls.size(), 4u) << noDialog;
        for (const auto &call : progress.calls) EXPECT_EQ(call.noDialog, noDialog);
    }
}

TEST(ExportFrame, ProgressWithDialogReportsEachRowOfTheBox) {
    HandleGuard image(ToBlock(Image24(6, 4)));
    const DibPair pair{image.h, nullptr};
    DialogRecorder dialog;
    ProgressRecorder progress;
    HandleGuard out(Rev(&pair, 1, nullptr, 0, 0));
    ASSERT_NE(out.h, nullptr);
    ASSERT_EQ(progress.calls.size(), 4u);
    for (int32_t i = 0; i < 4; ++i) {
        const auto &call = progress.calls[static_cast<size_t>(i)];
        EXPECT_EQ(call.current, i);
        EXPECT_EQ(call.total, 3);
        EXPECT_EQ(call.low, 0);
        EXPECT_EQ(call.high, 100);
        EXPECT_EQ(call.noDialog, 0);
    }
}

TEST(ExportFrame, ThreadsKeepTheirOwnDialogProgressAndStatus) {
    // Two threads run the export at once, each with its own handlers and its own image height.
    struct Seen {
        int opens = -1, closes = -1;
        size_t progressCalls = 0;
        int32_t status = -1;
        bool result = false;
    };
    Seen seen[2];
    std::vector<uint8_t> images[2] = {Image24(5, 3), Image24(7, 9)};
    auto run = [&](int i, bool failingImage) {
        HandleGuard image(ToBlock(images[i]));
        const DibPair pair{failingImage ? nullptr : image.h, nullptr};
        DialogRecorder dialog;
        ProgressRecorder progress;
        for (int round = 0; round < 50; ++round) {
            HandleGuard out(Rev(&pair, 1, nullptr, 0, 0, i, i, i));
            seen[i].result = out.h != nullptr;
            seen[i].status = Tz3GetErrorStatus();
            if (seen[i].status != (failingImage ? 7 : 0)) break;
        }
        seen[i].opens = dialog.opens;
        seen[i].closes = dialog.closes;
        seen[i].progressCalls = progress.calls.size();
    };
    std::thread a(run, 0, false);
    std::thread b(run, 1, true);
    a.join();
    b.join();
    EXPECT_TRUE(seen[0].result);
    EXPECT_EQ(seen[0].status, 0);
    EXPECT_EQ(seen[0].opens, 50);
    EXPECT_EQ(seen[0].closes, 50);
    EXPECT_EQ(seen[0].progressCalls, 50u * 3u);
    EXPECT_FALSE(seen[1].result);
    EXPECT_EQ(seen[1].status, 7);
    EXPECT_EQ(seen[1].opens, 50);
    EXPECT_EQ(seen[1].closes, 50);
    EXPECT_EQ(seen[1].progressCalls, 0u);
}

// ---- Status ----

TEST(ExportFrame, SuccessSetsStatusZeroAfterAFailure) {
    HandleGuard image(ToBlock(Image24()));
    const DibPair pair{image.h, nullptr};
    const DibPair nullImage{nullptr, nullptr};
    EXPECT_EQ(Rev(&nullImage, 1, nullptr, 0, 1), nullptr);
    ASSERT_EQ(Tz3GetErrorStatus(), 7);
    HandleGuard out(Rev(&pair, 1, nullptr, 0, 1));
    ASSERT_NE(out.h, nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 0);
}

TEST(ExportFrame, FailureKeepsTheOperationsStatus) {
    HandleGuard image(ToBlock(Image24()));
    const DibPair pair{image.h, nullptr};
    EXPECT_EQ(Rev(&pair, 9, nullptr, 0, 1), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 5);
}

TEST(ExportFrame, NullPairPointerIsStatus7) {
    const size_t before = Tz3LiveBlocks();
    DialogRecorder dialog;
    EXPECT_EQ(Rev(nullptr, 1, nullptr, 0, 0), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
    EXPECT_EQ(dialog.closes, 1);
    EXPECT_EQ(Tz3LiveBlocks(), before);
}

// ---- Unpacking ----

TEST(ExportFrame, NullRectWithEllipseActsAsAnAllZeroRect) {
    const int w = 10, h = 8;
    const auto src = Image24(w, h);
    HandleGuard image(ToBlock(src));
    const DibPair pair{image.h, nullptr};
    const Tz3Rect zero{0, 0, 0, 0};
    for (int32_t inside : {1, 0}) {
        std::vector<tz3test::ProgressCall> byNull, byZero;
        std::vector<uint8_t> outNull, outZero;
        {
            ProgressRecorder progress;
            HandleGuard out(Rev(&pair, 3, nullptr, inside, 1));
            ASSERT_NE(out.h, nullptr) << inside;
            outNull = FromBlock(out.h);
            byNull = progress.calls;
        }
        {
            ProgressRecorder progress;
            HandleGuard out(Rev(&pair, 3, &zero, inside, 1));
            ASSERT_NE(out.h, nullptr) << inside;
            outZero = FromBlock(out.h);
            byZero = progress.calls;
        }
        EXPECT_EQ(outNull, outZero) << inside;
        // Inside: a one-pixel box at the top-left corner, so one row; outside: every row.
        ASSERT_EQ(byNull.size(), inside != 0 ? 1u : static_cast<size_t>(h)) << inside;
        ASSERT_EQ(byZero.size(), byNull.size());
        EXPECT_EQ(byNull.back().total, inside != 0 ? 0 : h - 1);
    }
}

TEST(ExportFrame, UnpackRegionCopiesTheArguments) {
    DibHandle image = reinterpret_cast<DibHandle>(0x1000);
    DibHandle mask = reinterpret_cast<DibHandle>(0x2000);
    const DibPair pair{image, mask};
    const Tz3Point points[2] = {{1, 2}, {3, 4}};
    const Tz3Rect rect{5, 6, 7, 8};
    const tz3::RegionArgs a = tz3::UnpackRegion(&pair, 0x1203, points, 2, &rect, 0x100);
    EXPECT_EQ(a.image, image);
    EXPECT_EQ(a.mask, mask);
    EXPECT_EQ(a.kind, 3);
    EXPECT_EQ(a.points, points);
    EXPECT_EQ(a.count, 2);
    EXPECT_EQ(a.rect.left, 5);
    EXPECT_EQ(a.rect.top, 6);
    EXPECT_EQ(a.rect.right, 7);
    EXPECT_EQ(a.rect.bottom, 8);
    EXPECT_EQ(a.inside, 0x100);
    const tz3::RegionArgs none = tz3::UnpackRegion(nullptr, 1, nullptr, 0, nullptr, 0);
    EXPECT_EQ(none.image, nullptr);
    EXPECT_EQ(none.mask, nullptr);
    EXPECT_EQ(none.rect.left, 0);
    EXPECT_EQ(none.rect.top, 0);
    EXPECT_EQ(none.rect.right, 0);
    EXPECT_EQ(none.rect.bottom, 0);
}

// ---- The frame for other result forms ----

TEST(ExportFrame, PairResultOfAFailedOpenIsBothHalvesNull) {
    DialogRecorder dialog(true);
    bool ran = false;
    const DibPair result = tz3::RunExport<DibPair>(0, 0, 0, 0, [&] {
        ran = true;
        return DibPair{reinterpret_cast<DibHandle>(0x10), reinterpret_cast<DibHandle>(0x20)};
    });
    EXPECT_EQ(result.image, nullptr);
    EXPECT_EQ(result.mask, nullptr);
    EXPECT_FALSE(ran);
    EXPECT_EQ(Tz3GetErrorStatus(), 2);
}

TEST(ExportFrame, PairResultSucceedsByItsImageAlone) {
    tz3::SetErrorStatus(7);
    const DibPair maskOnly = tz3::RunExport<DibPair>(
        1, 0, 0, 0, [] { return DibPair{nullptr, reinterpret_cast<DibHandle>(0x20)}; });
    EXPECT_EQ(maskOnly.mask, reinterpret_cast<DibHandle>(0x20));
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
    const DibPair imageOnly = tz3::RunExport<DibPair>(
        1, 0, 0, 0, [] { return DibPair{reinterpret_cast<DibHandle>(0x10), nullptr}; });
    EXPECT_EQ(imageOnly.image, reinterpret_cast<DibHandle>(0x10));
    EXPECT_EQ(Tz3GetErrorStatus(), 0);
}

TEST(ExportFrame, IntegerResultSucceedsWhenNonZero) {
    tz3::SetErrorStatus(5);
    EXPECT_EQ(tz3::RunExport<int32_t>(1, 0, 0, 0, [] { return int32_t{0}; }), 0);
    EXPECT_EQ(Tz3GetErrorStatus(), 5);
    EXPECT_EQ(tz3::RunExport<int32_t>(1, 0, 0, 0, [] { return int32_t{1}; }), 1);
    EXPECT_EQ(Tz3GetErrorStatus(), 0);
}

// ---- Opening the caller's image ----

TEST(OpenDib, NullImageIsStatus7) {
    tz3::OpenedDib opened;
    tz3::SetErrorStatus(0);
    EXPECT_FALSE(tz3::OpenDib(nullptr, 127, opened));
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
}

TEST(OpenDib, ImageInATooShortBlockIsStatus7AndLeftUnlocked) {
    auto bytes = Image24();
    bytes.pop_back();
    HandleGuard image(ToBlock(bytes));
    {
        tz3::OpenedDib opened;
        tz3::SetErrorStatus(0);
        EXPECT_FALSE(tz3::OpenDib(image.h, 127, opened));
        EXPECT_EQ(Tz3GetErrorStatus(), 7);
    }
    ASSERT_NE(Tz3GlobalLock(image.h), nullptr);
    EXPECT_EQ(Tz3GlobalUnlock(image.h), 0);
}

TEST(OpenDib, ShortImageThroughAnExportIsStatus7) {
    auto bytes = Image24();
    bytes.resize(bytes.size() - 4);
    HandleGuard image(ToBlock(bytes));
    const DibPair pair{image.h, nullptr};
    EXPECT_EQ(Rev(&pair, 1, nullptr, 0, 1), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
}

TEST(OpenDib, RefusedFormatIsStatus7) {
    HandleGuard image(ToBlock(Image24()));
    tz3::OpenedDib opened;
    tz3::SetErrorStatus(0);
    EXPECT_FALSE(tz3::OpenDib(image.h, 127 & ~32, opened));
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
}

TEST(OpenDib, AcceptedImageIsLockedUntilTheRecordEnds) {
    std::mt19937 rng(5);
    HandleGuard image(ToBlock(tz3test::RandomDib(rng, 4, 2, 16, true)));
    {
        tz3::OpenedDib opened;
        ASSERT_TRUE(tz3::OpenDib(image.h, 127, opened));
        EXPECT_EQ(opened.dib, Tz3GlobalLock(image.h));
        EXPECT_EQ(opened.redMask, 0xF800u);
        EXPECT_EQ(opened.greenMask, 0x07E0u);
        EXPECT_EQ(opened.blueMask, 0x001Fu);
        EXPECT_NE(Tz3GlobalUnlock(image.h), 0);  // the record's lock is still held
    }
    ASSERT_NE(Tz3GlobalLock(image.h), nullptr);
    EXPECT_EQ(Tz3GlobalUnlock(image.h), 0);
}

TEST(OpenDib, TopDownImagePassesTheChecksAndFailsInTheCloneWithStatus5) {
    auto bytes = Image24(6, 4);
    const int32_t negative = -4;
    std::memcpy(&bytes[8], &negative, 4);
    HandleGuard image(ToBlock(bytes));
    const DibPair pair{image.h, nullptr};
    const size_t before = Tz3LiveBlocks();
    EXPECT_EQ(Rev(&pair, 1, nullptr, 0, 1), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 5);
    EXPECT_EQ(Tz3LiveBlocks(), before);
}

TEST(OpenDib, ZeroSizedImagePassesTheChecksAndFailsInTheCloneWithStatus5) {
    for (int bits : {8, 24}) {
        HandleGuard image(ToBlock(tz3test::MakeDibBytes(0, 3, bits)));
        const DibPair pair{image.h, nullptr};
        EXPECT_EQ(Rev(&pair, 1, nullptr, 0, 1), nullptr) << bits;
        EXPECT_EQ(Tz3GetErrorStatus(), 5) << bits;
    }
}

TEST(OpenDib, SixteenBitImageWithUnusableMasksIsStatus7) {
    auto bytes = tz3test::MakeDibBytes(4, 2, 16, 3);
    bytes[16] = 3;
    const uint32_t masks[3] = {0x0F00, 0x00F0, 0x000F};
    std::memcpy(&bytes[40], masks, 12);
    HandleGuard image(ToBlock(bytes));
    const DibPair pair{image.h, nullptr};
    EXPECT_EQ(Rev(&pair, 1, nullptr, 0, 1), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
}

TEST(ExportFrame, CallersImageIsUnchangedAndUnlocked) {
    const auto src = Image24();
    HandleGuard image(ToBlock(src));
    const DibPair pair{image.h, nullptr};
    HandleGuard out(Rev(&pair, 1, nullptr, 0, 0));
    ASSERT_NE(out.h, nullptr);
    EXPECT_EQ(FromBlock(image.h), src);
    ASSERT_NE(Tz3GlobalLock(image.h), nullptr);
    EXPECT_EQ(Tz3GlobalUnlock(image.h), 0);
    // The result is handed out unlocked too.
    ASSERT_NE(Tz3GlobalLock(out.h), nullptr);
    EXPECT_EQ(Tz3GlobalUnlock(out.h), 0);
}

}  // namespace
