// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

namespace corvane::bench {

inline constexpr const char *kFloorId = "bench_floor";

// An output type that does the least that an output with a thread of its own can: one copy and one
// sendmsg per packet, to the TCP port of loopback that is its setting "port".
void register_floor();

} // namespace corvane::bench
