// SPDX-License-Identifier: GPL-2.0-or-later
#include "output/vertical_output.hpp"

#include "canvas/vertical_canvas.hpp"
#include "mux/output_type.hpp"
#include "testbed/box_catcher.hpp"
#include "testbed/host_objects.hpp"
#include "testbed/local_sink.hpp"
#include "testbed/log_capture.hpp"
#include "testbed/obs_session.hpp"
#include "testbed/ports.hpp"
#include "testbed/tap.hpp"
#include "testbed/wait.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <format>
#include <future>
#include <map>
#include <set>

namespace corvane::test {

namespace {

using testing::ElementsAre;
using testing::SizeIs;

constexpr CanvasConfig kSmallCanvas{
    .width = 72, .height = 128, .fps_num = kHostFps, .fps_den = 1, .use_active_scene_audio = true};
constexpr std::array kHardware{
    "jim_nvenc", "jim_nvenc_h264", "h264_amf", "obs_qsv11", "obs_qsv11_v2"};
constexpr const char *kHardwareSettings = R"({"bitrate":1234,"keyint_sec":2,"rate_control":"CBR"})";
constexpr const char *kSoftwareSettings =
    R"({"bitrate":1234,"keyint_sec":2,"preset":"ultrafast","profile":"high","rate_control":"CBR",)"
    R"("tune":"zerolatency","x264opts":"bframes=0:aud=1:repeat-headers=1"})";
constexpr const char *kNoError = nullptr;

LogCapture &host_log() {
    return LogCapture::get();
}

class VerticalOutputTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        if (!obs_output_get_display_name(kMuxOutputId)) {
            register_mux_output_types();
        }
    }
    VerticalOutputTest() {
        EXPECT_TRUE(canvas.init());
        host_log().clear();
    }
    ~VerticalOutputTest() override { host_log().at_each_line({}); }

    bool make(const OutputConfig &config) {
        output.emplace(&canvas, config);
        return output->init();
    }
    bool stopped() {
        return wait_until([&] { return !output->is_active(); });
    }

    VerticalCanvas canvas{kSmallCanvas};
    std::optional<VerticalOutput> output;
};

// What cannot start must say why and leave no encoder behind.
TEST_F(VerticalOutputTest, RefusesWithoutCanvasOrUrl) {
    VerticalOutput homeless(nullptr, {});
    EXPECT_FALSE(homeless.init());
    EXPECT_FALSE(homeless.start());
    VerticalCanvas dark(kSmallCanvas);
    VerticalOutput unlit(&dark, {});
    EXPECT_FALSE(unlit.init());
    EXPECT_THAT(host_log().take(), ElementsAre("E VerticalOutput::init — canvas not ready",
                                       "E VerticalOutput::start — not initialised",
                                       "E VerticalOutput::init — canvas not ready"));

    ASSERT_TRUE(make({.url = "", .key = "k"}));
    EXPECT_TRUE(output->init());
    EXPECT_FALSE(output->start());
    output->stop();
    EXPECT_FALSE(output->is_active());
    output.reset();
    EXPECT_THAT(host_log().take(),
        ElementsAre("I VerticalOutput initialised (runtime encoder fallback enabled)",
            "W VerticalOutput already initialised",
            "E Vertical output start failed: RTMP URL is empty. Configure it in Tools → Corvane "
            "Vertical Streaming Settings.",
            "I VerticalOutput::stop — not active, nothing to do", "I VerticalOutput destroyed"));
    EXPECT_THAT(encoders(), SizeIs(0));
}

