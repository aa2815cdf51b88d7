// SPDX-License-Identifier: GPL-2.0-or-later
// Odd packets, missing packets and failing encoders, for both output types.
#include "support/local_server.hpp"
#include "support/scripted_stream.hpp"

extern "C" {
#include <libavutil/avutil.h>
}

#include <functional>
#include <list>

namespace corvane::test {

namespace {

using namespace std::chrono_literals;

constexpr size_t kSilentTrack = 2;

// What the stream does from the fault on, and the codes of its "stop" signals.
struct Expected {
    enum { kArrives, kHalts, kEnds } outcome;
    std::vector<int> codes;
    std::string message; // the last error
};
const Expected goes_on{Expected::kArrives, {OBS_OUTPUT_SUCCESS}, ""};
const Expected halts{Expected::kHalts, {OBS_OUTPUT_SUCCESS}, ""};
const Expected fails{Expected::kEnds, {OBS_OUTPUT_ENCODE_ERROR}, ""};
const Expected stops_and_fails{Expected::kEnds, {OBS_OUTPUT_SUCCESS, OBS_OUTPUT_ENCODE_ERROR}, ""};
const Expected has_nothing_to_send{
    Expected::kEnds, {OBS_OUTPUT_ERROR}, "The encoders deliver nothing that could be sent"};

struct Fault {
    const char *name;
    bool before_start;
    std::function<void(ScriptedStream &)> apply;
    Expected rtmp, srt, resilient;
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

void fail_encoder(ScriptedStream &) {
    EncoderScript::current->fails = true;
}

void withhold_headers(ScriptedStream &) {
    EncoderScript::current->audio_header = false;
}

void delay_headers(ScriptedStream &stream) {
    withhold_headers(stream);
    stream.at_each_packet([packets = 0](encoder_packet &) mutable {
        if (++packets == 200) {
            EncoderScript::current->audio_header = true;
        }
    });
}

void send_20_megabytes(ScriptedStream &stream) {
    OwnedPacket packet(OBS_ENCODER_VIDEO, kSlice + Buffer(20U << 20U, 0x84), 0, 30);
    stream.send(&packet);
}

// Each with what the standard type does over RTMP and over SRT, and the resilient one over both.
const Fault faults[] = {
    {"encoder_fails", false, fail_encoder, stops_and_fails, stops_and_fails, fails},
    {"null_packet", false, [](auto &stream) { stream.send(nullptr); }, fails, fails, fails},
    {"track_goes_silent", false, silence_track, halts, halts, goes_on},
    {"track_is_silent", true, silence_track, halts, halts, goes_on},
    {"late_headers", true, delay_headers, goes_on, goes_on, goes_on},
    {"no_headers", true, withhold_headers, halts, halts, has_nothing_to_send},
    {"no_times", false, change_times([](int64_t, int64_t) { return AV_NOPTS_VALUE; }), goes_on,
        goes_on, goes_on},
    {"times_jump_back", false,
        change_times([](int64_t time, int64_t second) { return time - 10 * second; }), goes_on,
        goes_on, goes_on},
    {"times_are_equal", false, change_times([](int64_t, int64_t second) { return 2 * second; }),
        goes_on, goes_on, goes_on},
    {"times_beyond_33_bits", false, change_times([](int64_t time, int64_t second) {
         return time + (int64_t{1} << 34U) / 90000 * second;
     }),
        goes_on, goes_on, goes_on},
    // Audio waits for video.
    {"empty_packets", false, deliver_frames(0, false), halts, halts, goes_on},
    {"four_bytes", false, deliver_frames(4, true), goes_on, goes_on, goes_on},
    {"short_start_codes", false, deliver_frames(6, true), goes_on, goes_on, goes_on},
    // FLV cannot hold it. FFmpeg refuses it with its first byte sent, and the server makes no sense
    // of the rest.
    {"20_megabytes", false, send_20_megabytes, halts, goes_on, goes_on}};

class PacketFaults : public MuxFixture, public testing::WithParamInterface<Fault> {
protected:
    struct Run {
        Run(bool resilient, LocalServer::Protocol protocol, const Expected &expected)
            : resilient(resilient)
            , expected(expected)
            , server(protocol)
            , stream(resilient ? kResilientOutputId : kMuxOutputId, server.url(), "key",
                  {0, kSilentTrack, 5}) {}

