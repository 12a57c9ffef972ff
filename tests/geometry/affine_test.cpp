// The quadrilateral warp: corner ordering, sizes, the row copy with its clipping, the inverse bilinear
// warp with its splat, every depth, progress, cancellation, allocation failure and the statuses.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>

#include "support/geometry_reference.h"
#include "support/tone_harness.h"
#include "support/tone_reference.h"
#include "tz3effect.h"

namespace {

using namespace tz3test;

using Corners = int32_t[8];

DibHandle Call(DibHandle image, const Corners &p, int32_t noDialog = 1) {
    return TZ3Affine(image, p[0], p[1], p[2], p[3], p[4], p[5], p[6], p[7], noDialog, 0, 0, 0);
}

// The export on a copy of src; the caller's block must come back as it was. Empty when it fails.
std::vector<uint8_t> Warp(const std::vector<uint8_t> &src, const Corners &p) {
    HandleGuard image(ToBlock(src));
    HandleGuard out(Call(image.h, p));
    ExpectCallerBlocksUnchanged(image.h, src);
    if (out.h == nullptr) return {};
    EXPECT_EQ(Tz3GetErrorStatus(), 0);
    return FromBlock(out.h);
}

std::string Describe8(const Corners &p) {
    return Describe(", points", p[0], p[1], p[2], p[3], p[4], p[5], p[6], p[7]);
}

// A 24-bit image whose pixel (x, y) holds x in red, y in green and 77 in blue.
std::vector<uint8_t> Numbered24(int width, int height) {
    std::vector<uint8_t> d = MakeDibBytes(width, height, 24);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const size_t at = PixelOffset(d) + RowBytes(24, width) * static_cast<size_t>(y) + 3 * static_cast<size_t>(x);
            d[at] = 77;
            d[at + 1] = static_cast<uint8_t>(y);
            d[at + 2] = static_cast<uint8_t>(x);
        }
    return d;
}

void RandomCorners(std::mt19937 &rng, int w, int h, Corners &p) {
    const auto near = [&](int v, int n) { return v + static_cast<int>(rng() % 7) - 3 + (rng() % 10 == 0 ? n : 0); };
    switch (rng() % 3) {
        case 0:  // anywhere, some outside the image
            for (int i = 0; i < 8; ++i) p[i] = static_cast<int32_t>(rng() % (i % 2 == 0 ? w + 6 : h + 6)) - 3;
            break;
        case 1: {  // a mildly skewed quadrilateral around a box
            const int x0 = static_cast<int>(rng() % (w / 2 + 1)), y0 = static_cast<int>(rng() % (h / 2 + 1));
            const int x1 = w / 2 + static_cast<int>(rng() % (w / 2 + 1)), y1 = h / 2 + static_cast<int>(rng() % (h / 2 + 1));
            const int32_t q[8] = {near(x0, 0), near(y1, 0), near(x0, 0), near(y0, 0),
                                  near(x1, 0), near(y0, 0), near(x1, w), near(y1, h)};
            std::copy(q, q + 8, p);
            break;
        }
        default: {  // a rectangle within 2 pixels, listed in a random order
            const int x0 = static_cast<int>(rng() % (w / 2 + 1)), y0 = static_cast<int>(rng() % (h / 2 + 1));
            const int x1 = x0 + 1 + static_cast<int>(rng() % w), y1 = y0 + 1 + static_cast<int>(rng() % h);
            std::array<std::array<int32_t, 2>, 4> q = {{{x0 + static_cast<int>(rng() % 3), y1 - static_cast<int>(rng() % 3)},
                                                        {x0, y0 + static_cast<int>(rng() % 3)},
                                                        {x1 - static_cast<int>(rng() % 3), y0},
                                                        {x1, y1}}};
            std::shuffle(q.begin(), q.end(), rng);
            for (int i = 0; i < 4; ++i) {
                p[2 * i] = q[i][0];
                p[2 * i + 1] = q[i][1];
            }
            break;
        }
    }
}

