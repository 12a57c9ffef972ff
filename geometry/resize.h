// Resizing an image, and its mask when there is one, to a new width and height. The panorama drives
// the same core for its second picture.
#pragma once

#include <cstdint>

#include "tz3effect.h"

namespace tz3 {

// A new image of newWidth x newHeight made from image (any depth), and a new mask of that size
// when a mask is given (else a null mask). interpolate non-zero averages and spreads at 8-bit gray,
// 16, 24 and 32 bits; everything else replicates. halfProgress non-zero makes the 24-bit worker end
// its progress at 50 instead of 100. Two nulls with the status set on failure or cancel.
DibPair ResizeDib(DibHandle image, DibHandle mask, int32_t newWidth, int32_t newHeight, int32_t interpolate,
                  int32_t noDialog, int32_t halfProgress);

}  // namespace tz3
