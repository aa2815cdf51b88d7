// SPDX-License-Identifier: GPL-2.0-or-later
#include "canvas/vertical_canvas.hpp"

#include "testbed/host_objects.hpp"
#include "testbed/host_scene.hpp"
#include "testbed/log_capture.hpp"
#include "testbed/obs_session.hpp"

#include <obs.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace corvane::test {

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::FloatNear;
using testing::StartsWith;

constexpr CanvasConfig kSmallCanvas{
    .width = 72, .height = 128, .fps_num = kHostFps, .fps_den = 1, .use_active_scene_audio = true};
constexpr uint32_t kMarker = 32;

LogCapture &host_log() {
    return LogCapture::get();
}

class CanvasTest : public testing::Test {
protected:
    CanvasTest() {
        // Until they are gone the last test's sources keep their names.
        ObsSession::destroy_released_sources();
        host_log().clear();
    }

    VerticalCanvas canvas{kSmallCanvas};
};

// A second init must not build a second view, nor a shutdown leave one that blocks the next init.
TEST_F(CanvasTest, LivesAndComesBack) {
    canvas.shutdown();
    EXPECT_THAT(host_log().take(), ElementsAre());

    for (int life = 0; life < 2; ++life) {
        EXPECT_TRUE(canvas.init());
        EXPECT_THAT(host_log().take(), ElementsAre("I Scene created (private): Scene 1",
                                           "I Canvas initialised: 72x128 @ 30/1 fps"));
        const video_t *video = canvas.video();
        ASSERT_NE(video, nullptr);
        EXPECT_EQ(video_output_get_width(video), 72);
        EXPECT_EQ(video_output_get_height(video), 128);
        EXPECT_EQ(canvas.audio(), obs_get_audio());
        EXPECT_THAT(canvas.scene_names(), ElementsAre("Scene 1"));
        EXPECT_EQ(canvas.active_scene_name(), "Scene 1");

        EXPECT_TRUE(canvas.init());
        EXPECT_EQ(canvas.video(), video);
        EXPECT_THAT(host_log().take(), ElementsAre("W VerticalCanvas already initialised"));
        canvas.shutdown();
        EXPECT_FALSE(canvas.initialised());
        EXPECT_EQ(canvas.video(), nullptr);
        EXPECT_THAT(host_log().take(), ElementsAre("I Canvas shut down"));
    }
}

// A format that libobs refuses must not leave a half-made canvas, and a higher frame rate than
// the host's must be said, since the stream's clock would run slow unnoticed.
TEST_F(CanvasTest, OddFormats) {
    CanvasConfig config = kSmallCanvas;
    config.fps_den = 0;
    VerticalCanvas refused(config);
    EXPECT_FALSE(refused.init());
    EXPECT_FALSE(refused.initialised());
    EXPECT_THAT(host_log().take(), ElementsAre("E obs_view_add2() failed"));

    config.fps_num = 2 * kHostFps;
    config.fps_den = 1;
    VerticalCanvas faster(config);
    EXPECT_TRUE(faster.init());
    EXPECT_THAT(host_log().matching("60/1"), Contains(StartsWith("W ")));
}

