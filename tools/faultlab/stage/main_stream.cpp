// SPDX-License-Identifier: GPL-2.0-or-later
#include "main_stream.hpp"

#include "testbed/wait.hpp"

#include <stdexcept>

namespace corvane::lab {

namespace {

OBSEncoderAutoRelease make_video_encoder() {
    const OBSDataAutoRelease settings = obs_data_create();
    obs_data_set_string(settings, "preset", "ultrafast");
    obs_data_set_string(settings, "rate_control", "CBR");
    obs_data_set_int(settings, "bitrate", 500);
    return obs_video_encoder_create("obs_x264", "main video", settings, nullptr);
}

} // namespace

MainStream::MainStream(const std::string &server) {
    const OBSDataAutoRelease address = obs_data_create();
    obs_data_set_string(address, "server", server.c_str());
    obs_data_set_string(address, "key", "main");
    service_ = obs_service_create("rtmp_custom", "main service", address, nullptr);
    video_ = make_video_encoder();
    obs_encoder_set_video(video_, obs_get_video());
    audio_ = obs_audio_encoder_create("ffmpeg_aac", "main audio", nullptr, 0, nullptr);
    obs_encoder_set_audio(audio_, obs_get_audio());
    output_ = obs_output_create(kMainOutputType, "main stream", nullptr, nullptr);
    obs_output_set_video_encoder(output_, video_);
    obs_output_set_audio_encoder(output_, audio_, 0);
    obs_output_set_service(output_, service_);
    if (!obs_output_start(output_) ||
        !test::wait_until([this] { return obs_output_get_total_frames(output_) > 0; })) {
        throw std::runtime_error("the main stream does not start");
    }
}

MainStream::~MainStream() {
    obs_output_stop(output_);
    test::wait_until([this] { return !obs_output_active(output_); });
}

} // namespace corvane::lab
