// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "mux/interrupt.hpp"
#include "mux/muxer.hpp"
#include "mux/stream_url.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace corvane {

// One connection of a stream, from its opening to its end, each step with a deadline. Shared with
// the threads that open and close it, which can be left behind: one thread at a time, but for the
// interrupt. Keeps the stream's secrets out of FFmpeg's log.
class LiveConnection {
public:
    // A call that failed: its name, FFmpeg's code, and what to tell the user.
    struct Failure {
        const char *call;
        int code;
        const char *message;
    };

    LiveConnection(Muxer muxer, StreamUrl url);
    ~LiveConnection();
    LiveConnection(const LiveConnection &) = delete;
    LiveConnection &operator=(const LiveConnection &) = delete;

    // Connects and sends the container's header.
    std::optional<Failure> open();

    // Sends the packet, at once or later. An FFmpeg error code is of this packet alone, as long as
    // lost() is 0.
    int write(AVPacket &packet);

    // The error with which the connection was lost; FFmpeg sends nothing more then.
    int lost() const;

    // Says goodbye, if there is somebody to say it to, and hangs up.
    void close();

    // Sent so far.
    uint64_t bytes() const;

    const Muxer &muxer() const { return muxer_; }
    const StreamUrl &url() const { return url_; }
    Interrupt &interrupt() { return interrupt_; }

private:
    Muxer muxer_;
    const StreamUrl url_;
    const std::vector<std::string> secrets_;
    Interrupt interrupt_;
    bool begun_ = false; // the header was written
};

} // namespace corvane
