// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <chrono>

namespace corvane {

// Time limits of the resilient type.
struct StreamTimeouts {
    std::chrono::milliseconds connect{10'000};
    std::chrono::milliseconds write{10'000}; // for the network to take a packet
    std::chrono::milliseconds close{1'000};
    std::chrono::milliseconds encoders{10'000}; // for their next packet
};

// Only tests change them, while no stream runs.
inline StreamTimeouts stream_timeouts;

} // namespace corvane
