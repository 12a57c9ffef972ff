// The clipboard a test talks to: the store inside the process (TZ3_CLIPBOARD=memory) or the X11
// selection of the display in DISPLAY, chosen for the life of the record and then put back. The
// store inside the process is emptied at both ends, so that tests do not see each other's data.
#pragma once

#include <cstdlib>
#include <string>

#include "tz3effect.h"

namespace tz3test {

class ClipboardChoice {
public:
    explicit ClipboardChoice(bool memory) {
        const char *old = std::getenv("TZ3_CLIPBOARD");
        had_ = old != nullptr;
        if (had_) old_ = old;
        if (memory) {
            setenv("TZ3_CLIPBOARD", "memory", 1);
            TZ3ClearClipBrd(nullptr);
        } else {
            unsetenv("TZ3_CLIPBOARD");
        }
    }
    ~ClipboardChoice() {
        setenv("TZ3_CLIPBOARD", "memory", 1);
        TZ3ClearClipBrd(nullptr);
        if (had_) {
            setenv("TZ3_CLIPBOARD", old_.c_str(), 1);
        } else {
            unsetenv("TZ3_CLIPBOARD");
        }
    }
    ClipboardChoice(const ClipboardChoice &) = delete;
    ClipboardChoice &operator=(const ClipboardChoice &) = delete;

private:
    bool had_ = false;
    std::string old_;
};

}  // namespace tz3test
