// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "base/obs_handles.hpp"
#include "canvas/canvas_config.hpp"

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace corvane {

// One entry of the canvas's scene list: a private scene, not listed among the host's, that shows
// one ordinary host source.
struct VerticalScene {
    std::string name;
    // Empty for none; kept while the host has no source of that name. May be out of date while
    // `source` is set: use current_source_name().
    std::string source_name;
    OBSSceneAutoRelease scene;
    // Holds one "showing" count besides the reference.
    OBSSourceAutoRelease source;
};

// An entry's names; an empty source name for none.
struct SceneInfo {
    std::string name;
    std::string source_name;
    bool source_missing = false; // the host has no source of that name
    bool operator==(const SceneInfo &) const = default;
};

// The second canvas: a libobs view with its own video output and the list of vertical scenes that
// it can show.
//
// Public operations lock for their whole run, libobs calls included, unless noted. Names are UTF-8
// and compared byte for byte. Scene operations report failure by false and one log line.
class VerticalCanvas {
public:
    // The scene that init() creates.
    static constexpr const char *kDefaultScene = "Scene 1";

    explicit VerticalCanvas(const CanvasConfig &config);
    ~VerticalCanvas();
    VerticalCanvas(const VerticalCanvas &) = delete;
    VerticalCanvas &operator=(const VerticalCanvas &) = delete;

    // Creates the view and the default scene. Leaves nothing behind on failure.
    bool init();

    // Releases everything and removes the marker from the sources; does nothing when not
    // initialised. init() may be called again.
    void shutdown();

    // Takes over an output that should have ended and may still use the video and the audio. If it
    // is still active at the shutdown, view and output are leaked.
    void keep_video_for(OBSOutputAutoRelease output);

    // Unlocked reads, for the thread that runs init, shutdown and the host's video resets.
    // Sizes in pixels. The video output changes with every reset of the host's video.
    uint32_t width() const { return config_.width; }
    uint32_t height() const { return config_.height; }
    uint32_t fps_num() const { return config_.fps_num; }
    uint32_t fps_den() const { return config_.fps_den; }
    // The stream's rate and the video output's divided by it. With the view at the host's rate, the
    // canvas's rate is reached by skipping frames: exactly, or nearly as 59.94 / 2 for 30; if that
    // is no whole division, the stream has the host's rate.
    uint32_t stream_fps_num() const { return stream_fps_num_; }
    uint32_t stream_fps_den() const { return stream_fps_den_; }
    uint32_t frame_rate_divisor() const { return frame_rate_divisor_; }
    video_t *video() const { return video_; }
    audio_t *audio() const { return audio_; }
    bool initialised() const { return initialised_; }

    // The first scene created becomes the active one. False when the name is taken.
    bool create_scene(const std::string &name);

    // Removing the active scene makes the first remaining one active.
    bool remove_scene(const std::string &name);

    bool rename_scene(const std::string &old_name, const std::string &new_name);
    bool set_active_scene(const std::string &name);

    // Shows the host source in the scene, scaled once to cover the canvas. An empty source name
    // clears the scene. If the host has no such source, the result is false, the old assignment is
    // dropped, its item stays visible and the name is kept for a source created later.
    bool assign_scene_source(const std::string &scene_name, const std::string &source_name);

    // All scenes in order.
    std::vector<SceneInfo> scene_list() const;
    std::vector<std::string> scene_names() const;

    // Empty without an active scene.
    std::string active_scene_name() const;

    // Empty if the scene does not exist or has no source.
    std::string scene_source_name(const std::string &scene_name) const;

    // How often the host has renamed an assigned source, and how often it has removed or created
    // one. Lock-free.
    uint32_t source_renames() const { return source_renames_; }
    uint32_t source_changes() const { return source_changes_; }

    // The source assigned to the active scene, or null; borrowed, lock-free. Inside the graphics
    // context (as in a display's draw callback) the pointer is valid until the context is left:
    // release_source() publishes the change, then enters that context before it drops the
    // reference. Elsewhere it is valid only while the assignment does not change.
    obs_source_t *active_source() const { return active_source_.load(); }

private:
    static constexpr int32_t kNoScene = -1;

    // Called with mutex_ held.
    bool create_view();
    bool add_view(const obs_video_info &host);
    void add_view_again();
    void use_host_rate(const obs_video_info &host);
    void warn_if_faster_than(const obs_video_info &host) const;
    void remove_view();
    void apply_active_audio();
    void clear_active_audio();

    bool create_scene_unlocked(const std::string &name);
    int32_t find_scene(std::string_view name) const;
    const VerticalScene *active_scene() const;
    void activate(int32_t index);
    void place_source(const VerticalScene &entry, obs_source_t *source) const;
    static void remove_items(const VerticalScene &entry, bool (*chosen)(const obs_source_t *));
    static std::string current_source_name(const VerticalScene &entry);
    void take_source(VerticalScene &entry, OBSSourceAutoRelease source);
    void release_source(VerticalScene &entry);
    void assign_awaited_source(VerticalScene &entry);
    void publish_active_source();

    // Called without mutex_.
    struct Link;
    static void on_video_reset(void *canvas, calldata_t *);
    static void on_host_sources_changed(void *canvas, calldata_t *);
    static void queue_follow_task(void *link);
    static void follow_task(void *owned_link);
    void connect_source_signals();
    void disconnect_source_signals();
    void follow_host_sources();

    const CanvasConfig config_;

    mutable std::mutex mutex_; // guards everything down to lingering_output_
    obs_video_info video_info_{};
    uint32_t stream_fps_num_ = config_.fps_num;
    uint32_t stream_fps_den_ = config_.fps_den;
    uint32_t frame_rate_divisor_ = 1;
    ViewHandle view_;
    video_t *video_ = nullptr; // the view's
    audio_t *audio_ = nullptr; // the host's
    std::vector<VerticalScene> scenes_;
    int32_t active_index_ = kNoScene;
    bool initialised_ = false;
    OBSOutputAutoRelease lingering_output_; // see keep_video_for()

    // The active entry's source, for readers without the lock.
    std::atomic<obs_source_t *> active_source_{nullptr};
    std::atomic<uint32_t> source_renames_ = 0;
    std::atomic<uint32_t> source_changes_ = 0;
    // Connected and disconnected without mutex_: libobs holds the signal's lock while it calls
    // on_video_reset(), which takes mutex_.
    OBSSignal video_reset_;
    OBSSignal source_created_;
    OBSSignal source_removed_;
    OBSSignal source_renamed_;
    std::shared_ptr<Link> link_; // set before the signals are connected
};

} // namespace corvane
