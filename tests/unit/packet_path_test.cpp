// SPDX-License-Identifier: GPL-2.0-or-later
// Packets through preparation and gate, with a muxer that is never connected.
#include "support/packet_path_fixture.hpp"

#include <gtest/gtest.h>

namespace corvane::test {

namespace {

constexpr int64_t kNone = AV_NOPTS_VALUE;

struct Sent {
    Buffer payload;
    int stream;
    int64_t pts, dts, duration;
    bool key;
    bool operator==(const Sent &) const = default;
};

class Path : public PacketPathFixture {
public:
    using PacketPathFixture::PacketPathFixture;

    void video(const Buffer &payload, int64_t pts, int64_t dts, bool keyframe) {
        OwnedPacket packet(OBS_ENCODER_VIDEO, payload, dts, 30);
        packet.pts = pts;
        packet.keyframe = keyframe;
        EXPECT_TRUE(send(packet));
    }
    void audio(size_t slot, int64_t timestamp) {
        OwnedPacket packet(OBS_ENCODER_AUDIO, {1, 2}, timestamp, 48000);
        packet.track_idx = slot;
        EXPECT_TRUE(send(packet));
    }

    // The packet handed over since the last call; one of stream -1 when there is none.
    Sent next() {
        const std::vector<PacketHandle> sent = take();
        EXPECT_LE(sent.size(), 1U) << "more than one packet";
        if (sent.empty()) {
            return {{}, -1, 0, 0, 0, false};
        }
        const AVPacket &packet = *sent.front();
        const Bytes bytes = payload_of(packet);
        return {Buffer(bytes.begin(), bytes.end()), packet.stream_index, packet.pts, packet.dts,
            packet.duration, (packet.flags & AV_PKT_FLAG_KEY) != 0};
    }
    bool empty() { return next().stream == -1; }
};

// A stream that begins with anything else cannot be decoded by a receiver.
TEST(MpegTsPath, opens_with_a_complete_idr_and_lets_nothing_pass_before) {
    Path early(true, kAvcc);
    early.video(kSlice, 0, 0, false);
    early.audio(0, 0);
    early.video(kSlice, 1, 1, true); // flagged as a keyframe, but no IDR
    EXPECT_TRUE(early.empty());

    Path path(true, kAvcc);
    path.video(kIdr, 90, 90, true);
    EXPECT_EQ(path.next(), (Sent{kAud + kParameterSets + kIdr, 0, 0, 0, 3000, true}));
    // The base is overwritten by rebased values: later packets keep the encoder's timestamps.
    path.video(kSlice, 91, 91, false);
    EXPECT_EQ(path.next(), (Sent{kAud + kSlice, 0, 273000, 273000, 3000, false}));
    path.audio(0, 1024);
    EXPECT_EQ(path.next(), (Sent{{1, 2}, 1, 0, 0, 1920, false}));
}

// Parameter sets and delimiters that the encoder gave already must not stand there twice.
TEST(MpegTsPath, adds_only_what_an_access_unit_lacks) {
    Path annexb_header(true, kParameterSets);
    annexb_header.video(kParameterSets + kIdr, 0, 0, true);
    EXPECT_EQ(annexb_header.next().payload, kAud + kParameterSets + kIdr);
    Path complete(true, kAvcc);
    complete.video(kAud + kIdr, 0, 0, true);
    EXPECT_EQ(complete.next().payload, kParameterSets + kAud + kIdr);
    complete.video(kAud + kIdr, 1, 1, true);
    EXPECT_EQ(complete.next().payload, kAud + kIdr);
}

// Hardware encoders may give length-prefixed units, which MPEG-TS cannot carry.
TEST(MpegTsPath, converts_length_prefixed_units) {
    Path path(true, kAvcc);
    path.video({0, 0, 0, 3, 0x65, 0x88, 0x84}, 60, 60, true);
    const Sent first = path.next();
    EXPECT_EQ(nal_types_string(first.payload, 20), "[9,7,8,5]");
    EXPECT_EQ(first.dts, 0);
    EXPECT_TRUE(first.key);
    path.video({0, 0, 0, 3, 0x41, 0x9A, 0x24}, 61, 61, false);
    EXPECT_EQ(path.next(), (Sent{kAud + kSlice, 0, 183000, 183000, 3000, false}));
}

// FLV carries the encoder's own payload; audio may not start before the picture.
TEST(FlvPath, starts_at_a_keyframe_and_keeps_the_payload) {
    Path path(false, kAvcc);
    path.video(kSlice, 0, 0, false);
    path.audio(0, 0);
    EXPECT_TRUE(path.empty());
    path.video(kIdr, 3, 3, true);
    EXPECT_EQ(path.next(), (Sent{kIdr, 0, 100, 100, 33, true}));
    path.video(kSlice, 3, 3, false);
    EXPECT_EQ(path.next(), (Sent{kSlice, 0, 101, 101, 33, false})) << "an equal dts passed";
    path.video(kSlice, kNone, kNone, false);
    EXPECT_EQ(path.next(), (Sent{kSlice, 0, 134, 134, 33, false})) << "no dts was made up";
}

// Tracks start at different times and some slots have no stream.
TEST(FlvPath, rebases_each_audio_track_to_its_own_start) {
    Path path(false, kAvcc);
    path.video(kIdr, 0, 0, true);
    path.next();
    path.audio(2, 4800);
    EXPECT_EQ(path.next(), (Sent{{1, 2}, 2, 0, 0, 0, false}));
    path.audio(0, 9600);
    EXPECT_EQ(path.next(), (Sent{{1, 2}, 1, 0, 0, 0, false}));
    path.audio(2, 9600);
    EXPECT_EQ(path.next(), (Sent{{1, 2}, 2, 100, 100, 0, false}));
    path.audio(1, 0);
    path.audio(6, 0);
    EXPECT_TRUE(path.empty());
}

} // namespace

} // namespace corvane::test
