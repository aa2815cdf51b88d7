// SPDX-License-Identifier: GPL-2.0-or-later
// The FFmpeg side of a stream: container context, streams, bitstream filter and connection. No
// threads, no reconnecting.
#pragma once

#include "mux/common/av_handles.hpp"
#include "mux/common/stream_error.hpp"
#include "mux/common/stream_url.hpp"

#include <obs.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace corvane {

inline constexpr size_t kAudioSlots = 6;

inline constexpr int kSamplesPerAacPacket = 1024;
inline constexpr int kFallbackSampleRate = 48000;

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
    kMissing,  // no video, or no audio track
    kUsable,   // video and at least one audio track
    kComplete, // video and all audio tracks
};
// Which of the output's encoders have codec headers by now.
EncoderHeaders encoder_headers(obs_output_t *output);

// Builds context, streams and filter from the codec headers of the output's encoders. Without an
// error `muxer` may still be closed: headers are missing, try again with a later packet.
std::optional<StreamError> build_muxer(
    obs_output_t *output, const StreamSettings &settings, Muxer &muxer);

// The options of container and protocol. Opening the connection and writing the header each take
// out those they understand.
Dictionary connection_options(const StreamUrl &url);

// These three block until the network is done or the context's interrupt callback ends them.
std::optional<StreamError> open_connection(
    AVFormatContext &context, const std::string &url, Dictionary &options);
std::optional<StreamError> write_header(AVFormatContext &context, Dictionary &options);
void close_connection(AVFormatContext &context);

// The error of a connection that could not be opened.
StreamError connect_error(int code);

// Logs how the stream was opened, with the address as it may be shown.
void log_opened(const Muxer &muxer, const char *shown_url);

} // namespace corvane
