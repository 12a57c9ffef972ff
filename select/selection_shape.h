// The shape of a selection: its box and the figure that the mask is drawn from. The selections
// take kinds 1 (whole image), 2 (polygon) and 3 (ellipse) only, never a caller's mask.
#pragma once

#include <cstdint>

#include "frame/owners.h"
#include "frame/region.h"

namespace tz3 {

struct SelectionShape {
    uint8_t kind = 0;  // the kind the mask is drawn with
    RegionBox box{};
    OwnedBlock clipped;        // the clamped points of a polygon
    Tz3Point corners[4] = {};  // the whole image as a polygon
    const Tz3Point *polygon = nullptr;
    int32_t count = 0;
    Tz3Rect draw{0, 0, 0, 0};  // the ellipse's rectangle
    int32_t Width() const { return box.x1 - box.x0 + 1; }
    int32_t Height() const { return box.y1 - box.y0 + 1; }
};

// Resolves the shape on an image. Kind 1 is the whole image; with wholeAsPolygon it goes on as
// the polygon of the image's four corners (so that the inside flag still decides the mask), else
// it has no figure and `kind` stays 1. Kind 2 clamps the points into the image, kind 3 the
// rectangle. Any other kind, and an image without pixels, is status 5; the polygon's own failures
// keep their status. False on failure.
bool ResolveSelectionShape(const uint8_t *dib, uint8_t kind, const Tz3Point *points, int32_t count,
                           const Tz3Rect &rect, int32_t inside, bool wholeAsPolygon, SelectionShape &out);

// The end of an Ex form: the pair is written only when the operation ran (the dialog, if asked for,
// opened), and the result is 1 when its image is there. With no place to write it the pair is freed
// rather than lost, and the call fails with status 5.
int32_t HandOutPair(bool ran, const DibPair &pair, DibPair *out);

}  // namespace tz3
