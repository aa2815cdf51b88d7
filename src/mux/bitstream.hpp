// SPDX-License-Identifier: GPL-2.0-or-later
// H.264 on the level of bytes: start codes, NAL types, parameter sets, delimiters.
#pragma once

#include "mux/av_handles.hpp"

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>

namespace corvane {

using Bytes = std::span<const uint8_t>;

// Whether the payload opens with a start code of three or four bytes.
bool is_annexb(Bytes payload);

// Whether any NAL unit of an Annex B payload is an access unit delimiter / an IDR slice.
bool has_aud(Bytes payload);
bool has_idr(Bytes payload);

// The NAL types in order as "[9,7,8,5]", at most `limit` of them.
std::string nal_types_string(Bytes payload, size_t limit);

// The parameter sets of an avcC record in Annex B form; nothing when the record is malformed,
// empty, or memory is short.
Block avcc_to_annexb_headers(Bytes avcc);

// Gives an empty packet a copy of the payload; false when memory is short or the payload is
// larger than a packet can be.
bool copy_payload(AVPacket &packet, Bytes payload);

// Puts parts in front of the packet's payload and keeps its timing, stream, flags and position.
// False when the packet is empty or memory is short.
bool prepend_to_packet(AVPacket &packet, std::initializer_list<Bytes> parts);

// Puts an access unit delimiter in front; failures as for prepend_to_packet().
bool prepend_aud(AVPacket &packet);

// 00 00 00 01 09 F0
Bytes aud_bytes();

inline Bytes payload_of(const AVPacket &packet) {
    return packet.data && packet.size > 0 ? Bytes(packet.data, static_cast<size_t>(packet.size))
                                          : Bytes();
}

} // namespace corvane
