// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <util/base.h>

extern "C" {
#include <libavutil/log.h>
}

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace corvane::fuzz {

// Ends the run, which makes the fuzzer keep the input that broke the property.
inline void check(bool holds, const char *property) {
    if (!holds) {
        fprintf(stderr, "BROKEN: %s\n", property);
        abort();
    }
}

// The log's lines are formatted, so that a wrong argument is found, and dropped.
inline void drop_log() {
    const auto drop_line = [](int, const char *format, va_list arguments, void *) {
        char line[512];
        vsnprintf(line, sizeof(line), format, arguments);
    };
    base_set_log_handler(drop_line, nullptr);
    av_log_set_level(AV_LOG_QUIET);
}

} // namespace corvane::fuzz
