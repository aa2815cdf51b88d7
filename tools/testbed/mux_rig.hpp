// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "base/obs_handles.hpp"
#include "mux/av_handles.hpp"
#include "mux/output_type.hpp"
#include "testbed/scripted_encoder.hpp"
#include "testbed/wait.hpp"

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace corvane::test {

// One output of the module's type in libobs, with a scripted video encoder.
class MuxRig : public testing::Test {
protected:
    static void SetUpTestSuite() {
        register_mux_output_types();
        ScriptedEncoder::register_type();
    }

    ~MuxRig() override { end(); }

    // Ends the stream and destroys the output, so that no thread of it is left.
    void end() {
        if (output) {
            obs_output_stop(output);
            EXPECT_TRUE(wait_until([this] { return !obs_output_active(output); }));
        }
        output = nullptr;
    }

    void create(const std::string &server, const char *key, const std::vector<size_t> &tracks,
        const char *type = kMuxOutputId) {
        ScriptedEncoder::header_after = 0;
        ScriptedEncoder::fails = ScriptedEncoder::stalls = false;
        const OBSDataAutoRelease settings = obs_data_create();
        obs_data_set_string(settings, "server", server.c_str());
        obs_data_set_string(settings, "key", key);
        output = obs_output_create(type, "output", settings, nullptr);
        video = obs_video_encoder_create("scripted_h264", "video", nullptr, nullptr);
        obs_encoder_set_video(video, obs_get_video());
        obs_output_set_video_encoder(output, video);
        for (const size_t track : tracks) {
            audio[track] = obs_audio_encoder_create("ffmpeg_aac", "audio", nullptr, track, nullptr);
            obs_encoder_set_audio(audio[track], obs_get_audio());
            obs_output_set_audio_encoder(output, audio[track], track);
        }
        signal_handler_connect(obs_output_get_signal_handler(output), "stop", on_stop, this);
    }

    void update_server(const std::string &server) {
        const OBSDataAutoRelease settings = obs_data_create();
        obs_data_set_string(settings, "server", server.c_str());
        obs_output_update(output, settings);
    }

    std::vector<long long> stop_codes() {
        const std::scoped_lock lock(mutex);
        return codes;
    }

    // False when the output did not end by itself.
    bool wait_for_error() {
        return wait_until([this] { return !obs_output_active(output) && !stop_codes().empty(); });
    }

    std::string last_error() {
        const char *text = obs_output_get_last_error(output);
        return text ? text : "";
    }

    static void on_stop(void *data, calldata_t *calldata) {
        auto *self = static_cast<MuxRig *>(data);
        const std::scoped_lock lock(self->mutex);
        self->codes.push_back(calldata_int(calldata, "code"));
    }

    std::mutex mutex; // guards codes
    std::vector<long long> codes;
    OBSEncoderAutoRelease video;
    std::array<OBSEncoderAutoRelease, 6> audio;
    OBSOutputAutoRelease output;
};

// Frame numbers of the received video and packet counts of the audio streams.
struct Received {
    std::vector<int> frames;
    std::map<int, int> audio_packets;
    std::map<int, int64_t> first_dts; // by stream

    explicit Received(const std::filesystem::path &file) {
        AVFormatContext *context = nullptr;
        EXPECT_EQ(avformat_open_input(&context, file.c_str(), nullptr, nullptr), 0);
        const PacketHandle packet(av_packet_alloc());
        while (context && av_read_frame(context, packet.get()) == 0) {
            const AVStream *stream = context->streams[packet->stream_index];
            first_dts.try_emplace(packet->stream_index, packet->dts);
            if (stream->codecpar->codec_type == AVMEDIA_TYPE_VIDEO) {
                frames.push_back(packet->data[packet->size - 1]);
            } else {
                ++audio_packets[packet->stream_index];
            }
            av_packet_unref(packet.get());
        }
        avformat_close_input(&context);
    }
};

} // namespace corvane::test
