// The paste core against a literal transcription of its rules on random images of every depth on
// both sides, its edge cases, pixel reading, the blend, statuses, progress spans, cancellation and
// allocation failure.
#include "compose/paste_image_core.h"

#include <gtest/gtest.h>

#include <random>

#include "platform/companion.h"
#include "support/compose_reference.h"
#include "support/test_images.h"
#include "support/tone_harness.h"

using namespace tz3test;

namespace {

DibHandle Core(DibHandle target, DibHandle source, DibHandle mask, const PasteSettings &s,
               int32_t noDialog = 1, int32_t base = 0) {
    return tz3::PasteImageCore(target, source, mask, s.angle, s.mirror, s.flip, s.opacity, s.backRed,
                               s.backGreen, s.backBlue, s.pasteX, s.pasteY, s.keepSize, noDialog, base);
}

std::vector<uint8_t> Solid24(int width, int height, Bgr c) {
    std::vector<uint8_t> d = MakeDibBytes(width, height, 24);
    const size_t stride = RowBytes(24, width);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            uint8_t *p = &d[40 + stride * y + 3 * x];
            p[0] = c.b;
            p[1] = c.g;
            p[2] = c.r;
        }
    }
    return d;
}

std::vector<uint8_t> EmptyMask(int width, int height) {
    std::vector<uint8_t> m = MakeDibBytes(width, height, 1);
    m[44] = m[45] = m[46] = 255;
    return m;
}

void SetMaskBit(std::vector<uint8_t> &m, int x, int y) {
    const size_t at = PixelOffset(m) + RowBytes(1, ImageWidth(m)) * static_cast<size_t>(y) + x / 8;
    m[at] = static_cast<uint8_t>(m[at] | (0x80 >> (x % 8)));
}

// A mask whose bits are set with the given chance in 256, so that sparse rows and empty rows occur.
std::vector<uint8_t> MaskOfDensity(std::mt19937 &rng, int width, int height, int chance) {
    std::vector<uint8_t> m = EmptyMask(width, height);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            if (static_cast<int>(rng() % 256) < chance) SetMaskBit(m, x, y);
        }
    }
    return m;
}

int32_t RandomAngle(std::mt19937 &rng) {
    static const int32_t kSpecial[] = {0,     9000, 18000, 27000, -9000, -18000, -27000, 36000,
                                       35999, 4500, -4500, 100,   -1,    40000,  -40000, 12345};
    if (rng() % 2 == 0) return kSpecial[rng() % 16];
    return static_cast<int32_t>(rng() % 72001) - 36000;
}

PasteSettings RandomSettings(std::mt19937 &rng, int targetWidth, int targetHeight) {
    PasteSettings s;
    s.angle = RandomAngle(rng);
    s.mirror = rng() % 3 == 0 ? static_cast<int32_t>(rng() | 1) : 0;
    s.flip = rng() % 3 == 0 ? 0x100 : 0;  // any set bit counts
    static const int32_t kOpacity[] = {0, 1, 128, 254, 255, 256, 511};
    s.opacity = rng() % 2 == 0 ? kOpacity[rng() % 7] : static_cast<int32_t>(rng() % 1024);
    s.backRed = static_cast<int32_t>(rng() % 512);
    s.backGreen = static_cast<int32_t>(rng() % 512);
    s.backBlue = static_cast<int32_t>(rng() % 512);
    s.pasteX = static_cast<int32_t>(rng() % (targetWidth + 12)) - 6;
    s.pasteY = static_cast<int32_t>(rng() % (targetHeight + 12)) - 6;
    s.keepSize = rng() % 2 == 0 ? 0 : static_cast<int32_t>(rng() % 5 + 1);
    return s;
}

std::string SettingsText(const PasteSettings &s) {
    return Describe(", angle/mirror/flip/opacity/pasteX/pasteY/keep", s.angle, s.mirror, s.flip, s.opacity,
                    s.pasteX, s.pasteY, s.keepSize);
}

// One random case: the core's result, status 0 and the caller's blocks as they were.
void ExpectMatchesReference(const std::vector<uint8_t> &target, const std::vector<uint8_t> &source,
                            const std::vector<uint8_t> *mask, const PasteSettings &s,
                            const std::string &what) {
    HandleGuard t(ToBlock(target)), src(ToBlock(source));
    HandleGuard m(mask != nullptr ? ToBlock(*mask) : nullptr);
    tz3::SetErrorStatus(TZ3_OK);  // the core leaves status 0 to the frame; it sets none on success
    HandleGuard out(Core(t.h, src.h, m.h, s));
    ASSERT_NE(out.h, nullptr) << what << SettingsText(s);
    EXPECT_EQ(Tz3GetErrorStatus(), 0);
    EXPECT_EQ(FromBlock(out.h), ReferencePaste(target, source, mask, s)) << what << SettingsText(s);
    EXPECT_TRUE(IsUnlocked(out.h));
    ExpectCallerBlocksUnchanged(t.h, target);
    ExpectCallerBlocksUnchanged(src.h, source, m.h);
    if (mask != nullptr) {
        EXPECT_EQ(FromBlock(m.h), *mask);
    }
}

std::string FormatName(Format f) {
    return std::to_string(f.bits) + (f.is565 ? "(565)" : "");
}

}  // namespace

TEST(PasteImageCore, MatchesReferenceForEverySourceAndTargetFormat) {
    std::mt19937 rng(7301);
    for (const Format sf : kFormats) {
        for (const Format tf : kFormats) {
            for (int trial = 0; trial < 6; ++trial) {
                const int sw = 1 + static_cast<int>(rng() % 9), sh = 1 + static_cast<int>(rng() % 9);
                const int tw = 1 + static_cast<int>(rng() % 11), th = 1 + static_cast<int>(rng() % 11);
                const std::vector<uint8_t> source = RandomSource(rng, sf, sw, sh);
                const std::vector<uint8_t> target = RandomSource(rng, tf, tw, th);
                const std::vector<uint8_t> mask = MaskOfDensity(rng, sw, sh, static_cast<int>(rng() % 257));
                const PasteSettings s = RandomSettings(rng, tw, th);
                const std::string what = "source " + FormatName(sf) + " target " + FormatName(tf);
                ASSERT_NO_FATAL_FAILURE(
                    ExpectMatchesReference(target, source, nullptr, s, what + " no mask"));
                ASSERT_NO_FATAL_FAILURE(ExpectMatchesReference(target, source, &mask, s, what + " masked"));
            }
        }
    }
}

