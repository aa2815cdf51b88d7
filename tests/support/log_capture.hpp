// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "support/wait.hpp"

#include <util/base.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <functional>
#include <iterator>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace corvane::test {

using Lines = std::vector<std::string>;

// Keeps what is written to the host's log. The module's own lines are kept without their tag
// and with a letter for their level (E, W, I, D), as in "W Scene already exists: Intro"; those of
// its widgets keep their own tag.
class LogCapture {
public:
    using Hook = std::function<void(const std::string &)>;

    static LogCapture &get() {
        static LogCapture capture;
        return capture;
    }
    LogCapture() { base_set_log_handler(on_line, this); }
    ~LogCapture() { base_set_log_handler(nullptr, nullptr); }
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    // The module's lines since the last take(), clear() or restart().
    Lines take() {
        const std::scoped_lock lock(mutex_);
        return std::exchange(module_lines_, {});
    }
    void clear() { take(); }

    // Those of them that contain the text; they stay.
    Lines matching(std::string_view text) const {
        const std::scoped_lock lock(mutex_);
        Lines found;
        std::ranges::copy_if(module_lines_, std::back_inserter(found),
            [&](const std::string &line) { return line.find(text) != std::string::npos; });
        return found;
    }
    bool has(std::string_view text) const { return !matching(text).empty(); }
    // False when no such line came in time.
    bool wait_for(std::string_view text) const {
        return wait_until([&] { return has(text); });
    }

    // Runs the function at each of the module's lines, on the thread and at the moment it is
    // written; an empty one ends that. For tests with a single thread that writes.
    void at_each_line(Hook hook) {
        const std::scoped_lock lock(mutex_);
        hook_ = std::move(hook);
    }

    // The host's log, whatever part wrote it, since the last restart().
    std::string whole() const {
        const std::scoped_lock lock(mutex_);
        return whole_;
    }
    void restart() {
        const std::scoped_lock lock(mutex_);
        module_lines_.clear();
        whole_.clear();
    }

private:
    static void on_line(int level, const char *format, va_list arguments, void *self) {
        constexpr std::string_view kTag = "[corvane-obs-vertical] ";
        char buffer[4096];
        vsnprintf(buffer, sizeof(buffer), format, arguments);
        const std::string_view text = buffer;
        const bool of_module = text.starts_with(kTag);
        const int severity = std::clamp(level / LOG_ERROR, 1, 4); // of levels 100, 200, …
        std::string line{" EWID"[severity], ' '};
        line += text.substr(of_module ? kTag.size() : 0);

        auto &capture = *static_cast<LogCapture *>(self);
        std::unique_lock lock(capture.mutex_);
        capture.whole_ += line + '\n';
        if (of_module || text.starts_with("[corvane] ")) {
            capture.module_lines_.push_back(line);
            if (const Hook hook = capture.hook_) {
                lock.unlock();
                hook(line);
            }
        }
    }

    mutable std::mutex mutex_;
    // Guarded by mutex_.
    Lines module_lines_;
    std::string whole_;
    Hook hook_;
};

} // namespace corvane::test
