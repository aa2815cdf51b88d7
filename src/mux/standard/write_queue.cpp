// SPDX-License-Identifier: GPL-2.0-or-later
#include "mux/standard/write_queue.hpp"

#include <utility>

namespace corvane {

void WriteQueue::start() {
    const std::scoped_lock lock(mutex_);
    running_ = true;
}

void WriteQueue::stop() {
    {
        const std::scoped_lock lock(mutex_);
        running_ = false;
        packets_.clear();
    }
    changed_.notify_all();
}

bool WriteQueue::push(PacketHandle packet) {
    {
        const std::scoped_lock lock(mutex_);
        if (!running_) {
            return false;
        }
        packets_.push_back(std::move(packet));
    }
    changed_.notify_one();
    return true;
}

PacketHandle WriteQueue::wait_pop() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return !packets_.empty() || !running_; });
    if (packets_.empty()) {
        return nullptr;
    }
    PacketHandle packet = std::move(packets_.front());
    packets_.pop_front();
    return packet;
}

} // namespace corvane
