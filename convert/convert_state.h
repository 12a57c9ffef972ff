// The record of one colour depth conversion. Every step of TZ3ConvertColor reads and writes this
// record and nothing else, and each call makes its own, so conversions on several threads at once
// do not meet. The pointers to working blocks are borrowed: each block is held by an owner in the
// step that allocated it and freed on every way out.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/dib.h"
#include "frame/pixel.h"
#include "platform/companion.h"

namespace tz3 {

// The target code that asks for an 8-bit image with a gray ramp as its table.
constexpr uint16_t kGrayTarget = 80;

// One box of the median cut's tree: inclusive bounds on the three axes of the 64 x 64 x 64
// histogram (axis 0 blue, the slowest index; axis 1 green; axis 2 red, the fastest) and the pixels
// it holds. A leaf of the last level keeps its colour in low0 (blue), low1 (green), low2 (red).
struct ColourBox {
    uint8_t low0, high0;
    uint8_t low1, high1;
    uint8_t low2, high2;
    uint32_t count;
};

// One of the popularity count's 64 cells: the colour of the last pixel seen in it, and how many.
struct ColourCell {
    uint8_t red, green, blue;
    uint32_t count;
};

constexpr int32_t kHistogramSide = 64;
constexpr int32_t kHistogramCells = kHistogramSide * kHistogramSide * kHistogramSide;
constexpr int32_t kTreeLevels = 9;
constexpr int32_t kBoxesPerLevel = 256;
constexpr int32_t kPopularityCells = 64;

// The counter of a colour: ((blue / 4) x 64 + green / 4) x 64 + red / 4.
inline uint32_t HistogramIndex(uint32_t blue, uint32_t green, uint32_t red) {
    return ((blue / 4) * 64 + green / 4) * 64 + red / 4;
}

struct ConvertState {
    const uint8_t *source = nullptr;  // the locked source
    size_t sourceSize = 0;            // its block size: a palette index past the table reads within it
    uint16_t sourceBits = 0;
    uint16_t targetBits = 0;          // the target code, 80 included
    int32_t fixedPalette = 0;
    int32_t dither = 0;
    uint8_t threshold = 0;
    int32_t noDialog = 0;
    uint16_t redMask = 0, greenMask = 0, blueMask = 0;
    int32_t width = 0, height = 0;
    int32_t xPelsPerMeter = 0, yPelsPerMeter = 0;
    int32_t sourceStride = 0, targetStride = 0;
    const uint8_t *sourcePixels = nullptr;
    uint8_t *target = nullptr;
    uint8_t *targetPalette = nullptr;
    uint8_t *targetPixels = nullptr;
    int32_t paletteUsed = 0;
    int32_t paletteSize = 0;
    uint8_t *rowColours = nullptr;
    int32_t *errorCurrent = nullptr;
    int32_t *errorNext = nullptr;
    uint8_t *levelTable = nullptr;
    uint32_t *histogram = nullptr;
    uint8_t *colourMap = nullptr;
    ColourBox *boxes = nullptr;
    ColourCell *cells = nullptr;
};

// The result's bit count for a target code: 8 for the gray code.
inline uint16_t TargetBitCount(uint16_t targetBits) { return targetBits == kGrayTarget ? 8 : targetBits; }

// A 5-5-5 word from 8-bit channels, each truncated to 5 bits; the only 16-bit form this conversion
// writes.
inline uint16_t Pack555(uint8_t red, uint8_t green, uint8_t blue) {
    return static_cast<uint16_t>(((red * 31u / 255) << 10) | ((green * 31u / 255) << 5) | (blue * 31u / 255));
}

// The byte at `at` of the source block, 0 past its end: a palette index beyond a short table reads
// the bytes that follow the table, and nothing beyond the block.
inline uint8_t SourceByte(const ConvertState &s, uint64_t at) { return at < s.sourceSize ? s.source[at] : 0; }

// Colour of source table entry `index`.
inline Rgb SourceEntry(const ConvertState &s, uint32_t index) {
    const uint64_t at = kHeaderBytes + 4ull * index;
    return Rgb{SourceByte(s, at + 2), SourceByte(s, at + 1), SourceByte(s, at)};
}

// Writes the result's header: biSize 40, the source's size and resolution, the target's bit count,
// biSizeImage of the target rows, and biClrUsed as given; every other field stays 0.
void WriteTargetHeader(const ConvertState &s, uint32_t clrUsed);

// After each step of a stage: false with status 1 when the user cancelled.
bool ReportConvertStep(const ConvertState &s, int32_t current, int32_t total, int32_t low, int32_t high);

// The palette ways of a reduction to 1, 4 or 8 bits or to gray; each writes the header and table
// and ends in ConvertRows. False with the status set on failure.
bool ConvertWithFixedPalette(ConvertState &s);
bool ConvertWithMedianCut(ConvertState &s);
bool ConvertWithPopularity(ConvertState &s);

// The row conversion that every palette reduction ends in: map each pixel to an index of the new
// table, with error diffusion when asked, reporting from startPercent to 100.
bool ConvertRows(ConvertState &s, int32_t width, int32_t height, int32_t startPercent);

// The conversions that need no new palette.
bool ReduceDirect(ConvertState &s);
DibHandle ConvertWidening(ConvertState &s);

}  // namespace tz3
