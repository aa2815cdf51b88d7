// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <obs.hpp>

#include <QTimer>

#include <atomic>
#include <cstdint>
#include <functional>
#include <thread>

namespace corvane::lab {

// Reports, four times a second and from a thread of its own, what must also be known while the
// UI thread stands still: {"figures": {...}}.
//   ui_pause_ms    longest standstill of the UI thread's event loop since the last report, the
//                  one that still lasts included
//   rss_kb, peak_kb   memory of the process
//   cpu_ms            processor time of the process
//   lagged, rendered  frames of the host's graphics thread
//   graphics_wait_ms  for how long that thread was ready to run and got no processor
//   main_frames, main_bytes   what the main stream has sent
//   frames, bytes, dropped, congestion, connect_ms   of the vertical stream, as the host shows them
class Figures {
public:
    // Made on the UI thread, whose event loop it watches.
    Figures();
    ~Figures();
    Figures(const Figures &) = delete;
    Figures &operator=(const Figures &) = delete;

private:
    void run(const std::stop_token &end);
    int64_t take_longest_pause_ns();

    QTimer beat_;
    std::atomic<int64_t> last_beat_ns_;
    std::atomic<int64_t> longest_pause_ns_ = 0;
    std::jthread thread_; // last: it uses the others
};

} // namespace corvane::lab
