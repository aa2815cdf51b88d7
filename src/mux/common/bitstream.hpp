// SPDX-License-Identifier: GPL-2.0-or-later
// H.264 byte streams: start codes, NAL types, parameter sets, delimiters.
#pragma once

#include "mux/common/av_handles.hpp"

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>

namespace corvane {

using Bytes = std::span<const uint8_t>;

// Whether the payload begins with a start code of three or four bytes.
bool is_annexb(Bytes payload);

// Whether any NAL unit of an Annex B payload is an access unit delimiter / an IDR slice.
bool has_aud(Bytes payload);
bool has_idr(Bytes payload);

// The NAL types in order as "[9,7,8,5]", at most `limit` of them.
std::string nal_types_string(Bytes payload, size_t limit);

// The parameter sets of an avcC record in Annex B form; empty when the record is malformed or has
// none, or memory is short.
Block avcc_to_annexb_headers(Bytes avcc);

// Copies the payload into an empty packet; false when memory is short or the payload is too large
// for a packet.
bool copy_payload(AVPacket &packet, Bytes payload);

// Puts parts in front of the packet's payload; timing, stream, flags and position stay.
// False when the packet is empty or memory is short.
bool prepend_to_packet(AVPacket &packet, std::initializer_list<Bytes> parts);

// The same with an access unit delimiter.
bool prepend_aud(AVPacket &packet);

// 00 00 00 01 09 F0
Bytes aud_bytes();

inline Bytes payload_of(const AVPacket &packet) {
    return packet.data && packet.size > 0 ? Bytes(packet.data, static_cast<size_t>(packet.size))
                                          : Bytes();
}

} // namespace corvane
