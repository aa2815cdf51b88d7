// SPDX-License-Identifier: GPL-2.0-or-later
#include "canvas/vertical_canvas.hpp"

#include "testbed/obs_session.hpp"
#include "testbed/wait.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <latch>

using namespace corvane;
using namespace corvane::test;

namespace {

OBSSceneAutoRelease make_scene(const char *name) {
    return obs_scene_create(name);
}

bool is_gone(const OBSWeakSourceAutoRelease &source) {
    return wait_until([&] {
        obs_wait_for_destroy_queue();
        return obs_weak_source_expired(source);
    });
}

} // namespace

// A scene collection is switched by removing every source: one that the canvas holds on to makes
// the host stop saving the user's scenes, and one that it forgets leaves the stream black.
TEST(HostSourceChanges, are_followed_by_every_assignment) {
    ObsSession::destroy_released_sources();
    VerticalCanvas canvas({.width = 72, .height = 128});
    ASSERT_TRUE(canvas.init());
    ASSERT_TRUE(canvas.create_scene("Idle"));
    OBSSceneAutoRelease scene = make_scene("Host scene");
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
    EXPECT_TRUE(is_gone(old)) << "the canvas keeps a removed source alive";
    EXPECT_EQ(canvas.active_source(), nullptr);
    EXPECT_EQ(canvas.scene_source_name("Scene 1"), "Last name") << "the assignment was lost";

    scene = make_scene("Last name");
    EXPECT_TRUE(wait_until([&] { return canvas.active_source() == obs_scene_get_source(scene); }));
    EXPECT_TRUE(obs_source_showing(obs_scene_get_source(scene)));

    // A task that is still under way when the canvas goes must find nobody.
    obs_source_remove(obs_scene_get_source(scene));
}

// Another module may answer what the canvas does to a source with a change of its own, on the
// thread that follows the changes and in the middle of that work.
TEST(HostSourceChanges, are_followed_when_made_by_a_handler) {
    ObsSession::destroy_released_sources();
    VerticalCanvas canvas({.width = 72, .height = 128});
    ASSERT_TRUE(canvas.init());
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