TEST(PasteImageCore, MatchesReferenceForEverySourceWidthFrom1To33) {
    std::mt19937 rng(7302);
    for (const Format sf : kFormats) {
        for (int width = 1; width <= 33; ++width) {
            const Format tf = kFormats[rng() % 7];
            const int sh = 1 + static_cast<int>(rng() % 6);
            const int tw = 1 + static_cast<int>(rng() % 34), th = 1 + static_cast<int>(rng() % 6);
            const std::vector<uint8_t> source = RandomSource(rng, sf, width, sh);
            const std::vector<uint8_t> target = RandomSource(rng, tf, tw, th);
            const std::vector<uint8_t> mask = MaskOfDensity(rng, width, sh, static_cast<int>(rng() % 257));
            const PasteSettings s = RandomSettings(rng, tw, th);
            const std::string what = "source " + FormatName(sf) + " width " + std::to_string(width);
            ASSERT_NO_FATAL_FAILURE(ExpectMatchesReference(target, source, nullptr, s, what));
            ASSERT_NO_FATAL_FAILURE(ExpectMatchesReference(target, source, &mask, s, what + " masked"));
        }
    }
}

TEST(PasteImageCore, IdentityPlacementGivesTheSourceIn24Bits) {
    std::mt19937 rng(7303);
    for (const Format f : kFormats) {
        for (const auto &[w, h] : {std::pair{6, 4}, std::pair{7, 5}, std::pair{1, 1}, std::pair{2, 3}}) {
            const std::vector<uint8_t> source = RandomSource(rng, f, w, h);
            const std::vector<uint8_t> target = RandomSource(rng, kFormats[rng() % 7], w, h);
            PasteSettings s;
            s.opacity = 255;
            s.pasteX = w % 2 == 0 ? w / 2 - 1 : w / 2;
            s.pasteY = h - 1 - h / 2;
            s.keepSize = 1;
            HandleGuard t(ToBlock(target)), src(ToBlock(source));
            HandleGuard out(Core(t.h, src.h, nullptr, s));
            ASSERT_NE(out.h, nullptr);
            const std::vector<uint8_t> result = FromBlock(out.h);
            ASSERT_EQ(ImageWidth(result), w);
            ASSERT_EQ(ImageHeight(result), h);
            EXPECT_EQ(result[14], 24);
            for (int y = 0; y < h; ++y) {
                for (int x = 0; x < w; ++x) {
                    EXPECT_EQ(Pixel24(result, x, y), RefPixel(source, x, y))
                        << FormatName(f) << " " << x << "," << y;
                }
            }
        }
    }
}

TEST(PasteImageCore, ResultHeaderIs24BitsWithNoTable) {
    std::mt19937 rng(7304);
    const std::vector<uint8_t> source = RandomSource(rng, Format{8, false}, 5, 3);
    std::vector<uint8_t> target = RandomSource(rng, Format{4, false}, 4, 4);
    SetField32(target, 24, 1234);  // resolution fields are not carried over
    HandleGuard t(ToBlock(target)), src(ToBlock(source));
    PasteSettings s;
    s.pasteX = 1;
    s.pasteY = 1;
    HandleGuard out(Core(t.h, src.h, nullptr, s));
    ASSERT_NE(out.h, nullptr);
    const std::vector<uint8_t> r = FromBlock(out.h);
    const int w = ImageWidth(r), h = ImageHeight(r);
    EXPECT_EQ(Field32(r, 0), 40u);
    EXPECT_EQ(WordAt(r, 12), 1);
    EXPECT_EQ(WordAt(r, 14), 24);
    EXPECT_EQ(Field32(r, 16), 0u);
    EXPECT_EQ(Field32(r, 20), RowBytes(24, w) * static_cast<uint32_t>(h));
    for (size_t at : {24u, 28u, 32u, 36u}) EXPECT_EQ(Field32(r, at), 0u);
    EXPECT_EQ(r.size(), 40 + RowBytes(24, w) * static_cast<size_t>(h));
}

TEST(PasteImageCore, Angle36000ActsAs35999AndGoesThroughTheFilter) {
    std::mt19937 rng(7305);
    const std::vector<uint8_t> source = RandomSource(rng, Format{24, false}, 6, 5);
    const std::vector<uint8_t> target = RandomSource(rng, Format{24, false}, 8, 8);
    HandleGuard t(ToBlock(target)), src(ToBlock(source));
    PasteSettings s;
    s.pasteX = 4;
    s.pasteY = 4;
    s.angle = 36000;
    HandleGuard a(Core(t.h, src.h, nullptr, s));
    s.angle = 35999;
    HandleGuard b(Core(t.h, src.h, nullptr, s));
    s.angle = 0;
    HandleGuard straight(Core(t.h, src.h, nullptr, s));
    ASSERT_NE(a.h, nullptr);
    ASSERT_NE(b.h, nullptr);
    ASSERT_NE(straight.h, nullptr);
    EXPECT_EQ(FromBlock(a.h), FromBlock(b.h));
    // The filtered box is pushed one further out on each side than the straight one; the target
    // (8 x 8 about (4, 4)) holds the straight box but not the pushed one.
    const std::vector<uint8_t> filtered = FromBlock(a.h);
    EXPECT_EQ(ImageWidth(FromBlock(straight.h)), 8);
    EXPECT_EQ(ImageWidth(filtered), 9);
    s.angle = 36000;
    EXPECT_EQ(filtered, ReferencePaste(target, source, nullptr, s));
}

