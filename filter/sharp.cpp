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
#include <algorithm>
#include <bit>

#include "filter/luma_cache.h"

namespace tz3 {
namespace {

constexpr float kSharpCrToRed = std::bit_cast<float>(0x3FB374BCu);    // 1.402
constexpr float kSharpCrToGreen = std::bit_cast<float>(0x3F36D1E1u);  // 0.71414
constexpr float kSharpCbToGreen = std::bit_cast<float>(0x3EB0331Eu);  // 0.34414
constexpr float kSharpCbToBlue = std::bit_cast<float>(0x3FE2D0E5u);   // 1.772

// trunc(v) clamped to 0..255 for the finite values of this filter (|v| stays far below 2^31): the
// cut to -1..256 first keeps the conversion in range and lets the loop run as vector code.
inline uint8_t TruncClamp255Fast(double v) {
    const double cut = std::min(std::max(v, -1.0), 256.0);
    const auto t = static_cast<int32_t>(cut);
    return static_cast<uint8_t>(std::min(std::max(t, 0), 255));
}

struct SharpOp {
    static constexpr uint8_t kFormats = kFormatFilters;
    int32_t strengthArg = 0;
    float gain = 0.0f;
    YccTables tables;
    LumaCache cache;
    OwnedBlock scratch;
    int32_t *columnSums = nullptr;  // luma sums of columns x0 - 1 .. x1 + 1 over the window's rows
    float *yValues = nullptr, *crValues = nullptr, *cbValues = nullptr;
    uint8_t *values = nullptr;
    uint8_t *planes = nullptr;  // blue, green and red of the box row, one plane each

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
        // Column sums (count + 2), then Y', Cr and Cb of the box row, then its channel values.
        if (AllocScratch<uint8_t>(scratch, 4 * (count + 2) + 12 * count + 6 * count) == nullptr) return false;
        columnSums = reinterpret_cast<int32_t *>(scratch.bytes());
        yValues = reinterpret_cast<float *>(columnSums + count + 2);
        crValues = yValues + count;
        cbValues = crValues + count;
        values = reinterpret_cast<uint8_t *>(cbValues + count);
        planes = values + 3 * count;
        return true;
    }

    // Computes the whole box row in three passes (window sums, the new luma with the pixel's own
    // chroma, the way back to colour), so that the arithmetic runs over plain arrays, then stores
    // the selected pixels.
    template <class Pix>
    void Row(const FilterImage<Pix> &img, int32_t y) {
        const int32_t x0 = img.box.x0;
        const int32_t count = img.box.x1 - x0 + 1;
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
        const uint8_t *src = img.SrcRow(y);
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
        const int32_t *sumOf = columnSums + 1;  // sumOf[i] for the column x0 + i, i from -1
        // Y' = float(d) x k rounded to float, + float(Lc) rounded to float again.
        for (int32_t i = 0; i < count; ++i) {
            const int32_t x = x0 + i;
            int32_t sum = sumOf[i];
            int32_t columns = 1;
            if (x > 0) {
                sum += sumOf[i - 1];
                ++columns;
            }
            if (x < img.width - 1) {
                sum += sumOf[i + 1];
                ++columns;
            }
            int32_t lc;
            if constexpr (kIsGray<Pix>) {
                lc = img.toLevel[src[x]];
            } else {
                lc = centre[x];
            }
            const int32_t d = lc * (rows * columns) - sum;
            const float scaled = static_cast<float>(d) * gain;
            yValues[i] = scaled + static_cast<float>(lc);
        }
        if constexpr (kIsGray<Pix>) {
            for (int32_t i = 0; i < count; ++i) values[i] = TruncClamp255(static_cast<double>(yValues[i]));
        } else {
            // Cr and Cb of the pixel's own colour: table entries added in double, stored as floats.
            const float *const *t = tables.t;
            const uint8_t *p = src + static_cast<size_t>(x0) * Pix::kBytes;
            for (int32_t i = 0; i < count; ++i, p += Pix::kBytes) {
                const Rgb c = Pix::Fetch(p);
                crValues[i] = static_cast<float>(static_cast<double>(t[kTableCrRed][c.r]) +
                                                 static_cast<double>(t[kTableCrGreen][c.g]) +
                                                 static_cast<double>(t[kTableCrBlue][c.b]));
                cbValues[i] = static_cast<float>(static_cast<double>(t[kTableCbRed][c.r]) +
                                                 static_cast<double>(t[kTableCbGreen][c.g]) +
                                                 static_cast<double>(t[kTableCbBlue][c.b]));
            }
            // Back to blue, green, red in double with the float constants, truncated and clamped;
            // each channel into its own plane first, so that the loop runs as vector code.
            uint8_t *blue = planes, *green = planes + count, *red = planes + 2 * static_cast<size_t>(count);
            for (int32_t i = 0; i < count; ++i) {
                const double yd = yValues[i], crd = crValues[i], cbd = cbValues[i];
                blue[i] = TruncClamp255Fast(yd + cbd * static_cast<double>(kSharpCbToBlue));
                green[i] = TruncClamp255Fast(yd - cbd * static_cast<double>(kSharpCbToGreen) -
                                             crd * static_cast<double>(kSharpCrToGreen));
                red[i] = TruncClamp255Fast(yd + crd * static_cast<double>(kSharpCrToRed));
            }
            for (int32_t i = 0; i < count; ++i) {
                values[3 * i] = blue[i];
                values[3 * i + 1] = green[i];
                values[3 * i + 2] = red[i];
            }
        }
        StoreSelected(img, y, values);
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
