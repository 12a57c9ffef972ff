// The median cut: a table of 256 or 16 colours made from a 16, 24 or 32-bit image.
//
// 1. One pass over the image counts its colours into a 64 x 64 x 64 histogram (each channel / 4),
//    blue on axis 0 (the slowest index), green on axis 1, red on axis 2.
// 2. A full binary tree of boxes over the histogram, 8 levels for 256 colours and 4 for 16: every
//    box is split, empty ones too, on its widest occupied axis (ties to the lower axis) at the
//    plane where the running count first reaches half the box's count; a median on the top plane
//    is shared by both children, and a child one plane thick is widened by a plane when its
//    sibling can spare it.
// 3. Each leaf owns its cells in the colour map (a later leaf takes the planes it shares with an
//    earlier one) and gets the median of each axis as its colour: 4 m + 2, the middle of the four
//    8-bit values of a cell, through the double-precision expression ((m / h) x h + 0.5) x 4.0,
//    which gives 4 m + 1 for the 30 pairs m, h where (m / h) x h rounds just below m; a leaf whose
//    high bound on an axis is 0 gives 0 there, so black stays black.
//
// Every split walks its box's cells once, summing the counters into one plane total per
// coordinate on each axis; extents, count and median all come from those totals. The work is
// bounded by the tree's depth times the 262,144 cells, whatever the image's size.
#include <cstring>
#include <utility>

#include "convert/convert_state.h"
#include "frame/owners.h"

