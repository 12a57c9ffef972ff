// The library's only doors to libm. Results depend on these to the last bit, so a platform whose
// libm rounds differently is found and fixed here, in one place.
#pragma once

#include <cfloat>
#include <cmath>

// Every float and double expression is evaluated in its own type: no x87 extended precision.
static_assert(FLT_EVAL_METHOD == 0, "float and double arithmetic must be evaluated in their own type");

namespace tz3 {

inline double Sqrt(double x) {
    return std::sqrt(x);
}
inline double Sin(double x) {
    return std::sin(x);
}
inline double Cos(double x) {
    return std::cos(x);
}
inline double Atan2(double y, double x) {
    return std::atan2(y, x);
}

}  // namespace tz3
