// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "support/encoded_packets.hpp"

#include <obs.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <memory>

namespace corvane::test {

// What scripted encoders deliver, by default: H.264 in groups of 15 frames that end with their
// number, from 1 to 240 again and again, and AAC. May be changed while they run.
struct EncoderScript {
    std::atomic<bool> video_header = true;
    std::atomic<bool> audio_header = true;
    std::atomic<size_t> frame_bytes = 7;
    std::atomic<bool> short_start_codes = false;
    std::atomic<bool> fails = false;
    std::atomic<bool> stalls = false; // takes frames and gives nothing

    // Of all encoders that are created from now on.
    static inline std::shared_ptr<EncoderScript> current;
};

class ScriptedEncoder {
public:
    static void register_types() {
        for (const bool video : {true, false}) {
            obs_encoder_info info = {};
            info.id = video ? "scripted_h264" : "scripted_aac";
            info.codec = video ? "h264" : "aac";
            info.type = video ? OBS_ENCODER_VIDEO : OBS_ENCODER_AUDIO;
            info.get_name = [](void *) {
                return "Scripted";
            };
            info.create = [](obs_data_t *, obs_encoder_t *encoder) -> void * {
                return new ScriptedEncoder(obs_encoder_get_type(encoder) == OBS_ENCODER_VIDEO);
            };
            info.destroy = [](void *self) {
                delete static_cast<ScriptedEncoder *>(self);
            };
            info.encode = [](void *self, encoder_frame *frame, encoder_packet *packet,
                              bool *received) {
                return static_cast<ScriptedEncoder *>(self)->encode(*frame, *packet, *received);
            };
            info.get_extra_data = [](void *self, uint8_t **data, size_t *size) {
                return static_cast<ScriptedEncoder *>(self)->header(*data, *size);
            };
            info.get_frame_size = [](void *) -> size_t {
                return 1024;
            };
            obs_register_encoder_s(&info, sizeof(info));
        }
    }

private:
    explicit ScriptedEncoder(bool video)
        : video_(video)
        , header_(video ? kAvcc : Buffer{0x11, 0x90}) {}

    bool encode(const encoder_frame &frame, encoder_packet &packet, bool &received) {
        if (video_) {
            if (script_->fails || script_->stalls) {
                return !script_->fails;
            }
            packet.keyframe = frames_ % 15 == 0;
            payload_ = video_frame(packet.keyframe ? 0x65 : 0x41);
        } else {
            packet.timebase_num = 1;
            packet.timebase_den = 48000;
        }
        ++frames_;
        packet.type = video_ ? OBS_ENCODER_VIDEO : OBS_ENCODER_AUDIO;
        packet.data = payload_.data();
        packet.size = payload_.size();
        packet.pts = packet.dts = frame.pts;
        return received = true;
    }

    Buffer video_frame(uint8_t nal_header) const {
        const std::array<uint8_t, 6> opening{0, 0, 0, 1, nal_header, 0x88};
        Buffer frame(opening.begin() + script_->short_start_codes, opening.end());
        frame.resize(script_->frame_bytes, 0x84);
        if (frame.size() > opening.size()) {
            frame.back() = static_cast<uint8_t>(frames_ % 240 + 1);
        }
        return frame;
    }

    bool header(uint8_t *&data, size_t &size) {
        data = header_.data();
        size = header_.size();
        return frames_ > 0 && (video_ ? script_->video_header : script_->audio_header);
    }

    const std::shared_ptr<EncoderScript> script_ = EncoderScript::current;
    const bool video_;
    Buffer header_;
    Buffer payload_ = {0x21, 0x10, 0x04, 0x60, 0x8C, 0x1C}; // silence
    std::atomic<int> frames_ = 0;                           // counted by one thread, read by others
};

} // namespace corvane::test
