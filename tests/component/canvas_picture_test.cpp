// SPDX-License-Identifier: GPL-2.0-or-later
#include "canvas/vertical_canvas.hpp"

#include "output/vertical_output.hpp"
#include "support/host_objects.hpp"
#include "support/log_capture.hpp"
#include "support/wait.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <mutex>
#include <tuple>

namespace corvane::test {

namespace {

constexpr uint32_t kWidth = 72;
constexpr uint32_t kHeight = 128;

// The host's picture: four tiles that meet in its middle.
constexpr uint32_t kTiles[2][2] = {{0xFF2020E0, 0xFF20E020}, {0xFFE02020, 0xFF20E0E0}};

// Receives the canvas's video as an encoder would, through a raw output: libobs hands out a view's
// frames to outputs and encoders only.
class FrameReader {
public:
    explicit FrameReader(video_t *video) {
        obs_output_info type{};
        type.id = "frame_reader";
        type.flags = OBS_OUTPUT_VIDEO;
        type.get_name = [](void *) {
            return "frame reader";
        };
        type.create = [](obs_data_t *, obs_output_t *output) -> void * {
            return output;
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
            current->measure(*frame);
        };
        if (!obs_output_get_display_name(type.id)) {
            obs_register_output(&type);
        }
        output_ = obs_output_create(type.id, "reader", nullptr, nullptr);
        obs_output_set_media(output_, video, obs_get_audio());
        const video_scale_info rgba{.format = VIDEO_FORMAT_RGBA,
            .width = kWidth,
            .height = kHeight,
            .range = VIDEO_RANGE_FULL,
            .colorspace = VIDEO_CS_709};
        obs_output_set_video_conversion(output_, &rgba);
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

    // The newest frame's largest difference of a colour value from the tiles, borders left out.
    std::atomic<int> difference = 255;

private:
    void measure(const video_data &frame) {
        const std::scoped_lock lock(mutex_);
        int worst = 0;
        for (int i = 0; i < int{kWidth * kHeight * 4}; ++i) {
            const int x = i / 4 % int{kWidth};
            const int y = i / 4 / int{kWidth};
            if (std::abs(x - 36) > 4 && std::abs(y - 64) > 4) {
                const int value = frame.data[0][y * frame.linesize[0] + x * 4 + i % 4];
                const int tile = kTiles[y / 64][x / 36] >> (8 * (i % 4)) & 0xFF;
                worst = std::max(worst, std::abs(value - tile));
            }
        }
        difference = worst;
    }

    static inline FrameReader *current = nullptr;
    OBSOutputAutoRelease output_;
    std::mutex mutex_;
};

// The view must really show the host's picture, cover placed, and go on doing so after the user
// changes the host's video settings, which silently frees the view's place in the pipeline.
TEST(CanvasPicture, shows_the_centre_third_also_after_video_resets) {
    ObsSession::destroy_released_sources();
    VerticalCanvas canvas({.width = kWidth, .height = kHeight});
    ASSERT_TRUE(canvas.init());
    const HostScene host("Tiles");
    for (const int i : {0, 1, 2, 3}) {
        const OBSSourceAutoRelease tile = make_color("Tile", 160, 90, kTiles[i / 2][i % 2]);
        const vec2 position{{{.x = i % 2 * 160.F, .y = i / 2 * 90.F}}};
        obs_sceneitem_set_pos(obs_scene_add(host.scene(), tile), &position);
    }
    ASSERT_TRUE(canvas.assign_scene_source("Scene 1", "Tiles"));
    for (const auto &[width, height, fps] :
        {std::tuple{0U, 0U, 0U}, {640U, 360U, 30U}, {640U, 360U, 60U}, {320U, 180U, 30U}}) {
        SCOPED_TRACE(testing::Message() << width << " @ " << fps);
        ASSERT_TRUE(fps == 0 || ObsSession::reset_video(width, height, fps));
        ASSERT_NE(canvas.video(), nullptr);
        EXPECT_EQ(video_output_get_width(canvas.video()), kWidth);
        EXPECT_EQ(video_output_get_frame_rate(canvas.video()), 30);
        FrameReader frames(canvas.video());
        EXPECT_TRUE(wait_until([&] { return frames.difference <= 10; })) << frames.difference;
    }
    canvas.shutdown();
    EXPECT_TRUE(ObsSession::reset_video(kHostWidth, kHostHeight, kHostFps)) << "after a shutdown";
}

// A size that libobs can do must not be refused, and one that it cannot must be before it is asked.
// A canvas that a new format of the host's leaves without video must say so itself, in place of all
// the encoders.
TEST(CanvasPicture, sizes_by_the_hosts_format) {
    LogCapture &log = LogCapture::get();
    const auto reset = [](video_format format) {
        return ObsSession::reset_video(kHostWidth, kHostHeight, kHostFps, format);
    };
    for (const auto &[format, odd_is_possible] : {std::pair{VIDEO_FORMAT_NV12, false},
             {VIDEO_FORMAT_P010, false}, {VIDEO_FORMAT_I420, true}, {VIDEO_FORMAT_I010, true},
             {VIDEO_FORMAT_P216, true}, {VIDEO_FORMAT_I444, true}, {VIDEO_FORMAT_BGRA, true}}) {
        ASSERT_TRUE(reset(format));
        for (const auto &[width, height, possible] :
            {std::tuple{72U, 128U, true}, {71U, 128U, odd_is_possible},
                {72U, 127U, odd_is_possible}, {16386U, 128U, false}, {72U, 16386U, false}}) {
            SCOPED_TRACE(testing::Message() << format << ": " << width << "x" << height);
            VerticalCanvas sized({.width = width, .height = height});
            log.clear();
            EXPECT_EQ(sized.init(), possible);
            EXPECT_EQ(log.has("is not possible"), !possible);
        }
    }
    VerticalCanvas odd({.width = 71, .height = 128});
    VerticalOutput output(&odd, {.url = "rtmp://127.0.0.1:1/live", .key = "k"});
    ASSERT_TRUE(odd.init() && output.init());
    ASSERT_TRUE(reset(VIDEO_FORMAT_NV12));
    EXPECT_EQ(odd.video(), nullptr);
    log.clear();
    EXPECT_FALSE(output.start());
    EXPECT_EQ(log.take(), Lines{"E Vertical output start failed: the vertical canvas has no video. "
                                "Restart OBS."});
}

} // namespace

} // namespace corvane::test
