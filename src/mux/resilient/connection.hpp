// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "mux/muxer.hpp"
#include "mux/resilient/interrupt.hpp"
#include "mux/resilient/log_redaction.hpp"
#include "mux/stream_error.hpp"
#include "mux/stream_url.hpp"

#include <atomic>
#include <cstdint>
#include <optional>

namespace corvane {

// One connection of a stream, from opening to closing, each blocking call with a deadline. Shared
// with the threads that open and close it and that may be abandoned. One thread at a time, except
// for interrupt() and is_open(). Keeps the stream's secrets out of FFmpeg's log lines.
class Connection {
public:
    Connection(Muxer muxer, StreamUrl url);
    ~Connection();
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

    // Connects and writes the container's header.
    std::optional<StreamError> open();

    // Whether the container's header was written.
    bool is_open() const { return open_; }

    // Takes the packet's payload and sends it, at once or with a later packet. A negative result is
    // FFmpeg's error code for this packet alone as long as error() is 0.
    int write(AVPacket &packet);

    // The error code that ended the connection, 0 while it lasts. FFmpeg sends nothing after it.
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
    Interrupt interrupt_;
    std::atomic<bool> open_ = false;
};

} // namespace corvane
