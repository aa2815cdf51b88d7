// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <chrono>
#include <functional>

namespace corvane {

// Runs `work` on a new thread and waits until it is done or `expired`, polled many times a second,
// returns true. False when the thread was abandoned; `work` must therefore own everything it uses.
// For calls that cannot be interrupted: name lookups, libsrt's clean-up. Throws what `work` threw,
// and std::system_error when no thread can be created.
bool run_abandonable(std::function<void()> work, const std::function<bool()> &expired);

// For the end of the process: waits until all abandoned threads are done, at most for `limit`.
// False when some are not; they block forever once their `work` returns.
bool finish_abandoned_threads(std::chrono::milliseconds limit);

} // namespace corvane
