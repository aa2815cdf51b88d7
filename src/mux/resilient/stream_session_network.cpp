// SPDX-License-Identifier: GPL-2.0-or-later
// The network thread: connecting, sending, disconnecting, reconnecting.
#include "base/log.hpp"
#include "mux/common/retry_delay.hpp"
#include "mux/resilient/connection_target.hpp"
#include "mux/resilient/packet_sender.hpp"
#include "mux/resilient/run_abandonable.hpp"
#include "mux/resilient/stream_session.hpp"
#include "mux/resilient/stream_timeouts.hpp"

#include <system_error>
#include <utility>

namespace corvane {

namespace {

using namespace std::chrono_literals;

// Encoders have headers with their first packets; a track without one by then is left out.
constexpr std::chrono::milliseconds kAudioHeaderTimeout = 1s;
// Some servers accept a stream and close it at once: a connection is stable after sending video for
// this long.
constexpr auto kStableAfter = 2s;
// Calls that can be interrupted return within this time; the next start may need what they free,
// such as an SRT listener's port.
constexpr auto kInterruptTime = 300ms;
constexpr const char *kNothingToSend = "The encoders deliver nothing that could be sent";

// FFmpeg's texts for AVERROR_EOF and AVERROR_EXIT are about files and programs, and its other codes
// too general.
std::string reason_of(const StreamError &error, const std::string &details = {}) {
    switch (error.code) {
    case 0:
        return error.message;
    case AVERROR_EOF:
        return "The server closed the connection";
    case AVERROR_EXIT:
        return error_text(AVERROR(ETIMEDOUT));
    case AVERROR(EIO):
    case AVERROR(EINVAL):
        // Also for an unknown host, a refused certificate or a bad option.
        return details.empty() ? error_text(error.code) : details;
    default:
        return error_text(error.code);
    }
}

} // namespace

// The stream ends with an error if the first connection fails; later ones are retried until the
// user stops.
void StreamSession::run_stream() {
    bool was_connected = false;
    while (wanted()) {
        const std::optional<StreamError> error = connect();
        if (error && wanted()) {
            not_connected(*error);
        }
        if (!error && wanted()) {
            was_connected = true;
            send_until_lost();
        } else if (!was_connected) {
            end(OBS_OUTPUT_ERROR);
        }
        disconnect();
        wait_before_retry();
    }
}

std::optional<StreamError> StreamSession::connect() {
    if (auto objection = objection_to(settings_().url)) {
        return objection;
    }
    if (std::optional<StreamError> error = wait_for_headers(); error || !wanted()) {
        return error;
    }
    const auto begin = Clock::now();
    std::optional<StreamError> error = open_connection();
    if (!error && wanted()) {
        connect_time_ms_ = static_cast<int>((Clock::now() - begin) / 1ms);
        buffer_.resume();
        log_opened(connection_->muxer(), connection_->url().shown().c_str());
    }
    return error;
}

// libobs passes on the first packet once every encoder has delivered one.
std::optional<StreamError> StreamSession::wait_for_headers() {
    const auto begin = Clock::now();
    for (;;) {
        const EncoderHeaders headers =
            buffer_.has_received() ? encoder_headers(output_) : EncoderHeaders::kMissing;
        const bool usable = headers == EncoderHeaders::kUsable;
        const auto deadline = begin + (usable ? kAudioHeaderTimeout : stream_timeouts.encoders);
        const bool too_late = Clock::now() >= deadline;
        if (headers == EncoderHeaders::kComplete || (usable && too_late)) {
            return std::nullopt;
        }
        if (too_late) {
            return StreamError{.message = kNothingToSend};
        }
        if (!buffer_.wait_for_more(deadline)) {
            return std::nullopt; // the stream ends
        }
    }
}

// A call that cannot be interrupted, such as a name lookup, is abandoned with its connection.
std::optional<StreamError> StreamSession::open_connection() {
    const StreamSettings settings = settings_();
    Muxer muxer;
    if (const auto error = build_muxer(output_, settings, muxer); error || !muxer.is_open()) {
        return error.value_or(StreamError{.call = "build_muxer", .message = kNothingToSend});
    }
    const auto connection = std::make_shared<Connection>(std::move(muxer), settings.url);
    {
        const std::scoped_lock lock(mutex_);
        if (!wanted_locked()) {
            return std::nullopt;
        }
        connection_ = connection;
    }
    const auto error = std::make_shared<std::optional<StreamError>>();
    if (run_abandonable([connection, error] { *error = connection->open(); },
            [&] { return connection->interrupt().expired(kInterruptTime); })) {
        return *error;
    }
    const std::scoped_lock lock(mutex_);
    connection_.reset();
    return connect_error(AVERROR(ETIMEDOUT));
}

void StreamSession::not_connected(const StreamError &error) {
    const std::string reason =
        reason_of(error, connection_ ? connection_->error_details() : std::string());
    uint32_t failures = 0;
    {
        const std::scoped_lock lock(mutex_);
        if (phase_ == Phase::kReconnecting) {
            failures = failures_++;
            reason_ = reason;
        }
    }
    if (failures > 0) {
        log_warning("reconnect %u failed: %s (code %d), next attempt in %u s", failures,
            reason.c_str(), error.code,
            static_cast<unsigned>(retry_delay_ns(failures + 1) / kRetryStepNs));
        return;
    }
    if (error.call) {
        log_error("%s failed: %s (code %d)", error.call, reason.c_str(), error.code);
    } else {
        log_error("%s", reason.c_str());
    }
    const std::string message =
        error.message == reason ? reason : error.message + ("\n\n" + reason);
    obs_output_set_last_error(output_, message.c_str());
}

void StreamSession::send_until_lost() {
    Connection &connection = *connection_;
    PacketSender sender(
        connection, [this](bool video, const char *reason) { count_bad_packet(video, reason); });
    bool stable = false;
    bool stalled = false;
    while (connection.error() == 0) {
        const SharedPacket packet = buffer_.wait_pop(Clock::now() + stream_timeouts.encoders);
        if (!packet && !wanted()) {
            return;
        }
        if (stalled != !packet) {
            stalled = !packet;
            set_stalled(stalled);
        }
        if (!packet) {
            continue;
        }
        sender.send(*packet);
        bytes_ = earlier_bytes_ + connection.bytes();
        if (!stable && connection.error() == 0 && sender.sending_time() >= kStableAfter) {
            stable = true;
            became_stable();
        }
    }
    if (wanted()) {
        connection_lost(stable);
    }
}

void StreamSession::became_stable() {
    bool again = false;
    {
        const std::scoped_lock lock(mutex_);
        if (!wanted_locked()) {
            return;
        }
        again = phase_ == Phase::kReconnecting;
        phase_ = Phase::kConnected;
        failures_ = 0;
        reason_.clear();
    }
    if (again) {
        log_info("reconnect succeeded");
    }
}

void StreamSession::set_stalled(bool stalled) {
    if (stalled) {
        log_warning("no packet from the encoders for %d s",
            static_cast<int>(stream_timeouts.encoders / 1s));
    } else {
        log_info("the encoders deliver again");
    }
    const std::scoped_lock lock(mutex_);
    stalled_ = stalled;
}

void StreamSession::connection_lost(bool stable) {
    const int code = connection_->error();
    std::string reason = reason_of({.code = code});
    log_warning("connection lost: %s (code %d), reconnecting", reason.c_str(), code);
    if (!stable) {
        reason += " right after it was made — check server URL and stream key";
    }
    const std::scoped_lock lock(mutex_);
    if (wanted_locked()) {
        phase_ = Phase::kReconnecting;
        stalled_ = false;
        ++failures_;
        reason_ = std::move(reason);
    }
}

// libsrt needs a second to clean up after its last connection and cannot be interrupted: longer
// than a stop may take.
void StreamSession::disconnect() {
    buffer_.pause();
    const std::shared_ptr<Connection> connection = connection_;
    if (!connection) {
        return;
    }
    earlier_bytes_ += connection->bytes();
    connection->interrupt().set_deadline(stream_timeouts.close);
    try {
        run_abandonable([connection] { connection->close(); },
            [&] { return connection->interrupt().expired(); });
    } catch (const std::system_error &) {
        connection->close(); // no thread available
    }
    const std::scoped_lock lock(mutex_);
    connection_.reset();
}

void StreamSession::wait_before_retry() {
    std::unique_lock lock(mutex_);
    const std::chrono::nanoseconds delay(retry_delay_ns(failures_));
    changed_.wait_for(lock, delay, [this] { return !wanted_locked(); });
}

} // namespace corvane
