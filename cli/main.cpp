// tz3: the command line over libtz3effect. One subcommand per export, plus info, sample and convert;
// each lives in its own cmd_<name>.cpp and is listed once in the table below.
#include <cstdio>
#include <cstring>
#include <exception>
#include <new>
#include <string>
#include <vector>

#include "cli.h"
#include "progress.h"
#include "region_options.h"

namespace tz3cli {
namespace {

struct Command {
    const char *name;
    const char *arguments;
    bool region;  // takes the region options
    int (*run)(const std::vector<std::string> &args);
    const char *summary;
};

const Command kCommands[] = {
    {"info", "FILE", false, RunInfo, "size, depth, 555/565, colours and compression of an image file"},
    {"sample", "OUT", false, RunSample, "write the built-in 640 x 480 test card"},
    {"convert", "IN OUT", false, RunConvert, "copy an image from one file format to the other"},
    {"rgb-rev", "IN OUT [--red] [--green] [--blue]", true, RunRgbRev,
     "reverse the chosen channels (all three when none is given)"},
    {"rgb-gamma", "IN OUT [--red K] [--green K] [--blue K]", true, RunRgbGamma,
     "bend each channel by a curve of strength K (positive darkens mid-tones)"},
    {"rgb-level", "IN OUT [--red N] [--green N] [--blue N]", true, RunRgbLevel,
     "add N (-255..255) to each channel"},
    {"ycc-gamma", "IN OUT [--y K] [--cr K] [--cb K]", true, RunYccGamma,
     "bend luma and the colour differences by curves of strength K"},
    {"ycc-level", "IN OUT [--y N] [--cr N] [--cb N]", true, RunYccLevel,
     "add N (-255..255) to luma and the colour differences"},
    {"ycc-rev", "IN OUT [--y] [--cr] [--cb]", true, RunYccRev,
     "reverse luma and/or the colour differences (all three when none is given)"},
    {"chroma", "IN OUT --amount N", true, RunChroma, "change saturation by N percent (-100..1000)"},
    {"set-gray", "IN OUT", false, RunSetGray, "the gray version of the image at its own depth"},

    // Colour depth conversion.

    // Neighbourhood filters.

    // Geometry.

    // Selection, new images and compositing.

    // Clipboard and the hidden mark.
    {"set-to-clip-brd", "IN", false, RunSetToClipBrd, "put the image on the clipboard"},
    {"get-from-clip-brd", "OUT", false, RunGetFromClipBrd, "write the clipboard's image to a file"},
    {"is-clip-brd-data", "", false, RunIsClipBrdData, "print yes when the clipboard holds an image, else no"},
    {"clear-clip-brd", "", false, RunClearClipBrd, "empty the clipboard"},
    {"set-secret-image", "IN OUT (--text T [--face NAME] [--size PT] [--bold] [--italic] [--underline] "
     "[--strikeout] [--direction 0-3] [--angle 0|90|180|270] [--box X0,Y0,X1,Y1] | --stamp FILE [--at X,Y]) "
     "[--strength N]",
     false, RunSetSecretImage, "hide a text or a 1-bit stamp in a 24-bit image as a faint shift of luma"},
    {"check-secret-image", "PLAIN MARKED OUT [--threshold N]", false, RunCheckSecretImage,
     "show the pixels whose luma rose by at least N (4) from PLAIN to MARKED"},
};

std::string UsageLine(const Command &command) {
    std::string line = std::string("tz3 ") + command.name + " " + command.arguments;
    if (command.region) line += std::string(" ") + kRegionUsage;
    return line;
}

void PrintHelp() {
    std::printf("usage: tz3 COMMAND ARGUMENTS...\n\nCommands:\n");
    for (const Command &command : kCommands) std::printf("  %-10s %s\n", command.name, command.summary);
    std::printf("\nImages are BMP or PNG files; the output's format follows its extension.\n");
    std::printf("'tz3 COMMAND --help' shows a command's arguments.\n");
}

int Run(const Command &command, const std::vector<std::string> &args) {
    try {
        ProgressScope progress(command.name);
        return command.run(args);
    } catch (const UsageError &error) {
        std::fprintf(stderr, "tz3: %s: %s (usage: %s)\n", command.name, error.what(),
                     UsageLine(command).c_str());
        return kExitUsage;
    } catch (const Failure &failure) {
        std::fprintf(stderr, "tz3: %s\n", failure.what());
        return failure.ExitCode();
    } catch (const std::bad_alloc &) {
        std::fprintf(stderr, "tz3: %s: out of memory\n", command.name);
        return kExitFailure;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "tz3: %s: %s\n", command.name, error.what());
        return kExitFailure;
    }
}

}  // namespace
}  // namespace tz3cli

int main(int argc, char **argv) {
    using namespace tz3cli;
    if (argc < 2) {
        std::fprintf(stderr,
                     "tz3: no command given (usage: tz3 COMMAND ARGUMENTS...; 'tz3 help' lists them)\n");
        return kExitUsage;
    }
    const std::string name = argv[1];
    if (name == "help" || name == "--help" || name == "-h") {
        PrintHelp();
        return 0;
    }
    const std::vector<std::string> args(argv + 2, argv + argc);
    for (const Command &command : kCommands) {
        if (name != command.name) continue;
        if (args.size() == 1 && (args[0] == "--help" || args[0] == "-h")) {
            std::printf("usage: %s\n", UsageLine(command).c_str());
            return 0;
        }
        return Run(command, args);
    }
    std::fprintf(stderr, "tz3: unknown command '%s' ('tz3 help' lists them)\n", name.c_str());
    return kExitUsage;
}
