// TZ3IsClipBrdData: whether the clipboard holds a packed bitmap; status 0 on entry, no dialog.
#include <gtest/gtest.h>

#include "platform/clipboard.h"
#include "support/clipboard_env.h"
#include "support/test_images.h"

namespace {

using namespace tz3test;

TEST(IsClipBrdData, TellsWhetherAnImageIsOnTheClipboard) {
    ClipboardChoice memory(true);
    EXPECT_EQ(TZ3IsClipBrdData(nullptr), 0);
    HandleGuard image(ToBlock(MakeDibBytes(2, 2, 24)));
    ASSERT_EQ(TZ3SetToClipBrd(nullptr, image.h, 1, 0, 0, 0), 1);
    EXPECT_EQ(TZ3IsClipBrdData(nullptr), 1);
    EXPECT_EQ(TZ3IsClipBrdData(nullptr), 1) << "asking takes nothing away";
}

TEST(IsClipBrdData, SetsStatus0AndOpensNoDialog) {
    ClipboardChoice memory(true);
    DialogRecorder dialog;
    ProgressRecorder progress;
    // A failed call before leaves status 7; asking clears it, whatever the answer.
    EXPECT_EQ(TZ3GetFromClipBrd(nullptr, 1, 0, 0, 0), nullptr);
    ASSERT_EQ(Tz3GetErrorStatus(), TZ3_BAD_IMAGE);
    EXPECT_EQ(TZ3IsClipBrdData(nullptr), 0);
    EXPECT_EQ(Tz3GetErrorStatus(), TZ3_OK);
    EXPECT_EQ(dialog.opens, 0);
    EXPECT_TRUE(progress.calls.empty());
}

TEST(IsClipBrdData, DamagedDataStillCountAsData) {
    ClipboardChoice memory(true);
    DibHandle junk = ToBlock(std::vector<uint8_t>{1, 2, 3});
    tz3::OpenClipboard(nullptr);
    tz3::SetClipboardData(tz3::kClipboardDib, junk);
    tz3::CloseClipboard();
    // Only the reader looks inside the data.
    EXPECT_EQ(TZ3IsClipBrdData(nullptr), 1);
}

}  // namespace
