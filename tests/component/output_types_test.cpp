// SPDX-License-Identifier: GPL-2.0-or-later
// Both output types in libobs, against servers that go away, refuse or never answer.
#include "support/local_server.hpp"
#include "support/log_capture.hpp"
#include "support/scripted_stream.hpp"

#include <QTcpSocket>

#include <future>
#include <latch>
#include <optional>
#include <system_error>

using namespace corvane;
using namespace corvane::test;
using namespace std::chrono_literals;
using namespace testing;

namespace {

std::atomic<bool> no_threads = false;

} // namespace

// While no_threads is set, no std::thread can be made by the code that is linked into this program:
// the linker puts wrapped_start() in the place of the function behind std::thread's constructor and
// calls that one the real (see ../CMakeLists.txt).
void real_start(void *thread, void *state, void (*depend)()) asm(
    "__real__ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE");
void wrapped_start(void *thread, void *state, void (*depend)()) asm(
    "__wrap__ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE");

void wrapped_start(void *thread, void *state, void (*depend)()) {
    if (no_threads) {
        throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
    }
    real_start(thread, state, depend);
}

namespace {

// Of the resilient type, which keeps it out of the log.
constexpr const char *kKey = "key-nobody-may-see";

class OutputTypes : public MuxFixture {
protected:
    OutputTypes() { log.restart(); }
    ~OutputTypes() override { EXPECT_THAT(log.whole(), Not(HasSubstr(kKey))); }

    static std::string loopback(int port) {
        return "rtmp://127.0.0.1:" + std::to_string(port) + "/live";
    }

