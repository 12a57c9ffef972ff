// The rasteriser for figures on 1-bit masks. Both draw onto a RegionMask block (48-byte head, rows
// bottom-up) as onto a surface whose y runs down from the top: a figure pixel at surface row y sets
// bit (7 - x % 8) of byte x / 8 in mask row height - 1 - y. Pixels outside the surface are dropped.
#pragma once

#include <cstdint>

#include "tz3effect.h"

namespace tz3 {

// Sets every pixel of the closed polygon through the points in order, filled by the even-odd rule,
// and every pixel of its one-pixel outline, the last point joined to the first. 1, or 0 when the
// mask cannot be locked.
int32_t PolygonToMask(DibHandle mask, const Tz3Point *points, int32_t count);

// Sets every pixel of the ellipse that fits in the rectangle, fill and outline, reaching up to but
// not including column r and row b. Status 0 and 1 when drawn; status 9 and 0 when it cannot be.
int32_t EllipseToMask(DibHandle mask, int32_t l, int32_t t, int32_t r, int32_t b);

}  // namespace tz3
