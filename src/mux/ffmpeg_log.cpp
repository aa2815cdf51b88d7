// SPDX-License-Identifier: GPL-2.0-or-later
#include "mux/ffmpeg_log.hpp"

#include <util/base.h>

extern "C" {
#include <libavutil/log.h>
}

#include <cstdarg>
#include <utility>

namespace corvane {

namespace {

constexpr std::string_view kHidden = "***";

// Of the thread's DiscreetLog; null where nothing is hidden.
thread_local const std::vector<std::string> *hidden = nullptr;

int host_level(int level) {
    if (level <= AV_LOG_FATAL) {
        return LOG_ERROR;
    }
    if (level <= AV_LOG_WARNING) {
        return LOG_WARNING;
    }
    return level <= AV_LOG_VERBOSE ? LOG_INFO : LOG_DEBUG;
}

// FFmpeg writes some lines in pieces; a newline ends them.
void on_line(void *context, int level, const char *format, va_list arguments) noexcept {
    if (!format || (hidden && level > AV_LOG_INFO)) {
        return;
    }
    thread_local std::string line;
    thread_local int print_prefix = 1;
    char piece[2048];
    av_log_format_line(
        context, level, format, arguments, piece, static_cast<int>(sizeof(piece)), &print_prefix);
    line += piece;
    if (print_prefix == 0) {
        return;
    }
    while (line.ends_with('\n')) {
        line.pop_back();
    }
    if (!line.empty()) {
        blog(host_level(level), "[ffmpeg] %s", (hidden ? hide(line, *hidden) : line).c_str());
    }
    line.clear();
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
    return shown;
}

DiscreetLog::DiscreetLog(std::vector<std::string> secrets)
    : secrets_(std::move(secrets)) {
    static const bool installed = (av_log_set_callback(on_line), true);
    static_cast<void>(installed);
    hidden = &secrets_;
}

DiscreetLog::~DiscreetLog() {
    hidden = nullptr;
}

} // namespace corvane
