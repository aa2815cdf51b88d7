// SPDX-License-Identifier: GPL-2.0-or-later
#include "mux/live_buffer.hpp"

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

void LiveBuffer::open() {
    const std::scoped_lock lock(mutex_);
    empty();
    arrived_ = seen_ = 0;
    dropped_frames_ = dropped_sound_ = 0;
    keyframe_wanted_ = false;
    paused_ = false;
    open_ = true;
}

void LiveBuffer::close() {
    {
        const std::scoped_lock lock(mutex_);
        empty();
        open_ = false;
    }
    changed_.notify_all();
}

void LiveBuffer::pause() {
    const std::scoped_lock lock(mutex_);
    dropped_frames_ += static_cast<uint64_t>(std::ranges::count_if(packets_, &Entry::is_video));
    empty();
    paused_ = true;
}

void LiveBuffer::resume() {
    const std::scoped_lock lock(mutex_);
    keyframe_wanted_ = keyframe_wanted_ || paused_;
    paused_ = false;
}

bool LiveBuffer::push(const encoder_packet &packet, Clock::time_point now) {
    {
        const std::scoped_lock lock(mutex_);
        if (!open_ || !wanted(packet)) {
            return open_ && !paused_;
        }
        packets_.emplace_back(share(packet), now);
        bytes_ += packet.size;
        ++arrived_;
        make_room(now);
    }
    changed_.notify_one();
    return true;
}

bool LiveBuffer::anything_yet() const {
    const std::scoped_lock lock(mutex_);
    return arrived_ > 0;
}

bool LiveBuffer::wanted(const encoder_packet &packet) {
    const bool video = packet.type == OBS_ENCODER_VIDEO;
    const bool usable = !paused_ && packet.data && packet.size > 0;
    if (usable && video && packet.keyframe) {
        keyframe_wanted_ = false;
    }
    const bool refused = !usable || (video && keyframe_wanted_);
    if (refused && video) {
        ++dropped_frames_;
    }
    return !refused;
}

SharedPacket LiveBuffer::wait_pop() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return !packets_.empty() || !open_; });
    if (!open_) {
        return nullptr;
    }
    SharedPacket packet = std::move(packets_.front().packet);
    packets_.pop_front();
    bytes_ -= packet->size;
    return packet;
}

bool LiveBuffer::wait_for_more(Clock::time_point until) {
    std::unique_lock lock(mutex_);
    changed_.wait_until(lock, until, [this] { return arrived_ != seen_ || !open_; });
    seen_ = arrived_;
    return open_;
}

uint64_t LiveBuffer::dropped_frames() const {
    const std::scoped_lock lock(mutex_);
    return dropped_frames_;
}

uint64_t LiveBuffer::dropped_sound() const {
    const std::scoped_lock lock(mutex_);
    return dropped_sound_;
}

float LiveBuffer::fill() const {
    const std::scoped_lock lock(mutex_);
    if (packets_.empty()) {
        return 0;
    }
    const std::chrono::duration<float> waited = Clock::now() - packets_.front().arrival;
    const float bytes = static_cast<float>(bytes_) / static_cast<float>(kMaxBytes);
    return std::clamp(std::max(waited / kMaxWait, bytes), 0.0F, 1.0F);
}

void LiveBuffer::empty() {
    packets_.clear();
    bytes_ = 0;
}

void LiveBuffer::make_room(Clock::time_point now) {
    for (;;) {
        const auto video = std::ranges::find_if(packets_, &Entry::is_video);
        if (video == packets_.end() || (bytes_ <= kMaxBytes && now - video->arrival <= kMaxWait)) {
            break;
        }
        drop_to_next_keyframe(video);
    }
    while (!packets_.empty() && !packets_.front().is_video() &&
           (bytes_ > kMaxBytes || now - packets_.front().arrival > kMaxSoundWait)) {
        bytes_ -= packets_.front().packet->size;
        packets_.pop_front();
        ++dropped_sound_;
    }
}

// The first keyframe after the oldest video packet begins what is kept; without one all video
// goes, and what comes until a keyframe too.
void LiveBuffer::drop_to_next_keyframe(const std::deque<Entry>::iterator &oldest_video) {
    const auto keyframe = std::find_if(std::next(oldest_video), packets_.end(),
        [](const Entry &entry) { return entry.is_video() && entry.packet->keyframe; });
    keyframe_wanted_ = keyframe == packets_.end();
    const auto kept = std::stable_partition(
        oldest_video, keyframe, [](const Entry &entry) { return !entry.is_video(); });
    dropped_frames_ += static_cast<uint64_t>(std::distance(kept, keyframe));
    std::for_each(kept, keyframe, [this](const Entry &entry) { bytes_ -= entry.packet->size; });
    packets_.erase(kept, keyframe);
}

} // namespace corvane
