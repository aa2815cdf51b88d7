// SPDX-License-Identifier: GPL-2.0-or-later
// The packet callback: opens the muxer, keeps the first packets until then, sends, reconnects.
#include "base/log.hpp"
#include "mux/common/retry_delay.hpp"
#include "mux/standard/mux_output.hpp"

#include <util/platform.h>

#include <utility>

namespace corvane {

void MuxOutput::encoded_packet(const encoder_packet *packet) {
    if (!packet) {
        obs_output_signal_stop(output_, OBS_OUTPUT_ENCODE_ERROR);
        return;
    }
    std::unique_lock lock(mutex_);
    if (!active_) {
        return;
    }
    if (reconnecting_) {
        attempt_reconnect(*packet);
        return;
    }
    if (fatal_) {
        deactivate_with_error(std::move(lock));
        return;
    }
    if (!muxer_.is_open()) {
        switch (open_muxer()) {
        case OpenResult::kOpened:
            process_pending_packets();
            break;
        case OpenResult::kNotReady:
            add_pending_packet(*packet);
            return;
        case OpenResult::kFatal:
            log_error("open_muxer fatal — stopping output");
            fatal_ = true;
            free_pending_packets();
            deactivate_with_error(std::move(lock));
            return;
        }
    }
    process_packet(*packet);
}

void MuxOutput::deactivate_with_error(std::unique_lock<std::mutex> lock) {
    active_ = false;
    lock.unlock(); // libobs may call back
    if (claim_capture_end(Capture::kFailed)) {
        end_capture_with_error();
    }
}

// Emits "stop" twice on this thread, the second time with the error. The last error is already set.
void MuxOutput::end_capture_with_error() {
    obs_output_end_data_capture(output_);
    obs_output_signal_stop(output_, OBS_OUTPUT_ERROR);
}

// Keeps the first keyframe and the first packet of each audio track. An empty packet would be
// dropped later anyway, and bmemdup() of zero bytes aborts.
void MuxOutput::add_pending_packet(const encoder_packet &packet) {
    if (!packet.data || packet.size == 0) {
        return;
    }
    if (packet.type == OBS_ENCODER_VIDEO) {
        if (packet.keyframe && !pending_video_) {
            pending_video_.emplace(EncodedPacket(packet));
        }
    } else if (packet.track_idx < kAudioSlots && !pending_audio_[packet.track_idx]) {
        pending_audio_[packet.track_idx].emplace(EncodedPacket(packet));
    }
}

void MuxOutput::process_pending_packets() {
    if (pending_video_) {
        process_video_packet(pending_video_->packet());
        pending_video_.reset();
    }
    for (size_t slot = 0; slot < kAudioSlots; ++slot) {
        std::optional<PendingPacket> &pending = pending_audio_[slot];
        if (pending && path_.audio_allowed()) {
            process_audio_packet(slot, pending->packet());
        }
        pending.reset();
    }
}

void MuxOutput::process_packet(const encoder_packet &packet) {
    if (packet.type == OBS_ENCODER_VIDEO) {
        process_video_packet(EncodedPacket(packet));
    } else if (packet.track_idx < kAudioSlots) {
        process_audio_packet(packet.track_idx, EncodedPacket(packet));
    }
}

void MuxOutput::process_video_packet(const EncodedPacket &packet) {
    signal_error_if_any(path_.process_video_packet(muxer_, packet));
}

void MuxOutput::process_audio_packet(size_t slot, const EncodedPacket &packet) {
    signal_error_if_any(path_.process_audio_packet(muxer_, slot, packet));
}

// "stop" handlers run here with the output lock held and must not call into the output. Each packet
// that fails until libobs has stopped the encoders emits another signal.
void MuxOutput::signal_error_if_any(const std::optional<StreamError> &error) {
    if (error) {
        obs_output_set_last_error(output_, error->message);
        obs_output_signal_stop(output_, OBS_OUTPUT_ERROR);
    }
}

// Discards every packet, also the keyframe that triggers a successful attempt: the new stream
// begins with the next one. No error ends the attempts.
void MuxOutput::attempt_reconnect(const encoder_packet &packet) {
    if (os_gettime_ns() < next_retry_ns_ || packet.type != OBS_ENCODER_VIDEO || !packet.keyframe) {
        return;
    }
    log_info("attempting reconnect on keyframe");
    switch (open_muxer()) {
    case OpenResult::kOpened:
        reconnecting_ = false;
        retry_count_ = 0;
        free_pending_packets();
        log_info("reconnect succeeded");
        break;
    case OpenResult::kNotReady:
        next_retry_ns_ = os_gettime_ns() + kRetryStepNs;
        break;
    case OpenResult::kFatal:
        ++retry_count_;
        next_retry_ns_ = os_gettime_ns() + retry_delay_ns(retry_count_);
        log_warning("reconnect failed, will retry");
        break;
    }
}

} // namespace corvane
