// SPDX-License-Identifier: GPL-2.0-or-later
#include "mux/common/muxer.hpp"

#include "base/log.hpp"
#include "mux/common/bitstream.hpp"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/mem.h>
}

#include <cstring>
#include <string>
#include <utility>

namespace corvane {

namespace {

constexpr AVRational kFlvTimeBase = {1, 1000};
constexpr AVRational kMpegTsTimeBase = {1, 90000};
constexpr int kAudioBitRate = 160000;
constexpr int kChannels = 2;

// What the streams are made from, read from libobs before any call to FFmpeg.
struct StreamHeaders {
    Bytes video;
    std::array<Bytes, kAudioSlots> audio; // empty where the slot has no header yet
    size_t audio_ready = 0;
    int width = 0;
    int height = 0;
    int sample_rate = kFallbackSampleRate;
    AVRational frame_rate = {};
};

StreamError build_error(const char *message) {
    return {.call = "build_muxer", .message = message};
}

Bytes encoder_header(obs_encoder_t *encoder) {
    uint8_t *data = nullptr;
    size_t size = 0;
    if (!obs_encoder_get_extra_data(encoder, &data, &size) || !data) {
        return {};
    }
    return {data, size};
}

void read_audio_headers(obs_output_t *output, StreamHeaders &headers) {
    for (size_t slot = 0; slot < kAudioSlots; ++slot) {
        obs_encoder_t *encoder = obs_output_get_audio_encoder(output, slot);
        if (!encoder) {
            continue;
        }
        headers.audio[slot] = encoder_header(encoder);
        if (headers.audio[slot].empty()) {
            log_warning("track %zu extradata not ready, skipping", slot);
        } else {
            ++headers.audio_ready;
        }
    }
}

std::optional<StreamError> read_headers(
    obs_output_t *output, FrameRate rate, StreamHeaders &headers) {
    obs_encoder_t *video_encoder = obs_output_get_video_encoder(output);
    if (!video_encoder) {
        return build_error("No video encoder attached");
    }
    headers.video = encoder_header(video_encoder);
    if (headers.video.empty()) {
        return std::nullopt;
    }
    // Without an audio encoder the stream never opens, see docs/DECISIONS.md.
    read_audio_headers(output, headers);
    if (headers.audio_ready == 0) {
        return std::nullopt;
    }
    const video_t *video = obs_output_video(output);
    if (!video) {
        return build_error("No video output attached");
    }
    headers.width = static_cast<int>(video_output_get_width(video));
    headers.height = static_cast<int>(video_output_get_height(video));
    if (headers.width == 0 || headers.height == 0) {
        return build_error("Invalid video dimensions");
    }
    obs_audio_info audio_info = {};
    if (obs_get_audio_info(&audio_info)) {
        headers.sample_rate = static_cast<int>(audio_info.samples_per_sec);
    }
    headers.frame_rate = {.num = static_cast<int>(rate.num ? rate.num : FrameRate().num),
        .den = static_cast<int>(rate.den ? rate.den : FrameRate().den)};
    return std::nullopt;
}

bool copy_extradata(AVCodecParameters &parameters, Bytes header) {
    parameters.extradata =
        static_cast<uint8_t *>(av_mallocz(header.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    if (!parameters.extradata) {
        return false;
    }
    std::memcpy(parameters.extradata, header.data(), header.size());
    parameters.extradata_size = static_cast<int>(header.size());
    return true;
}

std::optional<StreamError> add_video_stream(const StreamHeaders &headers, Muxer &muxer) {
    AVStream *stream = avformat_new_stream(muxer.context.get(), nullptr);
    if (!stream) {
        return build_error("avformat_new_stream(video) failed");
    }
    stream->time_base = muxer.is_srt ? kMpegTsTimeBase : kFlvTimeBase;
    stream->avg_frame_rate = headers.frame_rate;
    stream->r_frame_rate = headers.frame_rate;
    stream->codecpar->codec_type = AVMEDIA_TYPE_VIDEO;
    stream->codecpar->codec_id = AV_CODEC_ID_H264;
    stream->codecpar->width = headers.width;
    stream->codecpar->height = headers.height;
    stream->codecpar->format = AV_PIX_FMT_YUV420P;
    if (!copy_extradata(*stream->codecpar, headers.video)) {
        return build_error("av_mallocz(video extradata) failed");
    }
    muxer.video = stream;
    return std::nullopt;
}

std::optional<StreamError> add_audio_stream(
    size_t slot, const StreamHeaders &headers, Muxer &muxer) {
    AVStream *stream = avformat_new_stream(muxer.context.get(), nullptr);
    if (!stream) {
        return build_error("avformat_new_stream(audio) failed");
    }
    stream->time_base = muxer.is_srt ? kMpegTsTimeBase : kFlvTimeBase;
    stream->codecpar->codec_type = AVMEDIA_TYPE_AUDIO;
    stream->codecpar->codec_id = AV_CODEC_ID_AAC;
    stream->codecpar->sample_rate = headers.sample_rate;
    stream->codecpar->bit_rate = kAudioBitRate;
    stream->codecpar->frame_size = kSamplesPerAacPacket;
    av_channel_layout_default(&stream->codecpar->ch_layout, kChannels);
    if (!copy_extradata(*stream->codecpar, headers.audio[slot])) {
        return build_error("av_mallocz(audio extradata) failed");
    }
    muxer.audio[slot] = stream;
    muxer.first_audio = muxer.first_audio ? muxer.first_audio : stream;
    ++muxer.audio_count;
    return std::nullopt;
}

std::optional<StreamError> add_annexb_filter(Muxer &muxer) {
    const AVBitStreamFilter *kind = av_bsf_get_by_name("h264_mp4toannexb");
    if (!kind) {
        return build_error("h264_mp4toannexb filter not available");
    }
    AVBSFContext *filter = nullptr;
    if (av_bsf_alloc(kind, &filter) < 0 || !filter) {
        return build_error("av_bsf_alloc(h264_mp4toannexb) failed");
    }
    muxer.filter.reset(filter);
    if (avcodec_parameters_copy(filter->par_in, muxer.video->codecpar) < 0) {
        return build_error("avcodec_parameters_copy(bsf) failed");
    }
    filter->time_base_in = muxer.video->time_base;
    if (av_bsf_init(filter) < 0) {
        return build_error("av_bsf_init(h264_mp4toannexb) failed");
    }
    return std::nullopt;
}

std::optional<StreamError> add_streams(const StreamHeaders &headers, Muxer &muxer) {
    std::optional<StreamError> error = add_video_stream(headers, muxer);
    for (size_t slot = 0; slot < kAudioSlots && !error; ++slot) {
        if (!headers.audio[slot].empty()) {
            error = add_audio_stream(slot, headers, muxer);
        }
    }
    return error;
}

bool needs_connection(const AVFormatContext &context) {
    return !(context.oformat->flags & AVFMT_NOFILE);
}

} // namespace

EncoderHeaders encoder_headers(obs_output_t *output) {
    bool complete = true;
    bool any_audio = false;
    for (size_t slot = 0; slot < kAudioSlots; ++slot) {
        if (obs_encoder_t *encoder = obs_output_get_audio_encoder(output, slot)) {
            const bool there = !encoder_header(encoder).empty();
            any_audio |= there;
            complete &= there;
        }
    }
    obs_encoder_t *video_encoder = obs_output_get_video_encoder(output);
    if (!any_audio || !video_encoder || encoder_header(video_encoder).empty()) {
        return EncoderHeaders::kMissing;
    }
    return complete ? EncoderHeaders::kComplete : EncoderHeaders::kUsable;
}

std::optional<StreamError> build_muxer(
    obs_output_t *output, const StreamSettings &settings, Muxer &muxer) {
    StreamHeaders headers;
    std::optional<StreamError> error = read_headers(output, settings.frame_rate, headers);
    if (error || headers.audio_ready == 0) {
        return error;
    }
    Muxer built;
    built.is_srt = settings.url.is_srt();
    AVFormatContext *context = nullptr;
    const char *format = built.is_srt ? "mpegts" : "flv";
    const std::string &url = settings.url.url;
    if (avformat_alloc_output_context2(&context, nullptr, format, url.c_str()) < 0 || !context) {
        return build_error("avformat_alloc_output_context2 failed");
    }
    built.context.reset(context);
    context->flags |= AVFMT_FLAG_FLUSH_PACKETS;
    context->max_interleave_delta = 0;
    context->max_delay = 0;

    error = add_streams(headers, built);
    if (!error && built.is_srt) {
        error = add_annexb_filter(built);
    }
    if (!error) {
        muxer = std::move(built);
    }
    return error;
}

Dictionary connection_options(const StreamUrl &url) {
    Dictionary options;
    if (url.is_srt()) {
        options.set("flush_packets", "1");
        options.set("mpegts_flags", "+resend_headers");
        return options;
    }
    options.set("rtmp_live", "live");
    options.set("flvflags", "no_duration_filesize");
    options.set("rtmp_flashver", "FMLE/3.0 (compatible; FMSc/1.0)");
    options.set("rtmp_tcurl", url.tc_url.c_str());
    options.set("rtmp_swfurl", url.tc_url.c_str());
    options.set("rtmp_pageurl", "");
    return options;
}

std::optional<StreamError> open_connection(
    AVFormatContext &context, const std::string &url, Dictionary &options) {
    if (!needs_connection(context)) {
        return std::nullopt;
    }
    const int result = avio_open2(
        &context.pb, url.c_str(), AVIO_FLAG_WRITE, &context.interrupt_callback, options.get());
    return result < 0 ? std::optional(connect_error(result)) : std::nullopt;
}

StreamError connect_error(int code) {
    return {.call = "avio_open2",
        .code = code,
        .message = "Stream rejected — check server URL and stream key"};
}

std::optional<StreamError> write_header(AVFormatContext &context, Dictionary &options) {
    const int result = avformat_write_header(&context, options.get());
    if (result >= 0) {
        return std::nullopt;
    }
    return StreamError{.call = "avformat_write_header",
        .code = result,
        .message = "Stream rejected — write header failed"};
}

void close_connection(AVFormatContext &context) {
    if (needs_connection(context)) {
        avio_closep(&context.pb);
    }
}

void log_opened(const Muxer &muxer, const char *shown_url) {
    const AVStream &video = *muxer.video;
    log_info("mux opened: url=%s format=%s video_tb=%d/%d audio_streams=%zu fps=%u/%u "
             "sample_rate=%d",
        shown_url, muxer.context->oformat->name, video.time_base.num, video.time_base.den,
        muxer.audio_count, static_cast<unsigned>(video.avg_frame_rate.num),
        static_cast<unsigned>(video.avg_frame_rate.den), muxer.first_audio->codecpar->sample_rate);
}

} // namespace corvane