TEST(TZ3Affine, MatchesTheLiteralRulesInEveryFormatAndWidth) {
    std::mt19937 rng(606);
    int made = 0, refused = 0;
    for (const Format f : kFormats) {
        for (int width = 1; width <= 33; ++width) {
            for (int trial = 0; trial < 4; ++trial) {
                const int height = 1 + static_cast<int>(rng() % 12);
                const std::vector<uint8_t> src = RandomSource(rng, f, width, height);
                Corners p;
                RandomCorners(rng, width, height, p);
                const std::vector<uint8_t> expected = ReferenceAffine(src, p);
                const std::vector<uint8_t> got = Warp(src, p);
                ASSERT_EQ(got, expected) << f.bits << " bits (565 " << f.is565 << "), " << width << "x" << height
                                         << Describe8(p);
                (expected.empty() ? refused : made) += 1;
            }
        }
    }
    EXPECT_GT(made, 300);
    EXPECT_GT(refused, 10);
}

TEST(TZ3Affine, LargerSkewedQuadrilateralsMatchTheLiteralRules) {
    std::mt19937 rng(707);
    for (const Format f : kFormats) {
        for (int trial = 0; trial < 8; ++trial) {
            const int width = 30 + static_cast<int>(rng() % 40), height = 30 + static_cast<int>(rng() % 40);
            const std::vector<uint8_t> src = RandomSource(rng, f, width, height);
            const Corners p = {static_cast<int32_t>(rng() % 8),          height - 1 - static_cast<int32_t>(rng() % 8),
                               static_cast<int32_t>(rng() % 8),          static_cast<int32_t>(rng() % 8),
                               width - 1 - static_cast<int32_t>(rng() % 12), static_cast<int32_t>(rng() % 8),
                               width - 1 - static_cast<int32_t>(rng() % 12), height - 1 - static_cast<int32_t>(rng() % 12)};
            const std::vector<uint8_t> expected = ReferenceAffine(src, p);
            ASSERT_FALSE(expected.empty());
            ASSERT_EQ(Warp(src, p), expected) << f.bits << " bits" << Describe8(p);
        }
    }
}

TEST(TZ3Affine, AnExactRectangleInAnyOrderIsAPlainCrop) {
    const int W = 12, H = 9;
    const std::vector<uint8_t> src = Numbered24(W, H);
    // A = (2, 7), B = (2, 3), C = (9, 3), D = (9, 7): a 7 by 4 crop of picture rows 3..6.
    std::array<std::array<int32_t, 2>, 4> q = {{{2, 7}, {2, 3}, {9, 3}, {9, 7}}};
    std::sort(q.begin(), q.end());
    do {
        const Corners p = {q[0][0], q[0][1], q[1][0], q[1][1], q[2][0], q[2][1], q[3][0], q[3][1]};
        const std::vector<uint8_t> got = Warp(src, p);
        ASSERT_EQ(ImageWidth(got), 7) << Describe8(p);
        ASSERT_EQ(ImageHeight(got), 4);
        // Target row height2 - n holds source row H - (B.y + n - 1), from column A.x.
        for (int n = 1; n <= 4; ++n)
            for (int i = 0; i < 7; ++i) EXPECT_EQ(RawPixel(got, i, 4 - n), RawPixel(src, 2 + i, H - (3 + n - 1)));
    } while (std::next_permutation(q.begin(), q.end()));
}

TEST(TZ3Affine, RowCopyOfSubBytePixelsStartsAtTheByteBoundary) {
    std::mt19937 rng(808);
    for (int bits : {1, 4}) {
        const std::vector<uint8_t> src = RandomDib(rng, 40, 10, bits);
        const Corners p = {3, 8, 3, 2, 30, 2, 30, 8};
        const std::vector<uint8_t> got = Warp(src, p);
        ASSERT_EQ(ImageWidth(got), 27);
        for (int n = 1; n <= 6; ++n)
            for (int i = 0; i < 27; ++i) {
                const int from = bits == 1 ? i : i + 2;  // byte 0 (1 bit) or byte 1 (4 bits)
                EXPECT_EQ(RawPixel(got, i, 6 - n), RawPixel(src, from, 10 - (2 + n - 1))) << bits;
            }
    }
}

