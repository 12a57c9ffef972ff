// TZ3AutoSelectImage: selects, in one pass over a region's box, every pixel whose colour lies
// within a tolerance of a key colour. No seed and no connectivity: two separate patches of the key
// colour are both selected. The result image holds the region's pixels and zero elsewhere; the
// result mask holds the selection.
//
//   metric   distance                               selected when at most
//   0        |dB| + |dG| + |dR|                     3 x tolerance
//   1        |dCr| + |dCb|                          2 x tolerance
//   2        |dY|                                   tolerance
//
// Y, Cr and Cb are sums of the single-precision YCC table entries added in double in the written
// order (the 128.0 of the chroma last) and truncated toward zero, for the key once and for every
// pixel, before any difference is taken.
//
//   format   read (and compared)                    copied
//   1/4/8    the index's table entry                the index as it stands, placed at its column
//   16       each channel expanded to 8 bits        packed again: the round trip loses a level
//                                                   on most values, and results depend on it
//   24       blue, green, red                       three bytes
//   32       blue, green, red                       three bytes; the fourth byte stays 0
#include <cstdlib>
#include <cstring>

#include "frame/call.h"
#include "frame/colour_tables.h"
#include "frame/index_pixel.h"
#include "frame/pixel.h"
#include "select/selection_shape.h"

