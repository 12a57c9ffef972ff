// A plain, slow transcription of TZ3ConvertColor's rules, sharing no code with the library: the
// choice of path, the fixed tables, the median cut walked plane by plane, the popularity count and
// its heap sort, the serpentine row conversion with both kinds of diffusion, and the widening and
// direct conversions. It serves images the call accepts (any biSize of 40 or more); statuses are
// tested on their own.
#pragma once

#include <cstdint>
#include <vector>

namespace tz3test {

// The bytes of the result of converting `src` to `target` (low 16 bits) with the flags as given
// (non-zero when any bit is set; the threshold by its low byte).
std::vector<uint8_t> ReferenceConvert(const std::vector<uint8_t> &src, int32_t target, int32_t fixedPalette,
                                      int32_t dither, int32_t threshold);

// The leaf colour rule on one axis, from the median plane m and the high bound h.
int ReferenceLeafColour(int m, int high);

}  // namespace tz3test
