// SPDX-License-Identifier: GPL-2.0-or-later
// The output type that keeps the connection, against servers that go away or never answer.
#include "testbed/local_sink.hpp"
#include "testbed/log_capture.hpp"
#include "testbed/mux_rig.hpp"
#include "testbed/ports.hpp"

#include <QNetworkDatagram>
#include <QNetworkProxy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QUdpSocket>

#include <gmock/gmock.h>

#include <chrono>
#include <optional>

using namespace corvane;
using namespace corvane::test;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::Ge;
using testing::HasSubstr;
using testing::Le;
using testing::Not;
using testing::Pair;

namespace {

constexpr const char *kKey = "key-nobody-may-see";

class ResilientOutputType : public MuxRig {
protected:
    void create_to(const std::string &server) {
        create(server, kKey, {0, 3}, kResilientOutputId);
        LogCapture::get().clear();
    }

    // "phase failures reason"
    std::string state() {
        Calldata answer;
        proc_handler_call(obs_output_get_proc_handler(output), "connection_state", answer.get());
        return std::string(calldata_string(answer.get(), "phase")) + " " +
               std::to_string(calldata_int(answer.get(), "failures")) + " " +
               calldata_string(answer.get(), "reason");
    }

    // Stops, and returns how long it took until the stream had ended.
    std::chrono::milliseconds stop() {
        const auto begin = std::chrono::steady_clock::now();
        obs_output_stop(output);
        EXPECT_TRUE(wait_until([this] { return !obs_output_active(output); }));
        return std::chrono::duration_cast<std::chrono::milliseconds>(
            std::chrono::steady_clock::now() - begin);
    }

    void expect_no_secret_in_log() { EXPECT_THAT(LogCapture::get().tail(), Not(HasSubstr(kKey))); }
};

} // namespace

// A stream that is lost with its server has to be there again when a server is, complete and from
// the beginning of a group of pictures; the user ends it, and it ends once.
TEST_F(ResilientOutputType, comes_back_when_the_server_does) {
    std::optional<LocalSink> first(std::in_place);
    create_to(first->url());
    ASSERT_TRUE(obs_output_start(output)) << last_error();
    ASSERT_TRUE(wait_until([&] { return first->newest_size(kKey) > 2000; }));
    EXPECT_TRUE(wait_until([&] { return state() == "connected 0 "; }));
    const uint64_t sent = obs_output_get_total_bytes(output);
    EXPECT_GT(sent, 2000U);

    first.reset();
    ASSERT_TRUE(wait_until([&] { return state().starts_with("reconnecting"); }));
    EXPECT_THAT(LogCapture::get().matching("connection lost"), testing::SizeIs(1));
    const LocalSink second;
    update_server(second.url());
    ASSERT_TRUE(wait_until([&] { return second.newest_size(kKey) > 2000; }));
    EXPECT_TRUE(wait_until([&] { return state() == "connected 0 "; }));
    EXPECT_TRUE(LogCapture::get().has("reconnect succeeded"));
    EXPECT_GT(obs_output_get_total_bytes(output), sent);
    EXPECT_GT(obs_output_get_frames_dropped(output), 0) << "the frames of the gap";
    EXPECT_LT(stop(), std::chrono::seconds(1));
    EXPECT_THAT(stop_codes(), ElementsAre(OBS_OUTPUT_SUCCESS));

    const Received received(second.received(kKey).front());
    ASSERT_FALSE(received.frames.empty());
    EXPECT_EQ(received.frames.front() % 15, 1) << "does not begin with a keyframe";
    EXPECT_EQ(received.audio_packets.size(), 2U);
    EXPECT_THAT(received.first_dts, Each(Pair(testing::_, AllOf(Ge(0), Le(30)))));
    expect_no_secret_in_log();
}

// Whatever a first connection dies of, there is one message and an output that can start again.
TEST_F(ResilientOutputType, says_once_why_it_cannot_connect) {
    create_to("rtmp://127.0.0.1:" + std::to_string(free_port()) + "/live");
    ASSERT_TRUE(obs_output_start(output)) << last_error();
    ASSERT_TRUE(wait_for_error());
    EXPECT_THAT(stop_codes(), ElementsAre(OBS_OUTPUT_ERROR));
    EXPECT_EQ(last_error(), "Stream rejected — check server URL and stream key");
    EXPECT_EQ(state(), "stopped 0 ");
    expect_no_secret_in_log();

    const LocalSink sink;
    update_server(sink.url());
    ASSERT_TRUE(obs_output_start(output)) << last_error();
    EXPECT_TRUE(wait_until([&] { return sink.newest_size(kKey) > 1000; }));
}

// A server that takes the connection and says nothing must not hold up whoever stops, nor may the
// destruction of a stream under way.
TEST_F(ResilientOutputType, stops_while_the_server_is_silent) {
    QTcpServer rtmp;
    QUdpSocket srt;
    rtmp.setProxy(QNetworkProxy::NoProxy);
    srt.setProxy(QNetworkProxy::NoProxy);
    ASSERT_TRUE(rtmp.listen(QHostAddress::LocalHost) && srt.bind(QHostAddress::LocalHost));
    const auto called = [&](bool is_srt) {
        return wait_until([&] {
            return is_srt ? srt.hasPendingDatagrams() && !srt.receiveDatagram().data().isEmpty()
                          : rtmp.nextPendingConnection() != nullptr;
        });
    };
    for (const bool is_srt : {false, true}) {
        create_to(is_srt ? "srt://127.0.0.1:" + std::to_string(srt.localPort())
                         : "rtmp://127.0.0.1:" + std::to_string(rtmp.serverPort()) + "/live");
        ASSERT_TRUE(obs_output_start(output)) << last_error();
        ASSERT_TRUE(called(is_srt));
        EXPECT_EQ(state(), "connecting 0 ");
        EXPECT_LT(stop(), std::chrono::seconds(1)) << is_srt;
        EXPECT_THAT(stop_codes(), ElementsAre(OBS_OUTPUT_SUCCESS));
        codes.clear();

        ASSERT_TRUE(obs_output_start(output)) << last_error();
        ASSERT_TRUE(called(is_srt));
        const auto begin = std::chrono::steady_clock::now();
        output = nullptr;
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1)) << is_srt;
        EXPECT_THAT(stop_codes(), ElementsAre(OBS_OUTPUT_SUCCESS));
        codes.clear();
    }
}
