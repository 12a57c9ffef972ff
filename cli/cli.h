// What every part of the tool shares: the failures it reports and the shape of a subcommand.
#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "dib_block.h"

namespace tz3cli {

// Exit codes: 0 success, 1 failure, 2 wrong arguments, 130 cancelled (as a shell reports Ctrl-C).
constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;
constexpr int kExitCancelled = 130;

// A failure to report as one line, "tz3: <what>", and the exit code that goes with it.
class Failure : public std::runtime_error {
  public:
    explicit Failure(const std::string &what, int exitCode = kExitFailure)
        : std::runtime_error(what), exitCode_(exitCode) {}
    int ExitCode() const { return exitCode_; }

  private:
    int exitCode_;
};

// Wrong arguments: main adds the command's name and its usage line.
class UsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// The arguments of one subcommand, options and positionals in the order given.
class ArgReader {
  public:
    explicit ArgReader(const std::vector<std::string> &args) : args_(args) {}
    // Also steps over a bare "--", after which every argument is positional.
    bool Done();
    // At "--name" or "--name=value" (or any argument of more than one character that starts with
    // '-'), unless options have ended.
    bool AtOption();
    // The option's name without its value, e.g. "--mask" for "--mask=m.bmp".
    std::string OptionName() const;
    // Moves past an option that takes no value; a value attached with '=' is a usage error.
    void TakeFlag();
    // Moves past an option and returns its value, attached with '=' or the next argument.
    std::string TakeValue();
    std::string TakePositional();

  private:
    const std::vector<std::string> &args_;
    size_t pos_ = 0;
    bool optionsEnded_ = false;
};

// Reads a command's arguments and returns its positionals in order. Each option is offered to
// takeOption(reader), which takes it and returns true, or returns false for an unknown option.
template <typename TakeOption>
std::vector<std::string> ReadArguments(const std::vector<std::string> &args, TakeOption takeOption) {
    ArgReader reader(args);
    std::vector<std::string> positionals;
    while (!reader.Done()) {
        if (!reader.AtOption()) {
            positionals.push_back(reader.TakePositional());
        } else if (!takeOption(reader)) {
            throw UsageError("unknown option " + reader.OptionName());
        }
    }
    return positionals;
}

// Throws a UsageError unless the command got exactly `count` file names.
void ExpectPositionals(const std::vector<std::string> &positionals, size_t count);

// Parses a comma-separated list of 32-bit integers ("10,-3,40"); false if any item is not one.
bool ParseIntList(const std::string &text, std::vector<int32_t> &values);

// Options that each take one number: when the reader is at one of `names`, takes its value into
// the matching slot of `values` and returns true. Throws UsageError on a malformed number.
bool TakeIntOption(ArgReader &reader, const std::vector<std::string> &names, int32_t *values);
bool TakeDoubleOption(ArgReader &reader, const std::vector<std::string> &names, double *values);
// Flags: when the reader is at one of `names`, sets the matching slot and returns true.
bool TakeFlagOption(ArgReader &reader, const std::vector<std::string> &names, bool *values);

// The result of a library call, owned; a null result becomes a Failure naming the command, the
// meaning of Tz3GetErrorStatus and its number, e.g. "rgb-rev: cancelled (status 1)".
DibOwner TakeResult(DibHandle result, const char *command);
const char *StatusText(int32_t status);

// One subcommand per file: cmd_<name>.cpp defines its Run function.
int RunInfo(const std::vector<std::string> &args);
int RunSample(const std::vector<std::string> &args);
int RunConvert(const std::vector<std::string> &args);
int RunRgbRev(const std::vector<std::string> &args);
int RunRgbGamma(const std::vector<std::string> &args);
int RunRgbLevel(const std::vector<std::string> &args);
int RunYccGamma(const std::vector<std::string> &args);
int RunYccLevel(const std::vector<std::string> &args);
int RunYccRev(const std::vector<std::string> &args);
int RunChroma(const std::vector<std::string> &args);
int RunSetGray(const std::vector<std::string> &args);

// Colour depth conversion.
int RunConvertColor(const std::vector<std::string> &args);

// Neighbourhood filters.
int RunCustomFilter(const std::vector<std::string> &args);
int RunSharp(const std::vector<std::string> &args);
int RunAntiAlias(const std::vector<std::string> &args);
int RunEmboss(const std::vector<std::string> &args);
int RunShade(const std::vector<std::string> &args);
int RunMosaic(const std::vector<std::string> &args);
int RunOutline(const std::vector<std::string> &args);
int RunRemoveNoise(const std::vector<std::string> &args);

// Geometry.
int RunRotation(const std::vector<std::string> &args);
int RunAffine(const std::vector<std::string> &args);
int RunResize(const std::vector<std::string> &args);
int RunPanorama(const std::vector<std::string> &args);

// Selection, new images and compositing.
int RunSelectImage(const std::vector<std::string> &args);
int RunAutoSelectImage(const std::vector<std::string> &args);
int RunCreateImage(const std::vector<std::string> &args);
int RunCopyImage(const std::vector<std::string> &args);
int RunPasteImage(const std::vector<std::string> &args);
int RunLayer(const std::vector<std::string> &args);

// Clipboard and the hidden mark.
int RunSetToClipBrd(const std::vector<std::string> &args);
int RunGetFromClipBrd(const std::vector<std::string> &args);
int RunIsClipBrdData(const std::vector<std::string> &args);
int RunClearClipBrd(const std::vector<std::string> &args);
int RunSetSecretImage(const std::vector<std::string> &args);
int RunCheckSecretImage(const std::vector<std::string> &args);

}  // namespace tz3cli
