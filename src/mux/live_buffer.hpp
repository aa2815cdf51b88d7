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

// The packets between the encoders and the network: none waits longer than kMaxWait, and together
// they are never more than kMaxBytes. Beyond that video goes first, from the oldest packet to the
// next keyframe, so that what remains can be decoded; sound goes only when no video is left to go.
//
// Time is that of arrival, whatever timestamps the packets carry. Locks itself.
class LiveBuffer {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::seconds kMaxWait{5};
    static constexpr size_t kMaxBytes = 64U << 20U;

    // A stream begins: empty, nothing counted, packets are taken.
    void open();

    // It ends: empty, packets are refused, and whoever waits goes on.
    void close();

    // The connection is gone: empty, and video is counted but not kept.
    void pause();

    // It is back: packets are taken again, from the next keyframe on.
    void resume();

    // Never waits. The number of video packets that were dropped for want of room.
    size_t push(const encoder_packet &packet);

    // Waits for a packet; null once closed.
    SharedPacket wait_pop();

    // Waits until a packet has come since the last such call, closed, or the time is over; false
    // when closed.
    bool wait_for_more(Clock::time_point until);

    // Video packets since open() that will not be sent.
    uint64_t dropped_frames() const;

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
    size_t make_room(Clock::time_point now);
    size_t drop_to_next_keyframe(std::deque<Entry>::iterator oldest_video);

    mutable std::mutex mutex_; // guards everything below
    std::condition_variable changed_;
    std::deque<Entry> packets_;
    size_t bytes_ = 0;
    uint64_t arrived_ = 0;
    uint64_t seen_ = 0;
    uint64_t dropped_frames_ = 0;
    bool open_ = false;
    bool paused_ = false;
    bool keyframe_wanted_ = false; // what is left of a group without its beginning is useless
};

} // namespace corvane
