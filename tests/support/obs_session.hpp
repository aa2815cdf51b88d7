// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <media-io/video-io.h>

#include <cstdint>
#include <filesystem>
#include <string>

namespace corvane::test {

// The host's own canvas in the tests.
inline constexpr uint32_t kHostWidth = 320;
inline constexpr uint32_t kHostHeight = 180;
inline constexpr uint32_t kHostFps = 30;

// A real libobs with video, audio and the host's own encoder modules, one for the whole test
// process. Needs a QApplication on an X11 screen.
class ObsSession {
public:
    // Throws when libobs cannot start.
    explicit ObsSession(const std::filesystem::path &module_config_dir);
    ~ObsSession() { shutdown(); }
    ObsSession(const ObsSession &) = delete;
    ObsSession &operator=(const ObsSession &) = delete;

    // Loads a further module of the host's own; throws when that fails.
    static void load_host_module(const std::string &name);

    // Ends libobs and returns how many of its allocations are still alive.
    static long shutdown();

    // libobs destroys released sources later, on a thread of its own; waits for it.
    static void destroy_released_sources();

    // What the host does when the user changes its video settings.
    static bool reset_video(uint32_t width, uint32_t height, uint32_t fps,
        video_format output_format = VIDEO_FORMAT_NV12, uint32_t fps_den = 1);

    // Where modules keep their settings.
    static inline std::filesystem::path config_dir;
};

} // namespace corvane::test