namespace tz3 {
namespace {

// The three truncated sums of a colour.
int32_t LumaOf(const YccTables &t, Rgb c) {
    return static_cast<int32_t>(static_cast<double>(t.t[kTableYRed][c.r]) +
                                static_cast<double>(t.t[kTableYGreen][c.g]) +
                                static_cast<double>(t.t[kTableYBlue][c.b]));
}
int32_t CrOf(const YccTables &t, Rgb c) {
    return static_cast<int32_t>(static_cast<double>(t.t[kTableCrRed][c.r]) +
                                static_cast<double>(t.t[kTableCrGreen][c.g]) +
                                static_cast<double>(t.t[kTableCrBlue][c.b]) + 128.0);
}
int32_t CbOf(const YccTables &t, Rgb c) {
    return static_cast<int32_t>(static_cast<double>(t.t[kTableCbRed][c.r]) +
                                static_cast<double>(t.t[kTableCbGreen][c.g]) +
                                static_cast<double>(t.t[kTableCbBlue][c.b]) + 128.0);
}

// The metrics, each with its key values and limit fixed for the call.
struct NearInRgb {
    Rgb key;
    int32_t limit;
    bool operator()(Rgb c) const {
        return std::abs(c.b - key.b) + std::abs(c.g - key.g) + std::abs(c.r - key.r) <= limit;
    }
};
struct NearInChroma {
    const YccTables &t;
    int32_t keyCr, keyCb, limit;
    bool operator()(Rgb c) const {
        return std::abs(CrOf(t, c) - keyCr) + std::abs(CbOf(t, c) - keyCb) <= limit;
    }
};
struct NearInLuma {
    const YccTables &t;
    int32_t keyY, limit;
    bool operator()(Rgb c) const { return std::abs(LumaOf(t, c) - keyY) <= limit; }
};

// A pixel's colour through the table: an index past the table reads the bytes that follow it in
// the block, and a byte past the block reads as 0.
Rgb TableColour(const uint8_t *dib, size_t blockSize, uint32_t index) {
    const uint64_t at = kHeaderBytes + 4ull * index;
    const auto byteAt = [&](uint64_t i) -> uint8_t { return i < blockSize ? dib[i] : 0; };
    return Rgb{byteAt(at + 2), byteAt(at + 1), byteAt(at)};
}

// Walks the box. Palette formats judge each possible index once, since the decision depends on the
// colour alone; the other formats judge every pixel.
template <uint16_t Bits, bool Is565, class Near>
bool AutoSelectImageWorker(const uint8_t *src, size_t blockSize, const RegionBox &box,
                           const uint8_t *regionMask, uint8_t *result, uint8_t *maskDib, const Near &near,
                           int32_t noDialog) {
    const auto srcStride = static_cast<size_t>(DibRowBytes(src));
    const auto dstStride = static_cast<size_t>(DibRowBytes(result));
    const auto maskStride = static_cast<size_t>(DibRowBytes(maskDib));
    const size_t regionStride = regionMask != nullptr ? static_cast<size_t>(DibRowBytes(regionMask)) : 0;
    const uint8_t *srcBits = DibBits(src);
    uint8_t *dstBits = DibBits(result);
    uint8_t *maskBits = DibBits(maskDib);
    const uint8_t *regionBits = regionMask != nullptr ? DibBits(regionMask) : nullptr;
    const int32_t width = box.x1 - box.x0 + 1;
    bool nearIndex[256] = {};
    if constexpr (Bits <= 8) {
        for (uint32_t i = 0; i < (1u << Bits); ++i) nearIndex[i] = near(TableColour(src, blockSize, i));
    }
    for (int32_t y = box.y0; y <= box.y1; ++y) {
        const int32_t my = y - box.y0;
        const uint8_t *s = srcBits + srcStride * static_cast<size_t>(y);
        uint8_t *d = dstBits + dstStride * static_cast<size_t>(my);
        uint8_t *m = maskBits + maskStride * static_cast<size_t>(my);
        const uint8_t *region =
            regionBits != nullptr ? regionBits + regionStride * static_cast<size_t>(my) : nullptr;
        // Eight pixels per mask byte: the byte of the region says which to visit, and the byte of
        // the selection is gathered in a register and stored once.
        for (int32_t group = 0; group < width; group += 8) {
            const uint32_t visit = region != nullptr ? region[group >> 3] : 0xFFu;
            if (visit == 0) continue;
            const int32_t count = width - group < 8 ? width - group : 8;
            uint32_t chosen = 0;
            if constexpr (Bits == 24) {
                // A whole group inside the region: one copy and no per-pixel tests of the region.
                if (visit == 0xFFu && count == 8) {
                    const uint8_t *p = s + 3 * static_cast<size_t>(box.x0 + group);
                    std::memcpy(d + 3 * static_cast<size_t>(group), p, 24);
                    for (int32_t i = 0; i < 8; ++i, p += 3) {
                        chosen |= static_cast<uint32_t>(near(Rgb{p[2], p[1], p[0]})) << (7 - i);
                    }
                    m[group >> 3] = static_cast<uint8_t>(chosen);
                    continue;
                }
            }
            for (int32_t i = 0; i < count; ++i) {
                const uint32_t bit = 0x80u >> i;
                if ((visit & bit) == 0) continue;
                const int32_t mx = group + i;
                const int32_t x = box.x0 + mx;
                bool selected;
                if constexpr (Bits <= 8) {
                    const uint8_t index = IndexPixel<Bits>::Get(s, x);
                    IndexPixel<Bits>::Or(d, mx, index);
                    selected = nearIndex[index];
                } else if constexpr (Bits == 16) {
                    const Rgb c = ChannelExpand16(ReadU16(s + 2 * static_cast<size_t>(x)), Is565);
                    WriteU16(d + 2 * static_cast<size_t>(mx), ChannelPack16(c, Is565));
                    selected = near(c);
                } else {
                    constexpr size_t kBytes = Bits / 8;
                    const uint8_t *p = s + kBytes * static_cast<size_t>(x);
                    uint8_t *q = d + kBytes * static_cast<size_t>(mx);
                    q[0] = p[0];
                    q[1] = p[1];
                    q[2] = p[2];
                    selected = near(Rgb{p[2], p[1], p[0]});
                }
                if (selected) chosen |= bit;
            }
            m[group >> 3] = static_cast<uint8_t>(chosen);
        }
        if (PercentProgress(my, box.y1 - box.y0, 0, 100, noDialog) == 0) {
            SetErrorStatus(TZ3_CANCELLED);
            return false;
        }
    }
    return true;
}

template <class Near>
bool RunAutoSelectWorker(const OpenedDib &image, const RegionBox &box, const uint8_t *regionMask,
                         uint8_t *result, uint8_t *mask, const Near &near, int32_t noDialog) {
    const uint8_t *dib = image.dib;
    const size_t size = image.lock.size();
    switch (DibBitCount(dib)) {
        case 1:
            return AutoSelectImageWorker<1, false>(dib, size, box, regionMask, result, mask, near, noDialog);
        case 4:
            return AutoSelectImageWorker<4, false>(dib, size, box, regionMask, result, mask, near, noDialog);
        case 8:
            return AutoSelectImageWorker<8, false>(dib, size, box, regionMask, result, mask, near, noDialog);
        case 16:
            if (image.redMask == kRed555Mask) {
                return AutoSelectImageWorker<16, false>(dib, size, box, regionMask, result, mask, near,
                                                        noDialog);
            }
            return AutoSelectImageWorker<16, true>(dib, size, box, regionMask, result, mask, near, noDialog);
        case 24:
            return AutoSelectImageWorker<24, false>(dib, size, box, regionMask, result, mask, near, noDialog);
        case 32:
            return AutoSelectImageWorker<32, false>(dib, size, box, regionMask, result, mask, near, noDialog);
        default:
            SetErrorStatus(TZ3_BAD_DEPTH);
            return false;
    }
}

DibPair AutoSelectImage(DibHandle handle, int32_t kind, const Tz3Point *points, int32_t count,
                        const Tz3Rect &rect, int32_t inside, int32_t keyRed, int32_t keyGreen,
                        int32_t keyBlue, int32_t metricArg, int32_t toleranceArg, int32_t noDialog) {
    // The metric is checked before anything else, the image included.
    const auto metric = static_cast<uint8_t>(metricArg);
    if (metric > 2) {
        SetErrorStatus(TZ3_BAD_PARAMETER);
        return DibPair{};
    }
    OpenedDib image;
    if (!OpenDib(handle, kFormatAll, image)) return DibPair{};
    const uint8_t *dib = image.dib;
    SelectionShape shape;
    if (!ResolveSelectionShape(dib, static_cast<uint8_t>(kind), points, count, rect, inside, false, shape)) {
        return DibPair{};
    }
    const int32_t w = shape.Width();
    const int32_t h = shape.Height();
    OwnedBlock region;
    if (shape.kind != kRegionWhole) {
        DibHandle made = MakeRegionMask(w, h, shape.kind, shape.polygon, shape.count, shape.draw.left,
                                        shape.draw.top, shape.draw.right, shape.draw.bottom, inside);
        if (made == nullptr) return DibPair{};
        region = OwnedBlock(made);
        if (!region) {
            SetErrorStatus(TZ3_NO_MEMORY);
            return DibPair{};
        }
    }
    DibHandle cloned = CloneDib(dib, w, h, 0);
    if (cloned == nullptr) return DibPair{};
    OwnedBlock result(cloned);
    if (!result) {
        SetErrorStatus(TZ3_NO_MEMORY);
        return DibPair{};
    }
    // Drawn with no figure and the inside flag set, the mask starts all clear.
    DibHandle selection = MakeRegionMask(w, h, kRegionMask, nullptr, 0, 0, 0, 0, 0, 1);
    if (selection == nullptr) return DibPair{};
    OwnedBlock mask(selection);
    if (!mask) {
        SetErrorStatus(TZ3_NO_MEMORY);
        return DibPair{};
    }
    YccTables tables;
    if (!BuildYccTables(tables)) return DibPair{};
    const Rgb key{static_cast<uint8_t>(keyRed), static_cast<uint8_t>(keyGreen),
                  static_cast<uint8_t>(keyBlue)};
    const int32_t tolerance = static_cast<uint8_t>(toleranceArg);
    const uint8_t *regionMask = region ? region.bytes() : nullptr;
    bool done;
    switch (metric) {
        case 0:
            done = RunAutoSelectWorker(image, shape.box, regionMask, result.bytes(), mask.bytes(),
                                       NearInRgb{key, 3 * tolerance}, noDialog);
            break;
        case 1:
            done = RunAutoSelectWorker(
                image, shape.box, regionMask, result.bytes(), mask.bytes(),
                NearInChroma{tables, CrOf(tables, key), CbOf(tables, key), 2 * tolerance}, noDialog);
            break;
        default:
            done = RunAutoSelectWorker(image, shape.box, regionMask, result.bytes(), mask.bytes(),
                                       NearInLuma{tables, LumaOf(tables, key), tolerance}, noDialog);
            break;
    }
    if (!done) return DibPair{};
    return DibPair{result.Release(), mask.Release()};
}

}  // namespace
}  // namespace tz3

