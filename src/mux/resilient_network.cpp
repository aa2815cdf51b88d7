// SPDX-License-Identifier: GPL-2.0-or-later
// The network thread's way from connection to connection.
#include "base/log.hpp"
#include "base/url.hpp"
#include "mux/connection.hpp"
#include "mux/ffmpeg_log.hpp"
#include "mux/name_lookup.hpp"
#include "mux/resilient_output.hpp"
#include "mux/retry_delay.hpp"

#include <util/threading.h>

#include <utility>

namespace corvane {

namespace {

using namespace std::chrono_literals;

constexpr auto kConnectTime = 10s;
constexpr auto kCloseTime = 1s;
// Encoders have headers with their first packets; a track that has none by then stays out.
constexpr auto kTrackPatience = 1s;
constexpr auto kHeaderPatience = 10s;
// How long one track may keep the others waiting, in FFmpeg's microseconds.
constexpr int64_t kInterleaveUs = 1'000'000;
// How long libobs may take from the stop that a failed encoder causes to saying so.
constexpr auto kEncoderFailureGap = 100ms;

// FFmpeg's texts for these are about files and programs.
std::string reason_of(int code) {
    switch (code) {
    case AVERROR(ENOENT):
        return "The server's name is not known";
    case AVERROR_EOF:
        return "The server closed the connection";
    case AVERROR_EXIT:
        return error_text(AVERROR(ETIMEDOUT));
    default:
        return error_text(code);
    }
}

} // namespace

// Without a first connection there is no stream, and the user is told why; one that was there is
// made again until the user has had enough.
void ResilientOutput::run() {
    os_set_thread_name("corvane: network");
    bool was_connected = false;
    while (wanted()) {
        const StreamSettings settings = current_settings();
        const DiscreetLog discreet(secrets_of(settings.url));
        if (connect(settings)) {
            was_connected = true;
            send_until_lost();
        } else if (!was_connected) {
            end(OBS_OUTPUT_ERROR);
        }
        hang_up();
        wait_before_retry();
    }
    tell_the_end();
}

StreamSettings ResilientOutput::current_settings() {
    const std::scoped_lock lock(mutex_);
    return settings_;
}

bool ResilientOutput::connect(const StreamSettings &settings) {
    if (!wait_for_headers()) {
        return false;
    }
    const auto begin = LiveBuffer::Clock::now();
    interrupt_.allow(kConnectTime);
    const std::optional<Failure> failure = open_stream(settings);
    if (!wanted()) {
        return false;
    }
    if (failure) {
        not_connected(*failure);
        return false;
    }
    connected_at_ = LiveBuffer::Clock::now();
    connect_time_ms_ = static_cast<int>((connected_at_ - begin) / 1ms);
    connected(settings.url);
    return true;
}

bool ResilientOutput::wait_for_headers() {
    const auto begin = LiveBuffer::Clock::now();
    for (;;) {
        const EncoderHeaders headers = encoder_headers(output_);
        const auto patience =
            headers == EncoderHeaders::kMissing ? kHeaderPatience : kTrackPatience;
        if (headers == EncoderHeaders::kComplete ||
            (headers == EncoderHeaders::kUsable && LiveBuffer::Clock::now() >= begin + patience)) {
            return true;
        }
        if (LiveBuffer::Clock::now() >= begin + patience) {
            obs_output_set_last_error(output_, "The encoders deliver no codec headers");
            return false;
        }
        if (!buffer_.wait_for_more(begin + patience)) {
            return false;
        }
    }
}

std::optional<ResilientOutput::Failure> ResilientOutput::open_stream(
    const StreamSettings &settings) {
    if (build_muxer(output_, settings, muxer_) != OpenResult::kOpened) {
        return Failure{"build_muxer", AVERROR_UNKNOWN}; // the output's last error says more
    }
    AVFormatContext &context = *muxer_.context;
    context.max_interleave_delta = kInterleaveUs;
    context.interrupt_callback = interrupt_.callback();
    Dictionary options = connection_options(settings.url);
    int error = look_up(host_of(settings.url.url), interrupt_);
    if (error == 0) {
        error = open_connection(context, settings.url, options);
    }
    if (error != 0) {
        obs_output_set_last_error(output_, "Stream rejected — check server URL and stream key");
        return Failure{"avio_open2", error};
    }
    error = avformat_write_header(&context, options.get());
    if (error < 0) {
        obs_output_set_last_error(output_, "Stream rejected — write header failed");
        return Failure{"avformat_write_header", error};
    }
    return std::nullopt;
}

void ResilientOutput::connected(const StreamUrl &url) {
    path_.begin_stream(muxer_);
    zero_.reset();
    lost_ = 0;
    proven_ = false;
    buffer_.resume();
    log_opened(muxer_, url.shown().c_str());
    const std::scoped_lock lock(mutex_);
    if (phase_ == Phase::kReconnecting) {
        log_info("reconnect succeeded");
    }
    phase_ = Phase::kConnected;
}

void ResilientOutput::proven() {
    proven_ = true;
    const std::scoped_lock lock(mutex_);
    failures_ = 0;
    reason_.clear();
}

void ResilientOutput::connection_lost() {
    std::string reason = reason_of(lost_);
    log_warning("connection lost: %s (code %d), reconnecting", reason.c_str(), lost_);
    if (!proven_) {
        reason += " right after it was made — check server URL and stream key";
    }
    const std::scoped_lock lock(mutex_);
    phase_ = Phase::kReconnecting;
    ++failures_;
    reason_ = std::move(reason);
}

// The first connection's failure is the user's message, said by end(); later ones say what comes.
void ResilientOutput::not_connected(const Failure &failure) {
    const std::string reason = reason_of(failure.code);
    const std::scoped_lock lock(mutex_);
    if (phase_ == Phase::kConnecting) {
        log_error("%s failed: %s (code %d)", failure.call, reason.c_str(), failure.code);
        return;
    }
    log_warning("reconnect %u failed: %s (code %d), next attempt in %u s", failures_,
        reason.c_str(), failure.code,
        static_cast<unsigned>(retry_delay_ns(failures_ + 1) / kRetryStepNs));
    ++failures_;
    reason_ = reason;
}

// Also a header that was refused may leave a connection open.
void ResilientOutput::hang_up() {
    buffer_.pause();
    if (!muxer_.is_open()) {
        return;
    }
    interrupt_.allow(kCloseTime);
    AVFormatContext &context = *muxer_.context;
    if (context.pb) {
        if (context.pb->error == 0 && lost_ == 0) {
            av_write_trailer(&context);
        }
        earlier_bytes_ += static_cast<uint64_t>(context.pb->bytes_written);
        close_connection(context);
    }
    muxer_ = {};
}

void ResilientOutput::wait_before_retry() {
    std::unique_lock lock(mutex_);
    const std::chrono::nanoseconds delay(retry_delay_ns(failures_));
    changed_.wait_for(lock, delay, [this] { return end_code_.has_value(); });
}

// libobs must have begun before it can be told of an end, and what it says about a failed encoder
// comes right after the stop that the failure causes.
void ResilientOutput::tell_the_end() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return capturing_.has_value(); });
    if (forced_) {
        changed_.wait_for(
            lock, kEncoderFailureGap, [this] { return end_code_ != OBS_OUTPUT_SUCCESS; });
    }
    const int code = *end_code_;
    const bool capturing = *capturing_;
    phase_ = Phase::kStopped;
    failures_ = 0;
    lock.unlock();
    if (!capturing) {
        return;
    }
    if (code == OBS_OUTPUT_SUCCESS) {
        obs_output_end_data_capture(output_);
    } else {
        obs_output_signal_stop(output_, code);
    }
}

} // namespace corvane
