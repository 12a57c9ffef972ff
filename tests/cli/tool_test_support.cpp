#include "tool_test_support.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <random>

namespace tz3clitest {
namespace {

void RemoveTree(const std::string &path) {
    DIR *dir = opendir(path.c_str());
    if (dir != nullptr) {
        while (dirent *entry = readdir(dir)) {
            const std::string name = entry->d_name;
            if (name == "." || name == "..") continue;
            const std::string child = path + "/" + name;
            struct stat st;
            if (lstat(child.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
                RemoveTree(child);
            } else {
                unlink(child.c_str());
            }
        }
        closedir(dir);
    }
    rmdir(path.c_str());
}

// Child side of a run: stdout and stderr onto the given descriptors, then exec the tool.
[[noreturn]] void ExecTool(const std::vector<std::string> &args, const std::vector<std::string> &env,
                           int outFd, int errFd) {
    dup2(outFd, STDOUT_FILENO);
    dup2(errFd, STDERR_FILENO);
    unsetenv("TZ3_CANCEL_AFTER");
    for (const std::string &entry : env) {
        const size_t eq = entry.find('=');
        setenv(entry.substr(0, eq).c_str(), entry.substr(eq + 1).c_str(), 1);
    }
    std::vector<char *> argv;
    std::string tool = TZ3_TOOL_PATH;
    argv.push_back(tool.data());
    std::vector<std::string> copies(args);
    for (std::string &arg : copies) argv.push_back(arg.data());
    argv.push_back(nullptr);
    execv(tool.c_str(), argv.data());
    _exit(127);
}

// Reads the descriptors until both are closed (or fail, as a pseudo-terminal does at hang-up).
void DrainBoth(int outFd, int errFd, std::string &out, std::string &err) {
    pollfd fds[2] = {{outFd, POLLIN, 0}, {errFd, POLLIN, 0}};
    std::string *sinks[2] = {&out, &err};
    int open = 2;
    while (open > 0) {
        if (poll(fds, 2, -1) < 0) {
            if (errno == EINTR) continue;
            break;
        }
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || fds[i].revents == 0) continue;
            char buffer[4096];
            const ssize_t n = read(fds[i].fd, buffer, sizeof buffer);
            if (n > 0) {
                sinks[i]->append(buffer, static_cast<size_t>(n));
            } else if (n == 0 || errno != EINTR) {
                fds[i].fd = -1;
                --open;
            }
        }
    }
}

int WaitExit(pid_t pid) {
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
    return -1;
}

}  // namespace

ToolRun RunTool(const std::vector<std::string> &args, const std::vector<std::string> &env) {
    int outPipe[2], errPipe[2];
    if (pipe(outPipe) != 0 || pipe(errPipe) != 0) {
        ADD_FAILURE() << "pipe failed";
        return {};
    }
    const pid_t pid = fork();
    if (pid == 0) {
        close(outPipe[0]);
        close(errPipe[0]);
        ExecTool(args, env, outPipe[1], errPipe[1]);
    }
    close(outPipe[1]);
    close(errPipe[1]);
    ToolRun run;
    DrainBoth(outPipe[0], errPipe[0], run.out, run.err);
    close(outPipe[0]);
    close(errPipe[0]);
    run.exitCode = WaitExit(pid);
    return run;
}

ToolRun RunToolOnTerminal(const std::vector<std::string> &args) {
    const int master = posix_openpt(O_RDWR | O_NOCTTY);
    if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0) {
        if (master >= 0) close(master);
        return ToolRun{kNoTerminal, "", ""};
    }
    const std::string slaveName = ptsname(master);
    int outPipe[2];
    if (pipe(outPipe) != 0) {
        ADD_FAILURE() << "pipe failed";
        return {};
    }
    const pid_t pid = fork();
    if (pid == 0) {
        close(master);
        close(outPipe[0]);
        const int slave = open(slaveName.c_str(), O_RDWR | O_NOCTTY);
        ExecTool(args, {}, outPipe[1], slave);
    }
    close(outPipe[1]);
    ToolRun run;
    DrainBoth(outPipe[0], master, run.out, run.err);
    close(outPipe[0]);
    close(master);
    run.exitCode = WaitExit(pid);
    return run;
}

