// TZ3ConvertColor as a whole: the source-by-target matrix and its refused cells, the target code's
// low 16 bits, the null image, refused formats, the header of every result, every path against a
// plain transcription of the rules over every format and width, progress spans, cancellation and
// allocation failure on every path, and two conversions on two threads at once.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <thread>

#include "support/convert_calls.h"
#include "support/convert_reference.h"
#include "support/test_images.h"
#include "support/tone_harness.h"
#include "tz3effect.h"

using namespace tz3test;

namespace {

const int kTargets[] = {1, 4, 8, 16, 24, 32, 80};

std::string Name(Format f) { return f.is565 ? "16 (5-6-5)" : std::to_string(f.bits); }

// A random source with its resolution and biClrImportant set, which the result keeps and drops.
std::vector<uint8_t> Source(std::mt19937 &rng, Format f, int width, int height) {
    std::vector<uint8_t> src = RandomSource(rng, f, width, height);
    SetField32(src, 24, 2835);
    SetField32(src, 28, 1417);
    SetField32(src, 36, 7);
    return src;
}

bool Refused(Format f, int target) { return f.bits == target; }

TEST(ConvertColorFrame, EveryCellOfTheMatrixConvertsExceptEqualDepths) {
    std::mt19937 rng(401);
    for (const Format f : kFormats) {
        const std::vector<uint8_t> src = Source(rng, f, 5, 3);
        for (int target : kTargets) {
            for (int dither : {0, 1}) {
                const Converted c = ConvertBytes(src, target, 0, dither);
                const std::string what = Name(f) + " to " + std::to_string(target);
                if (Refused(f, target)) {
                    EXPECT_TRUE(c.bytes.empty()) << what;
                    EXPECT_EQ(c.status, 5) << what;
                } else {
                    ASSERT_FALSE(c.bytes.empty()) << what << " status " << c.status;
                    EXPECT_EQ(c.status, 0) << what;
                    EXPECT_EQ(c.bytes[14], target == 80 ? 8 : target) << what;
                }
            }
        }
    }
}

TEST(ConvertColorFrame, OneBitToOneBitIsRefused) {
    std::mt19937 rng(402);
    const Converted c = ConvertBytes(RandomDib(rng, 9, 2, 1), 1, 1, 1, 0);
    EXPECT_TRUE(c.bytes.empty());
    EXPECT_EQ(c.status, 5);
}

TEST(ConvertColorFrame, GrayCodeOnAnEightBitImageIsNoEqualDepth) {
    std::mt19937 rng(403);
    std::vector<uint8_t> gray = RandomDib(rng, 4, 2, 8);
    for (int i = 0; i < 256; ++i) gray[40 + 4 * i] = gray[41 + 4 * i] = gray[42 + 4 * i] = static_cast<uint8_t>(i);
    for (const auto &src : {RandomDib(rng, 4, 2, 8), gray}) {
        const Converted c = ConvertBytes(src, 80, 0, 1);
        ASSERT_FALSE(c.bytes.empty());
        EXPECT_EQ(c.status, 0);
        EXPECT_EQ(c.bytes, ReferenceConvert(src, 80, 0, 1, 128));
    }
}

TEST(ConvertColorFrame, UnknownTargetCodesAndSourceDepthsAreBadParameters) {
    std::mt19937 rng(404);
    const std::vector<uint8_t> src = RandomDib(rng, 4, 2, 24);
    for (int target : {0, 2, 3, 5, 7, 12, 64, 79, 81, 65536 + 2, -1}) {
        const Converted c = ConvertBytes(src, target, 0, 0);
        EXPECT_TRUE(c.bytes.empty()) << target;
        EXPECT_EQ(c.status, 5) << target;
    }
    for (int bits : {0, 2, 15, 48}) {
        std::vector<uint8_t> odd = src;
        odd[14] = static_cast<uint8_t>(bits);
        const Converted c = ConvertBytes(odd, 8, 0, 0);
        EXPECT_TRUE(c.bytes.empty()) << bits;
        EXPECT_EQ(c.status, 5) << bits;
    }
}

TEST(ConvertColorFrame, TargetCodeIsReadFromItsLowSixteenBits) {
    std::mt19937 rng(405);
    const std::vector<uint8_t> src = RandomDib(rng, 6, 3, 24);
    // 65,544 is 0x10008: low 16 bits 8.
    const Converted high = ConvertBytes(src, 65544, 1, 1);
    EXPECT_EQ(high.status, 0);
    EXPECT_EQ(high.bytes, ConvertBytes(src, 8, 1, 1).bytes);
    EXPECT_EQ(ConvertBytes(src, 0x20000 + 80, 0, 0).bytes, ConvertBytes(src, 80, 0, 0).bytes);
}

TEST(ConvertColorFrame, FlagsCountByAnyBitAndTheThresholdByItsLowByte) {
    std::mt19937 rng(406);
    const std::vector<uint8_t> src = RandomDib(rng, 9, 4, 24);
    EXPECT_EQ(ConvertBytes(src, 8, 0x100, 0).bytes, ConvertBytes(src, 8, 1, 0).bytes);
    EXPECT_EQ(ConvertBytes(src, 4, 0, 0x10000).bytes, ConvertBytes(src, 4, 0, 1).bytes);
    EXPECT_EQ(ConvertBytes(src, 1, 0, 0, 256 + 90).bytes, ConvertBytes(src, 1, 0, 0, 90).bytes);
    EXPECT_EQ(ConvertBytes(src, 1, 0, 0, 256).bytes, ConvertBytes(src, 1, 0, 0, 0).bytes);
}

TEST(ConvertColorFrame, NullImageKeepsThePreviousStatus) {
    std::mt19937 rng(407);
    for (int previous : {5, 7}) {
        // Leave a known status behind: an unknown target (5) or a refused 16-bit format (7).
        std::vector<uint8_t> src = RandomDib(rng, 3, 3, 16);
        if (previous == 7) src[16] = 9;
        ConvertBytes(src, previous == 5 ? 2 : 24);
        ASSERT_EQ(Tz3GetErrorStatus(), previous);
        EXPECT_EQ(TZ3ConvertColor(nullptr, 24, 0, 0, 0, 1, 0, 0, 0), nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), previous);
    }
}

