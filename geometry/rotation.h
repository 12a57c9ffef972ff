// Rotation of an image, and of its mask when given, about the image's centre into a new image. Paste
// turns its source with the same core.
#pragma once

#include <cstdint>

#include "tz3effect.h"

namespace tz3 {

// Turns `image` (and `mask`, a 1-bit image of the same size, or null) by `angle` hundredths of a
// degree, after the asked-for flips, into a new pair owned by the caller. The angle is clamped to
// -35999..35999; the three background values count by their low byte; flips, interpolate and
// keepSize count when any bit is set. Both halves are null on failure, with the status set: 7 null
// or refused image or mask, 3 no memory, 5 a size CloneDib refuses, 1 cancelled.
DibPair RotateDib(DibHandle image, DibHandle mask, int32_t angle, int32_t flipHorizontal, int32_t flipVertical,
                  int32_t interpolate, int32_t backRed, int32_t backGreen, int32_t backBlue, int32_t keepSize,
                  int32_t noDialog);

}  // namespace tz3
