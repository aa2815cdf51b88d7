// SPDX-License-Identifier: GPL-2.0-or-later
#include "mux/resilient/log_redaction.hpp"

#include <util/base.h>

extern "C" {
#include <libavutil/log.h>
}

#include <algorithm>
#include <cstdarg>
#include <exception>
#include <mutex>
#include <utility>

namespace corvane {

namespace {

constexpr std::string_view kRedacted = "***";
// Shorter beginnings of a secret at the end of a line are not replaced.
constexpr size_t kMinRedactedPrefix = 4;

struct ThreadState {
    const std::vector<std::string> *secrets = nullptr; // null outside a Scope
    std::string line;                                  // unfinished
    int line_level = AV_LOG_INFO;
    int print_prefix = 1;
    std::string first_error;
    bool probed = false; // see is_installed()
};
thread_local ThreadState state;

std::mutex count_mutex;
int redactions = 0; // guarded by count_mutex

int host_level(int level) {
    if (level <= AV_LOG_FATAL) {
        return LOG_ERROR;
    }
    if (level <= AV_LOG_WARNING) {
        return LOG_WARNING;
    }
    return LOG_INFO;
}

// Debug lines contain parts of the address; those about options contain decoded values.
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

void write_line() {
    while (state.line.ends_with('\n')) {
        state.line.pop_back();
    }
    if (!state.line.empty()) {
        const std::string line = redact(state.line, *state.secrets);
        blog(host_level(state.line_level), "[ffmpeg] %s", line.c_str());
        if (state.line_level <= AV_LOG_ERROR && state.first_error.empty()) {
            const size_t prefix = line.find("] "); // "[tcp @ 0x5581d0] "
            state.first_error = prefix == std::string::npos ? line : line.substr(prefix + 2);
        }
    }
    state.line.clear();
}

// FFmpeg writes some lines in pieces, the last with a newline. A piece that does not fit is
// dropped, since it could end inside a secret.
void add_piece(void *context, int level, const char *format, va_list arguments) {
    char piece[2048];
    const int length = av_log_format_line2(context, level, format, arguments, piece,
        static_cast<int>(sizeof(piece)), &state.print_prefix);
    if (std::cmp_less(length, sizeof(piece))) {
        state.line += piece;
        state.line_level = level;
    }
    if (state.print_prefix != 0) {
        write_line();
    }
}

void on_line(void *context, int level, const char *format, va_list arguments) noexcept {
    state.probed = true;
    if (!state.secrets) {
        pass_on(context, level, format, arguments);
    } else if (format && !may_hold_parts(level, format)) {
        try {
            add_piece(context, level, format, arguments);
        } catch (const std::exception &) {
            state.line.clear(); // no memory for a log line
        }
    }
}

// FFmpeg has no function to ask for its callback; see whether a line reaches ours.
bool is_installed() {
    state.probed = false;
    av_log(nullptr, AV_LOG_TRACE, "%s", "");
    return state.probed;
}

// FFmpeg truncates texts from the server, possibly inside a secret.
void redact_prefix(std::string &shown, std::string_view secret) {
    for (size_t size = std::min(secret.size(), shown.size()); size >= kMinRedactedPrefix; --size) {
        if (shown.ends_with(secret.substr(0, size))) {
            shown.replace(shown.size() - size, size, kRedacted);
            return;
        }
    }
}

} // namespace

std::string redact(std::string_view text, const std::vector<std::string> &secrets) {
    std::string shown(text);
    for (const std::string &secret : secrets) {
        size_t at = 0;
        while ((at = shown.find(secret, at)) != std::string::npos) {
            shown.replace(at, secret.size(), kRedacted);
            at += kRedacted.size();
        }
    }
    for (const std::string &secret : secrets) {
        redact_prefix(shown, secret);
    }
    return shown;
}

LogRedaction::LogRedaction(std::vector<std::string> secrets)
    : secrets_(std::move(secrets)) {
    const std::scoped_lock lock(count_mutex);
    ++redactions;
}

LogRedaction::~LogRedaction() {
    const std::scoped_lock lock(count_mutex);
    if (--redactions == 0 && is_installed()) {
        av_log_set_callback(av_log_default_callback);
    }
}

LogRedaction::Scope::Scope(const LogRedaction &redaction) {
    state.secrets = &redaction.secrets_;
    state.first_error.clear();
    av_log_set_callback(on_line);
}

LogRedaction::Scope::~Scope() {
    write_line();
    state.print_prefix = 1;
    state.secrets = nullptr;
}

std::string LogRedaction::Scope::first_error() const {
    return state.first_error;
}

} // namespace corvane
