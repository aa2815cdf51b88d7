// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <chrono>
#include <functional>

namespace corvane {

// Runs `work` on a thread of its own and waits until it is done or `expired`, polled many times a
// second, returns true. Returns false when the thread was abandoned, so `work` must own all it
// uses. For calls that nothing interrupts: name lookups, libsrt's clean-up. Throws what `work`
// threw, and std::system_error when no thread can be made.
bool run_abandonable(std::function<void()> work, const std::function<bool()> &expired);

// For the end of the process: waits until all abandoned threads are done, or for so long. A thread
// whose `work` returns later than that goes no further. False when there is one.
bool finish_abandoned_threads(std::chrono::milliseconds limit);

} // namespace corvane
