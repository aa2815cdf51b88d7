// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "mux/common/packet_path.hpp"
#include "support/encoded_packets.hpp"

extern "C" {
#include <libavutil/mem.h>
}

#include <algorithm>
#include <utility>
#include <vector>

namespace corvane::test {

// A packet path into FLV, or into MPEG-TS for SRT, that is connected to nothing: a video stream and
// audio streams in slots 0 and 2.
struct PacketPathFixture {
    PacketPathFixture(bool srt, const Buffer &extradata) {
        AVFormatContext *context = nullptr;
        avformat_alloc_output_context2(&context, nullptr, srt ? "mpegts" : "flv", nullptr);
        muxer.context.reset(context);
        muxer.is_srt = srt;
        muxer.video = add_stream(extradata);
        muxer.audio[0] = add_stream({});
        muxer.audio[2] = add_stream({});
        if (srt) {
            AVBSFContext *filter = nullptr;
            av_bsf_alloc(av_bsf_get_by_name("h264_mp4toannexb"), &filter);
            muxer.filter.reset(filter);
            avcodec_parameters_copy(filter->par_in, muxer.video->codecpar);
            filter->time_base_in = muxer.video->time_base;
            usable = av_bsf_init(filter) >= 0;
        }
        path.begin_stream(muxer);
    }

    // Says whether the path could process the packet.
    bool send(const encoder_packet &packet) {
        sent.clear();
        const EncodedPacket encoded(packet);
        return !(packet.type == OBS_ENCODER_VIDEO
                     ? path.process_video_packet(muxer, encoded)
                     : path.process_audio_packet(muxer, packet.track_idx, encoded));
    }

    Muxer muxer;
    bool usable = true;             // whether FFmpeg took the extradata
    std::vector<PacketHandle> sent; // what was handed over for the last packet
    PacketPath path{[this](PacketHandle packet) {
        sent.push_back(std::move(packet));
        return true;
    }};

private:
    AVStream *add_stream(const Buffer &extradata) {
        AVStream *stream = avformat_new_stream(muxer.context.get(), nullptr);
        stream->time_base = muxer.is_srt ? AVRational{1, 90000} : AVRational{1, 1000};
        stream->avg_frame_rate = AVRational{.num = 30, .den = 1};
        stream->codecpar->codec_id = AV_CODEC_ID_H264;
        stream->codecpar->sample_rate = 48000;
        stream->codecpar->extradata =
            static_cast<uint8_t *>(av_mallocz(extradata.size() + AV_INPUT_BUFFER_PADDING_SIZE));
        std::ranges::copy(extradata, stream->codecpar->extradata);
        stream->codecpar->extradata_size = static_cast<int>(extradata.size());
        return stream;
    }
};

} // namespace corvane::test
