// SPDX-License-Identifier: GPL-2.0-or-later
// The output type in libobs, fed by a video encoder whose headers and failures are scripted.
#include "base/obs_handles.hpp"
#include "mux/av_handles.hpp"
#include "mux/output_type.hpp"
#include "support/local_sink.hpp"
#include "support/wait.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <climits>
#include <map>
#include <mutex>
#include <set>
#include <vector>

using namespace corvane;
using namespace corvane::test;
using testing::ElementsAre;
using testing::Gt;

namespace {

// An H.264 encoder of 15-frame groups whose slices end with the frame's number.
struct ScriptedEncoder {
    static inline int header_after = 0;      // frames until the header can be read
    static inline int fails_after = INT_MAX; // frames until encoding fails

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
        const int number = self->frames++;
        if (number >= fails_after) {
            return false;
        }
        packet->keyframe = number % 15 == 0;
        self->payload = {0, 0, 0, 1, static_cast<uint8_t>(packet->keyframe ? 0x65 : 0x41), 0x88,
            static_cast<uint8_t>(number + 1)};
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

class MuxOutputType : public testing::Test {
protected:
    static void SetUpTestSuite() {
        register_mux_output_type();
        ScriptedEncoder::register_type();
    }

    ~MuxOutputType() override {
        if (output_) {
            obs_output_stop(output_);
            EXPECT_TRUE(wait_until([this] { return !obs_output_active(output_); }));
        }
    }

    void create(const std::string &server, const char *key, const std::vector<size_t> &tracks) {
        ScriptedEncoder::header_after = 0;
        ScriptedEncoder::fails_after = INT_MAX;
        const OBSDataAutoRelease settings = obs_data_create();
        obs_data_set_string(settings, "server", server.c_str());
        obs_data_set_string(settings, "key", key);
        output_ = obs_output_create(kMuxOutputId, "output", settings, nullptr);
        video_ = obs_video_encoder_create("scripted_h264", "video", nullptr, nullptr);
        obs_encoder_set_video(video_, obs_get_video());
        obs_output_set_video_encoder(output_, video_);
        for (const size_t track : tracks) {
            audio_[track] =
                obs_audio_encoder_create("ffmpeg_aac", "audio", nullptr, track, nullptr);
            obs_encoder_set_audio(audio_[track], obs_get_audio());
            obs_output_set_audio_encoder(output_, audio_[track], track);
        }
        signal_handler_connect(obs_output_get_signal_handler(output_), "stop", on_stop, this);
    }

    void update_server(const std::string &server) {
        const OBSDataAutoRelease settings = obs_data_create();
        obs_data_set_string(settings, "server", server.c_str());
        obs_output_update(output_, settings);
    }

    std::vector<long long> stop_codes() {
        const std::lock_guard lock(mutex_);
        return stop_codes_;
    }

    // False when the output did not end by itself.
    bool wait_for_error() {
        return wait_until([this] { return !obs_output_active(output_) && !stop_codes().empty(); });
    }

    std::string last_error() {
        const char *text = obs_output_get_last_error(output_);
        return text ? text : "";
    }

    static void on_stop(void *data, calldata_t *calldata) {
        auto *self = static_cast<MuxOutputType *>(data);
        const std::lock_guard lock(self->mutex_);
        self->stop_codes_.push_back(calldata_int(calldata, "code"));
    }

    std::mutex mutex_;
    std::vector<long long> stop_codes_;
    OBSEncoderAutoRelease video_;
    std::array<OBSEncoderAutoRelease, 6> audio_;
    OBSOutputAutoRelease output_;
};

// Frame numbers of the received video and packet counts of the audio streams.
struct Received {
    std::vector<int> frames;
    std::map<int, int> audio_packets;

