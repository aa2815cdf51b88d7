// SPDX-License-Identifier: GPL-2.0-or-later
#include "mux/common/timestamps.hpp"

extern "C" {
#include <libavutil/common.h>
#include <libavutil/mathematics.h>
}

#include <algorithm>

namespace corvane {

int64_t rescale_timestamp(int64_t timestamp, AVRational from, AVRational to) {
    if (timestamp == AV_NOPTS_VALUE) {
        return timestamp;
    }
    // FFmpeg combines the flags in one value. NOLINTNEXTLINE(*EnumCastOutOfRange)
    constexpr auto kRounding = static_cast<AVRounding>(AV_ROUND_NEAR_INF | AV_ROUND_PASS_MINMAX);
    return av_rescale_q_rnd(timestamp, from, to, kRounding);
}

int64_t frame_duration(AVRational frame_rate, AVRational time_base) {
    const int64_t duration = av_rescale_q(1, av_inv_q(frame_rate), time_base);
    return duration < 1 ? kFallbackFrameDuration : duration;
}

void fix_monotonic_ts(int64_t &pts, int64_t &dts, int64_t &last_dts) {
    if (dts == AV_NOPTS_VALUE) {
        return;
    }
    if (last_dts != AV_NOPTS_VALUE && dts <= last_dts) {
        dts = av_sat_add64(last_dts, 1);
    }
    if (pts != AV_NOPTS_VALUE && pts < dts) {
        pts = dts;
    }
    last_dts = dts;
}

void rebase_timestamp(int64_t &timestamp, int64_t base) {
    if (timestamp != AV_NOPTS_VALUE && base != AV_NOPTS_VALUE) {
        // Saturates, but not to the value that means "missing".
        timestamp = std::max(av_sat_sub64(timestamp, base), AV_NOPTS_VALUE + 1);
    }
}

} // namespace corvane
