// SPDX-License-Identifier: GPL-2.0-or-later
#include "mux/common/bitstream.hpp"

extern "C" {
#include <libavutil/mem.h>
}

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>
#include <vector>

namespace corvane {

namespace {

constexpr uint8_t kNalTypeMask = 0x1F;
constexpr uint8_t kNalIdr = 5;
constexpr uint8_t kNalAud = 9;
constexpr uint8_t kSpsCountMask = 0x1F;
constexpr size_t kSpsCountAt = 5;
constexpr size_t kSmallestAvcc = 8;
constexpr uint8_t kAvccVersion = 1;
constexpr std::array<uint8_t, 4> kStartCode = {0, 0, 0, 1};
constexpr std::array<uint8_t, 3> kShortStartCode = {0, 0, 1};
constexpr std::array<uint8_t, 6> kAud = {0, 0, 0, 1, 0x09, 0xF0};

bool starts_with(Bytes payload, Bytes prefix) {
    return payload.size() >= prefix.size() &&
           std::ranges::equal(payload.first(prefix.size()), prefix);
}

// av_new_packet takes an int.
bool new_packet(AVPacket &packet, size_t size) {
    return std::in_range<int>(size) && av_new_packet(&packet, static_cast<int>(size)) == 0;
}

// Walks the NAL units of an Annex B payload.
class NalScan {
public:
    explicit NalScan(Bytes payload)
        : payload_(payload) {}

    // Moves to the next unit; false when there is none. Finds only units whose start code begins
    // at least five bytes before the end. Searches start codes by their last byte: coded slices
    // contain few bytes of value 1, and memchr() is fast.
    bool next() {
        for (size_t one = find_one(position_ + 2); one + 1 < payload_.size();
            one = find_one(one + 1)) {
            if (payload_[one - 1] != 0 || payload_[one - 2] != 0) {
                continue;
            }
            const bool long_code = one >= position_ + 3 && payload_[one - 3] == 0;
            if (one - (long_code ? 3 : 2) + 5 <= payload_.size()) {
                position_ = one + 1;
                type_ = payload_[position_] & kNalTypeMask;
                return true;
            }
        }
        return false;
    }

    uint8_t type() const { return type_; }

private:
    // Position of the next byte of value 1; the payload's size when there is none.
    size_t find_one(size_t from) const {
        if (from >= payload_.size()) {
            return payload_.size();
        }
        const Bytes rest = payload_.subspan(from);
        const void *one = std::memchr(rest.data(), 1, rest.size());
        return one ? static_cast<size_t>(static_cast<const uint8_t *>(one) - payload_.data())
                   : payload_.size();
    }

    Bytes payload_;
    size_t position_ = 0;
    uint8_t type_ = 0;
};

bool has_nal(Bytes payload, uint8_t type) {
    for (NalScan scan(payload); scan.next();) {
        if (scan.type() == type) {
            return true;
        }
    }
    return false;
}

// Appends the `count` length-prefixed units at `position` in Annex B form. A truncated length
// field ends the list; a truncated unit makes the record malformed (false).
bool append_units(Bytes avcc, size_t &position, size_t count, std::vector<uint8_t> &headers) {
    for (size_t i = 0; i < count && position + 2 <= avcc.size(); ++i) {
        const size_t length = (size_t{avcc[position]} << 8) | avcc[position + 1];
        position += 2;
        if (length > avcc.size() - position) {
            return false;
        }
        const Bytes unit = avcc.subspan(position, length);
        headers.insert(headers.end(), kStartCode.begin(), kStartCode.end());
        headers.insert(headers.end(), unit.begin(), unit.end());
        position += length;
    }
    return true;
}

} // namespace

bool is_annexb(Bytes payload) {
    return starts_with(payload, kShortStartCode) || starts_with(payload, kStartCode);
}

bool has_aud(Bytes payload) {
    return has_nal(payload, kNalAud);
}

bool has_idr(Bytes payload) {
    return has_nal(payload, kNalIdr);
}

std::string nal_types_string(Bytes payload, size_t limit) {
    std::string types;
    NalScan scan(payload);
    for (size_t count = 0; count < limit && scan.next(); ++count) {
        types += (count > 0 ? "," : "") + std::to_string(scan.type());
    }
    return "[" + types + "]";
}

Block avcc_to_annexb_headers(Bytes avcc) {
    if (avcc.size() < kSmallestAvcc || avcc[0] != kAvccVersion) {
        return {};
    }
    std::vector<uint8_t> headers;
    size_t position = kSpsCountAt + 1;
    if (!append_units(avcc, position, avcc[kSpsCountAt] & kSpsCountMask, headers) ||
        position >= avcc.size()) {
        return {};
    }
    const size_t pps_count = avcc[position++];
    if (!append_units(avcc, position, pps_count, headers) || headers.empty()) {
        return {};
    }
    auto *data = static_cast<uint8_t *>(av_mallocz(headers.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    if (!data) {
        return {};
    }
    std::memcpy(data, headers.data(), headers.size());
    return {.data = std::unique_ptr<uint8_t, FreeBlock>(data), .size = headers.size()};
}

bool copy_payload(AVPacket &packet, Bytes payload) {
    if (!new_packet(packet, payload.size())) {
        return false;
    }
    std::ranges::copy(payload, packet.data);
    return true;
}

bool prepend_to_packet(AVPacket &packet, std::initializer_list<Bytes> parts) {
    const Bytes payload = payload_of(packet);
    if (payload.empty()) {
        return false;
    }
    size_t size = payload.size();
    for (const Bytes part : parts) {
        size += part.size();
    }
    const PacketHandle joined(av_packet_alloc());
    if (!joined || !new_packet(*joined, size)) {
        return false;
    }
    uint8_t *end = joined->data;
    for (const Bytes part : parts) {
        end = std::ranges::copy(part, end).out;
    }
    std::ranges::copy(payload, end);
    joined->pts = packet.pts;
    joined->dts = packet.dts;
    joined->duration = packet.duration;
    joined->stream_index = packet.stream_index;
    joined->flags = packet.flags;
    joined->pos = packet.pos;
    av_packet_unref(&packet);
    av_packet_move_ref(&packet, joined.get());
    return true;
}

bool prepend_aud(AVPacket &packet) {
    return prepend_to_packet(packet, {aud_bytes()});
}

Bytes aud_bytes() {
    return kAud;
}

} // namespace corvane
