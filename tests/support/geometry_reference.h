// Literal references of rotation and of the quadrilateral warp, written from the rules alone, pixel
// by pixel, with no shared code with the library: images are byte vectors, every pixel is read and
// written through a switch on its depth.
#pragma once

#include <cstdint>
#include <vector>

#include "support/test_images.h"

namespace tz3test {

// Pixel value as stored: index for 1/4/8 bits, the word for 16, B | G << 8 | R << 16 (| X << 24 for
// 32) otherwise.
uint32_t RawPixel(const std::vector<uint8_t> &dib, int x, int y);

struct RotationArgs {
    int32_t angle = 0;
    bool flipHorizontal = false, flipVertical = false, interpolate = false, keepSize = false;
    int32_t red = 0, green = 0, blue = 0;  // whole arguments; the low byte counts
};

struct ImagePair {
    std::vector<uint8_t> image, mask;  // mask empty when none
};

// The turned image and mask, as the rules describe them.
ImagePair ReferenceRotation(const std::vector<uint8_t> &src, const std::vector<uint8_t> *mask,
                            const RotationArgs &args);

// The straightened quadrilateral, or an empty vector where the rules give no image.
std::vector<uint8_t> ReferenceAffine(const std::vector<uint8_t> &src, const int32_t (&points)[8]);

}  // namespace tz3test
