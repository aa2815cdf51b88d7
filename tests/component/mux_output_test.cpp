// SPDX-License-Identifier: GPL-2.0-or-later
// The output type in libobs, fed by a video encoder whose header comes when the test says.
#include "testbed/local_sink.hpp"
#include "testbed/log_capture.hpp"
#include "testbed/mux_rig.hpp"
#include "testbed/ports.hpp"

#include <QNetworkProxy>
#include <QTcpServer>
#include <QTcpSocket>

#include <gmock/gmock.h>

#include <atomic>
#include <functional>
#include <future>

#include <sys/socket.h>

using namespace corvane;
using namespace corvane::test;
using testing::ElementsAre;

class MuxOutputType : public MuxRig {
protected:
    // Runs the function at the end of libobs's part of a start: packets come from here on, while
    // the output's own start has not gone on yet.
    void while_beginning(std::function<void()> run) {
        beginning = std::move(run);
        signal_handler_connect(
            obs_output_get_signal_handler(output), "start",
            [](void *self, calldata_t *) { static_cast<MuxOutputType *>(self)->beginning(); },
            this);
    }

    std::function<void()> beginning;
};

// Headers that come late must not cost the keyframe that everything after it needs.
TEST_F(MuxOutputType, holds_the_first_keyframe_until_the_headers_exist) {
    const LocalSink sink;
    create(sink.url(), "late", {0, 3});
    ScriptedEncoder::header_after = 45;
    ASSERT_TRUE(obs_output_start(output)) << last_error();
    ASSERT_TRUE(wait_until([&] { return sink.newest_size("late") > 2000; }));
    obs_output_stop(output);
    ASSERT_TRUE(wait_until([&] { return !obs_output_active(output); }));
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
    ASSERT_TRUE(obs_output_start(output)) << last_error();
    ASSERT_TRUE(wait_for_error());
    EXPECT_THAT(stop_codes(), ElementsAre(OBS_OUTPUT_SUCCESS, OBS_OUTPUT_ERROR));
    EXPECT_EQ(last_error(), rejected);

    // The same output works once it is given an address that does.
    update_server(sink.url());
    ASSERT_TRUE(obs_output_start(output)) << last_error();
    EXPECT_TRUE(wait_until([&] { return sink.newest_size("refused") > 1000; }));
}

// A stream that fails while it still starts has to end all the same, and once.
TEST_F(MuxOutputType, ends_when_the_connection_is_refused_during_the_start) {
    create("rtmp://127.0.0.1:" + std::to_string(free_port()) + "/live", "early", {0});
    LogCapture::get().clear();
    while_beginning([] { EXPECT_TRUE(LogCapture::get().wait_for("open_muxer fatal")); });
    ASSERT_TRUE(obs_output_start(output)) << last_error();
    EXPECT_TRUE(wait_until([this] { return !obs_output_active(output); }));
    EXPECT_THAT(stop_codes(), ElementsAre(OBS_OUTPUT_SUCCESS, OBS_OUTPUT_ERROR));
}

// The UI thread must not stand still while a first packet waits for the server.
TEST_F(MuxOutputType, starts_at_once_while_a_packet_is_connecting) {
    QTcpServer server;
    server.setProxy(QNetworkProxy::NoProxy);
    ASSERT_TRUE(server.listen(QHostAddress::LocalHost));
    create("rtmp://127.0.0.1:" + std::to_string(server.serverPort()) + "/live", "slow", {0});
    std::atomic<int> socket = -1;
    while_beginning([&] {
        ASSERT_TRUE(server.waitForNewConnection(20'000));
        socket = static_cast<int>(server.nextPendingConnection()->socketDescriptor());
    });
    std::promise<void> started;
    auto hung_up = std::async(std::launch::async, [&] {
        const auto waited = started.get_future().wait_for(std::chrono::seconds(5));
        shutdown(socket, SHUT_RDWR); // lets the packet go
        return waited == std::future_status::timeout;
    });
    EXPECT_TRUE(obs_output_start(output));
    started.set_value();
    EXPECT_FALSE(hung_up.get()) << "the start waited for the server";
    EXPECT_TRUE(wait_for_error());
}

TEST_F(MuxOutputType, refuses_to_start_without_an_address) {
    create("rtmp://127.0.0.1/live", "  ", {0});
    EXPECT_FALSE(obs_output_start(output));
    EXPECT_EQ(last_error(), "Missing RTMP server/key");
    EXPECT_FALSE(obs_output_active(output));
    obs_output_stop(output); // harmless
    EXPECT_THAT(stop_codes(), ElementsAre());
}

// Otherwise the host would believe in a stream that never begins.
TEST_F(MuxOutputType, refuses_to_start_without_audio) {
    create("rtmp://127.0.0.1/live", "mute", {});
    EXPECT_FALSE(obs_output_start(output));
    EXPECT_EQ(last_error(), "obs_output_can_begin_data_capture failed");
    EXPECT_FALSE(obs_output_active(output));
}