namespace tz3 {
namespace {

// The counters of a box summed plane by plane on each axis, and their total.
struct PlaneTotals {
    uint64_t axis[3][kHistogramSide];
    uint32_t count;
};

// Walks the cells of the box (bounds low..high on each axis, nothing when low > high); with a
// colour map, writes `index` into each cell's byte.
void SumBox(const uint32_t *histogram, const uint8_t lo[3], const uint8_t hi[3], PlaneTotals &t, uint8_t *colourMap,
            uint8_t index) {
    std::memset(&t, 0, sizeof t);
    for (int32_t a0 = lo[0]; a0 <= hi[0]; ++a0) {
        for (int32_t a1 = lo[1]; a1 <= hi[1]; ++a1) {
            const int32_t base = (a0 * kHistogramSide + a1) * kHistogramSide;
            uint64_t line = 0;
            for (int32_t a2 = lo[2]; a2 <= hi[2]; ++a2) {
                const uint32_t v = histogram[base + a2];
                t.axis[2][a2] += v;
                line += v;
                if (colourMap != nullptr) colourMap[base + a2] = index;
            }
            t.axis[0][a0] += line;
            t.axis[1][a1] += line;
            t.count += static_cast<uint32_t>(line);
        }
    }
}

// The first coordinate from low up at which the running sum of plane totals reaches `half`, or
// `otherwise` when it never does.
int32_t MedianPlane(const uint64_t *totals, int32_t low, int32_t high, uint32_t half, int32_t otherwise) {
    uint64_t sum = 0;
    for (int32_t a = low; a <= high; ++a) {
        sum += totals[a];
        if (sum >= half) return a;
    }
    return otherwise;
}

void GetBounds(const ColourBox &b, uint8_t lo[3], uint8_t hi[3]) {
    lo[0] = b.low0, hi[0] = b.high0;
    lo[1] = b.low1, hi[1] = b.high1;
    lo[2] = b.low2, hi[2] = b.high2;
}

uint8_t &Low(ColourBox &b, int32_t axis) { return axis == 0 ? b.low0 : axis == 1 ? b.low1 : b.low2; }
uint8_t &High(ColourBox &b, int32_t axis) { return axis == 0 ? b.high0 : axis == 1 ? b.high1 : b.high2; }

void SplitBox(const uint32_t *histogram, ColourBox &b, ColourBox &first, ColourBox &second, PlaneTotals &t) {
    for (int32_t axis = 0; axis < 3; ++axis) {
        if (Low(b, axis) > High(b, axis)) std::swap(Low(b, axis), High(b, axis));
    }
    uint8_t lo[3], hi[3];
    GetBounds(b, lo, hi);
    SumBox(histogram, lo, hi, t, nullptr, 0);
    // The occupied extent on each axis; an axis with nothing on it gives l = high, h = low.
    int32_t d[3];
    for (int32_t axis = 0; axis < 3; ++axis) {
        int32_t l = hi[axis];
        for (int32_t a = lo[axis]; a <= hi[axis]; ++a) {
            if (t.axis[axis][a] != 0) {
                l = a;
                break;
            }
        }
        int32_t h = lo[axis];
        for (int32_t a = hi[axis]; a >= lo[axis]; --a) {
            if (t.axis[axis][a] != 0) {
                h = a;
                break;
            }
        }
        d[axis] = h - l;
    }
    // Outside the extents every counter is 0, so the box's total is the extents' total.
    b.count = t.count;
    int32_t axis;
    if (d[0] < d[1]) {
        axis = d[1] < d[2] ? 2 : 1;
    } else {
        axis = d[0] < d[2] ? 2 : 0;
    }
    first = b;
    second = b;
    const int32_t m = MedianPlane(t.axis[axis], lo[axis], hi[axis], b.count / 2, hi[axis]);
    High(first, axis) = static_cast<uint8_t>(m);
    Low(second, axis) = static_cast<uint8_t>(m < hi[axis] ? m + 1 : m);
    // Even out a child one plane thick against a sibling that can spare a plane.
    const int32_t a1 = Low(first, axis), b1 = High(first, axis);
    const int32_t a2 = Low(second, axis), b2 = High(second, axis);
    if (a1 == b1) {
        if (a2 < b2 - 1) {
            High(first, axis) = static_cast<uint8_t>(b1 + 1);
            Low(second, axis) = static_cast<uint8_t>(a2 + 1);
        }
    } else if (a2 == b2) {
        if (a1 < b1 - 1) {
            Low(second, axis) = static_cast<uint8_t>(a2 - 1);
            High(first, axis) = static_cast<uint8_t>(b1 - 1);
        }
    }
}

// The colour of a leaf on one axis, from the median plane m of its c pixels.
uint8_t LeafColour(const uint64_t *totals, int32_t low, int32_t high, uint32_t c) {
    const int32_t m = MedianPlane(totals, low, high, c / 2, (low + high) / 2);
    if (high < 1) return 0;
    const auto h = static_cast<double>(high);
    // Evaluated in this order in double: (m / h) x h may round just below m.
    return static_cast<uint8_t>(static_cast<int32_t>((static_cast<double>(m) / h * h + 0.5) * 4.0));
}

template <class Pix>
bool CountColours(ConvertState &s) {
    uint32_t *histogram = s.histogram;
    for (int32_t y = 0; y < s.height; ++y) {
        const uint8_t *p = s.sourcePixels + static_cast<size_t>(s.sourceStride) * static_cast<size_t>(y);
        for (int32_t x = 0; x < s.width; ++x, p += Pix::kBytes) {
            const Rgb c = Pix::Fetch(p);
            ++histogram[HistogramIndex(c.b, c.g, c.r)];
        }
        if (!ReportConvertStep(s, y, s.height, 0, 30)) return false;
    }
    return true;
}

}  // namespace

bool ConvertWithMedianCut(ConvertState &s) {
    OwnedBlock histogram = AllocLocked(sizeof(uint32_t) * static_cast<uint64_t>(kHistogramCells));
    if (!histogram) return false;
    OwnedBlock colourMap = AllocLocked(static_cast<uint64_t>(kHistogramCells));
    if (!colourMap) return false;
    OwnedBlock boxes = AllocLocked(sizeof(ColourBox) * static_cast<uint64_t>(kTreeLevels * kBoxesPerLevel));
    if (!boxes) return false;
    s.histogram = reinterpret_cast<uint32_t *>(histogram.bytes());
    s.colourMap = colourMap.bytes();
    s.boxes = reinterpret_cast<ColourBox *>(boxes.bytes());

    bool counted;
    switch (s.sourceBits) {
        case 16:
            counted = s.redMask == kRed555Mask ? CountColours<Pix16x555>(s) : CountColours<Pix16x565>(s);
            break;
        case 24: counted = CountColours<Pix24>(s); break;
        default: counted = CountColours<Pix32>(s); break;
    }
    if (!counted) return false;

    // The plane totals of the box at hand: 1.5 KiB of locals, not a block of the call.
    PlaneTotals totals;

    const int32_t levels = s.targetBits == 8 ? 8 : 4;
    const int32_t leaves = 1 << levels;
    s.boxes[0] = ColourBox{0, 63, 0, 63, 0, 63, 0};
    int32_t split = 0;
    for (int32_t level = 0; level < levels; ++level) {
        for (int32_t i = 0; i < (1 << level); ++i) {
            if (!ReportConvertStep(s, ++split, leaves - 1, 30, 60)) return false;
            ColourBox *next = s.boxes + kBoxesPerLevel * (level + 1);
            SplitBox(s.histogram, s.boxes[kBoxesPerLevel * level + i], next[2 * i], next[2 * i + 1], totals);
        }
    }

    ColourBox *leaf = s.boxes + kBoxesPerLevel * levels;
    for (int32_t i = 0; i < leaves; ++i) {
        uint8_t lo[3], hi[3];
        GetBounds(leaf[i], lo, hi);
        SumBox(s.histogram, lo, hi, totals, s.colourMap, static_cast<uint8_t>(i));
        uint8_t colour[3];
        for (int32_t axis = 0; axis < 3; ++axis) colour[axis] = LeafColour(totals.axis[axis], lo[axis], hi[axis], totals.count);
        // Stored only once all three are made: each axis's walk uses the leaf's bounds as they stand.
        leaf[i].low0 = colour[0];
        leaf[i].low1 = colour[1];
        leaf[i].low2 = colour[2];
        if (!ReportConvertStep(s, i, leaves - 1, 60, 70)) return false;
    }

    WriteTargetHeader(s, 0);
    for (int32_t i = 0; i < leaves; ++i) {
        uint8_t *entry = s.targetPalette + 4 * i;
        entry[0] = leaf[i].low0;
        entry[1] = leaf[i].low1;
        entry[2] = leaf[i].low2;
        entry[3] = 0;
    }
    const bool done = ConvertRows(s, s.width, s.height, 70);
    s.histogram = nullptr;
    s.colourMap = nullptr;
    s.boxes = nullptr;
    return done;
}

}  // namespace tz3