TEST(PasteImageCore, QuarterTurnOfFourByTwoGivesATwoByFourBoxWithoutInterpolation) {
    // Source columns run left to right 0..3, rows bottom-up 0..1, each pixel its own colour.
    std::vector<uint8_t> source = MakeDibBytes(4, 2, 24);
    for (int y = 0; y < 2; ++y) {
        for (int x = 0; x < 4; ++x) {
            uint8_t *p = &source[40 + RowBytes(24, 4) * y + 3 * x];
            p[0] = static_cast<uint8_t>(10 * x + y);
            p[1] = static_cast<uint8_t>(100 + x);
            p[2] = static_cast<uint8_t>(200 + y);
        }
    }
    const std::vector<uint8_t> target = Solid24(1, 1, Bgr{7, 7, 7});
    HandleGuard t(ToBlock(target)), src(ToBlock(source));
    PasteSettings s;
    s.angle = 9000;
    HandleGuard out(Core(t.h, src.h, nullptr, s));
    ASSERT_NE(out.h, nullptr);
    const std::vector<uint8_t> r = FromBlock(out.h);
    ASSERT_EQ(ImageWidth(r), 2);
    ASSERT_EQ(ImageHeight(r), 4);
    // Counter-clockwise: the source's left column becomes the bottom row, its top-left pixel the
    // bottom-left one; every pixel is one of the source's.
    for (int py = 0; py < 4; ++py) {
        for (int px = 0; px < 2; ++px) {
            EXPECT_EQ(Pixel24(r, px, py), RefPixel(source, py, 1 - px)) << px << "," << py;
        }
    }
}

TEST(PasteImageCore, RightAnglesBothWaysPickPixelsOneToOne) {
    std::mt19937 rng(7306);
    for (int32_t angle : {9000, -27000, 18000, -18000, 27000, -9000}) {
        const std::vector<uint8_t> source = RandomSource(rng, Format{24, false}, 5, 3);
        const std::vector<uint8_t> target = Solid24(1, 1, Bgr{1, 2, 3});
        HandleGuard t(ToBlock(target)), src(ToBlock(source));
        PasteSettings s;
        s.angle = angle;
        HandleGuard out(Core(t.h, src.h, nullptr, s));
        ASSERT_NE(out.h, nullptr);
        const std::vector<uint8_t> r = FromBlock(out.h);
        const bool quarter = angle == 9000 || angle == -27000 || angle == 27000 || angle == -9000;
        ASSERT_EQ(ImageWidth(r), quarter ? 3 : 5) << angle;
        ASSERT_EQ(ImageHeight(r), quarter ? 5 : 3) << angle;
        for (int py = 0; py < ImageHeight(r); ++py) {
            for (int px = 0; px < ImageWidth(r); ++px) {
                int col = px, row = py;
                if (angle == 9000 || angle == -27000) col = py, row = 2 - px;
                if (angle == 18000 || angle == -18000) col = 4 - px, row = 2 - py;
                if (angle == 27000 || angle == -9000) col = 4 - py, row = px;
                EXPECT_EQ(Pixel24(r, px, py), RefPixel(source, col, row)) << angle << " " << px << "," << py;
            }
        }
    }
}

TEST(PasteImageCore, OpacityZeroWithoutKeepSizeShowsTargetInsideAndSourceOrBackOutside) {
    std::mt19937 rng(7307);
    const std::vector<uint8_t> source = RandomSource(rng, Format{24, false}, 5, 5);
    const std::vector<uint8_t> target = RandomSource(rng, Format{8, false}, 3, 3);
    HandleGuard t(ToBlock(target)), src(ToBlock(source));
    PasteSettings s;
    s.opacity = 0;
    s.backRed = 9;
    s.backGreen = 8;
    s.backBlue = 7;
    s.pasteX = 4;  // the target lies left of the source's centre column, mostly outside the source
    s.pasteY = 1;
    HandleGuard out(Core(t.h, src.h, nullptr, s));
    ASSERT_NE(out.h, nullptr);
    const std::vector<uint8_t> r = FromBlock(out.h);
    // Paste x from -4 (target left) to 2; y from -2 to 2; the source covers x, y in -2..2.
    ASSERT_EQ(ImageWidth(r), 7);
    ASSERT_EQ(ImageHeight(r), 5);
    int sawSource = 0, sawBack = 0, sawTarget = 0;
    for (int ry = 0; ry < 5; ++ry) {
        for (int rx = 0; rx < 7; ++rx) {
            const int x = rx - 4, y = ry - 2;
            const int tx = x + 4, ty = y - (1 - 2);
            const Bgr got = Pixel24(r, rx, ry);
            if (tx >= 0 && tx < 3 && ty >= 0 && ty < 3) {
                EXPECT_EQ(got, RefPixel(target, tx, ty));
                ++sawTarget;
            } else if (x >= -2 && x <= 2) {
                EXPECT_EQ(got, RefPixel(source, x + 2, y + 2));
                ++sawSource;
            } else {
                EXPECT_EQ(got, (Bgr{7, 8, 9}));
                ++sawBack;
            }
        }
    }
    EXPECT_EQ(sawTarget, 9);
    EXPECT_GT(sawSource, 0);
    EXPECT_GT(sawBack, 0);
}

TEST(PasteImageCore, OpacityCountsByItsLowByte) {
    std::mt19937 rng(7308);
    const std::vector<uint8_t> source = RandomSource(rng, Format{24, false}, 5, 4);
    const std::vector<uint8_t> target = RandomSource(rng, Format{32, false}, 6, 6);
    HandleGuard t(ToBlock(target)), src(ToBlock(source));
    PasteSettings s;
    s.angle = 3000;
    s.pasteX = 2;
    s.pasteY = 3;
    const auto run = [&](int32_t opacity) {
        s.opacity = opacity;
        HandleGuard out(Core(t.h, src.h, nullptr, s));
        return FromBlock(out.h);
    };
    EXPECT_EQ(run(256), run(0));
    EXPECT_EQ(run(511), run(255));
    EXPECT_NE(run(0), run(255));
    // Inside the target at opacity 0 nothing of the source shows.
    s.keepSize = 1;
    const std::vector<uint8_t> kept = run(256);
    for (int y = 0; y < 6; ++y) {
        for (int x = 0; x < 6; ++x) EXPECT_EQ(Pixel24(kept, x, y), RefPixel(target, x, y));
    }
}

