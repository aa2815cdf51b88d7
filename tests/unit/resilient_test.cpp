// SPDX-License-Identifier: GPL-2.0-or-later
// What the resilient type makes of a network that does not keep up, does not answer or logs.
#include "mux/resilient/log_redaction.hpp"
#include "mux/resilient/run_abandonable.hpp"
#include "mux/resilient/send_buffer.hpp"
#include "support/encoded_packets.hpp"
#include "support/log_capture.hpp"

extern "C" {
#include <libavutil/log.h>
}

#include <gtest/gtest.h>

#include <chrono>
#include <latch>
#include <memory>
#include <string>
#include <tuple>

using namespace corvane;
using namespace corvane::test;
using namespace std::chrono_literals;

namespace {

using Clock = SendBuffer::Clock;

// "K" is a keyframe, "v" another video frame, "a" audio. Returns the frames it cost.
uint64_t push(
    SendBuffer &buffer, char kind, Clock::time_point now = Clock::now(), size_t size = 1U << 20U) {
    OwnedPacket packet(kind == 'a' ? OBS_ENCODER_AUDIO : OBS_ENCODER_VIDEO, Buffer(size), 0, 1000);
    packet.keyframe = kind == 'K';
    const uint64_t before = buffer.dropped_frames();
    buffer.push(packet, now);
    return buffer.dropped_frames() - before;
}

// Returns what the packets cost, those that cost nothing left out, as in "2:64".
std::string push(SendBuffer &buffer, const std::string &kinds) {
    std::string costs;
    for (size_t number = 0; number < kinds.size(); ++number) {
        if (const uint64_t cost = push(buffer, kinds[number])) {
            costs +=
                (costs.empty() ? "" : " ") + std::to_string(number) + ':' + std::to_string(cost);
        }
    }
    return costs;
}

std::string contents(SendBuffer &buffer) {
    std::string kinds;
    while (buffer.fill() > 0) {
        const SharedPacket packet = buffer.wait_pop(Clock::now());
        kinds += packet->type == OBS_ENCODER_AUDIO ? 'a' : packet->keyframe ? 'K' : 'v';
    }
    return kinds;
}

} // namespace

// Sound must outlive the pictures, and what is left of them must be decodable.
TEST(SendBuffer, drops_whole_groups_of_pictures_first) {
    const long before = bnum_allocs();
    SendBuffer buffer;
    EXPECT_EQ(push(buffer, "Kvav" + std::string(56, 'v') + "Kavvv"), "64:59")
        << "the 65th megabyte costs the first group";
    EXPECT_EQ(contents(buffer), "aKavvv");

    // Without another keyframe all pictures go, and those that come until there is one.
    EXPECT_EQ(push(buffer, "aK" + std::string(62, 'v') + "vavKva"), "64:64 66:1");
    EXPECT_EQ(contents(buffer), "aaKva");

    // Sound alone is bounded, too: the oldest goes.
    EXPECT_EQ(push(buffer, std::string(70, 'a')), "");
    EXPECT_EQ(contents(buffer), std::string(64, 'a'));
    EXPECT_EQ(buffer.dropped_audio(), 6U);

    // A connection that was gone begins with a keyframe; what it missed is counted.
    push(buffer, "Kv");
    buffer.pause();
    EXPECT_EQ(push(buffer, "Kva"), "0:1 1:1");
    buffer.resume();
    EXPECT_EQ(push(buffer, "vaKv"), "0:1");
    EXPECT_EQ(contents(buffer), "aKv");
    EXPECT_EQ(buffer.dropped_frames(), 59U + 65U + 2U + 2U + 1U);

    push(buffer, "Kva");
    buffer.close();
    EXPECT_EQ(buffer.wait_pop(Clock::now()), nullptr);
    EXPECT_EQ(bnum_allocs(), before) << "kept packets";
}

// A line that is too slow must cost pictures and not tear holes into the sound.
TEST(SendBuffer, lets_sound_wait_longer_than_pictures) {
    SendBuffer buffer;
    const Clock::time_point begin = Clock::now();
    for (const auto &[kind, after, dropped] :
        {std::tuple('a', 0ms, 0U), {'K', 10ms, 0U}, {'v', 500ms, 0U}, {'K', 1000ms, 0U},
            {'a', 5005ms, 0U}, {'v', 5020ms, 2U}, {'a', 5990ms, 0U}}) {
        EXPECT_EQ(push(buffer, kind, begin + after), dropped) << after.count();
    }
    EXPECT_EQ(push(buffer, 'K', begin + 5995ms, 0), 1U) << "an empty packet is nothing to send";
    EXPECT_EQ(buffer.dropped_audio(), 0U);
    push(buffer, 'a', begin + 6002ms);
    EXPECT_EQ(buffer.dropped_audio(), 1U);
    EXPECT_EQ(contents(buffer), "aaa");
}

// A call that returns while the process ends must not touch what is going, not even to free it.
TEST(RunAbandonable, keeps_late_threads_out_of_a_process_that_ends) {
    EXPECT_TRUE(run_abandonable([] {}, [] { return false; }));
    EXPECT_TRUE(finish_abandoned_threads(0ms));

    std::latch opened(1), returning(1);
    auto used = std::make_shared<int>();
    const std::weak_ptr<int> watch(used);
    auto wait = [&opened, &returning, used = std::move(used)] {
        opened.wait();
        returning.count_down();
    };
    EXPECT_FALSE(run_abandonable(std::move(wait), [] { return true; }));
    EXPECT_FALSE(finish_abandoned_threads(0ms));
    opened.count_down();
    returning.wait();
    EXPECT_FALSE(finish_abandoned_threads(50ms));
    EXPECT_FALSE(watch.expired());
}

// FFmpeg writes lines in pieces; a piece must not wait for a stream with other secrets. And
// FFmpeg's log belongs to the others again when the last stream has ended.
TEST(LogRedaction, ends_with_its_scope) {
    const LogCapture log;
    for (const auto &[secret, text] : {std::pair("sk-1", "key sk-1"), {"sk-2", "key sk-2\n"}}) {
        const LogRedaction redaction({secret});
        const LogRedaction::Scope scope(redaction);
        av_log(nullptr, AV_LOG_DEBUG, "decoded value\n");
        av_log(nullptr, AV_LOG_INFO, "Unable to parse %s\n", "value");
        av_log(nullptr, AV_LOG_INFO, "%s", text);
    }
    av_log(nullptr, AV_LOG_INFO, "others\n");
    EXPECT_EQ(log.whole(), "I [ffmpeg] key ***\nI [ffmpeg] key ***\n");

    static int others = 0;
    {
        const LogRedaction redaction({});
        const LogRedaction::Scope scope(redaction);
        av_log_set_callback([](void *, int, const char *, va_list) { ++others; });
    }
    const int before = others;
    av_log(nullptr, AV_LOG_INFO, "others\n");
    EXPECT_EQ(others, before + 1) << "somebody else's callback was replaced";
    av_log_set_callback(av_log_default_callback);
}
