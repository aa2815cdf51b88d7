// SPDX-License-Identifier: GPL-2.0-or-later
#include "canvas/vertical_canvas.hpp"

#include "base/log.hpp"
#include "canvas/frame_rate_divisor.hpp"

#include <algorithm>
#include <utility>

namespace corvane {

namespace {

// The host's sixth audio track. The only mixer bit the canvas ever changes, and only on
// sources that are assigned to vertical scenes.
constexpr uint32_t kActiveAudioMixer = 1U << 5;

void add_marker(obs_source_t *source) {
    const uint32_t mixers = obs_source_get_audio_mixers(source);
    if ((mixers & kActiveAudioMixer) == 0) {
        obs_source_set_audio_mixers(source, mixers | kActiveAudioMixer);
    }
}

void remove_marker(obs_source_t *source) {
    const uint32_t mixers = obs_source_get_audio_mixers(source);
    if ((mixers & kActiveAudioMixer) != 0) {
        obs_source_set_audio_mixers(source, mixers & ~kActiveAudioMixer);
    }
}

constexpr uint32_t kLongestSide = 16384; // of a texture, with common drivers

// Whether libobs converts to the format by one texture of two planes; all others can be odd.
bool needs_even_size(const obs_video_info &host) {
    obs_enter_graphics();
    const bool two_planes = host.gpu_conversion &&
                            ((host.output_format == VIDEO_FORMAT_NV12 && gs_nv12_available()) ||
                                (host.output_format == VIDEO_FORMAT_P010 && gs_p010_available()));
    obs_leave_graphics();
    return two_planes;
}

// libobs refuses other sizes too, but leaves a thread behind that holds up the host's end; where
// memory is short for them it ends the process.
bool size_is_possible(uint32_t width, uint32_t height, const obs_video_info &host) {
    const bool odd = width % 2 != 0 || height % 2 != 0;
    return std::max(width, height) <= kLongestSide && !(odd && needs_even_size(host));
}

} // namespace

VerticalCanvas::VerticalCanvas(const CanvasConfig &config)
    : config_(config) {}

VerticalCanvas::~VerticalCanvas() {
    shutdown();
}

bool VerticalCanvas::init() {
    {
        const std::scoped_lock lock(mutex_);
        if (initialised_) {
            log_warning("VerticalCanvas already initialised");
            return true;
        }
        if (!init_locked()) {
            return false;
        }
    }
    video_reset_.Connect(obs_get_signal_handler(), "video_reset", on_video_reset, this);
    follow_host_sources_from_now();
    return true;
}

bool VerticalCanvas::init_locked() {
    obs_video_info host{};
    if (!obs_get_video_info(&host)) {
        log_error("obs_get_video_info failed — OBS not ready");
        return false;
    }
    apply_active_audio();

    view_.reset(obs_view_create());
    if (!view_) {
        log_error("obs_view_create() failed");
        return false;
    }
    if (!add_view(host)) {
        log_error("obs_view_add2() failed");
        view_.reset();
        return false;
    }
    audio_ = obs_get_audio();

    if (!create_scene_unlocked("Scene 1")) {
        log_warning("Failed to create default scene");
    }
    initialised_ = true;
    log_info("Canvas initialised: %ux%u @ %u/%u fps", width(), height(), fps_num(), fps_den());
    warn_if_faster_than(host);
    return true;
}

// Puts the view into the video pipeline with the host's formats and the canvas's own size and
// rate. Base and output size are equal so that nothing is rescaled.
bool VerticalCanvas::add_view(const obs_video_info &host) {
    if (!size_is_possible(width(), height(), host)) {
        log_error("Canvas size %ux%u is not possible: at most %ux%u, and even numbers with the "
                  "host's colour formats NV12 and P010",
            width(), height(), kLongestSide, kLongestSide);
        return false;
    }
    video_info_ = host;
    video_info_.base_width = video_info_.output_width = width();
    video_info_.base_height = video_info_.output_height = height();
    video_info_.fps_num = fps_num();
    video_info_.fps_den = fps_den();
    if (config_.follow_host_rate) {
        follow_rate_of(host);
    }
    video_ = obs_view_add2(view_.get(), &video_info_);
    return video_ != nullptr;
}

// With the rate at which libobs really renders it, a view's clock is true.
void VerticalCanvas::follow_rate_of(const obs_video_info &host) {
    video_info_.fps_num = host.fps_num;
    video_info_.fps_den = host.fps_den;
    const uint32_t divisor =
        corvane::frame_rate_divisor(host.fps_num, host.fps_den, fps_num(), fps_den());
    frame_rate_divisor_ = std::max(divisor, 1U);
    stream_fps_num_ = divisor == 0 ? host.fps_num : fps_num();
    stream_fps_den_ = divisor == 0 ? host.fps_den : fps_den();
    if (divisor != 1) {
        log_info("Canvas frame rate %u/%u, the host's %u/%u: the stream has %u/%u, one of every %u "
                 "frames",
            fps_num(), fps_den(), host.fps_num, host.fps_den, stream_fps_num_, stream_fps_den_,
            frame_rate_divisor_);
    }
}

// libobs renders the view at the host's rate but counts its frames at the canvas's. A slower
// canvas leaves frames out; a faster one is short of frames and its clock falls behind.
void VerticalCanvas::warn_if_faster_than(const obs_video_info &host) const {
    if (!config_.follow_host_rate &&
        uint64_t{fps_num()} * host.fps_den > uint64_t{host.fps_num} * fps_den()) {
        log_warning(
            "Canvas frame rate %u/%u is higher than the host's %u/%u: the vertical stream's "
            "clock will run slow — set both to the same rate",
            fps_num(), fps_den(), host.fps_num, host.fps_den);
    }
}

void VerticalCanvas::on_video_reset(void *canvas, calldata_t *) {
    auto *self = static_cast<VerticalCanvas *>(canvas);
    const std::scoped_lock lock(self->mutex_);
    if (self->initialised_) {
        self->add_view_again();
    }
}

// A reset of the host's video frees every view's place in the pipeline, the video output with
// it, and brings back only the host's own. The view itself and its scene live on, but libobs keeps
// items in proportion to the host's canvas: another size moves them, so all are placed anew.
void VerticalCanvas::add_view_again() {
    obs_view_remove(view_.get());
    video_ = nullptr;

    obs_video_info host{};
    if (!obs_get_video_info(&host) || !add_view(host)) {
        log_error("Canvas could not be added again after the host's video reset");
        return;
    }
    for (const VerticalScene &entry : scenes_) {
        if (entry.source) {
            place_source(entry, entry.source);
        }
    }
    log_info("Canvas added again after the host's video reset: %ux%u @ %u/%u fps", width(),
        height(), fps_num(), fps_den());
    warn_if_faster_than(host);
}

void VerticalCanvas::shutdown() {
    video_reset_.Disconnect();
    follow_host_sources_no_more();

    const std::scoped_lock lock(mutex_);
    if (!initialised_) {
        return;
    }
    obs_view_set_source(view_.get(), 0, nullptr);
    clear_active_audio();
    for (VerticalScene &entry : scenes_) {
        release_source(entry);
        entry.scene = nullptr;
    }
    scenes_.clear();
    active_index_ = kNoScene;

    remove_view();
    audio_ = nullptr;
    video_ = nullptr;
    initialised_ = false;
    log_info("Canvas shut down");
}

void VerticalCanvas::keep_video_for(OBSOutputAutoRelease output) {
    const std::scoped_lock lock(mutex_);
    lingering_output_ = std::move(output);
}

void VerticalCanvas::remove_view() {
    if (lingering_output_ && obs_output_active(lingering_output_)) {
        [[maybe_unused]] const obs_output_t *kept = obs_output_get_ref(lingering_output_);
        [[maybe_unused]] const obs_view_t *kept_view = view_.release();
    } else {
        obs_view_remove(view_.get());
        view_.reset();
    }
    lingering_output_ = nullptr;
}

void VerticalCanvas::clear_active_audio() {
    if (!config_.use_active_scene_audio) {
        return;
    }
    for (const VerticalScene &entry : scenes_) {
        if (entry.source) {
            remove_marker(entry.source);
        }
    }
}

void VerticalCanvas::apply_active_audio() {
    if (!config_.use_active_scene_audio) {
        return;
    }
    clear_active_audio();
    const VerticalScene *active = active_scene();
    if (active && active->source) {
        add_marker(active->source);
    }
}

// Every path that drops a source from a scene comes through here. The marker goes also when the
// option is off, so that the source keeps no trace of the canvas.
void VerticalCanvas::release_source(VerticalScene &entry) {
    const OBSSourceAutoRelease source = std::move(entry.source);
    if (!source) {
        return;
    }
    entry.source_name = obs_source_get_name(source);
    remove_marker(source);
    obs_source_dec_showing(source);

    // A draw callback that has read the old pointer runs inside the graphics context: once we
    // have been in there ourselves, it is done with it and the reference may go.
    publish_active_source();
    obs_enter_graphics();
    obs_leave_graphics();
}

void VerticalCanvas::publish_active_source() {
    const VerticalScene *active = active_scene();
    active_source_ = active ? active->source.Get() : nullptr;
}

} // namespace corvane
