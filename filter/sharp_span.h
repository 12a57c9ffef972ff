// The colour step of sharpening over a span of pixels, in a plain loop and in an AVX2 one that the
// filter picks once per call; both give the same bits and are tested against each other.
#pragma once

#include <cstdint>

namespace tz3 {

// For n pixels of channel values r, g, b (0..255) and new lumas y: Cr and Cb of the pixel's own
// colour from the YCC tables t (entries added in double, stored as floats), then blue, green and red
// in double with the float constants, truncated and clamped to 0..255.
void SharpColourSpan(const float *const *t, const int32_t *r, const int32_t *g, const int32_t *b, const float *y,
                     int32_t n, uint8_t *blue, uint8_t *green, uint8_t *red);
void SharpColourSpanAvx2(const float *const *t, const int32_t *r, const int32_t *g, const int32_t *b, const float *y,
                         int32_t n, uint8_t *blue, uint8_t *green, uint8_t *red);

}  // namespace tz3