TEST(TZ3Affine, RowCopyClipsRowsAndLengthToTheNewImage) {
    // A = (0, 12), B = (2, 1), C = (10, 0), D = (8, 10): the image is 6 by 9 while the copy runs
    // 8 pixels wide and 11 rows high.
    std::mt19937 rng(909);
    for (const Format f : kFormats) {
        const std::vector<uint8_t> src = RandomDib(rng, 14, 14, f.bits, f.is565);
        const Corners p = {0, 12, 2, 1, 10, 0, 8, 10};
        const std::vector<uint8_t> got = Warp(src, p);
        ASSERT_EQ(ImageWidth(got), 6);
        ASSERT_EQ(ImageHeight(got), 9);
        EXPECT_EQ(got, ReferenceAffine(src, p)) << f.bits;
        // Target row 11 - n for n = 1 is row 10, past the image: the first copied row is n = 3.
        EXPECT_EQ(RawPixel(got, 0, 8), RawPixel(src, 0, 14 - 3));
    }
}

TEST(TZ3Affine, RowCopyFromTheTopRowLeavesTheRowPastThePixelsAtZero) {
    // B.y = 0 would read row H, one past the pixels: its target row stays zero. The block is sized
    // exactly, so a read of that row would leave it.
    const std::vector<uint8_t> src = Numbered24(6, 5);
    const Corners p = {0, 4, 0, 0, 5, 0, 5, 4};
    const std::vector<uint8_t> got = Warp(src, p);
    ASSERT_EQ(ImageHeight(got), 4);
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(RawPixel(got, i, 3), 0u);
        EXPECT_EQ(RawPixel(got, i, 2), RawPixel(src, i, 4));
        EXPECT_EQ(RawPixel(got, i, 0), RawPixel(src, i, 2));
    }
}

TEST(TZ3Affine, ACopyRunningPastTheBlockReadsZeroThere) {
    // An 8-bit 4 x 4 image: the copy of width 1 from column 2 takes 4 bytes, two of which lie past
    // the last row and so past the exactly sized block; they come out as 0. The rows below reach into
    // the next row, which lies inside the block and is read as it is.
    std::mt19937 rng(123);
    std::vector<uint8_t> src = RandomDib(rng, 4, 4, 8);
    for (size_t i = PixelOffset(src); i < src.size(); ++i) src[i] = static_cast<uint8_t>(i | 1);
    const Corners top = {2, 2, 2, 1, 3, 1, 3, 2};
    const std::vector<uint8_t> got = Warp(src, top);
    ASSERT_EQ(ImageWidth(got), 1);
    ASSERT_EQ(got, ReferenceAffine(src, top));
    const size_t row = PixelOffset(got);
    EXPECT_EQ(got[row], src[PixelOffset(src) + 12 + 2]);
    EXPECT_EQ(got[row + 1], src[PixelOffset(src) + 12 + 3]);
    EXPECT_EQ(got[row + 2], 0);
    EXPECT_EQ(got[row + 3], 0);
    const Corners lower = {2, 3, 2, 2, 3, 2, 3, 3};
    const std::vector<uint8_t> next = Warp(src, lower);
    EXPECT_EQ(next[PixelOffset(next) + 2], src[PixelOffset(src) + 8 + 4]) << "the next row, inside the block";
}

