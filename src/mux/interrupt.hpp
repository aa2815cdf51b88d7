// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

extern "C" {
#include <libavformat/avio.h>
#include <libavutil/time.h>
}

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>

namespace corvane {

// Ends FFmpeg's blocking network calls: when the call's own time is over, or when the stream is to
// end. FFmpeg asks several times a second.
class Interrupt {
public:
    using Duration = std::chrono::microseconds;

    // The calls that follow, on this thread, have so long.
    void allow(Duration time) { call_deadline_us_ = av_gettime_relative() + time.count(); }

    // Whatever runs has to be over within that time. Any thread.
    void end_within(Duration time) { end_deadline_us_ = av_gettime_relative() + time.count(); }

    // Before a stream's first call.
    void reset() { end_deadline_us_ = kNever; }

    // On the thread of the calls.
    bool expired() const {
        return av_gettime_relative() > std::min(call_deadline_us_, end_deadline_us_.load());
    }

    // For this object's lifetime.
    AVIOInterruptCB callback() {
        return {.callback = [](void *self) -> int {
                    return static_cast<const Interrupt *>(self)->expired();
                },
            .opaque = this};
    }

private:
    static constexpr int64_t kNever = INT64_MAX;

    int64_t call_deadline_us_ = kNever; // of the calls' thread alone
    std::atomic<int64_t> end_deadline_us_ = kNever;
};

} // namespace corvane
