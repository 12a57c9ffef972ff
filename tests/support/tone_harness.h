// Shared loops of the tone tests: the formats, random sources, small images, the comparison with a
// reference over every format and width, the progress checks, cancellation at every progress call
// and failure of every allocation, and the checks that the caller's blocks are left as they were.
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "support/test_images.h"
#include "tz3effect.h"

namespace tz3test {

struct Format {
    int bits;
    bool is565;
};
extern const Format kFormats[7];

// A random image of the format; palette images get a short table half of the time, and biSizeImage
// is 0 or garbage, which the result must not keep.
std::vector<uint8_t> RandomSource(std::mt19937 &rng, Format f, int width, int height);

// One-pixel images.
std::vector<uint8_t> Single24(uint8_t r, uint8_t g, uint8_t b);
std::vector<uint8_t> Single16(uint16_t word);

// An image-size mask with the bits of columns x0..x1 and bottom-up rows y0..y1 set.
std::vector<uint8_t> RectMask(int width, int height, int x0, int y0, int x1, int y1, bool inside);

// A 24-bit image of one row holding the 256 gray levels.
std::vector<uint8_t> GrayRamp24();

// The values joined by spaces after a label, for failure messages: ", strengths 1 2 3".
template <class... Values>
std::string Describe(const char *label, const Values &...values) {
    std::ostringstream s;
    s << label;
    const char *sep = "";
    ((s << sep << values, sep = " "), ...);
    return s.str();
}

// The caller's image still holds `src` and is unlocked; so is the mask, when there is one.
void ExpectCallerBlocksUnchanged(DibHandle image, const std::vector<uint8_t> &src, DibHandle mask = nullptr);

// One operation on one random image: `run` gives the result for a kind and a mask (nullptr for
// none), `reference` the expected bytes, `settings` describes the settings for messages.
struct Trial {
    std::function<DibHandle(DibHandle image, DibHandle mask, int32_t kind)> run;
    std::function<std::vector<uint8_t>(const std::vector<uint8_t> &src, const std::vector<uint8_t> *mask)> reference;
    std::string settings;
};

// For each format and each width 1..33 (random height 1..5): a random source, a random mask, then
// `draw` picks the settings. The whole image (kind 1) and the masked one (kind 0; palette images
// ignore the mask) must equal the reference, with status 0, and the caller's blocks are kept.
void MatchReferenceWholeAndMaskedInEveryFormatAndWidth(
    std::mt19937 &rng, const std::function<Trial(std::mt19937 &rng)> &draw);

// The recorded calls count 0..steps-1 of steps-1 between 0 and 100 with the given noDialog.
void ExpectCountingProgress(const std::vector<ProgressCall> &calls, int32_t steps, int32_t noDialog,
                            const std::string &what = "");

// For each format, a 6x4 image (palette images with a two-entry table) run with noDialog 7 reports
// each row or each palette entry.
void ExpectProgressOverEveryRowAndPaletteEntry(std::mt19937 &rng,
                                               const std::function<DibHandle(DibHandle image, int32_t noDialog)> &run,
                                               const std::string &what = "");

// A 5x1 image of the depth run with noDialog 3 reports 0 of 0.
void ExpectOneRowReportsZeroOfZero(int bits, const std::function<DibHandle(DibHandle image, int32_t noDialog)> &run);

// `call` cancelled at each progress call 0..steps-1 gives no result, status 1, exactly at+1 progress
// calls, and leaves no block behind.
void ExpectCancelAtEveryProgressCall(long steps, const std::function<DibHandle()> &call, const std::string &what);

// For each format, a random 5x4 image and mask: `run` (with the mask, kind 0) cancelled at every
// progress call (each row, or each table entry). `after` checks the caller's blocks; by default
// they must be unchanged and unlocked.
using CallerCheck = std::function<void(DibHandle image, const std::vector<uint8_t> &src, DibHandle mask)>;
void CancelAtEveryProgressCallInEveryFormat(std::mt19937 &rng,
                                            const std::function<DibHandle(DibHandle image, DibHandle mask)> &run,
                                            const CallerCheck &after = nullptr);

// The number of allocations of a successful call, which must give a result.
void CountAllocations(const std::function<DibHandle()> &call, long *allocations);

// `call` with each of its allocations failing in turn gives no result, status 3, and leaves no
// block behind.
void ExpectFailureAtEveryAllocation(long allocations, const std::function<DibHandle()> &call, const std::string &what);

// For each format, a random 7x6 image run with kinds 1, 2 and 3 (a triangle and an ellipse as the
// region): its allocations are counted (`checkCount`, when given, looks at the count), then each fails in turn.
// `after` checks the caller's image; by default it must be unchanged and unlocked.
using RegionCall = std::function<DibHandle(const DibPair *pair, int32_t kind, const Tz3Point *polygon,
                                           int32_t points, const Tz3Rect *ellipse)>;
void FailEveryAllocationInEveryFormatAndKind(std::mt19937 &rng, const RegionCall &call,
                                             const std::function<void(Format f, int kind, long allocations)> &checkCount,
                                             const CallerCheck &after = nullptr);

// With a pair whose image is null, and with no pair at all: no result and status 7.
void ExpectNullImageRefused(const std::function<DibHandle(const DibPair *pair)> &call);

// An 8x8 image of each depth whose block is one byte shorter than its header claims: no result,
// status 7, and the caller's block left unlocked.
void ExpectShortBlockRefused(std::initializer_list<int> depths, const std::function<DibHandle(DibHandle image)> &run);

// A random 5x5 palette image of `paletteBits` run with kind 9 succeeds with status 0 and equals the
// reference, the region being ignored; a random 5x5 24-bit image run with kind 4 gives no result,
// status 5, no block left behind and the caller's block unlocked.
void ExpectPaletteIgnoresRegionWhilePixelsRefuseUnknownKind(
    std::mt19937 &rng, int paletteBits, const std::function<DibHandle(DibHandle image, int32_t kind)> &run,
    const std::function<std::vector<uint8_t>(const std::vector<uint8_t> &src)> &reference);

}  // namespace tz3test