// Each operation on the list, with what it returns, says and leaves.
TEST_F(CanvasTest, SceneListOperations) {
    ASSERT_TRUE(canvas.init());
    host_log().clear();
    struct Step {
        std::function<bool()> run;
        bool result;
        Lines log;
        std::vector<std::string> names;
        std::string active;
    };
    const auto create = [&](const char *name) {
        return [&, name] {
            return canvas.create_scene(name);
        };
    };
    const auto remove = [&](const char *name) {
        return [&, name] {
            return canvas.remove_scene(name);
        };
    };
    const auto activate = [&](const char *name) {
        return [&, name] {
            return canvas.set_active_scene(name);
        };
    };
    const auto rename = [&](const char *from, const char *to) {
        return [&, from, to] {
            return canvas.rename_scene(from, to);
        };
    };
    const std::vector<Step> steps{
        {rename("Scene 1", "A"), true, {"I Scene renamed: Scene 1 -> A"}, {"A"}, "A"},
        {create("B"), true, {"I Scene created (private): B"}, {"A", "B"}, "A"},
        {create("B"), false, {"W Scene already exists: B"}, {"A", "B"}, "A"},
        {create("b"), true, {"I Scene created (private): b"}, {"A", "B", "b"}, "A"},
        {activate("b"), true, {"I Active scene: b"}, {"A", "B", "b"}, "b"},
        {activate("b"), true, {}, {"A", "B", "b"}, "b"},
        {activate("x"), false, {"W set_active_scene — not found: x"}, {"A", "B", "b"}, "b"},
        {rename("A", "A"), true, {}, {"A", "B", "b"}, "b"},
        {rename("A", "B"), false, {"W rename_scene — name already in use: B"}, {"A", "B", "b"},
            "b"},
        {rename("x", "y"), false, {"W rename_scene — not found: x"}, {"A", "B", "b"}, "b"},
        {remove("A"), true, {"I Scene removed: A"}, {"B", "b"}, "b"},
        {create("C"), true, {"I Scene created (private): C"}, {"B", "b", "C"}, "b"},
        {remove("b"), true, {"I Scene removed: b"}, {"B", "C"}, "B"},
        {remove("b"), false, {"W remove_scene — not found: b"}, {"B", "C"}, "B"},
        {activate("C"), true, {"I Active scene: C"}, {"B", "C"}, "C"},
        {remove("C"), true, {"I Scene removed: C"}, {"B"}, "B"},
        {remove("B"), true, {"I Scene removed: B"}, {}, ""},
        {activate("B"), false, {"W set_active_scene — not found: B"}, {}, ""},
        {create(""), true, {"I Scene created (private): "}, {""}, ""},
        {create("D"), true, {"I Scene created (private): D"}, {"", "D"}, ""},
    };
    for (size_t i = 0; i < steps.size(); ++i) {
        const Step &step = steps[i];
        EXPECT_EQ(step.run(), step.result) << "step " << i;
        EXPECT_EQ(host_log().take(), step.log) << "step " << i;
        EXPECT_EQ(canvas.scene_names(), step.names) << "step " << i;
        EXPECT_EQ(canvas.active_scene_name(), step.active) << "step " << i;
    }
}

// A source of any shape must cover the canvas, centred; a repeated assignment must not add a
// second item.
TEST_F(CanvasTest, AssignedSourceCovers) {
    ASSERT_TRUE(canvas.init());
    struct Case {
        int width, height;
        float scale, x, y;
    };
    for (const Case &c : {Case{320, 180, 128.F / 180, -77.778F, 0}, Case{72, 128, 1, 0, 0},
             Case{36, 128, 2, 0, -64}, Case{500, 500, 0.256F, -28, 0}}) {
        SCOPED_TRACE(testing::Message() << c.width << "x" << c.height);
        const OBSSourceAutoRelease source = make_color("Shape", c.width, c.height, 0xFF0000FF);
        for (int repeat = 0; repeat < 2; ++repeat) {
            EXPECT_TRUE(canvas.assign_scene_source("Scene 1", "Shape"));
            const OBSSceneItem item = only_item("Scene 1");
            ASSERT_NE(item, nullptr);
            obs_transform_info info{};
            obs_sceneitem_get_info2(item, &info);
            EXPECT_THAT(info.scale.x, FloatNear(c.scale, 1e-4F));
            EXPECT_EQ(info.scale.x, info.scale.y);
            EXPECT_THAT(info.pos.x, FloatNear(c.x, 0.5F)) << "libobs rounds to pixels";
            EXPECT_THAT(info.pos.y, FloatNear(c.y, 0.5F));
            EXPECT_EQ(info.alignment, OBS_ALIGN_LEFT | OBS_ALIGN_TOP);
            EXPECT_EQ(info.bounds_type, OBS_BOUNDS_NONE);
        }
        EXPECT_TRUE(canvas.assign_scene_source("Scene 1", ""));
        EXPECT_EQ(only_item("Scene 1"), nullptr);
    }
}

