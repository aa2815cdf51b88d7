// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "base/obs_handles.hpp"
#include "canvas/canvas_config.hpp"

#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace corvane {

// Interface only; the fields and the private part are the canvas's own business.
class VerticalCanvas {
public:
    explicit VerticalCanvas(const CanvasConfig &config);
    ~VerticalCanvas();
    VerticalCanvas(const VerticalCanvas &) = delete;
    VerticalCanvas &operator=(const VerticalCanvas &) = delete;

    bool init();
    void shutdown();

    // Unlocked reads, for use while the runtime is alive.
    uint32_t width() const;
    uint32_t height() const;
    uint32_t fps_num() const;
    uint32_t fps_den() const;
    video_t *video() const;
    audio_t *audio() const;
    bool initialised() const;

    bool create_scene(const std::string &name);
    bool remove_scene(const std::string &name);
    bool rename_scene(const std::string &old_name, const std::string &new_name);
    bool set_active_scene(const std::string &name);
    bool assign_scene_source(const std::string &scene_name, const std::string &source_name);
    std::vector<std::string> scene_names();
    std::string active_scene_name();
    std::string scene_source_name(const std::string &scene_name);
    obs_source_t *active_source() const;
};

} // namespace corvane
