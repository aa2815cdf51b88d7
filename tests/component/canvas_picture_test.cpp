// SPDX-License-Identifier: GPL-2.0-or-later
#include "canvas/vertical_canvas.hpp"

#include "output/vertical_output.hpp"
#include "testbed/frame_reader.hpp"
#include "testbed/host_scene.hpp"
#include "testbed/log_capture.hpp"
#include "testbed/wait.hpp"

#include <obs.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace corvane::test {

namespace {

constexpr uint32_t kWidth = 72;
constexpr uint32_t kHeight = 128;

// The host's picture: 4 x 2 tiles of 80 x 90 pixels.
constexpr int kTileWidth = 80;
constexpr int kTileHeight = 90;
constexpr uint32_t kTiles[2][4] = {{0xFF2020E0, 0xFF20E020, 0xFFE02020, 0xFF20E0E0},
    {0xFFE0E020, 0xFFE020E0, 0xFF808080, 0xFF202020}};

bool near_border(double position, int tile) {
    return std::abs(position - std::round(position / tile) * tile) < 6;
}

// The largest difference of a colour value from what a covering, centred host picture
// would show; tile borders are left out. 255 before the first frame.
int difference(const std::vector<uint8_t> &pixels) {
    int worst = pixels.empty() ? 255 : 0;
    for (size_t i = 0; i < pixels.size(); ++i) {
        const double scale = double{kHeight} / kHostHeight;
        const double left_cut = (kHostWidth * scale - kWidth) / 2;
        const size_t column = i / 4 % kWidth;
        const size_t row = i / 4 / kWidth;
        const double host_x = (static_cast<double>(column) + 0.5 + left_cut) / scale;
        const double host_y = (static_cast<double>(row) + 0.5) / scale;
        if (near_border(host_x, kTileWidth) || near_border(host_y, kTileHeight)) {
            continue;
        }
        const uint32_t abgr =
            kTiles[static_cast<int>(host_y) / kTileHeight][static_cast<int>(host_x) / kTileWidth];
        const std::array<int, 4> bgra{static_cast<int>(abgr >> 16 & 0xFF),
            static_cast<int>(abgr >> 8 & 0xFF), static_cast<int>(abgr & 0xFF), 255};
        worst = std::max(worst, std::abs(pixels[i] - bgra[i % 4]));
    }
    return worst;
}

// The view must really show the host's picture, cover placed, and go on doing so after the user
// changes the host's video settings, which silently frees the view's place in the pipeline.
TEST(CanvasPicture, ShowsTheCentreThirdAlsoAfterVideoResets) {
    ObsSession::destroy_released_sources();
    VerticalCanvas canvas({.width = kWidth, .height = kHeight, .fps_num = kHostFps});
    ASSERT_TRUE(canvas.init());
    const HostScene host("Tiles");
    for (int i = 0; i < 8; ++i) {
        const OBSSourceAutoRelease tile =
            make_color(std::to_string(i).c_str(), kTileWidth, kTileHeight, kTiles[i / 4][i % 4]);
        const int column = i % 4;
        const int row = i / 4;
        vec2 position{};
        vec2_set(&position, static_cast<float>(column * kTileWidth),
            static_cast<float>(row * kTileHeight));
        obs_sceneitem_set_pos(obs_scene_add(host.scene(), tile), &position);
    }
    ASSERT_TRUE(canvas.assign_scene_source("Scene 1", "Tiles"));
    const auto expect_picture = [&](const char *when) {
        ASSERT_NE(canvas.video(), nullptr) << when;
        EXPECT_EQ(video_output_get_width(canvas.video()), kWidth) << when;
        EXPECT_EQ(video_output_get_frame_rate(canvas.video()), 30) << when;
        FrameReader frames(canvas.video());
        EXPECT_TRUE(wait_until([&] { return difference(frames.pixels()) <= 10; }))
            << when << ": off by " << difference(frames.pixels());
    };
    expect_picture("at first");
    struct Reset {
        uint32_t width, height, fps;
    };
    for (const Reset &reset : {Reset{640, 360, 30}, Reset{640, 360, 60}, Reset{320, 180, 30}}) {
        ASSERT_TRUE(ObsSession::reset_video(reset.width, reset.height, reset.fps));
        expect_picture("after a reset");
    }
    canvas.shutdown();
    EXPECT_TRUE(ObsSession::reset_video(kHostWidth, kHostHeight, kHostFps)) << "after a shutdown";
}

// A size that libobs can do must not be refused, and one that it cannot must be before it is asked.
// A canvas that a new format of the host's leaves without video must say so itself, in place of all
// the encoders.
TEST(CanvasPicture, SizesByTheHostsFormat) {
    LogCapture &log = LogCapture::get();
    const auto reset = [](video_format format) {
        return ObsSession::reset_video(kHostWidth, kHostHeight, kHostFps, format);
    };
    for (const auto &[format, odd_is_possible] : {std::pair{VIDEO_FORMAT_NV12, false},
             {VIDEO_FORMAT_P010, false}, {VIDEO_FORMAT_I420, true}, {VIDEO_FORMAT_I010, true},
             {VIDEO_FORMAT_P216, true}, {VIDEO_FORMAT_I444, true}, {VIDEO_FORMAT_BGRA, true}}) {
        ASSERT_TRUE(reset(format));
        for (const auto &[width, height, possible] :
            {std::tuple{72, 128, true}, {71, 128, odd_is_possible}, {72, 127, odd_is_possible},
                {16386, 128, false}, {72, 16386, false}}) {
            SCOPED_TRACE(testing::Message() << format << ": " << width << "x" << height);
            VerticalCanvas sized(
                {.width = static_cast<uint32_t>(width), .height = static_cast<uint32_t>(height)});
            log.clear();
            EXPECT_EQ(sized.init(), possible);
            EXPECT_EQ(log.has("is not possible"), !possible);
        }
    }
    VerticalCanvas odd({.width = 71, .height = 128, .fps_num = kHostFps});
    VerticalOutput output(&odd, {.url = "rtmp://127.0.0.1:1/live", .key = "k"});
    ASSERT_TRUE(odd.init() && output.init());
    ASSERT_TRUE(reset(VIDEO_FORMAT_NV12));
    EXPECT_EQ(odd.video(), nullptr);
    log.clear();
    EXPECT_FALSE(output.start());
    EXPECT_THAT(
        log.take(), testing::ElementsAre(
                        "E Vertical output start failed: the vertical canvas has no video. Restart "
                        "OBS."));
}

} // namespace

} // namespace corvane::test
