// SPDX-License-Identifier: GPL-2.0-or-later
#include "testbed/loaded_module.hpp"

namespace corvane::test {

namespace {

using testing::IsSupersetOf;

using SceneListTest = LoadedModule;

// What is in the file must come back scene by scene, and saving must write exactly what there
// is now while the keys beyond it stay.
TEST_F(SceneListTest, RestoresAndSaves) {
    const OBSSourceAutoRelease mic = obs_source_create("ffmpeg_source", "Mic", nullptr, nullptr);
    const HostScene odd("Ünï = [ö]");
    struct Case {
        const char *what;
        std::string ini;
        Lines log;
        std::vector<std::string> saved;
    };
    const std::vector<Case> cases{
        {"nothing saved", "", {"I No saved scenes — keeping default Scene 1"},
            {"count=1", "activescene=Scene 1", "scene_0_name=Scene 1", "scene_0_source="}},
        {"an empty name is skipped",
            "count=3\nscene_0_name=A\nscene_1_name=\nscene_1_source=Mic\nscene_2_name=C\n",
            {"I Scene created (private): A", "I Scene created (private): C",
                "I Restored 3 scene(s), active: (none)"},
            {"count=2", "activescene=A", "scene_0_name=A", "scene_1_name=C",
                "scene_1_source=", "scene_2_name=C"}},
        {"a scene called like the default",
            "count=1\nactivescene=Scene 1\nscene_0_name=Scene 1\nscene_0_source=Mic\n",
            {"I Scene removed: Scene 1", "I Scene created (private): Scene 1",
                "I Restored 1 scene(s), active: Scene 1",
                "I Re-applying source 'Mic' → scene 'Scene 1'"},
            {"count=1", "activescene=Scene 1", "scene_0_name=Scene 1", "scene_0_source=Mic"}},
        {"a name twice",
            "count=2\nscene_0_name=A\nscene_0_source=Mic\nscene_1_name=A\n"
            "scene_1_source=Ünï = [ö]\n",
            {"W Scene already exists: A", "I Scene 'A': source assigned → 'Ünï = [ö]'"},
            {"count=1", "scene_0_name=A", "scene_0_source=Ünï = [ö]", "scene_1_name=A"}},
        {"keys beyond the count",
            "count=1\nactivescene=B\nscene_0_name=A\nscene_1_name=B\nscene_1_source=Mic\n",
            {"W set_active_scene — not found: B", "I Restored 1 scene(s), active: B"},
            {"count=1", "activescene=A", "scene_0_name=A", "scene_1_name=B", "scene_1_source=Mic"}},
        {"blanks around names",
            "count=1\nactivescene= A \nscene_0_name= A \nscene_0_source=  Far\t\n",
            {"I Restored 1 scene(s), active:  A "},
            {"activescene= A ", "scene_0_name= A ", "scene_0_source=  Far\t"}},
        {"an empty active name, a source that is gone",
            "count=1\nactivescene=\nscene_0_name=A\nscene_0_source=Gone\n",
            {"W assign_scene_source — OBS source not found: Gone",
                "I Restored 1 scene(s), active: "},
            {"count=1", "activescene=A", "scene_0_name=A", "scene_0_source=Gone"}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        write_file(global_file(), "[Scenes]\n" + c.ini);
        ASSERT_TRUE(load());
        log.clear();
        send(OBS_FRONTEND_EVENT_FINISHED_LOADING);
        EXPECT_THAT(log.take(), IsSupersetOf(c.log));
        unload();
        EXPECT_THAT(read_lines(global_file()), IsSupersetOf(c.saved));
    }
}

// A host that ends, or switches the profile, before it has loaded its scenes must not cost the user
// the list: the canvas then holds no more than its default.
TEST_F(SceneListTest, IsNotOverwrittenUnread) {
    const Lines list{"[Scenes]", "count=2", "activescene=B", "scene_0_name=A", "scene_1_name=B"};
    for (const bool switch_profile : {false, true}) {
        write_file(global_file(), list);
        ASSERT_TRUE(load());
        if (switch_profile) {
            send(OBS_FRONTEND_EVENT_PROFILE_CHANGED);
            EXPECT_TRUE(log.has("I Restored 2 scene(s), active: B"));
        }
        unload();
        EXPECT_THAT(read_lines(global_file()), IsSupersetOf(list));
        EXPECT_EQ(log.has("I Scene list saved"), switch_profile);
        log.clear();
    }
}

} // namespace

} // namespace corvane::test
