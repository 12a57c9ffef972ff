// The clipboard: which store serves a session, the store inside the process, and the session of
// the thread that holds the clipboard.
//
// The store inside the process is the one piece of state that outlives a call, as a clipboard must:
// one block and the lock that guards it. The lock is held from OpenClipboard to CloseClipboard, so
// that a thread reading the block never sees it freed by another thread's EmptyClipboard.
#include "platform/clipboard.h"

#include <cstdlib>
#include <cstring>
#include <mutex>

#include "platform/clipboard_x11.h"

namespace tz3 {
namespace {

std::mutex g_clipboardLock;
DibHandle g_memoryStore = nullptr;  // guarded by g_clipboardLock

struct ClipboardSession {
    bool open = false;
    bool system = false;       // the X11 selection rather than the store inside the process
    bool unreachable = false;  // no xclip, or an xclip run that failed
    DibHandle fetched = nullptr;
};
thread_local ClipboardSession t_session;

bool SystemClipboardWanted() {
    const char *choice = std::getenv("TZ3_CLIPBOARD");
    if (choice != nullptr && std::strcmp(choice, "memory") == 0) return false;
    const char *display = std::getenv("DISPLAY");
    return display != nullptr && display[0] != '\0';
}

void DropFetched() {
    if (t_session.fetched != nullptr) Tz3GlobalFree(t_session.fetched);
    t_session.fetched = nullptr;
}

}  // namespace

int32_t OpenClipboard(void *) {
    ClipboardSession &s = t_session;
    if (s.open) return s.unreachable ? 0 : 1;
    g_clipboardLock.lock();
    s = ClipboardSession{};
    s.open = true;
    s.system = SystemClipboardWanted();
    if (s.system && !XclipAvailable()) s.unreachable = true;
    return s.unreachable ? 0 : 1;
}

int32_t EmptyClipboard() {
    ClipboardSession &s = t_session;
    if (!s.open) return 0;
    DropFetched();
    if (!s.system) {
        if (g_memoryStore != nullptr) Tz3GlobalFree(g_memoryStore);
        g_memoryStore = nullptr;
        return 1;
    }
    if (s.unreachable) return 0;
    if (!XclipEmpty()) s.unreachable = true;
    return s.unreachable ? 0 : 1;
}

DibHandle GetClipboardData(uint32_t format) {
    ClipboardSession &s = t_session;
    if (!s.open || format != kClipboardDib) return nullptr;
    if (!s.system) return g_memoryStore;
    if (s.unreachable) return nullptr;
    if (s.fetched == nullptr) s.fetched = XclipFetchDib();
    return s.fetched;
}

int32_t SetClipboardData(uint32_t format, DibHandle block) {
    ClipboardSession &s = t_session;
    if (!s.open || format != kClipboardDib) {
        if (block != nullptr) Tz3GlobalFree(block);
        return 0;
    }
    if (!s.system) {
        if (g_memoryStore != nullptr && g_memoryStore != block) Tz3GlobalFree(g_memoryStore);
        g_memoryStore = block;
        return 1;
    }
    // The display keeps its own copy of the bytes; the block has served once they are handed over.
    bool stored = false;
    if (!s.unreachable && block != nullptr) {
        const void *bytes = Tz3GlobalLock(block);
        if (bytes != nullptr) {
            stored = XclipStoreDib(static_cast<const uint8_t *>(bytes), Tz3GlobalSize(block));
            Tz3GlobalUnlock(block);
        }
    }
    if (block != nullptr) Tz3GlobalFree(block);
    DropFetched();
    if (!stored) s.unreachable = true;
    return stored ? 1 : 0;
}

int32_t CloseClipboard() {
    ClipboardSession &s = t_session;
    if (!s.open) return 0;
    DropFetched();
    const int32_t result = s.unreachable ? 0 : 1;
    s = ClipboardSession{};
    g_clipboardLock.unlock();
    return result;
}

}  // namespace tz3
