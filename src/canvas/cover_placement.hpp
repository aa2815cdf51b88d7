// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <algorithm>
#include <cstdint>

namespace corvane {

// Where a source lies on the canvas so that it covers it: centred, one scale for both axes,
// the overflow cut off by the canvas edges, never bars. x and y are the top-left corner in
// canvas pixels, zero or negative.
struct CoverPlacement {
    float scale;
    float x;
    float y;
};

// Sizes in pixels. A source without a size yet keeps the scale 1.
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

} // namespace corvane
