// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "mux/common/packet_path.hpp"
#include "mux/resilient/connection.hpp"

#include <bitset>
#include <chrono>
#include <functional>
#include <optional>

namespace corvane {

// Prepares packets for one connection and writes them. The connection starts with a keyframe at
// timestamp 0; all tracks keep their distance to it. Not thread-safe.
class PacketSender {
public:
    // Called for each packet that could not be sent while the connection lasts.
    using OnDropped = std::function<void(bool video, const char *reason)>;

    // The connection must be open and outlive this object.
    PacketSender(Connection &connection, OnDropped on_dropped);
    PacketSender(const PacketSender &) = delete;
    PacketSender &operator=(const PacketSender &) = delete;

    // Blocks as long as the network does, within the connection's deadlines.
    void send(const encoder_packet &packet);

    // Since the first keyframe; 0 before it.
    std::chrono::steady_clock::duration sending_time() const;

private:
    bool write(PacketHandle packet);

    Connection &connection_;
    const OnDropped on_dropped_;
    PacketPath path_{[this](PacketHandle packet) { return write(std::move(packet)); },
        PacketPath::AudioClock::kShared};
    std::optional<EncodedPacket> origin_;            // the first keyframe, without payload
    std::chrono::steady_clock::time_point begun_at_; // with the origin
    std::bitset<kAudioSlots> audio_begun_;           // by track
};

} // namespace corvane
