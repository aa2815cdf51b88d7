// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <obs-nix-platform.h>
#include <obs.hpp>
#include <util/bmem.h>

#include <QGuiApplication>

#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

namespace corvane::test {

// The host's own canvas in the tests.
inline constexpr uint32_t kHostWidth = 320;
inline constexpr uint32_t kHostHeight = 180;
inline constexpr uint32_t kHostFps = 30;

// A real libobs with video, audio and the host's own encoder modules, one for the whole test
// process. Needs a QApplication on an X11 screen; throws when something cannot start.
class ObsSession {
public:
    explicit ObsSession(const std::filesystem::path &module_config_dir) {
        config_dir = module_config_dir;
        const auto *screen = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
        require(screen != nullptr, "an X11 screen");
        obs_set_nix_platform(OBS_NIX_PLATFORM_X11_EGL);
        obs_set_nix_platform_display(screen->display());

        require(obs_startup("en-US", config_dir.c_str(), nullptr), "libobs");
        require(reset_video(), "its video");
        const obs_audio_info audio{.samples_per_sec = 48000, .speakers = SPEAKERS_STEREO};
        require(obs_reset_audio(&audio), "its audio");
        for (const char *name : {"obs-x264", "obs-ffmpeg", "image-source"}) {
            load_host_module(name);
        }
    }
    ~ObsSession() { shutdown(); }
    ObsSession(const ObsSession &) = delete;
    ObsSession &operator=(const ObsSession &) = delete;

    // Loads a further module of the host's own.
    static void load_host_module(const std::string &name) {
        obs_module_t *module = nullptr;
        const std::string binary = CVC_HOST_MODULES "/" + name + ".so";
        const std::string data = CVC_HOST_MODULE_DATA "/" + name;
        require(obs_open_module(&module, binary.c_str(), data.c_str()) == MODULE_SUCCESS &&
                    obs_init_module(module),
            binary);
    }

    // Ends libobs and returns how many of its allocations are still alive.
    static long shutdown() {
        if (obs_initialized()) {
            destroy_released_sources();
            obs_shutdown();
        }
        return bnum_allocs();
    }

    // libobs destroys released sources later, on a thread of its own; waits for it. What is
    // destroyed may release more: a vertical scene its host scene, that its sources, those their
    // filters.
    static void destroy_released_sources() {
        for (int depth = 0; depth < 4; ++depth) {
            obs_wait_for_destroy_queue();
        }
    }

    // What the host does when the user changes its video settings.
    static bool reset_video(uint32_t width = kHostWidth, uint32_t height = kHostHeight,
        uint32_t fps = kHostFps, video_format output_format = VIDEO_FORMAT_NV12,
        uint32_t fps_den = 1) {
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

    // Where modules keep their settings.
    static inline std::filesystem::path config_dir;

private:
    static void require(bool works, const std::string &what) {
        if (!works) {
            throw std::runtime_error("the test host cannot start " + what);
        }
    }
};

// All that one of libobs's functions enumerates, such as all<OBSOutput>(obs_enum_outputs).
template <typename Handle, typename Enumerate>
std::vector<Handle> all(Enumerate enumerate) {
    std::vector<Handle> found;
    const auto add = [](void *list, auto *object) {
        static_cast<std::vector<Handle> *>(list)->emplace_back(object);
        return true;
    };
    enumerate(add, &found);
    return found;
}

// One of the user's scenes. The host keeps a reference of its own until the scene is removed.
class HostScene {
public:
    explicit HostScene(const char *name)
        : scene_(obs_scene_create(name)) {}
    ~HostScene() {
        obs_source_remove(source());
        scene_ = nullptr;
        ObsSession::destroy_released_sources();
    }
    HostScene(const HostScene &) = delete;
    HostScene &operator=(const HostScene &) = delete;

    obs_scene_t *scene() const { return scene_; }
    obs_source_t *source() const { return obs_scene_get_source(scene_); }

private:
    OBSSceneAutoRelease scene_;
};

} // namespace corvane::test
