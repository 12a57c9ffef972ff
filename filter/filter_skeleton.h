// The skeleton shared by the neighbourhood filters: one dispatcher that opens the image, resolves
// the region and picks the worker's instantiation once, and one worker template that clones the
// image, walks the rows of the box and reports progress after each of them.
//
// A filter computes each output pixel from several input pixels, so every read comes from the
// caller's image, over the whole image (not limited to the box or the mask), and never from the
// clone: no result feeds into a later pixel of the same call. Palette images are filtered pixel by
// pixel like any other, and the region is honoured at every depth.
//
// An operation is a record with
//   static constexpr uint8_t kFormats     the accepted formats (kFormatFilters for all but mosaic)
//   bool Normalise()                      its own parameter rules, run after the format test and
//                                         before the region; false with the status set
//   template <class Pix> bool Prepare(const FilterImage<Pix> &)
//                                         per-call tables and buffers; false with the status set
//   template <class Pix> void Row(const FilterImage<Pix> &, int32_t y)
//                                         computes the selected pixels of row y of the box into the
//                                         clone (ForEachSelected, StoreSelected help)
// and may have
//   bool WalksPixels() const              false: the result is the plain copy, with no progress
//   int32_t RowStep() const               rows handled by one Row call (a band), one progress
//                                         call per band; 1 when absent
//
//   format      channel values (8 bits each)           stored back
//   8 gray      the level, through the GrayLevelMap    the index that holds the computed level
//   16          ChannelExpand16, blue, green, red      ChannelPack16 of all three
//   24          blue, green, red bytes                 the same bytes
//   32          the first three bytes                  the first three; the fourth keeps the copy's
//   1/4/8 index only for operations that accept them (mosaic); they fetch and store indices themselves
#pragma once

#include <cstdint>
#include <cstring>
#include <type_traits>

#include "frame/arith.h"
#include "frame/call.h"
#include "frame/colour_tables.h"
#include "frame/pixel.h"

namespace tz3 {

// 8-bit gray, 16, 24 and 32 bits: every filter but the mosaic.
constexpr uint8_t kFormatFilters = kFormat8Gray | kFormat16 | kFormat24 | kFormat32;
static_assert(kFormatFilters == 116);

// An 8-bit image with a full gray palette: its pixels are indices, its values levels.
struct PixGray8 {
    static constexpr int32_t kBytes = 1;
    static constexpr uint16_t kBitCount = 8;
};
// Palette indices as they stand, for the one filter that takes every format.
template <uint16_t Bits>
struct PixIndex {
    static constexpr uint16_t kBitCount = Bits;
};
using PixIndex1 = PixIndex<1>;
using PixIndex4 = PixIndex<4>;
using PixIndex8 = PixIndex<8>;

template <class Pix>
constexpr bool kIsGray = std::is_same_v<Pix, PixGray8>;
template <class Pix>
constexpr bool kIsIndex = std::is_same_v<Pix, PixIndex1> || std::is_same_v<Pix, PixIndex4> ||
                          std::is_same_v<Pix, PixIndex8>;
template <class Pix>
constexpr bool kIs16 = std::is_same_v<Pix, Pix16x555> || std::is_same_v<Pix, Pix16x565>;
// Channel values a pixel holds: the level of a gray image, else blue, green, red.
template <class Pix>
constexpr int32_t kChannels = kIsGray<Pix> ? 1 : 3;

// The call's view of the caller's image and of the clone being written. Rows are counted from the
// bottom; the box is inclusive and the mask, when there is one, is relative to it.
template <class Pix>
struct FilterImage {
    const uint8_t *src = nullptr;  // the caller's whole block, header first
    const uint8_t *srcBits = nullptr;
    uint8_t *dstBits = nullptr;
    size_t stride = 0;
    int32_t width = 0, height = 0;
    RegionBox box{};
    MaskView mask;
    const uint8_t *toLevel = nullptr;  // 8-bit gray: palette index to level
    const uint8_t *toIndex = nullptr;  // 8-bit gray: level to palette index

    const uint8_t *SrcRow(int32_t y) const { return srcBits + stride * static_cast<size_t>(y); }
    uint8_t *DstRow(int32_t y) const { return dstBits + stride * static_cast<size_t>(y); }
    // The mask row of image row y, or null when every pixel of the box is selected.
    const uint8_t *MaskRow(int32_t y) const {
        return mask.bits == nullptr ? nullptr : mask.bits + static_cast<size_t>(mask.stride) * (y - box.y0);
    }

