// tz3 affine IN OUT --points X,Y,X,Y,X,Y,X,Y: TZ3Affine, the quadrilateral through the four points
// (picture coordinates, y down from the top, in any order) straightened into a rectangle.
#include "cli.h"
#include "image_file.h"

namespace tz3cli {

int RunAffine(const std::vector<std::string> &args) {
    std::vector<int32_t> p;
    const std::vector<std::string> files = ReadArguments(args, [&](ArgReader &reader) {
        if (reader.OptionName() != "--points") return false;
        if (!ParseIntList(reader.TakeValue(), p) || p.size() != 8)
            throw UsageError("--points needs four points X,Y,X,Y,X,Y,X,Y");
        return true;
    });
    ExpectPositionals(files, 2);
    if (p.size() != 8) throw UsageError("--points is required");
    OutputFormatFor(files[1]);
    const LoadedImage image = LoadImageFile(files[0]);
    const DibOwner result =
        TakeResult(TZ3Affine(image.dib.Get(), p[0], p[1], p[2], p[3], p[4], p[5], p[6], p[7], 1, 0, 0, 0), "affine");
    SaveImageFile(files[1], result.Get());
    return 0;
}

}  // namespace tz3cli
