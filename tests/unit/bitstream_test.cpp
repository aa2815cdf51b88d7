// SPDX-License-Identifier: GPL-2.0-or-later
#include "mux/bitstream.hpp"

#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <string>
#include <vector>

using namespace corvane;
using Buffer = std::vector<uint8_t>;

namespace {

struct ScanCase {
    const char *fault;
    Buffer payload;
    bool annexb, aud, idr;
    const char *types;
};

class Scan : public testing::TestWithParam<ScanCase> {};

} // namespace

TEST_P(Scan, finds_what_the_bytes_hold) {
    const ScanCase &c = GetParam();
    SCOPED_TRACE(c.fault);
    EXPECT_EQ(is_annexb(c.payload), c.annexb);
    EXPECT_EQ(has_aud(c.payload), c.aud);
    EXPECT_EQ(has_idr(c.payload), c.idr);
    EXPECT_EQ(nal_types_string(c.payload, 20), c.types);
}

INSTANTIATE_TEST_SUITE_P(Payloads, Scan,
    testing::Values(ScanCase{"reads an empty payload", {}, false, false, false, "[]"},
        ScanCase{"reads past a bare start code", {0, 0, 1}, true, false, false, "[]"},
        ScanCase{"reads past four bytes", {0, 0, 1, 0x65}, true, false, false, "[]"},
        ScanCase{"misses a unit behind three bytes", {0, 0, 1, 0x65, 0}, true, false, true, "[5]"},
        ScanCase{"misses a unit behind four bytes", {0, 0, 0, 1, 0x65}, true, false, true, "[5]"},
        ScanCase{"sees a unit too near the end", {0, 0, 0, 1, 0x09, 0xF0, 0, 0, 1, 0x65}, true,
            true, false, "[9]"},
        ScanCase{"counts a four-byte start code twice, ignores the reference bits",
            {0, 0, 0, 1, 0x09, 0xF0, 0, 0, 0, 1, 0x67, 0x42, 0, 0, 1, 0x25, 0x88}, true, true, true,
            "[9,7,5]"},
        ScanCase{"takes a length prefix for a start code", {0, 0, 0, 5, 0x65, 1, 2, 3, 4}, false,
            false, false, "[]"},
        ScanCase{"takes the emulation byte for a start code", {0, 0, 1, 0x41, 0, 0, 3, 1, 0x65, 0},
            true, false, false, "[1]"}));

namespace {

// The definition: every position is tried, a long start code before a short one.
std::string types_by_definition(const Buffer &payload) {
    std::string types;
    for (size_t at = 0; at + 5 <= payload.size(); ++at) {
        const auto *const p = &payload[at];
        const bool long_code = p[0] == 0 && p[1] == 0 && p[2] == 0 && p[3] == 1;
        if (long_code || (p[0] == 0 && p[1] == 0 && p[2] == 1)) {
            at += long_code ? 4 : 3;
            types += (types.empty() ? "" : ",") + std::to_string(payload[at] & 0x1F);
            --at;
        }
    }
    return "[" + types + "]";
}

} // namespace

// A search that takes short cuts differs where start codes touch, overlap or reach the end.
TEST(NalTypes, are_those_of_a_plain_search_in_every_short_payload) {
    constexpr uint8_t kBytes[] = {0, 1, 0x65};
    for (size_t size = 0, count = 1; size <= 10; ++size, count *= std::size(kBytes)) {
        Buffer payload(size);
        for (size_t number = 0; number < count; ++number) {
            for (size_t at = 0, rest = number; at < size; ++at, rest /= std::size(kBytes)) {
                payload[at] = kBytes[rest % std::size(kBytes)];
            }
            const std::string types = types_by_definition(payload);
            ASSERT_EQ(nal_types_string(payload, 20), types) << testing::PrintToString(payload);
        }
    }
}

