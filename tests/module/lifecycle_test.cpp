// SPDX-License-Identifier: GPL-2.0-or-later
#include "testbed/loaded_module.hpp"

#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <format>
#include <fstream>
#include <iterator>
#include <map>

namespace corvane::test {

namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::IsSupersetOf;
using testing::Not;
using testing::StartsWith;

using LifecycleTest = LoadedModule;

const std::string rule = "I " + std::string(60, '=');

// The host refuses a module with a wrong identity, and users read the log's order.
TEST_F(LifecycleTest, LoadsAndUnloadsInOrder) {
    EXPECT_EQ(exported<uint32_t()>("obs_module_ver")(), 0x20000004);
    EXPECT_STREQ(exported<const char *()>("obs_module_name")(), "Corvane Vertical Canvas");
    EXPECT_STREQ(exported<const char *()>("obs_module_description")(),
        "Vertical canvas streams a second 9:16 RTMP output simultaneously");

    use_profile("P", small_profile("rtmp://server/app", false));
    ASSERT_TRUE(load());
    EXPECT_THAT(log.take(),
        ElementsAre(rule, "I Loading version 1.0.0", rule,
            "I Registered output type: cv_vertical_mux_rtmp",
            "I Global config loaded from: " + global_file().string(),
            "I Profile config loaded from: " + profile_file("P").string(),
            "I Scene created (private): Scene 1", "I Canvas initialised: 72x128 @ 30/1 fps",
            "I VerticalOutput initialised (runtime encoder fallback enabled)",
            "I Runtime created: 72x128 @ 30/1 fps", "I Loaded successfully",
            "I Canvas : 72x128 @ 30/1 fps", "I RTMP : rtmp://server/app", "I Bitrate: 300 kbps",
            "I Auto-start with main: no", rule));
    EXPECT_EQ(obs_get_output_flags("cv_vertical_mux_rtmp"), 0x17);
    EXPECT_EQ(StandInFrontend::get().callbacks.size(), 1);

    for (int again = 0; again < 2; ++again) {
        unload();
        Lines expected{"I Unloading"};
        if (again == 0) {
            expected.insert(
                expected.end(), {"I Scene list saved (1 scene(s))", "I VerticalOutput destroyed",
                                    "I Canvas shut down"});
        }
        expected.emplace_back("I Unloaded");
        EXPECT_EQ(log.take(), expected);
    }
    EXPECT_THAT(read_lines(profile_file("P")), Not(Contains("; by hand"))) << "not saved";
}

// Whatever is wrong with the folders or the files, the module must say so and still load with
// the values that are left.
TEST_F(LifecycleTest, LoadsWithWhatIsLeft) {
    const Lines defaults{"I Canvas : 1080x1920 @ 30/1 fps", "I RTMP : ", "I Bitrate: 4000 kbps",
        "I Auto-start with main: yes"};
    struct Case {
        const char *what;
        std::function<void()> arrange;
        Lines log;
    };
    const std::vector<Case> cases{
        {"fresh profile", [&] { profile_dir += "/new"; }, defaults},
        {"no profile folder", [&] { profile_dir.clear(); },
            {"W Could not resolve profile config path"}},
        {"profile folder in a file", [&] { profile_dir = profile_file("default").string(); },
            {"W Failed to open profile config: " + profile_file("default").string() +
                "/corvane-vertical-canvas.ini"}},
        {"settings folder is a file", [&] { write_file(settings_dir, "x"); },
            {"W Failed to open global config: " + global_file().string()}},
        {"garbage",
            [&] {
                use_profile("garbage",
                    "[VerticalCanvas]\ncanvaswidth=0x48\ncanvasheight= 128 px\nvideobitrate=many\n"
                    "autostartwithmain=perhaps\nunknown=1\n\x01\xff=\n=5\nnothing\n[]\n[Vert");
                write_file(global_file(), "[Scenes]\ncount=-1x\n");
            },
            {"I Canvas : 72x128 @ 30/1 fps", "I RTMP : ", "I Bitrate: 0 kbps",
                "I Auto-start with main: no"}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        std::filesystem::remove_all(settings_dir);
        use_profile("default", small_profile(""));
        c.arrange();
        log.clear();
        EXPECT_TRUE(load());
        EXPECT_THAT(log.take(), IsSupersetOf(c.log));
        send(OBS_FRONTEND_EVENT_FINISHED_LOADING);
        unload();
        EXPECT_THAT(log.take(), AllOf(Contains("I Unloaded"), Not(Contains(StartsWith("W ")))));
    }
}

// What stands in the place of the settings and is none must neither take the host along nor be
// written over.
TEST_F(LifecycleTest, LeavesAloneWhatIsNoSettingsFile) {
    const auto file = profile_file("P");
    for (const auto &[objection, put] : std::vector<std::pair<std::string, std::function<void()>>>{
             {"not a file", [&] { std::filesystem::create_directories(file); }},
             {"not a file", [&] { ASSERT_EQ(mkfifo(file.c_str(), 0600), 0); }},
             {"too large",
                 [&] { write_file(file, "[VerticalCanvas]\n" + std::string(50 << 20, 'x')); }}}) {
        SCOPED_TRACE(objection);
        use_profile("P", "");
        std::filesystem::remove(file);
        put();
        const auto before = last_write_time(file);
        EXPECT_TRUE(load());
        EXPECT_THAT(log.take(),
            IsSupersetOf(
                {"W Left alone, and nothing is saved there: " + file.string() + " is " + objection,
                    "W Failed to open profile config: " + file.string(),
                    std::string("I Canvas : 1080x1920 @ 30/1 fps")}));
        unload();
        EXPECT_EQ(last_write_time(file), before);
        std::filesystem::remove_all(file);
    }
}

// What a crash leaves must cost neither a later save nor itself: a damaged file is kept under a
// name of its own, and a blank one or those of a save that was cut off are in nobody's way.
TEST_F(LifecycleTest, BeginsAnewAfterACrash) {
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
        for (const auto &entry : std::filesystem::directory_iterator(profile_dir)) {
            std::ifstream stream(entry.path(), std::ios::binary);
            found[entry.path()] = {std::istreambuf_iterator(stream), {}};
        }
        found.erase(file);
        EXPECT_EQ(found, kept);
        log.clear();
    }
}

// A full disk must not cost what was saved before. No file may grow here for as long as it is full.
TEST_F(LifecycleTest, KeepsTheFilesOnAFullDisk) {
    use_profile("P", small_profile("rtmp://kept/app"));
    ASSERT_TRUE(load());
    unload();
    const Lines saved = read_lines(profile_file("P"));
    ASSERT_TRUE(load());
    signal(SIGXFSZ, SIG_IGN);
    rlimit usual{};
    getrlimit(RLIMIT_FSIZE, &usual);
    const rlimit full{.rlim_cur = 0, .rlim_max = usual.rlim_max};
    setrlimit(RLIMIT_FSIZE, &full);
    unload();
    setrlimit(RLIMIT_FSIZE, &usual);
    EXPECT_EQ(read_lines(profile_file("P")), saved);
    EXPECT_THAT(log.take(),
        IsSupersetOf({"W Failed to save global config", "W Failed to save profile config"}));
}

// A canvas that cannot be built must make the host refuse the module, with nothing registered
// and the unload that may follow harmless; nor may the attempt hang or end the host.
TEST_F(LifecycleTest, RefusesToLoadWithoutCanvas) {
    for (const char *keys : {"fpsden=0", "fpsnum=0", "canvaswidth=0", "canvaswidth=71",
             "canvasheight=127", "canvasheight=65535", "canvaswidth=-2\ncanvasheight=-2"}) {
        SCOPED_TRACE(keys);
        use_profile("P", std::string("[VerticalCanvas]\n") + keys + "\n");
        EXPECT_FALSE(load());
        EXPECT_THAT(
            log.take(), testing::IsSupersetOf({"E obs_view_add2() failed", "E Canvas init failed",
                            "E Runtime init failed — plugin will not load"}));
        EXPECT_TRUE(StandInFrontend::get().callbacks.empty());
        unload();
        EXPECT_THAT(log.take(), ElementsAre("I Unloading", "I Unloaded"));
    }
}

} // namespace

} // namespace corvane::test
