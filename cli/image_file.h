// Image files in and out: BMP and PNG, read by their content and written by the output's extension.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "dib_block.h"

namespace tz3cli {

enum class FileFormat { kBmp, kPng };

// What the file said about itself, before the image was normalised into a block.
struct ImageInfo {
    FileFormat format;
    int32_t width;
    int32_t height;        // positive; topDown tells how the rows were stored
    uint32_t bitCount;     // of the file (a PNG reports the depth it loads as)
    uint32_t compression;  // biCompression of the file; 0 for PNG
    uint32_t colours;      // colour-table entries in the file, channel masks not counted
    Layout16 layout16;     // for 16 bits
    bool topDown;
};

struct LoadedImage {
    DibOwner dib;
    ImageInfo info;
};

// Reads BMP or PNG, told apart by their first bytes. Throws Failure("<path>: <problem>").
LoadedImage LoadImageFile(const std::string &path);

// The format named by the extension (.bmp or .png, any case); a UsageError for anything else, so
// that a command can refuse a bad output name before doing any work.
FileFormat OutputFormatFor(const std::string &path);

// Encodes the block in the format of the path's extension and replaces the file only once the new
// one is complete; on any failure, cancellation included, the old file is left as it was.
void SaveImageFile(const std::string &path, DibHandle dib);

// Decoders and encoders over bytes in memory; `name` prefixes their messages.
LoadedImage DecodeBmp(const uint8_t *data, size_t size, const std::string &name);
LoadedImage DecodePng(const uint8_t *data, size_t size, const std::string &name);
std::vector<uint8_t> EncodeBmp(DibHandle dib);
std::vector<uint8_t> EncodePng(DibHandle dib);

// Writes the bytes to a temporary file beside `path`, flushes it to disk and renames it onto
// `path`; the temporary file is removed on every failure.
void WriteFileAtomically(const std::string &path, const std::vector<uint8_t> &bytes);

}  // namespace tz3cli
