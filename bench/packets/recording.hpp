// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace corvane::bench {

inline constexpr int kSampleRate = 48000;
inline constexpr int kSamplesPerFrame = 1024;

// What is streamed: how it departs from the recording.
struct Shape {
    int tracks = 6;
    int fps = 30;
    double megabits = 0; // a second, of video; 0 leaves the payloads as they are
};

// Encoded video and sound as libobs's encoders give them: Annex B and bare AAC frames.
class Recording {
public:
    struct Packet {
        std::vector<uint8_t> payload; // at least as long as a marker needs
        bool keyframe;
    };
    struct Track {
        std::vector<uint8_t> header; // what encoders call extra data
        std::vector<Packet>
            packets; // of equal length in time, without end: the first follows the last

        const Packet &at(int64_t number) const {
            return packets[static_cast<size_t>(number) % packets.size()];
        }
    };

    // The file holds one H.264 track without B-frames at 30 fps and one AAC track. Throws when it
    // cannot be read.
    Recording(const std::string &file, const Shape &shape);

    const Track &video() const { return video_; }
    const Track &audio() const { return audio_; }
    // Tracks begin at different places of the one recorded, as six sources would differ.
    const Packet &audio_packet(size_t track, int64_t number) const {
        return audio_.at(number + static_cast<int64_t>(track) * 101);
    }

private:
    void scale(const Shape &shape);

    Track video_;
    Track audio_;
};

} // namespace corvane::bench
