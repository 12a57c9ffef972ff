// The X11 CLIPBOARD selection through xclip.
//
// xclip is started without a shell (posix_spawnp), with its standard streams on pipes or
// /dev/null, and always waited for, also after a timeout (then it is killed first). `xclip -i`
// reads the data, starts a copy of itself that owns the selection until another program takes it,
// and exits; that copy is no child of ours, and it keeps no descriptor of this process open. Because it may take the selection a moment after the
// first one exits, a store or an empty is only reported done once the selection's targets show it.
#include "platform/clipboard_x11.h"

#include <fcntl.h>
#include <poll.h>
#include <png.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "frame/dib.h"
#include "frame/owners.h"
#include "platform/companion.h"

extern char **environ;

namespace tz3 {
namespace {

constexpr int kRunTimeoutMs = 10000;
constexpr int kSettleTimeoutMs = 3000;
constexpr size_t kFileHeadBytes = 14;

const char *XclipProgram() {
    const char *named = std::getenv("TZ3_XCLIP");
    return named != nullptr && named[0] != '\0' ? named : "xclip";
}

// What a child wrote, in memory from malloc; the platform's blocks are made only for the result.
struct Captured {
    uint8_t *data = nullptr;
    size_t size = 0;
    size_t capacity = 0;
    Captured() = default;
    Captured(const Captured &) = delete;
    Captured &operator=(const Captured &) = delete;
    ~Captured() { std::free(data); }
    bool Append(const uint8_t *bytes, size_t count) {
        if (size + count > kMaxBlockBytes) return false;
        if (size + count > capacity) {
            size_t grown = capacity < 65536 ? 65536 : capacity * 2;
            while (grown < size + count) grown *= 2;
            auto *more = static_cast<uint8_t *>(std::realloc(data, grown));
            if (more == nullptr) return false;
            data = more;
            capacity = grown;
        }
        std::memcpy(data + size, bytes, count);
        size += count;
        return true;
    }
};

long long NowMs() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<long long>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

void CloseFd(int &fd) {
    if (fd >= 0) close(fd);
    fd = -1;
}

// Writing to a pipe whose reader has gone raises SIGPIPE, which would end the caller's process.
// It is held back on this thread while writing, and one that arrived meanwhile is consumed.
class SigpipeGuard {
public:
    SigpipeGuard() {
        sigset_t pipeOnly;
        sigemptyset(&pipeOnly);
        sigaddset(&pipeOnly, SIGPIPE);
        sigset_t pending;
        sigpending(&pending);
        wasPending_ = sigismember(&pending, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &pipeOnly, &old_);
    }
    ~SigpipeGuard() {
        if (!wasPending_) {
            sigset_t pending;
            sigpending(&pending);
            if (sigismember(&pending, SIGPIPE) == 1) {
                sigset_t pipeOnly;
                sigemptyset(&pipeOnly);
                sigaddset(&pipeOnly, SIGPIPE);
                const timespec zero{0, 0};
                sigtimedwait(&pipeOnly, nullptr, &zero);
            }
        }
        pthread_sigmask(SIG_SETMASK, &old_, nullptr);
    }
    SigpipeGuard(const SigpipeGuard &) = delete;
    SigpipeGuard &operator=(const SigpipeGuard &) = delete;

private:
    sigset_t old_{};
    bool wasPending_ = false;
};

// Runs xclip with the arguments (after the program's name), feeding it input when given and
// capturing its output when out is given. True when it ran to a clean exit.
bool RunXclip(const char *const *args, const uint8_t *input, size_t inputSize, Captured *out) {
    const char *argv[12];
    int argc = 0;
    argv[argc++] = XclipProgram();
    for (; args[argc - 1] != nullptr && argc < 11; ++argc) argv[argc] = args[argc - 1];
    argv[argc] = nullptr;

    int inPipe[2] = {-1, -1};
    int outPipe[2] = {-1, -1};
    if (input != nullptr && pipe2(inPipe, O_CLOEXEC) != 0) return false;
    if (out != nullptr && pipe2(outPipe, O_CLOEXEC) != 0) {
        CloseFd(inPipe[0]);
        CloseFd(inPipe[1]);
        return false;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (input != nullptr) {
        posix_spawn_file_actions_adddup2(&actions, inPipe[0], 0);
    } else {
        posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    }
    if (out != nullptr) {
        posix_spawn_file_actions_adddup2(&actions, outPipe[1], 1);
    } else {
        posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    }
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    // xclip leaves a copy of itself running to serve the selection; it must hold none of the
    // caller's descriptors, or a reader of one of the caller's pipes would wait for it for ever.
    posix_spawn_file_actions_addclosefrom_np(&actions, 3);
    pid_t pid = -1;
    const int spawned = posix_spawnp(&pid, argv[0], &actions, nullptr, const_cast<char *const *>(argv), environ);
    posix_spawn_file_actions_destroy(&actions);
    CloseFd(inPipe[0]);
    CloseFd(outPipe[1]);
    if (spawned != 0) {
        CloseFd(inPipe[1]);
        CloseFd(outPipe[0]);
        return false;
    }

    bool ok = true;
    {
        SigpipeGuard guard;
        size_t written = 0;
        if (input != nullptr && inputSize == 0) CloseFd(inPipe[1]);
        const long long deadline = NowMs() + kRunTimeoutMs;
        uint8_t chunk[65536];
        while (inPipe[1] >= 0 || outPipe[0] >= 0) {
            const long long left = deadline - NowMs();
            if (left <= 0) {
                ok = false;
                break;
            }
            pollfd fds[2];
            nfds_t n = 0;
            if (inPipe[1] >= 0) fds[n++] = pollfd{inPipe[1], POLLOUT, 0};
            if (outPipe[0] >= 0) fds[n++] = pollfd{outPipe[0], POLLIN, 0};
            const int ready = poll(fds, n, static_cast<int>(left));
            if (ready < 0) {
                if (errno == EINTR) continue;
                ok = false;
                break;
            }
            for (nfds_t i = 0; i < n; ++i) {
                if (fds[i].revents == 0) continue;
                if (fds[i].fd == inPipe[1]) {
                    const ssize_t w = write(inPipe[1], input + written, inputSize - written);
                    if (w < 0 && errno != EINTR && errno != EAGAIN) {
                        ok = false;
                        CloseFd(inPipe[1]);
                    } else if (w > 0) {
                        written += static_cast<size_t>(w);
                        if (written == inputSize) CloseFd(inPipe[1]);
                    }
                } else {
                    const ssize_t r = read(outPipe[0], chunk, sizeof chunk);
                    if (r == 0 || (r < 0 && errno != EINTR && errno != EAGAIN)) {
                        CloseFd(outPipe[0]);
                    } else if (r > 0 && !out->Append(chunk, static_cast<size_t>(r))) {
                        ok = false;
                        CloseFd(outPipe[0]);
                    }
                }
            }
            if (!ok) break;
        }
    }
    CloseFd(inPipe[1]);
    CloseFd(outPipe[0]);
    if (!ok) kill(pid, SIGKILL);
    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) return false;
    }
    return ok && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

struct Targets {
    bool bmp = false;
    bool png = false;
};

// The targets the selection offers; false when it has no owner or the owner does not answer.
bool ReadTargets(Targets &targets) {
    static const char *const kArgs[] = {"-selection", "clipboard", "-t", "TARGETS", "-o", nullptr};
    Captured list;
    if (!RunXclip(kArgs, nullptr, 0, &list)) return false;
    size_t start = 0;
    for (size_t i = 0; i <= list.size; ++i) {
        if (i == list.size || list.data[i] == '\n') {
            size_t end = i;
            if (end > start && list.data[end - 1] == '\r') --end;
            const auto *line = reinterpret_cast<const char *>(list.data + start);
            const size_t length = end - start;
            if (length == 9 && std::memcmp(line, "image/bmp", 9) == 0) targets.bmp = true;
            if (length == 9 && std::memcmp(line, "image/png", 9) == 0) targets.png = true;
            start = i + 1;
        }
    }
    return true;
}

// Waits until the selection offers an image (or no longer does).
bool SettleOn(bool offersImage) {
    const long long deadline = NowMs() + kSettleTimeoutMs;
    for (;;) {
        Targets targets;
        const bool answered = ReadTargets(targets);
        const bool image = targets.bmp || targets.png;
        if ((answered || !offersImage) && image == offersImage) return true;
        if (NowMs() >= deadline) return false;
        const timespec pause{0, 10 * 1000 * 1000};
        nanosleep(&pause, nullptr);
    }
}

DibHandle BlockOf(const uint8_t *bytes, size_t size) {
    if (size == 0 || size > kMaxBlockBytes) return nullptr;
    OwnedBlock block(Tz3GlobalAlloc(TZ3_GMEM_MOVEABLE | TZ3_GMEM_ZEROINIT, size));
    if (!block) return nullptr;
    std::memcpy(block.bytes(), bytes, size);
    return block.Release();
}

// A bitmap file: its packed bitmap is everything after the 14-byte file head.
DibHandle DibFromBmpFile(const Captured &file) {
    if (file.size <= kFileHeadBytes || file.data[0] != 'B' || file.data[1] != 'M') return nullptr;
    return BlockOf(file.data + kFileHeadBytes, file.size - kFileHeadBytes);
}

// libpng's reading state, released on every way out (freeing it twice is harmless).
struct PngReading {
    png_image image;
    PngReading() {
        std::memset(&image, 0, sizeof image);
        image.version = PNG_IMAGE_VERSION;
    }
    PngReading(const PngReading &) = delete;
    PngReading &operator=(const PngReading &) = delete;
    ~PngReading() { png_image_free(&image); }
};

// A PNG image as a 24-bit packed bitmap; transparency is laid over black.
DibHandle DibFromPng(const Captured &file) {
    PngReading png;
    png_image &image = png.image;
    if (png_image_begin_read_from_memory(&image, file.data, file.size) == 0) return nullptr;
    image.format = PNG_FORMAT_BGR;
    const uint64_t width = image.width;
    const uint64_t height = image.height;
    if (width == 0 || height == 0 || width * 24 > INT32_MAX || height > INT32_MAX) return nullptr;
    const auto stride = static_cast<uint64_t>(DibRowBytes(24, static_cast<int32_t>(width)));
    const uint64_t total = kHeaderBytes + stride * height;
    if (total > kMaxBlockBytes) return nullptr;
    OwnedBlock block(Tz3GlobalAlloc(TZ3_GMEM_MOVEABLE | TZ3_GMEM_ZEROINIT, static_cast<size_t>(total)));
    if (!block) return nullptr;
    uint8_t *dib = block.bytes();
    WriteU32(dib, kHeaderBytes);
    WriteU32(dib + kWidthOffset, static_cast<uint32_t>(width));
    WriteU32(dib + kHeightOffset, static_cast<uint32_t>(height));
    WriteU16(dib + kPlanesOffset, 1);
    WriteU16(dib + kBitCountOffset, 24);
    WriteU32(dib + kSizeImageOffset, static_cast<uint32_t>(stride * height));
    // A negative stride asks for the bottom row first, as packed bitmaps lie.
    if (png_image_finish_read(&image, nullptr, dib + kHeaderBytes, -static_cast<png_int_32>(stride), nullptr) == 0)
        return nullptr;
    return block.Release();
}

}  // namespace

bool XclipAvailable() {
    const char *program = XclipProgram();
    if (std::strchr(program, '/') != nullptr) return access(program, X_OK) == 0;
    const char *path = std::getenv("PATH");
    if (path == nullptr) path = "/usr/bin:/bin";
    char candidate[4096];
    while (*path != '\0') {
        const char *colon = std::strchr(path, ':');
        const size_t length = colon != nullptr ? static_cast<size_t>(colon - path) : std::strlen(path);
        const int n = std::snprintf(candidate, sizeof candidate, "%.*s/%s", static_cast<int>(length), path, program);
        struct stat info {};
        if (n > 0 && static_cast<size_t>(n) < sizeof candidate && stat(candidate, &info) == 0 &&
            S_ISREG(info.st_mode) && access(candidate, X_OK) == 0) {
            return true;
        }
        if (colon == nullptr) break;
        path = colon + 1;
    }
    return false;
}

bool XclipEmpty() {
    static const char *const kArgs[] = {"-selection", "clipboard", "-t", "text/plain", "-i", nullptr};
    static const uint8_t kNothing[1] = {0};
    if (!RunXclip(kArgs, kNothing, 0, nullptr)) return false;
    return SettleOn(false);
}

DibHandle XclipFetchDib() {
    Targets targets;
    if (!ReadTargets(targets)) return nullptr;
    if (targets.bmp) {
        static const char *const kArgs[] = {"-selection", "clipboard", "-t", "image/bmp", "-o", nullptr};
        Captured file;
        if (!RunXclip(kArgs, nullptr, 0, &file)) return nullptr;
        return DibFromBmpFile(file);
    }
    if (targets.png) {
        static const char *const kArgs[] = {"-selection", "clipboard", "-t", "image/png", "-o", nullptr};
        Captured file;
        if (!RunXclip(kArgs, nullptr, 0, &file)) return nullptr;
        return DibFromPng(file);
    }
    return nullptr;
}

bool XclipStoreDib(const uint8_t *dib, size_t bytes) {
    if (bytes < kHeaderBytes || bytes + kFileHeadBytes > kMaxBlockBytes) return false;
    Captured file;
    uint8_t head[kFileHeadBytes] = {'B', 'M'};
    const uint64_t offBits = kFileHeadBytes + static_cast<uint64_t>(ReadU32(dib)) + 4ull * DibNumColors(dib);
    WriteU32(head + 2, static_cast<uint32_t>(bytes + kFileHeadBytes));
    WriteU32(head + 10, static_cast<uint32_t>(offBits < bytes + kFileHeadBytes ? offBits : bytes + kFileHeadBytes));
    if (!file.Append(head, sizeof head) || !file.Append(dib, bytes)) return false;
    static const char *const kArgs[] = {"-selection", "clipboard", "-t", "image/bmp", "-i", nullptr};
    if (!RunXclip(kArgs, file.data, file.size, nullptr)) return false;
    return SettleOn(true);
}

}  // namespace tz3
