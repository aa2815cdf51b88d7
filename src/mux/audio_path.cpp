// SPDX-License-Identifier: GPL-2.0-or-later
// From the host's AAC packet to a packet of the stream.
#include "mux/packet_path.hpp"
#include "mux/timestamps.hpp"

namespace corvane {

namespace {

void record_first(int64_t timestamp, int64_t &first) {
    if (first == AV_NOPTS_VALUE) {
        first = timestamp;
    }
}

} // namespace

const char *PacketPath::process_audio_packet(
    const Muxer &muxer, size_t slot, const EncodedPacket &encoded) {
    if (!muxer.is_open() || encoded.payload.empty() || slot >= kAudioSlots ||
        !stream_.audio_allowed || !muxer.audio[slot]) {
        return nullptr;
    }
    const PacketHandle packet(av_packet_alloc());
    if (!packet) {
        return "av_packet_alloc(audio) failed";
    }
    if (!copy_payload(*packet, encoded.payload)) {
        return "av_new_packet(audio) failed";
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
    enqueue_packet(muxer, *packet, false);
    return nullptr;
}

} // namespace corvane
