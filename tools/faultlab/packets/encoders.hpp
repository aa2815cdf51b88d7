// SPDX-License-Identifier: GPL-2.0-or-later
// Encoders whose output the rows choose.
#pragma once

#include <obs.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <vector>

namespace corvane::lab {

// H.264 with a keyframe every half second; one for all instances.
struct VideoScript {
    static inline std::atomic<size_t> slice_bytes = 400;
    static inline std::atomic<bool> fails = false;
    // What the next packets hold instead of a slice: 'e' nothing, 's' a short start code, '4' four
    // bytes, 'b' 20 MB; 0 for slices.
    static inline std::atomic<char> oddity = 0;

    static void register_type();

    int frames = 0;
    std::vector<uint8_t> payload;
    std::array<uint8_t, 15> header = {
        1, 66, 0, 30, 0xFF, 0xE1, 0, 2, 0x67, 0x42, 1, 0, 2, 0x68, 0xCE};
};

// AAC frames of silence; a header is there once the encoder has made `late_frames` frames.
struct AudioScript {
    static inline std::atomic<int> late_frames = 0;

    static void register_type();

    std::atomic<int> frames = 0; // counted by one thread, read by others
    std::array<uint8_t, 6> payload = {0x21, 0x10, 0x04, 0x60, 0x8C, 0x1C};
    std::array<uint8_t, 2> header = {0x11, 0x90};
};

inline bool encode_video(void *data, encoder_frame *frame, encoder_packet *packet, bool *received) {
    auto &self = *static_cast<VideoScript *>(data);
    if (VideoScript::fails) {
        return false;
    }
    packet->keyframe = self.frames++ % 15 == 0;
    const auto header = static_cast<uint8_t>(packet->keyframe ? 0x65 : 0x41);
    switch (VideoScript::oddity) {
    case 'e':
        self.payload.clear();
        break;
    case 's':
        self.payload = {0, 0, 1, header, 0x88, 0x84};
        break;
    case '4':
        self.payload = {0, 0, 1, header};
        break;
    default:
        self.payload.assign(
            VideoScript::oddity == 'b' ? 20U << 20U : size_t{VideoScript::slice_bytes}, 0x84);
        std::ranges::copy(std::array<uint8_t, 6>{0, 0, 0, 1, header, 0x88}, self.payload.begin());
    }
    packet->data = self.payload.data();
    packet->size = self.payload.size();
    packet->type = OBS_ENCODER_VIDEO;
    packet->pts = packet->dts = frame->pts;
    *received = true;
    return true;
}

inline bool encode_audio(void *data, encoder_frame *frame, encoder_packet *packet, bool *received) {
    auto &self = *static_cast<AudioScript *>(data);
    ++self.frames;
    packet->data = self.payload.data();
    packet->size = self.payload.size();
    packet->type = OBS_ENCODER_AUDIO;
    packet->timebase_num = 1;
    packet->timebase_den = 48000;
    packet->pts = packet->dts = frame->pts;
    *received = true;
    return true;
}

template <typename Script>
obs_encoder_info encoder_info(const char *id, const char *codec, obs_encoder_type type) {
    obs_encoder_info info = {};
    info.id = id;
    info.codec = codec;
    info.type = type;
    info.get_name = [](void *) {
        return "Scripted";
    };
    info.create = [](obs_data_t *, obs_encoder_t *) -> void * {
        return new Script;
    };
    info.destroy = [](void *data) {
        delete static_cast<Script *>(data);
    };
    return info;
}

inline void VideoScript::register_type() {
    obs_encoder_info info = encoder_info<VideoScript>("lab_h264", "h264", OBS_ENCODER_VIDEO);
    info.encode = encode_video;
    info.get_extra_data = [](void *data, uint8_t **extra, size_t *size) {
        auto &header = static_cast<VideoScript *>(data)->header;
        *extra = header.data();
        *size = header.size();
        return true;
    };
    obs_register_encoder_s(&info, sizeof(info));
}

inline void AudioScript::register_type() {
    obs_encoder_info info = encoder_info<AudioScript>("lab_aac", "aac", OBS_ENCODER_AUDIO);
    info.encode = encode_audio;
    info.get_frame_size = [](void *) -> size_t {
        return 1024;
    };
    info.get_extra_data = [](void *data, uint8_t **extra, size_t *size) {
        auto &self = *static_cast<AudioScript *>(data);
        *extra = self.header.data();
        *size = self.header.size();
        return self.frames >= late_frames;
    };
    obs_register_encoder_s(&info, sizeof(info));
}

} // namespace corvane::lab
