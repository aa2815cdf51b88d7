// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "mux/encoded_packet.hpp"
#include "mux/muxer.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <utility>

namespace corvane {

// Turns the host's encoded packets into packets of the open stream and hands them to a sink: time
// base, duration, rebased and growing timestamps; for MPEG-TS also Annex B form with parameter sets
// and access unit delimiters. Nothing enters before the first keyframe.
//
// Not thread-safe: MuxOutput calls it under its output lock, PacketSender on the network thread.
class PacketPath {
public:
    enum class AudioClock {
        kOwn,    // each track begins at 0, wherever it stood
        kShared, // tracks keep the timestamps they come with, so that a late one stays in time
    };

    // Takes a finished packet; false when it refuses the packet.
    using Sink = std::function<bool(PacketHandle packet)>;

    explicit PacketPath(Sink sink, AudioClock audio_clock = AudioClock::kOwn)
        : sink_(std::move(sink))
        , audio_clock_(audio_clock) {}

    // The muxer was opened: timestamps and gates start anew, nothing of an earlier stream stays.
    void begin_stream(const Muxer &muxer);

    // Each drops the packet silently while the muxer is closed. The result is null, or the text
    // of a failure after which the stream cannot go on (no memory, conversion failed).
    [[nodiscard]] const char *process_video_packet(
        const Muxer &muxer, const EncodedPacket &encoded);
    [[nodiscard]] const char *process_audio_packet(
        const Muxer &muxer, size_t slot, const EncodedPacket &encoded);

    // Whether a video keyframe has passed, so that audio may follow.
    bool audio_allowed() const { return stream_.audio_allowed; }

private:
    struct AudioSlot {
        int64_t first_pts = AV_NOPTS_VALUE;
        int64_t first_dts = AV_NOPTS_VALUE;
        int64_t last_dts = AV_NOPTS_VALUE;
    };

    [[nodiscard]] const char *process_annexb(
        const Muxer &muxer, const EncodedPacket &encoded, AVPacket &packet);
    [[nodiscard]] const char *process_filtered(
        const Muxer &muxer, const EncodedPacket &encoded, PacketHandle packet);
    [[nodiscard]] const char *finish_filtered(
        const Muxer &muxer, const EncodedPacket &encoded, AVPacket &packet, int &enqueued);
    void fill_missing_timestamps(AVPacket &packet) const;
    void record_video_base(const AVPacket &packet);
    void rebase_video(AVPacket &packet) const;

    // The gate, then the sink: 0 taken; AVERROR(EAGAIN) dropped by the gate or refused by the sink;
    // AVERROR(ENOMEM). The caller keeps its packet, the sink gets a clone.
    int enqueue_packet(const Muxer &muxer, const AVPacket &packet, bool is_video);
    int pass_video_gate(const Muxer &muxer, const AVPacket &packet);
    void start_stream_at(const AVPacket &packet, bool aud, bool idr);

    // What belongs to one opening of the muxer.
    struct Stream {
        int64_t last_video_dts = AV_NOPTS_VALUE;
        int64_t base_video_pts = AV_NOPTS_VALUE; // of the first video keyframe
        int64_t base_video_dts = AV_NOPTS_VALUE;
        std::array<AudioSlot, kAudioSlots> audio;
        bool keyframe_seen = false;
        bool video_started = false;
        bool audio_allowed = false;
        bool clean_start_armed = false; // MPEG-TS: the access unit that opens the stream passed
    };

    const Sink sink_;
    const AudioClock audio_clock_;
    Stream stream_;
};

} // namespace corvane
