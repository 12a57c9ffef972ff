// tz3 info FILE: what the file holds, as the file says it: size, bits per pixel (with the 16-bit
// layout), colour-table entries and the compression field.
#include <cstdio>

#include "cli.h"
#include "image_file.h"

namespace tz3cli {

int RunInfo(const std::vector<std::string> &args) {
    const std::vector<std::string> files = ReadArguments(args, [](ArgReader &) { return false; });
    ExpectPositionals(files, 1);
    const LoadedImage image = LoadImageFile(files[0]);
    const ImageInfo &i = image.info;
    const char *layout = i.bitCount != 16 ? "" : i.layout16 == Layout16::k565 ? " (565)" : " (555)";
    std::printf("%s: %d x %d, %u bits%s, %u colours, compression %u\n", files[0].c_str(), i.width, i.height,
                i.bitCount, layout, i.colours, i.compression);
    return std::fflush(stdout) == 0 ? 0 : kExitFailure;
}

}  // namespace tz3cli
