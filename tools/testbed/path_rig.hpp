// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "mux/packet_path.hpp"
#include "testbed/idle_muxer.hpp"

#include <gtest/gtest.h>

#include <cstdint>

namespace corvane::test {

struct Queued {
    Buffer payload;
    int stream;
    int64_t pts, dts, duration;
    bool key;
    bool operator==(const Queued &) const = default;
};

// Packets go in as from an encoder and come out as they are queued.
class PathRig {
public:
    explicit PathRig(bool srt, const Buffer &extradata)
        : muxer_(make_muxer(srt, extradata)) {
        EXPECT_EQ(muxer_.filter != nullptr, srt);
        queue_.start();
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

    // The packet queued last; a packet of stream -1 when nothing was queued.
    Queued next() {
        queue_.push(PacketHandle(av_packet_alloc())); // an end mark, so that a wait ends
        const PacketHandle packet = queue_.wait_pop();
        const bool end_mark = packet->size == 0;
        if (!end_mark) {
            while (queue_.wait_pop()->size != 0) {
                ADD_FAILURE() << "more than one packet was queued";
            }
        }
        const Bytes bytes = payload_of(*packet);
        return {Buffer(bytes.begin(), bytes.end()), end_mark ? -1 : packet->stream_index,
            packet->pts, packet->dts, packet->duration, (packet->flags & AV_PKT_FLAG_KEY) != 0};
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
    PacketQueue queue_;
    PacketPath path_{queue_};
    Buffer payload_;
};

} // namespace corvane::test
