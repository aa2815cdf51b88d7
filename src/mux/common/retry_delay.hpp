// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <algorithm>
#include <cstdint>

namespace corvane {

inline constexpr uint64_t kRetryStepNs = 1'000'000'000;
inline constexpr uint32_t kMaxRetrySteps = 5;

// The wait after the n-th failure in a row, n from 1: 1, 2, 3, 4, 5, 5 ... seconds.
constexpr uint64_t retry_delay_ns(uint32_t failures) {
    return std::min(failures, kMaxRetrySteps) * kRetryStepNs;
}

} // namespace corvane
