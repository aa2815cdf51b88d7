// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

namespace corvane {

// Write one line to the host's log as "[corvane-obs-vertical] <text>". Thread-safe.
[[gnu::format(printf, 1, 2)]] void log_error(const char *format, ...);
[[gnu::format(printf, 1, 2)]] void log_warning(const char *format, ...);
[[gnu::format(printf, 1, 2)]] void log_info(const char *format, ...);

// Writes "[corvane] <text>", for the dock and its preview; `level` is one of the host's.
[[gnu::format(printf, 2, 3)]] void log_widget(int level, const char *format, ...);

} // namespace corvane
