// SPDX-License-Identifier: GPL-2.0-or-later
// The FFmpeg side of a stream: container context, streams and bitstream filter. Knows nothing
// of connections, threads or reconnecting.
#pragma once

#include "mux/av_handles.hpp"
#include "mux/stream_settings.hpp"

#include <obs.h>

#include <array>
#include <cstddef>
#include <cstdint>

namespace corvane {

inline constexpr size_t kAudioSlots = 6;

inline constexpr int kSamplesPerAacPacket = 1024;
inline constexpr int kFallbackSampleRate = 48000;

enum class OpenResult {
    kOpened = 0,
    kNotReady = 1, // codec headers are missing, try again with a later packet
    kFatal = 2,    // the output's last error tells why
};

struct Muxer {
    FormatContextHandle context;
    BitstreamFilterHandle filter; // MPEG-TS only: "h264_mp4toannexb"
    AVStream *video = nullptr;
    std::array<AVStream *, kAudioSlots> audio = {}; // null where the slot has no stream
    AVStream *first_audio = nullptr;
    size_t audio_count = 0;
    bool is_srt = false;

    bool is_open() const { return context != nullptr; }
};

enum class EncoderHeaders {
    kMissing,  // there is nothing yet that a stream could be made of
    kUsable,   // video and at least one track
    kComplete, // video and all tracks
};
// Which of the output's encoders have their codec headers by now.
EncoderHeaders encoder_headers(obs_output_t *output);

// Builds context, streams and filter from the headers of the output's encoders. Fills `muxer`
// only with kOpened; sets the output's last error with kFatal.
OpenResult build_muxer(obs_output_t *output, const StreamSettings &settings, Muxer &muxer);

// The line that tells how the stream was opened, with the address as it is to be shown.
void log_opened(const Muxer &muxer, const char *shown_url);

} // namespace corvane