TEST(TZ3Affine, ParallelogramIsATrueAffineMap) {
    // B - A = D - ... : A = (2, 20), B = (8, 4), C = (30, 4), D = (24, 20), so C - A = (B - A) + (D - A).
    std::mt19937 rng(111);
    const std::vector<uint8_t> src = RandomDib(rng, 34, 24, 24);
    const Corners p = {2, 20, 8, 4, 30, 4, 24, 20};
    const std::vector<uint8_t> got = Warp(src, p);
    const int nw = 24 - 8, nh = 20 - 4;
    ASSERT_EQ(ImageWidth(got), nw);
    ASSERT_EQ(ImageHeight(got), nh);
    // p = q = 1 reduces the warp to s = u and t = v.
    std::vector<uint8_t> expected = MakeDibBytes(nw, nh, 24);
    const double det = static_cast<double>((4 - 20) * (24 - 2) - (8 - 2) * (20 - 20));
    for (int y = 4; y < 20; ++y)
        for (int x = 2; x < 30; ++x) {
            const uint32_t value = y == 0 ? 0 : RawPixel(src, x, 24 - y);
            const double u = ((4 - 20) * (x - 2) - (8 - 2) * (y - 20)) / det;
            const double v = ((24 - 2) * (y - 20) - (20 - 20) * (x - 2)) / det;
            const double col = std::trunc(nw * u), k = std::trunc(nh - nh * v);
            if (col < 0 || col > nw - 1 || k < 0 || k > nh - 1) continue;
            const int c = static_cast<int>(col), r = nh - static_cast<int>(k) - 1;
            const auto put = [&](int cx, int cy) {
                const size_t at = PixelOffset(expected) + RowBytes(24, nw) * static_cast<size_t>(cy) + 3 * static_cast<size_t>(cx);
                for (int b = 0; b < 3; ++b) expected[at + b] = static_cast<uint8_t>(value >> (8 * b));
            };
            put(c, r);
            if (c + 1 < nw) put(c + 1, r);
            if (r + 1 < nh) put(c, r + 1);
        }
    EXPECT_EQ(std::vector<uint8_t>(got.begin() + 40, got.end()), std::vector<uint8_t>(expected.begin() + 40, expected.end()));
}

TEST(TZ3Affine, CornersBeyondTheImageClampAndGiveOneLessThanItsSize) {
    std::mt19937 rng(222);
    const std::vector<uint8_t> src = RandomDib(rng, 10, 7, 24);
    const Corners p = {-5, 100, -5, -5, 50, -20, 50, 50};
    const std::vector<uint8_t> got = Warp(src, p);
    EXPECT_EQ(ImageWidth(got), 9);
    EXPECT_EQ(ImageHeight(got), 6);
    EXPECT_EQ(got, ReferenceAffine(src, p));
}

TEST(TZ3Affine, DegenerateQuadrilateralsFailWithStatus5) {
    const std::vector<uint8_t> src = Numbered24(10, 10);
    HandleGuard image(ToBlock(src));
    const size_t live = Tz3LiveBlocks();
    const Corners same = {4, 4, 4, 4, 4, 4, 4, 4};
    const Corners vertical = {3, 1, 3, 5, 3, 8, 7, 4};  // three on the line x = 3
    const Corners flat = {1, 5, 2, 5, 8, 5, 9, 5};
    for (const Corners *p : {&same, &vertical, &flat}) {
        EXPECT_EQ(Call(image.h, *p), nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 5);
        EXPECT_EQ(Tz3LiveBlocks(), live);
    }
    ExpectCallerBlocksUnchanged(image.h, src);
}

TEST(TZ3Affine, AWarpTouchingTheTopRowPaintsItsEdgeDark) {
    // The same quadrilateral one row lower on an image one row taller maps every pixel to the same
    // place, since only differences of coordinates count; there no pixel comes from row H, so its
    // zeros are the holes alone. Every further zero of the first result is a painted dark pixel.
    const auto white = [](int w, int h) {
        std::vector<uint8_t> d = MakeDibBytes(w, h, 24);
        std::fill(d.begin() + 40, d.end(), 255);
        return d;
    };
    const std::vector<uint8_t> src = white(20, 16), taller = white(20, 17);
    const Corners touching = {4, 0, 18, 0, 19, 11, 5, 10};
    const Corners lower = {4, 1, 18, 1, 19, 12, 5, 11};
    const std::vector<uint8_t> got = Warp(src, touching);
    const std::vector<uint8_t> holesOnly = Warp(taller, lower);
    ASSERT_EQ(got, ReferenceAffine(src, touching));
    ASSERT_EQ(ImageWidth(got), ImageWidth(holesOnly));
    ASSERT_EQ(ImageHeight(got), ImageHeight(holesOnly));
    int dark = 0;
    for (int y = 0; y < ImageHeight(got); ++y)
        for (int x = 0; x < ImageWidth(got); ++x) {
            const bool hole = RawPixel(holesOnly, x, y) == 0;
            if (hole) {
                EXPECT_EQ(RawPixel(got, x, y), 0u);
            } else if (RawPixel(got, x, y) == 0) {
                ++dark;
            }
        }
    EXPECT_GT(dark, 0) << "source row y = 0 reads as 0 and is painted";
}

