// SPDX-License-Identifier: GPL-2.0-or-later
// The network thread's way from connection to connection.
#include "base/log.hpp"
#include "mux/resilient_output.hpp"
#include "mux/retry_delay.hpp"
#include "mux/run_or_leave.hpp"

#include <util/threading.h>

#include <utility>

namespace corvane {

namespace {

using namespace std::chrono_literals;

constexpr auto kCloseTime = 1s;
// Encoders have headers with their first packets; a track that has none by then stays out.
constexpr auto kTrackPatience = 1s;
constexpr auto kHeaderPatience = 10s;
// How long libobs may take from the stop that a failed encoder causes to saying so.
constexpr auto kEncoderFailureGap = 300ms;

// FFmpeg's texts for these two are about files and programs.
std::string reason_of(int code) {
    switch (code) {
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
        if (connect()) {
            was_connected = true;
            send_until_lost();
        } else if (!was_connected && wanted()) {
            end(OBS_OUTPUT_ERROR);
        }
        hang_up();
        wait_before_retry();
    }
    tell_the_end();
}

bool ResilientOutput::connect() {
    if (!wait_for_headers()) {
        return false;
    }
    const auto begin = Clock::now();
    const std::optional<Failure> failure = open_connection();
    if (!wanted()) {
        return false;
    }
    if (failure) {
        not_connected(*failure);
        return false;
    }
    connect_time_ms_ = static_cast<int>((Clock::now() - begin) / 1ms);
    connected();
    return true;
}

// libobs hands out the first packet when every encoder has delivered one.
bool ResilientOutput::wait_for_headers() {
    const auto begin = Clock::now();
    for (;;) {
        const EncoderHeaders headers =
            buffer_.anything_yet() ? encoder_headers(output_) : EncoderHeaders::kMissing;
        const bool usable = headers == EncoderHeaders::kUsable;
        const auto until = begin + (usable ? kTrackPatience : kHeaderPatience);
        const bool too_late = Clock::now() >= until;
        if (headers == EncoderHeaders::kComplete || (usable && too_late)) {
            return true;
        }
        if (too_late) {
            constexpr const char *kMessage = "The encoders deliver nothing that could be sent";
            log_error("%s", kMessage);
            obs_output_set_last_error(output_, kMessage);
            return false;
        }
        if (!buffer_.wait_for_more(until)) {
            return false;
        }
    }
}

// What cannot be interrupted, a name lookup above all, is left behind with its connection.
std::optional<ResilientOutput::Failure> ResilientOutput::open_connection() {
    StreamSettings settings;
    {
        const std::scoped_lock lock(mutex_);
        settings = settings_;
    }
    Muxer muxer;
    if (build_muxer(output_, settings, muxer) != OpenResult::kOpened) {
        return Failure{.call = "build_muxer", .code = AVERROR_UNKNOWN, .message = nullptr};
    }
    const auto connection = std::make_shared<LiveConnection>(std::move(muxer), settings.url);
    {
        const std::scoped_lock lock(mutex_);
        if (end_code_) {
            return std::nullopt;
        }
        connection_ = connection;
    }
    const auto failure = std::make_shared<std::optional<Failure>>();
    if (run_or_leave([connection, failure] { *failure = connection->open(); },
            [&] { return connection->interrupt().expired(); })) {
        return *failure;
    }
    const std::scoped_lock lock(mutex_);
    connection_.reset();
    return Failure{.call = "avio_open2",
        .code = AVERROR(ETIMEDOUT),
        .message = "Stream rejected — check server URL and stream key"};
}

// To the user the stream is back when the connection has lasted for a while: some servers take one
// and throw it out at once.
void ResilientOutput::connected() {
    path_.begin_stream(connection_->muxer());
    zero_.reset();
    sound_begun_.reset();
    proven_ = false;
    buffer_.resume();
    log_opened(connection_->muxer(), connection_->url().shown().c_str());
    const std::scoped_lock lock(mutex_);
    connected_ = true;
}

// The first connection's failure is the user's message, said by end(); later ones say what comes.
void ResilientOutput::not_connected(const Failure &failure) {
    const std::string reason = reason_of(failure.code);
    uint32_t failures = 0;
    {
        const std::scoped_lock lock(mutex_);
        if (phase_ == Phase::kReconnecting) {
            failures = failures_++;
            reason_ = reason;
        }
    }
    if (failures == 0) {
        log_error("%s failed: %s (code %d)", failure.call, reason.c_str(), failure.code);
        if (failure.message) {
            obs_output_set_last_error(output_, failure.message);
        }
        return;
    }
    log_warning("reconnect %u failed: %s (code %d), next attempt in %u s", failures, reason.c_str(),
        failure.code, static_cast<unsigned>(retry_delay_ns(failures + 1) / kRetryStepNs));
}

void ResilientOutput::proven() {
    proven_ = true;
    bool again = false;
    {
        const std::scoped_lock lock(mutex_);
        again = phase_ == Phase::kReconnecting;
        phase_ = Phase::kConnected;
        failures_ = 0;
        reason_.clear();
    }
    if (again) {
        log_info("reconnect succeeded");
    }
}

void ResilientOutput::connection_lost() {
    const int error = connection_->lost();
    std::string reason = reason_of(error);
    log_warning("connection lost: %s (code %d), reconnecting", reason.c_str(), error);
    if (!proven_) {
        reason += " right after it was made — check server URL and stream key";
    }
    const std::scoped_lock lock(mutex_);
    phase_ = Phase::kReconnecting;
    ++failures_;
    reason_ = std::move(reason);
}

// libsrt takes a second to clear up after its last connection, which nothing interrupts: longer
// than a stop may last.
void ResilientOutput::hang_up() {
    buffer_.pause();
    const std::shared_ptr<LiveConnection> connection = connection_;
    if (!connection) {
        return;
    }
    earlier_bytes_ += connection->bytes();
    connection->interrupt().allow(kCloseTime);
    run_or_leave(
        [connection] { connection->close(); }, [&] { return connection->interrupt().expired(); });
    const std::scoped_lock lock(mutex_);
    connection_.reset();
    connected_ = false;
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
    if (forced_at_) {
        changed_.wait_until(lock, *forced_at_ + kEncoderFailureGap,
            [this] { return end_code_ != OBS_OUTPUT_SUCCESS; });
    }
    const int code = end_code_.value_or(OBS_OUTPUT_SUCCESS);
    const bool capturing = capturing_.value_or(false);
    end_told_ = true;
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
