// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "mux/common/bitstream.hpp"
#include "mux/common/muxer.hpp"

#include <obs.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <utility>

namespace corvane {

// The part of libobs's encoder_packet that PacketPath needs; does not own the payload. Timestamps
// are in the encoder's time base.
struct EncodedPacket {
    Bytes payload;
    int64_t pts;
    int64_t dts;
    AVRational time_base;
    AVRational frame_time; // of video, in seconds
    bool keyframe;

    explicit EncodedPacket(const encoder_packet &packet)
        : payload(packet.data, packet.data ? packet.size : 0)
        , pts(packet.pts)
        , dts(packet.dts)
        , time_base{.num = packet.timebase_num, .den = packet.timebase_den}
        , frame_time(time_base)
        , keyframe(packet.keyframe) {}
};

// Turns encoded packets into packets of the open stream and passes them to a sink: time base,
// duration, rebased and strictly increasing timestamps; for MPEG-TS also Annex B form with
// parameter sets and access unit delimiters. Drops everything before the first keyframe.
//
// Not thread-safe: MuxOutput calls it under its output lock, PacketSender on the network thread.
class PacketPath {
public:
    enum class AudioClock {
        kOwn,    // each track starts at 0
        kShared, // tracks keep their timestamps, so that one that starts late stays in sync
    };

    // Takes a finished packet; false when it refuses the packet.
    using Sink = std::function<bool(PacketHandle packet)>;

    explicit PacketPath(Sink sink, AudioClock audio_clock = AudioClock::kOwn)
        : sink_(std::move(sink))
        , audio_clock_(audio_clock) {}

    // Resets timestamps and gates; call after the muxer was opened.
    void begin_stream(const Muxer &muxer);

    // Both drop the packet silently while the muxer is closed. An error (no memory, conversion
    // failed) loses the packet.
    [[nodiscard]] std::optional<StreamError> process_video_packet(
        const Muxer &muxer, const EncodedPacket &encoded);
    [[nodiscard]] std::optional<StreamError> process_audio_packet(
        const Muxer &muxer, size_t slot, const EncodedPacket &encoded);

    // Whether a video keyframe has passed the gate.
    bool audio_allowed() const { return stream_.audio_allowed; }

private:
    struct AudioSlot {
        int64_t first_pts = AV_NOPTS_VALUE;
        int64_t first_dts = AV_NOPTS_VALUE;
        int64_t last_dts = AV_NOPTS_VALUE;
    };

    [[nodiscard]] std::optional<StreamError> process_annexb(
        const Muxer &muxer, const EncodedPacket &encoded, AVPacket &packet);
    [[nodiscard]] std::optional<StreamError> process_filtered(
        const Muxer &muxer, const EncodedPacket &encoded, PacketHandle packet);
    [[nodiscard]] std::optional<StreamError> finish_filtered(
        const Muxer &muxer, const EncodedPacket &encoded, AVPacket &packet, int &enqueued);
    void fill_missing_timestamps(AVPacket &packet) const;
    void record_video_base(const AVPacket &packet);
    void rebase_video(AVPacket &packet) const;

    // Passes a clone to the sink if the gate allows it. 0: taken; AVERROR(EAGAIN): dropped by the
    // gate or refused by the sink; AVERROR(ENOMEM).
    int enqueue_packet(const AVPacket &packet, bool is_video);
    int pass_video_gate(const AVPacket &packet);
    void start_stream_at(const AVPacket &packet, bool aud, bool idr);

    // Since the muxer was opened.
    struct Stream {
        int64_t last_video_dts = AV_NOPTS_VALUE;
        int64_t base_video_pts = AV_NOPTS_VALUE; // of the first video keyframe
        int64_t base_video_dts = AV_NOPTS_VALUE;
        std::array<AudioSlot, kAudioSlots> audio;
        bool keyframe_seen = false;
        bool video_started = false;
        bool audio_allowed = false;
        bool clean_start_armed = false; // MPEG-TS: the first access unit passed

        // MPEG-TS begins with a complete access unit, audio follows.
        bool srt_clean_start_pending() const { return !clean_start_armed; }
    };

    const Sink sink_;
    const AudioClock audio_clock_;
    Stream stream_;
};

} // namespace corvane
