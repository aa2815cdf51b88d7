// SPDX-License-Identifier: GPL-2.0-or-later
#include "report.hpp"

#include <util/base.h>

#include <QJsonDocument>

extern "C" {
#include <libavutil/log.h>
}

#include <unistd.h>

#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <utility>

namespace corvane::lab {

namespace {

std::function<void(std::string_view)> line_hook; // set before the first line

void on_line(int level, const char *format, va_list arguments, void *) {
    char text[4096];
    vsnprintf(text, sizeof(text), format, arguments);
    report({{"level", level}, {"log", QString::fromUtf8(text)}});
    line_hook(text);
}

// As a module of the host's own does where it is built so.
void on_ffmpeg_line(void *context, int level, const char *format, va_list arguments) {
    if (level <= AV_LOG_INFO) {
        char text[4096];
        int begins_line = 1;
        av_log_format_line2(context, level, format, arguments, text, sizeof(text), &begins_line);
        report({{"level", LOG_INFO}, {"log", "[ffmpeg] " + QString::fromUtf8(text).trimmed()}});
    }
}

} // namespace

void report(QJsonObject event) {
    const std::chrono::duration<double> now = std::chrono::steady_clock::now().time_since_epoch();
    event["at"] = now.count();
    const QByteArray line = QJsonDocument(event).toJson(QJsonDocument::Compact) + '\n';
    // Lines up to the size of a pipe's atomic write never mix, whichever threads write them.
    for (qsizetype written = 0; written < line.size();) {
        const ssize_t count = write(
            STDOUT_FILENO, line.constData() + written, static_cast<size_t>(line.size() - written));
        if (count <= 0) {
            return;
        }
        written += count;
    }
}

void report_log(std::function<void(std::string_view)> at_each_line) {
    line_hook = std::move(at_each_line);
    base_set_log_handler(on_line, nullptr);
    av_log_set_callback(on_ffmpeg_line);
}

} // namespace corvane::lab
