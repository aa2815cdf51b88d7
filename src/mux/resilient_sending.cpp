// SPDX-License-Identifier: GPL-2.0-or-later
// What the network thread does with packets while the connection stands.
#include "base/log.hpp"
#include "mux/resilient_output.hpp"
#include "mux/timestamps.hpp"

#include <algorithm>

namespace corvane {

namespace {

using namespace std::chrono_literals;

constexpr auto kWriteStall = 10s;
constexpr auto kReportEvery = 1s;

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
    while (lost_ == 0) {
        const SharedPacket packet = buffer_.wait_pop();
        if (!packet) {
            return;
        }
        send(*packet);
        if (!proven_ && LiveBuffer::Clock::now() - connected_at_ >= kProven) {
            proven();
        }
    }
    if (wanted()) {
        connection_lost();
    }
}

// All tracks begin with the first keyframe; sound from before it has no place in the stream.
void ResilientOutput::send(const encoder_packet &packet) {
    const bool video = packet.type == OBS_ENCODER_VIDEO;
    EncodedPacket encoded(packet);
    // libobs counts in parts of the denominator: the numerator, which is not 1 with frame rates
    // such as 30000/1001 and with a divided one, is in the timestamps already.
    encoded.time_base.num = 1;
    if (!zero_) {
        if (!video || !packet.keyframe) {
            return;
        }
        zero_ = zero_at(encoded);
    }
    shift(encoded, *zero_);
    if (!video && encoded.dts != AV_NOPTS_VALUE && encoded.dts < 0) {
        return;
    }
    if (const char *failure = video
                                  ? path_.process_video_packet(muxer_, encoded)
                                  : path_.process_audio_packet(muxer_, packet.track_idx, encoded)) {
        count_bad_packet(failure);
    }
    while (const PacketHandle ready = ready_.try_pop()) {
        write(*ready);
    }
}

// FFmpeg keeps the error of a connection that is gone and sends nothing more; any other error is
// of the one packet.
void ResilientOutput::write(AVPacket &packet) {
    interrupt_.allow(kWriteStall);
    AVFormatContext &context = *muxer_.context;
    const int result = av_interleaved_write_frame(&context, &packet);
    total_bytes_ = earlier_bytes_ + static_cast<uint64_t>(context.pb->bytes_written);
    lost_ = std::min(context.pb->error, 0);
    if (lost_ == 0 && result < 0) {
        count_bad_packet(error_text(result).c_str());
    }
}

void ResilientOutput::count_bad_packet(const char *reason) {
    ++bad_packets_;
    const auto now = LiveBuffer::Clock::now();
    if (now - bad_packet_reported_ >= kReportEvery) {
        log_warning("packet dropped: %s; %d in all", reason, bad_packets_.load());
        bad_packet_reported_ = now;
    }
}

} // namespace corvane
