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

// Sets the pixels of a one-pixel-wide line from (x0, y0) up to but not including (x1, y1), clipped
// to the surface. 1 with status 0 when drawn; 0 without a status when the mask cannot be locked; 0
// with status 9 when the block is no 1-bit surface.
int32_t DrawMaskLine(DibHandle mask, int32_t x0, int32_t y0, int32_t x1, int32_t y1);

// Every pixel of the colour surfaceColour (0x00BBGGRR, matched to the nearer of the mask's two
// table entries) that is joined to the seed (x, y) by horizontal and vertical steps through pixels
// of that colour takes fillColour. A seed of another colour, or off the surface, fills nothing.
// 1 with status 0 when done; 0 without a status when the mask cannot be locked; 0 with status 2
// when the block is no 1-bit surface or the fill has no working memory.
int32_t FloodMaskSide(DibHandle mask, int32_t x, int32_t y, uint32_t surfaceColour, uint32_t fillColour);

}  // namespace tz3
