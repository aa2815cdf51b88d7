// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "mux/resilient/connection.hpp"
#include "mux/resilient/send_buffer.hpp"
#include "mux/stream_error.hpp"
#include "mux/stream_settings.hpp"

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

// One stream from its start to its end: connects, sends, reconnects until the stream is to end, and
// tells libobs of the end, once, however it came. All that on the thread that runs run(); libobs's
// threads only fill the buffer. No lock is held around a call into libobs or FFmpeg that could
// block or call back.
class StreamSession {
public:
    // How the stream stands, for the user.
    struct Report {
        const char *phase; // "connecting", "connected", "reconnecting", "stalled", "stopped"
        uint32_t failures; // in a row
        std::string reason;
    };

    // `settings` is asked before each connection, on the thread of run(). libobs's output outlives
    // the session's last call into it.
    StreamSession(obs_output_t *output, std::function<StreamSettings()> settings);
    StreamSession(const StreamSession &) = delete;
    StreamSession &operator=(const StreamSession &) = delete;

    // The network thread's body. Calls libobs with the end as the last thing it does.
    void run();

    // Everything below is thread-safe.

    // libobs has begun the capture, or refused to. Until then it is told of no end.
    void capture_began(bool success);

    // The first reason to end counts. Returns at once; the stream ends within a second.
    void end(int code);

    // libobs wants the stream to end; `forced` as in StreamOutput::stop(). True when libobs has
    // been told of an end already, or is being told.
    bool stop(bool forced);

    // libobs reports an encoder failure shortly after the forced stop that it causes.
    void encoder_failed();

    void push(const encoder_packet &packet);

    bool wanted() const;
    Report report() const;

    uint64_t bytes() const { return bytes_; }
    int dropped_frames() const;
    float congestion() const { return buffer_.fill(); }
    int connect_time_ms() const { return connect_time_ms_; }

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
    bool stalled_ = false;                       // the encoders deliver nothing
    uint32_t failures_ = 0;                      // in a row, without a stable connection
    std::string reason_;                         // of the last failure
};

} // namespace corvane