TEST(PasteImageCore, OneByOneSourceWithMaskScansNoRowAndStillMovesTheSpanBy15) {
    const std::vector<uint8_t> source = Solid24(1, 1, Bgr{50, 60, 70});
    std::vector<uint8_t> mask = EmptyMask(1, 1);
    SetMaskBit(mask, 0, 0);
    const std::vector<uint8_t> target = Solid24(3, 2, Bgr{1, 1, 1});
    HandleGuard t(ToBlock(target)), src(ToBlock(source)), m(ToBlock(mask));
    PasteSettings s;
    s.pasteX = 1;
    s.pasteY = 0;
    s.keepSize = 1;
    for (int32_t base : {0, 1}) {
        ProgressRecorder progress;
        HandleGuard out(Core(t.h, src.h, m.h, s, 5, base));
        ASSERT_NE(out.h, nullptr);
        ASSERT_EQ(progress.calls.size(), 2u);  // only the two rows of the walk
        for (size_t i = 0; i < 2; ++i) {
            EXPECT_EQ(progress.calls[i].low, base ? 66 : 15);
            EXPECT_EQ(progress.calls[i].high, 100);
            EXPECT_EQ(progress.calls[i].current, static_cast<int32_t>(i));
            EXPECT_EQ(progress.calls[i].total, 1);
            EXPECT_EQ(progress.calls[i].noDialog, 5);
        }
        // The box holds only the centre at angle 0, and the one pixel is pasted there.
        EXPECT_EQ(Pixel24(FromBlock(out.h), 1, 1), (Bgr{50, 60, 70}));
        EXPECT_EQ(Pixel24(FromBlock(out.h), 0, 1), (Bgr{1, 1, 1}));
    }
}

TEST(PasteImageCore, MaskBitInLastRowAndColumnDoesNotWidenTheBox) {
    const std::vector<uint8_t> source = Solid24(3, 3, Bgr{200, 200, 200});
    const std::vector<uint8_t> target = Solid24(1, 1, Bgr{0, 0, 0});
    std::vector<uint8_t> lastOnly = EmptyMask(3, 3);
    SetMaskBit(lastOnly, 2, 2);
    HandleGuard t(ToBlock(target)), src(ToBlock(source)), m(ToBlock(lastOnly)),
        none(ToBlock(EmptyMask(3, 3)));
    PasteSettings s;
    for (int32_t angle : {0, 18000, 4500}) {
        s.angle = angle;
        HandleGuard withBit(Core(t.h, src.h, m.h, s));
        HandleGuard withNone(Core(t.h, src.h, none.h, s));
        ASSERT_NE(withBit.h, nullptr);
        ASSERT_NE(withNone.h, nullptr);
        // The same box as an empty mask: nothing was scanned.
        EXPECT_EQ(ImageWidth(FromBlock(withBit.h)), ImageWidth(FromBlock(withNone.h))) << angle;
        EXPECT_EQ(ImageHeight(FromBlock(withBit.h)), ImageHeight(FromBlock(withNone.h))) << angle;
        EXPECT_EQ(FromBlock(withBit.h), ReferencePaste(target, source, &lastOnly, s)) << angle;
    }
}

TEST(PasteImageCore, MaskBitInLastRowAndColumnIsPastedAtARightAngleWhenTheBoxHoldsIt) {
    // Half a turn: the bit at (0, 0) spans the box over paste x, y in 0..1, which is where the bit
    // at (2, 2) lands; the box never reaches (0, 0)'s own place.
    std::vector<uint8_t> source = Solid24(3, 3, Bgr{10, 10, 10});
    source[40 + RowBytes(24, 3) * 2 + 6] = 222;  // blue of (2, 2)
    std::vector<uint8_t> mask = EmptyMask(3, 3);
    SetMaskBit(mask, 0, 0);
    SetMaskBit(mask, 2, 2);
    const std::vector<uint8_t> target = Solid24(1, 1, Bgr{0, 0, 0});
    HandleGuard t(ToBlock(target)), src(ToBlock(source)), m(ToBlock(mask));
    PasteSettings s;
    s.angle = 18000;
    s.backBlue = 77;
    HandleGuard out(Core(t.h, src.h, m.h, s));
    ASSERT_NE(out.h, nullptr);
    const std::vector<uint8_t> r = FromBlock(out.h);
    ASSERT_EQ(ImageWidth(r), 2);
    ASSERT_EQ(ImageHeight(r), 2);
    EXPECT_EQ(Pixel24(r, 0, 0), (Bgr{222, 10, 10}));  // (2, 2) turned onto the centre
    EXPECT_EQ(Pixel24(r, 1, 1).b, 77);                // (1, 1) of the source: bit clear, Back
    EXPECT_EQ(r, ReferencePaste(target, source, &mask, s));
}

TEST(PasteImageCore, PastingBesideTheTargetFillsTheGapWithBack) {
    std::mt19937 rng(7309);
    const std::vector<uint8_t> source = RandomSource(rng, Format{24, false}, 2, 2);
    const std::vector<uint8_t> target = RandomSource(rng, Format{24, false}, 2, 2);
    HandleGuard t(ToBlock(target)), src(ToBlock(source));
    PasteSettings s;
    s.pasteX = 10;
    s.pasteY = -5;  // above the target's top row
    s.backRed = 1;
    s.backGreen = 2;
    s.backBlue = 3;
    HandleGuard out(Core(t.h, src.h, nullptr, s));
    ASSERT_NE(out.h, nullptr);
    const std::vector<uint8_t> r = FromBlock(out.h);
    // Target at paste x -10..-9, y -6..-5; source x 0..1, y -1..0: 12 x 7.
    ASSERT_EQ(ImageWidth(r), 12);
    ASSERT_EQ(ImageHeight(r), 7);
    for (int ry = 0; ry < 7; ++ry) {
        for (int rx = 0; rx < 12; ++rx) {
            const bool inTarget = rx < 2 && ry < 2;
            const bool inSource = rx >= 10 && ry >= 5;
            if (inTarget) {
                EXPECT_EQ(Pixel24(r, rx, ry), RefPixel(target, rx, ry));
            } else if (inSource) {
                EXPECT_EQ(Pixel24(r, rx, ry), RefPixel(source, rx - 10, ry - 5));
            } else {
                EXPECT_EQ(Pixel24(r, rx, ry), (Bgr{3, 2, 1})) << rx << "," << ry;
            }
        }
    }
}

