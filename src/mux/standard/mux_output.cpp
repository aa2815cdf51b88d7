// SPDX-License-Identifier: GPL-2.0-or-later
// Settings, start and stop; opening and closing the muxer; the write thread.
#include "mux/standard/mux_output.hpp"

#include "base/log.hpp"
#include "mux/common/retry_delay.hpp"

#include <util/platform.h>

#include <utility>

namespace corvane {

MuxOutput::MuxOutput(obs_data_t *settings, obs_output_t *output)
    : StreamOutput(output) {
    settings_.read(settings);
}

MuxOutput::~MuxOutput() {
    const std::scoped_lock lock(mutex_);
    close_muxer();
    free_pending_packets();
}

void MuxOutput::update(obs_data_t *settings) {
    const std::scoped_lock lock(mutex_);
    settings_.read(settings);
}

bool MuxOutput::start() {
    {
        const std::scoped_lock lock(mutex_);
        reconnecting_ = false;
        next_retry_ns_ = 0;
        retry_count_ = 0;
        if (settings_.url.url.empty()) {
            obs_output_set_last_error(output_, kMissingUrl);
            return false;
        }
        active_ = true;
        fatal_ = false;
        capture_ = Capture::kBeginning;
        close_muxer(); // left from a stream that ended with an error
        free_pending_packets();
    }
    // Without the lock: libobs takes its own locks here, and packets arrive with those held.
    if (!begin_capture()) {
        {
            const std::scoped_lock lock(mutex_);
            active_ = false;
        }
        if (capture_.exchange(Capture::kStopped) != Capture::kBeginning) {
            obs_output_end_data_capture(output_); // the stop waits for it
        }
        return false;
    }
    // Also without the lock: the first packet's callback may hold it while connecting.
    Capture capture = Capture::kBeginning;
    if (!capture_.compare_exchange_strong(capture, Capture::kRunning)) {
        if (capture == Capture::kFailed) {
            end_capture_with_error();
        } else {
            obs_output_end_data_capture(output_);
        }
    }
    return true;
}

bool MuxOutput::claim_capture_end(Capture how) {
    return capture_.exchange(how) != Capture::kBeginning;
}

// The muxer is opened by the packet callback: its streams need codec headers, which exist only
// after each encoder has produced output.
bool MuxOutput::begin_capture() {
    if (!prepare_capture()) {
        return false;
    }
    obs_output_begin_data_capture(output_, kVideoAndAudio);
    return true;
}

void MuxOutput::stop(bool) {
    {
        const std::scoped_lock lock(mutex_);
        reconnecting_ = false;
        next_retry_ns_ = 0;
        retry_count_ = 0;
        if (!active_) {
            return;
        }
        active_ = false;
    }
    // Without the lock, since libobs may call back.
    if (claim_capture_end(Capture::kStopped)) {
        obs_output_end_data_capture(output_);
    }
    const std::scoped_lock lock(mutex_);
    close_muxer();
}

void MuxOutput::end_with_error() {
    std::unique_lock lock(mutex_);
    if (active_) {
        deactivate_with_error(std::move(lock));
    }
}

void MuxOutput::free_pending_packets() {
    pending_video_.reset();
    pending_audio_ = {};
}

// The write thread starts before the header's result is checked, see docs/DECISIONS.md. When the
// header failed, the thread waits at its empty queue until close_muxer() joins it; opening again
// before that assigns to a joinable std::thread, which ends the process.
MuxOutput::OpenResult MuxOutput::open_muxer() {
    if (settings_.url.url.empty()) {
        return open_failed({.message = kMissingUrl});
    }
    Muxer muxer;
    if (const auto error = build_muxer(output_, settings_, muxer)) {
        return open_failed(*error);
    }
    if (!muxer.is_open()) {
        return OpenResult::kNotReady;
    }
    AVFormatContext &context = *muxer.context;
    Dictionary options = connection_options(settings_.url);
    if (const auto error = open_connection(context, settings_.url.url, options)) {
        log_error("avio_open2 failed: %s (code %d)", error_text(error->code).c_str(), error->code);
        return open_failed(*error);
    }
    const std::optional<StreamError> header_error = write_header(context, options);
    queue_.start();
    write_thread_ = std::thread(&MuxOutput::write_thread_loop, this);
    if (header_error) {
        log_error("avformat_write_header failed: %s (code %d)",
            error_text(header_error->code).c_str(), header_error->code);
        close_connection(context);
        return open_failed(*header_error);
    }
    muxer_ = std::move(muxer);
    path_.begin_stream(muxer_);
    log_opened(muxer_, settings_.url.url.c_str());
    return OpenResult::kOpened;
}

MuxOutput::OpenResult MuxOutput::open_failed(const StreamError &error) {
    obs_output_set_last_error(output_, error.message);
    return OpenResult::kFatal;
}

// Packets still queued are discarded, not flushed.
void MuxOutput::close_muxer() {
    queue_.stop();
    if (write_thread_.joinable()) {
        write_thread_.join();
    }
    if (muxer_.is_open()) {
        av_write_trailer(muxer_.context.get());
        close_connection(*muxer_.context);
    }
    muxer_ = {};
}

// Only EIO starts reconnecting; any other error silently loses the packet.
void MuxOutput::write_thread_loop() {
    while (PacketHandle packet = queue_.wait_pop()) {
        const int result = av_interleaved_write_frame(muxer_.context.get(), packet.get());
        packet.reset();
        if (result == AVERROR(EIO)) {
            enter_reconnect_mode(result);
        }
    }
}

// Runs on the write thread, see docs/DECISIONS.md. Takes the output lock and closes the muxer as a
// stop does: close_muxer() joins the thread it runs on, std::thread throws a deadlock error that
// nothing catches, and the process ends. The lines after it are reached only where the join
// returns. A stop that is already joining this thread holds the lock: then both wait forever.
void MuxOutput::enter_reconnect_mode(int error) {
    const std::scoped_lock lock(mutex_);
    log_warning("entering reconnect mode: write thread EIO (%s, code=%d)",
        error_text(error).c_str(), error);
    close_muxer();
    free_pending_packets();
    reconnecting_ = true;
    ++retry_count_;
    next_retry_ns_ = os_gettime_ns() + retry_delay_ns(retry_count_);
    obs_output_set_last_error(output_, "RTMP/SRT disconnected, reconnecting...");
}

} // namespace corvane
