// The region options shared by every command over a region operation:
//
//   --polygon X,Y,X,Y,...   kind 2, at least two points, picture coordinates (y down from the top)
//   --ellipse L,T,R,B       kind 3, the ellipse inscribed in the rectangle
//   --mask FILE             kind 0, a 1-bit image of the image's size; set bits are worked on
//   --outside               work outside the polygon or ellipse instead of inside
//
// None of the three shapes: kind 1, the whole image.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "cli.h"
#include "dib_block.h"
#include "image_file.h"
#include "tz3effect.h"

namespace tz3cli {

extern const char kRegionUsage[];

struct RegionOptions {
    int32_t kind = 1;
    std::vector<Tz3Point> points;
    Tz3Rect rect{0, 0, 0, 0};
    std::string maskPath;
    bool outside = false;
};

// Takes the option the reader is at, with its value, when it is a region option; false otherwise.
// Throws UsageError on a malformed value.
bool TakeRegionOption(ArgReader &reader, RegionOptions &region);

// Checks the options together once all arguments are read. Throws UsageError.
void CheckRegionOptions(const RegionOptions &region);

// The six region arguments of a call, and the mask block they refer to.
struct RegionCall {
    DibPair pair{nullptr, nullptr};
    int32_t kind = 1;
    std::vector<Tz3Point> points;
    Tz3Rect rect{0, 0, 0, 0};
    int32_t inside = 1;
    DibOwner mask;

    const Tz3Point *Points() const { return points.empty() ? nullptr : points.data(); }
    int32_t Count() const { return static_cast<int32_t>(points.size()); }
};

// Loads the mask file, if any, checking that it is a 1-bit image of the image's size.
RegionCall MakeRegionCall(const RegionOptions &region, DibHandle image);

// The arguments of a region command: IN OUT, the region options and the command's own options.
struct RegionCommandArgs {
    std::string in;
    std::string out;
    RegionOptions region;
};

// Reads IN, OUT and the region options; every other option is offered to takeOwnOption(reader),
// which returns false for one it does not know. Usage errors come out as UsageError, before any
// file is touched.
template <typename TakeOwnOption>
RegionCommandArgs ReadRegionCommand(const std::vector<std::string> &args, TakeOwnOption takeOwnOption) {
    RegionCommandArgs a;
    const std::vector<std::string> files = ReadArguments(
        args, [&](ArgReader &reader) { return TakeRegionOption(reader, a.region) || takeOwnOption(reader); });
    ExpectPositionals(files, 2);
    CheckRegionOptions(a.region);
    OutputFormatFor(files[1]);
    a.in = files[0];
    a.out = files[1];
    return a;
}

// Loads IN, calls operation(call) with the region arguments ready, and saves its result as OUT;
// a null result fails with the library's status, named after the command.
template <typename Operation>
int RunRegionOperation(const RegionCommandArgs &a, const char *command, Operation operation) {
    const LoadedImage image = LoadImageFile(a.in);
    const RegionCall call = MakeRegionCall(a.region, image.dib.Get());
    const DibOwner result = TakeResult(operation(call), command);
    SaveImageFile(a.out, result.Get());
    return 0;
}

}  // namespace tz3cli
