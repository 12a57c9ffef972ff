// Fixed comparator networks for the 3 x 3 medians: the median of nine and the fifth smallest of
// eight, with no data-dependent branch, so a row of pixels runs them side by side in vector
// registers. A comparator network picks the right element of every input when it does so for every
// input of zeros and ones; the tests walk all 512 and all 256 of those.
#pragma once

#include <algorithm>

namespace tz3 {

// a becomes the smaller, b the larger.
template <class T>
inline void SortPair(T &a, T &b) {
    const T lo = std::min(a, b);
    const T hi = std::max(a, b);
    a = lo;
    b = hi;
}

// The median (fifth smallest) of nine values, in 19 comparators.
template <class T>
inline T MedianOfNine(T p0, T p1, T p2, T p3, T p4, T p5, T p6, T p7, T p8) {
    SortPair(p1, p2);
    SortPair(p4, p5);
    SortPair(p7, p8);
    SortPair(p0, p1);
    SortPair(p3, p4);
    SortPair(p6, p7);
    SortPair(p1, p2);
    SortPair(p4, p5);
    SortPair(p7, p8);
    SortPair(p0, p3);
    SortPair(p5, p8);
    SortPair(p4, p7);
    SortPair(p3, p6);
    SortPair(p1, p4);
    SortPair(p2, p5);
    SortPair(p4, p7);
    SortPair(p4, p2);
    SortPair(p6, p4);
    SortPair(p4, p2);
    return p4;
}

// The fifth smallest (position 4 counting from 0) of eight values: a sorting network of 19
// comparators, of which the last layers keep only what reaches position 4.
template <class T>
inline T FifthOfEight(T p0, T p1, T p2, T p3, T p4, T p5, T p6, T p7) {
    SortPair(p0, p2);
    SortPair(p1, p3);
    SortPair(p4, p6);
    SortPair(p5, p7);
    SortPair(p0, p4);
    SortPair(p1, p5);
    SortPair(p2, p6);
    SortPair(p3, p7);
    SortPair(p0, p1);
    SortPair(p2, p3);
    SortPair(p4, p5);
    SortPair(p6, p7);
    SortPair(p2, p4);
    SortPair(p3, p5);
    SortPair(p1, p4);
    SortPair(p3, p6);
    // The last layer (1,2), (3,4), (5,6): position 4 takes the larger of 3 and 4.
    return std::max(p3, p4);
}

}  // namespace tz3
