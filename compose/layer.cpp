// TZ3Layer: one image laid over another by their top-left corners, with no turn and no filter. A
// pixel of the upper image that equals the key colour exactly lets the lower one through, but only
// where there is a lower one: outside the base a keyed pixel has nothing under it and shows as it is.
// The blend and the pixel reads are those of paste; the result is a new 24-bit image.
//
// Rows are counted from the base's bottom row. The upper image's top row sits layerY rows below the
// base's top row, so a shorter upper image hangs from the top, not from the bottom.
//
//   depth   read (base and upper image alike)
//   1/4/8   index into the colour table, unbounded (a copy of 256 entries, block-bounded)
//   16      ChannelExpand16, 5-5-5 or 5-6-5 by the red mask
//   24/32   the first three bytes; a 32-bit pixel's fourth byte is not read
//
// Each row of either image is read once, into blue-green-red bytes (a 24-bit row is used as it
// lies), and the walk works on those bytes alone.
#include <algorithm>

#include "compose/paste_image_core.h"
#include "frame/call.h"
#include "platform/companion.h"

namespace tz3 {
namespace {

struct LayerImage {
    const uint8_t *dib = nullptr;
    size_t blockSize = 0;
    uint32_t redMask = 0;
    int32_t width = 0, height = 0;
};

// The block holds what the header claims (else 7), the format passes (else 4, on top of the
// check's 7), and there is at least one row and one column (else 7).
bool CheckLayerImage(const LockedBlock &lock, LayerImage &image) {
    const uint8_t *dib = lock.bytes();
    if (!CheckDibBlock(dib, lock.size())) return false;
    uint32_t greenMask = 0, blueMask = 0;
    if (!CheckDibFormat(dib, kFormatAll, &image.redMask, &greenMask, &blueMask)) {
        SetErrorStatus(TZ3_BAD_DEPTH);
        return false;
    }
    if (DibWidth(dib) < 1 || DibHeight(dib) < 1) {
        SetErrorStatus(TZ3_BAD_IMAGE);
        return false;
    }
    image.dib = dib;
    image.blockSize = lock.size();
    image.width = DibWidth(dib);
    image.height = DibHeight(dib);
    return true;
}

// Rows of one image as blue-green-red bytes: 24-bit rows as they lie, others read into a scratch
// row through the format's reader.
class RowSource {
  public:
    bool Open(const LayerImage &image) {
        image_ = image;
        bits_ = DibBits(image.dib);
        stride_ = static_cast<uint32_t>(DibRowBytes(image.dib));
        if (DibBitCount(image.dib) == 24) return true;
        if (DibBitCount(image.dib) <= 8) CopyPalette(image.dib, image.blockSize, table_);
        scratch_ = AllocLocked(3 * static_cast<uint64_t>(image.width));
        return static_cast<bool>(scratch_);
    }
    const uint8_t *Row(int64_t y) {
        const uint8_t *row = bits_ + stride_ * static_cast<size_t>(y);
        if (!scratch_) return row;
        uint8_t *out = scratch_.bytes();
        WithPixelReader(image_.dib, image_.redMask, table_, [&](auto read) {
            for (int32_t x = 0; x < image_.width; ++x, out += 3) {
                const Rgb c = read(row, x);
                out[0] = c.b;
                out[1] = c.g;
                out[2] = c.r;
            }
            return 0;
        });
        return scratch_.bytes();
    }

