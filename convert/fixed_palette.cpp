// The fixed tables of a reduction: the 216-colour cube at 8 bits, the 16 colours at 4 bits, black
// and white at 1 bit, and the gray ramp of the gray code. No look at the image is needed before the
// rows are mapped, so the row conversion reports from 0.
//
//   target  table                              biClrUsed  mapping
//   8       6 x 6 x 6 cube, steps of 51        216        three level look-ups
//   4       the 16 colours below               0          nearest of 16
//   1       black, white                       0          mean level against the threshold
//   gray    256 levels                         0          luma
#include <cstring>

#include "convert/convert_state.h"
#include "frame/arith.h"
#include "frame/colour_tables.h"
#include "frame/owners.h"

namespace tz3 {
namespace {

void SetEntry(uint8_t *table, int32_t i, uint8_t blue, uint8_t green, uint8_t red) {
    uint8_t *entry = table + 4 * i;
    entry[0] = blue;
    entry[1] = green;
    entry[2] = red;
    entry[3] = 0;
}

}  // namespace

bool ConvertWithFixedPalette(ConvertState &s) {
    OwnedBlock levels;
    if (s.targetBits == 8) {
        // The nearest of six levels, trunc(i x 5.0 / 255.0 + 0.5) in double: the level changes at
        // 26, 77, 128, 179 and 230.
        levels = AllocLocked(static_cast<uint64_t>(s.paletteSize));
        if (!levels) return false;
        s.levelTable = levels.bytes();
        for (int32_t i = 0; i < s.paletteSize; ++i) {
            s.levelTable[i] = static_cast<uint8_t>(TruncToInt32(static_cast<double>(i) * 5.0 / 255.0 + 0.5));
        }
    }
    WriteTargetHeader(s, s.targetBits == 8 ? 216u : 0u);
    uint8_t *table = s.targetPalette;
    switch (s.targetBits) {
        case 8:
            WriteFixedPalette216(table);
            break;
        case 4:
            WriteFixedPalette16(table);
            break;
        case 1:
            SetEntry(table, 0, 0, 0, 0);
            SetEntry(table, 1, 255, 255, 255);
            break;
        default:
            for (int32_t i = 0; i < 256; ++i) {
                const auto v = static_cast<uint8_t>(i);
                SetEntry(table, i, v, v, v);
            }
            break;
    }
    const bool done = ConvertRows(s, s.width, s.height, 0);
    s.levelTable = nullptr;
    return done;
}

}  // namespace tz3
