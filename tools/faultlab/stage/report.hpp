// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <QJsonObject>

#include <functional>
#include <string_view>

namespace corvane::lab {

// Writes one line of JSON to the standard output, with the time in seconds of the monotonic clock
// as "at". Nothing is buffered, so that all is out when the process dies. Any thread.
void report(QJsonObject event);

// Reports every line of the host's log and of FFmpeg's from now on as {"level", "log"}. After a
// line of the host's the function is called with it, on the thread that writes it.
void report_log(std::function<void(std::string_view)> at_each_line);

} // namespace corvane::lab
