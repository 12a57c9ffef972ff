#include "cli.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>

#include "tz3effect.h"

namespace tz3cli {

bool ArgReader::Done() {
    if (!optionsEnded_ && pos_ < args_.size() && args_[pos_] == "--") {
        optionsEnded_ = true;
        ++pos_;
    }
    return pos_ >= args_.size();
}

bool ArgReader::AtOption() {
    if (Done() || optionsEnded_) return false;
    const std::string &arg = args_[pos_];
    return arg.size() > 1 && arg[0] == '-';
}

std::string ArgReader::OptionName() const {
    return args_[pos_].substr(0, args_[pos_].find('='));
}

void ArgReader::TakeFlag() {
    if (args_[pos_].find('=') != std::string::npos) throw UsageError(OptionName() + " takes no value");
    ++pos_;
}

std::string ArgReader::TakeValue() {
    const std::string &arg = args_[pos_];
    const size_t equals = arg.find('=');
    if (equals != std::string::npos) {
        ++pos_;
        return arg.substr(equals + 1);
    }
    const std::string name = OptionName();
    if (++pos_ >= args_.size()) throw UsageError(name + " needs a value");
    return args_[pos_++];
}

std::string ArgReader::TakePositional() {
    return args_[pos_++];
}

void ExpectPositionals(const std::vector<std::string> &positionals, size_t count) {
    if (positionals.size() < count) throw UsageError("missing file name");
    if (positionals.size() > count) throw UsageError("unexpected argument '" + positionals[count] + "'");
}

bool ParseIntList(const std::string &text, std::vector<int32_t> &values) {
    values.clear();
    size_t start = 0;
    while (true) {
        const size_t comma = text.find(',', start);
        const std::string item =
            text.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
        // Digits with an optional sign only: no spaces, no hexadecimal, no trailing text.
        const size_t digitsFrom = !item.empty() && (item[0] == '-' || item[0] == '+') ? 1 : 0;
        if (item.size() == digitsFrom ||
            item.find_first_not_of("0123456789", digitsFrom) != std::string::npos) {
            return false;
        }
        errno = 0;
        const long long v = std::strtoll(item.c_str(), nullptr, 10);
        if (errno != 0 || v < INT32_MIN || v > INT32_MAX) return false;
        values.push_back(static_cast<int32_t>(v));
        if (comma == std::string::npos) return true;
        start = comma + 1;
    }
}

const char *StatusText(int32_t status) {
    switch (status) {
        case 0:
            return "failed without a reason";
        case 1:
            return "cancelled";
        case 2:
            return "dialog or surface failed";
        case 3:
            return "out of memory";
        case 4:
            return "bit depth not handled";
        case 5:
            return "bad parameter";
        case 7:
            return "bad image or mask";
        case 9:
            return "drawing failed";
        default:
            return "failed";
    }
}

DibOwner TakeResult(DibHandle result, const char *command) {
    if (result != nullptr) return DibOwner(result);
    const int32_t status = Tz3GetErrorStatus();
    throw Failure(
        std::string(command) + ": " + StatusText(status) + " (status " + std::to_string(status) + ")",
        status == 1 ? kExitCancelled : kExitFailure);
}

}  // namespace tz3cli

namespace tz3cli {
namespace {

// The slot of the option the reader is at, or -1.
int OptionSlot(const ArgReader &reader, const std::vector<std::string> &names) {
    const std::string name = reader.OptionName();
    for (size_t i = 0; i < names.size(); ++i) {
        if (names[i] == name) return static_cast<int>(i);
    }
    return -1;
}

}  // namespace

bool TakeIntOption(ArgReader &reader, const std::vector<std::string> &names, int32_t *values) {
    const int slot = OptionSlot(reader, names);
    if (slot < 0) return false;
    const std::string name = reader.OptionName();
    std::vector<int32_t> parsed;
    if (!ParseIntList(reader.TakeValue(), parsed) || parsed.size() != 1) {
        throw UsageError(name + " needs one whole number");
    }
    values[slot] = parsed[0];
    return true;
}

bool TakeDoubleOption(ArgReader &reader, const std::vector<std::string> &names, double *values) {
    const int slot = OptionSlot(reader, names);
    if (slot < 0) return false;
    const std::string name = reader.OptionName();
    const std::string text = reader.TakeValue();
    // Decimal digits, sign, point and exponent only: no spaces, no hexadecimal, no "nan" or "inf".
    // An overflow comes back infinite; an underflow is still a finite number.
    char *end = nullptr;
    const double v = std::strtod(text.c_str(), &end);
    if (text.empty() || text.find_first_not_of("0123456789+-.eE") != std::string::npos ||
        end != text.c_str() + text.size() || !std::isfinite(v)) {
        throw UsageError(name + " needs a finite number");
    }
    values[slot] = v;
    return true;
}

bool TakeFlagOption(ArgReader &reader, const std::vector<std::string> &names, bool *values) {
    const int slot = OptionSlot(reader, names);
    if (slot < 0) return false;
    reader.TakeFlag();
    values[slot] = true;
    return true;
}

}  // namespace tz3cli
