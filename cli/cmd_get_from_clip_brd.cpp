// tz3 get-from-clip-brd OUT: TZ3GetFromClipBrd, the clipboard's image into a file.
#include "cli.h"
#include "image_file.h"

namespace tz3cli {

int RunGetFromClipBrd(const std::vector<std::string> &args) {
    const std::vector<std::string> files = ReadArguments(args, [](ArgReader &) { return false; });
    ExpectPositionals(files, 1);
    OutputFormatFor(files[0]);
    const DibOwner result = TakeResult(TZ3GetFromClipBrd(nullptr, 1, 0, 0, 0), "get-from-clip-brd");
    SaveImageFile(files[0], result.Get());
    return 0;
}

}  // namespace tz3cli
