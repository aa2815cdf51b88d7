// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <string>

namespace corvane {

// What a VerticalOutput is built from.
struct OutputConfig {
    std::string url;
    std::string key;
    uint32_t bitrate_kbps = 4000;
    std::string encoder_preset = "veryfast";
    std::string preferred_encoder = "auto";
    // The output type that keeps the connection, instead of the standard one. Counts when the
    // VerticalOutput is made.
    bool resilient = false;
};

} // namespace corvane
