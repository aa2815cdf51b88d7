// SPDX-License-Identifier: GPL-2.0-or-later
// Packets through preparation and gate into the queue, with a muxer that is never connected.
#include "testbed/path_rig.hpp"

#include <gtest/gtest.h>

using namespace corvane;
using namespace corvane::test;

namespace {

constexpr int64_t kNone = AV_NOPTS_VALUE;
const Buffer avcc = {1, 100, 0, 40, 0xFF, 0xE1, 0, 2, 0x67, 0xAA, 1, 0, 2, 0x68, 0xBB};
const Buffer aud = {0, 0, 0, 1, 0x09, 0xF0};
const Buffer sets = {0, 0, 0, 1, 0x67, 0xAA, 0, 0, 0, 1, 0x68, 0xBB};
const Buffer idr = {0, 0, 0, 1, 0x65, 0x88, 0x84};
const Buffer slice = {0, 0, 0, 1, 0x41, 0x9A, 0x24};

Buffer operator+(Buffer left, const Buffer &right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

} // namespace

// A stream that begins with anything else cannot be decoded by a receiver.
TEST(MpegTsPath, opens_with_a_complete_idr_and_lets_nothing_pass_before) {
    PathRig early(true, avcc);
    early.video(slice, 0, 0, false);
    early.audio(0, 0);
    early.video(slice, 1, 1, true); // flagged as a keyframe, but no IDR
    EXPECT_TRUE(early.empty());

    PathRig path(true, avcc);
    path.video(idr, 90, 90, true);
    EXPECT_EQ(path.next(), (Queued{aud + sets + idr, 0, 0, 0, 3000, true}));
    // The base is overwritten by rebased values: later packets keep the encoder's timestamps.
    path.video(slice, 91, 91, false);
    EXPECT_EQ(path.next(), (Queued{aud + slice, 0, 273000, 273000, 3000, false}));
    path.audio(0, 1024);
    EXPECT_EQ(path.next(), (Queued{{1, 2}, 1, 0, 0, 1920, false}));
}

// Parameter sets and delimiters that the encoder gave already must not stand there twice.
TEST(MpegTsPath, adds_only_what_an_access_unit_lacks) {
    PathRig annexb_header(true, sets);
    annexb_header.video(sets + idr, 0, 0, true);
    EXPECT_EQ(annexb_header.next().payload, aud + sets + idr);
    PathRig complete(true, avcc);
    complete.video(aud + idr, 0, 0, true);
    EXPECT_EQ(complete.next().payload, sets + aud + idr);
    complete.video(aud + idr, 1, 1, true);
    EXPECT_EQ(complete.next().payload, aud + idr);
}

// Hardware encoders may give length-prefixed units, which MPEG-TS cannot carry.
TEST(MpegTsPath, converts_length_prefixed_units) {
    PathRig path(true, avcc);
    path.video({0, 0, 0, 3, 0x65, 0x88, 0x84}, 60, 60, true);
    const Queued first = path.next();
    ASSERT_GE(first.payload.size(), 10U);
    EXPECT_EQ(
        Buffer(first.payload.begin(), first.payload.begin() + 10), aud + Buffer({0, 0, 0, 1}));
    EXPECT_TRUE(has_idr(first.payload));
    EXPECT_EQ(nal_types_string(first.payload, 20), "[9,7,8,5]");
    EXPECT_EQ(first.dts, 0);
    EXPECT_TRUE(first.key);
    path.video({0, 0, 0, 3, 0x41, 0x9A, 0x24}, 61, 61, false);
    EXPECT_EQ(path.next(), (Queued{aud + slice, 0, 183000, 183000, 3000, false}));
}

// FLV carries the encoder's own payload; audio may not start before the picture.
TEST(FlvPath, starts_at_a_keyframe_and_keeps_the_payload) {
    PathRig path(false, avcc);
    path.video(slice, 0, 0, false);
    path.audio(0, 0);
    EXPECT_TRUE(path.empty());
    path.video(idr, 3, 3, true);
    EXPECT_EQ(path.next(), (Queued{idr, 0, 100, 100, 33, true}));
    path.video(slice, 3, 3, false);
    EXPECT_EQ(path.next(), (Queued{slice, 0, 101, 101, 33, false})) << "an equal dts passed";
    path.video(slice, kNone, kNone, false);
    EXPECT_EQ(path.next(), (Queued{slice, 0, 134, 134, 33, false})) << "no dts was made up";
}

// Tracks start at different times and some slots have no stream.
TEST(FlvPath, rebases_each_audio_track_to_its_own_start) {
    PathRig path(false, avcc);
    path.video(idr, 0, 0, true);
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
