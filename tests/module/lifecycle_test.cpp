// SPDX-License-Identifier: GPL-2.0-or-later
#include "testbed/loaded_module.hpp"

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

// A canvas that cannot be built must make the host refuse the module, with nothing registered
// and the unload that may follow harmless.
TEST_F(LifecycleTest, RefusesToLoadWithoutCanvas) {
    use_profile("P", "[VerticalCanvas]\nfpsden=0\n");
    EXPECT_FALSE(load());
    EXPECT_THAT(
        log.take(), testing::IsSupersetOf({"E obs_view_add2() failed", "E Canvas init failed",
                        "E Runtime init failed — plugin will not load"}));
    EXPECT_TRUE(StandInFrontend::get().callbacks.empty());
    unload();
    EXPECT_THAT(log.take(), ElementsAre("I Unloading", "I Unloaded"));
}

} // namespace

} // namespace corvane::test
