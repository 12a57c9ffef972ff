// Puts data on the X11 CLIPBOARD selection as a given target by running xclip, as another program
// would, and waits until the selection offers that target.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tz3test {

// True once the selection of the display in DISPLAY offers the bytes as `target`.
bool OfferOnSelection(const std::string &target, const std::vector<uint8_t> &bytes);

// A PNG file of a width x height RGBA image given as rows top-down.
std::vector<uint8_t> EncodePngRgba(int width, int height, const std::vector<uint8_t> &rgbaTopDown);

}  // namespace tz3test
