// TZ3CopyImage: a byte-for-byte copy of any block, its format not looked at. The block's own size
// decides what is copied, any slack the allocator added included. A block of more than 100 bytes
// goes in 101 steps, so that the user can cancel: 100 steps of size / 100 bytes, then the remaining
// size % 100 bytes, reported even when there are none.
#include <cstring>

#include "frame/call.h"

namespace tz3 {
namespace {

constexpr size_t kSteps = 100;

DibHandle CopyImage(DibHandle handle, int32_t noDialog) {
    if (handle == nullptr) {
        SetErrorStatus(TZ3_BAD_IMAGE);
        return nullptr;
    }
    LockedBlock source(handle);
    if (!source) {
        SetErrorStatus(TZ3_NO_MEMORY);
        return nullptr;
    }
    const size_t size = source.size();
    if (size == 0) {
        SetErrorStatus(TZ3_NO_MEMORY);
        return nullptr;
    }
    OwnedBlock copy = AllocLocked(size);
    if (!copy) return nullptr;
    const uint8_t *from = source.bytes();
    uint8_t *to = copy.bytes();
    const auto report = [&](int32_t step) {
        if (PercentProgress(step, 100, 0, 100, noDialog) != 0) return true;
        SetErrorStatus(TZ3_CANCELLED);
        return false;
    };
    if (size <= kSteps) {
        std::memcpy(to, from, size);
        if (!report(100)) return nullptr;
        return copy.Release();
    }
    const size_t part = size / kSteps;
    for (size_t i = 0; i <= kSteps; ++i) {
        const size_t bytes = i < kSteps ? part : size % kSteps;
        std::memcpy(to + part * i, from + part * i, bytes);
        if (!report(static_cast<int32_t>(i))) return nullptr;
    }
    return copy.Release();
}

}  // namespace
}  // namespace tz3

extern "C" TZ3_API DibHandle TZ3CopyImage(DibHandle image, int32_t noDialog, intptr_t dialog1,
                                          intptr_t dialog2, intptr_t dialog3) {
    return tz3::RunExport<DibHandle>(noDialog, dialog1, dialog2, dialog3,
                                     [&] { return tz3::CopyImage(image, noDialog); });
}