TEST(NalTypes, are_cut_at_the_limit) {
    const Buffer payload = {0, 0, 1, 9, 0, 0, 1, 7, 0, 0, 1, 8, 0, 0};
    EXPECT_EQ(nal_types_string(payload, 2), "[9,7]");
}

namespace {

struct AvccCase {
    const char *fault;
    Buffer avcc;
    std::optional<Buffer> headers;
};

class Avcc : public testing::TestWithParam<AvccCase> {};

} // namespace

TEST_P(Avcc, becomes_annexb_headers_or_nothing) {
    const AvccCase &c = GetParam();
    SCOPED_TRACE(c.fault);
    const Block block = avcc_to_annexb_headers(c.avcc);
    ASSERT_EQ(static_cast<bool>(block), c.headers.has_value());
    if (block) {
        EXPECT_EQ(Buffer(block.data.get(), block.data.get() + block.size), *c.headers);
    }
}

INSTANTIATE_TEST_SUITE_P(Records, Avcc,
    testing::Values(AvccCase{"loses a set, keeps the reserved bits",
                        {1, 100, 0, 40, 0xFF, 0xE1, 0, 2, 0x67, 0xAA, 1, 0, 1, 0x68},
                        Buffer{0, 0, 0, 1, 0x67, 0xAA, 0, 0, 0, 1, 0x68}},
        AvccCase{"stops at the first of several sets",
            {1, 0, 0, 0, 0, 2, 0, 1, 0x67, 0, 1, 0x27, 2, 0, 1, 0x68, 0, 1, 0x28},
            Buffer{0, 0, 0, 1, 0x67, 0, 0, 0, 1, 0x27, 0, 0, 0, 1, 0x68, 0, 0, 0, 1, 0x28}},
        AvccCase{"refuses a record whose picture sets are cut at a length",
            {1, 0, 0, 0, 0, 1, 0, 1, 0x67, 2, 0, 1, 0x68, 0},
            Buffer{0, 0, 0, 1, 0x67, 0, 0, 0, 1, 0x68}},
        AvccCase{"converts Annex B headers", {0, 0, 0, 1, 0x67, 0, 0, 0}, {}},
        AvccCase{"reads a record of seven bytes", {1, 0, 0, 0, 0, 0, 0}, {}},
        AvccCase{"gives an empty block", {1, 0, 0, 0, 0, 0, 0, 0}, {}},
        AvccCase{"reads past a cut sequence set", {1, 0, 0, 0, 0, 1, 0, 9, 0x67}, {}},
        AvccCase{"reads past a cut picture set", {1, 0, 0, 0, 0, 1, 0, 1, 0x67, 1, 0, 9, 0x68}, {}},
        AvccCase{"reads a picture count behind the end", {1, 0, 0, 0, 0, 1, 0, 1, 0x67}, {}}));

TEST(PrependAud, keeps_timing_and_refuses_an_empty_packet) {
    const PacketHandle packet(av_packet_alloc());
    EXPECT_FALSE(prepend_aud(*packet)) << "an empty packet got a delimiter";
    ASSERT_EQ(av_new_packet(packet.get(), 3), 0);
    std::memcpy(packet->data, "\x65\x88\x84", 3);
    packet->pts = 7;
    packet->dts = 6;
    packet->duration = 5;
    packet->stream_index = 4;
    packet->flags = AV_PKT_FLAG_KEY;
    packet->pos = 3;
    ASSERT_TRUE(prepend_aud(*packet));
    const Bytes payload = payload_of(*packet);
    EXPECT_EQ(
        Buffer(payload.begin(), payload.end()), (Buffer{0, 0, 0, 1, 0x09, 0xF0, 0x65, 0x88, 0x84}));
    EXPECT_EQ(packet->pts, 7);
    EXPECT_EQ(packet->dts, 6);
    EXPECT_EQ(packet->duration, 5);
    EXPECT_EQ(packet->stream_index, 4);
    EXPECT_EQ(packet->flags, AV_PKT_FLAG_KEY);
    EXPECT_EQ(packet->pos, 3);
}
