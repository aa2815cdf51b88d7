// SPDX-License-Identifier: GPL-2.0-or-later
#include "mux/run_or_leave.hpp"

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

namespace corvane {

bool run_or_leave(std::function<void()> work, const std::function<bool()> &enough) {
    constexpr std::chrono::milliseconds kAskEvery{20};
    struct Progress {
        std::mutex mutex;
        std::condition_variable changed;
        bool done = false; // guarded by mutex
    };
    const auto progress = std::make_shared<Progress>();
    std::thread([progress, work = std::move(work)] {
        work();
        const std::scoped_lock lock(progress->mutex);
        progress->done = true;
        progress->changed.notify_all();
    }).detach();

    std::unique_lock lock(progress->mutex);
    while (!progress->changed.wait_for(lock, kAskEvery, [&] { return progress->done; })) {
        if (enough()) {
            return false;
        }
    }
    return true;
}

} // namespace corvane
