// Placeholder until the rasteriser lands.
#include "platform/raster.h"
namespace tz3 {
int32_t PolygonToMask(DibHandle, const Tz3Point *, int32_t) { return 1; }
int32_t EllipseToMask(DibHandle, int32_t, int32_t, int32_t, int32_t) { return 1; }
}  // namespace tz3
