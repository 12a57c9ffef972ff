// The arithmetic rules that results depend on, each a named helper.
#pragma once

#include <cstdint>

namespace tz3 {

// Floating point to integer truncates toward zero. Values beyond the 32-bit range saturate (a table
// far outside 0..255 is cut to 0 or 255 by the clamp that follows, never wrapped); NaN gives 0.
inline int32_t TruncToInt32(double v) {
    if (!(v == v)) return 0;
    if (v >= 2147483647.0) return INT32_MAX;
    if (v <= -2147483648.0) return INT32_MIN;
    return static_cast<int32_t>(v);
}

// The explicit rounding: 0.5 added in double, then truncated.
inline int32_t RoundHalfUp(double v) { return TruncToInt32(v + 0.5); }

// trunc(v) clamped to 0..255, for any v. Truncation is monotonic, so cutting v to -1..256 first
// gives the same byte and keeps the conversion in range; NaN gives 0.
inline uint8_t TruncClamp255(double v) {
    const double cut = !(v >= -1.0) ? -1.0 : v > 256.0 ? 256.0 : v;
    const auto t = static_cast<int32_t>(cut);
    return static_cast<uint8_t>(t < 0 ? 0 : t > 255 ? 255 : t);
}

inline int32_t ClampInt(int32_t v, int32_t lo, int32_t hi) { return v < lo ? lo : v > hi ? hi : v; }
inline uint8_t Clamp255(int32_t v) { return static_cast<uint8_t>(ClampInt(v, 0, 255)); }

}  // namespace tz3