TEST(PasteImageCore, KeepSizeWithTheSourceOutsideGivesTheTargetIn24Bits) {
    std::mt19937 rng(7310);
    for (const Format f : kFormats) {
        const std::vector<uint8_t> source = RandomSource(rng, kFormats[rng() % 7], 4, 3);
        const std::vector<uint8_t> target = RandomSource(rng, f, 5, 4);
        HandleGuard t(ToBlock(target)), src(ToBlock(source));
        PasteSettings s;
        s.pasteX = -20;
        s.pasteY = 30;
        s.keepSize = 1;
        s.angle = 1000;
        HandleGuard out(Core(t.h, src.h, nullptr, s));
        ASSERT_NE(out.h, nullptr);
        const std::vector<uint8_t> r = FromBlock(out.h);
        ASSERT_EQ(ImageWidth(r), 5);
        ASSERT_EQ(ImageHeight(r), 4);
        for (int y = 0; y < 4; ++y) {
            for (int x = 0; x < 5; ++x) EXPECT_EQ(Pixel24(r, x, y), RefPixel(target, x, y)) << FormatName(f);
        }
    }
}

TEST(PasteImageCore, RimOfATurnedSourceBlendsWithTheTargetOrWithBack) {
    const std::vector<uint8_t> source = Solid24(9, 9, Bgr{255, 255, 255});
    for (const bool targetThere : {true, false}) {
        // A big black target under the whole source, or a 1x1 one far away so that Back shows.
        const std::vector<uint8_t> target =
            targetThere ? Solid24(21, 21, Bgr{0, 0, 0}) : Solid24(1, 1, Bgr{9, 9, 9});
        HandleGuard t(ToBlock(target)), src(ToBlock(source));
        PasteSettings s;
        s.angle = 3000;
        s.pasteX = targetThere ? 10 : 40;
        s.pasteY = targetThere ? 10 : 40;
        s.backRed = s.backGreen = s.backBlue = 0;
        HandleGuard out(Core(t.h, src.h, nullptr, s));
        ASSERT_NE(out.h, nullptr);
        const std::vector<uint8_t> r = FromBlock(out.h);
        EXPECT_EQ(r, ReferencePaste(target, source, nullptr, s));
        int between = 0, white = 0;
        for (int y = 0; y < ImageHeight(r); ++y) {
            for (int x = 0; x < ImageWidth(r); ++x) {
                const uint8_t v = Pixel24(r, x, y).g;
                between += v > 0 && v < 255;
                white += v == 255;
            }
        }
        EXPECT_GT(between, 8) << targetThere;
        EXPECT_GT(white, 20) << targetThere;
    }
}

TEST(PasteImageCore, MirrorAndFlipMoveTheSourceAndItsMaskButNotTheCallers) {
    std::mt19937 rng(7311);
    const std::vector<uint8_t> source = RandomSource(rng, Format{4, false}, 5, 4);
    const std::vector<uint8_t> mask = RandomMask(rng, 5, 4);
    const std::vector<uint8_t> target = RandomSource(rng, Format{24, false}, 5, 4);
    for (int32_t mirror : {0, 1}) {
        for (int32_t flip : {0, 1}) {
            PasteSettings s;
            s.mirror = mirror;
            s.flip = flip;
            s.pasteX = 2;
            s.pasteY = 1;
            s.keepSize = 1;
            s.angle = 0;
            ASSERT_NO_FATAL_FAILURE(ExpectMatchesReference(target, source, &mask, s, "mirror/flip"));
            s.angle = 2000;
            ASSERT_NO_FATAL_FAILURE(ExpectMatchesReference(target, source, &mask, s, "mirror/flip turned"));
        }
    }
    // Mirrored at angle 0 with the identity placement: column x shows the source's W - 1 - x.
    HandleGuard t(ToBlock(target)), src(ToBlock(source));
    PasteSettings s;
    s.mirror = 1;
    s.pasteX = 2;
    s.pasteY = 4 - 1 - 2;
    s.keepSize = 1;
    HandleGuard out(Core(t.h, src.h, nullptr, s));
    ASSERT_NE(out.h, nullptr);
    for (int y = 0; y < 4; ++y) {
        for (int x = 0; x < 5; ++x) EXPECT_EQ(Pixel24(FromBlock(out.h), x, y), RefPixel(source, 4 - x, y));
    }
}

TEST(PasteImageCore, ReadDibPixelReadsEveryDepthThroughItsTable) {
    std::mt19937 rng(7312);
    for (const Format f : kFormats) {
        for (int trial = 0; trial < 4; ++trial) {
            const std::vector<uint8_t> img = RandomSource(rng, f, 1 + static_cast<int>(rng() % 20), 3);
            HandleGuard h(ToBlock(img));
            const auto *dib = static_cast<const uint8_t *>(Tz3GlobalLock(h.h));
            const uint32_t redMask = f.bits == 16 ? (f.is565 ? 0xF800u : 0x7C00u) : 0u;
            for (int y = 0; y < 3; ++y) {
                for (int x = 0; x < ImageWidth(img); ++x) {
                    const tz3::Rgb c = tz3::ReadDibPixel(dib, img.size(), x, y, redMask);
                    EXPECT_EQ((Bgr{c.b, c.g, c.r}), RefPixel(img, x, y))
                        << FormatName(f) << " " << x << "," << y;
                }
            }
            Tz3GlobalUnlock(h.h);
        }
    }
}

TEST(PasteImageCore, PaletteIndexPastTheBlockReadsZero) {
    // An 8-bit image with a one-entry table: index 255 is looked up at 40 + 1020, past the block.
    std::vector<uint8_t> img = MakeDibBytes(4, 1, 8, 1);
    img[40] = 11;
    img[41] = 22;
    img[42] = 33;
    const size_t at = PixelOffset(img);
    img[at] = 0;
    img[at + 1] = 1;  // the entry is the pixel row itself: 0, 1, 255, 3
    img[at + 2] = 255;
    img[at + 3] = 3;
    HandleGuard h(ToBlock(img));
    const auto *dib = static_cast<const uint8_t *>(Tz3GlobalLock(h.h));
    const tz3::Rgb c0 = tz3::ReadDibPixel(dib, img.size(), 0, 0, 0);
    EXPECT_EQ(c0.b, 11);
    EXPECT_EQ(c0.r, 33);
    const tz3::Rgb c1 = tz3::ReadDibPixel(dib, img.size(), 1, 0, 0);  // entry 1 lies in the pixel row
    EXPECT_EQ(c1.b, 0);
    EXPECT_EQ(c1.g, 1);
    EXPECT_EQ(c1.r, 255);
    const tz3::Rgb c2 = tz3::ReadDibPixel(dib, img.size(), 2, 0, 0);
    EXPECT_EQ(c2.b, 0);
    EXPECT_EQ(c2.g, 0);
    EXPECT_EQ(c2.r, 0);
    Tz3GlobalUnlock(h.h);
}

