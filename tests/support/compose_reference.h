// Literal references of paste and layer, written from their rules alone and sharing no code with the
// library: pixels read per depth through the colour table, the source extent, the box from the
// corners or from every mask bit, the walk, the right-angle table, the four taps and the blend,
// evaluated pixel by pixel in the order the rules give.
#pragma once

#include <cstdint>
#include <vector>

namespace tz3test {

struct Bgr {
    uint8_t b, g, r;
    bool operator==(const Bgr &o) const { return b == o.b && g == o.g && r == o.r; }
};

// The pixel at (x, y), y from the bottom, as blue, green, red: a palette index is looked up at
// 40 + 4 x index whatever the table's length (bytes past the end read as 0), a 16-bit word expands
// as 5-6-5 when the image carries those bit fields, else 5-5-5.
Bgr RefPixel(const std::vector<uint8_t> &dib, int x, int y);

// One channel of the opacity blend, computed as the rule writes it.
uint8_t RefBlend(uint8_t s, uint8_t t, int opacity);

struct PasteSettings {
    int32_t angle = 0, mirror = 0, flip = 0, opacity = 255;
    int32_t backRed = 0, backGreen = 0, backBlue = 0;
    int32_t pasteX = 0, pasteY = 0, keepSize = 0;
};

// The whole result block of a paste.
std::vector<uint8_t> ReferencePaste(const std::vector<uint8_t> &target, const std::vector<uint8_t> &source,
                                    const std::vector<uint8_t> *mask, const PasteSettings &s);

struct LayerSettings {
    int32_t opacity = 255, keyRed = 0, keyGreen = 0, keyBlue = 0;
    int32_t backRed = 0, backGreen = 0, backBlue = 0;
    int32_t layerX = 0, layerY = 0, keepSize = 0;
};

// The whole result block of a layer.
std::vector<uint8_t> ReferenceLayer(const std::vector<uint8_t> &base, const std::vector<uint8_t> &over,
                                    const LayerSettings &s);

// A 24-bit image's pixel as stored.
Bgr Pixel24(const std::vector<uint8_t> &dib, int x, int y);

}  // namespace tz3test
