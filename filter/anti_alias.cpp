// TZ3AntiAlias: softens vertical edges with a three-tap mean along each row: each channel becomes
// (left + self + right) / n, truncated, where the left and right neighbours count only when they lie
// inside the image (n is 3 inside, 2 in the first and last columns, 1 in an image one pixel wide).
// Rows never mix, so horizontal edges come through unchanged. Neighbours are read from the caller's
// image even where they lie outside the box or the mask.
//
//   format   channels
//   8 gray   the level, stored through the index that holds the mean level
//   16       the expanded channels; the mean is packed again
//   24       blue, green, red, each by itself
//   32       the first three bytes; the fourth stays
#include "filter/filter_skeleton.h"

namespace tz3 {
namespace {

struct AntiAliasOp {
    static constexpr uint8_t kFormats = kFormatFilters;
    OwnedBlock scratch;
    uint8_t *row = nullptr;     // channel values of columns x0 - 1 .. x1 + 1, clamped into the image
    uint8_t *values = nullptr;  // the means of the box row

    bool Normalise() { return true; }

    template <class Pix>
    bool Prepare(const FilterImage<Pix> &img) {
        constexpr int32_t C = kChannels<Pix>;
        const uint64_t count = static_cast<uint64_t>(static_cast<int64_t>(img.box.x1) - img.box.x0 + 1);
        if (AllocScratch<uint8_t>(scratch, (2 * count + 2) * C) == nullptr) return false;
        row = scratch.bytes();
        values = row + (count + 2) * C;
        return true;
    }

    template <class Pix>
    void Row(const FilterImage<Pix> &img, int32_t y) {
        constexpr int32_t C = kChannels<Pix>;
        const int32_t x0 = img.box.x0;
        const int32_t count = img.box.x1 - x0 + 1;
        img.FetchRowClamped(y, x0 - 1, count + 2, row);
        // Pixels with both neighbours inside the image: a plain three-tap mean, vectorised.
        const int32_t first = x0 == 0 ? 1 : 0;
        const int32_t last = img.box.x1 == img.width - 1 ? count - 1 : count;
        for (int32_t j = first * C; j < last * C; ++j) {
            values[j] = static_cast<uint8_t>((row[j] + row[j + C] + row[j + 2 * C]) / 3);
        }
        // The first and last columns of the image count what is there.
        const auto edge = [&](int32_t i) {
            const int32_t x = x0 + i;
            for (int32_t c = 0; c < C; ++c) {
                int32_t s = row[(i + 1) * C + c];
                int32_t n = 1;
                if (x < img.width - 1) {
                    s += row[(i + 2) * C + c];
                    ++n;
                }
                if (x > 0) {
                    s += row[i * C + c];
                    ++n;
                }
                values[i * C + c] = static_cast<uint8_t>(s / n);
            }
        };
        if (first == 1) edge(0);
        if (last == count - 1 && count - 1 >= first) edge(count - 1);
        StoreSelected(img, y, values);
    }
};

}  // namespace
}  // namespace tz3

extern "C" TZ3_API DibHandle TZ3AntiAlias(const DibPair *pair, int32_t kind, const Tz3Point *points, int32_t count,
                                          const Tz3Rect *rect, int32_t inside, int32_t noDialog, intptr_t dialog1,
                                          intptr_t dialog2, intptr_t dialog3) {
    using namespace tz3;
    return RunExport<DibHandle>(noDialog, dialog1, dialog2, dialog3, [&] {
        const RegionArgs args = UnpackRegion(pair, kind, points, count, rect, inside);
        AntiAliasOp op;
        return FilterDispatcher(args, op, noDialog);
    });
}
