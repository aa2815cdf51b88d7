// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "mux/muxer.hpp"

extern "C" {
#include <libavutil/mem.h>
}

#include <algorithm>
#include <cstdint>
#include <vector>

namespace corvane::test {

using Buffer = std::vector<uint8_t>;

inline AVStream *add_stream(
    AVFormatContext *context, AVRational time_base, const Buffer &extradata) {
    AVStream *stream = avformat_new_stream(context, nullptr);
    stream->time_base = time_base;
    stream->avg_frame_rate = AVRational{.num = 30, .den = 1};
    stream->codecpar->codec_id = AV_CODEC_ID_H264;
    stream->codecpar->sample_rate = 48000;
    stream->codecpar->extradata =
        static_cast<uint8_t *>(av_mallocz(extradata.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    std::ranges::copy(extradata, stream->codecpar->extradata);
    stream->codecpar->extradata_size = static_cast<int>(extradata.size());
    return stream;
}

// A muxer that is never connected, with a video stream and audio streams in slots 0 and 2. Its
// filter is missing when FFmpeg refuses the extradata.
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
        if (av_bsf_init(filter) < 0) {
            muxer.filter.reset();
        }
    }
    return muxer;
}

} // namespace corvane::test
