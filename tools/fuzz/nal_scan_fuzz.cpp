// SPDX-License-Identifier: GPL-2.0-or-later
// Annex B payloads: the scans agree with the list of units, the list with a plain reading of the
// bytes, and a delimiter put in front leaves everything behind it as it was.
#include "check.hpp"

#include "mux/bitstream.hpp"

#include <algorithm>
#include <string>

using corvane::Bytes;
using corvane::fuzz::check;

namespace {

// A start code counts when at least one byte of its unit and five bytes in all follow its begin.
std::string plain_list(Bytes payload, size_t limit, bool &aud, bool &idr) {
    std::string list;
    size_t listed = 0;
    for (size_t at = 0; at + 5 <= payload.size(); ++at) {
        const size_t zeros =
            payload[at] == 0 && payload[at + 1] == 0 ? (payload[at + 2] == 0 ? 3 : 2) : 0;
        if (zeros == 0 || payload[at + zeros] != 1) {
            continue;
        }
        at += zeros + 1;
        const int type = payload[at] % 32;
        aud |= type == 9;
        idr |= type == 5;
        if (listed++ < limit) {
            list += (list.empty() ? "" : ",") + std::to_string(type);
        }
        --at; // the header byte may open the next start code
    }
    return "[" + list + "]";
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) {
        return 0;
    }
    const size_t limit = data[0] % 32;
    const Bytes payload(data + 1, size - 1);
    bool aud = false;
    bool idr = false;
    const std::string list = plain_list(payload, limit, aud, idr);
    check(corvane::nal_types_string(payload, limit) == list, "the units are listed");
    check(corvane::has_aud(payload) == aud, "a delimiter is found");
    check(corvane::has_idr(payload) == idr, "an IDR slice is found");

    const corvane::PacketHandle packet(av_packet_alloc());
    check(corvane::copy_payload(*packet, payload), "a payload is copied");
    const auto time = static_cast<int64_t>(size);
    packet->pts = time;
    const bool prepended = corvane::prepend_aud(*packet);
    check(prepended == !payload.empty(), "an empty packet gets no delimiter");
    if (prepended) {
        const Bytes joined = corvane::payload_of(*packet);
        check(corvane::is_annexb(joined) && corvane::has_aud(joined), "the delimiter is there");
        check(joined.size() == payload.size() + 6 && std::ranges::equal(joined.subspan(6), payload),
            "the payload is whole");
        check(packet->pts == time, "the time is kept");
    }
    return 0;
}
