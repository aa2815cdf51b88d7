// SPDX-License-Identifier: GPL-2.0-or-later
// The standard output type in libobs.
#include "support/local_server.hpp"
#include "support/log_capture.hpp"
#include "support/scripted_stream.hpp"

#include <QNetworkProxy>
#include <QTcpServer>
#include <QTcpSocket>

#include <atomic>
#include <future>

#include <sys/socket.h>

namespace corvane::test {

using testing::ElementsAre;
using testing::StartsWith;

using MuxOutputTest = MuxFixture;

namespace {

std::string refusing_url() {
    return "rtmp://127.0.0.1:" + std::to_string(free_port()) + "/live";
}

} // namespace

// Headers that come late must not cost the keyframe that everything after it needs.
TEST_F(MuxOutputTest, holds_the_first_keyframe_until_the_headers_exist) {
    const LocalServer server;
    script().video_header = false;
    ScriptedStream stream(kMuxOutputId, server.url(), "late");
    std::vector<int> numbers;
    stream.at_each_packet([&](const encoder_packet &packet) {
        if (packet.type == OBS_ENCODER_VIDEO && numbers.size() < 20) {
            numbers.push_back(packet.data[packet.size - 1]);
            script().video_header = numbers.size() == 20;
        }
    });
    ASSERT_TRUE(stream.start()) << stream.last_error();
    ASSERT_TRUE(wait_until([&] { return server.received("late") > 2000; }));
    stream.stop();
    EXPECT_THAT(stream.stop_codes(), ElementsAre(OBS_OUTPUT_SUCCESS));

    const Recording recording = server.recording("late");
    ASSERT_GT(recording.frames.size(), 2U);
    EXPECT_EQ(recording.frames[0], numbers.front()) << "the held keyframe is missing";
    EXPECT_GE(recording.frames[1], numbers.back())
        << "a packet from before the opening came through";
    EXPECT_EQ(recording.audio_tracks, 2) << "the slots without encoder got a stream";
}

// An error has to end the stream once, with a reason the user can act on, and leave an output that
// can start again.
TEST_F(MuxOutputTest, ends_with_the_reason_when_it_cannot_connect) {
    const LocalServer server;
    for (const auto &[type, codes] :
        {std::pair(kMuxOutputId, std::vector{OBS_OUTPUT_SUCCESS, OBS_OUTPUT_ERROR}),
            {kResilientOutputId, {OBS_OUTPUT_ERROR}}}) {
        SCOPED_TRACE(type);
        ScriptedStream stream(type, refusing_url(), type);
        ASSERT_TRUE(stream.start()) << stream.last_error();
        ASSERT_TRUE(stream.wait_for_error());
        EXPECT_EQ(stream.stop_codes(), codes);
        EXPECT_THAT(
            stream.last_error(), StartsWith("Stream rejected — check server URL and stream key"));

        stream.update(server.url(), type);
        ASSERT_TRUE(stream.start()) << stream.last_error();
        EXPECT_TRUE(wait_until([&] { return server.received(type) > 1000; }));
    }
}

// A stream that fails while it still starts has to end all the same, and once.
TEST_F(MuxOutputTest, ends_when_the_connection_is_refused_during_the_start) {
    ScriptedStream stream(kMuxOutputId, refusing_url(), "early");
    LogCapture::get().clear();
    // Packets come from here on, while the output's own start has not gone on yet.
    stream.connect(
        "start", [](calldata_t *) { EXPECT_TRUE(LogCapture::get().wait_for("open_muxer fatal")); });
    ASSERT_TRUE(stream.start()) << stream.last_error();
    EXPECT_TRUE(wait_until([&] { return !stream.active(); }));
    EXPECT_THAT(stream.stop_codes(), ElementsAre(OBS_OUTPUT_SUCCESS, OBS_OUTPUT_ERROR));
}

// The UI thread must not stand still while a first packet waits for the server.
TEST_F(MuxOutputTest, starts_at_once_while_a_packet_is_connecting) {
    QTcpServer server;
    server.setProxy(QNetworkProxy::NoProxy);
    ASSERT_TRUE(server.listen(QHostAddress::LocalHost));
    ScriptedStream stream(
        kMuxOutputId, "rtmp://127.0.0.1:" + std::to_string(server.serverPort()) + "/live", "slow");
    std::atomic<int> socket = -1;
    stream.connect("start", [&](calldata_t *) {
        ASSERT_TRUE(server.waitForNewConnection(20'000));
        socket = static_cast<int>(server.nextPendingConnection()->socketDescriptor());
    });
    std::promise<void> started;
    auto hung_up = std::async(std::launch::async, [&] {
        const auto waited = started.get_future().wait_for(std::chrono::seconds(5));
        shutdown(socket, SHUT_RDWR); // lets the packet go
        return waited == std::future_status::timeout;
    });
    EXPECT_TRUE(stream.start());
    started.set_value();
    EXPECT_FALSE(hung_up.get()) << "the start waited for the server";
    EXPECT_TRUE(stream.wait_for_error());
}

// Otherwise the host would believe in a stream that never begins.
TEST_F(MuxOutputTest, refuses_to_start_without_an_address_or_audio) {
    for (const auto &[key, tracks, error] :
        {std::tuple{"  ", std::vector<size_t>{0}, "Missing RTMP server/key"},
            {"mute", {}, "obs_output_can_begin_data_capture failed"}}) {
        ScriptedStream stream(kMuxOutputId, "rtmp://127.0.0.1/live", key, tracks);
        EXPECT_FALSE(stream.start());
        EXPECT_EQ(stream.last_error(), error);
        EXPECT_FALSE(stream.active());
        stream.stop(); // harmless
        EXPECT_THAT(stream.stop_codes(), ElementsAre());
    }
}

} // namespace corvane::test