TEST(ConvertColorFrame, FormatsTheLibraryCannotReadAreBadImages) {
    std::mt19937 rng(408);
    // 16-bit bit fields that are neither 5-5-5 nor 5-6-5.
    std::vector<uint8_t> masks = RandomDib(rng, 4, 3, 16, true);
    SetField32(masks, 40, 0x0F00);
    // 32-bit pixels with a compression the library does not know.
    std::vector<uint8_t> compressed = RandomDib(rng, 4, 3, 32);
    SetField32(compressed, 16, 5);
    for (const auto &src : {masks, compressed}) {
        for (int target : {1, 8, 24}) {
            const Converted c = ConvertBytes(src, target, 0, 0);
            EXPECT_TRUE(c.bytes.empty());
            EXPECT_EQ(c.status, 7) << "depth " << int(src[14]) << " to " << target;
        }
    }
}

TEST(ConvertColorFrame, BlocksShorterThanTheirHeaderClaimsAreBadImages) {
    std::mt19937 rng(409);
    for (const Format f : kFormats) {
        std::vector<uint8_t> src = RandomDib(rng, 8, 8, f.bits, f.is565);
        src.pop_back();
        const int target = f.bits == 24 ? 8 : 24;
        const Converted c = ConvertBytes(src, target, 0, 0);
        EXPECT_TRUE(c.bytes.empty()) << Name(f);
        EXPECT_EQ(c.status, 7) << Name(f);
    }
    // Not even a header.
    const Converted tiny = ConvertBytes(std::vector<uint8_t>(20, 0), 24);
    EXPECT_TRUE(tiny.bytes.empty());
    EXPECT_EQ(tiny.status, 7);
}

TEST(ConvertColorFrame, AHeaderSizeBelowFortyIsABadImage) {
    std::mt19937 rng(410);
    std::vector<uint8_t> src = RandomDib(rng, 4, 4, 24);
    SetField32(src, 0, 12);
    const Converted c = ConvertBytes(src, 32);
    EXPECT_TRUE(c.bytes.empty());
    EXPECT_EQ(c.status, 7);
}