    LogCapture &log = LogCapture::get();
};

// Headers that come late must not cost the keyframe that everything after it needs.
TEST_F(OutputTypes, standard_holds_the_first_keyframe_until_the_headers_exist) {
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
    EXPECT_GE(recording.frames[1], numbers.back()) << "a packet from before the opening";
    EXPECT_EQ(recording.audio_tracks, 2) << "the slots without encoder got a stream";
}

// A stream that is lost with its server has to be there again when a server is, complete and from
// the beginning of a group of pictures; the user ends it, and it ends once.
TEST_F(OutputTypes, resilient_comes_back_when_the_server_does) {
    std::optional<LocalServer> first(std::in_place);
    stream_timeouts.connect = 500ms; // ends with the connecting
    ScriptedStream stream(kResilientOutputId, first->url(), kKey);
    ASSERT_TRUE(stream.start()) << stream.last_error();
    ASSERT_TRUE(wait_until([&] { return first->received(kKey) > 2000; }));
    EXPECT_TRUE(wait_until([&] { return stream.state() == "connected 0 "; }));
    const uint64_t sent = obs_output_get_total_bytes(stream.output);
    EXPECT_GT(sent, 2000U);

    const auto lost = std::chrono::steady_clock::now();
    first.reset();
    ASSERT_TRUE(wait_until([&] { return stream.state().starts_with("reconnecting"); }));
    EXPECT_THAT(log.matching("connection lost"), SizeIs(1));
    for (const char *delay : {"next attempt in 2 s", "next attempt in 3 s"}) {
        EXPECT_TRUE(log.wait_for(delay)) << "gave up";
    }
    EXPECT_GE(std::chrono::steady_clock::now() - lost, 3s) << "hurries";
    const LocalServer second;
    stream.update(second.url(), kKey);
    ASSERT_TRUE(wait_until([&] { return second.received(kKey) > 2000; }));
    EXPECT_TRUE(wait_until([&] { return stream.state() == "connected 0 "; }));
    EXPECT_TRUE(log.has("reconnect succeeded"));
    EXPECT_GT(obs_output_get_total_bytes(stream.output), sent);
    EXPECT_GT(obs_output_get_frames_dropped(stream.output), 0) << "the frames of the gap";
    stream.stop();
    EXPECT_THAT(stream.stop_codes(), ElementsAre(OBS_OUTPUT_SUCCESS));

    const Recording recording = second.recording(kKey);
    ASSERT_FALSE(recording.frames.empty());
    EXPECT_EQ(recording.frames.front() % 15, 1) << "does not begin with a keyframe";
    EXPECT_EQ(recording.audio_tracks, 2);
    EXPECT_THAT(recording.first_dts, Each(Pair(_, AllOf(Ge(0), Le(30)))));
}

// A server that takes nothing more counts as lost.
TEST_F(OutputTypes, resilient_leaves_a_stalled_server) {
    stream_timeouts.write = 500ms;
    script().frame_bytes = 512 << 10;
    const LocalServer server;
    ScriptedStream stream(kResilientOutputId, server.url(), kKey);
    ASSERT_TRUE(stream.start()) << stream.last_error();
    ASSERT_TRUE(wait_until([&] { return server.received(kKey) > 0; }));
    server.freeze();
    EXPECT_TRUE(log.wait_for("W connection lost: Connection timed out"));
}

// An error has to end the stream once, with a reason the user can act on, and leave an output that
// can start again. A server that takes the connection and says nothing is one, too.
TEST_F(OutputTypes, end_with_the_reason_when_they_cannot_connect) {
    const LocalServer server, silent;
    silent.freeze();
    const std::string nobody = loopback(free_port());
    for (const auto &[type, url, key, reason, codes] :
        {std::tuple(kMuxOutputId, nobody, "shown", "Connection refused",
             std::vector{OBS_OUTPUT_SUCCESS, OBS_OUTPUT_ERROR}),
            {kResilientOutputId, nobody, kKey, "Connection refused", {OBS_OUTPUT_ERROR}},
            {kResilientOutputId, silent.url(), kKey, "Connection timed out", {OBS_OUTPUT_ERROR}}}) {
        SCOPED_TRACE(std::string(type) + " to " + url);
        log.clear();
        server.forget(key);
        stream_timeouts.connect = 300ms;
        ScriptedStream stream(type, url, key);
        ASSERT_TRUE(stream.start()) << stream.last_error();
        EXPECT_TRUE(url == nobody || stream.state() == "connecting 0 ");
        ASSERT_TRUE(stream.wait_for_error(codes.size()));
        EXPECT_EQ(stream.stop_codes(), codes);
        EXPECT_THAT(
            stream.last_error(), StartsWith("Stream rejected — check server URL and stream key"));
        EXPECT_TRUE(log.has("E avio_open2 failed: " + std::string(reason)));

        stream_timeouts = {};
        stream.update(server.url(), key);
        ASSERT_TRUE(stream.start()) << stream.last_error();
        EXPECT_TRUE(wait_until([&] { return server.received(key) > 1000; }));
    }
}

// A stream that fails while it still starts has to end all the same, and once.
TEST_F(OutputTypes, standard_ends_when_it_is_refused_during_the_start) {
    ScriptedStream stream(kMuxOutputId, loopback(free_port()), "early");
    // Packets come from here on, while the output's own start has not gone on yet.
    const auto wait = [](void *log, calldata_t *) {
        EXPECT_TRUE(static_cast<LogCapture *>(log)->wait_for("open_muxer fatal"));
    };
    const OBSSignal begun(obs_output_get_signal_handler(stream.output), "start", wait, &log);
    ASSERT_TRUE(stream.start()) << stream.last_error();
    EXPECT_TRUE(wait_until([&] { return !stream.active(); }));
    EXPECT_THAT(stream.stop_codes(), ElementsAre(OBS_OUTPUT_SUCCESS, OBS_OUTPUT_ERROR));
}

// The UI thread must not stand still while a first packet waits for the server.
TEST_F(OutputTypes, standard_starts_at_once_while_a_packet_is_connecting) {
    QTcpServer server;
    server.setProxy(QNetworkProxy::NoProxy);
    ASSERT_TRUE(server.listen(QHostAddress::LocalHost));
    ScriptedStream stream(kMuxOutputId, loopback(server.serverPort()), "slow");
    std::latch connecting(1);
    const auto wait = [](void *latch, calldata_t *) {
        static_cast<std::latch *>(latch)->wait();
    };
    const OBSSignal begun(obs_output_get_signal_handler(stream.output), "start", wait, &connecting);
    auto started = std::async(std::launch::async, [&] { return stream.start(); });
    EXPECT_TRUE(server.waitForNewConnection(20'000));
    connecting.count_down();
    EXPECT_EQ(started.wait_for(5s), std::future_status::ready) << "the start waits for the server";
    delete server.nextPendingConnection(); // lets the packet go
    EXPECT_TRUE(started.get());
    EXPECT_TRUE(stream.wait_for_error());
}

// Otherwise the host would believe in a stream that never begins.
TEST_F(OutputTypes, refuse_to_start_without_an_address_or_audio) {
    for (const char *type : {kMuxOutputId, kResilientOutputId}) {
        for (const auto &[key, tracks, error] :
            {std::tuple("  ", std::vector<size_t>{0}, "Missing RTMP server/key"),
                {"mute", {}, "obs_output_can_begin_data_capture failed"}}) {
            ScriptedStream stream(type, "rtmp://127.0.0.1/live", key, tracks);
            EXPECT_FALSE(stream.start());
            EXPECT_EQ(stream.last_error(), error);
            EXPECT_FALSE(stream.active());
            stream.stop(); // harmless
            EXPECT_THAT(stream.stop_codes(), ElementsAre());
        }
    }
}

// libobs stops a stream whose encoder fails, and then says why: however late, the user hears of it.
TEST_F(OutputTypes, resilient_tells_of_a_failed_encoder_after_the_stop) {
    const LocalServer server;
    ScriptedStream stream(kResilientOutputId, server.url(), kKey);
    ASSERT_TRUE(stream.start()) << stream.last_error();
    ASSERT_TRUE(wait_until([&] { return server.received(kKey) > 1000; }));
    obs_output_force_stop(stream.output);
    ASSERT_TRUE(wait_until([&] { return !stream.stop_codes().empty(); }));
    stream.send(nullptr);
    EXPECT_TRUE(stream.wait_for_error(2));
    EXPECT_THAT(stream.stop_codes(), ElementsAre(OBS_OUTPUT_SUCCESS, OBS_OUTPUT_ENCODE_ERROR));
    EXPECT_EQ(stream.state(), "stopped 0 ");
}

// A system out of threads may cost a stream, which says so, and not the host.
TEST_F(OutputTypes, end_with_a_message_when_there_is_no_thread) {
    const LocalServer server;
    for (const char *type : {kResilientOutputId, kMuxOutputId}) {
        SCOPED_TRACE(type);
        script().video_header = false; // no thread is made before
        ScriptedStream stream(type, server.url(), kKey);
        no_threads = true;
        EXPECT_EQ(stream.start(), type == kMuxOutputId);
        no_threads = false;
        ASSERT_TRUE(stream.active() || stream.start()) << stream.last_error();
        no_threads = true;
        script().video_header = true;
        EXPECT_TRUE(stream.wait_for_error());
        no_threads = false;
        EXPECT_EQ(stream.stop_codes().back(), OBS_OUTPUT_ERROR);
        EXPECT_EQ(stream.last_error(), "Resource temporarily unavailable");
    }
}

} // namespace