TEST(TZ3Affine, ACornerPulledFarOutCompressesAndLeavesHolesAtZero) {
    const int W = 40, H = 40;
    std::vector<uint8_t> src = MakeDibBytes(W, H, 24);
    std::fill(src.begin() + 40, src.end(), 200);
    const Corners p = {2, 30, 2, 5, 30, 5, 39, 39};
    const std::vector<uint8_t> got = Warp(src, p);
    ASSERT_EQ(got, ReferenceAffine(src, p));
    int holes = 0;
    for (int y = 0; y < ImageHeight(got); ++y)
        for (int x = 0; x < ImageWidth(got); ++x) holes += RawPixel(got, x, y) == 0 ? 1 : 0;
    EXPECT_LT(holes, ImageWidth(got) * ImageHeight(got) / 2);
}

TEST(TZ3Affine, SixteenBitWarpLosesALevelWhileTheRowCopyKeepsTheWords) {
    for (bool is565 : {false, true}) {
        std::mt19937 rng(333);
        const std::vector<uint8_t> src = RandomDib(rng, 20, 20, 16, is565);
        const Corners crop = {2, 15, 2, 3, 14, 3, 14, 15};
        const std::vector<uint8_t> copied = Warp(src, crop);
        EXPECT_EQ(RawPixel(copied, 0, 0), RawPixel(src, 2, 20 - 14));
        const Corners skew = {1, 15, 5, 3, 16, 2, 14, 18};
        const std::vector<uint8_t> warped = Warp(src, skew);
        ASSERT_EQ(warped, ReferenceAffine(src, skew));
        bool anyLoss = false;
        // Every word that comes out is a source word expanded and packed once (or 0 from a hole).
        std::vector<bool> packed(65536, false);
        packed[0] = true;
        for (int y = 0; y < 20; ++y)
            for (int x = 0; x < 20; ++x)
                packed[Pack16(Expand16(static_cast<uint16_t>(RawPixel(src, x, y)), is565), is565)] = true;
        for (int y = 0; y < ImageHeight(warped); ++y)
            for (int x = 0; x < ImageWidth(warped); ++x) EXPECT_TRUE(packed[RawPixel(warped, x, y)]);
        for (int y = 0; y < 20 && !anyLoss; ++y)
            for (int x = 0; x < 20; ++x) {
                const auto w = static_cast<uint16_t>(RawPixel(src, x, y));
                if (Pack16(Expand16(w, is565), is565) != w) anyLoss = true;
            }
        EXPECT_TRUE(anyLoss);
    }
}

TEST(TZ3Affine, ThirtyTwoBitResultsKeepTheFourthByteAtZero) {
    std::mt19937 rng(444);
    std::vector<uint8_t> src = RandomDib(rng, 20, 20, 32);
    for (size_t i = PixelOffset(src) + 3; i < src.size(); i += 4) src[i] = 0xAB;
    const Corners skew = {1, 15, 5, 3, 16, 2, 14, 18};
    const std::vector<uint8_t> got = Warp(src, skew);
    for (int y = 0; y < ImageHeight(got); ++y)
        for (int x = 0; x < ImageWidth(got); ++x) EXPECT_EQ(RawPixel(got, x, y) >> 24, 0u);
}

