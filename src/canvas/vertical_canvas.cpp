// SPDX-License-Identifier: GPL-2.0-or-later
#include "canvas/vertical_canvas.hpp"

#include "base/log.hpp"

#include <algorithm>
#include <numeric>
#include <utility>

namespace corvane {

namespace {

constexpr uint32_t kMaxSide = 16384; // of a texture, with common drivers

// Whether libobs converts to the format with one two-plane texture, which cannot have odd sides.
bool needs_even_size(const obs_video_info &host) {
    obs_enter_graphics();
    const bool two_planes = host.gpu_conversion &&
                            ((host.output_format == VIDEO_FORMAT_NV12 && gs_nv12_available()) ||
                                (host.output_format == VIDEO_FORMAT_P010 && gs_p010_available()));
    obs_leave_graphics();
    return two_planes;
}

// libobs refuses other sizes too, but leaks a thread that blocks the host's exit, or ends the
// process when out of memory.
bool size_is_possible(uint32_t width, uint32_t height, const obs_video_info &host) {
    const bool odd = width % 2 != 0 || height % 2 != 0;
    return std::max(width, height) <= kMaxSide && !(odd && needs_even_size(host));
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
        if (!create_view()) {
            return false;
        }
    }
    video_reset_.Connect(obs_get_signal_handler(), "video_reset", on_video_reset, this);
    connect_source_signals();
    return true;
}

bool VerticalCanvas::create_view() {
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

    if (!create_scene_unlocked(kDefaultScene)) {
        log_warning("Failed to create default scene");
    }
    initialised_ = true;
    log_info("Canvas initialised: %ux%u @ %u/%u fps", width(), height(), fps_num(), fps_den());
    warn_if_faster_than(host);
    return true;
}

// Adds the view to the video pipeline with the host's formats and the canvas's size and rate. Base
// and output size are equal, so nothing is rescaled.
bool VerticalCanvas::add_view(const obs_video_info &host) {
    if (!size_is_possible(width(), height(), host)) {
        log_error("Canvas size %ux%u is not possible: at most %ux%u, and even numbers with the "
                  "host's colour formats NV12 and P010",
            width(), height(), kMaxSide, kMaxSide);
        return false;
    }
    video_info_ = host;
    video_info_.base_width = video_info_.output_width = width();
    video_info_.base_height = video_info_.output_height = height();
    video_info_.fps_num = fps_num();
    video_info_.fps_den = fps_den();
    if (config_.follow_host_rate) {
        use_host_rate(host);
    }
    video_ = obs_view_add2(view_.get(), &video_info_);
    return video_ != nullptr;
}

// A view's clock is only right at the rate at which libobs renders it, the host's.
void VerticalCanvas::use_host_rate(const obs_video_info &host) {
    video_info_.fps_num = host.fps_num;
    video_info_.fps_den = host.fps_den;
    const uint32_t divisor =
        corvane::frame_rate_divisor(host.fps_num, host.fps_den, fps_num(), fps_den());
    frame_rate_divisor_ = std::max(divisor, 1U);
    const uint32_t common = std::gcd(host.fps_num, frame_rate_divisor_);
    stream_fps_num_ = host.fps_num / common;
    stream_fps_den_ = host.fps_den * (frame_rate_divisor_ / common);
    if (divisor > 1 || stream_fps_num_ != fps_num() || stream_fps_den_ != fps_den()) {
        log_info("Canvas frame rate %u/%u, the host's %u/%u: the stream has %u/%u, one of every %u "
                 "frames",
            fps_num(), fps_den(), host.fps_num, host.fps_den, stream_fps_num_, stream_fps_den_,
            frame_rate_divisor_);
    }
}

// libobs renders the view at the host's rate but counts frames at the canvas's. A slower canvas
// skips frames; a faster one gets too few, and its clock falls behind.
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

// A reset of the host's video removes every view from the pipeline, with its video output, and adds
// only the host's own again. The view and its scene survive, but libobs scales items with the
// host's canvas, so all are placed again.
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
    disconnect_source_signals();

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

} // namespace corvane
