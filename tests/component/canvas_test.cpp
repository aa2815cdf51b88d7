// SPDX-License-Identifier: GPL-2.0-or-later
#include "canvas/vertical_canvas.hpp"

#include "output/vertical_output.hpp"
#include "support/log_capture.hpp"
#include "support/obs_session.hpp"
#include "support/wait.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <latch>
#include <tuple>

namespace corvane::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class CanvasTest : public testing::Test {
protected:
    CanvasTest() {
        // Until they are gone the last test's sources keep their names.
        ObsSession::destroy_released_sources();
        EXPECT_TRUE(canvas.init());
        log.clear();
    }

    // The items of a vertical scene, which the host lists nowhere but among all sources.
    static std::vector<OBSSceneItem> items(const std::string &scene) {
        std::vector<OBSSceneItem> found;
        const auto add = [](obs_scene_t *, obs_sceneitem_t *item, void *list) {
            static_cast<std::vector<OBSSceneItem> *>(list)->emplace_back(item);
            return true;
        };
        for (const OBSSource &source : all<OBSSource>(obs_enum_all_sources)) {
            if (obs_obj_is_private(source) && scene == obs_source_get_name(source)) {
                obs_scene_enum_items(obs_scene_from_source(source), add, &found);
            }
        }
        return found;
    }

    LogCapture &log = LogCapture::get();
    VerticalCanvas canvas{{.width = 72, .height = 128}};
};

// A second init must not build a second view, nor a shutdown leave one that blocks the next init.
// At a higher frame rate than the host's the stream's clock would run slow unnoticed.
TEST_F(CanvasTest, comes_back_after_a_shutdown) {
    for (int life = 0; life < 2; ++life) {
        const video_t *video = canvas.video();
        ASSERT_NE(video, nullptr);
        EXPECT_EQ(canvas.audio(), obs_get_audio());
        EXPECT_TRUE(canvas.init());
        EXPECT_EQ(canvas.video(), video);
        EXPECT_THAT(log.take(), ElementsAre("W VerticalCanvas already initialised"));
        canvas.shutdown();
        canvas.shutdown();
        EXPECT_FALSE(canvas.initialised());
        EXPECT_EQ(canvas.video(), nullptr);
        EXPECT_TRUE(ObsSession::reset_video());
        EXPECT_TRUE(canvas.init());
        EXPECT_THAT(
            log.take(), ElementsAre("I Canvas shut down", "I Scene created (private): Scene 1",
                            "I Canvas initialised: 72x128 @ 30/1 fps"));
    }
    VerticalCanvas faster({.width = 72, .height = 128, .fps_num = 2 * kHostFps});
    EXPECT_TRUE(faster.init());
    EXPECT_THAT(log.matching("W Canvas frame rate 60/1"), SizeIs(1));
}

// Each operation on the list, with what it says and leaves.
TEST_F(CanvasTest, scene_list_operations) {
    // Refusals are logged as warnings. The scenes are each followed by a comma, the active one by
    // *.
    const auto expect = [&](bool result, const std::string &line, const std::string &scenes) {
        SCOPED_TRACE(line + " leaves " + scenes);
        EXPECT_EQ(result, !line.starts_with('W'));
        EXPECT_EQ(log.take(), line.empty() ? Lines() : Lines{line});
        std::string seen;
        for (const std::string &name : canvas.scene_names()) {
            seen += name + (name == canvas.active_scene_name() ? "*," : ",");
        }
        EXPECT_EQ(seen, scenes);
    };
    expect(canvas.rename_scene("Scene 1", "A"), "I Scene renamed: Scene 1 -> A", "A*,");
    expect(canvas.create_scene("B"), "I Scene created (private): B", "A*,B,");
    expect(canvas.create_scene("B"), "W Scene already exists: B", "A*,B,");
    expect(canvas.create_scene("b"), "I Scene created (private): b", "A*,B,b,");
    expect(canvas.set_active_scene("b"), "I Active scene: b", "A,B,b*,");
    expect(canvas.set_active_scene("b"), "", "A,B,b*,");
    expect(canvas.set_active_scene("x"), "W set_active_scene — not found: x", "A,B,b*,");
    expect(canvas.rename_scene("A", "A"), "", "A,B,b*,");
    expect(canvas.rename_scene("A", "B"), "W rename_scene — name already in use: B", "A,B,b*,");
    expect(canvas.rename_scene("x", "y"), "W rename_scene — not found: x", "A,B,b*,");
    expect(canvas.remove_scene("A"), "I Scene removed: A", "B,b*,");
    expect(canvas.create_scene("C"), "I Scene created (private): C", "B,b*,C,");
    expect(canvas.remove_scene("b"), "I Scene removed: b", "B*,C,");
    expect(canvas.remove_scene("b"), "W remove_scene — not found: b", "B*,C,");
    expect(canvas.set_active_scene("C"), "I Active scene: C", "B,C*,");
    expect(canvas.remove_scene("C"), "I Scene removed: C", "B*,");
    expect(canvas.remove_scene("B"), "I Scene removed: B", "");
    EXPECT_EQ(canvas.active_scene_name(), "");
    expect(canvas.set_active_scene("B"), "W set_active_scene — not found: B", "");
    expect(canvas.create_scene(""), "I Scene created (private): ", "*,");
    expect(canvas.create_scene("D"), "I Scene created (private): D", "*,D,");
}

