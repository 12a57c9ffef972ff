// Resolution of a selection's shape.
#include "select/selection_shape.h"

#include "platform/companion.h"

namespace tz3 {

bool ResolveSelectionShape(const uint8_t *dib, uint8_t kind, const Tz3Point *points, int32_t count,
                           const Tz3Rect &rect, int32_t inside, bool wholeAsPolygon, SelectionShape &out) {
    const int32_t width = DibWidth(dib);
    const int32_t height = DibHeight(dib);
    if (kind != kRegionWhole && kind != kRegionPolygon && kind != kRegionEllipse) {
        SetErrorStatus(TZ3_BAD_PARAMETER);
        return false;
    }
    // An image without rows or columns has no box; it is refused as its clone would refuse it.
    if (width < 1 || height < 1) {
        SetErrorStatus(TZ3_BAD_PARAMETER);
        return false;
    }
    const int32_t maxX = width - 1;
    const int32_t maxY = height - 1;
    out.kind = kind;
    out.box = RegionBox{maxX, maxY, 0, 0};
    switch (kind) {
        case kRegionWhole:
            out.box = RegionBox{0, 0, maxX, maxY};
            if (wholeAsPolygon) {
                out.corners[0] = Tz3Point{0, 0};
                out.corners[1] = Tz3Point{0, maxY};
                out.corners[2] = Tz3Point{maxX, maxY};
                out.corners[3] = Tz3Point{maxX, 0};
                out.polygon = out.corners;
                out.count = 4;
                out.kind = kRegionPolygon;
            }
            return true;
        case kRegionPolygon:
            out.clipped = ClipPolygon(points, count, maxX, maxY, &out.box.x0, &out.box.y0, &out.box.x1,
                                      &out.box.y1, inside);
            if (!out.clipped) return false;
            out.polygon = reinterpret_cast<const Tz3Point *>(out.clipped.bytes());
            out.count = count;
            return true;
        default:
            out.draw = ClipRectCorners(rect.left, rect.top, rect.right, rect.bottom, maxX, maxY, &out.box.x0,
                                       &out.box.y0, &out.box.x1, &out.box.y1, inside);
            return true;
    }
}

int32_t HandOutPair(bool ran, const DibPair &pair, DibPair *out) {
    if (!ran) return 0;
    if (out == nullptr) {
        // Nobody can take the results, so they are freed here.
        BlockOwner image(pair.image);
        BlockOwner mask(pair.mask);
        SetErrorStatus(TZ3_BAD_PARAMETER);
        return 0;
    }
    *out = pair;
    return pair.image != nullptr ? 1 : 0;
}

}  // namespace tz3
