// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <obs-avc.h>
#include <obs.h>
#include <util/bmem.h>

#include <algorithm>
#include <cstdint>
#include <vector>

namespace corvane::test {

using Buffer = std::vector<uint8_t>;

// An avcC record with one parameter set of each kind, and the sets in Annex B form.
inline const Buffer kAvcc{1, 100, 0, 40, 0xFF, 0xE1, 0, 2, 0x67, 0xAA, 1, 0, 2, 0x68, 0xBB};
inline const Buffer kParameterSets{0, 0, 0, 1, 0x67, 0xAA, 0, 0, 0, 1, 0x68, 0xBB};

// A delimiter and frames in Annex B form.
inline const Buffer kAud{0, 0, 0, 1, 0x09, 0xF0};
inline const Buffer kIdr{0, 0, 0, 1, 0x65, 0x88, 0x84};
inline const Buffer kSlice{0, 0, 0, 1, 0x41, 0x9A, 0x24};

inline Buffer operator+(Buffer left, const Buffer &right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

// A packet as libobs makes them: the number of its references stands in front of the payload.
struct OwnedPacket : encoder_packet {
    OwnedPacket(obs_encoder_type type, const Buffer &payload, int64_t time, int rate)
        : encoder_packet{} {
        auto *block = static_cast<long *>(bmalloc(sizeof(long) + payload.size()));
        *block = 1;
        data = reinterpret_cast<uint8_t *>(block + 1);
        std::ranges::copy(payload, data);
        size = payload.size();
        this->type = type;
        pts = dts = time;
        timebase_num = 1;
        timebase_den = rate;
    }
    ~OwnedPacket() { obs_encoder_packet_release(this); }
    OwnedPacket(const OwnedPacket &) = delete;
    OwnedPacket &operator=(const OwnedPacket &) = delete;
};

} // namespace corvane::test
