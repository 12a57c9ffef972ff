// TZ3SetGray: the gray version of an image at its own depth, with no region.
//
// Luma L = trunc(t0[R] + t1[G] + t2[B]) from the float luma tables, summed in double (white is 254).
//
//   format   result
//   1/4/8    a new block with the full gray ramp of the depth (biClrUsed 0) and rewritten indices:
//            1 bit set when L > 127, 4 bits L x 15 / 255, 8 bits L itself
//   16       L packed into every channel (5-5-5 or 5-6-5)
//   24/32    L in blue, green and red; the rows start from zero, so a 32-bit fourth byte is 0
#include "frame/arith.h"
#include "frame/colour_tables.h"
#include "tone/tone_skeleton.h"

namespace tz3 {
namespace {

uint8_t Luma(const LumaTables &t, Rgb c) {
    return static_cast<uint8_t>(TruncToInt32(static_cast<double>(t.t[0][c.r]) + static_cast<double>(t.t[1][c.g]) +
                                             static_cast<double>(t.t[2][c.b])));
}

// Luma of every index a pixel of this depth can hold. An index past the source's table reads the
// bytes that follow it in the block, and a byte past the block reads as 0.
void IndexLumas(const uint8_t *src, size_t blockSize, uint32_t n, const LumaTables &tables, uint8_t *luma) {
    const auto byteAt = [&](uint64_t at) -> uint8_t { return at < blockSize ? src[at] : 0; };
    for (uint32_t i = 0; i < n; ++i) {
        const uint64_t entry = kHeaderBytes + 4ull * i;
        luma[i] = Luma(tables, Rgb{byteAt(entry + 2), byteAt(entry + 1), byteAt(entry)});
    }
}

template <uint16_t Bits>
DibHandle SetGrayPaletteWorker(const uint8_t *src, size_t blockSize, int32_t noDialog) {
    constexpr uint32_t n = 1u << Bits;
    const int32_t width = DibWidth(src);
    const int32_t height = DibHeight(src);
    const int32_t stride = DibRowBytes(Bits, width);
    const int64_t size = static_cast<int64_t>(height) * stride + 4 * n + kHeaderBytes;
    if (size < 0 || size > static_cast<int64_t>(kMaxBlockBytes)) {
        SetErrorStatus(TZ3_NO_MEMORY);
        return nullptr;
    }
    OwnedBlock result = AllocLocked(static_cast<uint64_t>(size));
    if (!result) return nullptr;
    uint8_t *out = result.bytes();
    std::memcpy(out, src, kHeaderBytes);
    WriteU32(out + kClrUsedOffset, 0);
    LumaTables tables;
    if (!BuildLumaTables(tables)) return nullptr;
    for (uint32_t i = 0; i < n; ++i) {
        const auto level = static_cast<uint8_t>(i * 255 / (n - 1));
        uint8_t *entry = out + kHeaderBytes + 4 * i;
        entry[0] = entry[1] = entry[2] = level;
        entry[3] = 0;
    }
    uint8_t luma[256];
    IndexLumas(src, blockSize, n, tables, luma);
    const uint8_t *srcBits = DibBits(src);
    uint8_t *dstBits = out + kHeaderBytes + 4 * n;
    for (int32_t y = 0; y < height; ++y) {
        const uint8_t *s = srcBits + static_cast<size_t>(stride) * y;
        uint8_t *d = dstBits + static_cast<size_t>(stride) * y;
        for (int32_t x = 0; x < width; ++x) {
            if constexpr (Bits == 1) {
                if (luma[(s[x >> 3] >> (7 - (x & 7))) & 1] > 127) d[x >> 3] |= static_cast<uint8_t>(0x80u >> (x & 7));
            } else if constexpr (Bits == 4) {
                const uint8_t index = (x & 1) == 0 ? s[x >> 1] >> 4 : s[x >> 1] & 15;
                const auto value = static_cast<uint8_t>(luma[index] * 15 / 255);
                d[x >> 1] |= (x & 1) == 0 ? static_cast<uint8_t>(value << 4) : value;
            } else {
                d[x] = luma[s[x]];
            }
        }
        if (!ReportStep(y, height - 1, noDialog)) return nullptr;
    }
    return result.Release();
}

template <class Pix>
DibHandle SetGrayWorker(const uint8_t *src, int32_t noDialog) {
    OwnedBlock clone = CloneForWriting(src, 0);
    // Every failure of the clone counts as lack of memory here.
    if (!clone) {
        SetErrorStatus(TZ3_NO_MEMORY);
        return nullptr;
    }
    LumaTables tables;
    if (!BuildLumaTables(tables)) return nullptr;
    const int32_t width = DibWidth(src);
    const int32_t height = DibHeight(src);
    const auto stride = static_cast<size_t>(DibRowBytes(src));
    const uint8_t *srcBits = DibBits(src);
    uint8_t *dstBits = DibBits(clone.bytes());
    for (int32_t y = 0; y < height; ++y) {
        const uint8_t *s = srcBits + stride * y;
        uint8_t *d = dstBits + stride * y;
        for (int32_t x = 0; x < width; ++x, s += Pix::kBytes, d += Pix::kBytes) {
            const uint8_t level = Luma(tables, Pix::Fetch(s));
            Pix::Store(d, Rgb{level, level, level});
        }
        if (!ReportStep(y, height - 1, noDialog)) return nullptr;
    }
    return clone.Release();
}

DibHandle SetGray(DibHandle handle, int32_t noDialog) {
    OpenedDib image;
    if (!OpenDib(handle, kFormatAll, image)) return nullptr;
    const uint8_t *dib = image.dib;
    switch (DibBitCount(dib)) {
        case 1: return SetGrayPaletteWorker<1>(dib, image.lock.size(), noDialog);
        case 4: return SetGrayPaletteWorker<4>(dib, image.lock.size(), noDialog);
        case 8: return SetGrayPaletteWorker<8>(dib, image.lock.size(), noDialog);
        case 16:
            if (image.redMask == kRed555Mask) return SetGrayWorker<Pix16x555>(dib, noDialog);
            return SetGrayWorker<Pix16x565>(dib, noDialog);
        case 24: return SetGrayWorker<Pix24>(dib, noDialog);
        case 32: return SetGrayWorker<Pix32>(dib, noDialog);
        default: SetErrorStatus(TZ3_BAD_DEPTH); return nullptr;
    }
}

}  // namespace
}  // namespace tz3

extern "C" TZ3_API DibHandle TZ3SetGray(DibHandle image, int32_t noDialog, intptr_t dialog1, intptr_t dialog2,
                                        intptr_t dialog3) {
    return tz3::RunExport<DibHandle>(noDialog, dialog1, dialog2, dialog3,
                                     [&] { return tz3::SetGray(image, noDialog); });
}
