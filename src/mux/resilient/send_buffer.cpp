// SPDX-License-Identifier: GPL-2.0-or-later
#include "mux/resilient/send_buffer.hpp"

#include <algorithm>
#include <functional>
#include <utility>

namespace corvane {

namespace {

SharedPacket share(const encoder_packet &packet) {
    SharedPacket shared(new encoder_packet{});
    obs_encoder_packet_ref(shared.get(), const_cast<encoder_packet *>(&packet));
    return shared;
}

} // namespace

void SendBuffer::close() {
    {
        const std::scoped_lock lock(mutex_);
        clear();
        closed_ = true;
    }
    changed_.notify_all();
}

void SendBuffer::pause() {
    const std::scoped_lock lock(mutex_);
    dropped_frames_ += static_cast<uint64_t>(std::ranges::count_if(packets_, &Entry::is_video));
    clear();
    paused_ = true;
}

void SendBuffer::resume() {
    const std::scoped_lock lock(mutex_);
    needs_keyframe_ = needs_keyframe_ || paused_;
    paused_ = false;
}

bool SendBuffer::push(const encoder_packet &packet, Clock::time_point now) {
    {
        const std::scoped_lock lock(mutex_);
        if (closed_ || !accept(packet)) {
            return !closed_ && !paused_;
        }
        packets_.emplace_back(share(packet), now);
        bytes_ += packet.size;
        ++taken_;
        make_room(now);
    }
    changed_.notify_one();
    return true;
}

bool SendBuffer::has_received() const {
    const std::scoped_lock lock(mutex_);
    return taken_ > 0;
}

bool SendBuffer::accept(const encoder_packet &packet) {
    const bool video = packet.type == OBS_ENCODER_VIDEO;
    const bool usable = !paused_ && packet.data && packet.size > 0;
    if (usable && video && packet.keyframe) {
        needs_keyframe_ = false;
    }
    const bool refused = !usable || (video && needs_keyframe_);
    if (refused && video) {
        ++dropped_frames_;
    }
    return !refused;
}

SharedPacket SendBuffer::wait_pop(Clock::time_point deadline) {
    std::unique_lock lock(mutex_);
    changed_.wait_until(lock, deadline, [this] { return !packets_.empty() || closed_; });
    if (packets_.empty()) {
        return nullptr;
    }
    SharedPacket packet = std::move(packets_.front().packet);
    packets_.pop_front();
    bytes_ -= packet->size;
    return packet;
}

bool SendBuffer::wait_for_more(Clock::time_point deadline) {
    std::unique_lock lock(mutex_);
    changed_.wait_until(lock, deadline, [this] { return taken_ != seen_ || closed_; });
    seen_ = taken_;
    return !closed_;
}

uint64_t SendBuffer::dropped_frames() const {
    const std::scoped_lock lock(mutex_);
    return dropped_frames_;
}

uint64_t SendBuffer::dropped_audio() const {
    const std::scoped_lock lock(mutex_);
    return dropped_audio_;
}

float SendBuffer::fill() const {
    const std::scoped_lock lock(mutex_);
    if (packets_.empty()) {
        return 0;
    }
    const std::chrono::duration<float> waited = Clock::now() - packets_.front().arrival;
    const float bytes = static_cast<float>(bytes_) / static_cast<float>(kMaxBytes);
    return std::clamp(std::max(waited / kMaxWait, bytes), 0.0F, 1.0F);
}

void SendBuffer::clear() {
    packets_.clear();
    bytes_ = 0;
}

void SendBuffer::make_room(Clock::time_point now) {
    for (;;) {
        const auto video = std::ranges::find_if(packets_, &Entry::is_video);
        if (video == packets_.end() || (bytes_ <= kMaxBytes && now - video->arrival <= kMaxWait)) {
            break;
        }
        drop_to_next_keyframe(video);
    }
    while (!packets_.empty() && !packets_.front().is_video() &&
           (bytes_ > kMaxBytes || now - packets_.front().arrival > kMaxAudioWait)) {
        bytes_ -= packets_.front().packet->size;
        packets_.pop_front();
        ++dropped_audio_;
    }
}

// Drops video up to the first keyframe after the oldest video packet. Without such a keyframe all
// video is dropped, including what arrives before the next one.
void SendBuffer::drop_to_next_keyframe(const std::deque<Entry>::iterator &oldest_video) {
    const auto keyframe = std::find_if(std::next(oldest_video), packets_.end(),
        [](const Entry &entry) { return entry.is_video() && entry.packet->keyframe; });
    needs_keyframe_ = keyframe == packets_.end();
    const auto kept = std::stable_partition(
        oldest_video, keyframe, [](const Entry &entry) { return !entry.is_video(); });
    dropped_frames_ += static_cast<uint64_t>(std::distance(kept, keyframe));
    std::for_each(kept, keyframe, [this](const Entry &entry) { bytes_ -= entry.packet->size; });
    packets_.erase(kept, keyframe);
}

} // namespace corvane
