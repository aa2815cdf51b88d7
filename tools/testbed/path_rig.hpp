// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "mux/packet_path.hpp"
#include "testbed/idle_muxer.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <utility>
#include <vector>

namespace corvane::test {

struct Queued {
    Buffer payload;
    int stream;
    int64_t pts, dts, duration;
    bool key;
    bool operator==(const Queued &) const = default;
};

// Packets go in as from an encoder and come out as they are handed over.
class PathRig {
public:
    explicit PathRig(bool srt, const Buffer &extradata)
        : muxer_(make_muxer(srt, extradata)) {
        EXPECT_EQ(muxer_.filter != nullptr, srt);
        path_.begin_stream(muxer_);
    }

    void video(const Buffer &payload, int64_t pts, int64_t dts, bool keyframe) {
        EXPECT_EQ(
            path_.process_video_packet(muxer_, packet(payload, pts, dts, 30, keyframe)), nullptr);
    }

    void audio(size_t slot, int64_t timestamp) {
        const EncodedPacket encoded = packet({1, 2}, timestamp, timestamp, 48000, false);
        EXPECT_EQ(path_.process_audio_packet(muxer_, slot, encoded), nullptr);
    }

    // The packet handed over since the last call; one of stream -1 when there is none.
    Queued next() {
        EXPECT_LE(sent_.size(), 1U) << "more than one packet";
        if (sent_.empty()) {
            return {{}, -1, 0, 0, 0, false};
        }
        const PacketHandle packet = std::move(sent_.front());
        sent_.clear();
        const Bytes bytes = payload_of(*packet);
        return {Buffer(bytes.begin(), bytes.end()), packet->stream_index, packet->pts, packet->dts,
            packet->duration, (packet->flags & AV_PKT_FLAG_KEY) != 0};
    }

    bool empty() { return next().stream == -1; }

private:
    EncodedPacket packet(
        const Buffer &payload, int64_t pts, int64_t dts, int32_t rate, bool keyframe) {
        payload_ = payload;
        encoder_packet host = {};
        host.data = payload_.data();
        host.size = payload_.size();
        host.pts = pts;
        host.dts = dts;
        host.timebase_num = 1;
        host.timebase_den = rate;
        host.keyframe = keyframe;
        return EncodedPacket(host);
    }

    Muxer muxer_;
    std::vector<PacketHandle> sent_;
    PacketPath path_{[this](PacketHandle packet) {
        sent_.push_back(std::move(packet));
        return true;
    }};
    Buffer payload_;
};

} // namespace corvane::test
