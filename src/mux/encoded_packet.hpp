// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "base/obs_handles.hpp"
#include "mux/bitstream.hpp"

#include <obs.h>

#include <memory>

namespace corvane {

// What the packet path needs of a host packet; does not own the payload. Timestamps are in the
// encoder's time base.
struct EncodedPacket {
    Bytes payload;
    int64_t pts;
    int64_t dts;
    AVRational time_base;
    AVRational frame_time; // of video, in seconds
    bool keyframe;

    explicit EncodedPacket(const encoder_packet &packet)
        : payload(packet.data, packet.data ? packet.size : 0)
        , pts(packet.pts)
        , dts(packet.dts)
        , time_base{.num = packet.timebase_num, .den = packet.timebase_den}
        , frame_time(time_base)
        , keyframe(packet.keyframe) {}
};

// A copy of a packet, kept until the codec headers are there and the muxer opens.
class PendingPacket {
public:
    explicit PendingPacket(const EncodedPacket &packet)
        : data_(static_cast<uint8_t *>(bmemdup(packet.payload.data(), packet.payload.size())))
        , packet_(packet) {
        packet_.payload = Bytes(data_.get(), packet.payload.size());
    }

    // Valid as long as this object.
    const EncodedPacket &packet() const { return packet_; }

private:
    std::unique_ptr<uint8_t, ReleaseWith<bfree>> data_;
    EncodedPacket packet_;
};

} // namespace corvane
