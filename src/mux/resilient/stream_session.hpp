// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "mux/common/connection_state.hpp"
#include "mux/common/stream_error.hpp"
#include "mux/common/stream_output.hpp"
#include "mux/common/stream_url.hpp"
#include "mux/resilient/connection.hpp"
#include "mux/resilient/send_buffer.hpp"

#include <obs.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace corvane {

// One stream from start to end: connects, sends, reconnects until it is stopped, and reports its
// end to libobs once, whatever the reason. All on the thread of run(); libobs's threads only fill
// the buffer. Calls no function of libobs or FFmpeg that may block or call back with the lock held.
class StreamSession {
public:
    // Calls `settings` before each connection, on the thread of run(). The output must outlive the
    // session's last call to it.
    StreamSession(obs_output_t *output, std::function<StreamSettings()> settings);
    StreamSession(const StreamSession &) = delete;
    StreamSession &operator=(const StreamSession &) = delete;

    // The network thread. Reports the end to libobs as the last thing it does.
    void run();

    // Everything below is thread-safe.

    // libobs has begun the capture, or refused to. No end is reported before.
    void capture_began(bool success);

    // Does not block; the stream ends within a second. Only the first call counts.
    void end(int code);

    // `forced` as in StreamOutput::stop(). True when the end has been reported to libobs, or is
    // just being reported.
    bool stop(bool forced);

    // libobs reports an encoder failure shortly after the forced stop it triggers.
    void encoder_failed();

    void push(const encoder_packet &packet);

    bool wanted() const;
    ConnectionState connection_state() const;
    StreamOutput::Statistics statistics() const;

private:
    using Clock = SendBuffer::Clock;

    enum class Capture { kBeginning, kRunning, kRefused };
    enum class Phase { kConnecting, kConnected, kReconnecting, kEnding, kSignallingEnd, kEnded };

    void run_stream();
    std::optional<StreamError> connect();
    std::optional<StreamError> wait_for_headers();
    std::optional<StreamError> open_connection();
    void not_connected(const StreamError &error);
    void send_until_lost();
    void became_stable();
    void connection_lost(bool stable);
    void set_stalled(bool stalled);
    void disconnect();
    void wait_before_retry();
    void count_bad_packet(bool video, const char *reason);
    void report_drops();
    void signal_end();
    bool wanted_locked() const { return phase_ < Phase::kEnding; }
    bool listening_locked() const;

    obs_output_t *const output_;
    const std::function<StreamSettings()> settings_;
    SendBuffer buffer_;
    std::atomic<uint64_t> bytes_ = 0;
    std::atomic<int> bad_frames_ = 0;
    std::atomic<int> connect_time_ms_ = 0;

    // Used by the network thread only.
    uint64_t earlier_bytes_ = 0; // of earlier connections
    int bad_packets_ = 0;
    Clock::time_point bad_packet_logged_;

    // Used by libobs's encoder threads, one at a time.
    uint64_t logged_frames_ = 0;
    uint64_t logged_audio_ = 0;
    Clock::time_point drops_logged_at_;

    mutable std::mutex mutex_; // guards everything below
    std::condition_variable changed_;
    std::shared_ptr<Connection> connection_; // set and reset by the network thread
    Capture capture_ = Capture::kBeginning;
    Phase phase_ = Phase::kConnecting;
    int end_code_ = OBS_OUTPUT_SUCCESS;
    std::optional<Clock::time_point> forced_at_; // the first forced stop
    bool stalled_ = false;                       // no packets from the encoders
    uint32_t failures_ = 0;                      // in a row
    std::string reason_;                         // of the last failure
};

} // namespace corvane