// A source of any shape must cover the canvas, centred, also after the user changes the host's
// video settings, which frees the view's place in the pipeline and moves its items; a repeated
// assignment must not add a second item.
TEST_F(CanvasTest, assigned_source_covers) {
    const auto assign = [&] {
        return canvas.assign_scene_source("Scene 1", "Shape");
    };
    const std::vector<std::function<bool()>> changes{assign, assign,
        [] { return ObsSession::reset_video(640, 360); },
        [] { return ObsSession::reset_video(640, 360, 60); },
        [] { return ObsSession::reset_video(); }};
    struct Case {
        int width, height;
        float scale, x, y;
    };
    for (const auto &[width, height, scale, x, y] :
        {Case{320, 180, 128.F / 180, -77.778F, 0}, {36, 128, 2, 0, -64}}) {
        const OBSDataAutoRelease size = obs_data_create();
        obs_data_set_int(size, "width", width);
        obs_data_set_int(size, "height", height);
        const OBSSourceAutoRelease source =
            obs_source_create("color_source_v3", "Shape", size, nullptr);
        for (const auto &change : changes) {
            ASSERT_TRUE(change());
            ASSERT_NE(canvas.video(), nullptr);
            EXPECT_EQ(video_output_get_width(canvas.video()), 72U);
            EXPECT_EQ(video_output_get_height(canvas.video()), 128U);
            EXPECT_EQ(video_output_get_frame_rate(canvas.video()), 30);
            ASSERT_THAT(items("Scene 1"), SizeIs(1));
            obs_transform_info info{};
            obs_sceneitem_get_info2(items("Scene 1").front(), &info);
            EXPECT_NEAR(info.scale.x, scale, 1e-4F);
            EXPECT_EQ(info.scale.x, info.scale.y);
            EXPECT_NEAR(info.pos.x, x, 0.5F) << "libobs rounds to pixels";
            EXPECT_NEAR(info.pos.y, y, 0.5F);
            EXPECT_EQ(info.alignment, OBS_ALIGN_LEFT | OBS_ALIGN_TOP);
            EXPECT_EQ(info.bounds_type, OBS_BOUNDS_NONE);
        }
        EXPECT_TRUE(canvas.assign_scene_source("Scene 1", ""));
        EXPECT_THAT(items("Scene 1"), IsEmpty());
    }
}

// A size that libobs can do must not be refused, and one that it cannot must be before it is asked.
// A canvas that a new format of the host's leaves without video must say so itself, in place of all
// the encoders.
TEST_F(CanvasTest, sizes_by_the_hosts_format) {
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
    EXPECT_THAT(log.take(), ElementsAre("E Vertical output start failed: the vertical canvas has "
                                        "no video. Restart OBS."));
}

// Whatever drops a source from a scene must give back its reference, its showing count and the
// marker on track six, also with the option off. The marker must follow the active scene and touch
// no other bit; a missing source must keep the name for later and the picture for now.
TEST_F(CanvasTest, scenes_hold_and_release_their_sources) {
    constexpr uint32_t kMarker = 32;
    constexpr bool kShowing = true, kHidden = false;
    using State = std::pair<uint32_t, bool>; // mixers, showing
    const OBSSourceAutoRelease a = obs_source_create("ffmpeg_source", "A", nullptr, nullptr);
    const OBSSourceAutoRelease b = obs_source_create("ffmpeg_source", "B", nullptr, nullptr);
    const auto state = [](const OBSSourceAutoRelease &source) {
        return State{obs_source_get_audio_mixers(source), obs_source_showing(source)};
    };
    for (const bool on : {true, false}) {
        SCOPED_TRACE(on ? "option on" : "option off");
        obs_source_set_audio_mixers(a, 3);
        obs_source_set_audio_mixers(b, 5);
        const uint32_t mark = on ? kMarker : 0;
        VerticalCanvas marked({.width = 72, .height = 128, .use_active_scene_audio = on});
        ASSERT_TRUE(marked.init() && marked.create_scene("Two"));
        const auto expect = [&](const State &of_a, const State &of_b, obs_source_t *active,
                                const char *when) {
            EXPECT_EQ(state(a), of_a) << when;
            EXPECT_EQ(state(b), of_b) << when;
            EXPECT_EQ(marked.active_source(), active) << when;
        };
        EXPECT_TRUE(marked.assign_scene_source("Two", "B"));
        expect({3, kHidden}, {5, kShowing}, nullptr, "ready in an inactive scene");
        EXPECT_TRUE(marked.assign_scene_source("Scene 1", "A"));
        expect({3 | mark, kShowing}, {5, kShowing}, a, "assigned");
        marked.set_active_scene("Two");
        expect({3, kShowing}, {5 | mark, kShowing}, b, "switched");
        marked.remove_scene("Two");
        expect({3 | mark, kShowing}, {5, kHidden}, a, "removed");
        EXPECT_TRUE(marked.assign_scene_source("Scene 1", "B"));
        expect({3, kHidden}, {5 | mark, kShowing}, b, "reassigned");
        log.clear();
        EXPECT_FALSE(marked.assign_scene_source("Scene 1", "Nowhere"));
        EXPECT_FALSE(marked.assign_scene_source("Nowhere", "A"));
        EXPECT_THAT(log.take(), ElementsAre("W assign_scene_source — OBS source not found: Nowhere",
                                    "W assign_scene_source — scene not found: Nowhere"));
        expect({3, kHidden}, {5, kShowing}, nullptr, "not found, its picture stays");
        EXPECT_EQ(marked.scene_source_name("Scene 1"), "Nowhere");
        ASSERT_THAT(items("Scene 1"), SizeIs(1));
        EXPECT_EQ(obs_sceneitem_get_source(items("Scene 1").front()), b);
        marked.assign_scene_source("Scene 1", "A");
        obs_source_set_audio_mixers(a, 3 | kMarker);
        marked.assign_scene_source("Scene 1", "");
        expect({3, kHidden}, {5, kHidden}, nullptr, "cleared");
        marked.assign_scene_source("Scene 1", "A");
        obs_source_set_audio_mixers(a, 1 | kMarker);
        marked.shutdown();
        expect({1, kHidden}, {5, kHidden}, nullptr, "shut down");
    }
}

