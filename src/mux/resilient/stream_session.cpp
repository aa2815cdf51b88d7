// SPDX-License-Identifier: GPL-2.0-or-later
// State shared between the network thread and libobs's threads.
#include "mux/resilient/stream_session.hpp"

#include "base/log.hpp"

#include <exception>
#include <utility>

#include <util/threading.h>

namespace corvane {

namespace {

using namespace std::chrono_literals;

// Time for the trailer and a clean close, so that a stop takes less than a second.
constexpr auto kCloseOnEnd = 500ms;
constexpr auto kLogInterval = 1s;
// libobs reports an encoder failure shortly after the stop it triggers; wait this long for it. A
// later one causes a second "stop" signal.
constexpr auto kEncoderFailureGap = 300ms;

} // namespace

StreamSession::StreamSession(obs_output_t *output, std::function<StreamSettings()> settings)
    : output_(output)
    , settings_(std::move(settings)) {}

void StreamSession::run() {
    os_set_thread_name("corvane: network");
    try {
        run_stream();
    } catch (const std::exception &error) {
        log_error("Stream ended: %s", error.what());
        obs_output_set_last_error(output_, error.what());
        end(OBS_OUTPUT_ERROR);
        std::unique_lock lock(mutex_);
        const std::shared_ptr<Connection> closed = std::exchange(connection_, nullptr);
        lock.unlock(); // closing blocks
    }
    signal_end();
}

void StreamSession::capture_began(bool success) {
    {
        const std::scoped_lock lock(mutex_);
        capture_ = success ? Capture::kRunning : Capture::kRefused;
    }
    changed_.notify_all();
    if (!success) {
        end(OBS_OUTPUT_SUCCESS);
    }
}

void StreamSession::end(int code) {
    const std::scoped_lock lock(mutex_);
    if (!wanted_locked()) {
        return;
    }
    phase_ = Phase::kEnding;
    end_code_ = code;
    if (connection_) {
        connection_->interrupt().set_final_deadline(
            connection_->header_written() ? kCloseOnEnd : 0ms);
    }
    buffer_.close();
    changed_.notify_all();
}

bool StreamSession::stop(bool forced) {
    {
        const std::scoped_lock lock(mutex_);
        if (phase_ >= Phase::kSignallingEnd) {
            return true;
        }
        if (forced && !forced_at_) {
            forced_at_ = Clock::now();
        }
    }
    end(OBS_OUTPUT_SUCCESS);
    return false;
}

void StreamSession::encoder_failed() {
    end(OBS_OUTPUT_ENCODE_ERROR);
    std::unique_lock lock(mutex_);
    if (!forced_at_ || end_code_ != OBS_OUTPUT_SUCCESS) {
        return; // reported already, or the stream ended with another error
    }
    end_code_ = OBS_OUTPUT_ENCODE_ERROR;
    if (phase_ == Phase::kEnding) {
        changed_.notify_all();
        return;
    }
    // Called with libobs's locks held, so not longer than "stop" handlers should take.
    changed_.wait_for(lock, 1s, [this] { return phase_ == Phase::kEnded; });
    lock.unlock();
    obs_output_signal_stop(output_, OBS_OUTPUT_ENCODE_ERROR);
}

void StreamSession::push(const encoder_packet &packet) {
    if (buffer_.push(packet)) {
        report_drops();
    }
}

bool StreamSession::wanted() const {
    const std::scoped_lock lock(mutex_);
    return wanted_locked();
}

ConnectionState StreamSession::connection_state() const {
    using enum ConnectionState::Phase;
    const std::scoped_lock lock(mutex_);
    ConnectionState state{.phase = kStopped, .failures = 0, .reason = reason_};
    if (wanted_locked()) {
        state.phase = listening_locked()               ? kListening
                      : stalled_                       ? kStalled
                      : phase_ == Phase::kConnecting   ? kConnecting
                      : phase_ == Phase::kReconnecting ? kReconnecting
                                                       : kConnected;
        state.failures = failures_;
    }
    return state;
}

bool StreamSession::listening_locked() const {
    return connection_ && connection_->url().is_srt_listener() && !connection_->header_written();
}

StreamOutput::Statistics StreamSession::statistics() const {
    return {.total_bytes = bytes_,
        .dropped_frames = static_cast<int>(buffer_.dropped_frames()) + bad_frames_,
        .congestion = buffer_.fill(),
        .connect_time_ms = connect_time_ms_};
}

void StreamSession::report_drops() {
    const uint64_t frames = buffer_.dropped_frames();
    const uint64_t audio = buffer_.dropped_audio();
    const auto now = Clock::now();
    if ((frames == logged_frames_ && audio == logged_audio_) ||
        now - drops_logged_at_ < kLogInterval) {
        return;
    }
    if (frames != logged_frames_) {
        log_warning("video frames dropped: %d, %d in all",
            static_cast<int>(frames - logged_frames_), static_cast<int>(frames));
    }
    if (audio != logged_audio_) {
        log_warning("audio packets dropped: %d, %d in all", static_cast<int>(audio - logged_audio_),
            static_cast<int>(audio));
    }
    logged_frames_ = frames;
    logged_audio_ = audio;
    drops_logged_at_ = now;
}

void StreamSession::count_bad_packet(bool video, const char *reason) {
    bad_frames_ += video ? 1 : 0;
    ++bad_packets_;
    const auto now = Clock::now();
    if (now - bad_packet_logged_ >= kLogInterval) {
        log_warning("packet dropped: %s; %d in all", reason, bad_packets_);
        bad_packet_logged_ = now;
    }
}

// libobs ignores an end before the capture has begun. After the call the output may be destroyed,
// by another thread or by a "stop" handler on this one, and must not be used.
void StreamSession::signal_end() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return capture_ != Capture::kBeginning; });
    if (forced_at_) {
        changed_.wait_until(lock, *forced_at_ + kEncoderFailureGap,
            [this] { return end_code_ != OBS_OUTPUT_SUCCESS; });
    }
    const int code = end_code_;
    // A forced stop waits for an end even when libobs refused to begin the capture.
    const bool capturing = capture_ == Capture::kRunning || forced_at_;
    phase_ = Phase::kSignallingEnd;
    lock.unlock();
    if (capturing && code == OBS_OUTPUT_SUCCESS) {
        obs_output_end_data_capture(output_);
    } else if (capturing) {
        obs_output_signal_stop(output_, code);
    }
    lock.lock();
    phase_ = Phase::kEnded;
    changed_.notify_all();
}

} // namespace corvane
