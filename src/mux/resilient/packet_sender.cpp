// SPDX-License-Identifier: GPL-2.0-or-later
#include "mux/resilient/packet_sender.hpp"

#include "mux/common/timestamps.hpp"

#include <string>
#include <utility>

namespace corvane {

namespace {

// FLV stores a tag's size in 24 bits. FFmpeg checks it only after writing the beginning of the tag,
// which breaks the stream.
constexpr size_t kMaxPayload = (1U << 24U) - 1024;

EncodedPacket origin_at(const EncodedPacket &keyframe) {
    EncodedPacket origin = keyframe;
    origin.payload = {};
    if (origin.dts == AV_NOPTS_VALUE) {
        origin.dts = origin.pts == AV_NOPTS_VALUE ? 0 : origin.pts;
    }
    return origin;
}

void shift(EncodedPacket &packet, const EncodedPacket &origin) {
    const int64_t base = rescale_timestamp(origin.dts, origin.time_base, packet.time_base);
    rebase_timestamp(packet.pts, base);
    rebase_timestamp(packet.dts, base);
}

} // namespace

PacketSender::PacketSender(Connection &connection, OnDropped on_dropped)
    : connection_(connection)
    , on_dropped_(std::move(on_dropped)) {
    path_.begin_stream(connection_.muxer());
}

std::chrono::steady_clock::duration PacketSender::sending_time() const {
    using Clock = std::chrono::steady_clock;
    return origin_ ? Clock::now() - begun_at_ : Clock::duration::zero();
}

// Drops audio from before the first keyframe. PacketPath handles timestamps that jump back later.
void PacketSender::send(const encoder_packet &packet) {
    const bool video = packet.type == OBS_ENCODER_VIDEO;
    EncodedPacket encoded(packet);
    // libobs's timestamps are in units of 1/denominator: the numerator, which is not 1 with frame
    // rates such as 30000/1001 or a divided one, is already part of them.
    encoded.time_base.num = 1;
    if (encoded.payload.size() > kMaxPayload) {
        on_dropped_(video, "too large");
        return;
    }
    if (!origin_ && video && packet.keyframe) {
        origin_ = origin_at(encoded);
        begun_at_ = std::chrono::steady_clock::now();
    }
    if (!origin_) {
        return;
    }
    shift(encoded, *origin_);
    if (!video && !audio_begun_[packet.track_idx % kAudioSlots]) {
        if (encoded.dts != AV_NOPTS_VALUE && encoded.dts < 0) {
            return;
        }
        audio_begun_.set(packet.track_idx % kAudioSlots);
    }
    const Muxer &muxer = connection_.muxer();
    const std::optional<StreamError> error =
        video ? path_.process_video_packet(muxer, encoded)
              : path_.process_audio_packet(muxer, packet.track_idx, encoded);
    if (error) {
        on_dropped_(video, error->message);
    }
}

// An error that leaves the connection open loses the packet.
bool PacketSender::write(PacketHandle packet) {
    const bool video = packet->stream_index == connection_.muxer().video->index;
    const int result = connection_.write(*packet);
    if (result < 0 && connection_.error() == 0) {
        on_dropped_(video, error_text(result).c_str());
    }
    return true;
}

} // namespace corvane
