// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "support/encoded_packets.hpp"

#include <obs.h>

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
            info.get_name = name;
            info.create = create;
            info.destroy = destroy;
            info.encode = encode;
            info.get_extra_data = header;
            info.get_frame_size = frame_size;
            obs_register_encoder_s(&info, sizeof(info));
        }
    }

private:
    static const char *name(void *) { return "Scripted"; }
    static size_t frame_size(void *) { return 1024; }
    static void *create(obs_data_t *, obs_encoder_t *encoder) {
        return new ScriptedEncoder{obs_encoder_get_type(encoder) == OBS_ENCODER_VIDEO};
    }
    static void destroy(void *self) { delete static_cast<ScriptedEncoder *>(self); }

    static bool encode(void *data, encoder_frame *frame, encoder_packet *packet, bool *received) {
        auto &self = *static_cast<ScriptedEncoder *>(data);
        if (self.video_) {
            if (self.script_->fails || self.script_->stalls) {
                return !self.script_->fails;
            }
            packet->keyframe = self.frames_ % 15 == 0;
            self.make_frame(packet->keyframe ? kIdr : kSlice);
        } else {
            packet->timebase_num = 1;
            packet->timebase_den = 48000;
        }
        ++self.frames_;
        packet->type = self.video_ ? OBS_ENCODER_VIDEO : OBS_ENCODER_AUDIO;
        packet->data = self.payload_.data();
        packet->size = self.payload_.size();
        packet->pts = packet->dts = frame->pts;
        return *received = true;
    }

    static bool header(void *data, uint8_t **bytes, size_t *size) {
        auto &self = *static_cast<ScriptedEncoder *>(data);
        *bytes = self.header_.data();
        *size = self.header_.size();
        return self.frames_ > 0 &&
               (self.video_ ? self.script_->video_header : self.script_->audio_header);
    }

    void make_frame(const Buffer &start) {
        payload_.assign(start.begin() + script_->short_start_codes, start.end());
        payload_.resize(script_->frame_bytes, 0x84);
        if (payload_.size() > 6) {
            payload_.back() = static_cast<uint8_t>(frames_ % 240 + 1);
        }
    }

    explicit ScriptedEncoder(bool video)
        : video_(video) {}

    const std::shared_ptr<EncoderScript> script_ = EncoderScript::current;
    const bool video_;
    Buffer header_ = video_ ? kAvcc : Buffer{0x11, 0x90};
    Buffer payload_ = {0x21, 0x10, 0x04, 0x60, 0x8C, 0x1C}; // silence
    std::atomic<int> frames_ = 0;                           // counted by one thread, read by others
};

} // namespace corvane::test
