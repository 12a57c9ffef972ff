// tz3 set-to-clip-brd IN: TZ3SetToClipBrd, the image onto the clipboard (the X11 CLIPBOARD
// selection where there is a display, else the store inside the process, which ends with the tool).
#include "cli.h"
#include "image_file.h"

namespace tz3cli {

int RunSetToClipBrd(const std::vector<std::string> &args) {
    const std::vector<std::string> files = ReadArguments(args, [](ArgReader &) { return false; });
    ExpectPositionals(files, 1);
    const LoadedImage image = LoadImageFile(files[0]);
    if (TZ3SetToClipBrd(nullptr, image.dib.Get(), 1, 0, 0, 0) == 0) {
        TakeResult(nullptr, "set-to-clip-brd");
    }
    // The library does not look at whether the clipboard took the block; ask it back, so that a
    // clipboard that could not be reached is told here rather than at the next paste.
    if (TZ3IsClipBrdData(nullptr) == 0)
        throw Failure("set-to-clip-brd: the system clipboard could not be reached (is xclip installed?)");
    return 0;
}

}  // namespace tz3cli
