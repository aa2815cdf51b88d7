// SPDX-License-Identifier: GPL-2.0-or-later
// What the settings may be set to, by the dialog and by remote control.
#pragma once

#include <array>
#include <cstddef>

namespace corvane {

struct SettingRange {
    int least;
    int most;
    int step = 1; // of the dialog's buttons; sizes are multiples of it
};

inline constexpr SettingRange kBitrateRange{.least = 500, .most = 51000, .step = 100}; // kbit/s
inline constexpr SettingRange kSizeRange{.least = 16, .most = 7680, .step = 2};        // pixels
inline constexpr SettingRange kFpsNumRange{.least = 1, .most = 240};
inline constexpr SettingRange kFpsDenRange{.least = 1, .most = 1000};

// Of a name or a setting that comes from another program, in bytes. Without a limit one request
// could make a settings file too large to be read again.
inline constexpr size_t kLongestText = 10'000;

inline constexpr std::array kEncoderPresets = {
    "ultrafast", "superfast", "veryfast", "faster", "fast", "medium", "slow", "slower", "veryslow"};

} // namespace corvane
