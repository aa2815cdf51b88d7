// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "mux/encoded_packet.hpp"
#include "mux/live_buffer.hpp"
#include "mux/live_connection.hpp"
#include "mux/packet_path.hpp"
#include "mux/packet_queue.hpp"
#include "mux/stream_output.hpp"
#include "mux/stream_settings.hpp"

#include <obs.h>

#include <atomic>
#include <bitset>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace corvane {

// The second output type. Streams what MuxOutput streams, but all that touches the network is
// done on a thread of its own, and a lost connection is made again for as long as the stream is
// wanted. That thread lives from a start to the end of the stream, which it tells libobs, so that a
// stream ends once, however it ends. The host's threads only fill the buffer.
//
// No lock is held around a call into libobs or FFmpeg that could wait or call back.
class ResilientOutput final : public StreamOutput {
public:
    // The output handle is libobs's and outlives this object.
    ResilientOutput(obs_data_t *settings, obs_output_t *output);
    ~ResilientOutput() override;
    ResilientOutput(const ResilientOutput &) = delete;
    ResilientOutput &operator=(const ResilientOutput &) = delete;

    void update(obs_data_t *settings) override;
    bool start() override;
    // Returns at once; the stream has ended within a second.
    void stop(bool forced) override;
    void encoded_packet(const encoder_packet *packet) override;

    // For the host's statistics. Any thread.
    uint64_t total_bytes() const { return total_bytes_; }
    int dropped_frames() const;
    float congestion() const { return buffer_.fill(); }
    int connect_time_ms() const { return connect_time_ms_; }

private:
    // A connection that carries pictures for less was one that the server did not want.
    static constexpr std::chrono::seconds kProven{2};

    enum class Phase { kStopped, kConnecting, kConnected, kReconnecting };

    using Clock = LiveBuffer::Clock;
    using Failure = LiveConnection::Failure;

    // Any thread.
    void end_thread();
    bool has_address();
    bool wanted();
    void end(int code);
    static void report_state(void *self, calldata_t *answer);

    // The network thread, and what it alone calls.
    void run();
    bool connect();
    bool wait_for_headers();
    std::optional<Failure> open_connection();
    void connected();
    void not_connected(const Failure &failure);
    void proven();
    void connection_lost();
    void send_until_lost();
    void send(const encoder_packet &packet);
    void write(AVPacket &packet);
    void count_bad_packet(bool video, const char *reason);
    void hang_up();
    void wait_before_retry();
    void tell_the_end();

    void report_drops(); // libobs's encoder threads, one at a time

    obs_output_t *const output_;
    LiveBuffer buffer_; // locks itself
    std::atomic<uint64_t> total_bytes_ = 0;
    std::atomic<int> bad_frames_ = 0;
    std::atomic<int> connect_time_ms_ = 0;

    // Of the network thread.
    PacketQueue ready_; // what the path has made of the last packet
    PacketPath path_{ready_, PacketPath::AudioClock::kShared};
    std::optional<EncodedPacket> zero_;    // the connection's first keyframe, without payload
    std::bitset<kAudioSlots> sound_begun_; // the tracks of the connection that have begun
    uint64_t earlier_bytes_ = 0;           // of the connections before
    bool proven_ = false;                  // the connection has lasted
    int bad_packets_ = 0;
    Clock::time_point begun_at_; // the sending of pictures
    Clock::time_point bad_packet_reported_;

    // Of libobs's encoder threads.
    uint64_t reported_frames_ = 0;
    uint64_t reported_sound_ = 0;
    Clock::time_point drops_reported_at_;

    std::thread thread_; // of the threads that start and destroy

    std::mutex mutex_; // guards everything below
    std::condition_variable changed_;
    StreamSettings settings_;
    std::shared_ptr<LiveConnection> connection_; // changed by the network thread only
    std::optional<bool> capturing_;              // whether capture has begun; none while it does
    std::optional<int> end_code_ = OBS_OUTPUT_SUCCESS; // none while the stream is wanted
    bool connected_ = false;                           // whether it lasts or not
    bool end_told_ = true;                             // to libobs
    std::optional<Clock::time_point> forced_at_;       // the end, if it was
    Phase phase_ = Phase::kStopped;
    uint32_t failures_ = 0; // in a row, without a connection that lasted
    std::string reason_;    // of the last
};

} // namespace corvane