int LineCount(const std::string &text) {
    int lines = static_cast<int>(std::count(text.begin(), text.end(), '\n'));
    if (!text.empty() && text.back() != '\n') ++lines;
    return lines;
}

void ToolTest::SetUp() {
    const char *base = std::getenv("TMPDIR");
    std::string pattern = std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/tz3cli.XXXXXX";
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    dir_ = pattern;
}

void ToolTest::TearDown() {
    if (!dir_.empty()) RemoveTree(dir_);
}

std::vector<std::string> ToolTest::Entries() const {
    std::vector<std::string> names;
    DIR *dir = opendir(dir_.c_str());
    if (dir == nullptr) return names;
    while (dirent *entry = readdir(dir)) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") names.push_back(name);
    }
    closedir(dir);
    std::sort(names.begin(), names.end());
    return names;
}

void ToolTest::ExpectFailure(const ToolRun &run, int exitCode, const std::string &needle) const {
    EXPECT_EQ(run.exitCode, exitCode) << run.err;
    EXPECT_EQ(LineCount(run.err), 1) << run.err;
    EXPECT_EQ(run.err.rfind("tz3: ", 0), 0u) << run.err;
    EXPECT_NE(run.err.find(needle), std::string::npos) << "expected '" << needle << "' in: " << run.err;
}

