// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "mux/common/packet_path.hpp"
#include "support/encoded_packets.hpp"

extern "C" {
#include <libavutil/mem.h>
}

#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

namespace corvane::test {

// A packet path into FLV, or into MPEG-TS for SRT, that is connected to nothing: a video stream and
// audio streams in slots 0 and 2.
class PacketPathFixture {
public:
    PacketPathFixture(bool srt, const Buffer &extradata) {
        AVFormatContext *context = nullptr;
        avformat_alloc_output_context2(&context, nullptr, srt ? "mpegts" : "flv", nullptr);
        muxer_.context.reset(context);
        muxer_.is_srt = srt;
        muxer_.video = add_stream(extradata);
        muxer_.audio[0] = add_stream({});
        muxer_.audio[2] = add_stream({});
        if (srt) {
            AVBSFContext *filter = nullptr;
            av_bsf_alloc(av_bsf_get_by_name("h264_mp4toannexb"), &filter);
            muxer_.filter.reset(filter);
            avcodec_parameters_copy(filter->par_in, muxer_.video->codecpar);
            filter->time_base_in = muxer_.video->time_base;
            usable_ = av_bsf_init(filter) >= 0;
        }
        path_.begin_stream(muxer_);
    }

    // Whether FFmpeg took the extradata.
    bool usable() const { return usable_; }

    void begin_stream() { path_.begin_stream(muxer_); }

    // Says whether the path could process the packet.
    bool send(const encoder_packet &packet) {
        const EncodedPacket encoded(packet);
        return !(packet.type == OBS_ENCODER_VIDEO
                     ? path_.process_video_packet(muxer_, encoded)
                     : path_.process_audio_packet(muxer_, packet.track_idx, encoded));
    }

    // The packets handed over since the last call.
    std::vector<PacketHandle> take() { return std::exchange(sent_, {}); }

    const Muxer &muxer() const { return muxer_; }

private:
    AVStream *add_stream(const Buffer &extradata) {
        AVStream *stream = avformat_new_stream(muxer_.context.get(), nullptr);
        stream->time_base = muxer_.is_srt ? AVRational{1, 90000} : AVRational{1, 1000};
        stream->avg_frame_rate = AVRational{.num = 30, .den = 1};
        stream->codecpar->codec_id = AV_CODEC_ID_H264;
        stream->codecpar->sample_rate = 48000;
        stream->codecpar->extradata =
            static_cast<uint8_t *>(av_mallocz(extradata.size() + AV_INPUT_BUFFER_PADDING_SIZE));
        std::ranges::copy(extradata, stream->codecpar->extradata);
        stream->codecpar->extradata_size = static_cast<int>(extradata.size());
        return stream;
    }

    Muxer muxer_;
    bool usable_ = true;
    std::vector<PacketHandle> sent_;
    PacketPath path_{[this](PacketHandle packet) {
        sent_.push_back(std::move(packet));
        return true;
    }};
};

} // namespace corvane::test
