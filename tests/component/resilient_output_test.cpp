// SPDX-License-Identifier: GPL-2.0-or-later
// The output type that keeps the connection, against servers that go away or never answer.
#include "support/local_server.hpp"
#include "support/log_capture.hpp"
#include "support/scripted_stream.hpp"

#include <optional>
#include <system_error>

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

namespace corvane::test {

namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::Ge;
using testing::HasSubstr;
using testing::Le;
using testing::Not;
using testing::Pair;

constexpr const char *kKey = "key-nobody-may-see";

class ResilientOutputTest : public MuxFixture {
protected:
    ResilientOutputTest() { log.restart(); }
    ~ResilientOutputTest() override { EXPECT_THAT(log.whole(), Not(HasSubstr(kKey))); }

    LogCapture &log = LogCapture::get();
};

// A stream that is lost with its server has to be there again when a server is, complete and from
// the beginning of a group of pictures; the user ends it, and it ends once.
TEST_F(ResilientOutputTest, comes_back_when_the_server_does) {
    std::optional<LocalServer> first(std::in_place);
    stream_timeouts.connect = 500ms; // ends with the connecting
    ScriptedStream stream(kResilientOutputId, first->url(), kKey);
    ASSERT_TRUE(stream.start()) << stream.last_error();
    ASSERT_TRUE(wait_until([&] { return first->received(kKey) > 2000; }));
    EXPECT_TRUE(wait_until([&] { return stream.state() == "connected 0 "; }));
    const uint64_t sent = obs_output_get_total_bytes(stream.output);
    EXPECT_GT(sent, 2000U);

    first.reset();
    ASSERT_TRUE(wait_until([&] { return stream.state().starts_with("reconnecting"); }));
    EXPECT_THAT(log.matching("connection lost"), testing::SizeIs(1));
    for (const char *delay : {"next attempt in 2 s", "next attempt in 3 s"}) {
        EXPECT_TRUE(log.wait_for(delay)) << "gave up, or hurries";
    }
    const LocalServer second;
    stream.update(second.url(), kKey);
    ASSERT_TRUE(wait_until([&] { return second.received(kKey) > 2000; }));
    EXPECT_TRUE(wait_until([&] { return stream.state() == "connected 0 "; }));
    EXPECT_TRUE(log.has("reconnect succeeded"));
    EXPECT_GT(obs_output_get_total_bytes(stream.output), sent);
    EXPECT_GT(obs_output_get_frames_dropped(stream.output), 0) << "the frames of the gap";
    EXPECT_LT(stream.stop(), 1s);
    EXPECT_THAT(stream.stop_codes(), ElementsAre(OBS_OUTPUT_SUCCESS));

    const Recording recording = second.recording(kKey);
    ASSERT_FALSE(recording.frames.empty());
    EXPECT_EQ(recording.frames.front() % 15, 1) << "does not begin with a keyframe";
    EXPECT_EQ(recording.audio_tracks, 2);
    EXPECT_THAT(recording.first_dts, Each(Pair(testing::_, AllOf(Ge(0), Le(30)))));
}

// A server that takes the connection and says nothing must end the attempt.
TEST_F(ResilientOutputTest, gives_up_a_silent_server) {
    stream_timeouts.connect = 300ms;
    const LocalServer server;
    server.freeze();
    ScriptedStream stream(kResilientOutputId, server.url(), kKey);
    ASSERT_TRUE(stream.start()) << stream.last_error();
    EXPECT_EQ(stream.state(), "connecting 0 ");
    ASSERT_TRUE(stream.wait_for_error());
    EXPECT_TRUE(log.has("E avio_open2 failed: Connection timed out"));
}

// libobs stops a stream whose encoder fails, and then says why: however late, the user hears of it.
TEST_F(ResilientOutputTest, tells_of_a_failed_encoder_after_the_stop) {
    const LocalServer server;
    ScriptedStream stream(kResilientOutputId, server.url(), kKey);
    ASSERT_TRUE(stream.start()) << stream.last_error();
    ASSERT_TRUE(wait_until([&] { return server.received(kKey) > 1000; }));
    obs_output_force_stop(stream.output);
    ASSERT_TRUE(wait_until([&] { return !stream.stop_codes().empty(); }));
    stream.send(nullptr);
    EXPECT_TRUE(wait_until([&] { return stream.stop_codes().size() == 2; }));
    EXPECT_THAT(stream.stop_codes(), ElementsAre(OBS_OUTPUT_SUCCESS, OBS_OUTPUT_ENCODE_ERROR));
    EXPECT_EQ(stream.state(), "stopped 0 ");
}

// A stream that nothing is sent of must not pass for one on air.
TEST_F(ResilientOutputTest, says_that_the_encoder_has_stalled) {
    const LocalServer server;
    stream_timeouts.encoders = 500ms;
    ScriptedStream stream(kResilientOutputId, server.url(), kKey);
    ASSERT_TRUE(stream.start()) << stream.last_error();
    ASSERT_TRUE(wait_until([&] { return stream.state() == "connected 0 "; }));
    script().stalls = true;
    ASSERT_TRUE(wait_until([&] { return stream.state() == "stalled 0 "; }));
    script().stalls = false;
    EXPECT_TRUE(wait_until([&] { return stream.state() == "connected 0 "; }));
}

// A system out of threads may cost a stream, which says so, and not the host.
TEST_F(ResilientOutputTest, ends_with_a_message_when_there_is_no_thread) {
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

} // namespace corvane::test
