// SPDX-License-Identifier: GPL-2.0-or-later
#include "output/vertical_output.hpp"

#include "canvas/vertical_canvas.hpp"
#include "support/local_server.hpp"
#include "support/log_capture.hpp"
#include "support/obs_session.hpp"
#include "support/scripted_stream.hpp"
#include "support/tap.hpp"
#include "support/user_actions.hpp"

#include <QJsonDocument>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <format>
#include <latch>
#include <set>

namespace corvane::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr CanvasConfig kSmallCanvas{.width = 72, .height = 128};

class VerticalOutputTest : public testing::Test {
protected:
    VerticalOutputTest() {
        register_output_types();
        EXPECT_TRUE(canvas.init());
        log.clear();
    }
    ~VerticalOutputTest() override { log.at_each_line({}); }

    bool make(const OutputConfig &config) {
        output.emplace(&canvas, config);
        return output->init();
    }
    bool start_live(const LocalServer &sink) {
        return make({.url = sink.url(), .key = "k", .bitrate_kbps = 300}) && output->start() &&
               sink.wait_for_frames("k", 10);
    }
    bool stop() {
        output->stop();
        return wait_until([&] { return !output->is_active(); });
    }
    static std::vector<OBSEncoder> encoders() { return all<OBSEncoder>(obs_enum_encoders); }
    static std::vector<OBSOutput> outputs() { return all<OBSOutput>(obs_enum_outputs); }

    LogCapture &log = LogCapture::get();
    VerticalCanvas canvas{kSmallCanvas};
    std::optional<VerticalOutput> output;
};

// What cannot start must say why and leave no encoder behind.
TEST_F(VerticalOutputTest, refuses_without_canvas_or_url) {
    VerticalCanvas no_video(kSmallCanvas);
    for (VerticalCanvas *none : {static_cast<VerticalCanvas *>(nullptr), &no_video}) {
        VerticalOutput refused(none, {});
        EXPECT_FALSE(refused.init());
        EXPECT_FALSE(refused.start());
        EXPECT_THAT(log.take(), ElementsAre("E VerticalOutput::init — canvas not ready",
                                    "E VerticalOutput::start — not initialised"));
    }
    ASSERT_TRUE(make({.url = "", .key = "k"}));
    EXPECT_TRUE(output->init());
    EXPECT_FALSE(output->start());
    output->stop();
    EXPECT_FALSE(output->is_active());
    output.reset();
    EXPECT_THAT(log.take(),
        ElementsAre("I VerticalOutput initialised (runtime encoder fallback enabled)",
            "W VerticalOutput already initialised",
            testing::StartsWith("E Vertical output start failed: RTMP URL is empty."),
            "I VerticalOutput::stop — not active, nothing to do", "I VerticalOutput destroyed"));
    EXPECT_THAT(encoders(), IsEmpty());
}

