#include "progress.h"

#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tz3effect.h"

namespace tz3cli {
namespace {

volatile std::sig_atomic_t g_interrupted = 0;

void OnSigint(int) {
    g_interrupted = 1;
}

struct BarState {
    const char *label = "";
    bool terminal = false;
    bool drawn = false;
    int lastPercent = -1;
    long calls = 0;
    long cancelAfter = 0;  // 0: never raise
};

BarState g_bar;

void DrawBar(int percent) {
    constexpr int kCells = 30;
    char cells[kCells + 1];
    const int filled = percent * kCells / 100;
    for (int i = 0; i < kCells; ++i) cells[i] = i < filled ? '#' : '.';
    cells[kCells] = '\0';
    std::fprintf(stderr, "\r%s [%s] %3d%%", g_bar.label, cells, percent);
    std::fflush(stderr);
    g_bar.drawn = true;
}

int32_t OnProgress(void *, int32_t current, int32_t total, int32_t percentLow, int32_t percentHigh, int32_t) {
    ++g_bar.calls;
    if (g_bar.cancelAfter > 0 && g_bar.calls == g_bar.cancelAfter) std::raise(SIGINT);
    if (g_interrupted != 0) return 0;
    if (g_bar.terminal) {
        const int percent = ProgressPercent(current, total, percentLow, percentHigh);
        if (percent != g_bar.lastPercent) {
            g_bar.lastPercent = percent;
            DrawBar(percent);
        }
    }
    return 1;
}

long CancelAfterFromEnvironment() {
    const char *text = std::getenv("TZ3_CANCEL_AFTER");
    if (text == nullptr || *text == '\0') return 0;
    char *end = nullptr;
    const long n = std::strtol(text, &end, 10);
    return *end == '\0' && n > 0 ? n : 0;
}

}  // namespace

int ProgressPercent(int current, int total, int percentLow, int percentHigh) {
    int64_t percent = percentHigh;
    if (total > 0) {
        percent = percentLow + (static_cast<int64_t>(percentHigh) - percentLow) * current / total;
    }
    return static_cast<int>(percent < 0 ? 0 : percent > 100 ? 100 : percent);
}

ProgressScope::ProgressScope(const char *label) {
    g_bar = BarState{};
    g_bar.label = label;
    g_bar.terminal = isatty(STDERR_FILENO) == 1;
    g_bar.cancelAfter = CancelAfterFromEnvironment();
    struct sigaction action;
    std::memset(&action, 0, sizeof action);
    action.sa_handler = OnSigint;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    Tz3SetProgressHandler(OnProgress, nullptr);
}

ProgressScope::~ProgressScope() {
    Tz3SetProgressHandler(nullptr, nullptr);
    ClearProgressLine();
}

bool CancelRequested() {
    return g_interrupted != 0;
}

void ClearProgressLine() {
    if (!g_bar.drawn) return;
    std::fputs("\r\033[K", stderr);
    std::fflush(stderr);
    g_bar.drawn = false;
}

}  // namespace tz3cli
