// TZ3IsClipBrdData: 1 when the clipboard holds packed-bitmap data. Outside the export frame: no
// dialog; status 0 on entry, and the clipboard is opened and closed in every case.
#include "platform/clipboard.h"
#include "platform/companion.h"

extern "C" TZ3_API int32_t TZ3IsClipBrdData(void *window) {
    using namespace tz3;
    SetErrorStatus(TZ3_OK);
    OpenClipboard(window);
    const DibHandle data = GetClipboardData(kClipboardDib);
    CloseClipboard();
    return data != nullptr ? 1 : 0;
}