TEST(ConvertColorFrame, ImagesWithoutRowsOrColumnsAreBadParameters) {
    for (auto [w, h] : {std::pair{0, 3}, std::pair{3, 0}, std::pair{-2, 3}}) {
        std::vector<uint8_t> src = MakeDibBytes(4, 3, 24);
        SetField32(src, 4, static_cast<uint32_t>(w));
        SetField32(src, 8, static_cast<uint32_t>(h));
        const Converted c = ConvertBytes(src, 8);
        EXPECT_TRUE(c.bytes.empty()) << w << "x" << h;
        EXPECT_EQ(c.status, 5) << w << "x" << h;
    }
}

// A source whose header says biSize 44: the rows of source and result lie at biSize plus the
// table, while the result's header says 40.
TEST(ConvertColorFrame, RowsOfSourceAndResultLieAtTheSourcesHeaderSize) {
    std::mt19937 rng(411);
    for (const Format f : kFormats) {
        std::vector<uint8_t> plain = RandomDib(rng, 5, 3, f.bits, f.is565);
        const size_t rows = PixelOffset(plain);
        std::vector<uint8_t> src(plain.begin(), plain.begin() + static_cast<std::ptrdiff_t>(rows));
        src.insert(src.end(), {0xAA, 0xBB, 0xCC, 0xDD});
        src.insert(src.end(), plain.begin() + static_cast<std::ptrdiff_t>(rows), plain.end());
        SetField32(src, 0, 44);
        for (int target : kTargets) {
            if (Refused(f, target)) continue;
            const int fixed = target == 4 || target == 8 ? 1 : 0;
            const Converted c = ConvertBytes(src, target, fixed, 1);
            ASSERT_FALSE(c.bytes.empty()) << Name(f) << " to " << target << " status " << c.status;
            EXPECT_EQ(c.bytes, ReferenceConvert(src, target, fixed, 1, 128)) << Name(f) << " to " << target;
            EXPECT_EQ(Field32(c.bytes, 0), 40u);
            // The result is four bytes longer than the same conversion of the plain image, and
            // holds the same rows four bytes further on.
            const Converted p = ConvertBytes(plain, target, fixed, 1);
            ASSERT_EQ(c.bytes.size(), p.bytes.size() + 4);
            const size_t at = PixelOffset(p.bytes);
            EXPECT_TRUE(std::equal(p.bytes.begin() + static_cast<std::ptrdiff_t>(at), p.bytes.end(),
                                   c.bytes.begin() + static_cast<std::ptrdiff_t>(at + 4)));
        }
    }
}

TEST(ConvertColorFrame, HeaderOfEveryResult) {
    std::mt19937 rng(412);
    for (const Format f : kFormats) {
        const std::vector<uint8_t> src = Source(rng, f, 7, 3);
        for (int target : kTargets) {
            if (Refused(f, target)) continue;
            for (int fixed : {0, 1}) {
                const Converted c = ConvertBytes(src, target, fixed, 0);
                ASSERT_FALSE(c.bytes.empty());
                const auto &d = c.bytes;
                const int bits = target == 80 ? 8 : target;
                const std::string what = Name(f) + " to " + std::to_string(target) + " fixed " + std::to_string(fixed);
                EXPECT_EQ(Field32(d, 0), 40u) << what;
                EXPECT_EQ(ImageWidth(d), 7) << what;
                EXPECT_EQ(ImageHeight(d), 3) << what;
                EXPECT_EQ(WordAt(d, 12), 1) << what;
                EXPECT_EQ(WordAt(d, 14), bits) << what;
                EXPECT_EQ(Field32(d, 16), 0u) << what;
                EXPECT_EQ(Field32(d, 20), RowBytes(bits, 7) * 3) << what;
                // The resolution survives the conversion; biClrImportant does not.
                EXPECT_EQ(Field32(d, 24), 2835u) << what;
                EXPECT_EQ(Field32(d, 28), 1417u) << what;
                EXPECT_EQ(Field32(d, 36), 0u) << what;
                uint32_t clrUsed = 0;
                const bool widening = f.bits <= bits;
                if (widening && (target == 4 || target == 8)) clrUsed = TableEntries(src);
                if (!widening && target == 8 && fixed) clrUsed = 216;
                EXPECT_EQ(Field32(d, 32), clrUsed) << what;
                EXPECT_EQ(d.size(), PixelOffset(d) + RowBytes(bits, 7) * 3u) << what;
            }
        }
    }
}

