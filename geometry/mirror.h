// Mirroring of a locked image, and of its mask when given, in place. Rotation and paste run these
// on their own copies; there is no export of its own.
#pragma once

#include <cstdint>

namespace tz3 {

// Column x goes to column W - 1 - x in every row. 1 on success; 0 with the status set on failure
// (the image is unchanged) or on a cancel (status 1; rows not yet written are zero).
int32_t FlipDibHorizontal(uint8_t *image, uint8_t *mask, int32_t noDialog, uint8_t percentLow, uint8_t percentHigh);

// Row y goes whole to row H - 1 - y. Same results and statuses as FlipDibHorizontal.
int32_t FlipDibVertical(uint8_t *image, uint8_t *mask, int32_t noDialog, uint8_t percentLow, uint8_t percentHigh);

}  // namespace tz3
