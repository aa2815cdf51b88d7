// SPDX-License-Identifier: GPL-2.0-or-later
#include "mux/resilient/run_abandonable.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <memory>

using namespace corvane;
using namespace std::chrono_literals;

// A call that returns while the process ends must not touch what is going, not even to free it.
TEST(RunAbandonable, keeps_late_threads_out_of_a_process_that_ends) {
    EXPECT_TRUE(run_abandonable([] {}, [] { return false; }));
    EXPECT_TRUE(finish_abandoned_threads(0ms));

    std::promise<void> gate;
    const std::shared_future<void> opened(gate.get_future());
    std::promise<void> returning;
    auto used = std::make_shared<int>(1);
    const std::weak_ptr<int> watch(used);
    EXPECT_FALSE(run_abandonable(
        [opened, &returning, used = std::move(used)] {
            opened.wait();
            returning.set_value();
        },
        [] { return true; }));
    EXPECT_FALSE(finish_abandoned_threads(0ms));
    gate.set_value();
    returning.get_future().wait();
    EXPECT_FALSE(finish_abandoned_threads(50ms));
    EXPECT_FALSE(watch.expired());
}
