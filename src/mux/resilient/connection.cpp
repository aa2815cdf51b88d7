// SPDX-License-Identifier: GPL-2.0-or-later
#include "mux/resilient/connection.hpp"

#include "mux/resilient/connection_target.hpp"
#include "mux/resilient/stream_timeouts.hpp"

#include <algorithm>
#include <utility>

namespace corvane {

namespace {

// How long the muxer waits for a packet of every track.
constexpr int64_t kMaxInterleaveDeltaUs = 1'000'000;

} // namespace

Connection::Connection(Muxer muxer, StreamUrl url)
    : muxer_(std::move(muxer))
    , url_(std::move(url))
    , redaction_(secrets_of(url_)) {
    muxer_.context->max_interleave_delta = kMaxInterleaveDeltaUs;
    muxer_.context->interrupt_callback = interrupt_.callback();
    if (!url_.is_srt_listener()) {
        interrupt_.set_deadline(stream_timeouts.connect);
    }
}

Connection::~Connection() {
    close();
}

std::optional<StreamError> Connection::open() {
    const LogRedaction::Scope scope(redaction_);
    AVFormatContext &context = *muxer_.context;
    ConnectionTarget target = connection_target(url_);
    std::optional<StreamError> error = open_connection(context, target.address, target.options);
    if (!error) {
        error = write_header(context, target.options);
    }
    header_written_ = !error;
    error_details_ = scope.first_error();
    return error;
}

int Connection::write(AVPacket &packet) {
    const LogRedaction::Scope scope(redaction_);
    interrupt_.set_deadline(stream_timeouts.write);
    return av_interleaved_write_frame(muxer_.context.get(), &packet);
}

int Connection::error() const {
    return std::min(muxer_.context->pb->error, 0);
}

uint64_t Connection::bytes() const {
    const AVIOContext *io = muxer_.context ? muxer_.context->pb : nullptr;
    return io ? static_cast<uint64_t>(io->bytes_written) : 0;
}

void Connection::close() {
    if (!muxer_.is_open()) {
        return;
    }
    const LogRedaction::Scope scope(redaction_);
    interrupt_.set_deadline(stream_timeouts.close);
    if (header_written_ && error() == 0) {
        av_write_trailer(muxer_.context.get());
    }
    close_connection(*muxer_.context);
    muxer_ = {};
}

} // namespace corvane
