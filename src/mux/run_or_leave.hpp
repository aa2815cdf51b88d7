// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <functional>

namespace corvane {

// Runs the work on a thread of its own and waits until it is done, or until `enough`, which is
// asked many times a second, has it. False when the thread was left behind; therefore the work has
// to own all that it uses. For calls that nothing interrupts: name lookups, libsrt's clearing up.
bool run_or_leave(std::function<void()> work, const std::function<bool()> &enough);

} // namespace corvane
