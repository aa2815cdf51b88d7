// SPDX-License-Identifier: GPL-2.0-or-later
// Decides which packets may enter the stream, and hands those to the sink.
#include "base/log.hpp"
#include "mux/bitstream.hpp"
#include "mux/packet_path.hpp"

#include <utility>

namespace corvane {

namespace {

constexpr size_t kLoggedNalTypes = 20;

} // namespace

void PacketPath::begin_stream(const Muxer &muxer) {
    stream_ = {};
    stream_.clean_start_armed = !muxer.is_srt;
}

int PacketPath::enqueue_packet(const Muxer &muxer, const AVPacket &packet, bool is_video) {
    if (is_video) {
        if (const int refused = pass_video_gate(muxer, packet)) {
            return refused;
        }
    } else if (muxer.is_srt && !stream_.clean_start_armed) {
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

// A stream that has started lets every picture pass. What kind it is takes a look at all of its
// bytes, so that is asked only before.
int PacketPath::pass_video_gate(const Muxer &muxer, const AVPacket &packet) {
    if (stream_.keyframe_seen) {
        return 0;
    }
    const Bytes payload = payload_of(packet);
    const bool annexb = is_annexb(payload);
    const bool aud = annexb && has_aud(payload);
    const bool idr = annexb && has_idr(payload);
    const bool key = (packet.flags & AV_PKT_FLAG_KEY) != 0 || idr;

    if (muxer.is_srt) {
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

// The bases are overwritten on purpose with values that are already rebased: for MPEG-TS these
// are normally 0, so that every later video packet keeps its encoder's timestamps.
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
