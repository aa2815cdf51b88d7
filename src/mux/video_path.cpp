// SPDX-License-Identifier: GPL-2.0-or-later
// From the host's H.264 packet to a packet of the stream.
#include "base/log.hpp"
#include "mux/bitstream.hpp"
#include "mux/packet_path.hpp"
#include "mux/timestamps.hpp"

extern "C" {
#include <libavutil/common.h>
}

#include <algorithm>
#include <utility>

namespace corvane {

namespace {

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

// Puts the parameter sets of an avcC header in front of the stream's first IDR. A header in
// Annex B form is not injected.
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

const char *PacketPath::process_video_packet(const Muxer &muxer, const EncodedPacket &encoded) {
    if (!muxer.is_open() || encoded.payload.empty()) {
        return nullptr;
    }
    PacketHandle packet(av_packet_alloc());
    if (!packet) {
        return "av_packet_alloc(video/src) failed";
    }
    if (!copy_payload(*packet, encoded.payload)) {
        return "av_new_packet(video/src) failed";
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
        enqueue_packet(muxer, *packet, true);
        return nullptr;
    }
    if (is_annexb(encoded.payload)) {
        return process_annexb(muxer, encoded, *packet);
    }
    return process_filtered(muxer, encoded, std::move(packet));
}

// Without a dts a packet follows the one before it; without a pts it is shown when decoded.
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

// MPEG-TS, the encoder gives Annex B: the payload stays and is completed.
const char *PacketPath::process_annexb(
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
        return "failed to prepend SPS/PPS";
    }
    fix_monotonic_ts(packet.pts, packet.dts, stream_.last_video_dts);
    if (!has_aud(payload_of(packet)) && !prepend_aud(packet)) {
        return "failed to prepend AUD";
    }
    log_ready("direct-ready", packet, idr);
    enqueue_packet(muxer, packet, true);
    return nullptr;
}

// MPEG-TS, the encoder gives avcC: the filter converts and puts the parameter sets in itself.
const char *PacketPath::process_filtered(
    const Muxer &muxer, const EncodedPacket &encoded, PacketHandle packet) {
    const int sent = av_bsf_send_packet(muxer.filter.get(), packet.get());
    packet.reset();
    if (sent < 0) {
        log_error("av_bsf_send_packet(video) failed: %s (code=%d)", error_text(sent).c_str(), sent);
        return "video Annex B conversion failed";
    }
    for (int enqueued = 0; enqueued == 0 || enqueued == AVERROR(EAGAIN);) {
        const PacketHandle filtered(av_packet_alloc());
        if (!filtered) {
            return "av_packet_alloc(video/filt) failed";
        }
        const int received = av_bsf_receive_packet(muxer.filter.get(), filtered.get());
        if (received == AVERROR(EAGAIN) || received == AVERROR_EOF) {
            break;
        }
        if (received < 0) {
            log_error("av_bsf_receive_packet(video) failed: %s (code=%d)",
                error_text(received).c_str(), received);
            return "video Annex B receive failed";
        }
        if (const char *failure = finish_filtered(muxer, encoded, *filtered, enqueued)) {
            return failure;
        }
    }
    return nullptr;
}

const char *PacketPath::finish_filtered(
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
        return "failed to prepend AUD";
    }
    fix_monotonic_ts(packet.pts, packet.dts, stream_.last_video_dts);
    log_ready("bsf-ready", packet, idr);
    enqueued = enqueue_packet(muxer, packet, true);
    return nullptr;
}

} // namespace corvane
