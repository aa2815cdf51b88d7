// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <span>
#include <string_view>

namespace corvane {

// The video encoder ids to try in order for a preferred encoder (exact, case-sensitive).
std::span<const char *const> encoder_candidates(std::string_view preferred);

// Whether the id is one of the software encoders, which take a preset and x264 options.
bool is_x264(std::string_view id);

} // namespace corvane
