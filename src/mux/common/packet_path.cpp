// SPDX-License-Identifier: GPL-2.0-or-later
#include "mux/common/packet_path.hpp"

#include "base/log.hpp"
#include "mux/common/bitstream.hpp"
#include "mux/common/timestamps.hpp"

extern "C" {
#include <libavutil/common.h>
}

#include <algorithm>
#include <utility>

namespace corvane {

namespace {

constexpr size_t kLoggedNalTypes = 20;

void record_first(int64_t timestamp, int64_t &first) {
    if (first == AV_NOPTS_VALUE) {
        first = timestamp;
    }
}

int64_t frame_duration_of(const AVStream &stream) {
    return frame_duration(stream.avg_frame_rate, stream.time_base);
}

void log_ready(const char *event, const AVPacket &packet, bool idr) {
    const Bytes payload = payload_of(packet);
    log_info("%s: key=%d pts=%lld dts=%lld dur=%lld annexb=%d idr=%d aud=%d size=%d", event,
        (packet.flags & AV_PKT_FLAG_KEY) != 0, static_cast<long long>(packet.pts),
        static_cast<long long>(packet.dts), static_cast<long long>(packet.duration),
        is_annexb(payload), idr, has_aud(payload), packet.size);
}

// Puts the parameter sets of an avcC header in front of the stream's first IDR. An Annex B header
// is not injected.
bool inject_parameter_sets(const AVCodecParameters &parameters, AVPacket &packet) {
    if (!parameters.extradata || parameters.extradata_size <= 0) {
        return true;
    }
    const Block headers = avcc_to_annexb_headers(
        {parameters.extradata, static_cast<size_t>(parameters.extradata_size)});
    if (!headers) {
        return true;
    }
    const Bytes delimiter = has_aud(payload_of(packet)) ? Bytes() : aud_bytes();
    if (!prepend_to_packet(packet, {delimiter, Bytes(headers.data.get(), headers.size)})) {
        return false;
    }
    log_info("injected SPS/PPS on first direct annexb IDR: spspps_bytes=%d total=%d",
        static_cast<int>(headers.size), packet.size);
    return true;
}

} // namespace

void PacketPath::begin_stream(const Muxer &muxer) {
    stream_ = {};
    stream_.clean_start_armed = !muxer.is_srt;
}

std::optional<StreamError> PacketPath::process_video_packet(
    const Muxer &muxer, const EncodedPacket &encoded) {
    if (!muxer.is_open() || encoded.payload.empty()) {
        return std::nullopt;
    }
    PacketHandle packet(av_packet_alloc());
    if (!packet) {
        return StreamError{.message = "av_packet_alloc(video/src) failed"};
    }
    if (!copy_payload(*packet, encoded.payload)) {
        return StreamError{.message = "av_new_packet(video/src) failed"};
    }

    const AVRational time_base = muxer.video->time_base;
    packet->stream_index = muxer.video->index;
    packet->pts = rescale_timestamp(encoded.pts, encoded.time_base, time_base);
    packet->dts = rescale_timestamp(encoded.dts, encoded.time_base, time_base);
    packet->duration = muxer.is_srt
                           ? std::max<int64_t>(av_rescale_q(1, encoded.frame_time, time_base), 1)
                           : frame_duration_of(*muxer.video);
    fill_missing_timestamps(*packet);
    if (encoded.keyframe) {
        packet->flags |= AV_PKT_FLAG_KEY;
    }

    if (!muxer.filter) {
        fix_monotonic_ts(packet->pts, packet->dts, stream_.last_video_dts);
        enqueue_packet(*packet, true);
        return std::nullopt;
    }
    if (is_annexb(encoded.payload)) {
        return process_annexb(muxer, encoded, *packet);
    }
    return process_filtered(muxer, encoded, std::move(packet));
}

// A missing dts continues from the previous packet; a missing pts is the dts.
void PacketPath::fill_missing_timestamps(AVPacket &packet) const {
    if (packet.dts == AV_NOPTS_VALUE) {
        packet.dts = stream_.last_video_dts == AV_NOPTS_VALUE
                         ? 0
                         : av_sat_add64(stream_.last_video_dts, packet.duration);
    }
    if (packet.pts == AV_NOPTS_VALUE) {
        packet.pts = packet.dts;
    }
}

void PacketPath::record_video_base(const AVPacket &packet) {
    stream_.base_video_pts = packet.pts;
    stream_.base_video_dts = packet.dts;
}

void PacketPath::rebase_video(AVPacket &packet) const {
    rebase_timestamp(packet.pts, stream_.base_video_pts);
    rebase_timestamp(packet.dts, stream_.base_video_dts);
}

// MPEG-TS with Annex B from the encoder: completes the payload.
std::optional<StreamError> PacketPath::process_annexb(
    const Muxer &muxer, const EncodedPacket &encoded, AVPacket &packet) {
    const bool idr = encoded.keyframe || has_idr(payload_of(packet));
    const bool starts_stream = idr && !stream_.video_started;
    if (idr) {
        packet.flags |= AV_PKT_FLAG_KEY;
    }
    if (starts_stream) {
        record_video_base(packet);
    }
    rebase_video(packet);
    if (starts_stream && !inject_parameter_sets(*muxer.video->codecpar, packet)) {
        return StreamError{.message = "failed to prepend SPS/PPS"};
    }
    fix_monotonic_ts(packet.pts, packet.dts, stream_.last_video_dts);
    if (!has_aud(payload_of(packet)) && !prepend_aud(packet)) {
        return StreamError{.message = "failed to prepend AUD"};
    }
    log_ready("direct-ready", packet, idr);
    enqueue_packet(packet, true);
    return std::nullopt;
}

// MPEG-TS with avcC from the encoder: the filter converts it and inserts the parameter sets.
std::optional<StreamError> PacketPath::process_filtered(
    const Muxer &muxer, const EncodedPacket &encoded, PacketHandle packet) {
    const int sent = av_bsf_send_packet(muxer.filter.get(), packet.get());
    packet.reset();
    if (sent < 0) {
        log_error("av_bsf_send_packet(video) failed: %s (code=%d)", error_text(sent).c_str(), sent);
        return StreamError{.message = "video Annex B conversion failed"};
    }
    for (int enqueued = 0; enqueued == 0 || enqueued == AVERROR(EAGAIN);) {
        const PacketHandle filtered(av_packet_alloc());
        if (!filtered) {
            return StreamError{.message = "av_packet_alloc(video/filt) failed"};
        }
        const int received = av_bsf_receive_packet(muxer.filter.get(), filtered.get());
        if (received == AVERROR(EAGAIN) || received == AVERROR_EOF) {
            break;
        }
        if (received < 0) {
            log_error("av_bsf_receive_packet(video) failed: %s (code=%d)",
                error_text(received).c_str(), received);
            return StreamError{.message = "video Annex B receive failed"};
        }
        if (const auto error = finish_filtered(muxer, encoded, *filtered, enqueued)) {
            return error;
        }
    }
    return std::nullopt;
}

std::optional<StreamError> PacketPath::finish_filtered(
    const Muxer &muxer, const EncodedPacket &encoded, AVPacket &packet, int &enqueued) {
    packet.stream_index = muxer.video->index;
    if (packet.duration < 1) {
        packet.duration = frame_duration_of(*muxer.video);
    }
    fill_missing_timestamps(packet);
    const bool idr = encoded.keyframe || has_idr(payload_of(packet));
    if (idr) {
        packet.flags |= AV_PKT_FLAG_KEY;
        if (!stream_.video_started) {
            record_video_base(packet);
            stream_.video_started = true;
            stream_.audio_allowed = true;
        }
    }
    rebase_video(packet);
    if (!has_aud(payload_of(packet)) && !prepend_aud(packet)) {
        return StreamError{.message = "failed to prepend AUD"};
    }
    fix_monotonic_ts(packet.pts, packet.dts, stream_.last_video_dts);
    log_ready("bsf-ready", packet, idr);
    enqueued = enqueue_packet(packet, true);
    return std::nullopt;
}

std::optional<StreamError> PacketPath::process_audio_packet(
    const Muxer &muxer, size_t slot, const EncodedPacket &encoded) {
    if (!muxer.is_open() || encoded.payload.empty() || slot >= kAudioSlots ||
        !stream_.audio_allowed || !muxer.audio[slot]) {
        return std::nullopt;
    }
    const PacketHandle packet(av_packet_alloc());
    if (!packet) {
        return StreamError{.message = "av_packet_alloc(audio) failed"};
    }
    if (!copy_payload(*packet, encoded.payload)) {
        return StreamError{.message = "av_new_packet(audio) failed"};
    }

    const AVStream &stream = *muxer.audio[slot];
    packet->stream_index = stream.index;
    packet->pts = rescale_timestamp(encoded.pts, encoded.time_base, stream.time_base);
    packet->dts = rescale_timestamp(encoded.dts, encoded.time_base, stream.time_base);
    if (muxer.is_srt) {
        const int rate = stream.codecpar->sample_rate;
        packet->duration = av_rescale_q(
            kSamplesPerAacPacket, {1, rate > 0 ? rate : kFallbackSampleRate}, stream.time_base);
    }

    AudioSlot &state = stream_.audio[slot];
    if (audio_clock_ == AudioClock::kOwn) {
        record_first(packet->pts, state.first_pts);
        record_first(packet->dts, state.first_dts);
        rebase_timestamp(packet->pts, state.first_pts);
        rebase_timestamp(packet->dts, state.first_dts);
    }
    fix_monotonic_ts(packet->pts, packet->dts, state.last_dts);
    enqueue_packet(*packet, false);
    return std::nullopt;
}

int PacketPath::enqueue_packet(const AVPacket &packet, bool is_video) {
    if (is_video) {
        if (const int refused = pass_video_gate(packet)) {
            return refused;
        }
    } else if (stream_.srt_clean_start_pending()) {
        return AVERROR(EAGAIN);
    }
    PacketHandle clone(av_packet_clone(&packet));
    if (!clone) {
        log_error("av_packet_clone failed — dropping %s packet pts=%lld",
            is_video ? "video" : "audio", static_cast<long long>(packet.pts));
        return AVERROR(ENOMEM);
    }
    return sink_(std::move(clone)) ? 0 : AVERROR(EAGAIN);
}

// Scanning NAL units reads the whole payload; skipped once the stream has started.
int PacketPath::pass_video_gate(const AVPacket &packet) {
    if (stream_.keyframe_seen) {
        return 0;
    }
    const Bytes payload = payload_of(packet);
    const bool annexb = is_annexb(payload);
    const bool aud = annexb && has_aud(payload);
    const bool idr = annexb && has_idr(payload);
    const bool key = (packet.flags & AV_PKT_FLAG_KEY) != 0 || idr;

    if (stream_.srt_clean_start_pending()) {
        if (!annexb || !aud || !idr || !key) {
            log_warning("dropping pre-start SRT video packet: size=%d pts=%lld dts=%lld annexb=%d "
                        "aud=%d idr=%d key=%d",
                packet.size, static_cast<long long>(packet.pts), static_cast<long long>(packet.dts),
                annexb, aud, idr, key);
            return AVERROR(EAGAIN);
        }
        stream_.clean_start_armed = true;
        log_info("SRT clean start armed on keyframe: size=%d pts=%lld dts=%lld", packet.size,
            static_cast<long long>(packet.pts), static_cast<long long>(packet.dts));
    } else if (!key) {
        log_warning("dropping pre-keyframe video packet: size=%d pts=%lld dts=%lld", packet.size,
            static_cast<long long>(packet.pts), static_cast<long long>(packet.dts));
        return AVERROR(EAGAIN);
    }
    start_stream_at(packet, aud, idr);
    return 0;
}

// Overwrites the bases with values that are already rebased, see docs/DECISIONS.md. For MPEG-TS
// these are normally 0, so later video packets keep the encoder's timestamps.
void PacketPath::start_stream_at(const AVPacket &packet, bool aud, bool idr) {
    stream_.keyframe_seen = true;
    stream_.video_started = true;
    stream_.audio_allowed = true;
    record_video_base(packet);
    const Bytes payload = payload_of(packet);
    log_info("first TS keyframe written: size=%d pts=%lld dts=%lld aud=%d idr=%d key=%d "
             "nal_types=%s",
        packet.size, static_cast<long long>(packet.pts), static_cast<long long>(packet.dts), aud,
        idr, (packet.flags & AV_PKT_FLAG_KEY) != 0,
        is_annexb(payload) ? nal_types_string(payload, kLoggedNalTypes).c_str() : "[]");
}

} // namespace corvane