TEST(TZ3Affine, ProgressReportsYItselfOverTheBoxHeight) {
    const std::vector<uint8_t> src = Numbered24(20, 16);
    HandleGuard image(ToBlock(src));
    {
        // Warp: y from min(B.y, C.y) = 3 to max(A.y, D.y) - 1 = 13, reported as y of 11.
        ProgressRecorder progress;
        HandleGuard out(Call(image.h, Corners{1, 12, 5, 3, 16, 4, 14, 14}, 6));
        ASSERT_NE(out.h, nullptr);
        ASSERT_EQ(progress.calls.size(), 11u);
        for (int i = 0; i < 11; ++i) {
            EXPECT_EQ(progress.calls[i].current, 3 + i);
            EXPECT_EQ(progress.calls[i].total, 11);
            EXPECT_EQ(progress.calls[i].low, 0);
            EXPECT_EQ(progress.calls[i].high, 100);
            EXPECT_EQ(progress.calls[i].noDialog, 6);
        }
    }
    {
        // Row copy: y from B.y = 2 to A.y - 1 = 9, reported as y of height2 = 8.
        ProgressRecorder progress;
        HandleGuard out(Call(image.h, Corners{1, 10, 1, 2, 9, 2, 9, 10}, 6));
        ASSERT_NE(out.h, nullptr);
        ASSERT_EQ(progress.calls.size(), 8u);
        for (int i = 0; i < 8; ++i) {
            EXPECT_EQ(progress.calls[i].current, 2 + i);
            EXPECT_EQ(progress.calls[i].total, 8);
        }
    }
}

TEST(TZ3Affine, CancelAtEveryProgressCallAndFailureOfEveryAllocationLeaveNothing) {
    std::mt19937 rng(555);
    for (const Format f : kFormats) {
        const std::vector<uint8_t> src = RandomDib(rng, 12, 10, f.bits, f.is565);
        HandleGuard image(ToBlock(src));
        const int32_t cases[2][8] = {{1, 8, 4, 1, 10, 2, 11, 9}, {1, 8, 1, 1, 10, 1, 10, 8}};  // warp, row copy
        for (const Corners &p : cases) {
            const auto once = [&] { return Call(image.h, p); };
            long steps = 0, allocations = 0;
            {
                ProgressRecorder count;
                HandleGuard out(once());
                ASSERT_NE(out.h, nullptr);
                steps = static_cast<long>(count.calls.size());
            }
            ExpectCancelAtEveryProgressCall(steps, once, std::to_string(f.bits));
            ASSERT_NO_FATAL_FAILURE(CountAllocations(once, &allocations));
            EXPECT_EQ(allocations, 1) << "the new image is the only block";
            ExpectFailureAtEveryAllocation(allocations, once, std::to_string(f.bits));
            ExpectCallerBlocksUnchanged(image.h, src);
        }
    }
}

TEST(TZ3Affine, RefusesMissingAndMalformedImages) {
    EXPECT_EQ(Call(nullptr, Corners{0, 0, 1, 1, 2, 2, 3, 3}), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
    ExpectShortBlockRefused({1, 4, 8, 16, 24, 32}, [](DibHandle image) {
        return Call(image, Corners{0, 7, 0, 0, 7, 0, 7, 7});
    });
    std::vector<uint8_t> bad16 = MakeDibBytes(4, 4, 16, 3);
    bad16[16] = 3;
    SetField32(bad16, 40, 0x00FF);
    HandleGuard image(ToBlock(bad16));
    EXPECT_EQ(Call(image.h, Corners{0, 3, 0, 0, 3, 0, 3, 3}), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
}

TEST(TZ3Affine, DialogFailureDoesNoWorkAndAnOpenDialogIsClosedOnce) {
    const std::vector<uint8_t> src = Numbered24(8, 8);
    HandleGuard image(ToBlock(src));
    {
        DialogRecorder dialog(true);
        ProgressRecorder progress;
        const size_t live = Tz3LiveBlocks();
        EXPECT_EQ(TZ3Affine(image.h, 0, 7, 1, 0, 7, 0, 6, 7, 0, 1, 2, 3), nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 2);
        EXPECT_TRUE(progress.calls.empty());
        EXPECT_EQ(Tz3LiveBlocks(), live);
    }
    {
        DialogRecorder dialog;
        HandleGuard out(TZ3Affine(image.h, 0, 7, 1, 0, 7, 0, 6, 7, 0, 4, 5, 6));
        EXPECT_NE(out.h, nullptr);
        EXPECT_EQ(dialog.opens, 1);
        EXPECT_EQ(dialog.closes, 1);
        EXPECT_EQ(dialog.b, 5);
    }
}

}  // namespace
