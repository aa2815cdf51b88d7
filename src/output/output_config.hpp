// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <string>

namespace corvane {

// The configuration of a VerticalOutput.
struct OutputConfig {
    static constexpr uint32_t kDefaultBitrateKbps = 4000;
    static constexpr const char *kDefaultPreset = "veryfast";
    static constexpr uint32_t kMaxAudioTracks = 6;

    std::string url;
    std::string key;
    uint32_t bitrate_kbps = kDefaultBitrateKbps;
    std::string encoder_preset = kDefaultPreset;
    std::string preferred_encoder = "auto";
    // How many of the host's audio tracks are sent, from the first on.
    uint32_t audio_tracks = kMaxAudioTracks;
    // Selects the resilient output type; only read by the constructor.
    bool resilient = false;
};

} // namespace corvane
