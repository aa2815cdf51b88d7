// SPDX-License-Identifier: GPL-2.0-or-later
// Drains the write queue to the network, and what follows when that fails.
#include "base/log.hpp"
#include "mux/mux_output.hpp"
#include "mux/retry_delay.hpp"

#include <util/platform.h>

namespace corvane {

// An input/output error alone leads to reconnecting; after any other the packet is lost and
// nothing is reported.
void MuxOutput::write_thread_loop() {
    while (PacketHandle packet = queue_.wait_pop()) {
        const int result = av_interleaved_write_frame(muxer_.context.get(), packet.get());
        packet.reset();
        if (result == AVERROR(EIO)) {
            enter_reconnect_mode(result);
        }
    }
}

// Runs on the write thread and takes the stream down as a stop does, on purpose, the output lock
// before anything else. close_muxer() then joins the thread it runs on, the join refuses with a
// deadlock error that nothing catches, and the process ends; what stands after it is reached
// only where the teardown returns. A stop that is joining this thread already holds the lock:
// then the two wait for each other for good.
void MuxOutput::enter_reconnect_mode(int error) {
    const std::scoped_lock lock(mutex_);
    log_warning("entering reconnect mode: write thread EIO (%s, code=%d)",
        error_text(error).c_str(), error);
    close_muxer();
    free_pending_packets();
    reconnecting_ = true;
    ++retry_count_;
    next_retry_ns_ = os_gettime_ns() + retry_delay_ns(retry_count_);
    obs_output_set_last_error(output_, "RTMP/SRT disconnected, reconnecting...");
}

} // namespace corvane
