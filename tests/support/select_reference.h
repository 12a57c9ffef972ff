// Literal transcriptions of the selection rules, sharing no code with the library except the
// figure drawing of region masks (MakeRegionMask, whose own tests live with the frame): the box,
// the clamped points, the nearest palette entry, the YCC sums and every per-pixel rule are written
// out here again.
#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include "tz3effect.h"

namespace tz3test {

// A region drawn at random for an image of width x height: kind 1, 2 (2 to 6 points, some outside
// the image) or 3 (a rectangle, corners possibly reversed or outside), inside flag random.
struct RandomRegion {
    int32_t kind = 1;
    std::vector<Tz3Point> points;
    Tz3Rect rect{0, 0, 0, 0};
    int32_t inside = 1;
    const Tz3Point *Points() const { return points.empty() ? nullptr : points.data(); }
    int32_t Count() const { return static_cast<int32_t>(points.size()); }
};
RandomRegion DrawRegion(std::mt19937 &rng, int width, int height);

// The box (inclusive, bottom-up rows) and the mask that a shape resolves to on an image of width x
// height. wholeAsPolygon: kind 1 is drawn as the polygon of the four corners, inside flag kept;
// otherwise kind 1 has no mask (hasMask false).
struct RefRegion {
    int32_t x0, y0, x1, y1;
    bool hasMask;
    std::vector<uint8_t> mask;  // a RegionMask of the box's size
};
RefRegion ReferenceRegion(int width, int height, const RandomRegion &region, bool wholeAsPolygon);

// The palette entry nearest to a colour: squared distance, first of equals, table length by rule.
uint8_t ReferenceNearestIndex(const std::vector<uint8_t> &dib, uint8_t red, uint8_t green, uint8_t blue);

struct RefPair {
    std::vector<uint8_t> image, mask;
};

// The cut-out of a shape with the fill colour (low bytes of the arguments).
RefPair ReferenceSelectImage(const std::vector<uint8_t> &src, const RandomRegion &region, int32_t red,
                             int32_t green, int32_t blue);

// Luma, Cr and Cb as the selection by colour computes them.
int32_t ReferenceLuma(uint8_t r, uint8_t g, uint8_t b);
int32_t ReferenceCr(uint8_t r, uint8_t g, uint8_t b);
int32_t ReferenceCb(uint8_t r, uint8_t g, uint8_t b);

// The selection by colour similarity.
RefPair ReferenceAutoSelectImage(const std::vector<uint8_t> &src, const RandomRegion &region, int32_t keyRed,
                                 int32_t keyGreen, int32_t keyBlue, int32_t metric, int32_t tolerance);

}  // namespace tz3test
