// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "mux/common/muxer.hpp"
#include "mux/common/stream_error.hpp"
#include "mux/common/stream_url.hpp"
#include "mux/resilient/interrupt.hpp"
#include "mux/resilient/log_redaction.hpp"

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>

namespace corvane {

// One connection of a stream. Each blocking call has a deadline. Shared with the threads that open
// and close it, which may be abandoned. Only interrupt() and header_written() are thread-safe.
// Keeps the stream's secrets out of FFmpeg's log lines.
class Connection {
public:
    Connection(Muxer muxer, StreamUrl url);
    ~Connection();
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

    // Connects and writes the container's header.
    std::optional<StreamError> open();

    // FFmpeg's words for why open() failed, without secrets; may be empty.
    const std::string &error_details() const { return error_details_; }

    // Whether open() succeeded; stays true after close().
    bool header_written() const { return header_written_; }

    // Takes over the packet's payload and sends it now or with a later packet. A negative result is
    // FFmpeg's error code; it concerns this packet only as long as error() is 0.
    int write(AVPacket &packet);

    // The error code that ended the connection, 0 while it lasts. FFmpeg sends nothing after it.
    // Only after a successful open() and not after close().
    int error() const;

    // Writes the trailer if still connected, then closes.
    void close();

    // Bytes sent so far.
    uint64_t bytes() const;

    const Muxer &muxer() const { return muxer_; }
    const StreamUrl &url() const { return url_; }
    Interrupt &interrupt() { return interrupt_; }

private:
    Muxer muxer_;
    const StreamUrl url_;
    const LogRedaction redaction_;
    std::string error_details_;
    Interrupt interrupt_;
    std::atomic<bool> header_written_ = false;
};

} // namespace corvane
