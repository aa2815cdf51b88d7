// SPDX-License-Identifier: GPL-2.0-or-later
#include "ui/preview_drawing.hpp"

#include "canvas/cover_placement.hpp"
#include "canvas/vertical_canvas.hpp"

namespace corvane {

void draw_preview(const VerticalCanvas &canvas, uint32_t cx, uint32_t cy) {
    const uint32_t width = canvas.width();
    const uint32_t height = canvas.height();
    obs_source_t *source = canvas.active_source();
    if (width == 0 || height == 0 || !source) {
        return;
    }
    const uint32_t source_width = obs_source_get_width(source);
    const uint32_t source_height = obs_source_get_height(source);
    if (source_width == 0 || source_height == 0) {
        return;
    }
    const PreviewViewport viewport = preview_viewport(cx, cy, width, height);
    const CoverPlacement placed = cover_placement(width, height, source_width, source_height);

    gs_viewport_push();
    gs_projection_push();
    gs_set_viewport(viewport.x, viewport.y, viewport.width, viewport.height);
    gs_ortho(0.0F, static_cast<float>(width), 0.0F, static_cast<float>(height), -100.0F, 100.0F);

    gs_matrix_push();
    gs_matrix_translate3f(placed.x, placed.y, 0.0F);
    gs_matrix_scale3f(placed.scale, placed.scale, 1.0F);
    obs_source_video_render(source);
    gs_matrix_pop();

    gs_projection_pop();
    gs_viewport_pop();
}

} // namespace corvane
