// The built-in test card.
#pragma once

#include "dib_block.h"

namespace tz3cli {

// A 640 x 480 24-bit picture drawn by integer arithmetic alone, so that it is the same, byte for
// byte, on every machine. Its parts are chosen so that every effect shows somewhere:
//   top bands     smooth gray ramp, 16-step gray wedge, red, green and blue ramps, hue sweep full
//                 and fading to white (tone, gamma, level, colour reduction, dithering)
//   left          hue wheel, white at the centre, on flat gray (YCC, chroma, palettes)
//   middle        1-pixel and 2-pixel checkerboards, 1-pixel lines, diagonals, rings, dots, bars
//                 of growing width, sharp black, white and coloured edges (filters, resize,
//                 rotation, aliasing)
//   right         a 32-sector star in a framed square (rotation, warps, anti-aliasing)
//   text area     glyphs at three sizes and lines of glyph-like words, no fonts (sharpening, noise)
//   bottom        sixteen flat patches of pure and everyday colours (mosaic, selection, layering)
DibOwner MakeTestCard();

}  // namespace tz3cli
