// SPDX-License-Identifier: GPL-2.0-or-later
// The canvas's configuration and the arithmetic on its size and frame rate.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace corvane {

// The configuration of a VerticalCanvas. Size in pixels, frame rate as a fraction.
struct CanvasConfig {
    uint32_t width = 1080;
    uint32_t height = 1920;
    uint32_t fps_num = 30;
    uint32_t fps_den = 1;
    bool use_active_scene_audio = true;
    // Renders the view at the host's frame rate, see VerticalCanvas::stream_fps_num().
    bool follow_host_rate = false;
};

// Placement of a source that covers the canvas: centred, the same scale on both axes, cropped by
// the canvas edges, never with bars. x and y are the top-left corner in canvas pixels, zero or
// negative.
struct CoverPlacement {
    float scale;
    float x;
    float y;
};

// Sizes in pixels. A source without a size has scale 1.
constexpr CoverPlacement cover_placement(
    uint32_t canvas_width, uint32_t canvas_height, uint32_t source_width, uint32_t source_height) {
    const auto width = static_cast<float>(canvas_width);
    const auto height = static_cast<float>(canvas_height);
    const auto source_w = static_cast<float>(source_width);
    const auto source_h = static_cast<float>(source_height);

    float scale = 1.0F;
    if (source_width != 0 && source_height != 0) {
        scale = std::max(height / source_h, width / source_w);
    }
    return {
        .scale = scale,
        .x = (width - source_w * scale) * 0.5F,
        .y = (height - source_h * scale) * 0.5F,
    };
}

// The host's frame rate divided by the canvas's, rounded; 0 when that is not nearly a whole number
// or a rate is invalid.
inline uint32_t frame_rate_divisor(
    uint32_t host_num, uint32_t host_den, uint32_t canvas_num, uint32_t canvas_den) {
    constexpr double kTolerance = 0.005; // 59.94 counts as 60
    const double host = static_cast<double>(host_num) * canvas_den;
    const double canvas = static_cast<double>(canvas_num) * host_den;
    if (canvas == 0 || host / canvas > 1000) {
        return 0;
    }
    const double ratio = host / canvas;
    const auto nearest = static_cast<uint32_t>(std::lround(ratio));
    return std::abs(ratio - nearest) <= kTolerance * nearest ? nearest : 0;
}

} // namespace corvane
