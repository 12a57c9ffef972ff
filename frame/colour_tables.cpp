// The table builders, the gray level map and the nearest-colour search.
//
// Every builder asks for one zeroed block (flags 66) sized for its tables laid end to end, keeps it
// locked, and fills it with the entry helpers of the header, so the fast path of a worker and a
// plain transcription of the formula agree to the bit.
#include "frame/colour_tables.h"

#include <algorithm>
#include <utility>

#include "frame/dib.h"
#include "platform/companion.h"

namespace tz3 {

namespace {

constexpr uint64_t kTableBytes = static_cast<uint64_t>(kTableEntries) * sizeof(float);

// A record's owner takes the new block; one it held before is unlocked and freed.
void TakeBlock(OwnedBlock &into, OwnedBlock &&from) { into = std::move(from); }

float *Table(const OwnedBlock &block, int32_t n) {
    return reinterpret_cast<float *>(block.bytes()) + static_cast<ptrdiff_t>(n) * kTableEntries;
}

// Fills the first `count` YCC tables of a block and hands them to a record's pointers.
void FillYccTables(const OwnedBlock &block, const float **t, int32_t count) {
    for (int32_t n = 0; n < count; ++n) {
        float *table = Table(block, n);
        for (int32_t i = 0; i < kTableEntries; ++i) table[i] = YccEntry(i, kYccWeights[n]);
        t[n] = table;
    }
}

}  // namespace

bool BuildYccTables(YccTables &out) {
    OwnedBlock block = AllocLocked(kYccTableCount * kTableBytes);
    if (!block) return false;
    FillYccTables(block, out.t, kYccTableCount);
    TakeBlock(out.block, std::move(block));
    return true;
}

bool BuildLumaTables(LumaTables &out) {
    OwnedBlock block = AllocLocked(kLumaTableCount * kTableBytes);
    if (!block) return false;
    FillYccTables(block, out.t, kLumaTableCount);
    TakeBlock(out.block, std::move(block));
    return true;
}

bool BuildGammaTables(GammaTables &out, double k0, double k1, double k2) {
    OwnedBlock block = AllocLocked(kGammaTableCount * kTableBytes);
    if (!block) return false;
    const double strengths[kGammaTableCount] = {k0, k1, k2};
    for (int32_t n = 0; n < kGammaTableCount; ++n) {
        float *table = Table(block, n);
        for (int32_t i = 0; i < kTableEntries; ++i) table[i] = GammaEntry(i, strengths[n]);
        out.t[n] = table;
    }
    TakeBlock(out.block, std::move(block));
    return true;
}

uint8_t NearestPaletteIndex(uint8_t red, uint8_t green, uint8_t blue, const uint8_t *dib) {
    // Above the largest distance, so the first entry always wins against it.
    constexpr int32_t kNoEntryYet = 200000;
    // biClrUsed, else the full table of a palette depth; 0 for direct colour, which returns 0.
    const uint32_t n = DibNumColors(dib);
    const uint8_t *entry = dib + kHeaderBytes;  // rgbBlue, rgbGreen, rgbRed, rgbReserved
    int32_t best = kNoEntryYet;
    uint32_t index = 0;
    // No early exit on an exact hit: only a strictly nearer entry replaces the one taken, so the
    // lowest of equally near indices wins either way.
    for (uint32_t i = 0; i < n; ++i, entry += 4) {
        const int32_t d = PaletteDistance(entry[2], entry[1], entry[0], red, green, blue);
        if (d < best) {
            best = d;
            index = i;
        }
    }
    return static_cast<uint8_t>(index);
}

bool BuildGrayLevelMap(const uint8_t *dib, GrayLevelMap &out) {
    OwnedBlock block = AllocLocked(kGrayMapBytes);
    if (!block) return false;
    uint8_t *toLevel = block.bytes();
    uint8_t *toIndex = toLevel + kTableEntries;
    // A gray palette holds 256 entries; a longer claimed table must not index past the map.
    const uint32_t n = std::min(DibNumColors(dib), static_cast<uint32_t>(kTableEntries));
    const uint8_t *entry = dib + kHeaderBytes;
    for (uint32_t i = 0; i < n; ++i, entry += 4) {
        const uint8_t level = entry[0];  // rgbBlue: a gray entry has equal channels
        toLevel[i] = level;
        toIndex[level] = static_cast<uint8_t>(i);
    }
    out.toLevel = toLevel;
    out.toIndex = toIndex;
    TakeBlock(out.block, std::move(block));
    return true;
}

namespace {

// The 16 colours as blue, green, red.
constexpr uint8_t kFixedColours16[16][3] = {
    {0, 0, 0},       {0, 0, 127},     {0, 127, 0},     {0, 127, 127}, {127, 0, 0},     {127, 0, 127},
    {127, 127, 0},   {127, 127, 127}, {192, 192, 192}, {0, 0, 255},   {0, 255, 0},     {0, 255, 255},
    {255, 0, 0},     {255, 0, 255},   {255, 255, 0},   {255, 255, 255},
};

void WriteFixedEntry(uint8_t *table, int32_t i, uint8_t blue, uint8_t green, uint8_t red) {
    uint8_t *entry = table + 4 * i;
    entry[0] = blue;
    entry[1] = green;
    entry[2] = red;
    entry[3] = 0;
}

}  // namespace

void WriteFixedPalette16(uint8_t *table) {
    for (int32_t i = 0; i < 16; ++i)
        WriteFixedEntry(table, i, kFixedColours16[i][0], kFixedColours16[i][1], kFixedColours16[i][2]);
}

void WriteFixedPalette216(uint8_t *table) {
    for (int32_t b = 0; b < 6; ++b)
        for (int32_t g = 0; g < 6; ++g)
            for (int32_t r = 0; r < 6; ++r)
                WriteFixedEntry(table, 36 * b + 6 * g + r, static_cast<uint8_t>(51 * b), static_cast<uint8_t>(51 * g),
                                static_cast<uint8_t>(51 * r));
}

}  // namespace tz3
