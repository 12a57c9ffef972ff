// The clipboard as the exports see it: open, empty, get and set the packed-bitmap format, close.
//
// Two stores serve it. On Linux with an X11 display (DISPLAY set) the CLIPBOARD selection of the
// display is used through the xclip program, packed bitmaps travelling as the `image/bmp` target
// (a bitmap file: a 14-byte file head before the packed bitmap); `image/png` is read as well when
// it is all the selection offers. Everywhere else, and whenever TZ3_CLIPBOARD=memory is set, a
// store inside this process holds the block. TZ3_XCLIP names another xclip program to run.
//
// A thread holds the clipboard from OpenClipboard to CloseClipboard; other threads of the process
// wait in OpenClipboard meanwhile, so a block handed out by GetClipboardData stays valid until the
// same thread closes the clipboard. Blocks read from the display belong to the open clipboard and
// are freed by CloseClipboard.
#pragma once

#include <cstdint>

#include "tz3effect.h"

namespace tz3 {

constexpr uint32_t kClipboardDib = 8;

// 1 when the clipboard is open for this thread; 0 when the system clipboard cannot be reached (no
// xclip to run). The clipboard is held for this thread either way and CloseClipboard releases it.
int32_t OpenClipboard(void *window);
// Drops what the clipboard holds. 1, or 0 when the system clipboard could not be emptied.
int32_t EmptyClipboard();
// The block of packed-bitmap data on the clipboard, still the clipboard's, or null when there is
// none (or the clipboard is not open, or the data could not be fetched). Nothing of the data is
// checked here: they are the other program's and must be checked before they are read.
DibHandle GetClipboardData(uint32_t format);
// Hands the block (unlocked) to the clipboard, which owns it from now on, whatever the result. 1,
// or 0 when the clipboard is not open or the system clipboard could not take the data.
int32_t SetClipboardData(uint32_t format, DibHandle block);
// Releases the clipboard and the blocks fetched while it was open. 1, or 0 when it was not open
// or the system clipboard could not be reached during the session.
int32_t CloseClipboard();

}  // namespace tz3
