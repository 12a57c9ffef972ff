#include "support/xvfb_display.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

extern char **environ;

namespace tz3test {

XvfbDisplay::XvfbDisplay() {
    const char *old = std::getenv("DISPLAY");
    hadDisplay_ = old != nullptr;
    if (old != nullptr) oldDisplay_ = old;
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) {
        why_ = "no pipe";
        return;
    }
    // The server writes the number of the display it took to fd 3, once it accepts clients.
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fds[1], 3);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addclosefrom_np(&actions, 4);
    const char *argv[] = {"Xvfb", "-displayfd", "3", "-nolisten", "tcp", "-screen", "0", "64x64x24", nullptr};
    pid_t pid = -1;
    const int spawned = posix_spawnp(&pid, "Xvfb", &actions, nullptr, const_cast<char *const *>(argv), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(fds[1]);
    if (spawned != 0) {
        close(fds[0]);
        why_ = std::string("Xvfb could not be started: ") + std::strerror(spawned);
        return;
    }
    std::string number;
    timespec start{};
    clock_gettime(CLOCK_MONOTONIC, &start);
    for (;;) {
        timespec now{};
        clock_gettime(CLOCK_MONOTONIC, &now);
        const long elapsed = (now.tv_sec - start.tv_sec) * 1000 + (now.tv_nsec - start.tv_nsec) / 1000000;
        if (elapsed > 10000) break;
        pollfd p{fds[0], POLLIN, 0};
        const int ready = poll(&p, 1, static_cast<int>(10000 - elapsed));
        if (ready < 0 && errno == EINTR) continue;
        if (ready <= 0) break;
        char c = 0;
        const ssize_t r = read(fds[0], &c, 1);
        if (r <= 0 || c == '\n') break;
        number += c;
    }
    close(fds[0]);
    if (number.empty()) {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
        why_ = "Xvfb did not report a display within 10 s";
        return;
    }
    pid_ = pid;
    setenv("DISPLAY", (":" + number).c_str(), 1);
}

XvfbDisplay::~XvfbDisplay() {
    if (pid_ > 0) {
        kill(pid_, SIGTERM);
        waitpid(pid_, nullptr, 0);
    }
    if (hadDisplay_) {
        setenv("DISPLAY", oldDisplay_.c_str(), 1);
    } else {
        unsetenv("DISPLAY");
    }
}

}  // namespace tz3test
