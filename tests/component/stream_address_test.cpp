// SPDX-License-Identifier: GPL-2.0-or-later
// What the resilient type makes of the addresses that users enter.
#include "mux/resilient/connection_target.hpp"
#include "support/local_server.hpp"
#include "support/log_capture.hpp"
#include "support/scripted_stream.hpp"

#include <array>
#include <format>
#include <string>
#include <tuple>

namespace corvane::test {

namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;

class StreamAddressTest : public MuxFixture {
protected:
    StreamAddressTest() { log.restart(); }

    LogCapture &log = LogCapture::get();
};

// Services sign their keys, with slashes and question marks; FFmpeg would split them off.
TEST_F(StreamAddressTest, application_and_stream_name_are_sent_as_entered) {
    for (const auto &[server, key, address, application] :
        {std::tuple("rtmp://h/live", "k?url=a/b/c&t=1", "rtmp://h/live", "live"),
            {"RTMP://u:p@[::1]:19/a/b?t=x/y", "sub/key", "rtmp://u:p@[::1]:19/a/b?t=x/y",
                "a/b?t=x/y"},
            {"rtmps://h/live x//", "mp4:k ey\u00a0", "rtmps://h/live x", "live x"},
            {"rtmpt://h", "k", "rtmpt://h", ""}}) {
        ConnectionTarget target = connection_target(rebuild_url(server, key));
        const auto option = [&target](const char *name) {
            return std::string(av_dict_get(*target.options.get(), name, nullptr, 0)->value);
        };
        EXPECT_EQ(target.address, address);
        EXPECT_EQ(option("rtmp_app"), application);
        EXPECT_EQ(option("rtmp_playpath"), key);
        EXPECT_FALSE(objection_to(rebuild_url(server, key)));
    }
}

// The user has to read in the box what to change.
TEST_F(StreamAddressTest, the_reason_is_told) {
    const std::string refusing = std::format("rtmp://127.0.0.1:{}/live", free_port());
    const std::string usable = "it must begin with one of: rtmp://, rtmps://, rtmpt://";
    for (const auto &[server, key, reason] :
        {std::tuple(std::string("http://h/live"), std::string("k"), usable),
            {"h/live", "k", usable},
            {"rtmp://h/" + std::string(1'100, 'a'), "k", "URL is too long"},
            {"rtmp://h/live", std::string(70'000, 'a'), "key is too long"},
            {refusing, "k", "\n\nConnection refused"},
            {"rtmp://nowhere.invalid/live", "k",
                "\n\nFailed to resolve hostname nowhere.invalid"}}) {
        ScriptedStream stream(kResilientOutputId, server, key);
        ASSERT_TRUE(stream.start()) << stream.last_error();
        ASSERT_TRUE(stream.wait_for_error());
        EXPECT_THAT(stream.last_error(), HasSubstr(reason));
    }
}

// Other programs ignore what they do not know, and users paste their addresses.
TEST_F(StreamAddressTest, an_unknown_srt_option_is_left_out) {
    const LocalServer server(LocalServer::kSrt);
    ScriptedStream stream(
        kResilientOutputId, server.url() + "?nonsense=secret&latency=50000&caller=1", "");
    ASSERT_TRUE(stream.start()) << stream.last_error();
    EXPECT_TRUE(wait_until([&] { return server.received("") > 2000; }));
    for (const char *name : {"nonsense", "caller"}) {
        EXPECT_TRUE(
            log.has(std::string("W SRT option left out, FFmpeg does not know it: ") + name));
    }
    EXPECT_FALSE(log.has("secret"));
}

// Whoever calls may take his time, and the next caller may come as late.
TEST_F(StreamAddressTest, an_srt_listener_waits_for_its_caller) {
    stream_timeouts.connect = 100ms;
    const std::string address = std::format("srt://127.0.0.1:{}", free_port());
    ScriptedStream stream(kResilientOutputId, address + "?mode=listener", "");
    for (const bool again : {false, true}) {
        ASSERT_TRUE(stream.start()) << stream.last_error() << again;
        ASSERT_TRUE(wait_until([&] { return stream.state() == "listening 0 "; }));
        EXPECT_FALSE(wait_until([&] { return stream.state() != "listening 0 "; }, 500ms));
        AVIOContext *caller = nullptr;
        ASSERT_GE(avio_open2(&caller, address.c_str(), AVIO_FLAG_READ, nullptr, nullptr), 0);
        std::array<unsigned char, 1316> bytes{};
        EXPECT_GT(avio_read_partial(caller, bytes.data(), bytes.size()), 0);
        avio_closep(&caller);
        EXPECT_TRUE(wait_until([&] { return stream.state().starts_with("listening 1"); }));
        stream.stop();
    }
}

} // namespace

} // namespace corvane::test