  private:
    LayerImage image_;
    const uint8_t *bits_ = nullptr;
    size_t stride_ = 0;
    PaletteCopy table_;
    OwnedBlock scratch_;
};

struct LayerParams {
    uint8_t opacity;
    Rgb key, back;
    int32_t layerX, layerY, keepSize, noDialog;
};

// count pixels of blue-green-red bytes: s over t, or t itself where s is the key. The blend runs
// over the whole stretch as bytes first; the key, rare in a picture, then puts the lower pixels back.
void LayerSpan(const uint8_t *s, const uint8_t *t, size_t count, const uint8_t key[3], const RowBlend &blend,
               uint8_t *out) {
    BlendBytes(s, t, 3 * count, blend, out);
    for (size_t i = 0; i < count; ++i, s += 3, t += 3, out += 3) {
        if (s[0] == key[0] && s[1] == key[1] && s[2] == key[2]) {
            out[0] = t[0];
            out[1] = t[1];
            out[2] = t[2];
        }
    }
}

DibHandle LayerWorker(const LayerImage &base, const LayerImage &over, const LayerParams &params) {
    const int64_t wb = base.width, hb = base.height;
    const int64_t overLeft = params.layerX, overRight = params.layerX + static_cast<int64_t>(over.width) - 1;
    const int64_t overBottom = hb - over.height - static_cast<int64_t>(params.layerY);
    const int64_t overTop = hb - 1 - static_cast<int64_t>(params.layerY);
    int64_t x0 = 0, x1 = wb - 1, y0 = 0, y1 = hb - 1;
    if (!params.keepSize) {
        x0 = std::min({int64_t{0}, wb - 1, overLeft, overRight});
        x1 = std::max({int64_t{0}, wb - 1, overLeft, overRight});
        y0 = std::min({int64_t{0}, hb - 1, overBottom, overTop});
        y1 = std::max({int64_t{0}, hb - 1, overBottom, overTop});
    }
    OwnedBlock result = AllocResult24(x1 - x0 + 1, y1 - y0 + 1);
    if (!result) return nullptr;
    OwnedBlock blendTable = BuildBlendTable(params.opacity);
    if (!blendTable) return nullptr;
    RowSource baseRows, overRows;
    if (!baseRows.Open(base) || !overRows.Open(over)) return nullptr;

    const uint8_t *blend = blendTable.bytes();
    const RowBlend rowBlend = MakeRowBlend(blend, params.opacity);
    const uint8_t back[3] = {params.back.b, params.back.g, params.back.r};
    const uint8_t key[3] = {params.key.b, params.key.g, params.key.r};
    const size_t outStride = static_cast<uint32_t>(DibRowBytes(24, static_cast<int32_t>(x1 - x0 + 1)));
    uint8_t *outBits = DibBits(result.bytes());
    for (int64_t y = y0; y <= y1; ++y) {
        const uint8_t *baseRow = (y >= 0 && y < hb) ? baseRows.Row(y) : nullptr;
        const uint8_t *overRow = (y >= overBottom && y <= overTop) ? overRows.Row(y - overBottom) : nullptr;
        uint8_t *out = outBits + outStride * static_cast<size_t>(y - y0);
        // Columns xa..xb, each pixel placed on its own.
        const auto pixels = [&](int64_t xa, int64_t xb, uint8_t *at) {
            for (int64_t x = xa; x <= xb; ++x, at += 3) {
                const uint8_t *under = (baseRow != nullptr && x >= 0 && x < wb) ? baseRow + 3 * x : nullptr;
                const uint8_t *s = back;
                bool keyed = false;
                if (overRow != nullptr && x >= overLeft && x <= overRight) {
                    s = overRow + 3 * (x - overLeft);
                    keyed = s[0] == key[0] && s[1] == key[1] && s[2] == key[2];
                } else if (under != nullptr) {
                    s = under;
                }
                const uint8_t *t = under != nullptr ? under : s;
                if (keyed) {
                    at[0] = t[0];
                    at[1] = t[1];
                    at[2] = t[2];
                } else {
                    at[0] = blend[s[0] * 256 + t[0]];
                    at[1] = blend[s[1] * 256 + t[1]];
                    at[2] = blend[s[2] * 256 + t[2]];
                }
            }
        };
        // Where both rows cover the result their columns step together: that stretch is the upper
        // pixel blended over the lower one, or the lower one where the key matches, with no placing.
        const int64_t lo = std::max({x0, int64_t{0}, overLeft});
        const int64_t hi = std::min({x1, wb - 1, overRight});
        if (baseRow != nullptr && overRow != nullptr && lo <= hi) {
            pixels(x0, lo - 1, out);
            LayerSpan(overRow + 3 * (lo - overLeft), baseRow + 3 * lo, static_cast<size_t>(hi - lo + 1), key,
                      rowBlend, out + 3 * (lo - x0));
            pixels(hi + 1, x1, out + 3 * (hi + 1 - x0));
        } else {
            pixels(x0, x1, out);
        }
        if (PercentProgress(static_cast<int32_t>(y - y0), static_cast<int32_t>(y1 - y0), 0, 100,
                            params.noDialog) == 0) {
            SetErrorStatus(TZ3_CANCELLED);
            return nullptr;
        }
    }
    return result.Release();
}

DibHandle LayerImageCore(DibHandle base, DibHandle over, int32_t opacity, int32_t keyRed, int32_t keyGreen,
                         int32_t keyBlue, int32_t backRed, int32_t backGreen, int32_t backBlue,
                         int32_t layerX, int32_t layerY, int32_t keepSize, int32_t noDialog) {
    if (base == nullptr || over == nullptr) {
        SetErrorStatus(TZ3_BAD_IMAGE);
        return nullptr;
    }
    LockedBlock baseLock(base);
    if (!baseLock) {
        SetErrorStatus(TZ3_NO_MEMORY);
        return nullptr;
    }
    LockedBlock overLock(over);
    if (!overLock) {
        SetErrorStatus(TZ3_NO_MEMORY);
        return nullptr;
    }
    LayerImage baseImage, overImage;
    if (!CheckLayerImage(baseLock, baseImage) || !CheckLayerImage(overLock, overImage)) return nullptr;
    const auto byte = [](int32_t v) { return static_cast<uint8_t>(v); };
    const LayerParams params{byte(opacity),
                         Rgb{byte(keyRed), byte(keyGreen), byte(keyBlue)},
                         Rgb{byte(backRed), byte(backGreen), byte(backBlue)},
                         layerX,
                         layerY,
                         keepSize,
                         noDialog};
    return LayerWorker(baseImage, overImage, params);
}

}  // namespace
}  // namespace tz3

extern "C" TZ3_API DibHandle TZ3Layer(DibHandle base, DibHandle over, int32_t opacity, int32_t keyRed,
                                      int32_t keyGreen, int32_t keyBlue, int32_t backRed, int32_t backGreen,
                                      int32_t backBlue, int32_t layerX, int32_t layerY, int32_t keepSize,
                                      int32_t noDialog, intptr_t dialog1, intptr_t dialog2,
                                      intptr_t dialog3) {
    using namespace tz3;
    return RunExport<DibHandle>(noDialog, dialog1, dialog2, dialog3, [&] {
        return LayerImageCore(base, over, opacity, keyRed, keyGreen, keyBlue, backRed, backGreen, backBlue,
                              layerX, layerY, keepSize, noDialog);
    });
}
