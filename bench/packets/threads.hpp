// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "counting/counting.hpp"

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <set>
#include <string>

namespace corvane::bench {

// What the preloaded library counted for a thread, 0 is the caller; nothing without the library.
Counts counts_of_thread(pid_t thread);
bool counting_is_on();

struct ThreadUse {
    std::string name;
    int64_t cpu_ns = 0;
    Counts counts;
};

// The threads that came into being after this object.
class NewThreads {
public:
    NewThreads();

    // What each of those that live has used so far.
    std::map<pid_t, ThreadUse> use() const;

private:
    std::set<pid_t> earlier_;
};

// What they used from one reading to the next.
std::map<pid_t, ThreadUse> use_between(
    const std::map<pid_t, ThreadUse> &begin, std::map<pid_t, ThreadUse> end);

} // namespace corvane::bench
