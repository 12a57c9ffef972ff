// Progress and cancellation. While a ProgressScope lives, the library's progress reports draw a bar
// on standard error (only when it is a terminal), and Ctrl-C sets a flag that makes the next report
// answer "cancel", so the running operation stops with status 1 and frees its work.
//
// TZ3_CANCEL_AFTER=N in the environment makes the N-th progress report raise SIGINT itself, so that
// tests go through the same signal path as a user's Ctrl-C.
#pragma once

namespace tz3cli {

class ProgressScope {
  public:
    explicit ProgressScope(const char *label);
    ProgressScope(const ProgressScope &) = delete;
    ProgressScope &operator=(const ProgressScope &) = delete;
    ~ProgressScope();
};

// True once SIGINT has arrived.
bool CancelRequested();

// Erases the bar, if one is drawn, so that a message can take the line.
void ClearProgressLine();

// percentLow + (percentHigh - percentLow) * current / total, within 0..100; a total of 0 or less
// (a one-step stage, or a stage of unknown length) counts as finished.
int ProgressPercent(int current, int total, int percentLow, int percentHigh);

}  // namespace tz3cli
