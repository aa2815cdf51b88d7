// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <obs.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>

namespace corvane {

struct ReleaseEncoderPacket {
    void operator()(encoder_packet *packet) const {
        obs_encoder_packet_release(packet);
        delete packet;
    }
};
// A reference to a packet of the host's encoders.
using SharedPacket = std::unique_ptr<encoder_packet, ReleaseEncoderPacket>;

// The packets between the encoders and the network. No video packet waits longer than kMaxWait, and
// all packets together never exceed kMaxBytes. Beyond that video is dropped first, from the oldest
// packet to the next keyframe, so that the rest can be decoded; audio is dropped only when no video
// is left, or after kMaxAudioWait.
//
// Waiting time counts from arrival, not by timestamps. Thread-safe.
class SendBuffer {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::seconds kMaxWait{5};
    static constexpr std::chrono::seconds kMaxAudioWait{6};
    static constexpr size_t kMaxBytes = 64U << 20U;

    // Empties the buffer, refuses packets from now on and wakes all waiters.
    void close();

    // While there is no connection: empties the buffer and drops what is pushed.
    void pause();

    // Accepts packets again, video from the next keyframe on.
    void resume();

    // Does not block. An empty video packet counts as dropped. False while closed or paused.
    bool push(const encoder_packet &packet, Clock::time_point now = Clock::now());

    // Whether any packet has been accepted.
    bool has_received() const;

    // Waits for a packet; null at the deadline or when the buffer is closed.
    SharedPacket wait_pop(Clock::time_point deadline);

    // Waits for the first packet since the last such call, or for the deadline; false when closed.
    bool wait_for_more(Clock::time_point deadline);

    // Video packets dropped so far, while paused included.
    uint64_t dropped_frames() const;

    // Audio packets dropped for lack of room.
    uint64_t dropped_audio() const;

    // How full the buffer is, 0 to 1.
    float fill() const;

private:
    struct Entry {
        SharedPacket packet;
        Clock::time_point arrival;

        bool is_video() const { return packet->type == OBS_ENCODER_VIDEO; }
    };

    // With mutex_ held.
    void clear();
    bool accept(const encoder_packet &packet);
    void make_room(Clock::time_point now);
    void drop_to_next_keyframe(const std::deque<Entry>::iterator &oldest_video);

    mutable std::mutex mutex_; // guards everything below
    std::condition_variable changed_;
    std::deque<Entry> packets_;
    size_t bytes_ = 0;
    uint64_t taken_ = 0;
    uint64_t seen_ = 0; // of taken_, by wait_for_more()
    uint64_t dropped_frames_ = 0;
    uint64_t dropped_audio_ = 0;
    bool closed_ = false;
    bool paused_ = false;
    bool needs_keyframe_ = false; // video before the next one cannot be decoded
};

} // namespace corvane
