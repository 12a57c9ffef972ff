// The companion services: per-thread status, progress and dialog, and the bitmap header services.
#include "platform/companion.h"

#include <gtest/gtest.h>

#include <barrier>
#include <cstring>
#include <thread>
#include <vector>

#include "support/test_images.h"
#include "tz3effect.h"

namespace {

using tz3test::MakeDibBytes;

void Put32(std::vector<uint8_t> &d, size_t at, uint32_t v) { std::memcpy(&d[at], &v, 4); }

// A 16 or 32-bit image whose three channel masks are its first three colour table entries.
std::vector<uint8_t> BitFieldDib(int bitCount, uint32_t red, uint32_t green, uint32_t blue) {
    std::vector<uint8_t> d = MakeDibBytes(2, 2, bitCount, 3);
    Put32(d, 16, 3);
    Put32(d, 40, red);
    Put32(d, 44, green);
    Put32(d, 48, blue);
    return d;
}

// ---- Status, progress and dialog ----

TEST(CompanionStatus, SetStatusIsWhatGetErrorStatusReads) {
    for (int32_t code : {0, 1, 2, 3, 4, 5, 7, 9}) {
        tz3::SetErrorStatus(code);
        EXPECT_EQ(Tz3GetErrorStatus(), code);
        EXPECT_EQ(tz3::ErrorStatus(), code);
    }
}

TEST(CompanionStatus, EachThreadKeepsItsOwnStatus) {
    std::barrier sync(2);
    int32_t seenA = -1, seenB = -1;
    std::thread a([&] {
        tz3::SetErrorStatus(3);
        sync.arrive_and_wait();  // both have set
        sync.arrive_and_wait();  // both have read once
        seenA = Tz3GetErrorStatus();
    });
    std::thread b([&] {
        tz3::SetErrorStatus(7);
        sync.arrive_and_wait();
        sync.arrive_and_wait();
        seenB = Tz3GetErrorStatus();
    });
    a.join();
    b.join();
    EXPECT_EQ(seenA, 3);
    EXPECT_EQ(seenB, 7);
}

TEST(CompanionStatus, NewThreadStartsWithStatusZero) {
    tz3::SetErrorStatus(5);
    int32_t seen = -1;
    std::thread t([&] { seen = Tz3GetErrorStatus(); });
    t.join();
    EXPECT_EQ(seen, 0);
    EXPECT_EQ(Tz3GetErrorStatus(), 5);
}

TEST(CompanionProgress, DefaultGoesOnForAnyTotalIncludingZeroAndMinusOne) {
    Tz3SetProgressHandler(nullptr, nullptr);
    EXPECT_NE(tz3::PercentProgress(0, 0, 0, 100, 0), 0);
    EXPECT_NE(tz3::PercentProgress(0, -1, 0, 100, 0), 0);
    EXPECT_NE(tz3::PercentProgress(5, 9, 30, 60, 1), 0);
    EXPECT_NE(tz3::PercentProgress(-3, -1, 0, 100, 256), 0);
}

TEST(CompanionProgress, HandlerGetsTheFiveValuesAndDecides) {
    tz3test::ProgressRecorder recorder(1);
    EXPECT_NE(tz3::PercentProgress(0, 9, 30, 60, 0), 0);
    EXPECT_EQ(tz3::PercentProgress(1, -1, 0, 100, 0x10000), 0);  // the recorder cancels its second call
    EXPECT_NE(tz3::PercentProgress(2, 0, 51, 100, 1), 0);
    ASSERT_EQ(recorder.calls.size(), 3u);
    EXPECT_EQ(recorder.calls[0].current, 0);
    EXPECT_EQ(recorder.calls[0].total, 9);
    EXPECT_EQ(recorder.calls[0].low, 30);
    EXPECT_EQ(recorder.calls[0].high, 60);
    EXPECT_EQ(recorder.calls[0].noDialog, 0);
    EXPECT_EQ(recorder.calls[1].current, 1);
    EXPECT_EQ(recorder.calls[1].total, -1);
    EXPECT_EQ(recorder.calls[1].noDialog, 0x10000);
    EXPECT_EQ(recorder.calls[2].low, 51);
    EXPECT_EQ(recorder.calls[2].noDialog, 1);
}

int32_t AlwaysCancel(void *user, int32_t, int32_t, int32_t, int32_t, int32_t) {
    ++*static_cast<int *>(user);
    return 0;
}

TEST(CompanionProgress, NullHandlerRestoresTheDefault) {
    int calls = 0;
    Tz3SetProgressHandler(AlwaysCancel, &calls);
    EXPECT_EQ(tz3::PercentProgress(0, 1, 0, 100, 0), 0);
    Tz3SetProgressHandler(nullptr, &calls);
    EXPECT_NE(tz3::PercentProgress(0, 1, 0, 100, 0), 0);
    EXPECT_EQ(calls, 1);
}

TEST(CompanionProgress, HandlerBelongsToTheThreadThatSetIt) {
    int calls = 0;
    Tz3SetProgressHandler(AlwaysCancel, &calls);
    int32_t otherThread = -1;
    std::thread t([&] { otherThread = tz3::PercentProgress(0, 3, 0, 100, 0); });
    t.join();
    EXPECT_NE(otherThread, 0);  // the other thread has the default, which goes on
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(tz3::PercentProgress(0, 3, 0, 100, 0), 0);
    EXPECT_EQ(calls, 1);
    Tz3SetProgressHandler(nullptr, nullptr);
}

TEST(CompanionDialog, DefaultOpenSucceedsAndCloseDoesNothing) {
    Tz3SetDialogHandlers(nullptr, nullptr, nullptr);
    EXPECT_NE(tz3::PercentDlgOpen(1, 2, 3), 0);
    tz3::PercentDlgClose();
}

TEST(CompanionDialog, HandlersGetTheThreeValuesAndOpenFailureIsZero) {
    int marker = 0;
    {
        tz3test::DialogRecorder recorder;
        EXPECT_NE(tz3::PercentDlgOpen(-7, INTPTR_MAX, reinterpret_cast<intptr_t>(&marker)), 0);
        EXPECT_EQ(recorder.opens, 1);
        EXPECT_EQ(recorder.a, -7);
        EXPECT_EQ(recorder.b, INTPTR_MAX);
        EXPECT_EQ(recorder.c, reinterpret_cast<intptr_t>(&marker));
        EXPECT_EQ(recorder.closes, 0);
        tz3::PercentDlgClose();
        EXPECT_EQ(recorder.closes, 1);
    }
    {
        tz3test::DialogRecorder failing(true);
        EXPECT_EQ(tz3::PercentDlgOpen(0, 0, 0), 0);
        EXPECT_EQ(failing.opens, 1);
    }
    // The recorders restored the default on leaving their scope.
    EXPECT_NE(tz3::PercentDlgOpen(0, 0, 0), 0);
}

TEST(CompanionDialog, HandlersBelongToTheThreadThatSetThem) {
    tz3test::DialogRecorder failing(true);
    int32_t otherOpen = 0;
    std::thread t([&] {
        otherOpen = tz3::PercentDlgOpen(4, 5, 6);
        tz3::PercentDlgClose();
    });
    t.join();
    EXPECT_NE(otherOpen, 0);
    EXPECT_EQ(failing.opens, 0);
    EXPECT_EQ(failing.closes, 0);
    EXPECT_EQ(tz3::PercentDlgOpen(4, 5, 6), 0);
    EXPECT_EQ(failing.opens, 1);
}

// ---- Colour table sizes ----

TEST(CompanionHeader, DibNumColorsByDepthWhenClrUsedIsZero) {
    const struct {
        int bits;
        uint32_t colours;
    } cases[] = {{1, 2}, {4, 16}, {8, 256}, {16, 0}, {24, 0}, {32, 0}};
    for (const auto &c : cases) {
        const auto d = MakeDibBytes(3, 2, c.bits);
        EXPECT_EQ(tz3::DibNumColors(d.data()), c.colours) << c.bits;
        EXPECT_EQ(tz3::GetDibPalSize(d.data()), 4 * c.colours) << c.bits;
    }
}

TEST(CompanionHeader, DibNumColorsIsClrUsedWhenSet) {
    const struct {
        int bits;
        uint32_t used;
    } cases[] = {{1, 1}, {4, 5}, {8, 200}, {8, 256}, {16, 3}, {24, 7}, {32, 3}};
    for (const auto &c : cases) {
        const auto d = MakeDibBytes(3, 2, c.bits, c.used);
        EXPECT_EQ(tz3::DibNumColors(d.data()), c.used) << c.bits;
        EXPECT_EQ(tz3::GetDibPalSize(d.data()), 4 * c.used) << c.bits;
    }
}

TEST(CompanionHeader, PalSizeCountsNoChannelMasksOfBitFieldImages) {
    auto d = MakeDibBytes(3, 2, 16);
    Put32(d, 16, 3);  // bit fields with biClrUsed 0: no table entries
    EXPECT_EQ(tz3::DibNumColors(d.data()), 0u);
    EXPECT_EQ(tz3::GetDibPalSize(d.data()), 0u);
    const auto withMasks = BitFieldDib(16, 0xF800, 0x07E0, 0x001F);
    EXPECT_EQ(tz3::GetDibPalSize(withMasks.data()), 12u);
}

// ---- 16 and 32-bit channel masks ----

TEST(CompanionHeader, Bmp16InfoPlainRgbIs555) {
    const auto d = MakeDibBytes(2, 2, 16);
    EXPECT_EQ(tz3::GetBmp16Info(d.data()), 1);
}

TEST(CompanionHeader, Bmp16InfoBitFields555Is3) {
    EXPECT_EQ(tz3::GetBmp16Info(BitFieldDib(16, 0x7C00, 0x03E0, 0x001F).data()), 3);
}

TEST(CompanionHeader, Bmp16InfoBitFields565Is2) {
    EXPECT_EQ(tz3::GetBmp16Info(BitFieldDib(16, 0xF800, 0x07E0, 0x001F).data()), 2);
}

TEST(CompanionHeader, Bmp16InfoOtherMasksAreUnusable) {
    EXPECT_EQ(tz3::GetBmp16Info(BitFieldDib(16, 0x001F, 0x07E0, 0xF800).data()), -1);
    EXPECT_EQ(tz3::GetBmp16Info(BitFieldDib(16, 0x0F00, 0x00F0, 0x000F).data()), -1);
    EXPECT_EQ(tz3::GetBmp16Info(BitFieldDib(16, 0x7C00, 0x03E0, 0x003F).data()), -1);
}

TEST(CompanionHeader, Bmp16InfoBitFieldsWithoutTableEntriesAreUnusable) {
    auto d = MakeDibBytes(2, 2, 16);
    Put32(d, 16, 3);
    EXPECT_EQ(tz3::GetBmp16Info(d.data()), -1);
}

TEST(CompanionHeader, Bmp16InfoOtherCompressionsAreUnusable) {
    for (uint32_t compression : {1u, 2u, 4u, 5u, 6u, 0x100u}) {
        auto d = BitFieldDib(16, 0x7C00, 0x03E0, 0x001F);
        Put32(d, 16, compression);
        EXPECT_EQ(tz3::GetBmp16Info(d.data()), -1) << compression;
    }
}

TEST(CompanionHeader, Bmp32InfoPlainRgbIsZero) {
    const auto d = MakeDibBytes(2, 2, 32);
    EXPECT_EQ(tz3::GetBmp32Info(d.data()), 0);
}

TEST(CompanionHeader, Bmp32InfoBlueGreenRedBitFieldsAreOne) {
    EXPECT_EQ(tz3::GetBmp32Info(BitFieldDib(32, 0x00FF0000, 0x0000FF00, 0x000000FF).data()), 1);
}

TEST(CompanionHeader, Bmp32InfoOtherMasksAreUnusable) {
    EXPECT_EQ(tz3::GetBmp32Info(BitFieldDib(32, 0x000000FF, 0x0000FF00, 0x00FF0000).data()), -1);
    EXPECT_EQ(tz3::GetBmp32Info(BitFieldDib(32, 0xFF000000, 0x00FF0000, 0x0000FF00).data()), -1);
    EXPECT_EQ(tz3::GetBmp32Info(BitFieldDib(32, 0x3FF00000, 0x000FFC00, 0x000003FF).data()), -1);
    auto noTable = MakeDibBytes(2, 2, 32);
    Put32(noTable, 16, 3);
    EXPECT_EQ(tz3::GetBmp32Info(noTable.data()), -1);
}

TEST(CompanionHeader, Bmp32InfoOtherCompressionsAreUnusable) {
    for (uint32_t compression : {1u, 2u, 4u, 6u}) {
        auto d = BitFieldDib(32, 0x00FF0000, 0x0000FF00, 0x000000FF);
        Put32(d, 16, compression);
        EXPECT_EQ(tz3::GetBmp32Info(d.data()), -1) << compression;
    }
}

}  // namespace