// Every path but the median cut (which has its own file) over every format, every width 1..33
// and random heights, flags and thresholds.
TEST(ConvertColorFrame, EveryPathMatchesTheRulesInEveryFormatAndWidth) {
    std::mt19937 rng(413);
    for (const Format f : kFormats) {
        for (int width = 1; width <= 33; ++width) {
            const std::vector<uint8_t> src = Source(rng, f, width, 1 + static_cast<int>(rng() % 5));
            for (int target : kTargets) {
                if (Refused(f, target)) continue;
                int fixed = static_cast<int>(rng() % 2);
                // A table of the image's own from a direct source is the median cut's.
                if (f.bits >= 16 && (target == 4 || target == 8)) fixed = 1;
                const int dither = static_cast<int>(rng() % 2);
                const int threshold = static_cast<int>(rng() % 256);
                const Converted c = ConvertBytes(src, target, fixed, dither, threshold);
                ASSERT_EQ(c.status, 0);
                EXPECT_EQ(c.bytes, ReferenceConvert(src, target, fixed, dither, threshold))
                    << Name(f) << " to " << target << ", width " << width << Describe(", flags", fixed, dither, threshold);
            }
        }
    }
}

// ---- Progress, cancellation and allocation failure, one case per path ----

struct PathCase {
    const char *name;
    Format source;
    int target, fixed, dither;
};

const PathCase kPaths[] = {
    {"widening 4 to 8", {4, false}, 8, 0, 0},
    {"widening 8 to gray", {8, false}, 80, 0, 0},
    {"widening 1 to 32", {1, false}, 32, 0, 0},
    {"direct widening 16 to 24", {16, true}, 24, 0, 0},
    {"direct reduction 32 to 16", {32, false}, 16, 0, 0},
    {"fixed cube 24 to 8", {24, false}, 8, 1, 1},
    {"fixed 16 colours 8 to 4", {8, false}, 4, 1, 1},
    {"threshold 4 to 1", {4, false}, 1, 0, 1},
    {"gray 24 to gray", {24, false}, 80, 0, 1},
    {"median cut 24 to 8", {24, false}, 8, 0, 1},
    {"median cut 16 to 4", {16, false}, 4, 0, 0},
    {"popularity 8 to 4", {8, false}, 4, 0, 1},
};

// The progress calls of a path on an image of `height` rows, as (current, total, low, high).
std::vector<ProgressCall> ExpectedProgress(const PathCase &p, int height, int32_t noDialog) {
    std::vector<ProgressCall> calls;
    const auto rows = [&](int low) {
        for (int y = 0; y < height; ++y) calls.push_back(ProgressCall{y, height, low, 100, noDialog});
    };
    const bool median = p.source.bits >= 16 && (p.target == 4 || p.target == 8) && p.fixed == 0;
    const bool popularity = p.source.bits == 8 && p.target == 4 && p.fixed == 0;
    if (median) {
        const int leaves = p.target == 8 ? 256 : 16;
        for (int y = 0; y < height; ++y) calls.push_back(ProgressCall{y, height, 0, 30, noDialog});
        for (int s = 1; s <= leaves - 1; ++s) calls.push_back(ProgressCall{s, leaves - 1, 30, 60, noDialog});
        for (int i = 0; i < leaves; ++i) calls.push_back(ProgressCall{i, leaves - 1, 60, 70, noDialog});
        rows(70);
    } else if (popularity) {
        for (int y = 0; y < height; ++y) calls.push_back(ProgressCall{y, height, 0, 10, noDialog});
        rows(10);
    } else {
        rows(0);
    }
    return calls;
}

DibHandle RunPath(DibHandle image, const PathCase &p, int32_t noDialog = 1) {
    return TZ3ConvertColor(image, p.target, p.fixed, p.dither, 100, noDialog, 0, 0, 0);
}

