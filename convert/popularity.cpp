// The popularity count: a 16-colour table for an 8-bit image, from the 64 cells of its colours
// (each channel / 64). A cell keeps the colour of the last pixel seen in it, in storage order (row
// 0, the bottom row, first; each row left to right), and how many pixels fell in it. The cells are
// then ordered by a heap sort, largest count first, and the first 16 become the table; a cell that
// no pixel reached is black.
//
// The sort is this library's own: the children of node i are 2 i and 2 i + 1 in a list counted
// from 0, so node 0 has the one real child, node 1. Equal counts therefore always come out in the
// same order, and the tables depend on it.
#include <utility>

#include "convert/convert_state.h"
#include "frame/owners.h"

namespace tz3 {
namespace {

void Sift(ColourCell *cells, int32_t i, int32_t last) {
    int32_t c = 2 * i;
    while (c <= last) {
        if (c < last && cells[c + 1].count < cells[c].count) ++c;
        if (cells[i].count <= cells[c].count) return;
        std::swap(cells[i], cells[c]);
        i = c;
        c = 2 * i;
    }
}

void SortCells(ColourCell *cells) {
    for (int32_t i = 31; i >= 0; --i) Sift(cells, i, kPopularityCells - 1);
    for (int32_t last = kPopularityCells - 1; last >= 1; --last) {
        std::swap(cells[0], cells[last]);
        Sift(cells, 0, last - 1);
    }
}

bool CountCells(ConvertState &s) {
    // The colour of each index, read once: an index past a short table reads the bytes that follow.
    Rgb entries[256];
    for (uint32_t i = 0; i < 256; ++i) entries[i] = SourceEntry(s, i);
    for (int32_t y = 0; y < s.height; ++y) {
        const uint8_t *row = s.sourcePixels + static_cast<size_t>(s.sourceStride) * static_cast<size_t>(y);
        for (int32_t x = 0; x < s.width; ++x) {
            const Rgb c = entries[row[x]];
            ColourCell &cell = s.cells[(c.r / 64) * 16 + (c.g / 64) * 4 + c.b / 64];
            cell.red = c.r;
            cell.green = c.g;
            cell.blue = c.b;
            ++cell.count;
        }
        if (!ReportConvertStep(s, y, s.height, 0, 10)) return false;
    }
    return true;
}

}  // namespace

bool ConvertWithPopularity(ConvertState &s) {
    OwnedBlock cells = AllocLocked(sizeof(ColourCell) * static_cast<uint64_t>(kPopularityCells));
    if (!cells) return false;
    s.cells = reinterpret_cast<ColourCell *>(cells.bytes());
    if (!CountCells(s)) {
        // A cancel while counting leaves through the step's failure path, which reports lack of
        // memory over the cancel: callers see status 3 here, and that is kept.
        SetErrorStatus(TZ3_NO_MEMORY);
        return false;
    }
    SortCells(s.cells);
    WriteTargetHeader(s, 0);
    for (int32_t i = 0; i < 16; ++i) {
        uint8_t *entry = s.targetPalette + 4 * i;
        entry[0] = s.cells[i].blue;
        entry[1] = s.cells[i].green;
        entry[2] = s.cells[i].red;
        entry[3] = 0;
    }
    const bool done = ConvertRows(s, s.width, s.height, 10);
    s.cells = nullptr;
    return done;
}

}  // namespace tz3
