// SPDX-License-Identifier: GPL-2.0-or-later
#include "mux/resilient/run_abandonable.hpp"

#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <utility>

using namespace corvane;
using namespace std::chrono_literals;

// A call that returns while the process ends must not touch what is going, not even to free it.
TEST(RunAbandonable, keeps_late_threads_out_of_a_process_that_ends) {
    EXPECT_TRUE(run_abandonable([] {}, [] { return false; }));
    EXPECT_TRUE(finish_abandoned_threads(0ms));

    std::promise<void> opened, returning;
    auto used = std::make_shared<int>(1);
    const std::weak_ptr<int> watch(used);
    auto wait = [gate = opened.get_future().share(), &returning, used = std::move(used)] {
        gate.wait();
        returning.set_value();
    };
    EXPECT_FALSE(run_abandonable(std::move(wait), [] { return true; }));
    EXPECT_FALSE(finish_abandoned_threads(0ms));
    opened.set_value();
    returning.get_future().wait();
    EXPECT_FALSE(finish_abandoned_threads(50ms));
    EXPECT_FALSE(watch.expired());
}