TEST(ConvertColorFrame, ProgressSpansOfEveryPath) {
    std::mt19937 rng(414);
    for (const PathCase &p : kPaths) {
        const std::vector<uint8_t> src = RandomDib(rng, 6, 4, p.source.bits, p.source.is565);
        HandleGuard image(ToBlock(src));
        ProgressRecorder progress;
        HandleGuard out(RunPath(image.h, p, 7));
        ASSERT_NE(out.h, nullptr) << p.name;
        const std::vector<ProgressCall> expected = ExpectedProgress(p, 4, 7);
        ASSERT_EQ(progress.calls.size(), expected.size()) << p.name;
        for (size_t i = 0; i < expected.size(); ++i) {
            const ProgressCall &a = progress.calls[i], &e = expected[i];
            EXPECT_TRUE(a.current == e.current && a.total == e.total && a.low == e.low && a.high == e.high &&
                        a.noDialog == e.noDialog)
                << p.name << " call " << i << Describe(": got", a.current, a.total, a.low, a.high, a.noDialog)
                << Describe(", expected", e.current, e.total, e.low, e.high, e.noDialog);
        }
    }
}

TEST(ConvertColorFrame, DialogOpensOnceAndClosesOnceUnlessNoDialog) {
    std::mt19937 rng(415);
    const std::vector<uint8_t> src = RandomDib(rng, 6, 4, 24);
    HandleGuard image(ToBlock(src));
    {
        DialogRecorder dialog;
        HandleGuard out(TZ3ConvertColor(image.h, 8, 0, 1, 0, 0, 11, 22, 33));
        EXPECT_NE(out.h, nullptr);
        EXPECT_EQ(dialog.opens, 1);
        EXPECT_EQ(dialog.closes, 1);
        EXPECT_EQ(dialog.a, 11);
        EXPECT_EQ(dialog.b, 22);
        EXPECT_EQ(dialog.c, 33);
    }
    {
        DialogRecorder dialog;
        HandleGuard out(TZ3ConvertColor(image.h, 8, 0, 1, 0, 1, 11, 22, 33));
        EXPECT_NE(out.h, nullptr);
        EXPECT_EQ(dialog.opens, 0);
        EXPECT_EQ(dialog.closes, 0);
    }
    {
        // A refused call closes the dialog it opened too.
        DialogRecorder dialog;
        EXPECT_EQ(TZ3ConvertColor(image.h, 24, 0, 0, 0, 0, 0, 0, 0), nullptr);
        EXPECT_EQ(dialog.opens, 1);
        EXPECT_EQ(dialog.closes, 1);
    }
    {
        DialogRecorder dialog(true);
        EXPECT_EQ(TZ3ConvertColor(image.h, 8, 0, 0, 0, 0, 0, 0, 0), nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 2);
        EXPECT_EQ(dialog.closes, 0);
    }
    ExpectCallerBlocksUnchanged(image.h, src);
}

// Cancelling at any progress call gives no result and leaves no block behind. The status is 1,
// except during the popularity count, where the step's failure path reports 3 over the cancel.
TEST(ConvertColorFrame, CancelAtEveryProgressCallOfEveryPath) {
    std::mt19937 rng(416);
    for (const PathCase &p : kPaths) {
        const std::vector<uint8_t> src = RandomDib(rng, 5, 3, p.source.bits, p.source.is565);
        HandleGuard image(ToBlock(src));
        const std::vector<ProgressCall> expected = ExpectedProgress(p, 3, 1);
        const bool popularity = p.source.bits == 8 && p.target == 4 && p.fixed == 0;
        const size_t live = Tz3LiveBlocks();
        for (size_t at = 0; at < expected.size(); ++at) {
            // The 256-colour cut has 255 splits and 256 leaves: there every stage is cancelled at its
            // first three and last three calls, which keeps the run short; the 16-colour cut is
            // cancelled at every call of every stage.
            const bool stageEdge = at < 3 || at + 3 >= expected.size() || expected[at].low != expected[at - 3].low ||
                                   expected[at].low != expected[at + 3].low;
            if (expected.size() > 100 && !stageEdge) continue;
            ProgressRecorder progress(static_cast<long>(at));
            EXPECT_EQ(RunPath(image.h, p), nullptr) << p.name << " cancel at " << at;
            const bool counting = popularity && expected[at].high == 10;
            EXPECT_EQ(Tz3GetErrorStatus(), counting ? 3 : 1) << p.name << " cancel at " << at;
            EXPECT_EQ(progress.calls.size(), at + 1) << p.name;
            EXPECT_EQ(Tz3LiveBlocks(), live) << p.name << " cancel at " << at;
        }
        ExpectCallerBlocksUnchanged(image.h, src);
    }
}

