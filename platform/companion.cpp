// Status, progress and dialog of the calling thread, and the bitmap header services.
//
// A bit-field image keeps its three channel masks as the first three entries of its colour table
// (biClrUsed 3): the rows then begin where every operation expects them, at 40 + GetDibPalSize, and
// GetBmp16Info finds the masks at offset 40.
#include "platform/companion.h"

#include <clocale>
#include <cstring>

#include "frame/dib.h"
#include "tz3effect.h"

namespace tz3 {
namespace {

using ProgressFn = int32_t (*)(void *, int32_t, int32_t, int32_t, int32_t, int32_t);
using OpenFn = int32_t (*)(void *, intptr_t, intptr_t, intptr_t);
using CloseFn = void (*)(void *);

struct ThreadCompanion {
    int32_t status = 0;
    ProgressFn progress = nullptr;
    void *progressUser = nullptr;
    OpenFn open = nullptr;
    CloseFn close = nullptr;
    void *dialogUser = nullptr;
};

thread_local ThreadCompanion t_companion;

bool MasksAt40(const uint8_t *dib, uint32_t r, uint32_t g, uint32_t b) {
    return DibNumColors(dib) >= 3 && ReadU32(dib + 40) == r && ReadU32(dib + 44) == g && ReadU32(dib + 48) == b;
}

}  // namespace

void SetErrorStatus(int32_t code) { t_companion.status = code; }
int32_t ErrorStatus() { return t_companion.status; }

int32_t PercentDlgOpen(intptr_t a, intptr_t b, intptr_t c) {
    const ThreadCompanion &t = t_companion;
    return t.open == nullptr ? 1 : t.open(t.dialogUser, a, b, c);
}

void PercentDlgClose() {
    const ThreadCompanion &t = t_companion;
    if (t.close != nullptr) t.close(t.dialogUser);
}

int32_t PercentProgress(int32_t current, int32_t total, int32_t percentLow, int32_t percentHigh,
                        int32_t noDialog) {
    const ThreadCompanion &t = t_companion;
    if (t.progress == nullptr) return 1;
    return t.progress(t.progressUser, current, total, percentLow, percentHigh, noDialog);
}

uint32_t DibNumColors(const uint8_t *dib) {
    const uint32_t used = ReadU32(dib + kClrUsedOffset);
    if (used != 0) return used;
    switch (ReadU16(dib + kBitCountOffset)) {
        case 1: return 2;
        case 4: return 16;
        case 8: return 256;
        default: return 0;
    }
}

uint32_t GetDibPalSize(const uint8_t *dib) { return 4 * DibNumColors(dib); }

int32_t GetBmp16Info(const uint8_t *dib) {
    switch (ReadU32(dib + kCompressionOffset)) {
        case kBiRgb: return 1;
        case kBiBitfields:
            if (MasksAt40(dib, 0x7C00, 0x03E0, 0x001F)) return 3;
            if (MasksAt40(dib, 0xF800, 0x07E0, 0x001F)) return 2;
            return -1;
        default: return -1;
    }
}

int32_t GetBmp32Info(const uint8_t *dib) {
    switch (ReadU32(dib + kCompressionOffset)) {
        case kBiRgb: return 0;
        case kBiBitfields: return MasksAt40(dib, 0x00FF0000, 0x0000FF00, 0x000000FF) ? 1 : -1;
        default: return -1;
    }
}

int32_t CheckJapan() {
    const char *locale = std::setlocale(LC_CTYPE, nullptr);
    return locale != nullptr && std::strncmp(locale, "ja", 2) == 0 ? 1 : 0;
}

}  // namespace tz3

extern "C" {

TZ3_API int32_t Tz3GetErrorStatus(void) { return tz3::ErrorStatus(); }

TZ3_API void Tz3SetProgressHandler(int32_t (*fn)(void *user, int32_t current, int32_t total, int32_t percentLow,
                                                 int32_t percentHigh, int32_t noDialog),
                                   void *user) {
    tz3::t_companion.progress = fn;
    tz3::t_companion.progressUser = fn == nullptr ? nullptr : user;
}

TZ3_API void Tz3SetDialogHandlers(int32_t (*open)(void *user, intptr_t a, intptr_t b, intptr_t c),
                                  void (*close)(void *user), void *user) {
    tz3::t_companion.open = open;
    tz3::t_companion.close = close;
    tz3::t_companion.dialogUser = user;
}

}  // extern "C"
