// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "board.hpp"
#include "meter.hpp"
#include "threads.hpp"

#include <QJsonObject>

#include <map>
#include <vector>

namespace corvane::bench {

// The figures of one run, means per packet where nothing else is said, as the measures read them.
QJsonObject figures(const std::vector<Meter::Sample> &samples,
    const std::map<pid_t, ThreadUse> &threads, const MappedBoard &board);

// kB of a line of this process's status, for example "VmHWM:".
int memory_kb(const char *name);

// From here on the peak counts anew.
void forget_memory_peak();

} // namespace corvane::bench
