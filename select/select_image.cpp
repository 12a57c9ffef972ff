// TZ3SelectImage: cuts the box of a shape out of an image. Pixels whose mask bit is set are copied,
// the others of the box take the fill colour; the result comes with the mask that says which is
// which, the form of source that pasting takes. The whole image (kind 1) goes through as the
// polygon of its four corners, so the inside flag decides there too: outside of it is nothing.
//
//   format   copied (bit set)                      filled (bit clear)
//   1        the source's bit                      the low bit of the nearest palette index
//   4        the source's nibble, moved to the     the nearest index, shifted as it stands into
//            parity of its new column              the nibble of its column
//   8        the source's byte                     the nearest index
//   16       the source's word, not recoded        the fill packed 5-5-5 or 5-6-5, truncating
//   24       three bytes                           blue, green, red
//   32       four bytes, the fourth included       blue, green, red; the fourth byte stays 0
//
// Progress is reported with the absolute row y over y1 - y0, so a box that does not start at row 0
// reports values past its total; callers have always seen it that way.
#include <cstring>

#include "frame/call.h"
#include "frame/colour_tables.h"
#include "frame/index_pixel.h"
#include "frame/pixel.h"
#include "select/selection_shape.h"

namespace tz3 {
namespace {

// The fill as the result stores it: the palette index in byte 0, or the pixel's bytes in order.
struct FillPixel {
    uint8_t bytes[4];
};

FillPixel MakeFill(uint16_t bitCount, bool is565, uint8_t index, uint8_t red, uint8_t green, uint8_t blue) {
    FillPixel f{{0, 0, 0, 0}};
    switch (bitCount) {
        case 16: {
            const uint16_t word = ChannelPack16(Rgb{red, green, blue}, is565);
            f.bytes[0] = static_cast<uint8_t>(word);
            f.bytes[1] = static_cast<uint8_t>(word >> 8);
            break;
        }
        case 24:
        case 32:
            f.bytes[0] = blue;
            f.bytes[1] = green;
            f.bytes[2] = red;
            break;
        default:
            f.bytes[0] = index;
            break;
    }
    return f;
}

// Writes the box's rows into the zeroed result. Formats of whole bytes go eight mask bits at a
// time, so a full or empty mask byte is one copy or one run of fills.
template <uint16_t Bits>
bool SelectImageWorker(const uint8_t *src, const RegionBox &box, const uint8_t *maskDib, uint8_t *result,
                       const FillPixel &fill, int32_t noDialog) {
    const auto srcStride = static_cast<size_t>(DibRowBytes(src));
    const auto dstStride = static_cast<size_t>(DibRowBytes(result));
    const auto maskStride = static_cast<size_t>(DibRowBytes(maskDib));
    const uint8_t *srcBits = DibBits(src);
    uint8_t *dstBits = DibBits(result);
    const uint8_t *maskBits = DibBits(maskDib);
    const int32_t width = box.x1 - box.x0 + 1;
    for (int32_t y = box.y0; y <= box.y1; ++y) {
        const int32_t my = y - box.y0;
        const uint8_t *s = srcBits + srcStride * static_cast<size_t>(y);
        uint8_t *d = dstBits + dstStride * static_cast<size_t>(my);
        const uint8_t *m = maskBits + maskStride * static_cast<size_t>(my);
        if constexpr (Bits < 8) {
            using Index = IndexPixel<Bits>;
            for (int32_t mx = 0; mx < width; ++mx) {
                Index::Or(d, mx, MaskBitSet(m, mx) ? Index::Get(s, box.x0 + mx) : fill.bytes[0]);
            }
        } else {
            constexpr size_t kBytes = Bits / 8;
            s += kBytes * static_cast<size_t>(box.x0);
            const auto one = [&](int32_t mx, bool set) {
                std::memcpy(d + kBytes * static_cast<size_t>(mx),
                            set ? s + kBytes * static_cast<size_t>(mx) : fill.bytes, kBytes);
            };
            int32_t mx = 0;
            for (; mx + 8 <= width; mx += 8) {
                const uint8_t bits = m[mx >> 3];
                if (bits == 0xFF) {
                    std::memcpy(d + kBytes * static_cast<size_t>(mx), s + kBytes * static_cast<size_t>(mx),
                                8 * kBytes);
                } else {
                    for (int32_t i = 0; i < 8; ++i) one(mx + i, (bits & (0x80u >> i)) != 0);
                }
            }
            for (; mx < width; ++mx) one(mx, MaskBitSet(m, mx));
        }
        if (PercentProgress(y, box.y1 - box.y0, 0, 100, noDialog) == 0) {
            SetErrorStatus(TZ3_CANCELLED);
            return false;
        }
    }
    return true;
}

DibPair SelectImage(DibHandle handle, int32_t kind, const Tz3Point *points, int32_t count,
                    const Tz3Rect &rect, int32_t inside, int32_t fillRed, int32_t fillGreen, int32_t fillBlue,
                    int32_t noDialog) {
    OpenedDib image;
    if (!OpenDib(handle, kFormatAll, image)) return DibPair{};
    const uint8_t *dib = image.dib;
    SelectionShape shape;
    if (!ResolveSelectionShape(dib, static_cast<uint8_t>(kind), points, count, rect, inside, true, shape)) {
        return DibPair{};
    }
    const int32_t w = shape.Width();
    const int32_t h = shape.Height();
    DibHandle cloned = CloneDib(dib, w, h, 0);
    if (cloned == nullptr) return DibPair{};
    OwnedBlock result(cloned);
    if (!result) {
        SetErrorStatus(TZ3_NO_MEMORY);
        return DibPair{};
    }
    DibHandle made = MakeRegionMask(w, h, shape.kind, shape.polygon, shape.count, shape.draw.left,
                                    shape.draw.top, shape.draw.right, shape.draw.bottom, inside);
    if (made == nullptr) return DibPair{};
    OwnedBlock mask(made);
    if (!mask) {
        SetErrorStatus(TZ3_NO_MEMORY);
        return DibPair{};
    }
    const auto red = static_cast<uint8_t>(fillRed);
    const auto green = static_cast<uint8_t>(fillGreen);
    const auto blue = static_cast<uint8_t>(fillBlue);
    // Searched for every depth; only the palette depths use the index.
    const uint8_t index = NearestPaletteIndex(red, green, blue, dib);
    const uint16_t bitCount = DibBitCount(dib);
    const FillPixel fill = MakeFill(bitCount, image.redMask != kRed555Mask, index, red, green, blue);
    bool done = false;
    switch (bitCount) {
        case 1:
            done = SelectImageWorker<1>(dib, shape.box, mask.bytes(), result.bytes(), fill, noDialog);
            break;
        case 4:
            done = SelectImageWorker<4>(dib, shape.box, mask.bytes(), result.bytes(), fill, noDialog);
            break;
        case 8:
            done = SelectImageWorker<8>(dib, shape.box, mask.bytes(), result.bytes(), fill, noDialog);
            break;
        case 16:
            done = SelectImageWorker<16>(dib, shape.box, mask.bytes(), result.bytes(), fill, noDialog);
            break;
        case 24:
            done = SelectImageWorker<24>(dib, shape.box, mask.bytes(), result.bytes(), fill, noDialog);
            break;
        case 32:
            done = SelectImageWorker<32>(dib, shape.box, mask.bytes(), result.bytes(), fill, noDialog);
            break;
        default:
            SetErrorStatus(TZ3_BAD_DEPTH);
            break;
    }
    if (!done) return DibPair{};
    return DibPair{result.Release(), mask.Release()};
}

}  // namespace
}  // namespace tz3

