#include "selection_options.h"

namespace tz3cli {

bool TakeColourOption(ArgReader &reader, const char *name, std::array<int32_t, 3> &rgb) {
    if (reader.OptionName() != name) return false;
    std::vector<int32_t> values;
    const std::string text = reader.TakeValue();
    if (!ParseIntList(text, values) || values.size() != 3) {
        throw UsageError(std::string(name) + " needs R,G,B (got '" + text + "')");
    }
    for (const int32_t v : values) {
        if (v < 0 || v > 255)
            throw UsageError(std::string(name) + " values go from 0 to 255 (got '" + text + "')");
    }
    rgb = {values[0], values[1], values[2]};
    return true;
}

bool TakeShapeOption(ArgReader &reader, RegionOptions &region) {
    if (reader.OptionName() == "--mask") return false;
    return TakeRegionOption(reader, region);
}

void SavePair(const std::string &imagePath, DibHandle image, const std::string &maskPath, DibHandle mask) {
    const auto encode = [](const std::string &path, DibHandle dib) {
        try {
            return OutputFormatFor(path) == FileFormat::kBmp ? EncodeBmp(dib) : EncodePng(dib);
        } catch (const Failure &failure) {
            throw Failure(path + ": " + failure.what(), failure.ExitCode());
        }
    };
    const std::vector<uint8_t> imageBytes = encode(imagePath, image);
    std::vector<uint8_t> maskBytes;
    if (!maskPath.empty()) maskBytes = encode(maskPath, mask);
    WriteFileAtomically(imagePath, imageBytes);
    if (!maskPath.empty()) WriteFileAtomically(maskPath, maskBytes);
}

}  // namespace tz3cli
