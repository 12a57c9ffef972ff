// The frame every export goes through, and the head every dispatcher starts with.
#pragma once

#include <cstdint>

#include "frame/dib.h"
#include "frame/owners.h"
#include "frame/region.h"
#include "platform/companion.h"

namespace tz3 {

inline bool Succeeded(DibHandle h) { return h != nullptr; }
inline bool Succeeded(const DibPair &p) { return p.image != nullptr; }
inline bool Succeeded(int32_t v) { return v != 0; }

// Opens the progress dialog unless noDialog is set (a failed open is status 2 and the operation
// does not run), runs the operation, closes the dialog it opened, and sets status 0 on success.
template <class Result, class Operation>
Result RunExport(int32_t noDialog, intptr_t dialog1, intptr_t dialog2, intptr_t dialog3, Operation &&operation) {
    if (noDialog == 0 && PercentDlgOpen(dialog1, dialog2, dialog3) == 0) {
        SetErrorStatus(TZ3_DIALOG_FAILED);
        return Result{};
    }
    Result result = operation();
    if (noDialog == 0) PercentDlgClose();
    if (Succeeded(result)) SetErrorStatus(TZ3_OK);
    return result;
}

// The frame's unpacking: a null pair is two null handles, a null rectangle four zeros.
inline RegionArgs UnpackRegion(const DibPair *pair, int32_t kind, const Tz3Point *points, int32_t count,
                               const Tz3Rect *rect, int32_t inside) {
    RegionArgs args{};
    if (pair != nullptr) {
        args.image = pair->image;
        args.mask = pair->mask;
    }
    args.kind = static_cast<uint8_t>(kind);
    args.points = points;
    args.count = count;
    args.rect = rect != nullptr ? *rect : Tz3Rect{0, 0, 0, 0};
    args.inside = inside;
    return args;
}

// A caller's image, locked for the call and checked: its block holds what its header claims and its
// format is among those accepted. The three 16-bit channel masks are those the check hands back.
struct OpenedDib {
    LockedBlock lock;
    const uint8_t *dib = nullptr;
    uint32_t redMask = 0, greenMask = 0, blueMask = 0;
};

// Null image: status 7. Lock failure: status 3. Short block or refused format: status 7.
bool OpenDib(DibHandle image, uint8_t formatMask, OpenedDib &out);

}  // namespace tz3