extern "C" TZ3_API DibPair TZ3SelectImage(DibHandle image, int32_t kind, const Tz3Point *points,
                                          int32_t count, const Tz3Rect *rect, int32_t inside, int32_t fillRed,
                                          int32_t fillGreen, int32_t fillBlue, int32_t noDialog,
                                          intptr_t dialog1, intptr_t dialog2, intptr_t dialog3) {
    using namespace tz3;
    return RunExport<DibPair>(noDialog, dialog1, dialog2, dialog3, [&] {
        const Tz3Rect r = rect != nullptr ? *rect : Tz3Rect{0, 0, 0, 0};
        return SelectImage(image, kind, points, count, r, inside, fillRed, fillGreen, fillBlue, noDialog);
    });
}

extern "C" TZ3_API int32_t TZ3SelectImageEx(DibHandle image, DibPair *result, int32_t kind,
                                            const Tz3Point *points, int32_t count, const Tz3Rect *rect,
                                            int32_t inside, int32_t fillRed, int32_t fillGreen,
                                            int32_t fillBlue, int32_t noDialog, intptr_t dialog1,
                                            intptr_t dialog2, intptr_t dialog3) {
    using namespace tz3;
    bool ran = false;
    const DibPair pair = RunExport<DibPair>(noDialog, dialog1, dialog2, dialog3, [&] {
        ran = true;
        const Tz3Rect r = rect != nullptr ? *rect : Tz3Rect{0, 0, 0, 0};
        return SelectImage(image, kind, points, count, r, inside, fillRed, fillGreen, fillBlue, noDialog);
    });
    return HandOutPair(ran, pair, result);
}
