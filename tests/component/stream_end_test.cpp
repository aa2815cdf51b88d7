// SPDX-License-Identifier: GPL-2.0-or-later
// Streams that are ended at random moments, and one that runs for very long.
#include "support/local_server.hpp"
#include "support/scripted_stream.hpp"

#include <malloc.h>
#include <unistd.h>

#include <random>
#include <tuple>

using namespace corvane;
using namespace corvane::test;
using std::chrono::milliseconds;

namespace {

// With CVC_LONG set the tests repeat more, and the long stream is a day's.
const bool kLongRun = qEnvironmentVariableIntValue("CVC_LONG") != 0;

void let_pass(milliseconds time) {
    wait_until([] { return false; }, time);
}

enum Moment { kConnecting, kStalled, kReconnecting, kWaitingForHeaders };

using EndCase = std::tuple<const char *, LocalServer::Protocol, Moment>;

class StreamEnd : public MuxFixture, public testing::WithParamInterface<EndCase> {};

// A stop is told once.
TEST_P(StreamEnd, comes_at_any_moment) {
    const auto [type, protocol, moment] = GetParam();
    std::mt19937 random(1);
    std::uniform_int_distribution<int> delay_ms(0, 600);
    script().audio_header = moment != kWaitingForHeaders;
    // Enough to fill whatever lies between the two ends in a moment.
    script().frame_bytes = moment == kStalled ? 512 << 10 : 400;
    LocalServer server(protocol);
    for (int round = 0; round < (kLongRun ? 250 : 2); ++round) {
        SCOPED_TRACE(round);
        const std::string key = std::to_string(round);
        ScriptedStream stream(type, server.url(), key);
        if (moment == kConnecting) {
            server.freeze();
        }
        ASSERT_TRUE(stream.start()) << stream.last_error();
        if (moment == kStalled || moment == kReconnecting) {
            ASSERT_TRUE(wait_until([&] { return server.received(key) > 0; }));
            moment == kStalled ? server.freeze() : server.hang_up();
        }
        let_pass(milliseconds(delay_ms(random)));
        if (round % 2 == 0) {
            stream.stop();
        }
        stream.destroy();
        EXPECT_EQ(stream.stop_codes(), std::vector{OBS_OUTPUT_SUCCESS});
        // What the system holds of this stream would be taken for the next one.
        if (moment != kWaitingForHeaders) {
            server.start();
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Resilient, StreamEnd,
    testing::Combine(testing::Values(kResilientOutputId),
        testing::Values(LocalServer::kRtmp, LocalServer::kSrt),
        testing::Values(kConnecting, kStalled, kReconnecting, kWaitingForHeaders)));

// It hangs, or ends the process, at the other moments.
INSTANTIATE_TEST_SUITE_P(Standard, StreamEnd,
    testing::Values(EndCase{kMuxOutputId, LocalServer::kRtmp, kReconnecting},
        EndCase{kMuxOutputId, LocalServer::kRtmp, kWaitingForHeaders},
        EndCase{kMuxOutputId, LocalServer::kSrt, kWaitingForHeaders}));

long resident_kb() {
    malloc_trim(0);
    long pages = 0;
    std::ifstream("/proc/self/statm").ignore(100, ' ') >> pages;
    return pages * getpagesize() / 1024;
}

#ifdef __SANITIZE_ADDRESS__ // keeps 256 MiB of what was freed
constexpr long kMostGrowthKb = 300'000;
#else
constexpr long kMostGrowthKb = 16'000;
#endif

class LongStream : public MuxFixture, public testing::WithParamInterface<const char *> {};

// Nothing may pile up however long a stream runs, and no clock may overflow.
TEST_P(LongStream, keeps_its_size) {
    const LocalServer server;
    ScriptedStream stream(GetParam(), server.url(), "key", {0, 1});
    ASSERT_TRUE(stream.start()) << stream.last_error();
    ASSERT_TRUE(wait_until([&] { return server.received("key") > 1000; }));
    stream.at_each_packet([](encoder_packet &packet) { packet.track_idx = MAX_AUDIO_MIXES; });
    script().stalls = true;
    uintmax_t arrived = server.received("key");
    // Something has come since the last look, and then nothing more.
    const auto all_arrived = [&, moved = false]() mutable {
        let_pass(milliseconds(20));
        const uintmax_t before = std::exchange(arrived, server.received("key"));
        moved = moved || arrived > before;
        return moved && arrived == before;
    };
    const int64_t frames = int64_t{kLongRun ? 24 * 60 : 10} * 60 * 30;
    long early_kb = 0;
    int64_t audio = 0;
    for (int64_t frame = 300; frame < frames; ++frame) {
        OwnedPacket video(OBS_ENCODER_VIDEO, kIdr, frame, 30);
        video.keyframe = true;
        stream.send(&video);
        for (; audio * 1024 * 30 < (frame - 299) * 48000; ++audio) {
            for (const size_t track : {0, 1}) {
                OwnedPacket packet(OBS_ENCODER_AUDIO, {1, 2}, audio * 1024 + 480'000, 48000);
                packet.track_idx = track;
                stream.send(&packet);
            }
        }
        if (frame % 1200 == 0) {
            ASSERT_TRUE(stream.active()) << stream.last_error();
            ASSERT_TRUE(wait_until(all_arrived)) << "after " << frame << " frames";
        }
        if (frame == frames / 10) {
            early_kb = resident_kb();
        }
    }
    EXPECT_LT(resident_kb() - early_kb, kMostGrowthKb);
    EXPECT_TRUE(stream.active());
}

INSTANTIATE_TEST_SUITE_P(Both, LongStream, testing::Values(kMuxOutputId, kResilientOutputId));

} // namespace
