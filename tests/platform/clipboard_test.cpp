// The clipboard service: the store inside the process, and the X11 selection through xclip on a
// private Xvfb display (skipped where none can be started).
#include "platform/clipboard.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <thread>
#include <vector>

#include "support/clipboard_env.h"
#include "support/test_images.h"
#include "support/xclip_runner.h"
#include "support/xvfb_display.h"

namespace {

using namespace tz3test;

DibHandle BlockWith(const std::vector<uint8_t> &bytes) { return ToBlock(bytes); }

// Sets an environment variable for the life of the record.
class EnvSetting {
public:
    EnvSetting(const char *name, const char *value) : name_(name) {
        const char *old = std::getenv(name);
        had_ = old != nullptr;
        if (had_) old_ = old;
        setenv(name, value, 1);
    }
    ~EnvSetting() {
        if (had_) {
            setenv(name_, old_.c_str(), 1);
        } else {
            unsetenv(name_);
        }
    }

private:
    const char *name_;
    bool had_ = false;
    std::string old_;
};

TEST(MemoryClipboard, NothingIsHandedOutWithoutOpening) {
    ClipboardChoice memory(true);
    EXPECT_EQ(tz3::GetClipboardData(tz3::kClipboardDib), nullptr);
    EXPECT_EQ(tz3::CloseClipboard(), 0);
}

TEST(MemoryClipboard, HoldsTheBlockItWasGivenUntilEmptied) {
    ClipboardChoice memory(true);
    const size_t live = Tz3LiveBlocks();
    ASSERT_EQ(tz3::OpenClipboard(nullptr), 1);
    EXPECT_EQ(tz3::GetClipboardData(tz3::kClipboardDib), nullptr);
    DibHandle block = BlockWith(MakeDibBytes(3, 2, 24));
    EXPECT_EQ(tz3::SetClipboardData(tz3::kClipboardDib, block), 1);
    EXPECT_EQ(tz3::GetClipboardData(tz3::kClipboardDib), block);
    EXPECT_EQ(tz3::GetClipboardData(2), nullptr) << "only the packed-bitmap format is kept";
    EXPECT_EQ(tz3::CloseClipboard(), 1);
    EXPECT_EQ(Tz3LiveBlocks(), live + 1) << "the clipboard owns the block";
    ASSERT_EQ(tz3::OpenClipboard(nullptr), 1);
    EXPECT_EQ(tz3::GetClipboardData(tz3::kClipboardDib), block);
    EXPECT_EQ(tz3::EmptyClipboard(), 1);
    EXPECT_EQ(tz3::GetClipboardData(tz3::kClipboardDib), nullptr);
    EXPECT_EQ(tz3::CloseClipboard(), 1);
    EXPECT_EQ(Tz3LiveBlocks(), live);
}

TEST(MemoryClipboard, ANewBlockReplacesTheOldOne) {
    ClipboardChoice memory(true);
    const size_t live = Tz3LiveBlocks();
    ASSERT_EQ(tz3::OpenClipboard(nullptr), 1);
    tz3::SetClipboardData(tz3::kClipboardDib, BlockWith(MakeDibBytes(1, 1, 24)));
    DibHandle second = BlockWith(MakeDibBytes(2, 1, 24));
    tz3::SetClipboardData(tz3::kClipboardDib, second);
    EXPECT_EQ(tz3::GetClipboardData(tz3::kClipboardDib), second);
    tz3::CloseClipboard();
    EXPECT_EQ(Tz3LiveBlocks(), live + 1);
}

TEST(MemoryClipboard, ABlockGivenToAClosedClipboardIsFreed) {
    ClipboardChoice memory(true);
    const size_t live = Tz3LiveBlocks();
    EXPECT_EQ(tz3::SetClipboardData(tz3::kClipboardDib, BlockWith(MakeDibBytes(1, 1, 24))), 0);
    EXPECT_EQ(Tz3LiveBlocks(), live);
}

TEST(MemoryClipboard, ThreadsHoldTheClipboardOneAtATime) {
    ClipboardChoice memory(true);
    std::atomic<int> mismatches{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t, &mismatches] {
            for (int i = 0; i < 200; ++i) {
                tz3::OpenClipboard(nullptr);
                tz3::EmptyClipboard();
                std::vector<uint8_t> bytes = MakeDibBytes(1, 1, 24);
                bytes[40] = static_cast<uint8_t>(t);
                bytes[41] = static_cast<uint8_t>(i);
                tz3::SetClipboardData(tz3::kClipboardDib, ToBlock(bytes));
                std::this_thread::yield();
                DibHandle held = tz3::GetClipboardData(tz3::kClipboardDib);
                const auto *p = held == nullptr ? nullptr : static_cast<const uint8_t *>(Tz3GlobalLock(held));
                if (p == nullptr || p[40] != t || p[41] != static_cast<uint8_t>(i)) ++mismatches;
                if (p != nullptr) Tz3GlobalUnlock(held);
                tz3::CloseClipboard();
            }
        });
    }
    for (std::thread &th : threads) th.join();
    EXPECT_EQ(mismatches.load(), 0);
}