TEST(PasteImageCore, BlendTableEqualsTheRuleForEveryOpacityAndPair) {
    for (int a = 0; a < 256; ++a) {
        tz3::OwnedBlock table = tz3::BuildBlendTable(static_cast<uint8_t>(a));
        ASSERT_TRUE(table);
        int wrong = 0;
        for (int s = 0; s < 256; ++s) {
            for (int t = 0; t < 256; ++t) {
                wrong += table.bytes()[s * 256 + t] !=
                         RefBlend(static_cast<uint8_t>(s), static_cast<uint8_t>(t), a);
            }
        }
        EXPECT_EQ(wrong, 0) << "opacity " << a;
    }
}

// The row blend, which works the bytes out without the table where the table allows, gives the
// rule's byte for every opacity and every pair, also over short runs that start and end at odd
// places; and with the table marked as not the quotient, the table's own bytes.
TEST(PasteImageCore, RowBlendEqualsTheRuleForEveryOpacityAndPair) {
    std::vector<uint8_t> s(65536), t(65536), out(65536);
    for (int i = 0; i < 65536; ++i) {
        s[i] = static_cast<uint8_t>(i >> 8);
        t[i] = static_cast<uint8_t>(i & 255);
    }
    for (int a = 0; a < 256; ++a) {
        tz3::OwnedBlock table = tz3::BuildBlendTable(static_cast<uint8_t>(a));
        ASSERT_TRUE(table);
        const tz3::RowBlend blend = tz3::MakeRowBlend(table.bytes(), static_cast<uint8_t>(a));
        for (const bool quotient : {blend.quotient, false}) {
            const tz3::RowBlend use{blend.table, blend.opacity, quotient};
            tz3::BlendBytes(s.data(), t.data(), s.size(), use, out.data());
            int wrong = 0;
            for (int i = 0; i < 65536; ++i) wrong += out[i] != RefBlend(s[i], t[i], a);
            EXPECT_EQ(wrong, 0) << "opacity " << a << " quotient " << quotient;
        }
        // A short run from an odd place leaves the bytes around it alone.
        std::vector<uint8_t> part(80, 0xA5);
        const size_t from = 255 * 256 - 7;  // runs over the pair 255, 0 at its eighth byte
        tz3::BlendBytes(&s[from], &t[from], 61, blend, &part[3]);
        for (size_t i = 0; i < part.size(); ++i) {
            const bool inside = i >= 3 && i < 64;
            const uint8_t want = inside ? RefBlend(s[from + i - 3], t[from + i - 3], a) : 0xA5;
            ASSERT_EQ(part[i], want) << "opacity " << a << " byte " << i;
        }
    }
}

// A table that differs from the quotient in a single pair is not taken for it, and rows then give
// the table's bytes.
TEST(PasteImageCore, RowBlendFollowsATableThatIsNotTheQuotient) {
    tz3::OwnedBlock table = tz3::BuildBlendTable(128);
    ASSERT_TRUE(table);
    ASSERT_TRUE(tz3::MakeRowBlend(table.bytes(), 128).quotient);
    table.bytes()[200 * 256 + 10] ^= 1;
    const tz3::RowBlend blend = tz3::MakeRowBlend(table.bytes(), 128);
    EXPECT_FALSE(blend.quotient);
    const uint8_t s[3] = {200, 200, 0}, t[3] = {10, 11, 255};
    uint8_t out[3] = {};
    tz3::BlendBytes(s, t, 3, blend, out);
    EXPECT_EQ(out[0], table.bytes()[200 * 256 + 10]);
    EXPECT_EQ(out[1], table.bytes()[200 * 256 + 11]);
    EXPECT_EQ(out[2], table.bytes()[0 * 256 + 255]);
}

TEST(PasteImageCore, BlendIsTheTruncatedWeightedMean) {
    EXPECT_EQ(tz3::BlendChannel(200, 100, 0), 100);
    EXPECT_EQ(tz3::BlendChannel(200, 100, 255), 200);
    EXPECT_EQ(tz3::BlendChannel(200, 200, 77), 200);
    // 127 x 100 / 255 + 200 x 128 / 255 = 49.80 + 100.39 = 150.19
    EXPECT_EQ(tz3::BlendChannel(200, 100, 128), 150);
    // 254 x 0 / 255 + 255 x 1 / 255 = 1
    EXPECT_EQ(tz3::BlendChannel(255, 0, 1), 1);
}

