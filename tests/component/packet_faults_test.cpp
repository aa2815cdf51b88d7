// SPDX-License-Identifier: GPL-2.0-or-later
// Odd packets, missing packets and failing encoders, for both output types.
#include "support/local_server.hpp"
#include "support/scripted_stream.hpp"

extern "C" {
#include <libavutil/avutil.h>
}

#include <climits>
#include <functional>
#include <list>

using namespace corvane;
using namespace corvane::test;
using namespace std::chrono_literals;

namespace {

constexpr size_t kSilentTrack = 2;

// What the stream does from the fault on, and the codes of its "stop" signals.
struct Expected {
    enum { kOn, kHalted, kEnded } outcome;
    std::vector<int> codes;
    std::string message; // the last error
};
const Expected kGoesOn{Expected::kOn, {OBS_OUTPUT_SUCCESS}, ""};
const Expected kHalts{Expected::kHalted, {OBS_OUTPUT_SUCCESS}, ""};
const Expected kFails{Expected::kEnded, {OBS_OUTPUT_ENCODE_ERROR}, ""};
const Expected kStopsAndFails{Expected::kEnded, {OBS_OUTPUT_SUCCESS, OBS_OUTPUT_ENCODE_ERROR}, ""};
const Expected kHasNothingToSend{
    Expected::kEnded, {OBS_OUTPUT_ERROR}, "The encoders deliver nothing that could be sent"};

// With what the standard type does over RTMP and over SRT, and the resilient one over both.
struct Fault {
    const char *name;
    std::function<void(ScriptedStream &)> apply;
    Expected rtmp = kGoesOn, srt = kGoesOn, resilient = kGoesOn;
    bool before_start = false;
};

auto change_times(int64_t (*change)(int64_t time, int64_t second)) {
    return [change](ScriptedStream &stream) {
        stream.at_each_packet([change](encoder_packet &packet) {
            const int64_t second = packet.timebase_den / packet.timebase_num;
            packet.pts = change(packet.pts, second);
            packet.dts = change(packet.dts, second);
        });
    };
}

// The output takes no packet of the track for its own.
void silence_track(ScriptedStream &stream) {
    stream.at_each_packet([](encoder_packet &packet) {
        const bool silent = packet.type == OBS_ENCODER_AUDIO && packet.track_idx == kSilentTrack;
        packet.track_idx += silent ? MAX_AUDIO_MIXES : 0;
    });
}

auto deliver_frames(size_t bytes, bool short_start_codes) {
    return [=](ScriptedStream &) {
        EncoderScript::current->short_start_codes = short_start_codes;
        EncoderScript::current->frame_bytes = bytes;
    };
}

auto withhold_headers(int packets) {
    return [packets](ScriptedStream &stream) {
        EncoderScript::current->audio_header = false;
        stream.at_each_packet([left = packets](encoder_packet &) mutable {
            if (--left == 0) {
                EncoderScript::current->audio_header = true;
            }
        });
    };
}

void send_20_megabytes(ScriptedStream &stream) {
    OwnedPacket packet(OBS_ENCODER_VIDEO, kSlice + Buffer(20U << 20U, 0x84), 0, 30);
    stream.send(&packet);
}

const Fault kFaults[] = {{"encoder_fails", [](auto &) { EncoderScript::current->fails = true; },
                             kStopsAndFails, kStopsAndFails, kFails},
    {"null_packet", [](auto &stream) { stream.send(nullptr); }, kFails, kFails, kFails},
    {"track_goes_silent", silence_track, kHalts, kHalts},
    {"track_is_silent", silence_track, kHalts, kHalts, kGoesOn, true},
    {"late_headers", withhold_headers(200), kGoesOn, kGoesOn, kGoesOn, true},
    {"no_headers", withhold_headers(INT_MAX), kHalts, kHalts, kHasNothingToSend, true},
    {"no_times", change_times([](int64_t, int64_t) { return AV_NOPTS_VALUE; })},
    {"times_jump_back",
        change_times([](int64_t time, int64_t second) { return time - 10 * second; })},
    {"times_are_equal", change_times([](int64_t, int64_t second) { return 2 * second; })},
    {"times_beyond_33_bits", change_times([](int64_t time, int64_t second) {
         return time + (int64_t{1} << 34U) / 90000 * second;
     })},
    // Audio waits for video.
    {"empty_packets", deliver_frames(0, false), kHalts, kHalts},
    {"four_bytes", deliver_frames(4, true)}, {"short_start_codes", deliver_frames(6, true)},
    // FLV cannot hold it. FFmpeg refuses it with its first byte sent, and the server makes no sense
    // of the rest.
    {"20_megabytes", send_20_megabytes, kHalts}};

class PacketFaults : public MuxFixture, public testing::WithParamInterface<Fault> {
protected:
    struct Run {
        const char *type;
        LocalServer::Protocol protocol;
        Expected expected;
        LocalServer server{protocol};
        ScriptedStream stream{type, server.url(), "key", {0, kSilentTrack, 5}};
        int target = 0; // see wait_for_frames()
        size_t before = 0;
        bool arrives = false;

