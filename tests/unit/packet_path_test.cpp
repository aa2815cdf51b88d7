// SPDX-License-Identifier: GPL-2.0-or-later
// Packets through preparation and gate, with a muxer that is never connected.
#include "support/packet_path_fixture.hpp"

#include <gtest/gtest.h>

using namespace corvane;
using namespace corvane::test;

namespace {

// What is handed over for a packet; the default when nothing is.
struct Sent {
    Buffer payload;
    int stream = -1;
    int64_t pts = 0, dts = 0, duration = 0;
    bool key = false;
    bool operator==(const Sent &) const = default;
};

class Path : PacketPathFixture {
public:
    using PacketPathFixture::PacketPathFixture;

    Sent keyframe(const Buffer &payload, int64_t time) { return video(payload, time, true); }
    Sent slice(const Buffer &payload, int64_t time) { return video(payload, time, false); }
    Sent audio(size_t slot, int64_t time) {
        OwnedPacket packet(OBS_ENCODER_AUDIO, {1, 2}, time, 48000);
        packet.track_idx = slot;
        return pass(packet);
    }

private:
    Sent video(const Buffer &payload, int64_t time, bool keyframe) {
        OwnedPacket packet(OBS_ENCODER_VIDEO, payload, time, 30);
        packet.keyframe = keyframe;
        return pass(packet);
    }
    Sent pass(const encoder_packet &packet) {
        EXPECT_TRUE(send(packet));
        EXPECT_LE(sent.size(), 1U);
        if (sent.empty()) {
            return {};
        }
        const AVPacket &out = *sent.front();
        const Bytes bytes = payload_of(out);
        return {Buffer(bytes.begin(), bytes.end()), out.stream_index, out.pts, out.dts,
            out.duration, (out.flags & AV_PKT_FLAG_KEY) != 0};
    }
};

// A stream that begins with anything else cannot be decoded by a receiver.
TEST(MpegTsPath, opens_with_a_complete_idr_and_lets_nothing_pass_before) {
    Path early(true, kAvcc);
    EXPECT_EQ(early.slice(kSlice, 0), Sent());
    EXPECT_EQ(early.audio(0, 0), Sent());
    EXPECT_EQ(early.keyframe(kSlice, 1), Sent()) << "flagged as a keyframe, but no IDR";

    Path path(true, kAvcc);
    EXPECT_EQ(path.keyframe(kIdr, 90), (Sent{kAud + kParameterSets + kIdr, 0, 0, 0, 3000, true}));
    // The base is overwritten by rebased values: later packets keep the encoder's timestamps.
    EXPECT_EQ(path.slice(kSlice, 91), (Sent{kAud + kSlice, 0, 273000, 273000, 3000, false}));
    EXPECT_EQ(path.audio(0, 1024), (Sent{{1, 2}, 1, 0, 0, 1920, false}));
}

// Parameter sets and delimiters that the encoder gave already must not stand there twice.
TEST(MpegTsPath, adds_only_what_an_access_unit_lacks) {
    Path annexb_header(true, kParameterSets);
    EXPECT_EQ(
        annexb_header.keyframe(kParameterSets + kIdr, 0).payload, kAud + kParameterSets + kIdr);
    Path complete(true, kAvcc);
    EXPECT_EQ(complete.keyframe(kAud + kIdr, 0).payload, kParameterSets + kAud + kIdr);
    EXPECT_EQ(complete.keyframe(kAud + kIdr, 1).payload, kAud + kIdr);
}

// Hardware encoders may give length-prefixed units, which MPEG-TS cannot carry.
TEST(MpegTsPath, converts_length_prefixed_units) {
    Path path(true, kAvcc);
    const Sent first = path.keyframe({0, 0, 0, 3, 0x65, 0x88, 0x84}, 60);
    EXPECT_EQ(nal_types_string(first.payload, 20), "[9,7,8,5]");
    EXPECT_EQ(first.dts, 0);
    EXPECT_TRUE(first.key);
    EXPECT_EQ(path.slice({0, 0, 0, 3, 0x41, 0x9A, 0x24}, 61),
        (Sent{kAud + kSlice, 0, 183000, 183000, 3000, false}));
}

// FLV carries the encoder's own payload; audio may not start before the picture. Tracks start at
// different times and some slots have no stream.
TEST(FlvPath, starts_at_a_keyframe_and_each_track_at_its_own_start) {
    Path path(false, kAvcc);
    EXPECT_EQ(path.slice(kSlice, 0), Sent());
    EXPECT_EQ(path.audio(0, 0), Sent());
    EXPECT_EQ(path.keyframe(kIdr, 3), (Sent{kIdr, 0, 100, 100, 33, true}));
    EXPECT_EQ(path.slice(kSlice, 3), (Sent{kSlice, 0, 101, 101, 33, false})) << "an equal dts";
    EXPECT_EQ(path.slice(kSlice, AV_NOPTS_VALUE), (Sent{kSlice, 0, 134, 134, 33, false})) << "none";
    EXPECT_EQ(path.audio(2, 4800), (Sent{{1, 2}, 2, 0, 0, 0, false}));
    EXPECT_EQ(path.audio(0, 9600), (Sent{{1, 2}, 1, 0, 0, 0, false}));
    EXPECT_EQ(path.audio(2, 9600), (Sent{{1, 2}, 2, 100, 100, 0, false}));
    EXPECT_EQ(path.audio(1, 0), Sent());
    EXPECT_EQ(path.audio(6, 0), Sent());
}

} // namespace
