// The conversions that need no new palette: palette images to a wider format or to gray, and the
// direct formats among each other both ways. Each walks the source rows once and keeps no error.
//
//   from      to          pixel
//   1/4/8     4, 8        the index unchanged; the table is copied as long as it is (biClrUsed
//                         says how long), nothing is filled up to the new depth's length
//   1/4/8     16          the entry's channels x 31 / 255, truncated, as 5-5-5
//   1/4/8     24, 32      the entry's blue, green, red; a 32-bit fourth byte stays 0
//   1/4/8     gray        trunc(t0[r] + t1[g] + t2[b]) of the entry, in a 256-level ramp
//   16        24, 32      the full expansion (5 bits 31 -> 255, 1 -> 8), 5-5-5 or 5-6-5
//   24        32          the three bytes; the fourth stays 0
//   32        24, 16      the first three bytes; the fourth is dropped
//   24        16          5-5-5 by truncation: a widening from 16 bits and back loses a level
//
// Progress is row y of height, so the last report stops short of 100.
#include <cstring>

#include "convert/convert_state.h"
#include "frame/arith.h"
#include "frame/colour_tables.h"
#include "frame/owners.h"

namespace tz3 {
namespace {

// Direct pixels to direct pixels; the result is 5-5-5 at 16 bits.
template <class From, int32_t ToBits>
bool DirectRowsWorker(ConvertState &s) {
    constexpr int32_t kToBytes = ToBits / 8;
    for (int32_t y = 0; y < s.height; ++y) {
        const uint8_t *p = s.sourcePixels + static_cast<size_t>(s.sourceStride) * static_cast<size_t>(y);
        uint8_t *q = s.targetPixels + static_cast<size_t>(s.targetStride) * static_cast<size_t>(y);
        for (int32_t x = 0; x < s.width; ++x, p += From::kBytes, q += kToBytes) {
            const Rgb c = From::Fetch(p);
            if constexpr (ToBits == 16) {
                WriteU16(q, Pack555(c.r, c.g, c.b));
            } else {
                q[0] = c.b;
                q[1] = c.g;
                q[2] = c.r;
            }
        }
        if (!ReportConvertStep(s, y, s.height, 0, 100)) return false;
    }
    return true;
}

template <int32_t ToBits>
bool DirectRowsFrom(ConvertState &s) {
    switch (s.sourceBits) {
        case 16:
            return s.redMask == kRed555Mask ? DirectRowsWorker<Pix16x555, ToBits>(s)
                                            : DirectRowsWorker<Pix16x565, ToBits>(s);
        case 24: return DirectRowsWorker<Pix24, ToBits>(s);
        case 32: return DirectRowsWorker<Pix32, ToBits>(s);
        default: SetErrorStatus(TZ3_BAD_DEPTH); return false;
    }
}

bool DirectRows(ConvertState &s) {
    switch (s.targetBits) {
        case 16: return DirectRowsFrom<16>(s);
        case 24: return DirectRowsFrom<24>(s);
        case 32: return DirectRowsFrom<32>(s);
        default: SetErrorStatus(TZ3_BAD_DEPTH); return false;
    }
}

// What each index becomes in the wider formats, worked out once for the 256 indices a pixel can
// hold; an index past a short table reads the bytes that follow it.
struct IndexColours {
    Rgb entry[256];
    uint16_t word[256];
    uint8_t gray[256];
};

template <int32_t FromBits, uint16_t Target>
bool PaletteRowsWorker(ConvertState &s, const IndexColours &colours, uint8_t *indices) {
    for (int32_t y = 0; y < s.height; ++y) {
        const uint8_t *row = s.sourcePixels + static_cast<size_t>(s.sourceStride) * static_cast<size_t>(y);
        for (int32_t x = 0; x < s.width; ++x) {
            if constexpr (FromBits == 1) {
                indices[x] = static_cast<uint8_t>((row[x / 8] >> (7 - x % 8)) & 1);
            } else if constexpr (FromBits == 4) {
                indices[x] = static_cast<uint8_t>(x % 2 == 0 ? row[x / 2] >> 4 : row[x / 2] & 15);
            } else {
                indices[x] = row[x];
            }
        }
        uint8_t *q = s.targetPixels + static_cast<size_t>(s.targetStride) * static_cast<size_t>(y);
        for (int32_t x = 0; x < s.width; ++x) {
            const uint8_t index = indices[x];
            if constexpr (Target == 32 || Target == 24) {
                uint8_t *p = q + static_cast<size_t>(x) * (Target / 8);
                p[0] = colours.entry[index].b;
                p[1] = colours.entry[index].g;
                p[2] = colours.entry[index].r;
            } else if constexpr (Target == 16) {
                WriteU16(q + 2 * static_cast<size_t>(x), colours.word[index]);
            } else if constexpr (Target == kGrayTarget) {
                q[x] = colours.gray[index];
            } else if constexpr (Target == 8) {
                q[x] = index;
            } else {
                q[x / 2] |= static_cast<uint8_t>(x % 2 == 0 ? index << 4 : index);
            }
        }
        if (!ReportConvertStep(s, y, s.height, 0, 100)) return false;
    }
    return true;
}

template <int32_t FromBits>
bool PaletteRowsFrom(ConvertState &s, const IndexColours &colours, uint8_t *indices) {
    switch (s.targetBits) {
        case 4: return PaletteRowsWorker<FromBits, 4>(s, colours, indices);
        case 8: return PaletteRowsWorker<FromBits, 8>(s, colours, indices);
        case 16: return PaletteRowsWorker<FromBits, 16>(s, colours, indices);
        case 24: return PaletteRowsWorker<FromBits, 24>(s, colours, indices);
        case 32: return PaletteRowsWorker<FromBits, 32>(s, colours, indices);
        case kGrayTarget: return PaletteRowsWorker<FromBits, kGrayTarget>(s, colours, indices);
        default: SetErrorStatus(TZ3_BAD_DEPTH); return false;
    }
}

bool PaletteRows(ConvertState &s) {
    // A row of indices. Its failure sets no status of its own, so the call ends with result 0 and
    // the status 0 it set on entry: a caller cannot tell this from success by the status alone,
    // and that is this library's behaviour, kept as it is.
    OwnedBlock indices(Tz3GlobalAlloc(TZ3_GMEM_MOVEABLE | TZ3_GMEM_ZEROINIT, static_cast<size_t>(s.width)));
    if (!indices) return false;
    LumaTables luma;
    if (!BuildLumaTables(luma)) return false;
    IndexColours colours;
    for (uint32_t i = 0; i < 256; ++i) {
        const Rgb c = SourceEntry(s, i);
        colours.entry[i] = c;
        colours.word[i] = Pack555(c.r, c.g, c.b);
        colours.gray[i] = static_cast<uint8_t>(TruncToInt32(static_cast<double>(luma.t[0][c.r]) +
                                                            static_cast<double>(luma.t[1][c.g]) +
                                                            static_cast<double>(luma.t[2][c.b])));
    }
    switch (s.sourceBits) {
        case 1: return PaletteRowsFrom<1>(s, colours, indices.bytes());
        case 4: return PaletteRowsFrom<4>(s, colours, indices.bytes());
        case 8: return PaletteRowsFrom<8>(s, colours, indices.bytes());
        default: SetErrorStatus(TZ3_BAD_DEPTH); return false;
    }
}

}  // namespace

bool ReduceDirect(ConvertState &s) {
    WriteTargetHeader(s, 0);
    return DirectRows(s);
}

DibHandle ConvertWidening(ConvertState &s) {
    const uint16_t t = s.targetBits;
    if (s.sourceBits >= 16 || t > 15) {
        s.paletteSize = 0;
    } else {
        s.paletteSize = static_cast<int32_t>(DibNumColors(s.source));
    }
    s.targetStride = DibRowBytes(TargetBitCount(t), s.width);
    const uint64_t table = t == kGrayTarget ? 1024 : 4ull * static_cast<uint32_t>(s.paletteSize);
    const uint64_t head = ReadU32(s.source) + table;
    OwnedBlock block = AllocLocked(static_cast<uint64_t>(s.targetStride) * static_cast<uint64_t>(s.height) + head);
    if (!block) return nullptr;
    s.target = block.bytes();
    s.targetPalette = s.target + kHeaderBytes;
    s.targetPixels = s.target + head;

    const bool direct = s.sourceBits >= 16 && t >= 16 && t != kGrayTarget;
    if (!(direct ? DirectRows(s) : PaletteRows(s))) return nullptr;

    WriteTargetHeader(s, t == kGrayTarget ? 0u : static_cast<uint32_t>(s.paletteSize));
    if (t == kGrayTarget) {
        for (int32_t i = 0; i < 256; ++i) {
            uint8_t *entry = s.targetPalette + 4 * i;
            entry[0] = entry[1] = entry[2] = static_cast<uint8_t>(i);
            entry[3] = 0;
        }
    } else if (t == 4 || t == 8) {
        for (int32_t i = 0; i < s.paletteSize; ++i) {
            uint8_t *entry = s.targetPalette + 4 * i;
            const uint64_t from = kHeaderBytes + 4ull * static_cast<uint32_t>(i);
            entry[0] = SourceByte(s, from);
            entry[1] = SourceByte(s, from + 1);
            entry[2] = SourceByte(s, from + 2);
            entry[3] = 0;
        }
    }
    return block.Release();
}

}  // namespace tz3
