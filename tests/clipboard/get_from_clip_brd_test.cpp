// TZ3GetFromClipBrd: a copy of the clipboard's packed bitmap, its header's own size, its table and,
// for 16 and 32-bit bit-field images, the 12 bytes of channel masks counted; untrusted data checked
// against their block.
#include <gtest/gtest.h>

#include "platform/clipboard.h"
#include "support/clipboard_env.h"
#include "support/test_images.h"
#include "support/xvfb_display.h"

namespace {

using namespace tz3test;

// Puts the bytes on the clipboard as they are, as another program might.
void PutOnClipboard(const std::vector<uint8_t> &bytes) {
    tz3::OpenClipboard(nullptr);
    tz3::EmptyClipboard();
    tz3::SetClipboardData(tz3::kClipboardDib, ToBlock(bytes));
    tz3::CloseClipboard();
}

std::vector<uint8_t> OnClipboard() {
    tz3::OpenClipboard(nullptr);
    DibHandle data = tz3::GetClipboardData(tz3::kClipboardDib);
    std::vector<uint8_t> bytes = data == nullptr ? std::vector<uint8_t>{} : FromBlock(data);
    tz3::CloseClipboard();
    return bytes;
}

DibHandle Get(int32_t noDialog = 1) { return TZ3GetFromClipBrd(nullptr, noDialog, 0, 0, 0); }

TEST(GetFromClipBrd, AnEmptyClipboardGivesStatus7) {
    ClipboardChoice memory(true);
    Tz3SetProgressHandler(nullptr, nullptr);
    EXPECT_EQ(TZ3IsClipBrdData(nullptr), 0);
    EXPECT_EQ(Get(), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), TZ3_BAD_IMAGE);
}

TEST(GetFromClipBrd, ImagesOfEveryDepthAndWidthComeBackEqual) {
    ClipboardChoice memory(true);
    std::mt19937 rng(8101);
    for (int bits : {1, 4, 8, 16, 24, 32}) {
        for (int width = 1; width <= 33; ++width) {
            const std::vector<uint8_t> src = RandomDib(rng, width, 1 + static_cast<int>(rng() % 4), bits);
            PutOnClipboard(src);
            HandleGuard result(Get());
            ASSERT_NE(result.h, nullptr) << bits << " bits, width " << width;
            EXPECT_EQ(Tz3GetErrorStatus(), TZ3_OK);
            EXPECT_EQ(FromBlock(result.h), src) << bits << " bits, width " << width;
            EXPECT_TRUE(IsUnlocked(result.h));
            EXPECT_EQ(OnClipboard(), src) << "the data stay the clipboard's";
        }
    }
}

TEST(GetFromClipBrd, ALargerHeaderIsCopiedWhole) {
    ClipboardChoice memory(true);
    std::mt19937 rng(8102);
    std::vector<uint8_t> src = RandomDib(rng, 5, 3, 24);
    src.insert(src.begin() + 40, 68, 0xAB);  // a 108-byte header
    SetField32(src, 0, 108);
    PutOnClipboard(src);
    HandleGuard result(Get());
    ASSERT_NE(result.h, nullptr);
    EXPECT_EQ(FromBlock(result.h), src);
}

TEST(GetFromClipBrd, BitFieldImagesBringTheirTwelveMaskBytes) {
    ClipboardChoice memory(true);
    std::mt19937 rng(8103);
    for (int bits : {16, 32}) {
        // Header, three masks, rows: the layout other programs put on the clipboard.
        const std::vector<uint8_t> plain = RandomDib(rng, 3, 2, bits);
        std::vector<uint8_t> src(plain.begin(), plain.begin() + 40);
        SetField32(src, 16, 3);
        for (int i = 0; i < 12; ++i) src.push_back(static_cast<uint8_t>(0x11 * (i + 1)));
        src.insert(src.end(), plain.begin() + 40, plain.end());
        PutOnClipboard(src);
        HandleGuard result(Get());
        ASSERT_NE(result.h, nullptr) << bits;
        EXPECT_EQ(FromBlock(result.h), src) << bits;
        // Without the 12 bytes the last row would not fit the block: a 12-byte shorter block is
        // refused.
        std::vector<uint8_t> cut(src.begin(), src.end() - 12);
        PutOnClipboard(cut);
        EXPECT_EQ(Get(), nullptr) << bits;
        EXPECT_EQ(Tz3GetErrorStatus(), TZ3_BAD_IMAGE);
    }
}