// Every candidate must be tried in the fixed order, each with exactly its own settings and six
// audio encoders of its own; a failed round must leave nothing.
TEST_F(VerticalOutputTest, tries_the_candidates_in_order) {
    // What was set, without the defaults, in alphabetical order.
    const auto json = [](const OBSDataAutoRelease &settings) {
        return QJsonDocument::fromJson(obs_data_get_json(settings))
            .toJson(QJsonDocument::Compact)
            .toStdString();
    };
    const std::string hardware = R"({"bitrate":1234,"keyint_sec":2,"rate_control":"CBR"})";
    const std::string software =
        R"({"bitrate":1234,"keyint_sec":2,"preset":"ultrafast","profile":"high",)"
        R"("rate_control":"CBR","tune":"zerolatency","x264opts":"bframes=0:aud=1:repeat-headers=1"})";
    Lines names;
    Lines seen;
    log.at_each_line([&](const std::string &line) {
        if (line.starts_with("I Trying") || !line.starts_with("I")) {
            seen.push_back(line);
        }
        if (!line.starts_with("I pre-start: ")) {
            return;
        }
        Lines made;
        for (const OBSEncoder &encoder : encoders()) {
            const bool audio = obs_encoder_get_type(encoder) == OBS_ENCODER_AUDIO;
            names.emplace_back(obs_encoder_get_name(encoder));
            made.push_back(obs_encoder_get_id(encoder) +
                           (audio ? std::to_string(obs_encoder_get_mixer_index(encoder)) : "") +
                           json(obs_encoder_get_settings(encoder)));
        }
        std::ranges::sort(made);
        std::ranges::move(made, std::back_inserter(seen));
        for (const OBSOutput &output : outputs()) {
            names.emplace_back(obs_output_get_name(output));
            seen.push_back(json(obs_output_get_settings(output)));
        }
    });
    const Lines all{
        "jim_nvenc", "jim_nvenc_h264", "h264_amf", "obs_qsv11", "obs_qsv11_v2", "obs_x264", "x264"};
    const Lines software_only{"obs_x264", "x264"};
    for (const auto &[preferred, candidates] :
        {std::pair{"auto", all}, {"Nvenc", all}, {"nvenc", software_only}, {"qsv", software_only},
            {"amf", {"h264_amf", "obs_x264", "x264"}}, {"x264", software_only}}) {
        // Without a key no RTMP stream can start.
        ASSERT_TRUE(make({.url = "rtmp://127.0.0.1/live",
            .key = "",
            .bitrate_kbps = 1234,
            .encoder_preset = "ultrafast",
            .preferred_encoder = preferred}));
        seen.clear();
        EXPECT_FALSE(output->start());
        Lines expected;
        for (const std::string &id : candidates) {
            expected.push_back("I Trying vertical output encoder: " + id);
            for (const char track : std::string("012345")) {
                expected.push_back(std::string("ffmpeg_aac") + track + R"({"bitrate":160})");
            }
            expected.push_back(id + (id.ends_with("x264") ? software : hardware));
            expected.emplace_back(
                R"({"fps_den":1,"fps_num":30,"key":"","server":"rtmp://127.0.0.1/live"})");
            expected.push_back(
                "W Encoder " + id + " failed to start output: Missing RTMP server/key");
        }
        expected.emplace_back("E No encoder could start successfully");
        EXPECT_EQ(seen, expected) << preferred;
        EXPECT_THAT(encoders(), IsEmpty());
        EXPECT_THAT(outputs(), IsEmpty());
    }
    EXPECT_EQ(std::set(names.begin(), names.end()).size(), names.size()) << "names repeat";
}

// Each start must reach the server as what it is, with the canvas's picture and all six tracks, and
// each end, too; new settings must wait for the next start, and nothing may be left when a live
// output is destroyed.
TEST_F(VerticalOutputTest, starts_stops_and_starts_again) {
    const LocalServer sink;
    Tap tap(sink.url());
    // As the stream's description names them, each with its type and a big-endian double after it.
    const QByteArray sizes = QByteArray("\0\5width\0\x40\x52\0\0\0\0\0\0", 16) +
                             QByteArray("\0\6height\0\x40\x60\0\0\0\0\0\0", 17);
    for (const bool resilient : {false, true}) {
        const auto config = [&](const std::string &key) {
            return OutputConfig{
                .url = tap.url() + "//", .key = key, .bitrate_kbps = 300, .resilient = resilient};
        };
        const std::string first = resilient ? "resilient" : "standard";
        ASSERT_TRUE(make(config(first)));
        for (const std::string &key : {first, first + "-again"}) {
            SCOPED_TRACE(key);
            tap.sent.clear();
            ASSERT_TRUE(output->start());
            EXPECT_TRUE(log.has("Vertical output started with encoder: obs_x264"));
            output->update_config(config(first + "-again"));
            log.clear();
            EXPECT_TRUE(output->start());
            EXPECT_THAT(
                log.take(), ElementsAre("W VerticalOutput::start — already active (obs_x264)"));
            ASSERT_TRUE(sink.wait_for_frames(key, 10));
            const Recording recording = sink.recording(key);
            EXPECT_EQ(recording.width, 72);
            EXPECT_EQ(recording.height, 128);
            EXPECT_EQ(recording.audio_tracks, 6);
            EXPECT_TRUE(tap.sent.contains(sizes));
            EXPECT_EQ(sink.ended(key), "");
            if (key == first) {
                ASSERT_TRUE(stop());
                EXPECT_TRUE(log.has("I Vertical output stop requested (obs_x264)"));
            } else {
                output.reset();
            }
            EXPECT_TRUE(wait_until([&] { return sink.ended(key) == tap.url(); }))
                << sink.ended(key);
        }
        EXPECT_THAT(encoders(), IsEmpty());
        EXPECT_THAT(outputs(), IsEmpty());
    }
}

// A picture that runs slower or faster than its sound is as good as none.
TEST_F(VerticalOutputTest, keeps_the_clock_at_any_frame_rate) {
    const LocalServer sink;
    for (const auto &[host_num, host_den, canvas_num, line] :
        {std::tuple{60U, 1U, 30U, "the stream has 30/1, one of every 2 frames"},
            {30U, 1U, 60U, "the stream has 30/1, one of every 1 frames"},
            {30U, 1U, 20U, "the stream has 30/1, one of every 1 frames"},
            {30000U, 1001U, 30000U, "72x128 @ 30000/1001 fps"}}) {
        SCOPED_TRACE(line);
        ASSERT_TRUE(ObsSession::reset_video(
            kHostWidth, kHostHeight, host_num, VIDEO_FORMAT_NV12, host_den));
        VerticalCanvas any({.width = 72,
            .height = 128,
            .fps_num = canvas_num,
            .fps_den = host_den,
            .follow_host_rate = true});
        log.clear();
        ASSERT_TRUE(any.init());
        EXPECT_TRUE(log.has(line));
        const std::string key = std::format("{}-{}", host_num, canvas_num);
        VerticalOutput stream(
            &any, {.url = sink.url(), .key = key, .bitrate_kbps = 300, .resilient = true});
        ASSERT_TRUE(stream.init() && stream.start());
        ASSERT_TRUE(sink.wait_for_frames(key, 90));
        stream.stop();
        ASSERT_TRUE(wait_until([&] { return !sink.ended(key).empty(); }));
        const Recording recording = sink.recording(key);
        const double steps = recording.last_video_ms * 30 / (host_den == 1 ? 1000 : 1001);
        EXPECT_NEAR(steps, std::round(steps), 0.05);
        EXPECT_NEAR(steps, static_cast<double>(recording.frames.size()), 10)
            << "a busy machine may lose some";
        EXPECT_NEAR(recording.last_video_ms, recording.last_audio_ms, 200);
    }
    EXPECT_TRUE(ObsSession::reset_video());
}

// The host lists every output with its size, which a stopped one asks its encoder for, and that one
// the video output which a reset frees.
TEST_F(VerticalOutputTest, lets_go_of_a_stopped_stream_with_a_video_reset) {
    const LocalServer sink;
    ASSERT_TRUE(start_live(sink));
    EXPECT_FALSE(ObsSession::reset_video(2 * kHostWidth));
    EXPECT_TRUE(output->is_active());
    ASSERT_TRUE(stop());
    ASSERT_THAT(outputs(), SizeIs(1));
    for (const uint32_t width : {2 * kHostWidth, kHostWidth}) {
        ASSERT_TRUE(ObsSession::reset_video(width));
        for (const OBSOutput &listed : outputs()) {
            EXPECT_EQ(obs_output_get_width(listed), 72U);
        }
    }
    EXPECT_THAT(outputs(), IsEmpty());
    EXPECT_THAT(encoders(), IsEmpty());
    sink.forget("k");
    EXPECT_TRUE(output->start());
    EXPECT_TRUE(sink.wait_for_frames("k", 10));
}

// A stream that never ends may cost the output, not the user's window.
TEST_F(VerticalOutputTest, leaves_an_output_behind_that_does_not_end) {
    const LocalServer sink;
    ASSERT_TRUE(start_live(sink));
    const OBSOutput left = outputs().front();
    std::latch may_end{1};
    const auto hold = [](void *latch, calldata_t *) {
        static_cast<std::latch *>(latch)->wait();
    };
    const OBSSignal held(obs_output_get_signal_handler(left), "deactivate", hold, &may_end);
    output.reset();
    EXPECT_TRUE(log.has("E Vertical output did not end within 5 s and is left behind: "));
    may_end.count_down();
    EXPECT_TRUE(wait_until([&] { return !obs_output_active(left); }));
}

// An error must reach the user as a box with the output's own words, everything else must not
// disturb him.
TEST_F(VerticalOutputTest, shows_a_box_for_errors_only) {
    const std::string title = "Vertical Canvas \u00E2\u20AC\u201D Stream Error|";
    const auto look = [](QWidget &dialog) {
        const auto &box = dynamic_cast<QMessageBox &>(dialog);
        EXPECT_EQ(box.icon(), QMessageBox::Critical);
        EXPECT_EQ(box.standardButtons(), QMessageBox::Ok);
        EXPECT_EQ(box.parent(), nullptr);
    };
    const LocalServer sink;
    ASSERT_TRUE(start_live(sink) && stop());
    ASSERT_THAT(outputs(), SizeIs(1));
    const OBSOutput stopped = outputs().front();
    for (const auto &[code, error, box] : {std::tuple{OBS_OUTPUT_SUCCESS, "x", std::string()},
             {OBS_OUTPUT_CONNECT_FAILED, "x", ""}, {OBS_OUTPUT_DISCONNECTED, "x", ""},
             {OBS_OUTPUT_ERROR, nullptr,
                 title + "Vertical output failed to connect.\nCheck your RTMP URL and stream key."},
             {OBS_OUTPUT_ENCODE_ERROR, "Ünïcode", title + "Ünïcode"}}) {
        const auto end = [&, code = code, error = error] {
            obs_output_set_last_error(stopped, error);
            Calldata data;
            calldata_set_ptr(data.get(), "output", stopped.Get());
            calldata_set_int(data.get(), "code", code);
            calldata_set_string(data.get(), "last_error", error);
            signal_handler_signal(obs_output_get_signal_handler(stopped), "stop", data.get());
            QCoreApplication::sendPostedEvents(); // returns when the box has been closed
        };
        EXPECT_EQ(answering("=>OK", end, look), box) << code;
    }
}

} // namespace

} // namespace corvane::test
