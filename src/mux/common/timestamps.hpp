// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

extern "C" {
#include <libavutil/avutil.h>
#include <libavutil/rational.h>
}

#include <cstdint>

namespace corvane {

// Duration of a video frame when the frame rate gives none: 1/30 s in ticks of 1/90000 s.
inline constexpr int64_t kFallbackFrameDuration = 3000;

// Converts between time bases, rounding to the nearest tick; a missing timestamp stays missing.
int64_t rescale_timestamp(int64_t timestamp, AVRational from, AVRational to);

// One frame in ticks of `time_base`; kFallbackFrameDuration when that is below one tick.
int64_t frame_duration(AVRational frame_rate, AVRational time_base);

// Keeps dts strictly increasing against `last_dts`, which it updates, and pts at or after dts. A
// missing dts changes nothing.
void fix_monotonic_ts(int64_t &pts, int64_t &dts, int64_t &last_dts);

// Subtracts the base where both are set.
void rebase_timestamp(int64_t &timestamp, int64_t base);

} // namespace corvane
