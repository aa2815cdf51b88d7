// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "mux/encoded_packet.hpp"
#include "mux/packet_path.hpp"
#include "mux/resilient/connection.hpp"

#include <bitset>
#include <chrono>
#include <functional>
#include <optional>

namespace corvane {

// Prepares packets for one connection and writes them. Everything begins with the connection's
// first keyframe, at timestamp 0; all tracks keep their distance to it. One thread.
class PacketSender {
public:
    // Told of each packet that could not be sent, without the connection being lost.
    using OnDropped = std::function<void(bool video, const char *reason)>;

    // The connection is open and outlives this object.
    PacketSender(Connection &connection, OnDropped on_dropped);
    PacketSender(const PacketSender &) = delete;
    PacketSender &operator=(const PacketSender &) = delete;

    // Blocks as long as the network does, within the connection's deadlines.
    void send(const encoder_packet &packet);

    // How long the connection has carried video.
    std::chrono::steady_clock::duration sending_time() const;

private:
    bool write(PacketHandle packet);

    Connection &connection_;
    const OnDropped on_dropped_;
    PacketPath path_{[this](PacketHandle packet) { return write(std::move(packet)); },
        PacketPath::AudioClock::kShared};
    std::optional<EncodedPacket> origin_; // the first keyframe, without payload
    std::chrono::steady_clock::time_point begun_at_;
    std::bitset<kAudioSlots> audio_begun_; // tracks
};

} // namespace corvane
