// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>

namespace corvane {

// How many frames at the host's rate make one at the canvas's; 0 when the ratio is not whole or a
// rate is none at all.
constexpr uint32_t frame_rate_divisor(
    uint32_t host_num, uint32_t host_den, uint32_t canvas_num, uint32_t canvas_den) {
    const uint64_t host = uint64_t{host_num} * canvas_den;
    const uint64_t canvas = uint64_t{canvas_num} * host_den;
    return canvas != 0 && host % canvas == 0 ? static_cast<uint32_t>(host / canvas) : 0;
}

} // namespace corvane
