// SPDX-License-Identifier: GPL-2.0-or-later
#include "mux/live_connection.hpp"

#include "mux/connection.hpp"
#include "mux/ffmpeg_log.hpp"

#include <algorithm>
#include <utility>

namespace corvane {

namespace {

using namespace std::chrono_literals;

constexpr auto kConnectTime = 10s;
constexpr auto kWriteStall = 10s;
constexpr auto kCloseTime = 1s;
// How long one track may keep the others waiting, in FFmpeg's microseconds.
constexpr int64_t kInterleaveUs = 1'000'000;

} // namespace

LiveConnection::LiveConnection(Muxer muxer, StreamUrl url)
    : muxer_(std::move(muxer))
    , url_(std::move(url))
    , secrets_(secrets_of(url_)) {
    muxer_.context->max_interleave_delta = kInterleaveUs;
    muxer_.context->interrupt_callback = interrupt_.callback();
    interrupt_.allow(kConnectTime);
}

LiveConnection::~LiveConnection() {
    close();
}

std::optional<LiveConnection::Failure> LiveConnection::open() {
    const DiscreetLog discreet(secrets_);
    AVFormatContext &context = *muxer_.context;
    Dictionary options = connection_options(url_);
    if (const int error = open_connection(context, url_, options)) {
        return Failure{.call = "avio_open2",
            .code = error,
            .message = "Stream rejected — check server URL and stream key"};
    }
    if (const int error = avformat_write_header(&context, options.get()); error < 0) {
        return Failure{.call = "avformat_write_header",
            .code = error,
            .message = "Stream rejected — write header failed"};
    }
    begun_ = true;
    return std::nullopt;
}

int LiveConnection::write(AVPacket &packet) {
    const DiscreetLog discreet(secrets_);
    interrupt_.allow(kWriteStall);
    return av_interleaved_write_frame(muxer_.context.get(), &packet);
}

int LiveConnection::lost() const {
    return std::min(muxer_.context->pb->error, 0);
}

uint64_t LiveConnection::bytes() const {
    const AVIOContext *io = muxer_.context ? muxer_.context->pb : nullptr;
    return io ? static_cast<uint64_t>(io->bytes_written) : 0;
}

void LiveConnection::close() {
    if (!muxer_.is_open()) {
        return;
    }
    const DiscreetLog discreet(secrets_);
    interrupt_.allow(kCloseTime);
    if (begun_ && lost() == 0) {
        av_write_trailer(muxer_.context.get());
    }
    close_connection(*muxer_.context);
    muxer_ = {};
}

} // namespace corvane
