// Joining two overlapping pictures: the second is scaled, turned and pasted over the first so that
// a segment marked on each comes to lie on the other.
#pragma once

#include <cstdint>

namespace tz3 {

// The direction of the segment from (x0, y0) to (x1, y1), y counted upward, in degrees from 0 up
// to 360, worked out with the library's pi.
double DirectionDegrees(int32_t x0, int32_t y0, int32_t x1, int32_t y1);

// The ends of the seam through (xa, ya) and (xb, yb) (rows counted from the bottom, the points
// distinct) on a picture of width x height, reaching 10 pixels beyond it; the ends' y count from
// the top, as the mask line takes them.
struct SeamEnds {
    int32_t x0, y0, x1, y1;
};
SeamEnds SeamLineEnds(int32_t width, int32_t height, int32_t xa, int32_t ya, int32_t xb, int32_t yb);

}  // namespace tz3