TEST(SystemClipboard, WithoutXclipNothingIsReachedAndNothingLeaks) {
    EnvSetting display("DISPLAY", ":9999");
    EnvSetting xclip("TZ3_XCLIP", "/nonexistent/xclip");
    ClipboardChoice system(false);
    const size_t live = Tz3LiveBlocks();
    EXPECT_EQ(tz3::OpenClipboard(nullptr), 0);
    EXPECT_EQ(tz3::EmptyClipboard(), 0);
    EXPECT_EQ(tz3::GetClipboardData(tz3::kClipboardDib), nullptr);
    EXPECT_EQ(tz3::SetClipboardData(tz3::kClipboardDib, BlockWith(MakeDibBytes(1, 1, 24))), 0);
    EXPECT_EQ(tz3::CloseClipboard(), 0);
    EXPECT_EQ(Tz3LiveBlocks(), live);
}

TEST(SystemClipboard, APackedBitmapComesBackByteForByte) {
    XvfbDisplay x;
    TZ3_REQUIRE_DISPLAY(x);
    ClipboardChoice system(false);
    std::mt19937 rng(81);
    const std::vector<uint8_t> bytes = RandomDib(rng, 7, 5, 24);
    const size_t live = Tz3LiveBlocks();
    ASSERT_EQ(tz3::OpenClipboard(nullptr), 1);
    EXPECT_EQ(tz3::EmptyClipboard(), 1);
    EXPECT_EQ(tz3::SetClipboardData(tz3::kClipboardDib, ToBlock(bytes)), 1);
    EXPECT_EQ(tz3::CloseClipboard(), 1);
    EXPECT_EQ(Tz3LiveBlocks(), live) << "the display keeps its own copy";
    ASSERT_EQ(tz3::OpenClipboard(nullptr), 1);
    DibHandle data = tz3::GetClipboardData(tz3::kClipboardDib);
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(FromBlock(data), bytes);
    EXPECT_EQ(tz3::GetClipboardData(tz3::kClipboardDib), data) << "fetched once per opening";
    EXPECT_EQ(tz3::CloseClipboard(), 1);
    EXPECT_EQ(Tz3LiveBlocks(), live) << "the fetched block ends with the opening";
}

TEST(SystemClipboard, EmptyingLeavesNoImageOnTheSelection) {
    XvfbDisplay x;
    TZ3_REQUIRE_DISPLAY(x);
    ClipboardChoice system(false);
    ASSERT_EQ(tz3::OpenClipboard(nullptr), 1);
    tz3::SetClipboardData(tz3::kClipboardDib, ToBlock(MakeDibBytes(2, 2, 24)));
    tz3::CloseClipboard();
    ASSERT_EQ(tz3::OpenClipboard(nullptr), 1);
    EXPECT_EQ(tz3::EmptyClipboard(), 1);
    EXPECT_EQ(tz3::GetClipboardData(tz3::kClipboardDib), nullptr);
    tz3::CloseClipboard();
}

TEST(SystemClipboard, AnEmptySelectionOffersNothing) {
    XvfbDisplay x;
    TZ3_REQUIRE_DISPLAY(x);
    ClipboardChoice system(false);
    ASSERT_EQ(tz3::OpenClipboard(nullptr), 1);
    EXPECT_EQ(tz3::GetClipboardData(tz3::kClipboardDib), nullptr);
    EXPECT_EQ(tz3::CloseClipboard(), 1);
}

TEST(SystemClipboard, APngIsReadWhenItIsAllTheSelectionOffers) {
    XvfbDisplay x;
    TZ3_REQUIRE_DISPLAY(x);
    ClipboardChoice system(false);
    // 3 x 2 pixels, top row red, green, blue; bottom row white, black, and gray half transparent.
    const std::vector<uint8_t> rgba = {255, 0, 0, 255, 0, 255, 0, 255, 0, 0, 255, 255,
                                       255, 255, 255, 255, 0, 0, 0, 255, 200, 200, 200, 0};
    const std::vector<uint8_t> png = EncodePngRgba(3, 2, rgba);
    ASSERT_FALSE(png.empty());
    ASSERT_TRUE(OfferOnSelection("image/png", png));
    ASSERT_EQ(tz3::OpenClipboard(nullptr), 1);
    DibHandle data = tz3::GetClipboardData(tz3::kClipboardDib);
    ASSERT_NE(data, nullptr);
    const std::vector<uint8_t> dib = FromBlock(data);
    tz3::CloseClipboard();
    ASSERT_EQ(dib.size(), 40u + 2 * 12);
    EXPECT_EQ(Field32(dib, 0), 40u);
    EXPECT_EQ(ImageWidth(dib), 3);
    EXPECT_EQ(ImageHeight(dib), 2);
    EXPECT_EQ(WordAt(dib, 14), 24);
    // Bottom row first, blue green red; a fully transparent pixel lies over black.
    const std::vector<uint8_t> bottom(dib.begin() + 40, dib.begin() + 49);
    EXPECT_EQ(bottom, (std::vector<uint8_t>{255, 255, 255, 0, 0, 0, 0, 0, 0}));
    const std::vector<uint8_t> top(dib.begin() + 52, dib.begin() + 61);
    EXPECT_EQ(top, (std::vector<uint8_t>{0, 0, 255, 0, 255, 0, 255, 0, 0}));
}

TEST(SystemClipboard, ABitmapFileShorterThanItsHeadGivesNoData) {
    XvfbDisplay x;
    TZ3_REQUIRE_DISPLAY(x);
    ClipboardChoice system(false);
    ASSERT_TRUE(OfferOnSelection("image/bmp", std::vector<uint8_t>{'B', 'M', 1, 2, 3}));
    ASSERT_EQ(tz3::OpenClipboard(nullptr), 1);
    EXPECT_EQ(tz3::GetClipboardData(tz3::kClipboardDib), nullptr);
    tz3::CloseClipboard();
}

}  // namespace
