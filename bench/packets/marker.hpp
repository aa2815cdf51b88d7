// SPDX-License-Identifier: GPL-2.0-or-later
// What tells packets apart on the wire.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace corvane::bench {

// A packet's number, written over a few bytes of its payload. Every byte has its high bit set, so
// that no start code can come about.
class Marker {
public:
    static constexpr size_t kSize = 16;
    // Behind the NAL header of a first slice, and early enough that neither the first RTMP chunk
    // nor the first TS packet of a payload ends within it.
    static constexpr size_t kOffset = 8;
    static constexpr size_t kLeastPayload = kOffset + kSize;

    // The payload holds kLeastPayload bytes or more.
    static void write(std::span<uint8_t> payload, uint64_t number) {
        size_t at = kOffset;
        for (const uint8_t byte : kMagic) {
            payload[at++] = byte;
        }
        for (; at < kLeastPayload; ++at, number >>= 7U) {
            payload[at] = 0x80U | (number & 0x7FU);
        }
    }

    static uint64_t read(std::span<const uint8_t> payload) {
        return number_in(payload.subspan(kOffset + kMagic.size()));
    }

private:
    friend class MarkerSearch;

    static constexpr std::array<uint8_t, 8> kMagic = {
        0xC7, 0xA1, 0xE9, 0x93, 0xF5, 0x8B, 0xD3, 0xB7};

    static uint64_t number_in(std::span<const uint8_t> bytes) {
        uint64_t number = 0;
        for (size_t i = kSize - kMagic.size(); i > 0; --i) {
            number = number << 7U | (bytes[i - 1] & 0x7FU);
        }
        return number;
    }
};

// Finds markers in a stream of bytes that comes in pieces.
class MarkerSearch {
public:
    // Calls found(number) for each marker that ends in this piece.
    template <typename Found>
    void feed(std::span<const uint8_t> piece, Found found) {
        for (const uint8_t byte : piece) {
            if (matched_ >= Marker::kMagic.size()) {
                number_[matched_ - Marker::kMagic.size()] = byte;
                if (++matched_ == Marker::kSize) {
                    found(Marker::number_in(number_));
                    matched_ = 0;
                }
            } else if (byte == Marker::kMagic[matched_]) {
                ++matched_;
            } else {
                // No byte is twice in the magic.
                matched_ = byte == Marker::kMagic[0] ? 1 : 0;
            }
        }
    }

private:
    size_t matched_ = 0;
    std::array<uint8_t, Marker::kSize - Marker::kMagic.size()> number_ = {};
};

} // namespace corvane::bench
