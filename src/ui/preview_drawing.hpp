// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <algorithm>
#include <cstdint>

namespace corvane {

class VerticalCanvas;

// Where the canvas lies in a display, in the display's pixels: as large as fits, centred.
struct PreviewViewport {
    int x;
    int y;
    int width;
    int height;
};

// Single precision on purpose: sizes are cut to whole pixels, at the loss of a row or column.
constexpr PreviewViewport preview_viewport(
    uint32_t cx, uint32_t cy, uint32_t canvas_width, uint32_t canvas_height) {
    const auto width = static_cast<float>(canvas_width);
    const auto height = static_cast<float>(canvas_height);
    const float scale = std::min(static_cast<float>(cx) / width, static_cast<float>(cy) / height);
    const auto shown_width = static_cast<uint32_t>(scale * width);
    const auto shown_height = static_cast<uint32_t>(scale * height);
    return {
        .x = static_cast<int>((cx - shown_width) >> 1),
        .y = static_cast<int>((cy - shown_height) >> 1),
        .width = static_cast<int>(shown_width),
        .height = static_cast<int>(shown_height),
    };
}

// Draws the source of the active vertical scene as the canvas shows it, into a display of cx × cy
// pixels; nothing when there is none or it has no size. Graphics thread, in the context.
void draw_preview(const VerticalCanvas &canvas, uint32_t cx, uint32_t cy);

} // namespace corvane
