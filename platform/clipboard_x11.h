// The CLIPBOARD selection of an X11 display, reached through the xclip program (TZ3_XCLIP names
// another one). Each function runs xclip to its end and reaps it; no child is left behind.
#pragma once

#include <cstddef>
#include <cstdint>

#include "tz3effect.h"

namespace tz3 {

// True when the xclip program can be run.
bool XclipAvailable();
// Makes the selection hold an empty text, so that it offers no image.
bool XclipEmpty();
// The packed bitmap the selection offers as `image/bmp` (the file head taken off), or decoded from
// `image/png` into a 24-bit packed bitmap when that is all it offers, in a new unlocked block. Null
// when the selection offers neither or the data cannot be fetched. The bytes are not checked.
DibHandle XclipFetchDib();
// Offers the packed bitmap as `image/bmp`; true once the selection offers it.
bool XclipStoreDib(const uint8_t *dib, size_t bytes);

}  // namespace tz3
