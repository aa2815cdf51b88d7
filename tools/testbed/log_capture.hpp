// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdarg>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace corvane::test {

using Lines = std::vector<std::string>;

// Keeps what is written to the host's log. The module's own lines are kept without their tag
// and with a letter for their level (E, W, I, D), as in "W Scene already exists: Intro"; those of
// its widgets keep their own tag.
class LogCapture {
public:
    static LogCapture &get();

    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    // The module's lines since the last take() or clear().
    Lines take();
    void clear() { take(); }
    // The first or the last of them, which all are taken; empty without any.
    std::string take_first();
    std::string take_last();

    // Those of them that contain the text; they stay.
    Lines matching(std::string_view text) const;
    bool has(std::string_view text) const { return !matching(text).empty(); }
    // False when no such line came in time.
    bool wait_for(std::string_view text) const;

    // Runs the function at each of the module's lines, on the thread and at the moment it is
    // written; an empty one ends that. For tests with a single thread that writes.
    void at_each_line(std::function<void(const std::string &)> hook);

    // All lines of the host's log, of whatever part, since the last restart().
    std::string whole() const;
    void restart();

    // The last of them, for a failed test's report.
    std::string tail() const;

private:
    std::string last_lines(size_t count) const;
    static void on_line(int level, const char *format, va_list arguments, void *self);

    mutable std::mutex mutex_;
    // Guarded by mutex_.
    Lines module_lines_;
    Lines all_lines_;
    std::function<void(const std::string &)> hook_;
};

} // namespace corvane::test
