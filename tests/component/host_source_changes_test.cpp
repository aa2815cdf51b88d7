// SPDX-License-Identifier: GPL-2.0-or-later
#include "canvas/vertical_canvas.hpp"

#include "testbed/obs_session.hpp"
#include "testbed/wait.hpp"

#include <gtest/gtest.h>

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

    obs_source_set_name(obs_scene_get_source(scene), "Renamed");
    EXPECT_TRUE(wait_until([&] { return canvas.scene_source_name("Idle") == "Renamed"; }));

    const OBSWeakSourceAutoRelease old = obs_source_get_weak_source(obs_scene_get_source(scene));
    obs_source_remove(obs_scene_get_source(scene));
    scene = nullptr;
    EXPECT_TRUE(is_gone(old)) << "the canvas keeps a removed source alive";
    EXPECT_EQ(canvas.active_source(), nullptr);
    EXPECT_EQ(canvas.scene_source_name("Scene 1"), "Renamed") << "the assignment was lost";

    scene = make_scene("Renamed");
    EXPECT_TRUE(wait_until([&] { return canvas.active_source() == obs_scene_get_source(scene); }));
    EXPECT_TRUE(obs_source_showing(obs_scene_get_source(scene)));

    // A task that is still under way when the canvas goes must find nobody.
    obs_source_remove(obs_scene_get_source(scene));
}
