// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "mux/packet_path.hpp"

extern "C" {
#include <libavutil/mem.h>
}

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <vector>

namespace corvane::test {

using Buffer = std::vector<uint8_t>;

// A muxer that is never connected, with a video stream and audio streams in slots 0 and 2.
inline AVStream *add_stream(
    AVFormatContext *context, AVRational time_base, const Buffer &extradata) {
    AVStream *stream = avformat_new_stream(context, nullptr);
    stream->time_base = time_base;
    stream->avg_frame_rate = {30, 1};
    stream->codecpar->codec_id = AV_CODEC_ID_H264;
    stream->codecpar->sample_rate = 48000;
    stream->codecpar->extradata =
        static_cast<uint8_t *>(av_mallocz(extradata.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    std::ranges::copy(extradata, stream->codecpar->extradata);
    stream->codecpar->extradata_size = static_cast<int>(extradata.size());
    return stream;
}

inline Muxer make_muxer(bool srt, const Buffer &extradata) {
    Muxer muxer;
    AVFormatContext *context = nullptr;
    avformat_alloc_output_context2(&context, nullptr, srt ? "mpegts" : "flv", nullptr);
    muxer.context.reset(context);
    muxer.is_srt = srt;
    const AVRational time_base = srt ? AVRational{1, 90000} : AVRational{1, 1000};
    muxer.video = add_stream(context, time_base, extradata);
    muxer.audio[0] = add_stream(context, time_base, {});
    muxer.audio[2] = add_stream(context, time_base, {});
    if (srt) {
        AVBSFContext *filter = nullptr;
        av_bsf_alloc(av_bsf_get_by_name("h264_mp4toannexb"), &filter);
        muxer.filter.reset(filter);
        avcodec_parameters_copy(filter->par_in, muxer.video->codecpar);
        filter->time_base_in = time_base;
        EXPECT_EQ(av_bsf_init(filter), 0);
    }
    return muxer;
}

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
