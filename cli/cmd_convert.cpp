// tz3 convert IN OUT: the image read as any operation reads it, written in OUT's format, with no
// library call in between.
#include "cli.h"
#include "image_file.h"

namespace tz3cli {

int RunConvert(const std::vector<std::string> &args) {
    const std::vector<std::string> files = ReadArguments(args, [](ArgReader &) { return false; });
    ExpectPositionals(files, 2);
    OutputFormatFor(files[1]);
    const LoadedImage image = LoadImageFile(files[0]);
    SaveImageFile(files[1], image.dib.Get());
    return 0;
}

}  // namespace tz3cli
