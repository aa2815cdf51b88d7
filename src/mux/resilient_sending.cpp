// SPDX-License-Identifier: GPL-2.0-or-later
// What the network thread does with packets while the connection stands.
#include "base/log.hpp"
#include "mux/resilient_output.hpp"
#include "mux/timestamps.hpp"

#include <algorithm>

namespace corvane {

namespace {

using namespace std::chrono_literals;

constexpr auto kReportEvery = 1s;
// FLV has 24 bits for a tag's size, and FFmpeg notices when it has written the tag's beginning:
// after that the server understands nothing more.
constexpr size_t kMaxPayload = (1U << 24U) - 1024;

// The moment of the keyframe that opens the stream.
EncodedPacket zero_at(const EncodedPacket &keyframe) {
    EncodedPacket zero = keyframe;
    zero.payload = {};
    if (zero.dts == AV_NOPTS_VALUE) {
        zero.dts = zero.pts == AV_NOPTS_VALUE ? 0 : zero.pts;
    }
    return zero;
}

void shift(EncodedPacket &packet, const EncodedPacket &zero) {
    const int64_t base = rescale_timestamp(zero.dts, zero.time_base, packet.time_base);
    rebase_timestamp(packet.pts, base);
    rebase_timestamp(packet.dts, base);
}

} // namespace

void ResilientOutput::send_until_lost() {
    while (connection_->lost() == 0) {
        const SharedPacket packet = buffer_.wait_pop();
        if (!packet) {
            return;
        }
        send(*packet);
        if (!proven_ && zero_ && connection_->lost() == 0 && Clock::now() - begun_at_ >= kProven) {
            proven();
        }
    }
    if (wanted()) {
        connection_lost();
    }
}

// All tracks begin with the first keyframe; sound from before it has no place in the stream. A
// clock that jumps back later on is the packet path's matter.
void ResilientOutput::send(const encoder_packet &packet) {
    const bool video = packet.type == OBS_ENCODER_VIDEO;
    EncodedPacket encoded(packet);
    // libobs counts in parts of the denominator: the numerator, which is not 1 with frame rates
    // such as 30000/1001 and with a divided one, is in the timestamps already.
    encoded.time_base.num = 1;
    if (encoded.payload.size() > kMaxPayload) {
        count_bad_packet(video, "too large");
        return;
    }
    if (!zero_) {
        if (!video || !packet.keyframe) {
            return;
        }
        zero_ = zero_at(encoded);
        begun_at_ = Clock::now();
    }
    shift(encoded, *zero_);
    if (!video && !sound_begun_[packet.track_idx % kAudioSlots]) {
        if (encoded.dts != AV_NOPTS_VALUE && encoded.dts < 0) {
            return;
        }
        sound_begun_.set(packet.track_idx % kAudioSlots);
    }
    const Muxer &muxer = connection_->muxer();
    const char *failure = video ? path_.process_video_packet(muxer, encoded)
                                : path_.process_audio_packet(muxer, packet.track_idx, encoded);
    if (failure) {
        count_bad_packet(video, failure);
    }
    while (const PacketHandle ready = ready_.try_pop()) {
        write(*ready);
    }
}

// An error that does not cost the connection costs the packet.
void ResilientOutput::write(AVPacket &packet) {
    const bool video = packet.stream_index == connection_->muxer().video->index;
    const int result = connection_->write(packet);
    total_bytes_ = earlier_bytes_ + connection_->bytes();
    if (result < 0 && connection_->lost() == 0) {
        count_bad_packet(video, error_text(result).c_str());
    }
}

void ResilientOutput::count_bad_packet(bool video, const char *reason) {
    bad_frames_ += video ? 1 : 0;
    ++bad_packets_;
    const auto now = Clock::now();
    if (now - bad_packet_reported_ >= kReportEvery) {
        log_warning("packet dropped: %s; %d in all", reason, bad_packets_);
        bad_packet_reported_ = now;
    }
}

} // namespace corvane
