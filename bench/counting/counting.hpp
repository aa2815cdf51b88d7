// SPDX-License-Identifier: GPL-2.0-or-later
// What the preloaded library counts for each thread.
#pragma once

#include <sys/types.h>

#include <cstdint>

namespace corvane::bench {

// Calls between libraries; what a library copies with code of its own is not seen.
struct Counts {
    uint64_t allocations = 0;
    uint64_t allocated_bytes = 0;
    uint64_t copies = 0;
    uint64_t copied_bytes = 0;

    Counts &operator+=(const Counts &other) {
        allocations += other.allocations;
        allocated_bytes += other.allocated_bytes;
        copies += other.copies;
        copied_bytes += other.copied_bytes;
        return *this;
    }
    Counts &operator-=(const Counts &other) {
        allocations -= other.allocations;
        allocated_bytes -= other.allocated_bytes;
        copies -= other.copies;
        copied_bytes -= other.copied_bytes;
        return *this;
    }
};

// The library's one function: tells what the thread has done so far; 0 is the caller.
using CountsOfThread = void(pid_t, Counts *);
inline constexpr const char *kCountsOfThread = "corvane_counts_of_thread";

} // namespace corvane::bench
