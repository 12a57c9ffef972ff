// Shared loops of the neighbourhood filter tests: the accepted formats (8-bit gray, 16-bit 5-5-5 and
// 5-6-5, 24, 32) and the refused ones, random images with gray palettes in any order, random
// regions of every kind with the pixels they select, the comparison with a literal reference over
// every format, width and region, progress per box row, cancellation at every progress call,
// failure of every allocation, and the checks on the caller's blocks.
#pragma once

#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "support/test_images.h"
#include "support/tone_harness.h"
#include "tz3effect.h"

namespace tz3test {

// bits 8 is an image with a full gray palette.
struct FilterFormat {
    int bits;
    bool is565;
};
extern const FilterFormat kFilterFormats[5];
std::string FormatName(FilterFormat f);

// An 8-bit image whose table holds the 256 gray levels in the order given (levels[i] in entry i).
std::vector<uint8_t> GrayDib(int width, int height, const std::vector<uint8_t> &levels);
// The 256 levels ascending, descending, or shuffled.
std::vector<uint8_t> GrayLevels(int order, std::mt19937 &rng);

// A random image of the format, bytes biased to 0 and 255; gray tables come in a random order, and
// biSizeImage is 0 or garbage, which the result must not keep.
std::vector<uint8_t> RandomFilterSource(std::mt19937 &rng, FilterFormat f, int width, int height);

// The value of channel c (0 blue, 1 green, 2 red; the level for gray) of pixel (x, y) of an image
// held as bytes, as a filter reads it: the gray level through the table's rgbBlue, 16-bit channels
// expanded by c x 255 / 31 (or / 63). Written from the image format alone.
int ChannelValue(const std::vector<uint8_t> &dib, int x, int y, int c);
// Stores channel values (blue, green, red; or the level) into pixel (x, y) as a filter stores them:
// the gray level through the index that holds it, 16-bit channels packed by v x 31 / 255 (or 63).
// A 32-bit fourth byte is left as it is.
void StoreChannels(std::vector<uint8_t> &dib, int x, int y, const int *values);
bool IsGray(const std::vector<uint8_t> &dib);
int ChannelCount(const std::vector<uint8_t> &dib);

// A region as the caller gives it, and the pixels it selects.
struct RegionRequest {
    int32_t kind = 1;
    std::vector<Tz3Point> points;
    Tz3Rect rect{0, 0, 0, 0};
    int32_t inside = 1;
    std::vector<uint8_t> mask;  // kind 0: the caller's mask
    std::string Describe() const;
};
// One pixel a byte, bottom-up rows of the image: 1 where the call computes the pixel.
struct Selection {
    int width = 0, height = 0;
    std::vector<uint8_t> on;
    bool operator()(int x, int y) const { return on[static_cast<size_t>(y) * width + x] != 0; }
};
// Kinds 0 to 3, with shapes that often lie partly outside the image and both sides of them.
RegionRequest RandomRegion(std::mt19937 &rng, int width, int height);
// An axis-aligned rectangle polygon around columns x0..x1 and top-down rows t..b, worked inside.
RegionRequest RectangleRegion(int x0, int t, int x1, int b);
// The box and mask the library's own region step makes for the request, as a selection.
Selection SelectionOf(const std::vector<uint8_t> &src, const RegionRequest &region);

// A filter export with its own parameters bound.
using FilterCall = std::function<DibHandle(const DibPair *pair, int32_t kind, const Tz3Point *points, int32_t count,
                                           const Tz3Rect *rect, int32_t inside, int32_t noDialog)>;
// Runs a call on an image handle with a region request, noDialog 1.
DibHandle RunOn(const FilterCall &call, DibHandle image, DibHandle mask, const RegionRequest &region,
                int32_t noDialog = 1);

struct FilterTrial {
    FilterCall call;
    std::function<std::vector<uint8_t>(const std::vector<uint8_t> &src, const Selection &selected)> reference;
    std::string settings;
};

// For each accepted format and each width 1..33 (random height 1..6): a random source and, for the
// whole image, a random caller's mask, a polygon and an ellipse (inside or outside), the result
// equals the reference on the selection, status 0, and the caller's blocks are kept.
void MatchReferenceOnRandomImagesAndRegions(std::mt19937 &rng, const std::function<FilterTrial(std::mt19937 &rng)> &draw,
                                            int regionsPerImage = 4);

// Progress after each row of the box: 4 calls for a 6x4 image, 2 (0 of 1, 1 of 1) for a box of two
// rows inside it, 1 (0 of 0) for a one-row box, with noDialog handed on.
void ExpectProgressOverEveryBoxRow(std::mt19937 &rng, const FilterCall &call);

// For each format, a random 5x4 image with a random mask: cancelled at each progress call, status
// 1, no result, no block left, the caller's blocks unchanged.
void CancelAtEveryProgressCallInEveryDepth(std::mt19937 &rng, const FilterCall &call);

// For each format and kinds 0 to 3 on a random 7x6 image: each allocation of a successful call
// fails in turn, status 3, no result, no block left, the caller's image unchanged. checkCount, when
// given, sees each count.
void FailEveryAllocationInEveryDepthAndKind(std::mt19937 &rng, const FilterCall &call,
                                            const std::function<void(FilterFormat f, int kind, long n)> &checkCount =
                                                nullptr);

// 1-bit, 4-bit, colour 8-bit, an 8-bit table with one gray level twice, a short gray table, 16-bit
// and 32-bit images with unusable channel masks: status 7, no block left, the image unlocked.
void ExpectRefusedFormats(std::mt19937 &rng, const FilterCall &call);

// A null pair or image: 7. A short block: 7. Kind 4 (and 260) on gray and 24-bit: 5; kind 257
// acts as 1. Kind 0 without a mask or with one of the wrong size: 7. A failed dialog: status 2 and
// the op does not run; with the dialog the open and close come once each.
void ExpectFrameStatuses(std::mt19937 &rng, const FilterCall &call);

}  // namespace tz3test
