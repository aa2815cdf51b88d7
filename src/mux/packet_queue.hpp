// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "mux/av_handles.hpp"

#include <condition_variable>
#include <deque>
#include <mutex>

namespace corvane {

// The packets on their way to the network, without limit of size. Filled by the packet callback,
// drained by one write thread.
class PacketQueue {
public:
    void start();

    // Refuses further packets, frees those still queued and wakes the waiting reader.
    void stop();

    // False when the queue is not started; the packet is freed then.
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
