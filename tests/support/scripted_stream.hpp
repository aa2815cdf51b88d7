// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "base/obs_handles.hpp"
#include "mux/common/stream_output.hpp"
#include "mux/output_type.hpp"
#include "mux/resilient/stream_timeouts.hpp"
#include "support/scripted_encoder.hpp"
#include "support/wait.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <format>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace corvane::test {

inline void register_output_types() {
    if (!obs_output_get_display_name(kMuxOutputId)) {
        register_mux_output_types();
        ScriptedEncoder::register_types();
    }
}

// The tests of the output types: every test has a fresh script and the usual timeouts.
class MuxFixture : public testing::Test {
protected:
    MuxFixture() {
        register_output_types();
        EncoderScript::current = std::make_shared<EncoderScript>();
    }
    ~MuxFixture() override { stream_timeouts = {}; }

    EncoderScript &script() const { return *EncoderScript::current; }
};

// An output of one of the module's types in libobs, with scripted encoders.
class ScriptedStream {
public:
    ScriptedStream(const char *type, const std::string &server, const std::string &key,
        const std::vector<size_t> &tracks = {0, 3})
        : output(obs_output_create(type, "output", settings(server, key), nullptr)) {
        encoders_.emplace_back(
            obs_video_encoder_create("scripted_h264", "video", nullptr, nullptr));
        obs_encoder_set_video(encoders_.back(), obs_get_video());
        obs_output_set_video_encoder(output, encoders_.back());
        for (const size_t track : tracks) {
            encoders_.emplace_back(
                obs_audio_encoder_create("scripted_aac", "audio", nullptr, track, nullptr));
            obs_encoder_set_audio(encoders_.back(), obs_get_audio());
            obs_output_set_audio_encoder(output, encoders_.back(), track);
        }
        const auto on_stop = [](void *self, calldata_t *data) {
            auto &stream = *static_cast<ScriptedStream *>(self);
            const std::scoped_lock lock(stream.mutex_);
            stream.stop_codes_.push_back(static_cast<int>(calldata_int(data, "code")));
        };
        signal_handler_connect(obs_output_get_signal_handler(output), "stop", on_stop, this);
    }
    ~ScriptedStream() {
        if (output) {
            stop();
            destroy();
        }
    }
    ScriptedStream(const ScriptedStream &) = delete;
    ScriptedStream &operator=(const ScriptedStream &) = delete;

    void update(const std::string &server, const std::string &key) {
        obs_output_update(output, settings(server, key));
    }
    [[nodiscard]] bool start() { return obs_output_start(output); }
    bool active() const { return obs_output_active(output); }

    // Both wait for the end. With the resilient type neither takes a second.
    void stop() {
        expect_soon([this] {
            obs_output_stop(output);
            EXPECT_TRUE(wait_until([this] { return !active(); }));
        });
    }
    void destroy() {
        expect_soon([this] { output = nullptr; });
    }

    // False when the output did not end by itself and say so as often.
    bool wait_for_error(size_t codes = 1) {
        return wait_until([&] { return !active() && stop_codes().size() >= codes; });
    }
    std::vector<int> stop_codes() {
        const std::scoped_lock lock(mutex_);
        return stop_codes_;
    }
    std::string last_error() const {
        const char *text = obs_output_get_last_error(output);
        return text ? text : "";
    }
    // The resilient type's "phase failures reason".
    std::string state() const {
        Calldata answer;
        proc_handler_call(obs_output_get_proc_handler(output), "connection_state", answer.get());
        return std::string(calldata_string(answer.get(), "phase")) + " " +
               std::to_string(calldata_int(answer.get(), "failures")) + " " +
               calldata_string(answer.get(), "reason");
    }

    // Runs the function at each packet that libobs hands out from now on, before the output gets
    // it; it may change all but the payload.
    void at_each_packet(std::function<void(encoder_packet &)> function) {
        at_packet_ = std::move(function);
        const auto call = [](obs_output_t *, encoder_packet *packet, encoder_packet_time *,
                              void *self) {
            static_cast<ScriptedStream *>(self)->at_packet_(*packet);
        };
        obs_output_add_packet_callback(output, call, this);
    }
    // Hands the output a packet that libobs knows nothing of; null says that an encoder failed.
    void send(const encoder_packet *packet) {
        static_cast<StreamOutput *>(obs_obj_get_data(output))->encoded_packet(packet);
    }

    OBSOutputAutoRelease output;

private:
    template <typename Call>
    void expect_soon(Call call) const {
        const bool resilient = obs_output_get_id(output) == std::string_view(kResilientOutputId);
        const auto begin = std::chrono::steady_clock::now();
        call();
        const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - begin;
        EXPECT_TRUE(!resilient || passed.count() < 1) << passed.count() << " s";
    }

    static OBSDataAutoRelease settings(const std::string &server, const std::string &key) {
        constexpr std::string_view kSettings = R"({{"server": "{}", "key": "{}"}})";
        return obs_data_create_from_json(std::format(kSettings, server, key).c_str());
    }

    std::mutex mutex_; // guards stop_codes_
    std::vector<int> stop_codes_;
    std::function<void(encoder_packet &)> at_packet_;
    std::vector<OBSEncoderAutoRelease> encoders_;
};

} // namespace corvane::test
