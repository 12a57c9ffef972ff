// tz3 clear-clip-brd: TZ3ClearClipBrd, empties the clipboard.
#include "cli.h"

namespace tz3cli {

int RunClearClipBrd(const std::vector<std::string> &args) {
    const std::vector<std::string> none = ReadArguments(args, [](ArgReader &) { return false; });
    ExpectPositionals(none, 0);
    if (TZ3ClearClipBrd(nullptr) == 0) throw Failure("clear-clip-brd: the system clipboard could not be reached");
    return 0;
}

}  // namespace tz3cli
