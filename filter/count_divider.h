// Division of a window sum by its pixel count, truncated, as one multiplication.
//
// For 1 <= n < 2^11 let m = floor(2^32 / n) + 1, so that m = (2^32 + e) / n with 0 < e <= n. Then
// s x m / 2^32 = s / n + s x e / (n x 2^32). Writing s = q n + rest with rest <= n - 1, the excess
// over q is (rest + s x e / 2^32) / n, which stays below 1 while s x e < 2^32: for every s < 2^19
// the high word of s x m is exactly q = floor(s / n). A window of at most 41 x 41 = 1681 values of
// at most 255 sums to at most 428655 < 2^19.
#pragma once

#include <cstdint>

namespace tz3 {

constexpr uint32_t kCountDividerMaxCount = (1u << 11) - 1;
constexpr uint32_t kCountDividerMaxSum = (1u << 19) - 1;

struct CountDivider {
    uint64_t magic = 0;
    CountDivider() = default;
    explicit CountDivider(uint32_t count) : magic((uint64_t{1} << 32) / count + 1) {}
    // sum / count, truncated, for sum <= kCountDividerMaxSum and count <= kCountDividerMaxCount.
    uint32_t Divide(uint32_t sum) const { return static_cast<uint32_t>((sum * magic) >> 32); }
};

}  // namespace tz3
