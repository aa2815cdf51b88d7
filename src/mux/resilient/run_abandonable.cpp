// SPDX-License-Identifier: GPL-2.0-or-later
#include "mux/resilient/run_abandonable.hpp"

#include <condition_variable>
#include <exception>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

namespace corvane {

namespace {

using namespace std::chrono_literals;

constexpr auto kPollInterval = 20ms;

struct Abandoned {
    std::mutex mutex; // guards everything below, and each Call
    std::condition_variable changed;
    int threads = 0;
    bool process_ends = false;
};

struct Call {
    std::exception_ptr exception; // set by the thread before `done`
    bool done = false;
    bool abandoned = false;
};

// Never destroyed: an abandoned thread may outlive all static objects.
Abandoned &abandoned() {
    static auto *all = new Abandoned;
    return *all;
}

// While the process ends, libobs, the host and static objects are destroyed: whatever an abandoned
// thread did next could crash.
void finish(Call &call, std::function<void()> &work) {
    Abandoned &all = abandoned();
    std::unique_lock lock(all.mutex);
    all.changed.wait(lock, [&] { return !(call.abandoned && all.process_ends); });
    lock.unlock();
    work = nullptr; // may be the last owner of what it used
    lock.lock();
    all.threads -= call.abandoned ? 1 : 0;
    call.done = true;
    all.changed.notify_all();
}

} // namespace

bool run_abandonable(std::function<void()> work, const std::function<bool()> &expired) {
    const auto call = std::make_shared<Call>();
    std::thread([call, work = std::move(work)]() mutable {
        try {
            work();
        } catch (...) {
            call->exception = std::current_exception();
        }
        finish(*call, work);
    }).detach();

    Abandoned &all = abandoned();
    std::unique_lock lock(all.mutex);
    while (!all.changed.wait_for(lock, kPollInterval, [&] { return call->done; })) {
        if (expired()) {
            call->abandoned = true;
            ++all.threads;
            return false;
        }
    }
    if (call->exception) {
        std::rethrow_exception(call->exception);
    }
    return true;
}

bool finish_abandoned_threads(std::chrono::milliseconds limit) {
    Abandoned &all = abandoned();
    std::unique_lock lock(all.mutex);
    const bool finished = all.changed.wait_for(lock, limit, [&] { return all.threads == 0; });
    all.process_ends = !finished;
    return finished;
}

} // namespace corvane
