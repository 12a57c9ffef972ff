// Regions: from the caller's region arguments to the box of pixels to walk and the 1-bit mask that
// says which of them to touch. The box is inclusive, in rows counted from the bottom; the mask's
// row and column are relative to the box.
#pragma once

#include <cstdint>

#include "frame/dib.h"
#include "frame/owners.h"

namespace tz3 {

enum RegionKind : uint8_t { kRegionMask = 0, kRegionWhole = 1, kRegionPolygon = 2, kRegionEllipse = 3 };

constexpr uint32_t kMaskHeadBytes = 48;

struct RegionBox {
    int32_t x0, y0, x1, y1;
};

// The region arguments of an export once the frame has unpacked its pointers.
struct RegionArgs {
    DibHandle image;
    DibHandle mask;
    uint8_t kind;  // the low byte of the caller's argument
    const Tz3Point *points;
    int32_t count;
    Tz3Rect rect;
    int32_t inside;
};

// The mask as a worker tests it: no bits means every pixel of the box is processed.
struct MaskView {
    const uint8_t *bits = nullptr;
    int32_t stride = 0;
};

inline bool MaskBitSet(const uint8_t *maskRow, int32_t mx) {
    return (maskRow[mx >> 3] & (0x80u >> (mx & 7))) != 0;
}

// 1 when mask and image have the same size and the mask has 1 bit per pixel; else status 7 and 0.
int32_t CheckMaskFits(const uint8_t *dib, const uint8_t *mask);

// A locked copy of the points, each coordinate clamped on its own into the image, and their box.
// With inside 0 the box is the whole image and the points stay as clamped; otherwise the points are
// moved so that the box's top-left corner is (0, 0) and the box is flipped to bottom-up rows.
// Fewer than 2 points (or none given): status 5; no memory: status 3; an empty owner either way.
OwnedBlock ClipPolygon(const Tz3Point *points, int32_t count, int32_t maxX, int32_t maxY, int32_t *x0,
                       int32_t *y0, int32_t *x1, int32_t *y1, int32_t inside);

// The rectangle to draw, clamped into the image and put in order; the box as for ClipPolygon.
Tz3Rect ClipRectCorners(int32_t left, int32_t top, int32_t right, int32_t bottom, int32_t maxX, int32_t maxY,
                        int32_t *x0, int32_t *y0, int32_t *x1, int32_t *y1, int32_t inside);

// p and r into 0..width - 1, q and s into 0..height - 1, each on its own.
void ClampFourCoords(const uint8_t *dib, int32_t *p, int32_t *q, int32_t *r, int32_t *s);

// A new unlocked RegionMask of width x height with the figure drawn (kind 2 polygon, kind 3
// ellipse, any other kind nothing), its bits complemented when inside is 0. Null with status 3
// (size, memory) or 2 (drawing).
DibHandle MakeRegionMask(int32_t width, int32_t height, uint8_t kind, const Tz3Point *points, int32_t count,
                         int32_t l, int32_t t, int32_t r, int32_t b, int32_t inside);

// Complements each mask row in whole 32-bit words, pad bits included. 0 when the mask cannot be
// locked, else 1.
int32_t InvertMaskBits(DibHandle mask, int32_t stride);

// The region as resolved for a worker, holding every block and lock it took until it ends.
struct ResolvedRegion {
    RegionBox box{};
    MaskView mask;
    LockedBlock callerMask;
    OwnedBlock points;
    OwnedBlock madeMask;
};

// The shared head of the region operations for an image of at least 16 bits: kind 0 the caller's
// mask, 1 the whole image, 2 a polygon, 3 an ellipse. False with the status set on failure.
bool ResolveRegion(const uint8_t *dib, const RegionArgs &args, ResolvedRegion &out);

}  // namespace tz3
