// tz3 sample OUT: the built-in test card, in OUT's format.
#include "cli.h"
#include "image_file.h"
#include "sample.h"

namespace tz3cli {

int RunSample(const std::vector<std::string> &args) {
    const std::vector<std::string> files = ReadArguments(args, [](ArgReader &) { return false; });
    ExpectPositionals(files, 1);
    OutputFormatFor(files[0]);
    const DibOwner card = MakeTestCard();
    SaveImageFile(files[0], card.Get());
    return 0;
}

}  // namespace tz3cli