// Every candidate must be tried in the stated order, each with exactly its own settings and six
// audio encoders of its own; a failed round must leave nothing.
TEST_F(VerticalOutputTest, TriesTheCandidatesInOrder) {
    const std::vector<std::string> hardware(kHardware.begin(), kHardware.end());
    std::vector<std::string> all = hardware;
    all.insert(all.end(), {"obs_x264", "x264"});
    const std::map<std::string, std::vector<std::string>> cases{{"auto", all}, {"Nvenc", all},
        {"nvenc", {"obs_x264", "x264"}}, {"qsv", {"obs_x264", "x264"}},
        {"amf", {"h264_amf", "obs_x264", "x264"}}, {"x264", {"obs_x264", "x264"}}};

    std::set<std::string> names;
    size_t made = 0;
    std::string candidate;
    const auto inspect = [&](const std::string &line) {
        if (line.starts_with("I Trying vertical output encoder: ")) {
            candidate = line.substr(line.rfind(' ') + 1);
        }
        if (!line.starts_with("I pre-start: ")) {
            return;
        }
        std::vector<size_t> tracks;
        for (const OBSEncoder &encoder : encoders()) {
            names.insert(obs_encoder_get_name(encoder));
            ++made;
            const std::string json = own_settings(obs_encoder_get_settings(encoder));
            if (obs_encoder_get_type(encoder) == OBS_ENCODER_AUDIO) {
                tracks.push_back(obs_encoder_get_mixer_index(encoder));
                EXPECT_STREQ(obs_encoder_get_id(encoder), "ffmpeg_aac");
                EXPECT_EQ(json, R"({"bitrate":160})");
                continue;
            }
            EXPECT_EQ(candidate, obs_encoder_get_id(encoder));
            EXPECT_EQ(json, candidate.ends_with("x264") ? kSoftwareSettings : kHardwareSettings);
        }
        EXPECT_THAT(tracks, testing::UnorderedElementsAre(0, 1, 2, 3, 4, 5));
        ASSERT_THAT(outputs(), SizeIs(1));
        names.insert(obs_output_get_name(outputs().front()));
        ++made;
        EXPECT_EQ(own_settings(obs_output_get_settings(outputs().front())),
            R"({"fps_den":1,"fps_num":30,"key":"","server":"rtmp://127.0.0.1/live"})");
    };
    for (const auto &[preferred, candidates] : cases) {
        // Without a key no RTMP stream can start.
        ASSERT_TRUE(make({.url = "rtmp://127.0.0.1/live",
            .key = "",
            .bitrate_kbps = 1234,
            .encoder_preset = "ultrafast",
            .preferred_encoder = preferred}));
        host_log().clear();
        host_log().at_each_line(inspect);
        EXPECT_FALSE(output->start());
        host_log().at_each_line({});

        Lines expected;
        for (const std::string &id : candidates) {
            expected.push_back("I Trying vertical output encoder: " + id);
            expected.push_back(
                "W Encoder " + id + " failed to start output: Missing RTMP server/key");
        }
        expected.emplace_back("E No encoder could start successfully");
        Lines seen;
        for (const std::string &line : host_log().take()) {
            if (line.starts_with("I Trying") || !line.starts_with("I")) {
                seen.push_back(line);
            }
        }
        EXPECT_EQ(seen, expected) << preferred;
        EXPECT_THAT(encoders(), SizeIs(0));
        EXPECT_THAT(outputs(), SizeIs(0));
    }
    EXPECT_EQ(names.size(), made) << "names repeat";
}

// Each start must reach the server as what it is, with the canvas's picture and all six tracks, and
// each end, too; new settings must wait for the next start, and nothing may be left when a live
// output is destroyed.
TEST_F(VerticalOutputTest, StartsStopsAndStartsAgain) {
    const LocalSink sink;
    Tap tap(sink.url());
    // As the stream's description names them, each with its type and a big-endian double after it.
    const QByteArray sizes = QByteArray("\0\5width\0\x40\x52\0\0\0\0\0\0", 16) +
                             QByteArray("\0\6height\0\x40\x60\0\0\0\0\0\0", 17);
    for (const bool resilient : {false, true}) {
        const auto key = [&](size_t round) {
            return (resilient ? "resilient" : "standard") + std::to_string(round);
        };
        const auto config = [&](size_t round) {
            return OutputConfig{.url = tap.url() + "//",
                .key = key(round),
                .bitrate_kbps = 300,
                .resilient = resilient};
        };
        ASSERT_TRUE(make(config(0)));
        for (size_t round = 0; round < 3; ++round) {
            tap.sent.clear();
            ASSERT_TRUE(output->start());
            EXPECT_TRUE(host_log().has("Vertical output started with encoder: obs_x264"));
            output->update_config(config(round + 1));
            host_log().clear();
            EXPECT_TRUE(output->start());
            EXPECT_THAT(host_log().take(),
                ElementsAre("W VerticalOutput::start — already active (obs_x264)"));
            ASSERT_TRUE(sink.wait_for_pictures(key(round), 10)) << key(round);
            const Recording recording = sink.recording(key(round));
            EXPECT_EQ(recording.width, 72);
            EXPECT_EQ(recording.height, 128);
            EXPECT_EQ(recording.audio_tracks, 6);
            EXPECT_TRUE(tap.sent.contains(sizes)) << key(round);
            EXPECT_EQ(sink.ended(key(round)), "");
            if (round < 2) {
                output->stop();
                EXPECT_TRUE(host_log().has("I Vertical output stop requested (obs_x264)"));
                ASSERT_TRUE(stopped());
            } else {
                output.reset();
            }
            EXPECT_TRUE(wait_until([&] { return sink.ended(key(round)) == tap.url(); }))
                << sink.ended(key(round));
        }
        EXPECT_THAT(encoders(), SizeIs(0));
        EXPECT_THAT(outputs(), SizeIs(0));
        EXPECT_EQ(sink.recording(key(3)), Recording());
    }
}

// A picture that runs slower or faster than its sound is as good as none.
TEST_F(VerticalOutputTest, KeepsTheClockAtAnyFrameRate) {
    const LocalSink sink;
    struct Rates {
        uint32_t host_num, host_den, canvas_num;
        double picture_ms;
        const char *line;
    };
    for (const auto &[host_num, host_den, canvas_num, picture_ms, line] :
        {Rates{60, 1, 30, 1000 / 30.0, "the stream has 30/1, one of every 2 frames"},
            Rates{30, 1, 60, 1000 / 30.0, "the stream has 30/1, one of every 1 frames"},
            Rates{30, 1, 20, 1000 / 30.0, "the stream has 30/1, one of every 1 frames"},
            Rates{30000, 1001, 30000, 1001 / 30.0, "72x128 @ 30000/1001 fps"}}) {
        SCOPED_TRACE(line);
        host_log().clear();
        ASSERT_TRUE(ObsSession::reset_video(
            kHostWidth, kHostHeight, host_num, VIDEO_FORMAT_NV12, host_den));
        VerticalCanvas any({.width = 72,
            .height = 128,
            .fps_num = canvas_num,
            .fps_den = host_den,
            .follow_host_rate = true});
        ASSERT_TRUE(any.init());
        EXPECT_TRUE(host_log().has(line));
        const std::string key = std::format("{}-{}", host_num, canvas_num);
        VerticalOutput stream(
            &any, {.url = sink.url(), .key = key, .bitrate_kbps = 300, .resilient = true});
        ASSERT_TRUE(stream.init() && stream.start());
        ASSERT_TRUE(sink.wait_for_pictures(key, 90));
        stream.stop();
        ASSERT_TRUE(wait_until([&] { return !sink.ended(key).empty(); }));
        const Recording recording = sink.recording(key);
        const double steps = recording.last_picture_ms / picture_ms;
        EXPECT_NEAR(steps, std::round(steps), 0.05);
        EXPECT_NEAR(steps, recording.pictures, 10) << "a busy machine may lose some";
        EXPECT_NEAR(recording.last_picture_ms, recording.last_sound_ms, 200);
    }
    EXPECT_TRUE(ObsSession::reset_video(kHostWidth, kHostHeight, kHostFps));
}

// The host lists every output with its size, which a stopped one asks its encoder for, and that one
// the video output which a reset frees.
TEST_F(VerticalOutputTest, LetsGoOfAStoppedStreamWithAVideoReset) {
    const LocalSink sink;
    ASSERT_TRUE(make({.url = sink.url(), .key = "k", .bitrate_kbps = 300}));
    ASSERT_TRUE(output->start());
    ASSERT_TRUE(sink.wait_for_pictures("k", 10));
    EXPECT_FALSE(ObsSession::reset_video(2 * kHostWidth, kHostHeight, kHostFps));
    EXPECT_TRUE(output->is_active());
    output->stop();
    ASSERT_TRUE(stopped());
    ASSERT_THAT(outputs(), SizeIs(1));
    for (const uint32_t width : {2 * kHostWidth, kHostWidth}) {
        ASSERT_TRUE(ObsSession::reset_video(width, kHostHeight, kHostFps));
        for (const OBSOutput &listed : outputs()) {
            EXPECT_EQ(obs_output_get_width(listed), 72U);
        }
    }
    EXPECT_THAT(outputs(), SizeIs(0));
    EXPECT_THAT(encoders(), SizeIs(0));
    EXPECT_TRUE(output->start());
}

// A stream that never ends may cost the output, not the user's window.
TEST_F(VerticalOutputTest, LeavesAnOutputBehindThatDoesNotEnd) {
    const LocalSink sink;
    ASSERT_TRUE(make({.url = sink.url(), .key = "k", .bitrate_kbps = 300}));
    ASSERT_TRUE(output->start());
    ASSERT_TRUE(sink.wait_for_pictures("k", 10));
    OBSOutput left = outputs().front();
    std::promise<void> released;
    const std::shared_future<void> may_end(released.get_future());
    const auto hold = [](void *held, calldata_t *) {
        static_cast<const std::shared_future<void> *>(held)->wait();
    };
    signal_handler_t *signals = obs_output_get_signal_handler(left);
    signal_handler_connect(
        signals, "deactivate", hold, const_cast<std::shared_future<void> *>(&may_end));
    auto rescue = std::async(std::launch::async,
        [&] { return may_end.wait_for(std::chrono::seconds(15)) == std::future_status::ready; });
    output.reset();
    EXPECT_TRUE(host_log().has("E Vertical output did not end within 5 s and is left behind: "));
    released.set_value();
    EXPECT_TRUE(rescue.get());
    EXPECT_TRUE(wait_until([&] { return !obs_output_active(left); }));
}

// An error must reach the user as a box with the output's own words, everything else must not
// disturb him.
TEST_F(VerticalOutputTest, ShowsABoxForErrorsOnly) {
    const std::string port = std::to_string(free_port());
    ASSERT_TRUE(make({.url = "rtmp://127.0.0.1:" + port + "/live", .key = "k"}));
    BoxCatcher screen;
    const auto box = [](const QString &text) {
        return Box{QStringLiteral("Vertical Canvas \u00E2\u20AC\u201D Stream Error"), text,
            QMessageBox::Critical, QMessageBox::Ok, false};
    };
    EXPECT_TRUE(output->start());
    ASSERT_TRUE(wait_until([&] { return !screen.boxes.empty(); }));
    EXPECT_THAT(
        screen.boxes, ElementsAre(box("Stream rejected — check server URL and stream key")));
    EXPECT_TRUE(host_log().has("E open_muxer fatal — stopping output"));
    ASSERT_TRUE(stopped());
    ASSERT_THAT(outputs(), SizeIs(1));
    const OBSOutput stopped_output = outputs().front();

    struct Case {
        int code;
        const char *last_error;
        std::vector<Box> boxes;
    };
    const QString fallback =
        QStringLiteral("Vertical output failed to connect.\nCheck your RTMP URL and stream key.");
    for (const Case &c : {Case{OBS_OUTPUT_SUCCESS, "x", {}},
             Case{OBS_OUTPUT_CONNECT_FAILED, "x", {}}, Case{OBS_OUTPUT_DISCONNECTED, "x", {}},
             Case{OBS_OUTPUT_ERROR, kNoError, {box(fallback)}},
             Case{OBS_OUTPUT_ENCODE_ERROR, "Ünïcode", {box(QStringLiteral("Ünïcode"))}}}) {
        screen.boxes.clear();
        obs_output_set_last_error(stopped_output, c.last_error);
        calldata_t data{};
        calldata_set_ptr(&data, "output", stopped_output.Get());
        calldata_set_int(&data, "code", c.code);
        calldata_set_string(&data, "last_error", c.last_error);
        signal_handler_signal(obs_output_get_signal_handler(stopped_output), "stop", &data);
        calldata_free(&data);
        // Whatever was posted runs before this.
        bool passed = false;
        QMetaObject::invokeMethod(qApp, [&] { passed = true; }, Qt::QueuedConnection);
        ASSERT_TRUE(wait_until([&] { return passed && screen.boxes.size() >= c.boxes.size(); }));
        EXPECT_EQ(screen.boxes, c.boxes) << c.code;
    }
}

} // namespace

} // namespace corvane::test
