// tz3 check-secret-image PLAIN MARKED OUT [--threshold N]: TZ3CheckSecretImage, a black and white
// picture of the pixels whose luma rose by at least N (4 by default) from PLAIN to MARKED.
#include "cli.h"
#include "image_file.h"

namespace tz3cli {

int RunCheckSecretImage(const std::vector<std::string> &args) {
    int32_t threshold = 4;
    const std::vector<std::string> files =
        ReadArguments(args, [&](ArgReader &reader) { return TakeIntOption(reader, {"--threshold"}, &threshold); });
    ExpectPositionals(files, 3);
    OutputFormatFor(files[2]);
    const LoadedImage plain = LoadImageFile(files[0]);
    const LoadedImage marked = LoadImageFile(files[1]);
    const DibOwner result = TakeResult(
        TZ3CheckSecretImage(plain.dib.Get(), marked.dib.Get(), threshold, 1, 0, 0, 0), "check-secret-image");
    SaveImageFile(files[2], result.Get());
    return 0;
}

}  // namespace tz3cli
