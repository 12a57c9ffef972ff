// A private X display for one test: Xvfb started on a display number it picks itself, DISPLAY
// pointed at it for the life of the record, and the server stopped and reaped at its end.
#pragma once

#include <sys/types.h>

#include <string>

namespace tz3test {

class XvfbDisplay {
public:
    XvfbDisplay();
    ~XvfbDisplay();
    XvfbDisplay(const XvfbDisplay &) = delete;
    XvfbDisplay &operator=(const XvfbDisplay &) = delete;
    // False when no server could be started; why() then says what went wrong.
    bool Started() const { return pid_ > 0; }
    const std::string &why() const { return why_; }

private:
    pid_t pid_ = -1;
    std::string why_;
    std::string oldDisplay_;
    bool hadDisplay_ = false;
};

// Skips the test, with the reason, when the display could not be started.
#define TZ3_REQUIRE_DISPLAY(display)                                                          \
    do {                                                                                      \
        if (!(display).Started()) GTEST_SKIP() << "no X display for the test: " << (display).why(); \
    } while (0)

}  // namespace tz3test
