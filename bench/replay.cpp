// SPDX-License-Identifier: GPL-2.0-or-later
#include "replay.hpp"

#include <algorithm>
#include <array>

namespace corvane::bench {

namespace {

// SPS and PPS of a 1080x1920 baseline stream; AAC-LC, 48 kHz, stereo.
std::array<uint8_t, 39> h264_header = {0, 0, 0, 1, 0x67, 0x42, 0xC0, 0x28, 0xD9, 0x00, 0x44, 0x03,
    0xC7, 0x97, 0xC0, 0x44, 0x00, 0x00, 0x03, 0x00, 0x04, 0x00, 0x00, 0x03, 0x00, 0xF0, 0x3C, 0x60,
    0xC9, 0x20, 0, 0, 0, 1, 0x68, 0xCB, 0x83, 0xCB, 0x20};
std::array<uint8_t, 2> aac_header = {0x11, 0x90};

constexpr size_t kSoundBytes = 427; // 160 kbit/s
constexpr uint8_t kBlank = 0x84;    // makes no start code
constexpr size_t kKeyframeWeight = 5;

struct Encoder {
    bool video;
    size_t fps;
    size_t megabits;
    size_t frames = 0;
    std::vector<uint8_t> payload;

    void encode(const encoder_frame &frame, encoder_packet &packet) {
        const size_t group = 2 * fps;
        packet.keyframe = video && frames++ % group == 0;
        if (video) {
            const size_t bytes = 2 * megabits * 1'000'000 / 8 / (group - 1 + kKeyframeWeight);
            payload.assign(packet.keyframe ? kKeyframeWeight * bytes : bytes, kBlank);
            std::ranges::copy(std::to_array<uint8_t>({0, 0, 0, 1, 0x41, 0x88}), payload.begin());
            payload[4] = packet.keyframe ? 0x65 : 0x41;
        } else {
            payload.assign(kSoundBytes, kBlank);
            packet.timebase_num = 1;
            packet.timebase_den = 48000;
        }
        packet.data = payload.data();
        packet.size = payload.size();
        packet.type = video ? OBS_ENCODER_VIDEO : OBS_ENCODER_AUDIO;
        packet.pts = packet.dts = frame.pts;
    }
};

obs_encoder_info encoder_type(const char *id, const char *codec, obs_encoder_type type) {
    obs_encoder_info info = {};
    info.id = id;
    info.codec = codec;
    info.type = type;
    info.get_name = [](void *) {
        return "Replay";
    };
    info.create = [](obs_data_t *settings, obs_encoder_t *encoder) -> void * {
        return new Encoder{.video = obs_encoder_get_type(encoder) == OBS_ENCODER_VIDEO,
            .fps = static_cast<size_t>(obs_data_get_int(settings, "fps")),
            .megabits = static_cast<size_t>(obs_data_get_int(settings, "bitrate") / 1000),
            .payload = {}};
    };
    info.destroy = [](void *data) {
        delete static_cast<Encoder *>(data);
    };
    info.encode = [](void *data, encoder_frame *frame, encoder_packet *packet, bool *received) {
        static_cast<Encoder *>(data)->encode(*frame, *packet);
        return *received = true;
    };
    info.get_extra_data = [](void *data, uint8_t **header, size_t *size) {
        const bool video = static_cast<const Encoder *>(data)->video;
        *header = video ? h264_header.data() : aac_header.data();
        *size = video ? h264_header.size() : aac_header.size();
        return true;
    };
    info.get_frame_size = [](void *) -> size_t {
        return 1024;
    };
    return info;
}

bool register_types() {
    for (const obs_encoder_info &info : {encoder_type("bench_h264", "h264", OBS_ENCODER_VIDEO),
             encoder_type("bench_aac", "aac", OBS_ENCODER_AUDIO)}) {
        obs_register_encoder_s(&info, sizeof(info));
    }
    return true;
}

} // namespace

std::vector<OBSEncoderAutoRelease> add_replay_encoders(obs_output_t *output, const Stream &stream) {
    [[maybe_unused]] static const bool registered = register_types();
    std::vector<OBSEncoderAutoRelease> encoders;
    const OBSDataAutoRelease settings = obs_data_create();
    obs_data_set_int(settings, "fps", stream.fps);
    obs_data_set_int(settings, "bitrate", stream.megabits * 1000LL);
    encoders.emplace_back(obs_video_encoder_create("bench_h264", "video", settings, nullptr));
    obs_encoder_set_video(encoders.back(), obs_get_video());
    obs_output_set_video_encoder(output, encoders.back());
    for (size_t track = 0; track < stream.tracks; ++track) {
        encoders.emplace_back(
            obs_audio_encoder_create("bench_aac", "audio", nullptr, track, nullptr));
        obs_encoder_set_audio(encoders.back(), obs_get_audio());
        obs_output_set_audio_encoder(output, encoders.back(), track);
    }
    return encoders;
}

} // namespace corvane::bench