        std::string name() const {
            return (resilient ? "resilient to " : "standard to ") + server.url();
        }
        size_t received() const { return server.received("key"); }
        int frames() const { return obs_output_get_total_frames(stream.output); }

        const bool resilient;
        int target = 0;
        Expected expected;
        LocalServer server;
        ScriptedStream stream;
    };

    // Waits until each stream has taken further frames, or has ended.
    void wait_for_frames() {
        for (Run &run : runs) {
            run.target = run.frames() + 20;
        }
        EXPECT_TRUE(wait_until([&] {
            return std::ranges::all_of(runs,
                [](const Run &run) { return !run.stream.active() || run.frames() >= run.target; });
        }));
    }

    void expect_outcome(Run &run) {
        size_t before = run.received();
        bool quiet = false;
        switch (run.expected.outcome) {
        case Expected::kArrives:
            EXPECT_TRUE(wait_until([&] { return run.received() > before; }));
            EXPECT_TRUE(run.stream.active());
            break;
        case Expected::kHalts:
            // What was under way may still arrive.
            for (int tries = 0; tries < 10 && !quiet; ++tries) {
                before = run.received();
                wait_for_frames();
                quiet = run.received() == before;
            }
            EXPECT_TRUE(quiet);
            EXPECT_TRUE(run.stream.active());
            break;
        case Expected::kEnds:
            EXPECT_TRUE(run.stream.wait_for_error());
            EXPECT_EQ(run.stream.last_error(), run.expected.message);
            // The next start frees what libobs keeps of a failed encoder.
            script().fails = false;
            EXPECT_TRUE(run.stream.start());
            EXPECT_TRUE(wait_until([&] { return run.frames() > 0; }));
            run.expected.codes.push_back(OBS_OUTPUT_SUCCESS);
        }
    }

    std::list<Run> runs;
};

// The streams run side by side, which takes no longer than one.
TEST_P(PacketFaults, cost_no_more_than_expected) {
    const Fault &fault = GetParam();
    stream_timeouts.encoders = 2s;
    runs.emplace_back(false, LocalServer::kRtmp, fault.rtmp);
    runs.emplace_back(false, LocalServer::kSrt, fault.srt);
    runs.emplace_back(true, LocalServer::kRtmp, fault.resilient);
    runs.emplace_back(true, LocalServer::kSrt, fault.resilient);
    for (Run &run : runs) {
        if (fault.before_start) {
            fault.apply(run.stream);
        }
        ASSERT_TRUE(run.stream.start()) << run.stream.last_error();
    }
    if (!fault.before_start) {
        for (const Run &run : runs) {
            ASSERT_TRUE(wait_until([&] { return run.received() > 2000; })) << run.name();
        }
        std::ranges::for_each(runs, fault.apply, &Run::stream);
    }
    wait_for_frames();
    for (Run &run : runs) {
        SCOPED_TRACE(run.name());
        expect_outcome(run);
    }
    for (Run &run : runs) {
        SCOPED_TRACE(run.name());
        const auto stopped = run.stream.stop();
        EXPECT_TRUE(wait_until(
            [&] { return run.stream.stop_codes().size() >= run.expected.codes.size(); }));
        const auto destroyed = run.stream.destroy();
        EXPECT_EQ(run.stream.stop_codes(), run.expected.codes);
        EXPECT_TRUE(!run.resilient || (stopped < 1s && destroyed < 1s));
    }
}

INSTANTIATE_TEST_SUITE_P(Both, PacketFaults, testing::ValuesIn(faults),
    [](const auto &info) { return info.param.name; });

} // namespace

} // namespace corvane::test
