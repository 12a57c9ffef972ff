// TZ3SetToClipBrd: a copy of the caller's image goes to the clipboard, which owns it from then on.
//
// The copy is made before the clipboard is opened, so cancelling leaves the clipboard as it was.
// The copy holds the header (its own biSize counted), 4 x DibNumColors table bytes and the rows;
// unlike the reader, no room is made for the channel masks of a bit-field image.
#include "clipboard/clip_dib.h"
#include "frame/call.h"
#include "platform/clipboard.h"

namespace tz3 {
namespace {

int32_t SetToClipBrd(void *window, DibHandle image, int32_t noDialog) {
    SetErrorStatus(TZ3_OK);
    if (image == nullptr) {
        SetErrorStatus(TZ3_BAD_IMAGE);
        return 0;
    }
    LockedBlock source(image);
    if (!source) {
        SetErrorStatus(TZ3_BAD_IMAGE);
        return 0;
    }
    ClipLayout layout;
    if (!ClipLayoutOf(source.bytes(), source.size(), false, layout)) {
        SetErrorStatus(TZ3_BAD_IMAGE);
        return 0;
    }
    OwnedBlock copy = AllocLocked(layout.Total());
    if (!copy) return 0;
    if (!CopyClipRows(source.bytes(), copy.bytes(), layout, noDialog)) return 0;
    source.Unlock();
    DibHandle block = copy.Release();
    // The clipboard owns the block whatever happens. As with the system calls this mirrors, their
    // results are not looked at: a clipboard that could not be reached is seen by the next reader,
    // which finds nothing there.
    OpenClipboard(window);
    EmptyClipboard();
    SetClipboardData(kClipboardDib, block);
    CloseClipboard();
    return 1;
}

}  // namespace
}  // namespace tz3

extern "C" TZ3_API int32_t TZ3SetToClipBrd(void *window, DibHandle image, int32_t noDialog, intptr_t dialog1,
                                           intptr_t dialog2, intptr_t dialog3) {
    using namespace tz3;
    return RunExport<int32_t>(noDialog, dialog1, dialog2, dialog3,
                              [&] { return SetToClipBrd(window, image, noDialog); });
}