// Each allocation of each path fails in turn: no result, status 3, no block left behind. The row
// of indices of a palette widening is the exception: its failure sets no status, so the call ends
// with the 0 it set on entry.
TEST(ConvertColorFrame, FailureOfEveryAllocationOfEveryPath) {
    std::mt19937 rng(417);
    for (const PathCase &p : kPaths) {
        const std::vector<uint8_t> src = RandomDib(rng, 5, 3, p.source.bits, p.source.is565);
        HandleGuard image(ToBlock(src));
        const auto once = [&] { return RunPath(image.h, p); };
        long allocations = 0;
        ASSERT_NO_FATAL_FAILURE(CountAllocations(once, &allocations));
        const bool paletteWidening = p.source.bits <= 8 && p.target > p.source.bits;
        const size_t live = Tz3LiveBlocks();
        for (long at = 0; at < allocations; ++at) {
            FailingAllocator failing(at);
            EXPECT_EQ(once(), nullptr) << p.name << " failing allocation " << at;
            // The widening's allocations: the result, the row of indices, the luma tables.
            const int expected = paletteWidening && at == 1 ? 0 : 3;
            EXPECT_EQ(Tz3GetErrorStatus(), expected) << p.name << " failing allocation " << at;
            EXPECT_EQ(Tz3LiveBlocks(), live) << p.name;
        }
        ExpectCallerBlocksUnchanged(image.h, src);
    }
}

// The number of blocks each kind of path asks for: the result, then the path's own blocks.
TEST(ConvertColorFrame, AllocationsOfEachPath) {
    std::mt19937 rng(418);
    const auto count = [&](Format f, int target, int fixed) {
        const std::vector<uint8_t> src = RandomDib(rng, 5, 3, f.bits, f.is565);
        HandleGuard image(ToBlock(src));
        long n = 0;
        CountAllocations([&] { return TZ3ConvertColor(image.h, target, fixed, 1, 0, 1, 0, 0, 0); }, &n);
        return n;
    };
    EXPECT_EQ(count({24, false}, 32, 0), 1);            // result
    EXPECT_EQ(count({32, false}, 24, 0), 1);            // result
    EXPECT_EQ(count({8, false}, 24, 0), 3);             // result, row of indices, luma tables
    EXPECT_EQ(count({24, false}, 4, 1), 5);             // result, colours, two error rows, luma tables
    EXPECT_EQ(count({24, false}, 8, 1), 6);             // and the level table
    EXPECT_EQ(count({24, false}, 8, 0), 8);             // result, histogram, map, boxes, four of the rows
    EXPECT_EQ(count({8, false}, 4, 0), 6);              // result, cells, four of the rows
}

TEST(ConvertColorFrame, TwoThreadsConvertingAtOnceGiveWhatEachGivesAlone) {
    std::mt19937 rng(419);
    const std::vector<uint8_t> a = RandomDib(rng, 61, 47, 24);
    const std::vector<uint8_t> b = RandomDib(rng, 53, 41, 32);
    const std::vector<uint8_t> aloneA = ConvertBytes(a, 8, 0, 1).bytes;
    const std::vector<uint8_t> aloneB = ConvertBytes(b, 4, 0, 1).bytes;
    ASSERT_FALSE(aloneA.empty());
    ASSERT_FALSE(aloneB.empty());
    for (int round = 0; round < 4; ++round) {
        std::vector<uint8_t> gotA, gotB;
        int32_t statusA = -1, statusB = -1;
        std::thread ta([&] {
            for (int i = 0; i < 5; ++i) {
                const Converted c = ConvertBytes(a, 8, 0, 1);
                gotA = c.bytes;
                statusA = c.status;
                if (gotA != aloneA) break;
            }
        });
        std::thread tb([&] {
            for (int i = 0; i < 5; ++i) {
                const Converted c = ConvertBytes(b, 4, 0, 1);
                gotB = c.bytes;
                statusB = c.status;
                if (gotB != aloneB) break;
            }
        });
        ta.join();
        tb.join();
        EXPECT_EQ(gotA, aloneA);
        EXPECT_EQ(gotB, aloneB);
        EXPECT_EQ(statusA, 0);
        EXPECT_EQ(statusB, 0);
    }
}

}  // namespace