Bytes ReadFile(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

void WriteFile(const std::string &path, const Bytes &bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

bool FileExists(const std::string &path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

uint32_t Rd32(const uint8_t *p) {
    return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
           static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[3]) << 24;
}
uint16_t Rd16(const uint8_t *p) {
    return static_cast<uint16_t>(p[0] | p[1] << 8);
}
void Wr32(uint8_t *p, uint32_t v) {
    for (int i = 0; i < 4; ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
}
void Wr16(uint8_t *p, uint16_t v) {
    p[0] = static_cast<uint8_t>(v);
    p[1] = static_cast<uint8_t>(v >> 8);
}
uint32_t Stride(int bitCount, int width) {
    return static_cast<uint32_t>((static_cast<uint64_t>(bitCount) * static_cast<uint64_t>(width) + 31) / 32 *
                                 4);
}

Bytes MakeDib(int width, int height, int bitCount, uint32_t clrUsed, bool is565) {
    uint32_t entries = clrUsed != 0 ? clrUsed : bitCount <= 8 ? (1u << bitCount) : 0;
    if (is565) entries = 3;
    const uint32_t stride = Stride(bitCount, width);
    Bytes dib(40 + 4 * entries + static_cast<size_t>(stride) * static_cast<size_t>(height), 0);
    Wr32(&dib[0], 40);
    Wr32(&dib[4], static_cast<uint32_t>(width));
    Wr32(&dib[8], static_cast<uint32_t>(height));
    Wr16(&dib[12], 1);
    Wr16(&dib[14], static_cast<uint16_t>(bitCount));
    Wr32(&dib[16], is565 ? 3 : 0);
    Wr32(&dib[20], stride * static_cast<uint32_t>(height));
    Wr32(&dib[32], is565 ? 3 : clrUsed);
    if (is565) {
        Wr32(&dib[40], 0xF800);
        Wr32(&dib[44], 0x07E0);
        Wr32(&dib[48], 0x001F);
    }
    return dib;
}

uint32_t TableEntries(const Bytes &dib) {
    const uint32_t used = Rd32(&dib[32]);
    const uint16_t bits = Rd16(&dib[14]);
    return used != 0 ? used : bits <= 8 ? (1u << bits) : 0;
}

size_t PixelOffset(const Bytes &dib) {
    return 40 + 4 * static_cast<size_t>(TableEntries(dib));
}

Bytes RandomDib(uint32_t seed, int width, int height, int bitCount, uint32_t clrUsed, bool is565) {
    std::mt19937 rng(seed);
    auto biased = [&rng]() {
        const uint32_t r = rng() % 8;
        return static_cast<uint8_t>(r == 0 ? 0 : r == 1 ? 255 : rng() & 0xFF);
    };
    Bytes dib = MakeDib(width, height, bitCount, clrUsed, is565);
    const uint32_t entries = TableEntries(dib);
    if (bitCount <= 8) {
        for (uint32_t i = 0; i < 4 * entries; ++i) dib[40 + i] = biased();
    }
    const size_t offset = PixelOffset(dib);
    const uint32_t stride = Stride(bitCount, width);
    for (int y = 0; y < height; ++y) {
        uint8_t *row = &dib[offset + static_cast<size_t>(stride) * static_cast<size_t>(y)];
        const uint32_t used = (static_cast<uint32_t>(bitCount) * static_cast<uint32_t>(width) + 7) / 8;
        for (uint32_t i = 0; i < used; ++i) row[i] = biased();
        // Bits past the last pixel stay clear, as every writer leaves them.
        const uint32_t spareBits = used * 8 - static_cast<uint32_t>(bitCount) * static_cast<uint32_t>(width);
        row[used - 1] = static_cast<uint8_t>(row[used - 1] & (0xFF << spareBits));
        if (bitCount == 8) {
            for (uint32_t i = 0; i < used; ++i) row[i] = static_cast<uint8_t>(row[i] % entries);
        }
    }
    return dib;
}

DibHandle NewBlock(const Bytes &bytes) {
    DibHandle h = Tz3GlobalAlloc(TZ3_GMEM_MOVEABLE | TZ3_GMEM_ZEROINIT, bytes.size());
    auto *p = static_cast<uint8_t *>(Tz3GlobalLock(h));
    std::memcpy(p, bytes.data(), bytes.size());
    Tz3GlobalUnlock(h);
    return h;
}

Bytes Block::ToBytes() const {
    if (h == nullptr) return {};
    const auto *p = static_cast<const uint8_t *>(Tz3GlobalLock(h));
    Bytes bytes(p, p + Tz3GlobalSize(h));
    Tz3GlobalUnlock(h);
    return bytes;
}

Bytes BuildBmp(const BmpParts &parts) {
    const bool masksAfter = parts.headerSize == 40 && !parts.masks.empty();
    const size_t offBits =
        14 + parts.headerSize + (masksAfter ? 4 * parts.masks.size() : 0) + parts.table.size();
    Bytes file(offBits + parts.pixels.size(), 0);
    file[0] = 'B';
    file[1] = 'M';
    Wr32(&file[2], static_cast<uint32_t>(file.size()));
    Wr32(&file[10], static_cast<uint32_t>(offBits));
    uint8_t *h = &file[14];
    Wr32(h, parts.headerSize);
    Wr32(h + 4, static_cast<uint32_t>(parts.width));
    Wr32(h + 8, static_cast<uint32_t>(parts.height));
    Wr16(h + 12, 1);
    Wr16(h + 14, parts.bitCount);
    Wr32(h + 16, parts.compression);
    Wr32(h + 20, static_cast<uint32_t>(parts.pixels.size()));
    Wr32(h + 32, parts.clrUsed);
    size_t pos = 14 + 40;
    for (uint32_t mask : parts.masks) {
        Wr32(&file[pos], mask);
        pos += 4;
    }
    pos = 14 + parts.headerSize + (masksAfter ? 4 * parts.masks.size() : 0);
    std::copy(parts.table.begin(), parts.table.end(), file.begin() + static_cast<std::ptrdiff_t>(pos));
    std::copy(parts.pixels.begin(), parts.pixels.end(), file.begin() + static_cast<std::ptrdiff_t>(offBits));
    return file;
}

Bytes BmpFromDib(const Bytes &dib) {
    BmpParts parts;
    parts.width = static_cast<int32_t>(Rd32(&dib[4]));
    parts.height = static_cast<int32_t>(Rd32(&dib[8]));
    parts.bitCount = Rd16(&dib[14]);
    parts.compression = Rd32(&dib[16]);
    const size_t offset = PixelOffset(dib);
    if (parts.compression == 3) {
        for (int i = 0; i < 3; ++i) parts.masks.push_back(Rd32(&dib[40 + 4 * static_cast<size_t>(i)]));
    } else {
        parts.clrUsed = Rd32(&dib[32]);
        parts.table.assign(dib.begin() + 40, dib.begin() + static_cast<std::ptrdiff_t>(offset));
    }
    parts.pixels.assign(dib.begin() + static_cast<std::ptrdiff_t>(offset), dib.end());
    return BuildBmp(parts);
}

Bytes DibFromBmp(const Bytes &file) {
    EXPECT_GE(file.size(), 54u);
    if (file.size() < 54) return {};
    EXPECT_EQ(file[0], 'B');
    EXPECT_EQ(file[1], 'M');
    EXPECT_EQ(Rd32(&file[2]), file.size());
    EXPECT_EQ(Rd32(&file[14]), 40u);
    const uint32_t offBits = Rd32(&file[10]);
    const uint32_t compression = Rd32(&file[30]);
    Bytes dib(file.begin() + 14, file.begin() + 54);
    if (compression == 3) {
        EXPECT_EQ(Rd32(&file[46]), 0u) << "a bit-field file keeps biClrUsed 0";
        EXPECT_EQ(offBits, 66u);
        Wr32(&dib[32], 3);
        dib.insert(dib.end(), file.begin() + 54, file.begin() + 66);
    } else {
        dib.insert(dib.end(), file.begin() + 54, file.begin() + offBits);
    }
    EXPECT_EQ(dib.size() + 14, offBits);
    dib.insert(dib.end(), file.begin() + offBits, file.end());
    return dib;
}

namespace {

// A 32-bit block's pixels stored under other one-byte masks; the byte no mask names takes the
// fourth byte.
Bytes Reorder32(const Bytes &dib, uint32_t redShift, uint32_t greenShift, uint32_t blueShift) {
    const uint32_t spareShift = 48 - redShift - greenShift - blueShift;
    Bytes pixels(dib.begin() + static_cast<std::ptrdiff_t>(PixelOffset(dib)), dib.end());
    for (size_t i = 0; i + 3 < pixels.size(); i += 4) {
        const uint32_t v = static_cast<uint32_t>(pixels[i]) << blueShift |
                           static_cast<uint32_t>(pixels[i + 1]) << greenShift |
                           static_cast<uint32_t>(pixels[i + 2]) << redShift |
                           static_cast<uint32_t>(pixels[i + 3]) << spareShift;
        Wr32(&pixels[i], v);
    }
    return pixels;
}

std::string InfoLine(int width, int height, const std::string &rest) {
    return std::to_string(width) + " x " + std::to_string(height) + ", " + rest;
}

}  // namespace

std::vector<BmpVariant> EveryBmpVariant(int width, int height, uint32_t seed) {
    std::vector<BmpVariant> variants;
    auto plain = [&](const std::string &name, const Bytes &dib, const std::string &info) {
        variants.push_back({name, BmpFromDib(dib), dib, InfoLine(width, height, info)});
    };
    plain("1bit", RandomDib(seed, width, height, 1), "1 bits, 2 colours, compression 0");
    plain("4bit", RandomDib(seed + 1, width, height, 4), "4 bits, 16 colours, compression 0");
    plain("4bitShortTable", RandomDib(seed + 2, width, height, 4, 5), "4 bits, 5 colours, compression 0");
    plain("8bit", RandomDib(seed + 3, width, height, 8), "8 bits, 256 colours, compression 0");
    plain("8bitShortTable", RandomDib(seed + 4, width, height, 8, 100), "8 bits, 100 colours, compression 0");
    plain("16bit555", RandomDib(seed + 5, width, height, 16), "16 bits (555), 0 colours, compression 0");
    plain("16bit565", RandomDib(seed + 6, width, height, 16, 0, true),
          "16 bits (565), 0 colours, compression 3");
    plain("24bit", RandomDib(seed + 7, width, height, 24), "24 bits, 0 colours, compression 0");
    plain("32bit", RandomDib(seed + 8, width, height, 32), "32 bits, 0 colours, compression 0");

    const Bytes dib555 = RandomDib(seed + 9, width, height, 16);
    BmpParts parts;
    parts.width = width;
    parts.height = height;
    parts.bitCount = 16;
    parts.compression = 3;
    parts.masks = {0x7C00, 0x03E0, 0x001F};
    parts.pixels.assign(dib555.begin() + 40, dib555.end());
    variants.push_back({"16bit555Bitfields", BuildBmp(parts), dib555,
                        InfoLine(width, height, "16 bits (555), 0 colours, compression 3")});

    const Bytes dib32 = RandomDib(seed + 10, width, height, 32);
    parts.bitCount = 32;
    parts.masks = {0x000000FF, 0x0000FF00, 0x00FF0000};
    parts.pixels = Reorder32(dib32, 0, 8, 16);
    variants.push_back({"32bitBitfieldsRgbx", BuildBmp(parts), dib32,
                        InfoLine(width, height, "32 bits, 0 colours, compression 3")});
    parts.masks = {0xFF000000, 0x00FF0000, 0x0000FF00};
    parts.pixels = Reorder32(dib32, 24, 16, 8);
    variants.push_back({"32bitBitfieldsXbgr", BuildBmp(parts), dib32,
                        InfoLine(width, height, "32 bits, 0 colours, compression 3")});
    return variants;
}

Bytes TopDownTwin(const Bytes &bottomUpFile) {
    Bytes file = bottomUpFile;
    const int32_t width = static_cast<int32_t>(Rd32(&file[18]));
    const int32_t height = static_cast<int32_t>(Rd32(&file[22]));
    const uint32_t offBits = Rd32(&file[10]);
    const uint32_t stride = Stride(Rd16(&file[28]), width);
    Wr32(&file[22], static_cast<uint32_t>(-height));
    for (int32_t y = 0; y < height; ++y) {
        const size_t from = offBits + static_cast<size_t>(stride) * static_cast<size_t>(y);
        const size_t to = offBits + static_cast<size_t>(stride) * static_cast<size_t>(height - 1 - y);
        std::copy(bottomUpFile.begin() + static_cast<std::ptrdiff_t>(from),
                  bottomUpFile.begin() + static_cast<std::ptrdiff_t>(from + stride),
                  file.begin() + static_cast<std::ptrdiff_t>(to));
    }
    return file;
}

// ---- PNG ----

namespace {

[[noreturn]] void PngFail(png_structp png, png_const_charp message) {
    ADD_FAILURE() << "libpng: " << message;
    png_longjmp(png, 1);
}

// The setjmp functions hold no object with a destructor of their own; what they fill belongs to
// the caller.
bool WritePngInner(FILE *f, const PngPicture *picture, png_bytep *rows) {
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, PngFail, nullptr);
    png_infop info = png_create_info_struct(png);
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        return false;
    }
    png_init_io(png, f);
    png_set_IHDR(png, info, picture->width, picture->height, picture->depth, picture->colourType,
                 picture->interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    if (!picture->palette.empty()) {
        png_set_PLTE(png, info, picture->palette.data(), static_cast<int>(picture->palette.size()));
    }
    if (!picture->trnsAlpha.empty()) {
        png_set_tRNS(png, info, picture->trnsAlpha.data(), static_cast<int>(picture->trnsAlpha.size()),
                     nullptr);
    }
    if (picture->hasTrnsColour) png_set_tRNS(png, info, nullptr, 0, &picture->trnsColour);
    png_write_info(png, info);
    png_write_image(png, rows);
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    return true;
}

bool ReadPngInner(FILE *f, bool toRgba, PngPicture *picture, std::vector<png_bytep> *rows, Bytes *rgba) {
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, PngFail, nullptr);
    png_infop info = png_create_info_struct(png);
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_read_struct(&png, &info, nullptr);
        return false;
    }
    png_init_io(png, f);
    png_read_info(png, info);
    picture->width = png_get_image_width(png, info);
    picture->height = png_get_image_height(png, info);
    picture->colourType = png_get_color_type(png, info);
    picture->depth = png_get_bit_depth(png, info);
    png_colorp plte = nullptr;
    int n = 0;
    if (png_get_PLTE(png, info, &plte, &n) != 0) picture->palette.assign(plte, plte + n);
    png_bytep alpha = nullptr;
    png_color_16p colour = nullptr;
    if (png_get_tRNS(png, info, &alpha, &n, &colour) != 0) {
        if (alpha != nullptr) picture->trnsAlpha.assign(alpha, alpha + n);
        if (colour != nullptr) {
            picture->trnsColour = *colour;
            picture->hasTrnsColour = picture->colourType != PNG_COLOR_TYPE_PALETTE;
        }
    }
    if (toRgba) {
        png_set_expand(png);
        png_set_strip_16(png);
        png_set_gray_to_rgb(png);
        png_set_add_alpha(png, 0xFF, PNG_FILLER_AFTER);
    }
    png_set_interlace_handling(png);
    png_read_update_info(png, info);
    const size_t rowBytes = png_get_rowbytes(png, info);
    picture->rows.assign(picture->height, Bytes(rowBytes));
    rows->resize(picture->height);
    for (uint32_t y = 0; y < picture->height; ++y) (*rows)[y] = picture->rows[y].data();
    png_read_image(png, rows->data());
    if (toRgba) {
        for (const Bytes &row : picture->rows) rgba->insert(rgba->end(), row.begin(), row.end());
    }
    png_destroy_read_struct(&png, &info, nullptr);
    return true;
}

}  // namespace