// A scene collection is switched by removing every source: one that the canvas holds on to makes
// the host stop saving the user's scenes, and one that it forgets leaves the stream black.
TEST_F(CanvasTest, every_assignment_follows_its_source) {
    OBSSceneAutoRelease scene = obs_scene_create("Host scene");
    ASSERT_TRUE(canvas.create_scene("Idle"));
    for (const char *name : {"Scene 1", "Idle"}) {
        ASSERT_TRUE(canvas.assign_scene_source(name, "Host scene"));
    }
    std::latch held_up{1};
    const auto wait = [](void *latch) {
        static_cast<std::latch *>(latch)->wait();
    };
    obs_queue_task(OBS_TASK_DESTROY, wait, &held_up, false);
    obs_source_set_name(obs_scene_get_source(scene), "Renamed");
    EXPECT_EQ(canvas.scene_source_name("Idle"), "Renamed") << "a save right now has the old name";
    held_up.count_down();
    EXPECT_TRUE(wait_until([&] { return canvas.source_renames() == 2; }));

    // Its picture stays in a scene that nobody renders.
    ASSERT_TRUE(canvas.create_scene("Old picture"));
    ASSERT_TRUE(canvas.assign_scene_source("Old picture", "Renamed"));
    ASSERT_FALSE(canvas.assign_scene_source("Old picture", "Nowhere"));

    const OBSWeakSourceAutoRelease old = obs_source_get_weak_source(obs_scene_get_source(scene));
    obs_source_set_name(obs_scene_get_source(scene), "Last name");
    obs_source_remove(obs_scene_get_source(scene));
    scene = nullptr;
    EXPECT_TRUE(wait_until([&] {
        obs_wait_for_destroy_queue();
        return obs_weak_source_expired(old);
    })) << "the canvas keeps a removed source alive";
    EXPECT_EQ(canvas.active_source(), nullptr);
    EXPECT_EQ(canvas.scene_source_name("Scene 1"), "Last name") << "the assignment was lost";

    scene = obs_scene_create("Last name");
    EXPECT_TRUE(wait_until([&] { return canvas.active_source() == obs_scene_get_source(scene); }));
    EXPECT_TRUE(obs_source_showing(obs_scene_get_source(scene)));

    // A task that is still under way when the canvas goes must find nobody.
    obs_source_remove(obs_scene_get_source(scene));
}

// Another module may answer what the canvas does to a source with a change of its own, on the
// thread that follows the changes and in the middle of that work.
TEST_F(CanvasTest, follows_a_change_made_by_a_handler) {
    ASSERT_TRUE(canvas.create_scene("Second"));
    ASSERT_FALSE(canvas.assign_scene_source("Scene 1", "Awaited"));
    ASSERT_FALSE(canvas.assign_scene_source("Second", "Made"));
    const OBSSourceAutoRelease source = obs_source_create("ffmpeg_source", "Mic", nullptr, nullptr);
    obs_source_set_audio_mixers(source, 1);
    std::atomic<obs_source_t *> made = nullptr;
    const auto make = [](void *result, calldata_t *) {
        auto &made = *static_cast<std::atomic<obs_source_t *> *>(result);
        if (!made) {
            made = obs_source_create("color_source", "Made", nullptr, nullptr);
        }
    };
    const OBSSignal marked(obs_source_get_signal_handler(source), "audio_mixers", make, &made);
    obs_source_set_name(source, "Awaited");
    ASSERT_TRUE(wait_until([&] { return made.load() != nullptr; })) << "it waits for itself";
    const OBSSourceAutoRelease owned = made.load();
    EXPECT_TRUE(wait_until([&] { return obs_source_showing(owned); }));
}

} // namespace

} // namespace corvane::test
