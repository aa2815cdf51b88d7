// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "testbed/wait.hpp"

#include <obs.hpp>

#include <gtest/gtest.h>

#include <cstdint>
#include <mutex>
#include <vector>

namespace corvane::test {

// Receives the canvas's video as an encoder would, as BGRA, through a raw output: libobs hands
// out a view's frames to outputs and encoders only.
class FrameReader {
public:
    explicit FrameReader(video_t *video)
        : width_(video_output_get_width(video))
        , height_(video_output_get_height(video)) {
        static const bool registered = register_type();
        EXPECT_TRUE(registered);
        output_ = obs_output_create(kType, "frame reader", nullptr, nullptr);
        obs_output_set_media(output_, video, obs_get_audio());
        const video_scale_info bgra{.format = VIDEO_FORMAT_BGRA,
            .width = video_output_get_width(video),
            .height = video_output_get_height(video),
            .range = VIDEO_RANGE_FULL,
            .colorspace = VIDEO_CS_709};
        obs_output_set_video_conversion(output_, &bgra);
        current = this;
        EXPECT_TRUE(obs_output_start(output_));
    }
    ~FrameReader() {
        obs_output_stop(output_);
        EXPECT_TRUE(wait_until([this] { return !obs_output_active(output_); }));
        const std::scoped_lock after_the_last_frame(mutex_);
    }
    FrameReader(const FrameReader &) = delete;
    FrameReader &operator=(const FrameReader &) = delete;

    // The newest frame's BGRA bytes, row by row; empty before the first.
    std::vector<uint8_t> pixels() {
        const std::scoped_lock lock(mutex_);
        return pixels_;
    }

private:
    static bool register_type() {
        obs_output_info type{};
        type.id = kType;
        type.flags = OBS_OUTPUT_VIDEO;
        type.get_name = [](void *) {
            return kType;
        };
        type.create = [](obs_data_t *, obs_output_t *output) {
            return static_cast<void *>(output);
        };
        type.destroy = [](void *) {
        };
        type.start = [](void *output) {
            return obs_output_begin_data_capture(static_cast<obs_output_t *>(output), 0);
        };
        type.stop = [](void *output, uint64_t) {
            obs_output_end_data_capture(static_cast<obs_output_t *>(output));
        };
        type.raw_video = [](void *, video_data *frame) {
            current->take(*frame);
        };
        obs_register_output(&type);
        return true;
    }
    void take(const video_data &frame) {
        const std::scoped_lock lock(mutex_);
        pixels_.clear();
        for (size_t y = 0; y < height_; ++y) {
            const uint8_t *row = frame.data[0] + y * frame.linesize[0];
            pixels_.insert(pixels_.end(), row, row + size_t{width_} * 4);
        }
    }

    static constexpr const char *kType = "frame_reader";
    static inline FrameReader *current = nullptr;
    const uint32_t width_;
    const uint32_t height_;
    OBSOutputAutoRelease output_;
    std::mutex mutex_;
    std::vector<uint8_t> pixels_;
};

} // namespace corvane::test
