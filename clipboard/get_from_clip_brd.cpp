// TZ3GetFromClipBrd: a new image block from the packed bitmap on the clipboard.
//
// The clipboard stays open while its data are copied, and the data stay the clipboard's. Their
// header's own biSize counts, and a bit-field image of 16 or 32 bits carries its three channel
// masks (12 bytes) after the header, which are copied with it. The data come from another program
// and are checked against their block before a byte of them is copied: what cannot be copied
// inside the block is no usable data (status 7).
#include "clipboard/clip_dib.h"
#include "frame/call.h"
#include "platform/clipboard.h"

namespace tz3 {
namespace {

// Ends the clipboard session on every way out; the data's lock is released before it, since the
// data may be freed once the clipboard is closed.
struct ClipboardCloser {
    ClipboardCloser() = default;
    ClipboardCloser(const ClipboardCloser &) = delete;
    ClipboardCloser &operator=(const ClipboardCloser &) = delete;
    ~ClipboardCloser() { CloseClipboard(); }
};

DibHandle GetFromClipBrd(void *window, int32_t noDialog) {
    SetErrorStatus(TZ3_OK);
    // An open that fails is not looked at: the clipboard then offers nothing.
    OpenClipboard(window);
    const ClipboardCloser closer;
    DibHandle data = GetClipboardData(kClipboardDib);
    if (data == nullptr) {
        SetErrorStatus(TZ3_BAD_IMAGE);
        return nullptr;
    }
    OwnedBlock result;
    const LockedBlock source(data);
    if (!source) {
        SetErrorStatus(TZ3_BAD_IMAGE);
        return nullptr;
    }
    ClipLayout layout;
    if (!ClipLayoutOf(source.bytes(), source.size(), true, layout)) {
        SetErrorStatus(TZ3_BAD_IMAGE);
        return nullptr;
    }
    result = AllocLocked(layout.Total());
    if (!result) return nullptr;
    if (!CopyClipRows(source.bytes(), result.bytes(), layout, noDialog)) return nullptr;
    return result.Release();
}

}  // namespace
}  // namespace tz3

extern "C" TZ3_API DibHandle TZ3GetFromClipBrd(void *window, int32_t noDialog, intptr_t dialog1, intptr_t dialog2,
                                               intptr_t dialog3) {
    using namespace tz3;
    return RunExport<DibHandle>(noDialog, dialog1, dialog2, dialog3,
                                [&] { return GetFromClipBrd(window, noDialog); });
}
