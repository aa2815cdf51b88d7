// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <vector>

// Measures the output that was created last. It replaces obs_register_output_s(), to stand in front
// of every packet callback, and the C library's send() and sendmsg(), to see packets leave.
namespace corvane::bench::meter {

struct Reading {
    double packets;
    double callback_cpu_ns;
    std::vector<double> latencies_ms; // from the callback's entry to the sending call; sorted
};

void begin();
Reading read(); // since begin()

} // namespace corvane::bench::meter
