// TZ3ClearClipBrd: empties the clipboard. Outside the export frame: no dialog; status 0 on entry.
// The result is CloseClipboard's, which is 0 when the system clipboard could not be reached.
#include "platform/clipboard.h"
#include "platform/companion.h"

extern "C" TZ3_API int32_t TZ3ClearClipBrd(void *window) {
    using namespace tz3;
    SetErrorStatus(TZ3_OK);
    OpenClipboard(window);
    EmptyClipboard();
    return CloseClipboard();
}
