// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>

namespace corvane {

// What a VerticalCanvas is built from. Sizes in pixels, frame rate as a fraction.
struct CanvasConfig {
    uint32_t width = 1080;
    uint32_t height = 1920;
    uint32_t fps_num = 30;
    uint32_t fps_den = 1;
    bool use_active_scene_audio = true;
    // The view runs at the host's frame rate, whatever the one above, see stream_fps_num().
    bool follow_host_rate = false;
};

} // namespace corvane
