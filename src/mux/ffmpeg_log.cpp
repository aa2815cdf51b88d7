// SPDX-License-Identifier: GPL-2.0-or-later
#include "mux/ffmpeg_log.hpp"

#include <util/base.h>

extern "C" {
#include <libavutil/log.h>
}

#include <algorithm>
#include <cstdarg>
#include <utility>

namespace corvane {

namespace {

constexpr std::string_view kHidden = "***";
// A line that ends with so much of a secret's beginning does so for no other reason.
constexpr size_t kTellingSize = 4;

// Of the thread's DiscreetLog; null where nothing is hidden.
thread_local const std::vector<std::string> *hidden = nullptr;

int host_level(int level) {
    if (level <= AV_LOG_FATAL) {
        return LOG_ERROR;
    }
    if (level <= AV_LOG_WARNING) {
        return LOG_WARNING;
    }
    return LOG_INFO;
}

// Debug lines hold an address in parts; those about options show values as FFmpeg has decoded them.
bool may_hold_parts(int level, std::string_view format) {
    return level > AV_LOG_INFO || format.starts_with("Query string option") ||
           format.starts_with("Unable to parse");
}

void pass_on(void *context, int level, const char *format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    av_log_default_callback(context, level, format, arguments);
    if (format && level <= AV_LOG_INFO) {
        blogva(LOG_DEBUG, format, again);
    }
    va_end(again);
}

// FFmpeg writes some lines in pieces; a newline ends them. A piece that is too long could end in
// the middle of a secret.
void on_line(void *context, int level, const char *format, va_list arguments) noexcept {
    if (!hidden) {
        pass_on(context, level, format, arguments);
        return;
    }
    if (!format || may_hold_parts(level, format)) {
        return;
    }
    thread_local std::string line;
    thread_local int print_prefix = 1;
    char piece[2048];
    const int length = av_log_format_line2(
        context, level, format, arguments, piece, static_cast<int>(sizeof(piece)), &print_prefix);
    if (std::cmp_less(length, sizeof(piece))) {
        line += piece;
    }
    if (print_prefix == 0) {
        return;
    }
    while (line.ends_with('\n')) {
        line.pop_back();
    }
    if (!line.empty()) {
        blog(host_level(level), "[ffmpeg] %s", hide(line, *hidden).c_str());
    }
    line.clear();
}

// FFmpeg cuts what a server says, maybe in the middle of a secret.
void hide_beginning(std::string &shown, std::string_view secret) {
    for (size_t size = std::min(secret.size(), shown.size()); size >= kTellingSize; --size) {
        if (shown.ends_with(secret.substr(0, size))) {
            shown.replace(shown.size() - size, size, kHidden);
            return;
        }
    }
}

} // namespace

std::string hide(std::string_view text, const std::vector<std::string> &secrets) {
    std::string shown(text);
    for (const std::string &secret : secrets) {
        size_t at = 0;
        while ((at = shown.find(secret, at)) != std::string::npos) {
            shown.replace(at, secret.size(), kHidden);
            at += kHidden.size();
        }
    }
    for (const std::string &secret : secrets) {
        hide_beginning(shown, secret);
    }
    return shown;
}

DiscreetLog::DiscreetLog(const std::vector<std::string> &secrets) {
    hidden = &secrets;
    av_log_set_callback(on_line);
}

DiscreetLog::~DiscreetLog() {
    hidden = nullptr;
}

} // namespace corvane
