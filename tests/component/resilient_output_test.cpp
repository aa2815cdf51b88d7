// SPDX-License-Identifier: GPL-2.0-or-later
// The output type that keeps the connection, against servers that go away or never answer.
#include "component/thread_shortage.hpp"

#include "mux/resilient/stream_timeouts.hpp"
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

#include <atomic>
#include <chrono>
#include <optional>
#include <thread>

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
    ~ResilientOutputType() override {
        end();
        stream_timeouts = {};
    }

    void create_to(const std::string &server) {
        create(server, kKey, {0, 3}, kResilientOutputId);
        LogCapture::get().restart();
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

    // libobs hands out packets, and the news of a failed encoder, under one lock. Held by the audio
    // thread here, the stream ends as after any stop before the news comes.
    static void hold_until_stopped(
        obs_output_t *, encoder_packet *, encoder_packet_time *, void *self) {
        auto *rig = static_cast<ResilientOutputType *>(self);
        if (std::this_thread::get_id() != ScriptedEncoder::thread.load() &&
            !rig->holding.exchange(true)) {
            EXPECT_TRUE(wait_until([rig] { return !rig->stop_codes().empty(); }));
        }
    }

    std::atomic<bool> holding = false;

    void expect_no_secret_in_log() { EXPECT_THAT(LogCapture::get().whole(), Not(HasSubstr(kKey))); }
};

} // namespace

// A stream that is lost with its server has to be there again when a server is, complete and from
// the beginning of a group of pictures; the user ends it, and it ends once.
TEST_F(ResilientOutputType, comes_back_when_the_server_does) {
    std::optional<LocalSink> first(std::in_place);
    stream_timeouts.connect = std::chrono::milliseconds(500); // ends with the connecting
    create_to(first->url());
    ASSERT_TRUE(obs_output_start(output)) << last_error();
    ASSERT_TRUE(wait_until([&] { return first->newest_size(kKey) > 2000; }));
    EXPECT_TRUE(wait_until([&] { return state() == "connected 0 "; }));
    const uint64_t sent = obs_output_get_total_bytes(output);
    EXPECT_GT(sent, 2000U);

    first.reset();
    ASSERT_TRUE(wait_until([&] { return state().starts_with("reconnecting"); }));
    EXPECT_THAT(LogCapture::get().matching("connection lost"), testing::SizeIs(1));
    for (const char *delay : {"next attempt in 2 s", "next attempt in 3 s"}) {
        EXPECT_TRUE(LogCapture::get().wait_for(delay)) << "gave up, or hurries";
    }
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

// A server that never answers must end the attempt, not the user's patience.
TEST_F(ResilientOutputType, gives_up_a_first_connection_that_nobody_answers) {
    QTcpServer server;
    server.setProxy(QNetworkProxy::NoProxy);
    ASSERT_TRUE(server.listen(QHostAddress::LocalHost));
    stream_timeouts.connect = std::chrono::milliseconds(300);
    create_to("rtmp://127.0.0.1:" + std::to_string(server.serverPort()) + "/live");
    ASSERT_TRUE(obs_output_start(output)) << last_error();
    ASSERT_TRUE(wait_for_error());
    EXPECT_TRUE(LogCapture::get().has("E avio_open2 failed: Connection timed out"));
}

// libobs stops a stream whose encoder fails, and then says why: however late, the user hears of it.
TEST_F(ResilientOutputType, tells_of_a_failed_encoder_after_the_stop) {
    const LocalSink sink;
    create_to(sink.url());
    ASSERT_TRUE(obs_output_start(output)) << last_error();
    ASSERT_TRUE(wait_until([&] { return sink.newest_size(kKey) > 1000; }));
    obs_output_add_packet_callback(output, hold_until_stopped, this);
    ASSERT_TRUE(wait_until([this] { return holding.load(); }));
    ScriptedEncoder::fails = true;
    EXPECT_TRUE(wait_until([&] { return stop_codes().size() == 2; }));
    EXPECT_THAT(stop_codes(), ElementsAre(OBS_OUTPUT_SUCCESS, OBS_OUTPUT_ENCODE_ERROR));
    ASSERT_TRUE(wait_until([&] { return !obs_output_active(output); }));
    obs_output_remove_packet_callback(output, hold_until_stopped, this);

    // The next start works, and its stop frees what libobs may have left with the failed encoder.
    ScriptedEncoder::fails = false;
    sink.forget(kKey);
    ASSERT_TRUE(obs_output_start(output)) << last_error();
    EXPECT_TRUE(wait_until([&] { return sink.newest_size(kKey) > 1000; }));
    stop();
}

// A stream that nothing is sent of must not pass for one on air.
TEST_F(ResilientOutputType, says_that_the_encoder_has_stalled) {
    const LocalSink sink;
    stream_timeouts.encoders = std::chrono::milliseconds(500);
    create_to(sink.url());
    ASSERT_TRUE(obs_output_start(output)) << last_error();
    ASSERT_TRUE(wait_until([&] { return state() == "connected 0 "; }));
    ScriptedEncoder::stalls = true;
    ASSERT_TRUE(wait_until([&] { return state() == "stalled 0 "; }));
    ScriptedEncoder::stalls = false;
    EXPECT_TRUE(wait_until([&] { return state() == "connected 0 "; }));
}

// A system out of threads may cost a stream, which says so, and not the host.
TEST_F(ResilientOutputType, ends_with_a_message_when_there_is_no_thread) {
    const char *const reason = "Resource temporarily unavailable";
    const LocalSink sink;
    for (const char *type : {kResilientOutputId, kMuxOutputId}) {
        create(sink.url(), kKey, {0}, type);
        ScriptedEncoder::header_after = 15;
        if (type == std::string_view(kResilientOutputId)) {
            const ThreadShortage shortage;
            EXPECT_FALSE(obs_output_start(output));
            EXPECT_EQ(last_error(), reason);
        }
        ASSERT_TRUE(obs_output_start(output)) << last_error();
        const ThreadShortage shortage;
        ASSERT_TRUE(wait_for_error()) << type;
        EXPECT_EQ(stop_codes().back(), OBS_OUTPUT_ERROR);
        EXPECT_EQ(last_error(), reason);
        output = nullptr;
        codes.clear();
    }
}