void WritePng(const std::string &path, const PngPicture &picture) {
    FILE *f = std::fopen(path.c_str(), "wb");
    ASSERT_NE(f, nullptr);
    std::vector<png_bytep> rows;
    std::vector<Bytes> copies = picture.rows;
    for (Bytes &row : copies) rows.push_back(row.data());
    EXPECT_TRUE(WritePngInner(f, &picture, rows.data()));
    std::fclose(f);
}

PngPicture ReadPng(const std::string &path) {
    PngPicture picture;
    FILE *f = std::fopen(path.c_str(), "rb");
    EXPECT_NE(f, nullptr) << path;
    if (f == nullptr) return picture;
    std::vector<png_bytep> rows;
    EXPECT_TRUE(ReadPngInner(f, false, &picture, &rows, nullptr));
    std::fclose(f);
    return picture;
}

Bytes PngToRgba(const std::string &path, uint32_t *width, uint32_t *height) {
    PngPicture picture;
    Bytes rgba;
    FILE *f = std::fopen(path.c_str(), "rb");
    EXPECT_NE(f, nullptr) << path;
    if (f == nullptr) return rgba;
    std::vector<png_bytep> rows;
    EXPECT_TRUE(ReadPngInner(f, true, &picture, &rows, &rgba));
    std::fclose(f);
    if (width != nullptr) *width = picture.width;
    if (height != nullptr) *height = picture.height;
    return rgba;
}

}  // namespace tz3clitest
