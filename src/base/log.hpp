// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

namespace corvane {

// The tag that opens the lines the module writes to the host's log, and that of its dock's.
inline constexpr const char *kLogTag = "corvane-obs-vertical";
inline constexpr const char *kWidgetLogTag = "corvane";

// Write one line to the host's log as "[corvane-obs-vertical] <text>". Callable from any thread.
[[gnu::format(printf, 1, 2)]] void log_error(const char *format, ...);
[[gnu::format(printf, 1, 2)]] void log_warning(const char *format, ...);
[[gnu::format(printf, 1, 2)]] void log_info(const char *format, ...);

// The same as "[corvane] <text>", for the dock and its preview; one of the host's levels.
[[gnu::format(printf, 2, 3)]] void log_widget(int level, const char *format, ...);

} // namespace corvane
