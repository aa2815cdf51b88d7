// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <QCoreApplication>

#include <chrono>
#include <thread>

namespace corvane::test {

// Longest wait for something that should happen; reached only by a test that fails.
inline constexpr std::chrono::seconds kPatience{20};

// Runs the UI thread's event loop until the condition holds; false when it never did.
template <typename Condition>
bool wait_until(Condition condition, std::chrono::milliseconds limit = kPatience) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        QCoreApplication::processEvents();
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

} // namespace corvane::test
