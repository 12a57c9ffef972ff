#include "support/filter_harness.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <sstream>

#include "frame/region.h"

namespace tz3test {

const FilterFormat kFilterFormats[5] = {{8, false}, {16, false}, {16, true}, {24, false}, {32, false}};

std::string FormatName(FilterFormat f) {
    if (f.bits == 8) return "8-bit gray";
    if (f.bits == 16) return f.is565 ? "16-bit 565" : "16-bit 555";
    return std::to_string(f.bits) + "-bit";
}

std::vector<uint8_t> GrayDib(int width, int height, const std::vector<uint8_t> &levels) {
    std::vector<uint8_t> d = MakeDibBytes(width, height, 8);
    for (int i = 0; i < 256; ++i) d[40 + 4 * i] = d[41 + 4 * i] = d[42 + 4 * i] = levels[i];
    return d;
}

std::vector<uint8_t> GrayLevels(int order, std::mt19937 &rng) {
    std::vector<uint8_t> levels(256);
    std::iota(levels.begin(), levels.end(), 0);
    if (order == 1) std::reverse(levels.begin(), levels.end());
    if (order == 2) std::shuffle(levels.begin(), levels.end(), rng);
    return levels;
}

std::vector<uint8_t> RandomFilterSource(std::mt19937 &rng, FilterFormat f, int width, int height) {
    std::vector<uint8_t> src;
    if (f.bits == 8) {
        src = GrayDib(width, height, GrayLevels(static_cast<int>(rng() % 3), rng));
        const std::vector<uint8_t> noise = RandomDib(rng, width, height, 8);
        std::copy(noise.begin() + PixelOffset(noise), noise.end(), src.begin() + PixelOffset(src));
        // Some tables keep rgbReserved non-zero, which the gray test does not look at.
        if (rng() % 2 == 0) src[43] = 7;
    } else {
        src = RandomDib(rng, width, height, f.bits, f.is565);
    }
    SetField32(src, 20, rng() % 2 == 0 ? 0 : static_cast<uint32_t>(rng()));
    return src;
}

bool IsGray(const std::vector<uint8_t> &dib) { return dib[14] == 8; }
int ChannelCount(const std::vector<uint8_t> &dib) { return IsGray(dib) ? 1 : 3; }

static size_t PixelAt(const std::vector<uint8_t> &dib, int x, int y) {
    const int bits = dib[14];
    return PixelOffset(dib) + static_cast<size_t>(RowBytes(bits, ImageWidth(dib))) * y +
           static_cast<size_t>(x) * (bits / 8);
}

static bool Is565(const std::vector<uint8_t> &dib) { return dib[14] == 16 && Field32(dib, 16) == 3; }

int ChannelValue(const std::vector<uint8_t> &dib, int x, int y, int c) {
    const size_t at = PixelAt(dib, x, y);
    switch (dib[14]) {
        case 8: return dib[40 + 4 * dib[at]];
        case 16: {
            const int w = WordAt(dib, at);
            if (c == 0) return (w & 31) * 255 / 31;
            if (Is565(dib)) return c == 1 ? ((w >> 5) & 63) * 255 / 63 : ((w >> 11) & 31) * 255 / 31;
            return c == 1 ? ((w >> 5) & 31) * 255 / 31 : ((w >> 10) & 31) * 255 / 31;
        }
        default: return dib[at + c];
    }
}

void StoreChannels(std::vector<uint8_t> &dib, int x, int y, const int *v) {
    const size_t at = PixelAt(dib, x, y);
    switch (dib[14]) {
        case 8:
            for (int i = 0; i < 256; ++i) {
                if (dib[40 + 4 * i] == v[0]) dib[at] = static_cast<uint8_t>(i);
            }
            return;
        case 16: {
            int word;
            if (Is565(dib)) {
                word = (v[2] * 31 / 255) << 11 | (v[1] * 63 / 255) << 5 | v[0] * 31 / 255;
            } else {
                word = (v[2] * 31 / 255) << 10 | (v[1] * 31 / 255) << 5 | v[0] * 31 / 255;
            }
            dib[at] = static_cast<uint8_t>(word);
            dib[at + 1] = static_cast<uint8_t>(word >> 8);
            return;
        }
        default:
            for (int c = 0; c < 3; ++c) dib[at + c] = static_cast<uint8_t>(v[c]);
    }
}

std::string RegionRequest::Describe() const {
    std::ostringstream s;
    s << ", kind " << kind << " inside " << inside;
    for (const Tz3Point &p : points) s << " (" << p.x << "," << p.y << ")";
    if (kind == 3) s << " rect " << rect.left << "," << rect.top << "," << rect.right << "," << rect.bottom;
    return s.str();
}

RegionRequest RandomRegion(std::mt19937 &rng, int width, int height) {
    RegionRequest r;
    r.kind = static_cast<int32_t>(rng() % 4);
    r.inside = rng() % 3 == 0 ? 0 : static_cast<int32_t>(1 + rng() % 1000);
    const auto coord = [&](int size) { return static_cast<int32_t>(rng() % (size + 4)) - 2; };
    if (r.kind == 0) r.mask = RandomMask(rng, width, height);
    if (r.kind == 2) {
        const int n = 2 + static_cast<int>(rng() % 4);
        for (int i = 0; i < n; ++i) r.points.push_back(Tz3Point{coord(width), coord(height)});
    }
    if (r.kind == 3) r.rect = Tz3Rect{coord(width), coord(height), coord(width), coord(height)};
    return r;
}

RegionRequest RectangleRegion(int x0, int t, int x1, int b) {
    RegionRequest r;
    r.kind = 2;
    r.inside = 1;
    r.points = {{x0, t}, {x1, t}, {x1, b}, {x0, b}};
    return r;
}

Selection SelectionOf(const std::vector<uint8_t> &src, const RegionRequest &region) {
    Selection s;
    s.width = ImageWidth(src);
    s.height = ImageHeight(src);
    s.on.assign(static_cast<size_t>(s.width) * s.height, 0);
    HandleGuard image(ToBlock(src));
    HandleGuard mask(region.kind == 0 ? ToBlock(region.mask) : nullptr);
    tz3::RegionArgs args{image.h,
                         mask.h,
                         static_cast<uint8_t>(region.kind),
                         region.points.data(),
                         static_cast<int32_t>(region.points.size()),
                         region.rect,
                         region.inside};
    tz3::LockedBlock lock(image.h);
    tz3::ResolvedRegion resolved;
    if (!tz3::ResolveRegion(lock.bytes(), args, resolved)) {
        ADD_FAILURE() << "the region does not resolve" << region.Describe();
        return s;
    }
    const tz3::RegionBox &box = resolved.box;
    for (int y = box.y0; y <= box.y1; ++y) {
        for (int x = box.x0; x <= box.x1; ++x) {
            bool on = true;
            if (resolved.mask.bits != nullptr) {
                const uint8_t *row = resolved.mask.bits + static_cast<size_t>(resolved.mask.stride) * (y - box.y0);
                on = tz3::MaskBitSet(row, x - box.x0);
            }
            s.on[static_cast<size_t>(y) * s.width + x] = on ? 1 : 0;
        }
    }
    return s;
}

DibHandle RunOn(const FilterCall &call, DibHandle image, DibHandle mask, const RegionRequest &region,
                int32_t noDialog) {
    const DibPair pair{image, mask};
    return call(&pair, region.kind, region.points.data(), static_cast<int32_t>(region.points.size()), &region.rect,
                region.inside, noDialog);
}

void MatchReferenceOnRandomImagesAndRegions(std::mt19937 &rng, const std::function<FilterTrial(std::mt19937 &rng)> &draw,
                                            int regionsPerImage) {
    for (const FilterFormat f : kFilterFormats) {
        for (int width = 1; width <= 33; ++width) {
            const int height = 1 + static_cast<int>(rng() % 6);
            const std::vector<uint8_t> src = RandomFilterSource(rng, f, width, height);
            HandleGuard image(ToBlock(src));
            for (int n = 0; n < regionsPerImage; ++n) {
                RegionRequest region;
                if (n > 0) region = RandomRegion(rng, width, height);
                const FilterTrial trial = draw(rng);
                HandleGuard mask(region.kind == 0 ? ToBlock(region.mask) : nullptr);
                HandleGuard out(RunOn(trial.call, image.h, mask.h, region));
                ASSERT_NE(out.h, nullptr) << FormatName(f) << ", width " << width << region.Describe()
                                          << trial.settings << ", status " << Tz3GetErrorStatus();
                EXPECT_EQ(Tz3GetErrorStatus(), 0);
                const Selection selected = SelectionOf(src, region);
                ASSERT_EQ(FromBlock(out.h), trial.reference(src, selected))
                    << FormatName(f) << ", width " << width << " height " << height << region.Describe()
                    << trial.settings;
                ExpectCallerBlocksUnchanged(image.h, src, mask.h);
            }
        }
    }
}

void ExpectProgressOverEveryBoxRow(std::mt19937 &rng, const FilterCall &call) {
    for (const FilterFormat f : kFilterFormats) {
        HandleGuard image(ToBlock(RandomFilterSource(rng, f, 6, 4)));
        {
            ProgressRecorder progress;
            HandleGuard out(RunOn(call, image.h, nullptr, RegionRequest{}, 7));
            ASSERT_NE(out.h, nullptr) << FormatName(f);
            ASSERT_NO_FATAL_FAILURE(ExpectCountingProgress(progress.calls, 4, 7, FormatName(f)));
        }
        {
            // Top-down rows 1..2 of the picture: a box of two rows.
            ProgressRecorder progress;
            HandleGuard out(RunOn(call, image.h, nullptr, RectangleRegion(1, 1, 4, 2), 5));
            ASSERT_NE(out.h, nullptr) << FormatName(f);
            ASSERT_NO_FATAL_FAILURE(ExpectCountingProgress(progress.calls, 2, 5, FormatName(f) + " box"));
        }
        {
            ProgressRecorder progress;
            HandleGuard out(RunOn(call, image.h, nullptr, RectangleRegion(0, 3, 5, 3), 3));
            ASSERT_NE(out.h, nullptr) << FormatName(f);
            ASSERT_NO_FATAL_FAILURE(ExpectCountingProgress(progress.calls, 1, 3, FormatName(f) + " one row"));
        }
    }
}

void CancelAtEveryProgressCallInEveryDepth(std::mt19937 &rng, const FilterCall &call) {
    for (const FilterFormat f : kFilterFormats) {
        const std::vector<uint8_t> src = RandomFilterSource(rng, f, 5, 4);
        const std::vector<uint8_t> mask = RandomMask(rng, 5, 4);
        HandleGuard image(ToBlock(src));
        HandleGuard maskBlock(ToBlock(mask));
        RegionRequest region;
        region.kind = 0;
        ExpectCancelAtEveryProgressCall(
            4, [&] { return RunOn(call, image.h, maskBlock.h, region); }, FormatName(f));
        ExpectCallerBlocksUnchanged(image.h, src, maskBlock.h);
    }
}

void FailEveryAllocationInEveryDepthAndKind(std::mt19937 &rng, const FilterCall &call,
                                            const std::function<void(FilterFormat f, int kind, long n)> &checkCount) {
    for (const FilterFormat f : kFilterFormats) {
        const std::vector<uint8_t> src = RandomFilterSource(rng, f, 7, 6);
        HandleGuard image(ToBlock(src));
        for (int kind : {0, 1, 2, 3}) {
            RegionRequest region;
            region.kind = kind;
            if (kind == 0) region.mask = RandomMask(rng, 7, 6);
            if (kind == 2) region.points = {{0, 0}, {6, 1}, {2, 5}};
            if (kind == 3) region.rect = Tz3Rect{1, 1, 6, 5};
            HandleGuard mask(kind == 0 ? ToBlock(region.mask) : nullptr);
            const auto once = [&] { return RunOn(call, image.h, mask.h, region); };
            long allocations = 0;
            ASSERT_NO_FATAL_FAILURE(CountAllocations(once, &allocations));
            if (checkCount) {
                ASSERT_NO_FATAL_FAILURE(checkCount(f, kind, allocations));
            }
            ExpectFailureAtEveryAllocation(allocations, once, FormatName(f) + " kind " + std::to_string(kind));
            ExpectCallerBlocksUnchanged(image.h, src, mask.h);
        }
    }
}

void ExpectRefusedFormats(std::mt19937 &rng, const FilterCall &call) {
    std::vector<std::vector<uint8_t>> refused;
    refused.push_back(RandomDib(rng, 5, 3, 1));
    refused.push_back(RandomDib(rng, 5, 3, 4));
    std::vector<uint8_t> colour = GrayDib(5, 3, GrayLevels(0, rng));
    colour[41] = 9;  // entry 0 is no longer gray
    refused.push_back(colour);
    std::vector<uint8_t> twice = GrayDib(5, 3, GrayLevels(0, rng));
    twice[40 + 4 * 7] = twice[41 + 4 * 7] = twice[42 + 4 * 7] = 6;  // level 6 twice, 7 missing
    refused.push_back(twice);
    std::vector<uint8_t> shortTable = MakeDibBytes(5, 3, 8, 200);
    for (int i = 0; i < 200; ++i) shortTable[40 + 4 * i] = shortTable[41 + 4 * i] = shortTable[42 + 4 * i] = static_cast<uint8_t>(i);
    refused.push_back(shortTable);
    std::vector<uint8_t> badMasks16 = MakeDibBytes(5, 3, 16, 3);
    badMasks16[16] = 3;
    SetField32(badMasks16, 40, 0x00FF);
    SetField32(badMasks16, 44, 0x0F00);
    SetField32(badMasks16, 48, 0xF000);
    refused.push_back(badMasks16);
    std::vector<uint8_t> badMasks32 = MakeDibBytes(5, 3, 32, 3);
    badMasks32[16] = 3;
    SetField32(badMasks32, 40, 0x00FF0000);
    SetField32(badMasks32, 44, 0x000000FF);
    SetField32(badMasks32, 48, 0x0000FF00);
    refused.push_back(badMasks32);
    for (size_t i = 0; i < refused.size(); ++i) {
        HandleGuard image(ToBlock(refused[i]));
        const size_t live = Tz3LiveBlocks();
        ProgressRecorder progress;
        EXPECT_EQ(RunOn(call, image.h, nullptr, RegionRequest{}), nullptr) << "refused image " << i;
        EXPECT_EQ(Tz3GetErrorStatus(), 7) << "refused image " << i;
        EXPECT_EQ(Tz3LiveBlocks(), live) << "refused image " << i;
        EXPECT_TRUE(progress.calls.empty());
        ExpectCallerBlocksUnchanged(image.h, refused[i]);
    }
}

void ExpectFrameStatuses(std::mt19937 &rng, const FilterCall &call) {
    const auto plain = [&](const DibPair *pair) { return call(pair, 1, nullptr, 0, nullptr, 1, 1); };
    ExpectNullImageRefused(plain);
    ExpectShortBlockRefused({8, 16, 24, 32}, [&](DibHandle image) {
        const DibPair pair{image, nullptr};
        return plain(&pair);
    });
    for (const FilterFormat f : {kFilterFormats[0], kFilterFormats[3]}) {
        const std::vector<uint8_t> src = RandomFilterSource(rng, f, 5, 4);
        HandleGuard image(ToBlock(src));
        const size_t live = Tz3LiveBlocks();
        for (int32_t kind : {4, 9, 260}) {
            RegionRequest region;
            region.kind = kind;
            EXPECT_EQ(RunOn(call, image.h, nullptr, region), nullptr) << FormatName(f) << " kind " << kind;
            EXPECT_EQ(Tz3GetErrorStatus(), 5) << FormatName(f) << " kind " << kind;
            EXPECT_EQ(Tz3LiveBlocks(), live);
        }
        RegionRequest whole;
        HandleGuard once(RunOn(call, image.h, nullptr, whole));
        ASSERT_NE(once.h, nullptr);
        RegionRequest low;
        low.kind = 257;  // low byte 1
        HandleGuard again(RunOn(call, image.h, nullptr, low));
        ASSERT_NE(again.h, nullptr) << FormatName(f);
        EXPECT_EQ(FromBlock(again.h), FromBlock(once.h));

        RegionRequest noMask;
        noMask.kind = 0;
        HandleGuard wrong(ToBlock(RandomMask(rng, 4, 4)));
        HandleGuard deep(ToBlock(MakeDibBytes(5, 4, 8)));
        const size_t before = Tz3LiveBlocks();
        EXPECT_EQ(RunOn(call, image.h, nullptr, noMask), nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 7);
        EXPECT_EQ(RunOn(call, image.h, wrong.h, noMask), nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 7);
        EXPECT_EQ(RunOn(call, image.h, deep.h, noMask), nullptr);
        EXPECT_EQ(Tz3GetErrorStatus(), 7);
        EXPECT_EQ(Tz3LiveBlocks(), before);
        EXPECT_TRUE(IsUnlocked(wrong.h));

        {
            DialogRecorder dialog(true);
            ProgressRecorder progress;
            EXPECT_EQ(RunOn(call, image.h, nullptr, whole, 0), nullptr);
            EXPECT_EQ(Tz3GetErrorStatus(), 2);
            EXPECT_EQ(dialog.opens, 1);
            EXPECT_EQ(dialog.closes, 0);
            EXPECT_TRUE(progress.calls.empty());
        }
        {
            DialogRecorder dialog;
            HandleGuard shown(RunOn(call, image.h, nullptr, whole, 0));
            ASSERT_NE(shown.h, nullptr);
            EXPECT_EQ(dialog.opens, 1);
            EXPECT_EQ(dialog.closes, 1);
            EXPECT_EQ(FromBlock(shown.h), FromBlock(once.h));
        }
        {
            DialogRecorder dialog;
            HandleGuard hidden(RunOn(call, image.h, nullptr, whole, 1));
            ASSERT_NE(hidden.h, nullptr);
            EXPECT_EQ(dialog.opens, 0);
            EXPECT_EQ(dialog.closes, 0);
        }
        ExpectCallerBlocksUnchanged(image.h, src);
        EXPECT_EQ(Tz3LiveBlocks(), before);
    }
}

}  // namespace tz3test
