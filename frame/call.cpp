// The dispatcher's head: lock and test the caller's image.
#include "frame/call.h"

namespace tz3 {

bool OpenDib(DibHandle image, uint8_t formatMask, OpenedDib &out) {
    if (image == nullptr) {
        SetErrorStatus(TZ3_BAD_IMAGE);
        return false;
    }
    out.lock = LockedBlock(image);
    if (!out.lock) {
        SetErrorStatus(TZ3_NO_MEMORY);
        return false;
    }
    const uint8_t *dib = out.lock.bytes();
    if (!CheckDibBlock(dib, out.lock.size())) return false;
    if (!CheckDibFormat(dib, formatMask, &out.redMask, &out.greenMask, &out.blueMask)) return false;
    out.dib = dib;
    return true;
}

}  // namespace tz3
