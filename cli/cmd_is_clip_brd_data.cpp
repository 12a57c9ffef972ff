// tz3 is-clip-brd-data: TZ3IsClipBrdData; prints "yes" when the clipboard holds an image, else "no".
#include <cstdio>

#include "cli.h"

namespace tz3cli {

int RunIsClipBrdData(const std::vector<std::string> &args) {
    const std::vector<std::string> none = ReadArguments(args, [](ArgReader &) { return false; });
    ExpectPositionals(none, 0);
    std::puts(TZ3IsClipBrdData(nullptr) != 0 ? "yes" : "no");
    return 0;
}

}  // namespace tz3cli
