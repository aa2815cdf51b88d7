// SPDX-License-Identifier: GPL-2.0-or-later
// Packets through preparation and gate into the queue, with a muxer that is never connected.
#include "testbed/path_rig.hpp"

#include <gtest/gtest.h>

using namespace corvane;
using namespace corvane::test;

namespace {

constexpr int64_t kNone = AV_NOPTS_VALUE;
const Buffer kAvcc = {1, 100, 0, 40, 0xFF, 0xE1, 0, 2, 0x67, 0xAA, 1, 0, 2, 0x68, 0xBB};
const Buffer kAud = {0, 0, 0, 1, 0x09, 0xF0};
const Buffer kSets = {0, 0, 0, 1, 0x67, 0xAA, 0, 0, 0, 1, 0x68, 0xBB};
const Buffer kIdr = {0, 0, 0, 1, 0x65, 0x88, 0x84};
const Buffer kSlice = {0, 0, 0, 1, 0x41, 0x9A, 0x24};

Buffer operator+(Buffer left, const Buffer &right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

} // namespace

// A stream that begins with anything else cannot be decoded by a receiver.
TEST(MpegTsPath, opens_with_a_complete_idr_and_lets_nothing_pass_before) {
    PathRig early(true, kAvcc);
    early.video(kSlice, 0, 0, false);
    early.audio(0, 0);
    early.video(kSlice, 1, 1, true); // flagged as a keyframe, but no IDR
    EXPECT_TRUE(early.empty());

    PathRig path(true, kAvcc);
    path.video(kIdr, 90, 90, true);
    EXPECT_EQ(path.next(), (Queued{kAud + kSets + kIdr, 0, 0, 0, 3000, true}));
    // The base is overwritten by rebased values: later packets keep the encoder's timestamps.
    path.video(kSlice, 91, 91, false);
    EXPECT_EQ(path.next(), (Queued{kAud + kSlice, 0, 273000, 273000, 3000, false}));
    path.audio(0, 1024);
    EXPECT_EQ(path.next(), (Queued{{1, 2}, 1, 0, 0, 1920, false}));
}

// Parameter sets and delimiters that the encoder gave already must not stand there twice.
TEST(MpegTsPath, adds_only_what_an_access_unit_lacks) {
    PathRig annexb_header(true, kSets);
    annexb_header.video(kSets + kIdr, 0, 0, true);
    EXPECT_EQ(annexb_header.next().payload, kAud + kSets + kIdr);
    PathRig complete(true, kAvcc);
    complete.video(kAud + kIdr, 0, 0, true);
    EXPECT_EQ(complete.next().payload, kSets + kAud + kIdr);
    complete.video(kAud + kIdr, 1, 1, true);
    EXPECT_EQ(complete.next().payload, kAud + kIdr);
}

// Hardware encoders may give length-prefixed units, which MPEG-TS cannot carry.
TEST(MpegTsPath, converts_length_prefixed_units) {
    PathRig path(true, kAvcc);
    path.video({0, 0, 0, 3, 0x65, 0x88, 0x84}, 60, 60, true);
    const Queued first = path.next();
    EXPECT_EQ(
        Buffer(first.payload.begin(), first.payload.begin() + 10), kAud + Buffer({0, 0, 0, 1}));
    EXPECT_TRUE(has_idr(first.payload));
    EXPECT_EQ(nal_types_string(first.payload, 20), "[9,7,8,5]");
    EXPECT_EQ(first.dts, 0);
    EXPECT_TRUE(first.key);
    path.video({0, 0, 0, 3, 0x41, 0x9A, 0x24}, 61, 61, false);
    EXPECT_EQ(path.next(), (Queued{kAud + kSlice, 0, 183000, 183000, 3000, false}));
}

// FLV carries the encoder's own payload; audio may not start before the picture.
TEST(FlvPath, starts_at_a_keyframe_and_keeps_the_payload) {
    PathRig path(false, kAvcc);
    path.video(kSlice, 0, 0, false);
    path.audio(0, 0);
    EXPECT_TRUE(path.empty());
    path.video(kIdr, 3, 3, true);
    EXPECT_EQ(path.next(), (Queued{kIdr, 0, 100, 100, 33, true}));
    path.video(kSlice, 3, 3, false);
    EXPECT_EQ(path.next(), (Queued{kSlice, 0, 101, 101, 33, false})) << "an equal dts passed";
    path.video(kSlice, kNone, kNone, false);
    EXPECT_EQ(path.next(), (Queued{kSlice, 0, 134, 134, 33, false})) << "no dts was made up";
}

// Tracks start at different times and some slots have no stream.
TEST(FlvPath, rebases_each_audio_track_to_its_own_start) {
    PathRig path(false, kAvcc);
    path.video(kIdr, 0, 0, true);
    path.next();
    path.audio(2, 4800);
    EXPECT_EQ(path.next(), (Queued{{1, 2}, 2, 0, 0, 0, false}));
    path.audio(0, 9600);
    EXPECT_EQ(path.next(), (Queued{{1, 2}, 1, 0, 0, 0, false}));
    path.audio(2, 9600);
    EXPECT_EQ(path.next(), (Queued{{1, 2}, 2, 100, 100, 0, false}));
    path.audio(1, 0);
    path.audio(6, 0);
    EXPECT_TRUE(path.empty());
}
