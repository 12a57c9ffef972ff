// TZ3Sharp: raises the difference between each pixel's luma and that of its 3 x 3 neighbourhood.
// Only luma changes; a colour pixel keeps its own chroma.
//
// With the gain k = strength x 3 / 100 (a float: 3.0 at strength 100), for a pixel to compute:
//   the window x-1..x+1 by y-1..y+1 is cut to the image: n pixels (9, 6 along an edge, 4 in a corner)
//   S = the sum of their lumas, Lc the pixel's own, d = Lc x n - S
//   Y' = float(d) x k, rounded to float, + float(Lc), rounded to float again; not clamped
//   8 gray:    the level trunc(Y'), clamped to 0..255, stored through the gray map
//   16/24/32:  Cr and Cb of the pixel's own colour, each the three YCC table entries added in double
//              and stored as a float; then in double with float constants
//              blue = Y' + 1.772 Cb, green = Y' - 0.34414 Cb - 0.71414 Cr, red = Y' + 1.402 Cr,
//              each truncated and clamped. Even at strength 0 a colour is rebuilt from its integer
//              luma, so it may move by a level or two.
// The lumas come from LumaCache (the level itself at 8 bits): each is computed once, and the cache
// covers the whole image because windows reach out of the box and the mask.
#include <bit>

#include "filter/luma_cache.h"

namespace tz3 {
namespace {

constexpr float kSharpCrToRed = std::bit_cast<float>(0x3FB374BCu);    // 1.402
constexpr float kSharpCrToGreen = std::bit_cast<float>(0x3F36D1E1u);  // 0.71414
constexpr float kSharpCbToGreen = std::bit_cast<float>(0x3EB0331Eu);  // 0.34414
constexpr float kSharpCbToBlue = std::bit_cast<float>(0x3FE2D0E5u);   // 1.772

struct SharpOp {
    static constexpr uint8_t kFormats = kFormatFilters;
    int32_t strengthArg = 0;
    float gain = 0.0f;
    YccTables tables;
    LumaCache cache;
    OwnedBlock scratch;
    int32_t *columnSums = nullptr;  // luma sums of columns x0 - 1 .. x1 + 1 over the window's rows

    // Low byte; above 100 acts as 100.
    bool Normalise() {
        auto strength = static_cast<uint8_t>(strengthArg);
        if (strength > 100) strength = 100;
        gain = static_cast<float>(static_cast<double>(static_cast<float>(strength)) * 3.0 / 100.0);
        return true;
    }

    template <class Pix>
    bool Prepare(const FilterImage<Pix> &img) {
        if constexpr (!kIsGray<Pix>) {
            if (!BuildYccTables(tables)) return false;
            if (!cache.Make(img.width, img.height, tables.t)) return false;
        }
        const uint64_t count = static_cast<uint64_t>(static_cast<int64_t>(img.box.x1) - img.box.x0 + 1);
        columnSums = AllocScratch<int32_t>(scratch, count + 2);
        return columnSums != nullptr;
    }

    template <class Pix>
    void Row(const FilterImage<Pix> &img, int32_t y) {
        const int32_t x0 = img.box.x0;
        // The window's rows and columns, cut to the image.
        const int32_t yLow = y > 0 ? y - 1 : 0;
        const int32_t yHigh = y < img.height - 1 ? y + 1 : y;
        const int32_t xLow = x0 > 0 ? x0 - 1 : 0;
        const int32_t xHigh = img.box.x1 < img.width - 1 ? img.box.x1 + 1 : img.box.x1;
        // The sum of column x lies at columnSums[x - x0 + 1].
        int32_t *sums = columnSums + (xLow - x0 + 1);
        const int32_t columnCount = xHigh - xLow + 1;
        for (int32_t i = 0; i < columnCount; ++i) sums[i] = 0;
        const uint16_t *centre = nullptr;
        for (int32_t sy = yLow; sy <= yHigh; ++sy) {
            if constexpr (kIsGray<Pix>) {
                const uint8_t *s = img.SrcRow(sy) + xLow;
                for (int32_t i = 0; i < columnCount; ++i) sums[i] += img.toLevel[s[i]];
            } else {
                const uint16_t *l = cache.Row(img, sy);
                for (int32_t i = 0; i < columnCount; ++i) sums[i] += l[xLow + i];
                if (sy == y) centre = l;
            }
        }
        const int32_t rows = yHigh - yLow + 1;
        const uint8_t *src = img.SrcRow(y);
        uint8_t *dst = img.DstRow(y);
        const int32_t *sumOf = columnSums + 1;  // sumOf[i] for the column x0 + i, i from -1
        ForEachSelected(img, y, [&](int32_t x) {
            const int32_t i = x - x0;
            int32_t s = sumOf[i];
            int32_t columns = 1;
            if (x > 0) {
                s += sumOf[i - 1];
                ++columns;
            }
            if (x < img.width - 1) {
                s += sumOf[i + 1];
                ++columns;
            }
            const int32_t n = rows * columns;
            int32_t lc;
            if constexpr (kIsGray<Pix>) {
                lc = img.toLevel[src[x]];
            } else {
                lc = centre[x];
            }
            const int32_t d = lc * n - s;
            const float scaled = static_cast<float>(d) * gain;
            const float yp = scaled + static_cast<float>(lc);
            if constexpr (kIsGray<Pix>) {
                const uint8_t level = TruncClamp255(static_cast<double>(yp));
                img.Store(dst, x, &level);
            } else {
                const Rgb c = Pix::Fetch(src + static_cast<size_t>(x) * Pix::kBytes);
                const auto at = [&](int32_t t, uint8_t v) { return static_cast<double>(tables.t[t][v]); };
                const auto cr = static_cast<float>(at(kTableCrRed, c.r) + at(kTableCrGreen, c.g) + at(kTableCrBlue, c.b));
                const auto cb = static_cast<float>(at(kTableCbRed, c.r) + at(kTableCbGreen, c.g) + at(kTableCbBlue, c.b));
                const double yd = yp, crd = cr, cbd = cb;
                const uint8_t ch[3] = {
                    TruncClamp255(yd + cbd * static_cast<double>(kSharpCbToBlue)),
                    TruncClamp255(yd - cbd * static_cast<double>(kSharpCbToGreen) -
                                  crd * static_cast<double>(kSharpCrToGreen)),
                    TruncClamp255(yd + crd * static_cast<double>(kSharpCrToRed)),
                };
                img.Store(dst, x, ch);
            }
        });
    }
};

}  // namespace
}  // namespace tz3

extern "C" TZ3_API DibHandle TZ3Sharp(const DibPair *pair, int32_t kind, const Tz3Point *points, int32_t count,
                                      const Tz3Rect *rect, int32_t inside, int32_t strength, int32_t noDialog,
                                      intptr_t dialog1, intptr_t dialog2, intptr_t dialog3) {
    using namespace tz3;
    return RunExport<DibHandle>(noDialog, dialog1, dialog2, dialog3, [&] {
        const RegionArgs args = UnpackRegion(pair, kind, points, count, rect, inside);
        SharpOp op;
        op.strengthArg = strength;
        return FilterDispatcher(args, op, noDialog);
    });
}
