// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

namespace livehost {

// From now on a crash of the process first writes its call stack to standard error. Any thread.
void report_crashes();

} // namespace livehost
