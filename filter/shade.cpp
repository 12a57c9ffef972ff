// TZ3Shade: a box blur. Each selected pixel becomes, channel by channel, the mean of the square
// window of radius r around it, cut to the image: sum / n truncated, n being the pixels the cut
// window holds ((2r + 1)^2 inside the image, fewer near its edge).
//
// The sums are integers, so they are kept running rather than recomputed: one sum per column of
// the window's rows, moved up a row by adding the row that enters and taking off the row that
// leaves, and a prefix sum across those columns per output row, from which each window's sum is
// one difference. The cost per pixel does not depend on the radius, and every sum is the one the
// whole window would give. The division by n is a multiplication by a reciprocal that is exact for
// these sums (filter/count_divider.h). A mean of values of at most 255 is at most 255, so the
// clamp of the mean never acts.
//
//   format   channels
//   8 gray   the level, stored through the index that holds the mean level
//   16       the expanded channels; the means are packed
//   24/32    blue, green, red; the fourth byte of a 32-bit pixel stays
#include <algorithm>

#include "filter/count_divider.h"
#include "filter/filter_skeleton.h"

namespace tz3 {
namespace {

constexpr int32_t kMaxRadius = 20;

struct ShadeOp {
    static constexpr uint8_t kFormats = kFormatFilters;
    explicit ShadeOp(int32_t radius) : radiusArg(radius) {}
    int32_t radiusArg;
    int32_t r = 1;

    // The columns the windows of the box reach, cut to the image.
    int32_t firstColumn = 0, span = 0;
    // The rows now summed into `columns`: lo .. hi - 1.
    int32_t lo = 0, hi = 0;
    OwnedBlock scratchBlock;
    uint32_t *columns = nullptr;  // span x channels
    // (span + 1) x channels. On a very wide row the prefix may wrap, but a window's sum, the
    // difference of two prefixes, is below 2^32 and comes out exact in unsigned arithmetic.
    uint32_t *prefix = nullptr;
    uint8_t *rowValues = nullptr;  // span x channels, one source row
    uint8_t *means = nullptr;      // box width x channels
    CountDivider divider[2 * kMaxRadius + 2];

    // The low byte: above 20 is 20, and 0 is 1.
    bool Normalise() {
        r = static_cast<uint8_t>(radiusArg);
        if (r > kMaxRadius) r = kMaxRadius;
        if (r == 0) r = 1;
        return true;
    }

    template <class Pix>
    bool Prepare(const FilterImage<Pix> &img) {
        constexpr uint64_t C = kChannels<Pix>;
        firstColumn = std::max(0, img.box.x0 - r);
        const int32_t lastColumn = std::min(img.width - 1, img.box.x1 + r);
        span = lastColumn - firstColumn + 1;
        const auto s = static_cast<uint64_t>(span);
        const auto boxWidth = static_cast<uint64_t>(img.box.x1 - img.box.x0 + 1);
        const uint64_t words = C * s + C * (s + 1);
        const uint64_t bytes = 4 * words + C * s + C * boxWidth;
        uint8_t *scratch = AllocScratch<uint8_t>(scratchBlock, bytes);
        if (scratch == nullptr) return false;
        columns = reinterpret_cast<uint32_t *>(scratch);
        prefix = columns + C * s;
        rowValues = scratch + 4 * words;
        means = rowValues + C * s;
        lo = hi = std::max(0, img.box.y0 - r);
        return true;
    }

    // Adds (sign +1) or takes off (sign -1) source row y from the column sums.
    template <class Pix>
    void MoveRow(const FilterImage<Pix> &img, int32_t y, bool add) {
        constexpr int32_t C = kChannels<Pix>;
        img.FetchRowClamped(y, firstColumn, span, rowValues);
        const int32_t n = span * C;
        if (add) {
            for (int32_t i = 0; i < n; ++i) columns[i] += rowValues[i];
        } else {
            for (int32_t i = 0; i < n; ++i) columns[i] -= rowValues[i];
        }
    }

    template <class Pix>
    void Row(const FilterImage<Pix> &img, int32_t y) {
        constexpr int32_t C = kChannels<Pix>;
        const int32_t wantLo = std::max(0, y - r);
        const int32_t wantHi = std::min(img.height - 1, y + r) + 1;
        while (hi < wantHi) MoveRow(img, hi++, true);
        while (lo < wantLo) MoveRow(img, lo++, false);
        const auto rows = static_cast<uint32_t>(hi - lo);
        // The running totals stay in registers: reading back the prefix just stored would make
        // every step wait for the one before it through memory.
        uint32_t run[C] = {};
        for (int32_t k = 0; k < C; ++k) prefix[k] = 0;
        for (int32_t i = 0; i < span; ++i) {
            for (int32_t k = 0; k < C; ++k) {
                run[k] += columns[static_cast<size_t>(i) * C + k];
                prefix[static_cast<size_t>(i + 1) * C + k] = run[k];
            }
        }
        for (int32_t nx = 1; nx <= 2 * r + 1; ++nx)
            divider[nx] = CountDivider(static_cast<uint32_t>(nx) * rows);

        // Window columns of pixel x, relative to firstColumn: left .. right.
        const int32_t x0 = img.box.x0, x1 = img.box.x1;
        const auto mean = [&](int32_t x, int32_t left, int32_t right) {
            const CountDivider d = divider[right - left + 1];
            uint8_t *out = means + static_cast<size_t>(x - x0) * C;
            const uint32_t *a = prefix + static_cast<size_t>(left) * C;
            const uint32_t *b = prefix + static_cast<size_t>(right + 1) * C;
            for (int32_t k = 0; k < C; ++k) out[k] = static_cast<uint8_t>(d.Divide(b[k] - a[k]));
        };
        // Pixels whose window lies wholly inside the image share one count.
        const int32_t innerFrom = std::max(x0, r);
        const int32_t innerTo = std::min(x1, img.width - 1 - r);
        int32_t x = x0;
        for (; x <= x1 && x < innerFrom; ++x) {
            mean(x, std::max(0, x - r) - firstColumn, std::min(img.width - 1, x + r) - firstColumn);
        }
        if (x <= innerTo) {
            const CountDivider d = divider[2 * r + 1];
            const uint32_t *a = prefix + static_cast<size_t>(x - r - firstColumn) * C;
            const uint32_t *b = prefix + static_cast<size_t>(x + r + 1 - firstColumn) * C;
            uint8_t *out = means + static_cast<size_t>(x - x0) * C;
            const int32_t n = (innerTo - x + 1) * C;
            for (int32_t i = 0; i < n; ++i) out[i] = static_cast<uint8_t>(d.Divide(b[i] - a[i]));
            x = innerTo + 1;
        }
        for (; x <= x1; ++x) {
            mean(x, std::max(0, x - r) - firstColumn, std::min(img.width - 1, x + r) - firstColumn);
        }
        StoreSelected(img, y, means);
    }
};

}  // namespace
}  // namespace tz3

extern "C" TZ3_API DibHandle TZ3Shade(const DibPair *pair, int32_t kind, const Tz3Point *points,
                                      int32_t count, const Tz3Rect *rect, int32_t inside, int32_t radius,
                                      int32_t noDialog, intptr_t dialog1, intptr_t dialog2,
                                      intptr_t dialog3) {
    using namespace tz3;
    return RunExport<DibHandle>(noDialog, dialog1, dialog2, dialog3, [&] {
        ShadeOp op{radius};
        return FilterDispatcher(UnpackRegion(pair, kind, points, count, rect, inside), op, noDialog);
    });
}
