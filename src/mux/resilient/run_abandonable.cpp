// SPDX-License-Identifier: GPL-2.0-or-later
#include "mux/resilient/run_abandonable.hpp"

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

namespace corvane {

namespace {

using namespace std::chrono_literals;

constexpr auto kPollInterval = 20ms;

struct Threads {
    std::mutex mutex; // guards everything below
    std::condition_variable changed;
    int running = 0;
    bool process_ends = false;
};

// Never destroyed: an abandoned thread may outlive all static objects.
Threads &threads() {
    static auto *all = new Threads;
    return *all;
}

// libobs, the host and static objects are gone or going: whatever the thread did next could crash.
void stay_out_of_a_process_that_ends() {
    Threads &all = threads();
    std::unique_lock lock(all.mutex);
    all.changed.wait(lock, [&] { return !all.process_ends; });
}

} // namespace

bool run_abandonable(std::function<void()> work, const std::function<bool()> &expired) {
    Threads &all = threads();
    const auto done = std::make_shared<bool>(false); // guarded by all.mutex
    std::unique_lock lock(all.mutex);
    std::thread thread([&all, done, work = std::move(work)]() mutable {
        work();
        stay_out_of_a_process_that_ends();
        work = nullptr;
        const std::scoped_lock lock(all.mutex);
        --all.running;
        *done = true;
        all.changed.notify_all();
    });
    thread.detach();
    ++all.running;
    while (!all.changed.wait_for(lock, kPollInterval, [&] { return *done; })) {
        if (expired()) {
            return false;
        }
    }
    return true;
}

bool finish_abandoned_threads(std::chrono::milliseconds limit) {
    Threads &all = threads();
    std::unique_lock lock(all.mutex);
    const bool finished = all.changed.wait_for(lock, limit, [&] { return all.running == 0; });
    all.process_ends = !finished;
    return finished;
}

} // namespace corvane
