// SPDX-License-Identifier: GPL-2.0-or-later
#include "support/obs_session.hpp"

#include <obs-nix-platform.h>
#include <obs.h>
#include <util/bmem.h>

#include <QGuiApplication>

#include <stdexcept>

namespace corvane::test {

namespace {

void require(bool condition, const char *what) {
    if (!condition) {
        throw std::runtime_error(std::string("the test host cannot start: ") + what + " failed");
    }
}

} // namespace

ObsSession::ObsSession(const std::filesystem::path &module_config_dir) {
    config_dir = module_config_dir;
    const auto *screen = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    require(screen != nullptr, "finding an X11 screen");
    obs_set_nix_platform(OBS_NIX_PLATFORM_X11_EGL);
    obs_set_nix_platform_display(screen->display());

    require(obs_startup("en-US", config_dir.c_str(), nullptr), "obs_startup");
    require(reset_video(kHostWidth, kHostHeight, kHostFps), "obs_reset_video");
    const obs_audio_info audio{.samples_per_sec = 48000, .speakers = SPEAKERS_STEREO};
    require(obs_reset_audio(&audio), "obs_reset_audio");
    for (const char *name : {"obs-x264", "obs-ffmpeg", "image-source"}) {
        load_host_module(name);
    }
}

void ObsSession::load_host_module(const std::string &name) {
    obs_module_t *module = nullptr;
    const std::string binary = std::string(CVC_HOST_MODULES) + "/" + name + ".so";
    const std::string data = std::string(CVC_HOST_MODULE_DATA) + "/" + name;
    require(obs_open_module(&module, binary.c_str(), data.c_str()) == MODULE_SUCCESS &&
                obs_init_module(module),
        binary.c_str());
}

// What is destroyed may release more: a vertical scene its host scene, that its sources, those
// their filters.
void ObsSession::destroy_released_sources() {
    for (int depth = 0; depth < 4; ++depth) {
        obs_wait_for_destroy_queue();
    }
}

long ObsSession::shutdown() {
    if (obs_initialized()) {
        destroy_released_sources();
        obs_shutdown();
    }
    return bnum_allocs();
}

bool ObsSession::reset_video(
    uint32_t width, uint32_t height, uint32_t fps, video_format output_format, uint32_t fps_den) {
    obs_video_info info{};
    info.graphics_module = "libobs-opengl";
    info.fps_num = fps;
    info.fps_den = fps_den;
    info.base_width = info.output_width = width;
    info.base_height = info.output_height = height;
    info.output_format = output_format;
    info.gpu_conversion = true;
    info.colorspace = VIDEO_CS_709;
    info.range = VIDEO_RANGE_PARTIAL;
    info.scale_type = OBS_SCALE_BICUBIC;
    return obs_reset_video(&info) == OBS_VIDEO_SUCCESS;
}

} // namespace corvane::test
