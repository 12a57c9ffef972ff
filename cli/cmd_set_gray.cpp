// tz3 set-gray IN OUT: TZ3SetGray, the gray version of the image at its own depth.
#include "cli.h"
#include "image_file.h"

namespace tz3cli {

int RunSetGray(const std::vector<std::string> &args) {
    const std::vector<std::string> files = ReadArguments(args, [](ArgReader &) { return false; });
    ExpectPositionals(files, 2);
    OutputFormatFor(files[1]);
    const LoadedImage image = LoadImageFile(files[0]);
    const DibOwner result = TakeResult(TZ3SetGray(image.dib.Get(), 1, 0, 0, 0), "set-gray");
    SaveImageFile(files[1], result.Get());
    return 0;
}

}  // namespace tz3cli