extern "C" TZ3_API DibPair TZ3AutoSelectImage(DibHandle image, int32_t kind, const Tz3Point *points,
                                              int32_t count, const Tz3Rect *rect, int32_t inside,
                                              int32_t keyRed, int32_t keyGreen, int32_t keyBlue,
                                              int32_t metric, int32_t tolerance, int32_t noDialog,
                                              intptr_t dialog1, intptr_t dialog2, intptr_t dialog3) {
    using namespace tz3;
    return RunExport<DibPair>(noDialog, dialog1, dialog2, dialog3, [&] {
        const Tz3Rect r = rect != nullptr ? *rect : Tz3Rect{0, 0, 0, 0};
        return AutoSelectImage(image, kind, points, count, r, inside, keyRed, keyGreen, keyBlue, metric,
                               tolerance, noDialog);
    });
}

extern "C" TZ3_API int32_t TZ3AutoSelectImageEx(DibHandle image, DibPair *result, int32_t kind,
                                                const Tz3Point *points, int32_t count, const Tz3Rect *rect,
                                                int32_t inside, int32_t keyRed, int32_t keyGreen,
                                                int32_t keyBlue, int32_t metric, int32_t tolerance,
                                                int32_t noDialog, intptr_t dialog1, intptr_t dialog2,
                                                intptr_t dialog3) {
    using namespace tz3;
    bool ran = false;
    const DibPair pair = RunExport<DibPair>(noDialog, dialog1, dialog2, dialog3, [&] {
        ran = true;
        const Tz3Rect r = rect != nullptr ? *rect : Tz3Rect{0, 0, 0, 0};
        return AutoSelectImage(image, kind, points, count, r, inside, keyRed, keyGreen, keyBlue, metric,
                               tolerance, noDialog);
    });
    return HandOutPair(ran, pair, result);
}
