// Helpers for the tool's tests: running the built tz3, a temporary directory per test, packed
// bitmaps as byte vectors, BMP files built field by field, and PNG files through libpng. None of
// this shares code with the tool, so that each side checks the other.
#pragma once

#include <gtest/gtest.h>
#include <png.h>

#include <cstdint>
#include <string>
#include <vector>

#include "tz3effect.h"

namespace tz3clitest {

using Bytes = std::vector<uint8_t>;

// ---- Running the tool ----

struct ToolRun {
    int exitCode = -1;  // the exit status, or 128 + signal when the tool was killed
    std::string out;
    std::string err;
};

// Runs TZ3_TOOL_PATH with the arguments; `env` adds NAME=VALUE entries (TZ3_CANCEL_AFTER is
// removed from the environment unless given here).
ToolRun RunTool(const std::vector<std::string> &args, const std::vector<std::string> &env = {});

// Runs the tool with standard error on a pseudo-terminal and returns what it wrote there; exit code
// kNoTerminal when the system offers no pseudo-terminal.
constexpr int kNoTerminal = -2;
ToolRun RunToolOnTerminal(const std::vector<std::string> &args);

// Number of lines in a text (a last line without '\n' counts).
int LineCount(const std::string &text);

// A fresh directory per test, removed afterwards.
class ToolTest : public ::testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;
    std::string Path(const std::string &name) const { return dir_ + "/" + name; }
    // Names of the files in the directory, sorted.
    std::vector<std::string> Entries() const;
    // Checks a failed run: the exit code, one line on standard error that contains `needle`.
    void ExpectFailure(const ToolRun &run, int exitCode, const std::string &needle) const;

    std::string dir_;
};

// ---- Files ----

Bytes ReadFile(const std::string &path);
void WriteFile(const std::string &path, const Bytes &bytes);
bool FileExists(const std::string &path);

// ---- Packed bitmaps and blocks ----

uint32_t Rd32(const uint8_t *p);
uint16_t Rd16(const uint8_t *p);
void Wr32(uint8_t *p, uint32_t v);
void Wr16(uint8_t *p, uint16_t v);
uint32_t Stride(int bitCount, int width);

// Header and zeroed rows; 16-bit with is565 stores the three 5-6-5 masks as a 3-entry table with
// biCompression 3. `clrUsed` is written as biClrUsed for palettes.
Bytes MakeDib(int width, int height, int bitCount, uint32_t clrUsed = 0, bool is565 = false);
uint32_t TableEntries(const Bytes &dib);
size_t PixelOffset(const Bytes &dib);
// Seeded random table and pixels, bytes biased to 0 and 255; 8-bit indices stay inside the table
// and pad bits are clear.
Bytes RandomDib(uint32_t seed, int width, int height, int bitCount, uint32_t clrUsed = 0, bool is565 = false);

// A new block holding a copy of the bytes.
DibHandle NewBlock(const Bytes &bytes);

// Frees a block at the end of a scope.
struct Block {
    DibHandle h = nullptr;
    explicit Block(DibHandle handle = nullptr) : h(handle) {}
    explicit Block(const Bytes &bytes) : h(NewBlock(bytes)) {}
    Block(const Block &) = delete;
    Block &operator=(const Block &) = delete;
    ~Block() {
        if (h != nullptr) Tz3GlobalFree(h);
    }
    Bytes ToBytes() const;
};

// ---- BMP files ----

// A BMP file put together field by field. height < 0 stores the rows top-down, as given in
// `pixels` (the test arranges them).
struct BmpParts {
    uint32_t headerSize = 40;
    int32_t width = 1;
    int32_t height = 1;
    uint16_t bitCount = 24;
    uint32_t compression = 0;
    uint32_t clrUsed = 0;
    std::vector<uint32_t> masks;  // inside a header of 52 bytes or more, else after the 40 bytes
    Bytes table;                  // raw colour-table bytes
    Bytes pixels;                 // raw rows, in file order
};
Bytes BuildBmp(const BmpParts &parts);

// The standard file of a packed bitmap, as the tool should write it: a 5-6-5 image becomes a
// bit-field file with biClrUsed 0 and its masks after the header.
Bytes BmpFromDib(const Bytes &dib);
// The packed bitmap inside a standard file (40-byte header, bottom-up), 5-6-5 back to the block's
// convention. Fails the test on anything else.
Bytes DibFromBmp(const Bytes &file);

// A picture in one of the BMP variants the tool reads, with the block it should read as and the line
// `tz3 info` should print after the file name.
struct BmpVariant {
    std::string name;
    Bytes file;
    Bytes dib;
    std::string info;
};
// 1, 4 (full and short table), 8 (full and short table), 16 as 5-5-5 plain and in bit fields, 16 as
// 5-6-5 bit fields, 24, 32 plain, and 32 in bit fields of two other byte orders; seeded, of the
// given size.
std::vector<BmpVariant> EveryBmpVariant(int width, int height, uint32_t seed);
// The same picture stored top-down: negative height, rows in reverse order.
Bytes TopDownTwin(const Bytes &bottomUpFile);

// ---- PNG files ----

struct PngPicture {
    uint32_t width = 0, height = 0;
    int colourType = PNG_COLOR_TYPE_RGB;
    int depth = 8;
    bool interlaced = false;
    std::vector<png_color> palette;
    Bytes trnsAlpha;            // palette alpha, for palettes
    png_color_16 trnsColour{};  // the transparent colour of gray and RGB pictures
    bool hasTrnsColour = false;
    std::vector<Bytes> rows;  // top-down, in the PNG's own sample layout
};
void WritePng(const std::string &path, const PngPicture &picture);
// The file as libpng reads it with no transformation.
PngPicture ReadPng(const std::string &path);
// Every pixel as R, G, B, A (8 bits each), top-down, whatever the PNG's colour type.
Bytes PngToRgba(const std::string &path, uint32_t *width = nullptr, uint32_t *height = nullptr);

}  // namespace tz3clitest
