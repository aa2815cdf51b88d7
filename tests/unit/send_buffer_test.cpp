// SPDX-License-Identifier: GPL-2.0-or-later
// What a network that does not keep up makes of the packets that wait for it.
#include "mux/resilient/send_buffer.hpp"
#include "support/encoded_packets.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <tuple>

using namespace corvane;
using namespace corvane::test;

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

std::string push_all(SendBuffer &buffer, const std::string &kinds) {
    std::string dropped;
    for (const char kind : kinds) {
        dropped += std::to_string(push(buffer, kind)) + " ";
    }
    return dropped;
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
    push_all(buffer, "Kvav" + std::string(56, 'v') + "Kavv");
    EXPECT_EQ(push(buffer, 'v'), 59U) << "the 65th megabyte costs the first group";
    EXPECT_EQ(contents(buffer), "aKavvv");
    EXPECT_EQ(buffer.dropped_frames(), 59U);

    // Without another keyframe all pictures go, and those that come until there is one.
    EXPECT_EQ(
        push_all(buffer, "aK" + std::string(62, 'v')).find_first_not_of("0 "), std::string::npos);
    EXPECT_EQ(push_all(buffer, "vavKva"), "64 0 1 0 0 0 ");
    EXPECT_EQ(contents(buffer), "aaKva");
    EXPECT_EQ(buffer.dropped_frames(), 59U + 64U + 1U);

    // Sound alone is bounded, too: the oldest goes.
    push_all(buffer, std::string(70, 'a'));
    EXPECT_EQ(contents(buffer), std::string(64, 'a'));
    EXPECT_EQ(buffer.dropped_audio(), 6U);

    // A connection that was gone begins with a keyframe; what it missed is counted.
    push_all(buffer, "Kv");
    buffer.pause();
    EXPECT_EQ(push_all(buffer, "Kva"), "1 1 0 ");
    buffer.resume();
    push_all(buffer, "vaKv");
    EXPECT_EQ(contents(buffer), "aKv");
    EXPECT_EQ(buffer.dropped_frames(), 124U + 2U + 2U + 1U);

    push_all(buffer, "Kva");
    buffer.close();
    EXPECT_EQ(buffer.wait_pop(Clock::now()), nullptr);
    EXPECT_EQ(bnum_allocs(), before) << "kept packets";
}

// A line that is too slow must cost pictures and not tear holes into the sound.
TEST(SendBuffer, lets_sound_wait_longer_than_pictures) {
    using namespace std::chrono_literals;
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
