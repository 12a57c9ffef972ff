// TZ3SetToClipBrd: a copy of the caller's image goes to the clipboard after it is made, so that
// cancelling keeps the clipboard; no room is made for channel masks.
#include <gtest/gtest.h>

#include "platform/clipboard.h"
#include "support/clipboard_env.h"
#include "support/test_images.h"

namespace {

using namespace tz3test;

std::vector<uint8_t> OnClipboard() {
    tz3::OpenClipboard(nullptr);
    DibHandle data = tz3::GetClipboardData(tz3::kClipboardDib);
    std::vector<uint8_t> bytes = data == nullptr ? std::vector<uint8_t>{} : FromBlock(data);
    tz3::CloseClipboard();
    return bytes;
}

int32_t Set(DibHandle image, int32_t noDialog = 1) { return TZ3SetToClipBrd(nullptr, image, noDialog, 0, 0, 0); }

TEST(SetToClipBrd, ImagesOfEveryDepthAndWidthArriveEqualAndStayTheCallers) {
    ClipboardChoice memory(true);
    std::mt19937 rng(8201);
    for (int bits : {1, 4, 8, 16, 24, 32}) {
        for (int width = 1; width <= 33; ++width) {
            const std::vector<uint8_t> src = RandomDib(rng, width, 1 + static_cast<int>(rng() % 4), bits);
            HandleGuard image(ToBlock(src));
            Tz3SetProgressHandler(nullptr, nullptr);
            ASSERT_EQ(Set(image.h), 1) << bits << " bits, width " << width;
            EXPECT_EQ(Tz3GetErrorStatus(), TZ3_OK);
            EXPECT_EQ(OnClipboard(), src);
            EXPECT_EQ(FromBlock(image.h), src);
            EXPECT_TRUE(IsUnlocked(image.h));
        }
    }
}

TEST(SetToClipBrd, AnImageWithTwentyColoursGoesWithTwentyEntries) {
    ClipboardChoice memory(true);
    std::mt19937 rng(8202);
    const std::vector<uint8_t> src = RandomPaletteDib(rng, 6, 3, 8, 20);
    HandleGuard image(ToBlock(src));
    ASSERT_EQ(Set(image.h), 1);
    const std::vector<uint8_t> got = OnClipboard();
    EXPECT_EQ(got.size(), 40u + 20 * 4 + 8 * 3);
    EXPECT_EQ(got, src);
}

TEST(SetToClipBrd, NoRoomIsMadeForChannelMasks) {
    ClipboardChoice memory(true);
    // A 16-bit bit-field image with no table: the copy is header and rows, 12 bytes fewer than the
    // reader would take for such an image.
    std::vector<uint8_t> src = MakeDibBytes(2, 3, 16);
    SetField32(src, 16, 3);
    for (size_t i = 40; i < src.size(); ++i) src[i] = static_cast<uint8_t>(i);
    src.resize(src.size() + 12, 0xEE);  // the caller's block is longer than its image
    HandleGuard image(ToBlock(src));
    ASSERT_EQ(Set(image.h), 1);
    const std::vector<uint8_t> got = OnClipboard();
    ASSERT_EQ(got.size(), 40u + 3 * 4);
    EXPECT_TRUE(std::equal(got.begin(), got.end(), src.begin()));
    EXPECT_EQ(TZ3GetFromClipBrd(nullptr, 1, 0, 0, 0), nullptr) << "the reader wants the 12 bytes";
    EXPECT_EQ(Tz3GetErrorStatus(), TZ3_BAD_IMAGE);
}

TEST(SetToClipBrd, ANullImageGivesStatus7) {
    ClipboardChoice memory(true);
    EXPECT_EQ(Set(nullptr), 0);
    EXPECT_EQ(Tz3GetErrorStatus(), TZ3_BAD_IMAGE);
}

TEST(SetToClipBrd, AnImageLargerThanItsBlockGivesStatus7AndKeepsTheClipboard) {
    ClipboardChoice memory(true);
    const std::vector<uint8_t> before = MakeDibBytes(1, 1, 24);
    HandleGuard first(ToBlock(before));
    ASSERT_EQ(Set(first.h), 1);
    std::vector<uint8_t> shortRows = MakeDibBytes(5, 5, 24);
    shortRows.pop_back();
    std::vector<uint8_t> bigHeader = MakeDibBytes(2, 2, 24);
    SetField32(bigHeader, 0, 0x7FFFFFF0);
    std::vector<uint8_t> topDown = MakeDibBytes(2, 2, 24);
    SetField32(topDown, 8, static_cast<uint32_t>(-2));
    for (const std::vector<uint8_t> &bad :
         {std::vector<uint8_t>(20, 0), shortRows, bigHeader, topDown}) {
        HandleGuard image(ToBlock(bad));
        const size_t live = Tz3LiveBlocks();
        EXPECT_EQ(Set(image.h), 0);
        EXPECT_EQ(Tz3GetErrorStatus(), TZ3_BAD_IMAGE);
        EXPECT_EQ(Tz3LiveBlocks(), live);
        EXPECT_EQ(OnClipboard(), before);
    }
}

TEST(SetToClipBrd, ReportsEachRowOutOfTheHeight) {
    ClipboardChoice memory(true);
    HandleGuard image(ToBlock(MakeDibBytes(2, 5, 8)));
    ProgressRecorder progress;
    ASSERT_EQ(Set(image.h, 9), 1);
    ASSERT_EQ(progress.calls.size(), 5u);
    for (int32_t i = 0; i < 5; ++i) {
        EXPECT_EQ(progress.calls[i].current, i);
        EXPECT_EQ(progress.calls[i].total, 5);
        EXPECT_EQ(progress.calls[i].noDialog, 9);
    }
}

TEST(SetToClipBrd, CancellingAtEachRowKeepsTheClipboardAsItWas) {
    ClipboardChoice memory(true);
    const std::vector<uint8_t> before = MakeDibBytes(1, 1, 24, 0);
    HandleGuard first(ToBlock(before));
    ASSERT_EQ(Set(first.h), 1);
    std::mt19937 rng(8203);
    const std::vector<uint8_t> src = RandomDib(rng, 4, 3, 32);
    HandleGuard image(ToBlock(src));
    for (long at = 0; at < 3; ++at) {
        const size_t live = Tz3LiveBlocks();
        ProgressRecorder progress(at);
        EXPECT_EQ(Set(image.h), 0);
        EXPECT_EQ(Tz3GetErrorStatus(), TZ3_CANCELLED);
        EXPECT_EQ(progress.calls.size(), static_cast<size_t>(at + 1));
        EXPECT_EQ(Tz3LiveBlocks(), live);
        EXPECT_EQ(OnClipboard(), before);
        EXPECT_EQ(FromBlock(image.h), src);
        EXPECT_TRUE(IsUnlocked(image.h));
    }
}

TEST(SetToClipBrd, AllocationFailureGivesStatus3AndKeepsTheClipboard) {
    ClipboardChoice memory(true);
    const std::vector<uint8_t> before = MakeDibBytes(1, 1, 24);
    HandleGuard first(ToBlock(before));
    ASSERT_EQ(Set(first.h), 1);
    HandleGuard image(ToBlock(MakeDibBytes(3, 3, 24)));
    const size_t live = Tz3LiveBlocks();
    {
        FailingAllocator failing(0);
        EXPECT_EQ(Set(image.h), 0);
        EXPECT_EQ(Tz3GetErrorStatus(), TZ3_NO_MEMORY);
        EXPECT_EQ(failing.count, 1);
    }
    EXPECT_EQ(Tz3LiveBlocks(), live);
    EXPECT_EQ(OnClipboard(), before);
}

TEST(SetToClipBrd, ADialogThatDoesNotOpenLeavesTheClipboard) {
    ClipboardChoice memory(true);
    HandleGuard image(ToBlock(MakeDibBytes(1, 1, 24)));
    DialogRecorder dialog(true);
    EXPECT_EQ(TZ3SetToClipBrd(nullptr, image.h, 0, 1, 2, 3), 0);
    EXPECT_EQ(Tz3GetErrorStatus(), TZ3_DIALOG_FAILED);
    EXPECT_TRUE(OnClipboard().empty());
}

TEST(SetToClipBrd, ASystemClipboardThatCannotBeReachedIsNotSeenUntilItIsRead) {
    setenv("DISPLAY", ":9999", 1);
    setenv("TZ3_XCLIP", "/nonexistent/xclip", 1);
    {
        ClipboardChoice system(false);
        HandleGuard image(ToBlock(MakeDibBytes(2, 2, 24)));
        const size_t live = Tz3LiveBlocks();
        EXPECT_EQ(Set(image.h), 1);
        EXPECT_EQ(Tz3GetErrorStatus(), TZ3_OK);
        EXPECT_EQ(Tz3LiveBlocks(), live) << "the block the clipboard refused is freed";
        EXPECT_EQ(TZ3IsClipBrdData(nullptr), 0);
    }
    unsetenv("TZ3_XCLIP");
    unsetenv("DISPLAY");
}

}  // namespace