// Whatever drops a source from a scene must give back its reference and its showing count, and
// a missing source must keep the name for later and the picture for now.
TEST_F(CanvasTest, AssignmentHoldsAndReleases) {
    ASSERT_TRUE(canvas.init());
    const OBSSourceAutoRelease a = make_color("A", 72, 128, 0xFF0000FF);
    const OBSSourceAutoRelease b = make_color("B", 72, 128, 0xFF00FF00);
    const auto assign = [&](const char *name) {
        return canvas.assign_scene_source("Scene 1", name);
    };

    EXPECT_TRUE(assign("A"));
    EXPECT_EQ(canvas.active_source(), a);
    EXPECT_TRUE(obs_source_showing(a));
    EXPECT_TRUE(assign("B"));
    EXPECT_FALSE(obs_source_showing(a));
    EXPECT_TRUE(assign("A"));
    ASSERT_TRUE(canvas.create_scene("Other"));
    ASSERT_TRUE(canvas.set_active_scene("Other"));
    EXPECT_TRUE(obs_source_showing(a)) << "an inactive scene keeps its source ready";
    EXPECT_EQ(canvas.active_source(), nullptr);
    ASSERT_TRUE(canvas.set_active_scene("Scene 1"));
    host_log().clear();

    EXPECT_FALSE(assign("Nowhere"));
    EXPECT_THAT(
        host_log().take(), ElementsAre("W assign_scene_source — OBS source not found: Nowhere"));
    EXPECT_EQ(canvas.scene_source_name("Scene 1"), "Nowhere");
    EXPECT_EQ(canvas.active_source(), nullptr);
    const OBSSceneItem kept = only_item("Scene 1");
    ASSERT_NE(kept, nullptr);
    EXPECT_EQ(obs_sceneitem_get_source(kept), a);
    EXPECT_FALSE(canvas.assign_scene_source("Nowhere", "A"));
    EXPECT_THAT(host_log().take(), ElementsAre("W assign_scene_source — scene not found: Nowhere"));

    EXPECT_TRUE(assign("A"));
    EXPECT_TRUE(canvas.remove_scene("Scene 1"));
    EXPECT_TRUE(canvas.assign_scene_source("Other", "A"));
    canvas.shutdown();
    EXPECT_FALSE(obs_source_showing(a));
}

// The marker on track six must follow the active scene, touch no other bit, and be gone from
// whatever is dropped, also with the option off.
TEST_F(CanvasTest, MarkerFollowsTheActiveScene) {
    for (const bool on : {true, false}) {
        SCOPED_TRACE(on ? "option on" : "option off");
        ObsSession::destroy_released_sources();
        const OBSSourceAutoRelease a = obs_source_create("ffmpeg_source", "A", nullptr, nullptr);
        const OBSSourceAutoRelease b = obs_source_create("ffmpeg_source", "B", nullptr, nullptr);
        obs_source_set_audio_mixers(a, 3);
        obs_source_set_audio_mixers(b, 5);
        const uint32_t mark = on ? kMarker : 0;

        CanvasConfig config = kSmallCanvas;
        config.use_active_scene_audio = on;
        VerticalCanvas marked(config);
        ASSERT_TRUE(marked.init() && marked.create_scene("Two"));
        const auto expect = [&](uint32_t mixers_a, uint32_t mixers_b, const char *when) {
            EXPECT_EQ(obs_source_get_audio_mixers(a), mixers_a) << when;
            EXPECT_EQ(obs_source_get_audio_mixers(b), mixers_b) << when;
        };
        marked.assign_scene_source("Scene 1", "A");
        marked.assign_scene_source("Two", "B");
        expect(3 | mark, 5, "assigned");
        marked.set_active_scene("Two");
        expect(3, 5 | mark, "switched");
        marked.remove_scene("Two");
        expect(3 | mark, 5, "removed");
        marked.assign_scene_source("Scene 1", "B");
        expect(3, 5 | mark, "reassigned");
        marked.assign_scene_source("Scene 1", "Nowhere");
        expect(3, 5, "not found");
        marked.assign_scene_source("Scene 1", "A");
        obs_source_set_audio_mixers(a, 3 | kMarker);
        marked.assign_scene_source("Scene 1", "");
        expect(3, 5, "cleared");
        marked.assign_scene_source("Scene 1", "A");
        obs_source_set_audio_mixers(a, 1 | kMarker);
        marked.shutdown();
        expect(1, 5, "shut down");
    }
}

} // namespace

} // namespace corvane::test
