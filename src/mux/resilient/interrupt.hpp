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

// Ends FFmpeg's blocking network calls when their deadline or the final one has passed. FFmpeg
// polls it several times a second. Thread-safe.
class Interrupt {
public:
    using Duration = std::chrono::microseconds;

    // Sets the deadline for the next blocking calls.
    void set_deadline(Duration from_now) {
        call_deadline_us_ = av_gettime_relative() + from_now.count();
    }

    // Sets the deadline for all calls from now on; an earlier final deadline stays.
    void set_final_deadline(Duration from_now) {
        final_deadline_us_ =
            std::min(final_deadline_us_.load(), av_gettime_relative() + from_now.count());
    }

    // Whether a deadline passed so long ago.
    bool expired(Duration ago = {}) const {
        return av_gettime_relative() - ago.count() >=
               std::min(call_deadline_us_.load(), final_deadline_us_.load());
    }

    // Valid as long as this object.
    AVIOInterruptCB callback() {
        return {.callback = [](void *self) -> int {
                    return static_cast<const Interrupt *>(self)->expired();
                },
            .opaque = this};
    }

private:
    static constexpr int64_t kNever = INT64_MAX;

    std::atomic<int64_t> call_deadline_us_ = kNever;
    std::atomic<int64_t> final_deadline_us_ = kNever;
};

} // namespace corvane
