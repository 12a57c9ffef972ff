// tz3 custom-filter IN OUT --kernel FILE [--divisor N] [--bias N] [--red] [--green] [--blue]
// [region]: TZ3CustomFilter. The kernel file holds whole numbers separated by spaces, commas or
// line breaks ('#' starts a comment): 81 of them for the full 9 x 9 kernel, or 1, 9, 25 or 49 for a
// smaller odd square, which is centred in the 9 x 9 one. Rows are written top to bottom, as the
// kernel looks on paper. The divisor defaults to the sum of the weights when that lies in 1..255,
// else 1; the bias defaults to 0; with no channel option all three are filtered.
#include <array>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "region_options.h"

namespace tz3cli {
namespace {

std::array<int32_t, 81> ReadKernelFile(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw Failure(path + ": cannot open the kernel file");
    std::vector<int32_t> weights;
    std::string line;
    while (std::getline(file, line)) {
        const size_t comment = line.find('#');
        if (comment != std::string::npos) line.erase(comment);
        for (char &c : line) {
            if (c == ',' || c == '\t' || c == '\r') c = ' ';
        }
        std::istringstream words(line);
        std::string word;
        while (words >> word) {
            std::vector<int32_t> value;
            if (!ParseIntList(word, value) || value.size() != 1) {
                throw Failure(path + ": not a whole 32-bit number in the kernel: '" + word + "'");
            }
            weights.push_back(value[0]);
        }
    }
    int side = 0;
    for (int s : {1, 3, 5, 7, 9}) {
        if (weights.size() == static_cast<size_t>(s * s)) side = s;
    }
    if (side == 0) {
        throw Failure(path + ": the kernel has " + std::to_string(weights.size()) +
                      " numbers; it needs 81, 49, 25, 9 or 1");
    }
    std::array<int32_t, 81> kernel{};
    const int offset = (9 - side) / 2;
    for (int r = 0; r < side; ++r) {
        for (int c = 0; c < side; ++c) kernel[(r + offset) * 9 + c + offset] = weights[r * side + c];
    }
    return kernel;
}

}  // namespace

int RunCustomFilter(const std::vector<std::string> &args) {
    std::string kernelPath;
    int32_t numbers[2] = {0, 0};  // divisor, bias
    bool numberGiven[2] = {false, false};
    bool channels[3] = {false, false, false};  // red, green, blue
    const RegionCommandArgs a = ReadRegionCommand(args, [&](ArgReader &reader) {
        if (reader.OptionName() == "--kernel") {
            kernelPath = reader.TakeValue();
            if (kernelPath.empty()) throw UsageError("--kernel needs a file name");
            return true;
        }
        const std::string name = reader.OptionName();
        if (TakeIntOption(reader, {"--divisor", "--bias"}, numbers)) {
            numberGiven[name == "--divisor" ? 0 : 1] = true;
            return true;
        }
        return TakeFlagOption(reader, {"--red", "--green", "--blue"}, channels);
    });
    if (kernelPath.empty()) throw UsageError("--kernel is required");
    if (!channels[0] && !channels[1] && !channels[2]) channels[0] = channels[1] = channels[2] = true;
    const std::array<int32_t, 81> kernel = ReadKernelFile(kernelPath);
    if (!numberGiven[0]) {
        int64_t sum = 0;
        for (int32_t w : kernel) sum += w;
        numbers[0] = sum >= 1 && sum <= 255 ? static_cast<int32_t>(sum) : 1;
    }
    return RunRegionOperation(a, "custom-filter", [&](const RegionCall &c) {
        return TZ3CustomFilter(&c.pair, c.kind, c.Points(), c.Count(), &c.rect, c.inside, kernel.data(), numbers[0],
                               numbers[1], channels[0], channels[1], channels[2], 1, 0, 0, 0);
    });
}

}  // namespace tz3cli
