// TZ3CheckSecretImage: makes a hidden mark visible by comparing the marked image with the image it
// came from. The result is a mask of the images' size whose bit is set where the luma of the marked
// pixel minus that of the plain one (each the float tables' sum, truncated, low 8 bits) reaches the
// threshold. Only a rise counts: a mark made with a negative strength needs a negative threshold,
// which then also sets every pixel that dropped less, the unchanged ones included.
#include "frame/arith.h"
#include "frame/call.h"
#include "frame/colour_tables.h"

namespace tz3 {
namespace {

int32_t LumaOf(const float *const *t, const uint8_t *pixel) {
    return static_cast<uint8_t>(TruncToInt32(static_cast<double>(t[kTableYRed][pixel[2]]) +
                                             static_cast<double>(t[kTableYGreen][pixel[1]]) +
                                             static_cast<double>(t[kTableYBlue][pixel[0]])));
}

// A 24-bit image locked and checked against its block; false with status 7 when it is none.
bool Usable24(const LockedBlock &lock) {
    if (lock.size() < kHeaderBytes || DibBitCount(lock.bytes()) != 24) {
        SetErrorStatus(TZ3_BAD_IMAGE);
        return false;
    }
    return CheckDibBlock(lock.bytes(), lock.size()) != 0;
}

DibHandle CheckSecretImage(DibHandle plain, DibHandle marked, int32_t threshold, int32_t noDialog) {
    if (plain == nullptr || marked == nullptr) {
        SetErrorStatus(TZ3_BAD_IMAGE);
        return nullptr;
    }
    const LockedBlock plainLock(plain);
    if (!plainLock) {
        SetErrorStatus(TZ3_NO_MEMORY);
        return nullptr;
    }
    const LockedBlock markedLock(marked);
    if (!markedLock) {
        SetErrorStatus(TZ3_NO_MEMORY);
        return nullptr;
    }
    if (!Usable24(plainLock) || !Usable24(markedLock)) return nullptr;
    const uint8_t *p = plainLock.bytes();
    const uint8_t *m = markedLock.bytes();
    const int32_t width = DibWidth(p);
    const int32_t height = DibHeight(p);
    // Images without rows or columns have no mask of their size.
    if (width != DibWidth(m) || height != DibHeight(m) || width < 1 || height < 1) {
        SetErrorStatus(TZ3_BAD_IMAGE);
        return nullptr;
    }
    const int32_t maskStride = DibRowBytes(1, width);
    if (static_cast<uint64_t>(maskStride) * static_cast<uint64_t>(height) + kMaskHeadBytes > kMaxBlockBytes) {
        SetErrorStatus(TZ3_NO_MEMORY);
        return nullptr;
    }
    // A blank mask of the images' size, head and table as every region mask has them.
    DibHandle made = MakeRegionMask(width, height, 0, nullptr, 0, 0, 0, 0, 0, 1);
    if (made == nullptr) return nullptr;
    OwnedBlock result(made);
    if (!result) {
        SetErrorStatus(TZ3_NO_MEMORY);
        return nullptr;
    }
    YccTables tables;
    if (!BuildYccTables(tables)) return nullptr;
    const auto stride = static_cast<size_t>(DibRowBytes(24, width));
    const uint8_t *plainBits = DibBits(p);
    const uint8_t *markedBits = DibBits(m);
    uint8_t *maskBits = result.bytes() + kMaskHeadBytes;
    for (int32_t y = 0; y < height; ++y) {
        const uint8_t *pRow = plainBits + stride * static_cast<size_t>(y);
        const uint8_t *mRow = markedBits + stride * static_cast<size_t>(y);
        uint8_t *maskRow = maskBits + static_cast<size_t>(maskStride) * static_cast<size_t>(y);
        for (int32_t x = 0; x < width; ++x) {
            const int32_t rise = LumaOf(tables.t, mRow + 3 * static_cast<size_t>(x)) -
                                 LumaOf(tables.t, pRow + 3 * static_cast<size_t>(x));
            if (rise >= threshold) maskRow[x >> 3] = static_cast<uint8_t>(maskRow[x >> 3] | (0x80u >> (x & 7)));
        }
        if (PercentProgress(y, height - 1, 0, 100, noDialog) == 0) {
            SetErrorStatus(TZ3_CANCELLED);
            return nullptr;
        }
    }
    return result.Release();
}

}  // namespace
}  // namespace tz3

extern "C" TZ3_API DibHandle TZ3CheckSecretImage(DibHandle plain, DibHandle marked, int32_t threshold,
                                                 int32_t noDialog, intptr_t dialog1, intptr_t dialog2,
                                                 intptr_t dialog3) {
    using namespace tz3;
    return RunExport<DibHandle>(noDialog, dialog1, dialog2, dialog3,
                                [&] { return CheckSecretImage(plain, marked, threshold, noDialog); });
}