    explicit Received(const std::filesystem::path &file) {
        AVFormatContext *context = nullptr;
        EXPECT_EQ(avformat_open_input(&context, file.c_str(), nullptr, nullptr), 0);
        const PacketHandle packet(av_packet_alloc());
        while (context && av_read_frame(context, packet.get()) == 0) {
            const AVStream *stream = context->streams[packet->stream_index];
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

} // namespace

// Headers that come late must not cost the keyframe that everything after it needs.
TEST_F(MuxOutputType, holds_the_first_keyframe_until_the_headers_exist) {
    const LocalSink sink;
    create(sink.url(), "late", {0, 3});
    ScriptedEncoder::header_after = 45;
    ASSERT_TRUE(obs_output_start(output_)) << last_error();
    ASSERT_TRUE(wait_until([&] { return sink.newest_size("late") > 2000; }));
    obs_output_stop(output_);
    ASSERT_TRUE(wait_until([&] { return !obs_output_active(output_); }));
    EXPECT_THAT(stop_codes(), ElementsAre(OBS_OUTPUT_SUCCESS));

    const Received received(sink.received("late").front());
    ASSERT_GT(received.frames.size(), 2U);
    EXPECT_EQ(received.frames[0], 1) << "the held keyframe is missing";
    EXPECT_GT(received.frames[1], 20) << "a packet from before the opening came through";
    EXPECT_EQ(received.audio_packets.size(), 2U) << "the slots without encoder got a stream";
}

// An error has to end the stream once, with a reason the user can act on.
TEST_F(MuxOutputType, ends_with_the_reason_when_it_cannot_connect) {
    const LocalSink sink;
    const std::string rejected = "Stream rejected — check server URL and stream key";
    create("rtmp://127.0.0.1:" + std::to_string(free_port()) + "/live", "refused", {0});
    ASSERT_TRUE(obs_output_start(output_)) << last_error();
    ASSERT_TRUE(wait_for_error());
    EXPECT_THAT(stop_codes(), ElementsAre(OBS_OUTPUT_SUCCESS, OBS_OUTPUT_ERROR));
    EXPECT_EQ(last_error(), rejected);

    // The same output works once it is given an address that does.
    update_server(sink.url());
    ASSERT_TRUE(obs_output_start(output_)) << last_error();
    EXPECT_TRUE(wait_until([&] { return sink.newest_size("refused") > 1000; }));
}

TEST_F(MuxOutputType, refuses_to_start_without_an_address) {
    create("rtmp://127.0.0.1/live", "  ", {0});
    EXPECT_FALSE(obs_output_start(output_));
    EXPECT_EQ(last_error(), "Missing RTMP server/key");
    EXPECT_FALSE(obs_output_active(output_));
    obs_output_stop(output_); // harmless
    EXPECT_THAT(stop_codes(), ElementsAre());
}

// A dead encoder must not leave the output running with nothing to send.
TEST_F(MuxOutputType, ends_with_an_encoder_error_when_the_encoder_fails) {
    const LocalSink sink;
    create(sink.url(), "failing", {0});
    ScriptedEncoder::fails_after = 20;
    ASSERT_TRUE(obs_output_start(output_)) << last_error();
    ASSERT_TRUE(wait_for_error());
    EXPECT_EQ(stop_codes().back(), OBS_OUTPUT_ENCODE_ERROR);
}

// Otherwise the host would believe in a stream that never begins.
TEST_F(MuxOutputType, refuses_to_start_without_audio) {
    create("rtmp://127.0.0.1/live", "mute", {});
    EXPECT_FALSE(obs_output_start(output_));
    EXPECT_EQ(last_error(), "obs_output_can_begin_data_capture failed");
    EXPECT_FALSE(obs_output_active(output_));
}

TEST_F(MuxOutputType, offers_the_host_its_settings) {
    const OBSDataAutoRelease defaults = obs_output_defaults(kMuxOutputId);
    EXPECT_TRUE(obs_data_has_default_value(defaults, "server"));
    EXPECT_FALSE(obs_data_has_default_value(defaults, "fps_num"));
    obs_properties_t *properties = obs_get_output_properties(kMuxOutputId);
    obs_property_t *key = obs_properties_get(properties, "key");
    EXPECT_STREQ(obs_property_description(key), "Stream Key");
    EXPECT_EQ(obs_property_text_type(key), OBS_TEXT_PASSWORD) << "the key shows on screen";
    obs_properties_destroy(properties);
}
