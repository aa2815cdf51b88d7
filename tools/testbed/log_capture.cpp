// SPDX-License-Identifier: GPL-2.0-or-later
#include "testbed/log_capture.hpp"

#include "testbed/wait.hpp"

#include <util/base.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <limits>

namespace corvane::test {

namespace {

constexpr std::string_view kTag = "[corvane-obs-vertical] ";
constexpr std::string_view kWidgetTag = "[corvane] ";
constexpr size_t kTailLines = 60;

char level_letter(int level) {
    if (level <= LOG_ERROR) {
        return 'E';
    }
    return level <= LOG_WARNING ? 'W' : level <= LOG_INFO ? 'I' : 'D';
}

} // namespace

LogCapture &LogCapture::get() {
    static LogCapture capture;
    return capture;
}

LogCapture::LogCapture() {
    base_set_log_handler(on_line, this);
}

LogCapture::~LogCapture() {
    base_set_log_handler(nullptr, nullptr);
}

void LogCapture::on_line(int level, const char *format, va_list arguments, void *self) {
    char buffer[4096];
    vsnprintf(buffer, sizeof(buffer), format, arguments);
    const std::string_view text = buffer;
    const std::string letter{level_letter(level), ' '};
    const bool of_module = text.starts_with(kTag);
    const std::string line = letter + std::string(text.substr(of_module ? kTag.size() : 0));

    auto *capture = static_cast<LogCapture *>(self);
    std::unique_lock lock(capture->mutex_);
    capture->all_lines_.push_back(line);
    if (of_module || text.starts_with(kWidgetTag)) {
        capture->module_lines_.push_back(line);
        if (const auto hook = capture->hook_) {
            lock.unlock();
            hook(line);
        }
    }
}

void LogCapture::at_each_line(std::function<void(const std::string &)> hook) {
    const std::scoped_lock lock(mutex_);
    hook_ = std::move(hook);
}

Lines LogCapture::take() {
    const std::scoped_lock lock(mutex_);
    return std::exchange(module_lines_, {});
}

std::string LogCapture::take_first() {
    const Lines lines = take();
    return lines.empty() ? std::string() : lines.front();
}

std::string LogCapture::take_last() {
    const Lines lines = take();
    return lines.empty() ? std::string() : lines.back();
}

Lines LogCapture::matching(std::string_view text) const {
    const std::scoped_lock lock(mutex_);
    Lines found;
    std::ranges::copy_if(module_lines_, std::back_inserter(found),
        [&](const std::string &line) { return line.find(text) != std::string::npos; });
    return found;
}

bool LogCapture::wait_for(std::string_view text) const {
    return wait_until([&] { return has(text); });
}

std::string LogCapture::whole() const {
    return last_lines(std::numeric_limits<size_t>::max());
}

void LogCapture::restart() {
    const std::scoped_lock lock(mutex_);
    module_lines_.clear();
    all_lines_.clear();
}

std::string LogCapture::tail() const {
    return last_lines(kTailLines);
}

std::string LogCapture::last_lines(size_t count) const {
    const std::scoped_lock lock(mutex_);
    std::string text;
    for (size_t i = all_lines_.size() - std::min(count, all_lines_.size()); i < all_lines_.size();
        ++i) {
        text += all_lines_[i] + '\n';
    }
    return text;
}

} // namespace corvane::test
