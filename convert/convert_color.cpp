// TZ3ConvertColor: an image turned into a new image of another pixel format, over the whole image.
//
// The call decides once between two paths: widening (target at least as wide as the source, and
// every palette source going to gray) and reducing. A reduction between direct formats just drops
// bits; a reduction to 1, 4 or 8 bits or to gray first builds a table by one of three ways and then
// maps every pixel through the row conversion.
//
//   source   1          4          8          gray (80)  16         24         32
//   1        refused    widen      widen      widen      widen      widen      widen
//   4        threshold  refused    widen      widen      widen      widen      widen
//   8        threshold  palette    refused    widen      widen      widen      widen
//   16       threshold  palette    palette    gray       refused    direct     direct
//   24       threshold  palette    palette    gray       direct     refused    direct
//   32       threshold  palette    palette    gray       direct     direct     refused
//
// The result block is made here, not cloned: all its bytes start at 0, so the row conversion only
// ors indices in, and the header is written field by field. The source's biSize (not 40) places
// the pixel rows of both source and result, while the result's header always says 40.
#include <cstring>

#include "convert/convert_state.h"
#include "frame/call.h"

namespace tz3 {

void WriteTargetHeader(const ConvertState &s, uint32_t clrUsed) {
    uint8_t *h = s.target;
    std::memset(h, 0, kHeaderBytes);
    WriteU32(h, kHeaderBytes);
    WriteU32(h + kWidthOffset, static_cast<uint32_t>(s.width));
    WriteU32(h + kHeightOffset, static_cast<uint32_t>(s.height));
    WriteU16(h + kPlanesOffset, 1);
    WriteU16(h + kBitCountOffset, TargetBitCount(s.targetBits));
    WriteU32(h + kSizeImageOffset, static_cast<uint32_t>(s.targetStride) * static_cast<uint32_t>(s.height));
    WriteU32(h + 24, static_cast<uint32_t>(s.xPelsPerMeter));
    WriteU32(h + 28, static_cast<uint32_t>(s.yPelsPerMeter));
    WriteU32(h + kClrUsedOffset, clrUsed);
}

bool ReportConvertStep(const ConvertState &s, int32_t current, int32_t total, int32_t low, int32_t high) {
    if (PercentProgress(current, total, low, high, s.noDialog) != 0) return true;
    SetErrorStatus(TZ3_CANCELLED);
    return false;
}

namespace {

bool KnownDepth(uint32_t bits) { return bits == 1 || bits == 4 || bits == 8 || bits == 16 || bits == 24 || bits == 32; }

// Palette entries the result of a reduction reserves; the 216-colour cube reserves only what it uses.
int32_t ReservedEntries(const ConvertState &s) {
    switch (s.targetBits) {
        case 8: return s.fixedPalette != 0 ? 216 : 256;
        case 4: return 16;
        case 1: return 2;
        case kGrayTarget: return 256;
        default: return 0;
    }
}

// The reducing path, on the image locked by the caller of this function.
DibHandle Reduce(ConvertState &s) {
    const int32_t entries = ReservedEntries(s);
    switch (s.targetBits) {
        case 8:
            s.paletteUsed = s.fixedPalette != 0 ? 216 : 256;
            s.paletteSize = 256;
            break;
        case 4: s.paletteUsed = s.paletteSize = 16; break;
        case 1:
            s.paletteUsed = s.paletteSize = 2;
            s.fixedPalette = 1;  // two levels have no palette to build
            break;
        case kGrayTarget:
            s.paletteUsed = s.paletteSize = 256;
            s.fixedPalette = 1;  // the gray ramp is fixed
            break;
        default: s.paletteUsed = s.paletteSize = 0; break;
    }
    s.targetStride = DibRowBytes(TargetBitCount(s.targetBits), s.width);
    const uint64_t head = ReadU32(s.source) + 4ull * static_cast<uint32_t>(entries);
    const uint64_t size = static_cast<uint64_t>(s.targetStride) * static_cast<uint64_t>(s.height) + head;
    OwnedBlock block = AllocLocked(size);
    if (!block) return nullptr;
    s.target = block.bytes();
    s.targetPalette = s.target + kHeaderBytes;
    s.targetPixels = s.target + head;
    s.levelTable = nullptr;

    bool done;
    if (s.sourceBits >= 16 && s.targetBits >= 16 && s.targetBits != kGrayTarget) {
        done = ReduceDirect(s);
    } else if (s.fixedPalette != 0) {
        done = ConvertWithFixedPalette(s);
    } else if (s.sourceBits >= 16) {
        done = ConvertWithMedianCut(s);
    } else {
        done = ConvertWithPopularity(s);
    }
    if (!done) return nullptr;
    return block.Release();
}

// Locks the source again for a path and checks it: its block holds the header, the table and the
// rows at biSize (a biSize below 40 would put the rows inside the header), its format is one the
// library reads, and it has at least one row and one column.
bool OpenSource(DibHandle image, OpenedDib &opened, ConvertState &s) {
    opened.lock = LockedBlock(image);
    if (!opened.lock) {
        SetErrorStatus(TZ3_NO_MEMORY);
        return false;
    }
    const uint8_t *dib = opened.lock.bytes();
    const size_t size = opened.lock.size();
    if (!CheckDibBlock(dib, size)) return false;
    const uint32_t biSize = ReadU32(dib);
    const int32_t width = DibWidth(dib);
    const int32_t height = DibHeight(dib);
    if (biSize < kHeaderBytes ||
        (width > 0 && height > 0 &&
         biSize + 4ull * DibNumColors(dib) + static_cast<uint64_t>(DibRowBytes(dib)) * static_cast<uint64_t>(height) >
             size)) {
        SetErrorStatus(TZ3_BAD_IMAGE);
        return false;
    }
    uint32_t red = s.redMask, green = s.greenMask, blue = s.blueMask;
    if (!CheckDibFormat(dib, kFormatAll, &red, &green, &blue)) return false;
    // Like every export whose result takes the source's size, an empty image is a bad parameter.
    if (width < 1 || height < 1) {
        SetErrorStatus(TZ3_BAD_PARAMETER);
        return false;
    }
    s.redMask = static_cast<uint16_t>(red);
    s.greenMask = static_cast<uint16_t>(green);
    s.blueMask = static_cast<uint16_t>(blue);
    s.source = dib;
    s.sourceSize = size;
    s.width = width;
    s.height = height;
    s.xPelsPerMeter = ReadS32(dib + 24);
    s.yPelsPerMeter = ReadS32(dib + 28);
    s.sourceStride = DibRowBytes(dib);
    s.sourcePixels = dib + biSize + GetDibPalSize(dib);
    opened.dib = dib;
    return true;
}

DibHandle ConvertColor(DibHandle image, int32_t target, int32_t fixedPalette, int32_t dither, int32_t threshold,
                       int32_t noDialog) {
    // A null image sets no status: the caller sees the status of the call before.
    if (image == nullptr) return nullptr;
    SetErrorStatus(TZ3_OK);
    ConvertState s;
    {
        LockedBlock lock(image);
        if (!lock) {
            SetErrorStatus(TZ3_NO_MEMORY);
            return nullptr;
        }
        // A block too short for the header has no depth to read.
        if (lock.size() < kHeaderBytes) {
            SetErrorStatus(TZ3_BAD_IMAGE);
            return nullptr;
        }
        s.sourceBits = DibBitCount(lock.bytes());
    }
    s.targetBits = static_cast<uint16_t>(target);
    s.fixedPalette = fixedPalette;
    s.dither = dither;
    s.threshold = static_cast<uint8_t>(threshold);
    s.noDialog = noDialog;

    const uint16_t t = s.targetBits;
    const uint16_t wide = TargetBitCount(t);
    const bool targetKnown = KnownDepth(t) || t == kGrayTarget;
    if (s.sourceBits == t || !KnownDepth(s.sourceBits) || !targetKnown) {
        SetErrorStatus(TZ3_BAD_PARAMETER);
        return nullptr;
    }
    const bool widening = s.sourceBits <= wide;
    if (widening && wide == 1) {
        SetErrorStatus(TZ3_BAD_PARAMETER);
        return nullptr;
    }

    OpenedDib opened;
    if (!OpenSource(image, opened, s)) return nullptr;
    if (widening) return ConvertWidening(s);
    return Reduce(s);
}

}  // namespace
}  // namespace tz3

extern "C" TZ3_API DibHandle TZ3ConvertColor(DibHandle image, int32_t target, int32_t fixedPalette, int32_t dither,
                                             int32_t threshold, int32_t noDialog, intptr_t dialog1, intptr_t dialog2,
                                             intptr_t dialog3) {
    return tz3::RunExport<DibHandle>(noDialog, dialog1, dialog2, dialog3, [&] {
        return tz3::ConvertColor(image, target, fixedPalette, dither, threshold, noDialog);
    });
}
