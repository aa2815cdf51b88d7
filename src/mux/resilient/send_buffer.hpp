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
// all packets together never exceed kMaxBytes. Beyond that video goes first, from the oldest packet
// to the next keyframe, so that what remains can be decoded; audio goes only when no video is left,
// or a second after the video of its time.
//
// Waiting time counts from arrival, whatever timestamps the packets carry. Thread-safe.
class SendBuffer {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::seconds kMaxWait{5};
    static constexpr std::chrono::seconds kMaxAudioWait{6};
    static constexpr size_t kMaxBytes = 64U << 20U;

    // Empties the buffer, refuses packets from now on and wakes all waiters.
    void close();

    // Without a connection: empties the buffer; video is counted as dropped but not kept.
    void pause();

    // Takes packets again, video from the next keyframe on.
    void resume();

    // Never blocks. An empty video packet counts as dropped. False while closed or paused.
    bool push(const encoder_packet &packet, Clock::time_point now = Clock::now());

    // Whether any packet has been taken so far.
    bool has_received() const;

    // Waits for a packet; null when there is none in time or the buffer is closed.
    SharedPacket wait_pop(Clock::time_point deadline);

    // Waits until a packet has been taken since the last such call, or for the deadline; false when
    // closed.
    bool wait_for_more(Clock::time_point deadline);

    // Video packets that will not be sent.
    uint64_t dropped_frames() const;

    // Audio packets that were taken and dropped for want of room.
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
    bool needs_keyframe_ = false; // the rest of a group without its keyframe cannot be decoded
};

} // namespace corvane
