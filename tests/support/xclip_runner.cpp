#include "support/xclip_runner.h"

#include <fcntl.h>
#include <png.h>
#include <spawn.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

extern char **environ;

namespace tz3test {
namespace {

int Run(const char *const *argv, const char *stdinPath, const char *stdoutPath) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, stdinPath, O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, stdoutPath, O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addclosefrom_np(&actions, 3);
    pid_t pid = -1;
    const int spawned = posix_spawnp(&pid, argv[0], &actions, nullptr, const_cast<char *const *>(argv), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) return -1;
    int status = 0;
    if (waitpid(pid, &status, 0) < 0) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

bool OfferOnSelection(const std::string &target, const std::vector<uint8_t> &bytes) {
    char path[] = "/tmp/tz3-xclip-XXXXXX";
    const int fd = mkstemp(path);
    if (fd < 0) return false;
    const bool written = write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
    close(fd);
    const char *in[] = {"xclip", "-selection", "clipboard", "-t", target.c_str(), "-i", nullptr};
    const bool offered = written && Run(in, path, "/dev/null") == 0;
    unlink(path);
    if (!offered) return false;
    char listPath[] = "/tmp/tz3-targets-XXXXXX";
    const int listFd = mkstemp(listPath);
    if (listFd < 0) return false;
    close(listFd);
    bool seen = false;
    for (int attempt = 0; attempt < 300 && !seen; ++attempt) {
        const char *ask[] = {"xclip", "-selection", "clipboard", "-t", "TARGETS", "-o", nullptr};
        if (Run(ask, "/dev/null", listPath) == 0) {
            FILE *list = std::fopen(listPath, "r");
            char line[256];
            while (list != nullptr && std::fgets(line, sizeof line, list) != nullptr) {
                line[std::strcspn(line, "\r\n")] = '\0';
                if (target == line) seen = true;
            }
            if (list != nullptr) std::fclose(list);
        }
        if (!seen) {
            const timespec pause{0, 10 * 1000 * 1000};
            nanosleep(&pause, nullptr);
        }
    }
    unlink(listPath);
    return seen;
}

std::vector<uint8_t> EncodePngRgba(int width, int height, const std::vector<uint8_t> &rgbaTopDown) {
    png_image image;
    std::memset(&image, 0, sizeof image);
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(width);
    image.height = static_cast<png_uint_32>(height);
    image.format = PNG_FORMAT_RGBA;
    png_alloc_size_t size = 0;
    if (png_image_write_to_memory(&image, nullptr, &size, 0, rgbaTopDown.data(), 0, nullptr) == 0) return {};
    std::vector<uint8_t> out(size);
    if (png_image_write_to_memory(&image, out.data(), &size, 0, rgbaTopDown.data(), 0, nullptr) == 0) return {};
    out.resize(size);
    return out;
}

}  // namespace tz3test
