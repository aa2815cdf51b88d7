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

// Ends FFmpeg's blocking network calls when their own deadline or that of the whole stream has
// passed. FFmpeg polls it several times a second. Thread-safe.
class Interrupt {
public:
    using Duration = std::chrono::microseconds;

    // Sets the deadline for the next blocking calls.
    void set_deadline(Duration time) { call_deadline_us_ = av_gettime_relative() + time.count(); }

    // Sets the deadline for all calls from now on; an earlier one stays.
    void set_final_deadline(Duration time) {
        end_deadline_us_ = std::min(end_deadline_us_.load(), av_gettime_relative() + time.count());
    }

    bool expired() const {
        return av_gettime_relative() >= std::min(call_deadline_us_.load(), end_deadline_us_.load());
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
    std::atomic<int64_t> end_deadline_us_ = kNever;
};

} // namespace corvane
