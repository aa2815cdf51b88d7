// SPDX-License-Identifier: GPL-2.0-or-later
#include "output/unique_name.hpp"

#include <atomic>
#include <chrono>
#include <cstdint>

namespace corvane {

std::string make_unique_name(std::string_view base) {
    static std::atomic<int64_t> counter = 0;
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto seconds = std::chrono::floor<std::chrono::seconds>(now).count();
    return std::string(base) + "_" + std::to_string(seconds) + "_" + std::to_string(counter++);
}

} // namespace corvane
