// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <obs.hpp>

#include <array>
#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

namespace corvane::test {

// An H.264 encoder of 15-frame groups whose slices end with the frame's number, from 1 to 240 again
// and again.
struct ScriptedEncoder {
    static inline int header_after = 0; // frames until the header can be read
    static inline std::atomic<bool> fails = false;
    static inline std::atomic<bool> stalls = false;    // takes frames and gives nothing
    static inline std::atomic<std::thread::id> thread; // that encodes

    std::atomic<int> frames = 0;
    std::vector<uint8_t> payload;
    std::array<uint8_t, 15> avcc = {
        1, 66, 0, 30, 0xFF, 0xE1, 0, 2, 0x67, 0x42, 1, 0, 2, 0x68, 0xCE};

    static void register_type() {
        obs_encoder_info info = {};
        info.id = "scripted_h264";
        info.type = OBS_ENCODER_VIDEO;
        info.codec = "h264";
        info.get_name = [](void *) {
            return "Scripted";
        };
        info.create = [](obs_data_t *, obs_encoder_t *) -> void * {
            return new ScriptedEncoder;
        };
        info.destroy = [](void *data) {
            delete static_cast<ScriptedEncoder *>(data);
        };
        info.encode = encode;
        info.get_extra_data = get_extra_data;
        obs_register_encoder_s(&info, sizeof(info));
    }

    static bool encode(void *data, encoder_frame *frame, encoder_packet *packet, bool *received) {
        auto *self = static_cast<ScriptedEncoder *>(data);
        thread = std::this_thread::get_id();
        if (fails || stalls) {
            return !fails;
        }
        const int number = self->frames++;
        packet->keyframe = number % 15 == 0;
        self->payload = {0, 0, 0, 1, static_cast<uint8_t>(packet->keyframe ? 0x65 : 0x41), 0x88,
            static_cast<uint8_t>(number % 240 + 1)};
        packet->data = self->payload.data();
        packet->size = self->payload.size();
        packet->type = OBS_ENCODER_VIDEO;
        packet->pts = packet->dts = frame->pts;
        *received = true;
        return true;
    }

    static bool get_extra_data(void *data, uint8_t **extra, size_t *size) {
        auto *self = static_cast<ScriptedEncoder *>(data);
        *extra = self->avcc.data();
        *size = self->avcc.size();
        return self->frames > header_after;
    }
};

} // namespace corvane::test
