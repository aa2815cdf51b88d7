// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

namespace corvane {

// The tag that opens every line the module writes to the host's log.
inline constexpr const char *kLogTag = "corvane-obs-vertical";

// Write one line to the host's log as "[corvane-obs-vertical] <text>". Callable from any thread.
[[gnu::format(printf, 1, 2)]] void log_error(const char *format, ...);
[[gnu::format(printf, 1, 2)]] void log_warning(const char *format, ...);
[[gnu::format(printf, 1, 2)]] void log_info(const char *format, ...);

} // namespace corvane
