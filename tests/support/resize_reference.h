// A slow, literal resize: the forward walk over source blocks, one tile at a time, each pixel of
// each tile computed on its own from the rules, with no shared fast code.
#pragma once

#include <cstdint>
#include <vector>

namespace tz3test {

struct ResizedImage {
    std::vector<uint8_t> image;
    std::vector<uint8_t> mask;  // empty without a source mask
};

// The expected result of resizing src (and mask, when not null) to newWidth x newHeight; newWidth
// and newHeight at least 1.
ResizedImage ResizeReference(const std::vector<uint8_t> &src, const std::vector<uint8_t> *mask, int newWidth,
                             int newHeight, bool interpolate);

}  // namespace tz3test