    // The border rules. Weighted filters clamp each tap into the image, so the edge pixel repeats;
    // averaging and sorting filters cut their window to the image and count fewer pixels.
    int32_t ClampX(int32_t x) const { return ClampInt(x, 0, width - 1); }
    int32_t ClampY(int32_t y) const { return ClampInt(y, 0, height - 1); }

    // The channel values of pixel x of a source row.
    void Fetch(const uint8_t *row, int32_t x, uint8_t *ch) const {
        static_assert(!kIsIndex<Pix>, "index formats fetch their own pixels");
        if constexpr (kIsGray<Pix>) {
            ch[0] = toLevel[row[x]];
        } else {
            const Rgb c = Pix::Fetch(row + static_cast<size_t>(x) * Pix::kBytes);
            ch[0] = c.b;
            ch[1] = c.g;
            ch[2] = c.r;
        }
    }
    // Stores channel values into pixel x of a clone row; a 32-bit fourth byte keeps the copy's value.
    void Store(uint8_t *row, int32_t x, const uint8_t *ch) const {
        static_assert(!kIsIndex<Pix>, "index formats store their own pixels");
        if constexpr (kIsGray<Pix>) {
            row[x] = toIndex[ch[0]];
        } else {
            Pix::Store(row + static_cast<size_t>(x) * Pix::kBytes, Rgb{ch[2], ch[1], ch[0]});
        }
    }
    // The channel values of columns from .. from + count - 1 of source row y, each column clamped
    // into the image: columns left of the image repeat the first pixel, right of it the last.
    void FetchRowClamped(int32_t y, int32_t from, int32_t count, uint8_t *out) const {
        constexpr int32_t C = kChannels<Pix>;
        const uint8_t *row = SrcRow(y);
        uint8_t first[C], last[C];
        Fetch(row, 0, first);
        Fetch(row, width - 1, last);
        int32_t i = 0;
        for (; i < count && from + i < 0; ++i) std::memcpy(out + i * C, first, C);
        // Columns i .. end - 1 lie inside the image.
        int32_t end = from + count > width ? width - from : count;
        if (end < i) end = i;
        if constexpr (std::is_same_v<Pix, Pix24>) {
            if (end > i) {
                std::memcpy(out + i * C, row + static_cast<size_t>(from + i) * 3, static_cast<size_t>(end - i) * 3);
                i = end;
            }
        } else {
            for (; i < end; ++i) Fetch(row, from + i, out + i * C);
        }
        for (; i < count; ++i) std::memcpy(out + i * C, last, C);
    }
};

// Calls step(x) for each pixel of row y of the box whose mask bit is set, or for each one when
// there is no mask; whole bytes of clear bits are skipped.
template <class Pix, class Step>
inline void ForEachSelected(const FilterImage<Pix> &img, int32_t y, Step &&step) {
    const int32_t count = img.box.x1 - img.box.x0 + 1;
    const uint8_t *maskRow = img.MaskRow(y);
    if (maskRow == nullptr) {
        for (int32_t i = 0; i < count; ++i) step(img.box.x0 + i);
        return;
    }
    for (int32_t i = 0; i < count;) {
        const uint8_t bits = maskRow[i >> 3];
        if ((i & 7) == 0 && bits == 0) {
            i += 8;
            continue;
        }
        if (MaskBitSet(maskRow, i)) step(img.box.x0 + i);
        ++i;
    }
}

// Stores the channel values computed for the whole box row (kChannels per pixel, from x0 on) into
// the selected pixels of row y of the clone.
template <class Pix>
inline void StoreSelected(const FilterImage<Pix> &img, int32_t y, const uint8_t *values) {
    constexpr int32_t C = kChannels<Pix>;
    uint8_t *row = img.DstRow(y);
    const int32_t x0 = img.box.x0;
    if constexpr (std::is_same_v<Pix, Pix24>) {
        if (img.mask.bits == nullptr) {
            std::memcpy(row + static_cast<size_t>(x0) * 3, values, static_cast<size_t>(img.box.x1 - x0 + 1) * 3);
            return;
        }
    }
    ForEachSelected(img, y, [&](int32_t x) { img.Store(row, x, values + static_cast<size_t>(x - x0) * C); });
}

// A working buffer of `count` values of T from the platform allocator, zeroed; status 3 and null
// on failure. The owner frees it on every way out.
template <class T>
inline T *AllocScratch(OwnedBlock &owner, uint64_t count) {
    owner = AllocLocked(count * sizeof(T));
    return reinterpret_cast<T *>(owner.bytes());
}

// True when the processor runs AVX2 code; asked once per call, where a filter picks its loops.
bool ProcessorHasAvx2();

// After each row (or band) of the box: false, with status 1, when the user cancelled.
inline bool FilterProgress(int32_t step, int32_t last, int32_t noDialog) {
    if (PercentProgress(step, last, 0, 100, noDialog) != 0) return true;
    SetErrorStatus(TZ3_CANCELLED);
    return false;
}

// The worker of every filter. The clone takes the source's header and table; its rows are copied
// one at a time just before the op rewrites their box part, so that the copy stays in cache.
template <class Pix, class Op>
DibHandle FilterWorker(const uint8_t *src, const RegionBox &box, const MaskView &mask, Op &op, int32_t noDialog) {
    DibHandle made = CloneDib(src, DibWidth(src), DibHeight(src), 0);
    if (made == nullptr) return nullptr;
    OwnedBlock clone(made);
    if (!clone) {
        SetErrorStatus(TZ3_NO_MEMORY);
        return nullptr;
    }
    FilterImage<Pix> img;
    img.src = src;
    img.srcBits = DibBits(src);
    img.dstBits = DibBits(clone.bytes());
    img.width = DibWidth(src);
    img.height = DibHeight(src);
    img.stride = static_cast<size_t>(DibRowBytes(src));
    img.box = box;
    img.mask = mask;
    const auto copyRows = [&](int32_t from, int32_t to) {
        if (to > from) {
            std::memcpy(img.DstRow(from), img.SrcRow(from), img.stride * static_cast<size_t>(to - from));
        }
    };
    if constexpr (requires { op.WalksPixels(); }) {
        if (!op.WalksPixels()) {
            copyRows(0, img.height);
            return clone.Release();
        }
    }
    GrayLevelMap map;
    if constexpr (kIsGray<Pix>) {
        if (!BuildGrayLevelMap(src, map)) return nullptr;
        img.toLevel = map.toLevel;
        img.toIndex = map.toIndex;
    }
    if (!op.template Prepare<Pix>(img)) return nullptr;
    int32_t step = 1;
    if constexpr (requires { op.RowStep(); }) step = op.RowStep();
    copyRows(0, box.y0);
    for (int32_t y = box.y0; y <= box.y1; y += step) {
        const int32_t end = step < box.y1 - y + 1 ? y + step : box.y1 + 1;
        copyRows(y, end);
        op.template Row<Pix>(img, y);
        if (!FilterProgress(y - box.y0, box.y1 - box.y0, noDialog)) return nullptr;
        if (end > box.y1) break;
    }
    copyRows(box.y1 + 1, img.height);
    return clone.Release();
}

// Opens the image with the op's formats, lets the op normalise its parameters, resolves the region
// and runs the format's worker. Everything taken is released on every way out.
template <class Op>
DibHandle FilterDispatcher(const RegionArgs &args, Op &op, int32_t noDialog) {
    OpenedDib image;
    if (!OpenDib(args.image, Op::kFormats, image)) return nullptr;
    const uint8_t *dib = image.dib;
    if (!op.Normalise()) return nullptr;
    ResolvedRegion region;
    if (!ResolveRegion(dib, args, region)) return nullptr;
    const RegionBox &box = region.box;
    const MaskView &mask = region.mask;
    switch (DibBitCount(dib)) {
        case 1:
            if constexpr ((Op::kFormats & kFormat1) != 0) return FilterWorker<PixIndex1>(dib, box, mask, op, noDialog);
            break;
        case 4:
            if constexpr ((Op::kFormats & kFormat4) != 0) return FilterWorker<PixIndex4>(dib, box, mask, op, noDialog);
            break;
        case 8:
            // An operation that takes any palette treats a gray one as any other.
            if constexpr ((Op::kFormats & kFormat8) != 0) {
                return FilterWorker<PixIndex8>(dib, box, mask, op, noDialog);
            } else if constexpr ((Op::kFormats & kFormat8Gray) != 0) {
                return FilterWorker<PixGray8>(dib, box, mask, op, noDialog);
            }
            break;
        case 16:
            if (image.redMask == kRed555Mask) return FilterWorker<Pix16x555>(dib, box, mask, op, noDialog);
            return FilterWorker<Pix16x565>(dib, box, mask, op, noDialog);
        case 24:
            return FilterWorker<Pix24>(dib, box, mask, op, noDialog);
        case 32:
            return FilterWorker<Pix32>(dib, box, mask, op, noDialog);
        default:
            break;
    }
    SetErrorStatus(TZ3_BAD_DEPTH);
    return nullptr;
}

}  // namespace tz3
