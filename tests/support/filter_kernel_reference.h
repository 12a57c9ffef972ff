// Literal per-pixel transcriptions of the custom filter, sharpen, anti-alias and emboss, written
// from their rules alone: plain loops over every selected pixel, no shared fast code. Each returns
// the whole expected result block (header with biSizeImage rewritten, table, rows).
#pragma once

#include <cstdint>
#include <vector>

#include "support/filter_harness.h"

namespace tz3test {

// The result's header as every filter writes it: the source's, with biSizeImage = stride x height.
std::vector<uint8_t> ResultTemplate(const std::vector<uint8_t> &src);

// kernel: 81 weights, row r reaching y + 4 - r, column c reaching x + c - 4. divisor and bias as
// the low bytes the worker gets; on[3] = blue, green, red.
std::vector<uint8_t> RefCustomFilter(const std::vector<uint8_t> &src, const Selection &selected, const int32_t *kernel,
                                     int divisor, int bias, const bool on[3]);
std::vector<uint8_t> RefSharp(const std::vector<uint8_t> &src, const Selection &selected, int strength);
std::vector<uint8_t> RefAntiAlias(const std::vector<uint8_t> &src, const Selection &selected);
std::vector<uint8_t> RefEmboss(const std::vector<uint8_t> &src, const Selection &selected, int direction, int depth,
                               int bias);

// The luma a filter computes for a colour: the three float products summed in double, truncated.
int RefLuma(int r, int g, int b);

}  // namespace tz3test
