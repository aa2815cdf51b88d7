// SPDX-License-Identifier: GPL-2.0-or-later
#include "base/log.hpp"

#include <util/base.h>

#include <cstdarg>
#include <string>

namespace corvane {

namespace {

constexpr const char *kLogTag = "corvane-obs-vertical";
constexpr const char *kWidgetLogTag = "corvane";

void write_line(int level, const char *tag, const char *format, va_list arguments) {
    const std::string line = std::string("[") + tag + "] " + format;
    blogva(level, line.c_str(), arguments);
}

} // namespace

void log_error(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    write_line(LOG_ERROR, kLogTag, format, arguments);
    va_end(arguments);
}

void log_warning(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    write_line(LOG_WARNING, kLogTag, format, arguments);
    va_end(arguments);
}

void log_info(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    write_line(LOG_INFO, kLogTag, format, arguments);
    va_end(arguments);
}

void log_widget(int level, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    write_line(level, kWidgetLogTag, format, arguments);
    va_end(arguments);
}

} // namespace corvane
