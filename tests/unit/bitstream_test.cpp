// SPDX-License-Identifier: GPL-2.0-or-later
#include "mux/common/bitstream.hpp"
#include "support/encoded_packets.hpp"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <tuple>

using namespace corvane;
using namespace corvane::test;
using namespace std::string_literals;

namespace {

// The definition: every position is tried, a long start code before a short one.
std::string types_by_definition(const std::string &payload, size_t limit) {
    std::string types;
    for (size_t at = 0; at + 5 <= payload.size() && limit > 0; ++at) {
        const bool long_code = payload.compare(at, 4, "\0\0\0\1"s) == 0;
        if (long_code || payload.compare(at, 3, "\0\0\1"s) == 0) {
            at += long_code ? 3 : 2;
            types += (types.empty() ? "" : ",") + std::to_string(payload[at + 1] & 0x1F);
            --limit;
        }
    }
    return "[" + types + "]";
}

// A search that takes short cuts differs where start codes touch, overlap or reach the end.
TEST(AnnexB, is_scanned_as_defined_in_every_short_payload) {
    // Each number stands for one string of three different bytes, the next ones for longer strings.
    constexpr int kUpToTenBytes = 88573; // 3^0 + 3^1 + ... + 3^10
    for (const char unit : {'\x25', '\x69'}) {
        const std::array bytes = {'\0', '\1', unit};
        for (int number = 0; number < kUpToTenBytes; ++number) {
            std::string text;
            for (int rest = number; rest > 0; rest = (rest - 1) / 3) {
                text += bytes[static_cast<size_t>(rest - 1) % 3];
            }
            const Buffer payload(text.begin(), text.end());
            const std::string types = types_by_definition(text, 20);
            const auto has = [&](char type) {
                return types.find(type) != std::string::npos;
            };
            const bool opens = text.starts_with("\0\0\1"s) || text.starts_with("\0\0\0\1"s);
            ASSERT_EQ(std::tuple(is_annexb(payload), has_idr(payload), has_aud(payload),
                          nal_types_string(payload, 20), nal_types_string(payload, 1)),
                std::tuple(opens, has('5'), has('9'), types, types_by_definition(text, 1)))
                << testing::PrintToString(payload);
        }
    }
}

TEST(Avcc, becomes_annexb_headers_or_nothing) {
    struct Case {
        const char *fault;
        Buffer avcc, headers;
    };
    for (const auto &[fault, avcc, headers] :
        {Case{"stops at the first of several sets",
             {1, 0, 0, 0, 0, 2, 0, 1, 0x67, 0, 1, 0x27, 2, 0, 1, 0x68, 0, 1, 0x28},
             {0, 0, 0, 1, 0x67, 0, 0, 0, 1, 0x27, 0, 0, 0, 1, 0x68, 0, 0, 0, 1, 0x28}},
            {"refuses a record whose picture sets are cut at a length",
                {1, 0, 0, 0, 0, 1, 0, 1, 0x67, 2, 0, 1, 0x68, 0},
                {0, 0, 0, 1, 0x67, 0, 0, 0, 1, 0x68}},
            {"reads a record of seven bytes", {1, 0, 0, 0, 0, 0, 0}, {}},
            {"gives an empty block", {1, 0, 0, 0, 0, 0, 0, 0}, {}},
            {"reads past a cut sequence set", {1, 0, 0, 0, 0, 1, 0, 9, 0x67}, {}},
            {"reads past a cut picture set", {1, 0, 0, 0, 0, 1, 0, 1, 0x67, 1, 0, 9, 0x68}, {}},
            {"reads a picture count behind the end", {1, 0, 0, 0, 0, 1, 0, 1, 0x67}, {}}}) {
        const Block block = avcc_to_annexb_headers(avcc);
        EXPECT_EQ(static_cast<bool>(block), !headers.empty()) << fault;
        EXPECT_EQ(Buffer(block.data.get(), block.data.get() + block.size), headers) << fault;
    }
}

} // namespace