TEST(GetFromClipBrd, ACoreSizedHeaderIsTakenWithoutMasks) {
    ClipboardChoice memory(true);
    // biSize 12 counts as the header's size, and such a header carries no masks.
    std::vector<uint8_t> src = MakeDibBytes(2, 1, 16);
    SetField32(src, 0, 12);
    SetField32(src, 16, 3);
    PutOnClipboard(src);
    HandleGuard result(Get());
    ASSERT_NE(result.h, nullptr);
    const std::vector<uint8_t> got = FromBlock(result.h);
    EXPECT_EQ(got.size(), 12u + 4u);
    EXPECT_TRUE(std::equal(got.begin(), got.end(), src.begin()));
}

TEST(GetFromClipBrd, DamagedDataGiveStatus7AndAreNotReadPastTheirEnd) {
    ClipboardChoice memory(true);
    std::vector<std::vector<uint8_t>> damaged;
    damaged.push_back({1, 2, 3});                                   // shorter than a header
    damaged.push_back(std::vector<uint8_t>(39, 0));                 // one byte short of a header
    std::vector<uint8_t> shortRows = MakeDibBytes(4, 4, 24);
    shortRows.pop_back();
    damaged.push_back(shortRows);                                   // last row one byte short
    std::vector<uint8_t> tall = MakeDibBytes(4, 4, 24);
    SetField32(tall, 8, 0x7FFFFFFF);
    damaged.push_back(tall);                                        // claims far more rows
    std::vector<uint8_t> bigHeader = MakeDibBytes(2, 2, 24);
    SetField32(bigHeader, 0, 0xFFFFFFF0);
    damaged.push_back(bigHeader);                                   // header larger than the block
    std::vector<uint8_t> bigTable = MakeDibBytes(2, 2, 8, 2);
    SetField32(bigTable, 32, 0x40000001);
    damaged.push_back(bigTable);                                    // table larger than the block
    std::vector<uint8_t> topDown = MakeDibBytes(2, 2, 24);
    SetField32(topDown, 8, static_cast<uint32_t>(-2));
    damaged.push_back(topDown);                                     // rows top-down
    std::vector<uint8_t> wide = MakeDibBytes(2, 2, 32);
    SetField32(wide, 4, 0x08000001);
    damaged.push_back(wide);                                        // a row too wide to address
    std::vector<uint8_t> negativeWidth = MakeDibBytes(2, 2, 24);
    SetField32(negativeWidth, 4, static_cast<uint32_t>(-5));
    damaged.push_back(negativeWidth);
    for (size_t i = 0; i < damaged.size(); ++i) {
        PutOnClipboard(damaged[i]);
        const size_t live = Tz3LiveBlocks();
        EXPECT_EQ(Get(), nullptr) << "case " << i;
        EXPECT_EQ(Tz3GetErrorStatus(), TZ3_BAD_IMAGE) << "case " << i;
        EXPECT_EQ(Tz3LiveBlocks(), live) << "case " << i;
        EXPECT_EQ(OnClipboard(), damaged[i]) << "case " << i;
    }
}

TEST(GetFromClipBrd, AnImageWithoutRowsIsItsHead) {
    ClipboardChoice memory(true);
    const std::vector<uint8_t> src = MakeDibBytes(3, 0, 8, 2);
    PutOnClipboard(src);
    HandleGuard result(Get());
    ASSERT_NE(result.h, nullptr);
    EXPECT_EQ(FromBlock(result.h), src);
}

TEST(GetFromClipBrd, ReportsEachRowOutOfTheHeight) {
    ClipboardChoice memory(true);
    PutOnClipboard(MakeDibBytes(3, 4, 24));
    ProgressRecorder progress;
    HandleGuard result(Get(6));
    ASSERT_NE(result.h, nullptr);
    ASSERT_EQ(progress.calls.size(), 4u);
    for (int32_t i = 0; i < 4; ++i) {
        EXPECT_EQ(progress.calls[i].current, i);
        EXPECT_EQ(progress.calls[i].total, 4) << "the total is the height, not the last row";
        EXPECT_EQ(progress.calls[i].low, 0);
        EXPECT_EQ(progress.calls[i].high, 100);
        EXPECT_EQ(progress.calls[i].noDialog, 6);
    }
}

TEST(GetFromClipBrd, CancellingAtEachRowLeavesTheClipboardAndNoBlock) {
    ClipboardChoice memory(true);
    std::mt19937 rng(8104);
    const std::vector<uint8_t> src = RandomDib(rng, 5, 4, 24);
    PutOnClipboard(src);
    for (long at = 0; at < 4; ++at) {
        const size_t live = Tz3LiveBlocks();
        ProgressRecorder progress(at);
        EXPECT_EQ(Get(), nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), TZ3_CANCELLED);
        EXPECT_EQ(progress.calls.size(), static_cast<size_t>(at + 1));
        EXPECT_EQ(Tz3LiveBlocks(), live);
        EXPECT_EQ(OnClipboard(), src);
    }
}

