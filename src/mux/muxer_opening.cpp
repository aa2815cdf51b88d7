// SPDX-License-Identifier: GPL-2.0-or-later
// Opens and closes the stream: muxer, connection, container header, write thread.
#include "base/log.hpp"
#include "mux/connection.hpp"
#include "mux/mux_output.hpp"

#include <utility>

namespace corvane {

// The write thread starts before the header's result is looked at, on purpose. When the header
// fails, the thread waits at its empty queue until close_muxer() joins it; an opening before
// that assigns to a joinable thread handle, which ends the process.
OpenResult MuxOutput::open_muxer() {
    if (settings_.url.url.empty()) {
        obs_output_set_last_error(output_, "Missing RTMP server/key");
        return OpenResult::kFatal;
    }
    Muxer muxer;
    const OpenResult built = build_muxer(output_, settings_, muxer);
    if (built != OpenResult::kOpened) {
        return built;
    }
    AVFormatContext &context = *muxer.context;
    Dictionary options = connection_options(settings_.url);
    if (const int error = open_connection(context, settings_.url, options)) {
        log_error("avio_open2 failed: %s (code %d)", error_text(error).c_str(), error);
        obs_output_set_last_error(output_, kConnectFailed);
        return OpenResult::kFatal;
    }
    const int header = avformat_write_header(&context, options.get());
    queue_.start();
    write_thread_ = std::thread(&MuxOutput::write_thread_loop, this);
    if (header < 0) {
        log_error("avformat_write_header failed: %s (code %d)", error_text(header).c_str(), header);
        close_connection(context);
        obs_output_set_last_error(output_, kWriteHeaderFailed);
        return OpenResult::kFatal;
    }
    muxer_ = std::move(muxer);
    path_.begin_stream(muxer_);
    log_opened(muxer_, settings_.url.url.c_str());
    return OpenResult::kOpened;
}

// Packets still queued are discarded, not flushed.
void MuxOutput::close_muxer() {
    queue_.stop();
    if (write_thread_.joinable()) {
        write_thread_.join();
    }
    if (muxer_.is_open()) {
        av_write_trailer(muxer_.context.get());
        close_connection(*muxer_.context);
    }
    muxer_ = {};
}

} // namespace corvane
