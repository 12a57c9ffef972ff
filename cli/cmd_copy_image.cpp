// tz3 copy-image IN OUT: TZ3CopyImage, a byte-for-byte copy of the image's block, written out.
#include "cli.h"
#include "image_file.h"

namespace tz3cli {

int RunCopyImage(const std::vector<std::string> &args) {
    const std::vector<std::string> files = ReadArguments(args, [](ArgReader &) { return false; });
    ExpectPositionals(files, 2);
    OutputFormatFor(files[1]);
    const LoadedImage image = LoadImageFile(files[0]);
    const DibOwner result = TakeResult(TZ3CopyImage(image.dib.Get(), 1, 0, 0, 0), "copy-image");
    SaveImageFile(files[1], result.Get());
    return 0;
}

}  // namespace tz3cli
