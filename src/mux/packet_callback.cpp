// SPDX-License-Identifier: GPL-2.0-or-later
// What happens to a packet that libobs hands over: opening the muxer with the first ones,
// holding them until then, sending, and reconnecting.
#include "base/log.hpp"
#include "mux/mux_output.hpp"
#include "mux/retry_delay.hpp"

#include <util/platform.h>

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
        active_ = false;
        lock.unlock();
        if (claim_capture_end(Capture::kFailed)) {
            stop_with_error();
        }
        return;
    }
    if (!muxer_.is_open()) {
        switch (open_muxer()) {
        case OpenResult::kOpened:
            replay_held_packets();
            break;
        case OpenResult::kNotReady:
            hold_packet(*packet);
            return;
        case OpenResult::kFatal:
            log_error("open_muxer fatal — stopping output");
            active_ = false;
            fatal_ = true;
            free_pending_packets();
            lock.unlock();
            if (claim_capture_end(Capture::kFailed)) {
                stop_with_error();
            }
            return;
        }
    }
    process_packet(*packet);
}

// Emits "stop" twice on this thread, the second time with the error. The text of the failure is
// the output's last error already.
void MuxOutput::stop_with_error() {
    obs_output_end_data_capture(output_);
    obs_output_signal_stop(output_, OBS_OUTPUT_ERROR);
}

// The first keyframe and the first packet of each track are enough to start the stream with. One
// without payload would be dropped later anyway, and bmemdup() of zero bytes aborts.
void MuxOutput::hold_packet(const encoder_packet &packet) {
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

void MuxOutput::replay_held_packets() {
    if (pending_video_) {
        process_video_packet(pending_video_->packet());
        pending_video_.reset();
    }
    for (size_t slot = 0; slot < kAudioSlots; ++slot) {
        std::optional<PendingPacket> &held = pending_audio_[slot];
        if (held && path_.audio_allowed()) {
            process_audio_packet(slot, held->packet());
        }
        held.reset();
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
    stop_on_failure(path_.process_video_packet(muxer_, packet));
}

void MuxOutput::process_audio_packet(size_t slot, const EncodedPacket &packet) {
    stop_on_failure(path_.process_audio_packet(muxer_, slot, packet));
}

// Handlers of "stop" run with the output lock held here and must not call into the output. A
// failure is signalled for each packet that still arrives until libobs has let the encoders go.
void MuxOutput::stop_on_failure(const char *failure) {
    if (failure) {
        obs_output_set_last_error(output_, failure);
        obs_output_signal_stop(output_, OBS_OUTPUT_ERROR);
    }
}

// Everything but a due keyframe is discarded, and also the keyframe that triggers a successful
// attempt: the next one starts the new stream through the gate. No failure ends the attempts.
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
