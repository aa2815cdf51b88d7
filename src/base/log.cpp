// SPDX-License-Identifier: GPL-2.0-or-later
#include "base/log.hpp"

#include <util/base.h>

#include <cstdarg>
#include <string>

namespace corvane {

namespace {

void write_line(int level, const char *format, va_list arguments) {
    static const std::string prefix = std::string("[") + kLogTag + "] ";
    blogva(level, (prefix + format).c_str(), arguments);
}

} // namespace

void log_error(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    write_line(LOG_ERROR, format, arguments);
    va_end(arguments);
}

void log_warning(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    write_line(LOG_WARNING, format, arguments);
    va_end(arguments);
}

void log_info(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    write_line(LOG_INFO, format, arguments);
    va_end(arguments);
}

} // namespace corvane
