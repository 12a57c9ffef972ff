// TZ3ClearClipBrd: empties the clipboard; status 0 on entry, no dialog, CloseClipboard's result.
#include <gtest/gtest.h>

#include "support/clipboard_env.h"
#include "support/test_images.h"

namespace {

using namespace tz3test;

TEST(ClearClipBrd, EmptiesTheClipboardAndFreesItsBlock) {
    ClipboardChoice memory(true);
    const size_t live = Tz3LiveBlocks();
    HandleGuard image(ToBlock(MakeDibBytes(3, 3, 8)));
    ASSERT_EQ(TZ3SetToClipBrd(nullptr, image.h, 1, 0, 0, 0), 1);
    EXPECT_EQ(Tz3LiveBlocks(), live + 2);
    EXPECT_EQ(TZ3ClearClipBrd(nullptr), 1);
    EXPECT_EQ(Tz3LiveBlocks(), live + 1);
    EXPECT_EQ(TZ3IsClipBrdData(nullptr), 0);
    EXPECT_EQ(TZ3GetFromClipBrd(nullptr, 1, 0, 0, 0), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), TZ3_BAD_IMAGE);
}

TEST(ClearClipBrd, AnEmptyClipboardClearsToo) {
    ClipboardChoice memory(true);
    EXPECT_EQ(TZ3ClearClipBrd(nullptr), 1);
    EXPECT_EQ(TZ3ClearClipBrd(nullptr), 1);
}

TEST(ClearClipBrd, SetsStatus0AndOpensNoDialog) {
    ClipboardChoice memory(true);
    DialogRecorder dialog;
    EXPECT_EQ(TZ3SetToClipBrd(nullptr, nullptr, 1, 0, 0, 0), 0);
    ASSERT_EQ(Tz3GetErrorStatus(), TZ3_BAD_IMAGE);
    TZ3ClearClipBrd(nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), TZ3_OK);
    EXPECT_EQ(dialog.opens, 0);
}

TEST(ClearClipBrd, ASystemClipboardThatCannotBeReachedGivesZero) {
    setenv("DISPLAY", ":9999", 1);
    setenv("TZ3_XCLIP", "/nonexistent/xclip", 1);
    {
        ClipboardChoice system(false);
        EXPECT_EQ(TZ3ClearClipBrd(nullptr), 0);
        EXPECT_EQ(Tz3GetErrorStatus(), TZ3_OK);
    }
    unsetenv("TZ3_XCLIP");
    unsetenv("DISPLAY");
}

}  // namespace
