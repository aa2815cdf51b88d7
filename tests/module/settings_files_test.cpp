// SPDX-License-Identifier: GPL-2.0-or-later
#include "support/module_fixture.hpp"

#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <map>

namespace corvane::test {

namespace {

using testing::AllOf;
using testing::Contains;
using testing::IsSupersetOf;
using testing::Not;
using testing::StartsWith;

using SettingsFilesTest = ModuleFixture;

// Whatever is wrong with the folders or the files, the module must say so, still load with the
// values that are left, and not write over what is no settings file.
TEST_F(SettingsFilesTest, loads_with_what_is_left) {
    const auto file = profile_file("default");
    const std::string default_canvas = "I Canvas : 1080x1920 @ 30/1 fps";
    const auto left_alone = [&](const std::string &reason) {
        return Lines{default_canvas, "W Failed to open profile config: " + file.string(),
            "W Left alone, and nothing is saved there: " + file.string() + " is " + reason};
    };
    struct Case {
        const char *what;
        std::function<void()> arrange;
        Lines log;
    };
    for (const Case &c : std::vector<Case>{
             {"fresh profile", [&] { frontend.profile_dir += "/new"; },
                 {default_canvas, "I RTMP : ", "I Bitrate: 4000 kbps",
                     "I Auto-start with main: yes"}},
             {"no profile folder", [&] { frontend.profile_dir.clear(); },
                 {"W Could not resolve profile config path"}},
             {"profile folder in a file", [&] { frontend.profile_dir = file.string(); },
                 {"W Failed to open profile config: " + file.string() +
                     "/corvane-vertical-canvas.ini"}},
             {"pipe",
                 [&] {
                     std::filesystem::remove(file);
                     ASSERT_EQ(mkfifo(file.c_str(), 0600), 0);
                 },
                 left_alone("not a file")},
             {"50 MB", [&] { write_file(file, "[VerticalCanvas]\n" + std::string(50 << 20, 'x')); },
                 left_alone("too large")},
             {"garbage",
                 [&] {
                     write_file(file, "[VerticalCanvas]\ncanvaswidth=0x48\ncanvasheight= 128 px\n"
                                      "videobitrate=many\nautostartwithmain=perhaps\nunknown=1\n"
                                      "\x01\xff=\n=5\nnothing\n[]\n[Vert");
                     write_file(global_file, "[Scenes]\ncount=-1x\n");
                 },
                 {"I Canvas : 72x128 @ 30/1 fps", "I RTMP : ", "I Bitrate: 0 kbps",
                     "I Auto-start with main: no"}},
         }) {
        SCOPED_TRACE(c.what);
        std::filesystem::remove_all(settings_dir);
        std::filesystem::remove_all(file);
        use_profile("default", small_profile(""));
        c.arrange();
        const auto before = last_write_time(file);
        log.clear();
        EXPECT_TRUE(load());
        const bool may_be_saved = !log.has("Left alone");
        EXPECT_THAT(log.take(), IsSupersetOf(c.log));
        send(OBS_FRONTEND_EVENT_FINISHED_LOADING);
        unload();
        EXPECT_THAT(log.take(), AllOf(Contains("I Unloaded"), Not(Contains(StartsWith("W ")))));
        EXPECT_TRUE(may_be_saved || last_write_time(file) == before);
    }
}

// What a crash leaves must cost neither a later save nor itself: a damaged file is kept under a
// name of its own, and a blank one or those of a save that was cut off are in nobody's way.
TEST_F(SettingsFilesTest, begins_anew_after_a_crash) {
    const std::string file = profile_file("P").string();
    const std::string zeros(4096, '\0');
    const std::string cut("[VerticalCanvas]\n\0\n", 19);
    std::map<std::string, std::string> kept;
    for (const auto &[content, aside] : {std::pair{zeros, file + ".damaged"},
             {cut, file + ".damaged-2"}, {"rtmpurl=x", file + ".damaged-3"}, {" \n\n", ""}}) {
        SCOPED_TRACE(aside);
        use_profile("P", content);
        write_file(file + ".tmp", "x");
        write_file(file + ".room", "x");
        log.clear();
        EXPECT_TRUE(load());
        Lines warnings;
        if (!aside.empty()) {
            kept[aside] = content;
            warnings.push_back(std::format("W Damaged, moved aside: {} → {}", file, aside));
        }
        EXPECT_EQ(log.matching("W "), warnings);
        unload();
        EXPECT_THAT(read_lines(file), Contains("canvaswidth=1080"));
        std::map<std::string, std::string> found;
        for (const auto &entry : std::filesystem::directory_iterator(frontend.profile_dir)) {
            found[entry.path()] = read_text(entry.path());
        }
        found.erase(file);
        EXPECT_EQ(found, kept);
    }
}

// A full disk must not cost what was saved before. No file may grow here for as long as it is full.
TEST_F(SettingsFilesTest, survive_a_full_disk) {
    use_profile("P", small_profile("rtmp://kept/app"));
    ASSERT_TRUE(load());
    unload();
    const Lines saved = read_lines(profile_file("P"));
    const auto keys = global_file.parent_path() / "hotkeys.json";
    write_file(keys, "{}");
    ASSERT_TRUE(load());
    signal(SIGXFSZ, SIG_IGN);
    rlimit usual{};
    getrlimit(RLIMIT_FSIZE, &usual);
    const rlimit full{.rlim_cur = 0, .rlim_max = usual.rlim_max};
    setrlimit(RLIMIT_FSIZE, &full);
    send(OBS_FRONTEND_EVENT_EXIT);
    unload();
    setrlimit(RLIMIT_FSIZE, &usual);
    EXPECT_EQ(read_lines(profile_file("P")), saved);
    EXPECT_EQ(read_text(keys), "{}");
    EXPECT_THAT(log.take(),
        IsSupersetOf({"W Failed to save global config", "W Failed to save profile config"}));
}

// The scene list must come back scene by scene, and saving must write exactly what there is now
// while the keys beyond it stay.
TEST_F(SettingsFilesTest, restore_and_save_the_scenes) {
    const OBSSourceAutoRelease mic = obs_source_create("ffmpeg_source", "Mic", nullptr, nullptr);
    const HostScene odd("Ünï = [ö]");
    struct Case {
        const char *what;
        std::string ini;
        Lines log;
        Lines saved;
    };
    for (const Case &c : std::vector<Case>{
             {"nothing saved", "", {"I No saved scenes — keeping default Scene 1"},
                 {"count=1", "activescene=Scene 1", "scene_0_name=Scene 1", "scene_0_source="}},
             {"an empty name is skipped, none is active",
                 "count=3\nactivescene=\nscene_0_name=A\nscene_1_name=\nscene_1_source=Mic\n"
                 "scene_2_name=C\n",
                 {"I Scene created (private): A", "I Scene created (private): C",
                     "I Restored 3 scene(s), active: "},
                 {"count=2", "activescene=A", "scene_0_name=A", "scene_1_name=C",
                     "scene_1_source=", "scene_2_name=C"}},
             {"a scene called like the default, no active key",
                 "count=1\nscene_0_name=Scene 1\nscene_0_source=Mic\n",
                 {"I Scene removed: Scene 1", "I Scene created (private): Scene 1",
                     "I Restored 1 scene(s), active: (none)",
                     "I Re-applying source 'Mic' → scene 'Scene 1'"},
                 {"count=1", "activescene=Scene 1", "scene_0_name=Scene 1", "scene_0_source=Mic"}},
             {"a name twice, and the active one beyond the count",
                 "count=2\nactivescene=B\nscene_0_name=A\nscene_0_source=Mic\nscene_1_name=A\n"
                 "scene_1_source=Ünï = [ö]\nscene_2_name=B\nscene_2_source=Mic\n",
                 {"W Scene already exists: A", "I Scene 'A': source assigned → 'Ünï = [ö]'",
                     "W set_active_scene — not found: B", "I Restored 2 scene(s), active: B"},
                 {"count=1", "activescene=A", "scene_0_name=A", "scene_0_source=Ünï = [ö]",
                     "scene_1_name=A", "scene_2_name=B", "scene_2_source=Mic"}},
             {"blanks around names, and a source that is gone",
                 "count=1\nactivescene= A \nscene_0_name= A \nscene_0_source=  Gone\t\n",
                 {"W assign_scene_source — OBS source not found:   Gone\t",
                     "I Restored 1 scene(s), active:  A "},
                 {"count=1", "activescene= A ", "scene_0_name= A ", "scene_0_source=  Gone\t"}},
         }) {
        SCOPED_TRACE(c.what);
        write_file(global_file, "[Scenes]\n" + c.ini);
        ASSERT_TRUE(load());
        log.clear();
        send(OBS_FRONTEND_EVENT_FINISHED_LOADING);
        EXPECT_THAT(log.take(), IsSupersetOf(c.log));
        unload();
        EXPECT_THAT(read_lines(global_file), IsSupersetOf(c.saved));
    }
}

// A host that ends, or switches the profile, before it has loaded its scenes must not cost the user
// the list: the canvas then holds no more than its default.
TEST_F(SettingsFilesTest, are_not_overwritten_unread) {
    const std::string list = "[Scenes]\ncount=2\nactivescene=B\nscene_0_name=A\nscene_1_name=B\n";
    for (const bool switch_profile : {false, true}) {
        write_file(global_file, list);
        const Lines before = read_lines(global_file);
        ASSERT_TRUE(load());
        if (switch_profile) {
            send(OBS_FRONTEND_EVENT_PROFILE_CHANGED);
            EXPECT_TRUE(log.has("I Restored 2 scene(s), active: B"));
        }
        unload();
        EXPECT_THAT(read_lines(global_file), IsSupersetOf(before));
        EXPECT_EQ(log.has("I Scene list saved"), switch_profile);
    }
}

} // namespace

} // namespace corvane::test
