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
    {"convert-color", "IN OUT --target 1|4|8|16|24|32|80 [--fixed-palette] [--dither] [--threshold N]", false,
     RunConvertColor, "convert to another depth (80: 8-bit gray), building or fixing a palette, with dithering"},

    // Neighbourhood filters.
    {"custom-filter", "IN OUT --kernel FILE [--divisor N] [--bias N] [--red] [--green] [--blue]", true,
     RunCustomFilter, "convolve with a kernel of up to 9 x 9 whole numbers read from FILE"},
    {"sharp", "IN OUT [--strength N]", true, RunSharp, "sharpen luma against its 3 x 3 neighbourhood (N 0..100)"},
    {"anti-alias", "IN OUT", true, RunAntiAlias, "soften vertical edges: the mean of each pixel and its row neighbours"},
    {"emboss", "IN OUT [--direction N] [--depth N] [--bias N]", true, RunEmboss,
     "relief facing direction N (0..7), depth 1..5, flat areas at the bias level"},
    {"shade", "IN OUT [--radius N]", true, RunShade, "blur with the mean of a square window of radius N (1..20)"},
    {"mosaic", "IN OUT [--width W] [--height H]", true, RunMosaic, "paint tiles of W x H pixels with their mean colour"},
    {"outline", "IN OUT [--channel N] [--operator N] [--gain N]", true, RunOutline,
     "gradient strength of luma (0) or red, green, blue (1..3) as gray; operator 0, 2 Sobel, else Roberts"},
    {"remove-noise", "IN OUT [--method N] [--level N]", true, RunRemoveNoise,
     "3 x 3 median: method 0 plain, 1 selective (the higher the level 0..255, the more pixels)"},

    // Geometry.
    {"rotation",
     "IN OUT --angle N [--flip-h] [--flip-v] [--interpolate] [--background R,G,B] [--keep-size] "
     "[--mask FILE] [--mask-out FILE]",
     false, RunRotation, "turn by N hundredths of a degree about the centre, optionally mirrored first"},
    {"affine", "IN OUT --points X,Y,X,Y,X,Y,X,Y", false, RunAffine,
     "straighten the quadrilateral through four points into a rectangle"},
    {"resize", "IN OUT --width W --height H [--interpolate] [--mask FILE [--mask-out FILE]]", false, RunResize,
     "make the image (and its mask) W x H; --interpolate averages and spreads"},
    {"panorama", "FIRST SECOND OUT --first X,Y,X,Y --second X,Y,X,Y [--seam none|left|right] [--back R,G,B]",
     false, RunPanorama, "join two 24-bit pictures so that the two marked segments meet"},

    // Selection, new images and compositing.
    {"select-image", "IN OUT [--fill R,G,B] [--polygon X,Y,X,Y,... | --ellipse L,T,R,B] [--outside] [--mask-out FILE]",
     false, RunSelectImage, "cut out the box of a shape, the rest of it in the fill colour"},
    {"auto-select-image",
     "IN OUT --key R,G,B [--metric rgb|chroma|luma] [--tolerance N] [--polygon X,Y,X,Y,... | --ellipse L,T,R,B] "
     "[--outside] [--mask-out FILE]",
     false, RunAutoSelectImage, "select the pixels near a key colour (the mask holds the selection)"},
    {"create-image", "OUT --width W --height H [--depth 1|4|8|16|24|32] [--colour R,G,B]", false, RunCreateImage,
     "a new image of one colour"},
    {"copy-image", "IN OUT", false, RunCopyImage, "a copy of the image, byte for byte"},
    {"paste-image",
     "TARGET SOURCE OUT [--at X,Y] [--angle N] [--mirror] [--flip] [--opacity N] [--back R,G,B] "
     "[--mask FILE] [--keep-size]",
     false, RunPasteImage,
     "lay SOURCE over TARGET by its centre, turned by N/100 degrees and faded (24-bit result)"},
    {"layer", "BASE OVER OUT [--at X,Y] [--key R,G,B] [--opacity N] [--back R,G,B] [--keep-size]", false,
     RunLayer, "lay OVER on BASE by its top-left corner; its key colour lets BASE through (24-bit result)"},

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
    for (const Command &command : kCommands) std::printf("  %-18s %s\n", command.name, command.summary);
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
