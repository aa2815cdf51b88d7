// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "base/obs_handles.hpp"
#include "canvas/canvas_config.hpp"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace corvane {

// One entry of the canvas's scene list: a private scene, never listed among the host's, that
// shows one ordinary host source.
struct VerticalScene {
    std::string name;
    // Kept even while the host has no source of that name; empty for none. Of a source that is
    // held, the host may have changed the name since: ask current_source_name().
    std::string source_name;
    OBSSceneAutoRelease scene;
    // Holds one "showing" count besides the reference.
    OBSSourceAutoRelease source;
};

// The second canvas: a libobs view with a video output of its own and the list of vertical
// scenes that it can show.
//
// Public operations lock for their whole run, libobs calls included, except where said
// otherwise. Names are UTF-8 and compared byte for byte. Operations on scenes report failure
// by false and one log line.
class VerticalCanvas {
public:
    explicit VerticalCanvas(const CanvasConfig &config);
    ~VerticalCanvas();
    VerticalCanvas(const VerticalCanvas &) = delete;
    VerticalCanvas &operator=(const VerticalCanvas &) = delete;

    // Creates the view and the default scene "Scene 1". On false nothing is left behind.
    bool init();

    // Releases everything and takes the marker off the sources; does nothing when not
    // initialised. A new init may follow.
    void shutdown();

    // Takes over an output that should have ended and may still use the video and the audio. Unless
    // it has ended by the shutdown, view and output are never released.
    void keep_video_for(OBSOutputAutoRelease output);

    // Unlocked reads, for the thread that runs init, shutdown and the host's video resets.
    // Sizes in pixels. The video output changes with every reset of the host's video.
    uint32_t width() const { return config_.width; }
    uint32_t height() const { return config_.height; }
    uint32_t fps_num() const { return config_.fps_num; }
    uint32_t fps_den() const { return config_.fps_den; }
    // The rate of the stream, and how many of the video output's frames make one of it. Where the
    // view follows the host, the canvas's own rate is reached by leaving frames out; where that
    // does not come out even, the stream has the host's.
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

    // Shows the host source in the scene, scaled once to cover the canvas. An empty source
    // name clears the scene. When the host has no such source the old assignment is gone, the
    // name is kept for a later attempt, the old picture stays and the result is false.
    bool assign_scene_source(const std::string &scene_name, const std::string &source_name);

    std::vector<std::string> scene_names() const;

    // Empty when no scene is active.
    std::string active_scene_name() const;

    // Empty when the scene does not exist or has no source.
    std::string scene_source_name(const std::string &scene_name) const;

    // Grows whenever the host gives an assigned source another name. Any thread.
    uint32_t source_renames() const { return source_renames_; }

    // The source assigned to the active scene, or null; borrowed, takes no lock.
    // On the graphics thread, inside the graphics context (as a display's draw callback is),
    // the pointer stays good until the context is left: release_source() publishes the change
    // and then passes through that context before it lets the reference go. Elsewhere it is
    // good only as long as nobody changes the assignment.
    obs_source_t *active_source() const { return active_source_.load(); }

private:
    static constexpr int32_t kNoScene = -1;

    // Everything here but on_video_reset is called with mutex_ held.
    static void on_video_reset(void *canvas, calldata_t *);
    void add_view_again();
    bool init_locked();
    bool add_view(const obs_video_info &host);
    void follow_rate_of(const obs_video_info &host);
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
    void publish_active_source();

    // Without mutex_.
    struct Link;
    static void on_host_sources_changed(void *canvas, calldata_t *);
    static void queue_follow_task(void *link);
    static void follow_task(void *owned_link);
    void follow_host_sources_from_now();
    void follow_host_sources_no_more();
    void follow_host_sources();
    // With it.
    void take_awaited_source(VerticalScene &entry);

    const CanvasConfig config_;

    // Guards all below down to initialised_.
    mutable std::mutex mutex_;
    obs_video_info video_info_{};
    uint32_t stream_fps_num_ = config_.fps_num;
    uint32_t stream_fps_den_ = config_.fps_den;
    uint32_t frame_rate_divisor_ = 1;
    ViewHandle view_;
    // Belongs to the view's place in the video pipeline.
    video_t *video_ = nullptr;
    // The host's.
    audio_t *audio_ = nullptr;
    std::vector<VerticalScene> scenes_;
    mutable size_t likely_next_ = 0; // where find_scene() looks first
    int32_t active_index_ = kNoScene;
    bool initialised_ = false;
    OBSOutputAutoRelease lingering_output_; // see keep_video_for()

    // Mirrors the active entry's source for readers without the lock.
    std::atomic<obs_source_t *> active_source_{nullptr};
    std::atomic<uint32_t> source_renames_ = 0;
    // Connected and disconnected without mutex_: libobs holds the signal's own lock while it
    // calls on_video_reset, which takes mutex_.
    OBSSignal video_reset_;
    OBSSignal source_created_;
    OBSSignal source_removed_;
    OBSSignal source_renamed_;
    std::shared_ptr<Link> link_; // set before the signals are connected
};

} // namespace corvane
