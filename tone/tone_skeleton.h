// The skeleton shared by the tone operations: one dispatcher that opens the image and resolves the
// region, one worker for palette images and one worker template for direct pixels.
//
// An operation is a record with
//   Rgb Pixel(Rgb) const         the formula for a 16, 24 or 32-bit pixel
//   Rgb PaletteEntry(Rgb) const  the formula for a colour table entry (may use other precisions)
//   bool Prepare()               per-call tables for the pixel formula; false with the status set
// Its parameter clamps are made when it is constructed: they are silent and set no status.
//
//   format   what changes                          region
//   1/4/8    the colour table only, every entry    ignored, not even checked
//   16       expand, formula, pack (lossy)         box and mask
//   24/32    B, G, R bytes; a 32-bit fourth byte   box and mask
//            keeps its copied value
#pragma once

#include <cstring>

#include "frame/call.h"
#include "frame/pixel.h"

namespace tz3 {

// After each step of a stage: false (status 1) when the user cancelled.
inline bool ReportStep(int32_t step, int32_t last, int32_t noDialog) {
    if (PercentProgress(step, last, 0, 100, noDialog) != 0) return true;
    SetErrorStatus(TZ3_CANCELLED);
    return false;
}

// A clone of the source's header and table, with its rows still to be written; null with the
// status set on failure.
inline OwnedBlock CloneForWriting(const uint8_t *src, int32_t withPixels) {
    DibHandle clone = CloneDib(src, DibWidth(src), DibHeight(src), withPixels);
    if (clone == nullptr) return OwnedBlock();
    OwnedBlock owned(clone);
    if (!owned) SetErrorStatus(TZ3_NO_MEMORY);
    return owned;
}

// Palette images: every table entry goes through the formula; the pixel indices stay.
template <class Op>
DibHandle TonePaletteWorker(const uint8_t *src, const Op &op, int32_t noDialog) {
    OwnedBlock clone = CloneForWriting(src, 1);
    if (!clone) return nullptr;
    const auto n = static_cast<int32_t>(DibNumColors(src));
    const uint8_t *from = src + kHeaderBytes;
    uint8_t *to = clone.bytes() + kHeaderBytes;
    for (int32_t i = 0; i < n; ++i, from += 4, to += 4) {
        const Rgb c = op.PaletteEntry(Rgb{from[2], from[1], from[0]});
        to[0] = c.b;
        to[1] = c.g;
        to[2] = c.r;
        if (!ReportStep(i, n - 1, noDialog)) return nullptr;
    }
    return clone.Release();
}

// Direct pixels: the box's pixels whose mask bit is set go through the formula; all others keep
// the source's value. Rows are copied one at a time just before their box part is rewritten, so the
// copy is the only pass over memory that does not stay in cache.
template <class Pix, class Op>
DibHandle ToneWorker(const uint8_t *src, const RegionBox &box, const MaskView &mask, Op &op, int32_t noDialog) {
    OwnedBlock clone = CloneForWriting(src, 0);
    if (!clone) return nullptr;
    if (!op.Prepare()) return nullptr;
    const int32_t height = DibHeight(src);
    const auto stride = static_cast<size_t>(DibRowBytes(src));
    const uint8_t *srcBits = DibBits(src);
    uint8_t *dstBits = DibBits(clone.bytes());
    const auto copyRows = [&](int32_t from, int32_t to) {
        if (to > from) {
            std::memcpy(dstBits + stride * static_cast<size_t>(from), srcBits + stride * static_cast<size_t>(from),
                        stride * static_cast<size_t>(to - from));
        }
    };
    copyRows(0, box.y0);
    for (int32_t y = box.y0; y <= box.y1; ++y) {
        copyRows(y, y + 1);
        const uint8_t *s = srcBits + stride * static_cast<size_t>(y) + static_cast<size_t>(box.x0) * Pix::kBytes;
        uint8_t *d = dstBits + stride * static_cast<size_t>(y) + static_cast<size_t>(box.x0) * Pix::kBytes;
        const int32_t count = box.x1 - box.x0 + 1;
        if (mask.bits == nullptr) {
            for (int32_t i = 0; i < count; ++i, s += Pix::kBytes, d += Pix::kBytes) Pix::Store(d, op.Pixel(Pix::Fetch(s)));
        } else {
            const uint8_t *maskRow = mask.bits + static_cast<size_t>(mask.stride) * static_cast<size_t>(y - box.y0);
            for (int32_t i = 0; i < count; ++i, s += Pix::kBytes, d += Pix::kBytes) {
                if (MaskBitSet(maskRow, i)) Pix::Store(d, op.Pixel(Pix::Fetch(s)));
            }
        }
        if (!ReportStep(y - box.y0, box.y1 - box.y0, noDialog)) return nullptr;
    }
    copyRows(box.y1 + 1, height);
    return clone.Release();
}

// Opens the image, resolves the region for direct-colour images and runs the format's worker.
template <class Op>
DibHandle ToneDispatcher(const RegionArgs &args, Op &op, int32_t noDialog) {
    OpenedDib image;
    if (!OpenDib(args.image, kFormatAll, image)) return nullptr;
    const uint8_t *dib = image.dib;
    const uint16_t bitCount = DibBitCount(dib);
    if (bitCount == 1 || bitCount == 4 || bitCount == 8) return TonePaletteWorker(dib, op, noDialog);
    ResolvedRegion region;
    if (!ResolveRegion(dib, args, region)) return nullptr;
    switch (bitCount) {
        case 16:
            if (image.redMask == kRed555Mask) return ToneWorker<Pix16x555>(dib, region.box, region.mask, op, noDialog);
            return ToneWorker<Pix16x565>(dib, region.box, region.mask, op, noDialog);
        case 24:
            return ToneWorker<Pix24>(dib, region.box, region.mask, op, noDialog);
        case 32:
            return ToneWorker<Pix32>(dib, region.box, region.mask, op, noDialog);
        default:
            SetErrorStatus(TZ3_BAD_DEPTH);
            return nullptr;
    }
}

}  // namespace tz3