        size_t received() const { return server.received("key"); }
        int frames() const { return obs_output_get_total_frames(stream.output); }
        bool done() const { return !stream.active() || frames() >= target; }
        bool as_expected() const {
            return expected.outcome == Expected::kEnded ||
                   arrives == (expected.outcome == Expected::kOn);
        }
    };

    // Waits until each stream has taken further frames, or has ended.
    void wait_for_frames() {
        for (Run &run : runs) {
            run.target = run.frames() + 20;
            run.before = run.received();
        }
        EXPECT_TRUE(wait_until([&] { return std::ranges::all_of(runs, &Run::done); }));
        for (Run &run : runs) {
            run.arrives = run.received() > run.before;
        }
    }

    void expect_end(Run &run) {
        EXPECT_TRUE(run.stream.wait_for_error(run.expected.codes.size()));
        EXPECT_EQ(run.stream.last_error(), run.expected.message);
        // The next start frees what libobs keeps of a failed encoder.
        script().fails = false;
        EXPECT_TRUE(run.stream.start());
        EXPECT_TRUE(wait_until([&] { return run.frames() > 0; }));
        run.expected.codes.push_back(OBS_OUTPUT_SUCCESS);
    }

    std::list<Run> runs;
};

// The streams run side by side, which takes no longer than one.
TEST_P(PacketFaults, cost_no_more_than_expected) {
    const Fault &fault = GetParam();
    stream_timeouts.encoders = 2s;
    runs.emplace_back(kMuxOutputId, LocalServer::kRtmp, fault.rtmp);
    runs.emplace_back(kMuxOutputId, LocalServer::kSrt, fault.srt);
    runs.emplace_back(kResilientOutputId, LocalServer::kRtmp, fault.resilient);
    runs.emplace_back(kResilientOutputId, LocalServer::kSrt, fault.resilient);
    for (Run &run : runs) {
        if (fault.before_start) {
            fault.apply(run.stream);
        }
        ASSERT_TRUE(run.stream.start()) << run.stream.last_error();
    }
    if (!fault.before_start) {
        for (const Run &run : runs) {
            ASSERT_TRUE(wait_until([&] { return run.received() > 2000; })) << run.server.url();
        }
        std::ranges::for_each(runs, fault.apply, &Run::stream);
    }
    // At first what was under way may still arrive.
    wait_for_frames();
    wait_until([&] {
        wait_for_frames();
        return std::ranges::all_of(runs, &Run::as_expected);
    });
    for (Run &run : runs) {
        SCOPED_TRACE(run.type + (" to " + run.server.url()));
        EXPECT_TRUE(run.as_expected());
        if (run.expected.outcome == Expected::kEnded) {
            expect_end(run);
        }
        EXPECT_TRUE(run.stream.active());
    }
    for (Run &run : runs) {
        SCOPED_TRACE(run.type + (" to " + run.server.url()));
        run.stream.stop();
        EXPECT_TRUE(run.stream.wait_for_error(run.expected.codes.size()));
        run.stream.destroy();
        EXPECT_EQ(run.stream.stop_codes(), run.expected.codes);
    }
}

INSTANTIATE_TEST_SUITE_P(Both, PacketFaults, testing::ValuesIn(kFaults),
    [](const auto &info) { return info.param.name; });

} // namespace
