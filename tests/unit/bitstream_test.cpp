// SPDX-License-Identifier: GPL-2.0-or-later
#include "mux/common/bitstream.hpp"
#include "support/encoded_packets.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <tuple>

namespace corvane::test {

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

// A search that takes short cuts differs where start codes touch, overlap or reach the end.
TEST(AnnexB, is_scanned_as_defined_in_every_short_payload) {
    for (const uint8_t unit : {0x25, 0x69}) {
        const std::array<uint8_t, 3> bytes = {0, 1, unit};
        for (size_t size = 0, count = 1; size <= 10; ++size, count *= bytes.size()) {
            Buffer payload(size);
            for (size_t number = 0; number < count; ++number) {
                for (size_t at = 0, rest = number; at < size; ++at, rest /= bytes.size()) {
                    payload[at] = bytes[rest % bytes.size()];
                }
                const std::string types = types_by_definition(payload);
                const auto has = [&](char type) {
                    return types.find(type) != std::string::npos;
                };
                const auto one = std::ranges::find(payload, 1) - payload.begin();
                const bool opens =
                    (one == 2 || one == 3) && one < std::ssize(payload) &&
                    std::ranges::count(payload.begin(), payload.begin() + one, 0) == one;
                ASSERT_EQ(std::tuple(is_annexb(payload), has_idr(payload), has_aud(payload),
                              nal_types_string(payload, 20)),
                    std::tuple(opens, has('5'), has('9'), types))
                    << testing::PrintToString(payload);
            }
        }
    }
}

TEST(AnnexB, types_are_in_order_and_cut_at_the_limit) {
    const Buffer payload{
        0, 0, 0, 1, 9, 0xF0, 0, 0, 0, 1, 0x67, 0, 0, 3, 1, 0x42, 0, 0, 1, 0x25, 0x88};
    EXPECT_EQ(nal_types_string(payload, 3), "[9,7,5]");
    EXPECT_EQ(nal_types_string(payload, 2), "[9,7]");
    EXPECT_TRUE(has_idr(payload));
}

TEST(Avcc, becomes_annexb_headers_or_nothing) {
    struct Case {
        const char *fault;
        Buffer avcc;
        std::optional<Buffer> headers;
    };
    for (const auto &[fault, avcc, headers] :
        {Case{"loses a set, keeps the reserved bits", kAvcc, kParameterSets},
            {"stops at the first of several sets",
                {1, 0, 0, 0, 0, 2, 0, 1, 0x67, 0, 1, 0x27, 2, 0, 1, 0x68, 0, 1, 0x28},
                Buffer{0, 0, 0, 1, 0x67, 0, 0, 0, 1, 0x27, 0, 0, 0, 1, 0x68, 0, 0, 0, 1, 0x28}},
            {"refuses a record whose picture sets are cut at a length",
                {1, 0, 0, 0, 0, 1, 0, 1, 0x67, 2, 0, 1, 0x68, 0},
                Buffer{0, 0, 0, 1, 0x67, 0, 0, 0, 1, 0x68}},
            {"converts Annex B headers", {0, 0, 0, 1, 0x67, 0, 0, 0}, {}},
            {"reads a record of seven bytes", {1, 0, 0, 0, 0, 0, 0}, {}},
            {"gives an empty block", {1, 0, 0, 0, 0, 0, 0, 0}, {}},
            {"reads past a cut sequence set", {1, 0, 0, 0, 0, 1, 0, 9, 0x67}, {}},
            {"reads past a cut picture set", {1, 0, 0, 0, 0, 1, 0, 1, 0x67, 1, 0, 9, 0x68}, {}},
            {"reads a picture count behind the end", {1, 0, 0, 0, 0, 1, 0, 1, 0x67}, {}}}) {
        const Block block = avcc_to_annexb_headers(avcc);
        ASSERT_EQ(static_cast<bool>(block), headers.has_value()) << fault;
        if (block) {
            EXPECT_EQ(Buffer(block.data.get(), block.data.get() + block.size), *headers) << fault;
        }
    }
}

TEST(PrependAud, keeps_all_else_and_refuses_an_empty_packet) {
    const PacketHandle packet(av_packet_alloc());
    EXPECT_FALSE(prepend_aud(*packet));
    ASSERT_TRUE(copy_payload(*packet, kIdr));
    packet->pts = 7;
    packet->dts = 6;
    packet->duration = 5;
    packet->stream_index = 4;
    packet->flags = AV_PKT_FLAG_KEY;
    packet->pos = 3;
    ASSERT_TRUE(prepend_aud(*packet));
    EXPECT_EQ(Buffer(packet->data, packet->data + packet->size), kAud + kIdr);
    EXPECT_EQ(std::tuple(packet->pts, packet->dts, packet->duration, packet->stream_index,
                  packet->flags, packet->pos),
        std::tuple(7, 6, 5, 4, AV_PKT_FLAG_KEY, 3));
}

} // namespace

} // namespace corvane::test