TEST(GetFromClipBrd, AllocationFailureGivesStatus3AndNoBlock) {
    ClipboardChoice memory(true);
    PutOnClipboard(MakeDibBytes(3, 3, 24));
    const size_t live = Tz3LiveBlocks();
    {
        FailingAllocator failing(0);
        EXPECT_EQ(Get(), nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), TZ3_NO_MEMORY);
        EXPECT_EQ(failing.count, 1);
    }
    EXPECT_EQ(Tz3LiveBlocks(), live);
}

TEST(GetFromClipBrd, ADialogThatDoesNotOpenStopsTheCall) {
    ClipboardChoice memory(true);
    PutOnClipboard(MakeDibBytes(1, 1, 24));
    DialogRecorder dialog(true);
    EXPECT_EQ(TZ3GetFromClipBrd(nullptr, 0, 4, 5, 6), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), TZ3_DIALOG_FAILED);
    EXPECT_EQ(dialog.opens, 1);
    EXPECT_EQ(dialog.closes, 0);
    EXPECT_EQ(dialog.a, 4);
}

TEST(GetFromClipBrd, TheDialogIsClosedOnceAfterItOpened) {
    ClipboardChoice memory(true);
    DialogRecorder dialog;
    EXPECT_EQ(TZ3GetFromClipBrd(nullptr, 0, 1, 2, 3), nullptr);
    EXPECT_EQ(dialog.opens, 1);
    EXPECT_EQ(dialog.closes, 1);
    PutOnClipboard(MakeDibBytes(1, 1, 24));
    HandleGuard result(TZ3GetFromClipBrd(nullptr, 0, 1, 2, 3));
    EXPECT_NE(result.h, nullptr);
    EXPECT_EQ(dialog.closes, 2);
}

TEST(GetFromClipBrd, AFailedOpeningIsNotSeenAndTheClipboardOffersNothing) {
    setenv("DISPLAY", ":9999", 1);
    setenv("TZ3_XCLIP", "/nonexistent/xclip", 1);
    {
        ClipboardChoice system(false);
        EXPECT_EQ(Get(), nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), TZ3_BAD_IMAGE);
        EXPECT_EQ(TZ3IsClipBrdData(nullptr), 0);
    }
    unsetenv("TZ3_XCLIP");
    unsetenv("DISPLAY");
}

TEST(GetFromClipBrd, AnImageGoesThroughTheX11SelectionAndBack) {
    XvfbDisplay x;
    TZ3_REQUIRE_DISPLAY(x);
    ClipboardChoice system(false);
    std::mt19937 rng(8105);
    const std::vector<uint8_t> src = RandomDib(rng, 9, 7, 24);
    HandleGuard image(ToBlock(src));
    EXPECT_EQ(TZ3IsClipBrdData(nullptr), 0);
    ASSERT_EQ(TZ3SetToClipBrd(nullptr, image.h, 1, 0, 0, 0), 1);
    EXPECT_EQ(TZ3IsClipBrdData(nullptr), 1);
    HandleGuard result(Get());
    ASSERT_NE(result.h, nullptr);
    EXPECT_EQ(FromBlock(result.h), src);
    EXPECT_EQ(TZ3ClearClipBrd(nullptr), 1);
    EXPECT_EQ(TZ3IsClipBrdData(nullptr), 0);
    EXPECT_EQ(Get(), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), TZ3_BAD_IMAGE);
}

TEST(GetFromClipBrd, DamagedDataOnTheX11SelectionGiveStatus7) {
    XvfbDisplay x;
    TZ3_REQUIRE_DISPLAY(x);
    ClipboardChoice system(false);
    // A header that claims 8 rows of 8 pixels, with part of one row after it.
    const std::vector<uint8_t> dib = MakeDibBytes(8, 8, 24);
    PutOnClipboard(std::vector<uint8_t>(dib.begin(), dib.begin() + 60));
    EXPECT_EQ(TZ3IsClipBrdData(nullptr), 1);
    const size_t live = Tz3LiveBlocks();
    EXPECT_EQ(Get(), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), TZ3_BAD_IMAGE);
    EXPECT_EQ(Tz3LiveBlocks(), live);
}

}  // namespace