TEST(PasteImageCore, RefusesNullImagesWithStatus7) {
    HandleGuard img(ToBlock(Solid24(2, 2, Bgr{1, 2, 3})));
    const PasteSettings s;
    EXPECT_EQ(Core(nullptr, img.h, nullptr, s), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
    EXPECT_EQ(Core(img.h, nullptr, nullptr, s), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 7);
    EXPECT_TRUE(IsUnlocked(img.h));
}

TEST(PasteImageCore, RefusesUnusableFormatsAndUnfitMasksWithStatus7) {
    std::mt19937 rng(7313);
    std::vector<uint8_t> bad16 = RandomDib(rng, 3, 3, 16, true);
    SetField32(bad16, 40, 0x00FF);  // bit fields that are neither 5-5-5 nor 5-6-5
    std::vector<uint8_t> bad32 = RandomDib(rng, 3, 3, 32);
    SetField32(bad32, 16, 5);
    std::vector<uint8_t> badDepth = MakeDibBytes(3, 3, 24);
    badDepth[14] = 2;
    std::vector<uint8_t> zeroWide = MakeDibBytes(1, 3, 24);
    SetField32(zeroWide, 4, 0);
    std::vector<uint8_t> short24 = MakeDibBytes(3, 3, 24);
    short24.pop_back();
    const std::vector<uint8_t> good = RandomSource(rng, Format{24, false}, 3, 3);
    HandleGuard goodBlock(ToBlock(good));
    for (const auto *bad : {&bad16, &bad32, &badDepth, &zeroWide, &short24}) {
        HandleGuard b(ToBlock(*bad));
        const size_t live = Tz3LiveBlocks();
        EXPECT_EQ(Core(b.h, goodBlock.h, nullptr, PasteSettings{}), nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 7);
        EXPECT_EQ(Core(goodBlock.h, b.h, nullptr, PasteSettings{}), nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 7);
        EXPECT_EQ(Tz3LiveBlocks(), live);
        EXPECT_TRUE(IsUnlocked(b.h));
        EXPECT_EQ(FromBlock(b.h), *bad);
    }
    // A source without columns that is to be mirrored or flipped is refused by its copy: status 5.
    {
        HandleGuard b(ToBlock(zeroWide));
        PasteSettings mirrored;
        mirrored.mirror = 1;
        EXPECT_EQ(Core(goodBlock.h, b.h, nullptr, mirrored), nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 5);
        PasteSettings flipped;
        flipped.flip = 1;
        EXPECT_EQ(Core(goodBlock.h, b.h, nullptr, flipped), nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 5);
        EXPECT_TRUE(IsUnlocked(b.h));
    }
    // Masks: wrong width, wrong height, 8 bits, a short block.
    std::vector<uint8_t> shortMask = EmptyMask(3, 3);
    shortMask.pop_back();
    for (const std::vector<uint8_t> &m :
         {EmptyMask(4, 3), EmptyMask(3, 2), MakeDibBytes(3, 3, 8), shortMask}) {
        HandleGuard mb(ToBlock(m));
        EXPECT_EQ(Core(goodBlock.h, goodBlock.h, mb.h, PasteSettings{}), nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 7);
        EXPECT_TRUE(IsUnlocked(mb.h));
    }
    EXPECT_TRUE(IsUnlocked(goodBlock.h));
    // The same image as target and source, and as its own mask's size, is fine.
    HandleGuard fits(ToBlock(EmptyMask(3, 3)));
    HandleGuard ok(Core(goodBlock.h, goodBlock.h, fits.h, PasteSettings{}));
    EXPECT_NE(ok.h, nullptr);
}

TEST(PasteImageCore, ResultPastTheSizeLimitIsStatus3) {
    HandleGuard img(ToBlock(Solid24(1, 1, Bgr{1, 2, 3})));
    PasteSettings s;
    s.pasteX = INT32_MIN;  // the union spans the whole 32-bit range
    s.pasteY = INT32_MAX;
    const size_t live = Tz3LiveBlocks();
    EXPECT_EQ(Core(img.h, img.h, nullptr, s), nullptr);
    EXPECT_EQ(Tz3GetErrorStatus(), 3);
    EXPECT_EQ(Tz3LiveBlocks(), live);
    s.pasteX = 100000;  // 100001 x 1 x 3 bytes fits; as a square it would not
    s.pasteY = 0;
    HandleGuard wide(Core(img.h, img.h, nullptr, s));
    ASSERT_NE(wide.h, nullptr);
    EXPECT_EQ(ImageWidth(FromBlock(wide.h)), 100001);
}

TEST(PasteImageCore, ProgressSpansFollowMirrorFlipMaskAndBase) {
    std::mt19937 rng(7314);
    const std::vector<uint8_t> source = RandomSource(rng, Format{24, false}, 4, 3);
    const std::vector<uint8_t> mask = RandomMask(rng, 4, 3);
    const std::vector<uint8_t> target = RandomSource(rng, Format{24, false}, 5, 5);
    HandleGuard t(ToBlock(target)), src(ToBlock(source)), m(ToBlock(mask));
    struct Case {
        int32_t mirror, flip, base;
        bool masked;
        std::vector<std::tuple<int32_t, int32_t, int32_t, int32_t>> spans;  // low, high, calls, total
    };
    // 3 source rows: mirror and flip report rows 0..2 of 2; the mask scan rows 0..1 of 2 (its last
    // row is not scanned); the walk rows 0..4 of 4.
    const Case cases[] = {
        {0, 0, 0, false, {{0, 100, 5, 4}}},
        {0, 0, 1, false, {{51, 100, 5, 4}}},
        {0, 0, 0, true, {{0, 15, 2, 2}, {15, 100, 5, 4}}},
        {0, 0, 1, true, {{51, 66, 2, 2}, {66, 100, 5, 4}}},
        {1, 0, 1, false, {{0, 5, 3, 2}, {6, 100, 5, 4}}},
        {0, 1, 0, false, {{0, 5, 3, 2}, {6, 100, 5, 4}}},
        {1, 1, 1, true, {{0, 5, 3, 2}, {6, 10, 3, 2}, {11, 26, 2, 2}, {26, 100, 5, 4}}},
    };
    for (const Case &c : cases) {
        PasteSettings s;
        s.mirror = c.mirror;
        s.flip = c.flip;
        s.pasteX = 2;
        s.pasteY = 2;
        s.keepSize = 1;
        ProgressRecorder progress;
        HandleGuard out(Core(t.h, src.h, c.masked ? m.h : nullptr, s, 3, c.base));
        ASSERT_NE(out.h, nullptr);
        size_t at = 0;
        for (const auto &[low, high, calls, total] : c.spans) {
            for (int32_t i = 0; i < calls; ++i, ++at) {
                ASSERT_LT(at, progress.calls.size());
                const ProgressCall &p = progress.calls[at];
                EXPECT_EQ(p.current, i) << c.mirror << c.flip << c.base << c.masked << " at " << at;
                EXPECT_EQ(p.total, total) << at;
                EXPECT_EQ(p.low, low) << at;
                EXPECT_EQ(p.high, high) << at;
                EXPECT_EQ(p.noDialog, 3);
            }
        }
        EXPECT_EQ(at, progress.calls.size());
    }
}

TEST(PasteImageCore, CancelAtEveryProgressCallLeavesNothing) {
    std::mt19937 rng(7315);
    for (const Format f : kFormats) {
        const std::vector<uint8_t> source = RandomSource(rng, f, 4, 3);
        const std::vector<uint8_t> mask = RandomMask(rng, 4, 3);
        const std::vector<uint8_t> target = RandomSource(rng, kFormats[rng() % 7], 5, 5);
        HandleGuard t(ToBlock(target)), src(ToBlock(source)), m(ToBlock(mask));
        PasteSettings s;
        s.mirror = 1;
        s.flip = 1;
        s.angle = 2500;
        s.pasteX = 2;
        s.pasteY = 2;
        s.keepSize = 1;
        // mirror 3 + flip 3 + mask scan 2 + walk 5
        ExpectCancelAtEveryProgressCall(
            13, [&] { return Core(t.h, src.h, m.h, s); }, FormatName(f));
        ExpectCallerBlocksUnchanged(t.h, target);
        ExpectCallerBlocksUnchanged(src.h, source, m.h);
        EXPECT_EQ(FromBlock(m.h), mask);
    }
}

TEST(PasteImageCore, FailureOfEveryAllocationIsStatus3AndLeavesNothing) {
    std::mt19937 rng(7316);
    for (const Format f : kFormats) {
        const std::vector<uint8_t> source = RandomSource(rng, f, 4, 3);
        const std::vector<uint8_t> mask = RandomMask(rng, 4, 3);
        const std::vector<uint8_t> target = RandomSource(rng, kFormats[rng() % 7], 5, 5);
        HandleGuard t(ToBlock(target)), src(ToBlock(source)), m(ToBlock(mask));
        for (int32_t mirror : {0, 1}) {
            PasteSettings s;
            s.mirror = mirror;
            s.flip = mirror;
            s.angle = 2500;
            s.pasteX = 2;
            s.pasteY = 2;
            const auto once = [&] { return Core(t.h, src.h, m.h, s); };
            long allocations = 0;
            ASSERT_NO_FATAL_FAILURE(CountAllocations(once, &allocations));
            // The result and the blend table; with mirror and flip also the two private copies and
            // each flip's two working copies.
            EXPECT_EQ(allocations, mirror ? 8 : 2);
            ExpectFailureAtEveryAllocation(allocations, once, FormatName(f));
            ExpectCallerBlocksUnchanged(t.h, target);
            ExpectCallerBlocksUnchanged(src.h, source, m.h);
        }
    }
}

TEST(PasteImageCore, LongSourcesAtRightAnglesMatchReferenceWhereTheTurnRoundsTheBox) {
    // Far from the centre the off-pi turn leaves corners a hair off whole numbers, and truncation
    // can pull the box in by one; the pick table must still stay inside the source.
    std::mt19937 rng(7317);
    for (const auto &[w, h] : {std::pair{1000, 2}, std::pair{3, 1201}, std::pair{777, 5}}) {
        const std::vector<uint8_t> source = RandomSource(rng, Format{8, false}, w, h);
        const std::vector<uint8_t> mask = MaskOfDensity(rng, w, h, 200);
        const std::vector<uint8_t> target = RandomSource(rng, Format{24, false}, 3, 3);
        for (int32_t angle : {9000, -9000, 27000, -27000, 18000, -18000}) {
            PasteSettings s;
            s.angle = angle;
            s.pasteX = 1;
            s.pasteY = 1;
            s.opacity = 200;
            ASSERT_NO_FATAL_FAILURE(ExpectMatchesReference(target, source, nullptr, s, "long"));
            ASSERT_NO_FATAL_FAILURE(ExpectMatchesReference(target, source, &mask, s, "long masked"));
        }
    }
}

// Unturned and unmasked, the stretch where source and target overlap is blended a whole row at a
// time; these cases put that stretch everywhere: inside, cut on either side, absent, wider sources
// than targets and the reverse, for every depth pair and every low byte of the opacity.
TEST(PasteImageCore, UnturnedUnmaskedPastesMatchReferenceWhereverTheOverlapFalls) {
    std::mt19937 rng(7303);
    int opacity = 0;
    for (const Format sf : kFormats) {
        for (const Format tf : kFormats) {
            for (int trial = 0; trial < 8; ++trial) {
                const int sw = 1 + static_cast<int>(rng() % 33), sh = 1 + static_cast<int>(rng() % 7);
                const int tw = 1 + static_cast<int>(rng() % 33), th = 1 + static_cast<int>(rng() % 7);
                const std::vector<uint8_t> source = RandomSource(rng, sf, sw, sh);
                const std::vector<uint8_t> target = RandomSource(rng, tf, tw, th);
                PasteSettings s = RandomSettings(rng, tw, th);
                s.angle = 0;
                s.opacity = opacity;
                opacity = (opacity + 11) % 512;
                s.pasteX = static_cast<int32_t>(rng() % (tw + sw + 4)) - (sw / 2 + 2);
                s.pasteY = static_cast<int32_t>(rng() % (th + sh + 4)) - (sh / 2 + 2);
                s.keepSize = trial % 2;
                const std::string what = "source " + FormatName(sf) + " target " + FormatName(tf);
                ASSERT_NO_FATAL_FAILURE(ExpectMatchesReference(target, source, nullptr, s, what));
            }
        }
    }
}

// Every opacity 0..511 over 24-bit rows on both sides, where the overlap is read byte by byte.
TEST(PasteImageCore, UnturnedUnmasked24BitPastesMatchReferenceForEveryOpacity) {
    std::mt19937 rng(7304);
    const Format f24{24, false};
    for (int opacity = 0; opacity < 512; ++opacity) {
        const int sw = 1 + static_cast<int>(rng() % 33), sh = 1 + static_cast<int>(rng() % 5);
        const int tw = 1 + static_cast<int>(rng() % 33), th = 1 + static_cast<int>(rng() % 5);
        const std::vector<uint8_t> source = RandomSource(rng, f24, sw, sh);
        const std::vector<uint8_t> target = RandomSource(rng, f24, tw, th);
        PasteSettings s = RandomSettings(rng, tw, th);
        s.angle = 0;
        s.opacity = opacity;
        s.pasteX = static_cast<int32_t>(rng() % (tw + sw + 4)) - (sw / 2 + 2);
        s.pasteY = static_cast<int32_t>(rng() % (th + sh + 4)) - (sh / 2 + 2);
        s.keepSize = opacity % 2;
        ASSERT_NO_FATAL_FAILURE(ExpectMatchesReference(target, source, nullptr, s, "24 over 24"));
    }
}
