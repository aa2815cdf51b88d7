// SPDX-License-Identifier: GPL-2.0-or-later
#include "core/runtime.hpp"

#include "base/log.hpp"
#include "canvas/vertical_canvas.hpp"
#include "core/config_files.hpp"
#include "core/module_state.hpp"
#include "core/options.hpp"
#include "core/plugin_settings.hpp"
#include "core/scene_list_store.hpp"
#include "core/user_interface.hpp"
#include "output/vertical_output.hpp"

#include <memory>

namespace corvane {

namespace {

CanvasConfig current_canvas_config() {
    return {
        .width = settings::canvaswidth.get(),
        .height = settings::canvasheight.get(),
        .fps_num = settings::fpsnum.get(),
        .fps_den = settings::fpsden.get(),
        .use_active_scene_audio = settings::useactivesceneaudio.get(),
        .follow_host_rate = settings::resilience.get(),
    };
}

// The preferred encoder has no key and keeps its default.
OutputConfig current_output_config() {
    return {
        .url = settings::rtmpurl.get(),
        .key = settings::streamkey.get(),
        .bitrate_kbps = settings::videobitrate.get(),
        .encoder_preset = settings::encoderpreset.get(),
        .audio_tracks = audio_tracks(),
        .resilient = settings::resilience.get(),
    };
}

} // namespace

bool create_runtime_from_current_profile() {
    if (module_state.canvas || module_state.output) {
        log_warning("create_runtime_from_current_profile called while runtime is still alive");
        return false;
    }
    const CanvasConfig config = current_canvas_config();
    auto canvas = std::make_unique<VerticalCanvas>(config);
    if (!canvas->init()) {
        log_error("Canvas init failed");
        return false;
    }
    auto output = std::make_unique<VerticalOutput>(canvas.get(), current_output_config());
    if (!output->init()) {
        log_error("Output init failed");
        output.reset();
        canvas->shutdown();
        return false;
    }
    module_state.canvas = canvas.release();
    module_state.output = output.release();
    module_state.canvas_config = config;
    log_info("Runtime created: %ux%u @ %u/%u fps", config.width, config.height, config.fps_num,
        config.fps_den);
    return true;
}

void destroy_runtime(bool save_scenes) {
    if (save_scenes) {
        save_scene_list();
    }
    if (module_state.ui) {
        module_state.ui->detach_dock();
    }
    if (module_state.output) {
        if (module_state.output->is_active()) {
            module_state.output->stop();
        }
        delete module_state.output;
        module_state.output = nullptr;
    }
    if (module_state.canvas) {
        module_state.canvas->shutdown();
        delete module_state.canvas;
        module_state.canvas = nullptr;
    }
}

// Sources are assigned a second time, as the host may have created some only now.
void show_runtime() {
    restore_scene_list();
    reapply_scene_sources();
    follow_scenes_with_hotkeys();
    module_state.ui->attach_dock();
    module_state.ui->register_dock();
}

bool create_and_show_runtime() {
    if (!create_runtime_from_current_profile()) {
        return false;
    }
    show_runtime();
    return true;
}

void push_output_config() {
    if (module_state.output) {
        module_state.output->update_config(current_output_config());
    }
}

void save_profile_config() {
    const std::scoped_lock lock(module_state.runtime_mutex);
    push_output_config();
    save_profile_file();
}

} // namespace corvane
