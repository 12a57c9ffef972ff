// Images, handlers and allocators for tests. Everything here goes through the public interface.
#pragma once

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "tz3effect.h"

namespace tz3test {

uint32_t RowBytes(int bitCount, int width);

// A packed bitmap as a byte vector: header, `colours` table entries, zeroed rows. biClrUsed is
// written as clrUsed.
std::vector<uint8_t> MakeDibBytes(int width, int height, int bitCount, uint32_t clrUsed = 0);
uint32_t TableEntries(const std::vector<uint8_t> &dib);
size_t PixelOffset(const std::vector<uint8_t> &dib);

// Copies bytes into a new block of exactly their size.
DibHandle ToBlock(const std::vector<uint8_t> &bytes);
std::vector<uint8_t> FromBlock(DibHandle h);

// Seeded random image of a depth, table and pixels random, bytes biased towards 0 and 255. 16-bit
// images are 5-5-5 (biCompression 0) unless is565, which stores the 5-6-5 bit fields.
std::vector<uint8_t> RandomDib(std::mt19937 &rng, int width, int height, int bitCount, bool is565 = false);

// A palette image whose table has `clrUsed` random entries (biClrUsed = clrUsed, 0 for the full
// table of the depth) and whose pixel bytes are random, so indices may point past a short table.
std::vector<uint8_t> RandomPaletteDib(std::mt19937 &rng, int width, int height, int bitCount, uint32_t clrUsed);

// Header fields and little-endian values of an image held as bytes.
int32_t ImageWidth(const std::vector<uint8_t> &dib);
int32_t ImageHeight(const std::vector<uint8_t> &dib);
uint16_t WordAt(const std::vector<uint8_t> &bytes, size_t at);
uint32_t Field32(const std::vector<uint8_t> &bytes, size_t at);
void SetField32(std::vector<uint8_t> &bytes, size_t at, uint32_t value);

// True when no lock of the block is held: one more lock and unlock leaves it unlocked.
bool IsUnlocked(DibHandle h);

// A 1-bit mask of the given size with random bits.
std::vector<uint8_t> RandomMask(std::mt19937 &rng, int width, int height);

// Bit of a 1-bit image at column x of bottom-up row y.
bool MaskBit(const std::vector<uint8_t> &mask, int x, int y);

// Frees a handle at the end of a scope.
struct HandleGuard {
    DibHandle h = nullptr;
    explicit HandleGuard(DibHandle handle = nullptr) : h(handle) {}
    HandleGuard(const HandleGuard &) = delete;
    HandleGuard &operator=(const HandleGuard &) = delete;
    ~HandleGuard() {
        if (h != nullptr) Tz3GlobalFree(h);
    }
};

// Records every progress call of this thread and can cancel at the n-th (0-based).
struct ProgressCall {
    int32_t current, total, low, high, noDialog;
};
class ProgressRecorder {
public:
    explicit ProgressRecorder(long cancelAt = -1);
    ~ProgressRecorder();
    std::vector<ProgressCall> calls;
    long cancelAt;
};

// Records dialog opens and closes of this thread; the open fails when told to.
class DialogRecorder {
public:
    explicit DialogRecorder(bool openFails = false);
    ~DialogRecorder();
    int opens = 0, closes = 0;
    bool openFails;
    intptr_t a = 0, b = 0, c = 0;
};

// Counts allocations and fails the n-th (0-based) one, for the life of the object.
class FailingAllocator {
public:
    explicit FailingAllocator(long failAt = -1);
    ~FailingAllocator();
    long count = 0;
    long failAt;
};

}  // namespace tz3test
