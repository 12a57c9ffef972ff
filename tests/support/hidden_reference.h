// Slow, literal transcriptions of the hidden mark's rules, sharing no code with the library: the
// luma shift under a stamp, and the comparison that shows it.
#pragma once

#include <cstdint>
#include <vector>

namespace tz3test {

// The marked image: under each set bit of the 1-bit stamp placed with its left column at x0 and
// its top row at top-down row y0, the pixel goes through YCC, Y shifted by strength when the
// result stays in 0..255, and back.
std::vector<uint8_t> ReferenceSecretMark(const std::vector<uint8_t> &image, const std::vector<uint8_t> &stamp,
                                         int32_t strength, int32_t x0, int32_t y0);

// The luma of a pixel: the three float table entries summed in double, truncated, low 8 bits.
int32_t ReferenceLumaByte(uint8_t red, uint8_t green, uint8_t blue);

// The mask of the images' size with a bit set where luma(marked) - luma(plain) >= threshold.
std::vector<uint8_t> ReferenceSecretCheck(const std::vector<uint8_t> &plain, const std::vector<uint8_t> &marked,
                                          int32_t threshold);

}  // namespace tz3test
