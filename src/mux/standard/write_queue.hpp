// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "mux/common/av_handles.hpp"

#include <condition_variable>
#include <deque>
#include <mutex>

namespace corvane {

// The packets waiting for the network, without a size limit. Filled by the packet callback, emptied
// by the write thread. Thread-safe.
class WriteQueue {
public:
    void start();

    // Refuses further packets, frees those still queued and wakes the reader.
    void stop();

    // False when the queue is not running; the packet is freed then.
    bool push(PacketHandle packet);

    // Waits for a packet; null once the queue is stopped and empty.
    PacketHandle wait_pop();

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    // Guarded by mutex_.
    std::deque<PacketHandle> packets_;
    bool running_ = false;
};

} // namespace corvane
