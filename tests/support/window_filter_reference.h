// Literal references of the window filters (shade, mosaic, outline, remove noise), written from
// their rules alone and sharing no code with the library: whole windows summed at every pixel,
// tiles walked pixel by pixel, plain bubble sorts, the luma summed from float tables in double.
// Each takes the raw 32-bit arguments and applies the low-byte rules itself.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "support/filter_kernel_reference.h"
#include "support/test_images.h"

namespace tz3test {

using Bytes = std::vector<uint8_t>;

// The walk's box, inclusive, in bottom-up rows.
struct RefBox {
    int x0, y0, x1, y1;
};

// The box of the whole image.
RefBox WholeBox(const Bytes &src);

// Whether the call computes pixel (x, y) of the image.
using PixelSelected = std::function<bool(int x, int y)>;
// Every pixel; and the pixels of a box whose set bits in a region mask relative to the box (1-bit
// image, 48-byte head) say so, positions beyond the mask's own size reading as clear.
PixelSelected AllPixels();
PixelSelected BoxMaskBits(const RefBox &box, const Bytes &mask);

// Each filter over the box, computing the selected pixels. The result is the caller's image with
// biSizeImage rewritten and the computed pixels stored.
Bytes RefShade(const Bytes &src, const RefBox &box, const PixelSelected &selected, int32_t radius);
Bytes RefMosaic(const Bytes &src, const RefBox &box, const PixelSelected &selected, int32_t tileWidth,
                int32_t tileHeight);
Bytes RefOutline(const Bytes &src, const RefBox &box, const PixelSelected &selected, int32_t channel,
                 int32_t op, int32_t gain);
Bytes RefRemoveNoise(const Bytes &src, const RefBox &box, const PixelSelected &selected, int32_t method,
                     int32_t level);

}  // namespace tz3test
