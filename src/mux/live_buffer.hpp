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

// The packets between the encoders and the network: no picture waits longer than kMaxWait, and
// together they are never more than kMaxBytes. Beyond that video goes first, from the oldest packet
// to the next keyframe, so that what remains can be decoded; sound goes only when all pictures are
// gone, or a second after those of its time.
//
// Time is that of arrival, whatever timestamps the packets carry. Locks itself.
class LiveBuffer {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::seconds kMaxWait{5};
    static constexpr std::chrono::seconds kMaxSoundWait{6};
    static constexpr size_t kMaxBytes = 64U << 20U;

    // A stream begins: empty, nothing counted, packets are taken.
    void open();

    // It ends: empty, packets are refused, and whoever waits goes on.
    void close();

    // The connection is gone: empty, and video is counted but not kept.
    void pause();

    // It is back: packets are taken again, from the next keyframe on.
    void resume();

    // Never waits; an empty picture counts as dropped. False when there is no connection that the
    // packet could be for.
    bool push(const encoder_packet &packet, Clock::time_point now = Clock::now());

    // Whether a packet has come since open().
    bool anything_yet() const;

    // Waits for a packet; null once closed.
    SharedPacket wait_pop();

    // Waits until a packet has come since the last such call, closed, or the time is over; false
    // when closed.
    bool wait_for_more(Clock::time_point until);

    // Video packets since open() that will not be sent.
    uint64_t dropped_frames() const;

    // Sound that was here and will not be sent for want of room, in packets since open().
    uint64_t dropped_sound() const;

    // How full it is, 0 to 1.
    float fill() const;

private:
    struct Entry {
        SharedPacket packet;
        Clock::time_point arrival;

        bool is_video() const { return packet->type == OBS_ENCODER_VIDEO; }
    };

    // With mutex_ held.
    void empty();
    bool wanted(const encoder_packet &packet);
    void make_room(Clock::time_point now);
    void drop_to_next_keyframe(const std::deque<Entry>::iterator &oldest_video);

    mutable std::mutex mutex_; // guards everything below
    std::condition_variable changed_;
    std::deque<Entry> packets_;
    size_t bytes_ = 0;
    uint64_t arrived_ = 0;
    uint64_t seen_ = 0;
    uint64_t dropped_frames_ = 0;
    uint64_t dropped_sound_ = 0;
    bool open_ = false;
    bool paused_ = false;
    bool keyframe_wanted_ = false; // what is left of a group without its beginning is useless
};

} // namespace corvane
