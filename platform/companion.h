// The companion services: the status of the last call, the progress dialog and the bitmap header
// services that every operation uses. Status and handlers belong to the calling thread.
#pragma once

#include <cstdint>

namespace tz3 {

void SetErrorStatus(int32_t code);
int32_t ErrorStatus();

// Non-zero when the progress dialog is open (the application's handler decides), 0 on failure.
int32_t PercentDlgOpen(intptr_t a, intptr_t b, intptr_t c);
void PercentDlgClose();
// current/total of a step maps onto percentLow..percentHigh. Non-zero to go on, 0 when cancelled.
// total may be 0 or -1; nothing here divides by it.
int32_t PercentProgress(int32_t current, int32_t total, int32_t percentLow, int32_t percentHigh,
                        int32_t noDialog);

// Entries of the colour table: biClrUsed when non-zero, else 2, 16 or 256 by depth, 0 for direct
// colour. The table is counted without the channel masks of a bit-field image.
uint32_t DibNumColors(const uint8_t *dib);
uint32_t GetDibPalSize(const uint8_t *dib);
// 1 for 5-5-5 words (biCompression 0), 3 for 5-5-5 bit fields, 2 for 5-6-5 bit fields, -1 otherwise.
int32_t GetBmp16Info(const uint8_t *dib);
// 0 for plain 32-bit pixels, 1 for bit fields in blue, green, red order, -1 otherwise.
int32_t GetBmp32Info(const uint8_t *dib);
int32_t CheckJapan();

}  // namespace tz3
