// What the selection commands share: a colour given as R,G,B, the shape options (the region
// options without --mask, since a selection is never taken from a mask), and the writing of an
// image with its mask, both encoded before either file is written.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "cli.h"
#include "region_options.h"

namespace tz3cli {

// Encodes the image and (when maskPath is not empty) the mask, then writes each file.
void SavePair(const std::string &imagePath, DibHandle image, const std::string &maskPath, DibHandle mask);

// When the reader is at `name`, takes "R,G,B" (each 0..255) into rgb and returns true. Throws
// UsageError on a malformed value.
bool TakeColourOption(ArgReader &reader, const char *name, std::array<int32_t, 3> &rgb);

// The shape options: --polygon, --ellipse and --outside. --mask is refused as an unknown option.
bool TakeShapeOption(ArgReader &reader, RegionOptions &region);

// IN OUT, the shape options, --mask-out FILE and the command's own options.
struct SelectionCommandArgs {
    std::string in, out, maskOut;
    RegionOptions region;
};

template <typename TakeOwnOption>
SelectionCommandArgs ReadSelectionCommand(const std::vector<std::string> &args, TakeOwnOption takeOwnOption) {
    SelectionCommandArgs a;
    const std::vector<std::string> files = ReadArguments(args, [&](ArgReader &reader) {
        if (reader.OptionName() == "--mask-out") {
            a.maskOut = reader.TakeValue();
            if (a.maskOut.empty()) throw UsageError("--mask-out needs a file name");
            return true;
        }
        return TakeShapeOption(reader, a.region) || takeOwnOption(reader);
    });
    ExpectPositionals(files, 2);
    CheckRegionOptions(a.region);
    OutputFormatFor(files[1]);
    if (!a.maskOut.empty()) OutputFormatFor(a.maskOut);
    a.in = files[0];
    a.out = files[1];
    return a;
}

// Loads IN, runs the selection and writes its image as OUT and, when asked, its mask; a null result
// fails with the library's status, named after the command.
template <typename Operation>
int RunSelection(const SelectionCommandArgs &a, const char *command, Operation operation) {
    const LoadedImage image = LoadImageFile(a.in);
    const RegionCall call = MakeRegionCall(a.region, image.dib.Get());
    const DibPair pair = operation(call);
    DibOwner mask(pair.mask);
    const DibOwner result = TakeResult(pair.image, command);
    SavePair(a.out, result.Get(), a.maskOut, mask.Get());
    return 0;
}

}  // namespace tz3cli
