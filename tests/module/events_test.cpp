// SPDX-License-Identifier: GPL-2.0-or-later
#include "support/local_server.hpp"
#include "support/module_fixture.hpp"
#include "support/user_actions.hpp"

namespace corvane::test {

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

class EventsTest : public ModuleFixture {
protected:
    // Starts with the main stream and returns whether frames arrive.
    bool goes_live(const std::string &key = "k") {
        send(OBS_FRONTEND_EVENT_STREAMING_STARTING);
        const bool received = sink.wait_for_frames(key, 5);
        sink.forget(key);
        return received && live();
    }
    bool ends_after(obs_frontend_event event) {
        send(event);
        return wait_until([] { return !live(); });
    }

    const LocalServer sink;
};

// The host refuses a module with a wrong identity, and users read the log's order.
TEST_F(EventsTest, load_and_unload_in_order) {
    EXPECT_EQ(exported<uint32_t()>("obs_module_ver")(), 0x20000004);
    EXPECT_STREQ(exported<const char *()>("obs_module_name")(), "Corvane Vertical Canvas");
    EXPECT_STREQ(exported<const char *()>("obs_module_description")(),
        "Vertical canvas streams a second 9:16 RTMP output simultaneously");

    use_profile("P", small_profile("rtmp://server/app", false));
    ASSERT_TRUE(load());
    const std::string rule = "I " + std::string(60, '=');
    EXPECT_THAT(log.take(),
        ElementsAre(rule, "I Loading version 1.0.0", rule,
            "I Registered output type: cv_vertical_mux_rtmp",
            "I Global config loaded from: " + global_file.string(),
            "I Profile config loaded from: " + profile_file("P").string(),
            "I Scene created (private): Scene 1", "I Canvas initialised: 72x128 @ 30/1 fps",
            "I VerticalOutput initialised (runtime encoder fallback enabled)",
            "I Runtime created: 72x128 @ 30/1 fps", "I Loaded successfully",
            "I Canvas : 72x128 @ 30/1 fps", "I RTMP : rtmp://server/app", "I Bitrate: 300 kbps",
            "I Auto-start with main: no", rule));
    EXPECT_EQ(obs_get_output_flags("cv_vertical_mux_rtmp"), 0x17);
    EXPECT_EQ(frontend.callbacks.size(), 1);
    unload();
    EXPECT_THAT(log.take(), ElementsAre("I Unloading", "I Scene list saved (1 scene(s))",
                                "I VerticalOutput destroyed", "I Canvas shut down", "I Unloaded"));
    unload();
    EXPECT_THAT(log.take(), ElementsAre("I Unloading", "I Unloaded"));
    EXPECT_THAT(read_lines(profile_file("P")), Not(Contains("; by hand"))) << "not saved";
}

// A canvas that cannot be built must make the host refuse the module, with nothing registered
// and the unload that may follow harmless; nor may the attempt hang or end the host.
TEST_F(EventsTest, load_fails_without_canvas) {
    for (const std::string keys : {"fpsden=0", "fpsnum=0", "canvaswidth=0", "canvaswidth=71",
             "canvasheight=127", "canvasheight=65535", "canvaswidth=-2\ncanvasheight=-2"}) {
        SCOPED_TRACE(keys);
        use_profile("P", "[VerticalCanvas]\n" + keys);
        EXPECT_FALSE(load());
        EXPECT_THAT(
            log.take(), testing::IsSupersetOf({"E obs_view_add2() failed", "E Canvas init failed",
                            "E Runtime init failed — plugin will not load"}));
        EXPECT_TRUE(frontend.callbacks.empty());
        unload();
        EXPECT_THAT(log.take(), ElementsAre("I Unloading", "I Unloaded"));
    }
}

// The vertical stream must follow the main one, once, and nothing may be done twice or unasked.
TEST_F(EventsTest, stream_follows_the_main_stream) {
    use_profile("P", small_profile(sink.url()));
    ASSERT_TRUE(load());
    log.clear();
    for (const auto event : {OBS_FRONTEND_EVENT_STREAMING_STOPPED, OBS_FRONTEND_EVENT_EXIT,
             OBS_FRONTEND_EVENT_STREAMING_STARTED}) {
        send(event);
        EXPECT_THAT(log.take(), IsEmpty());
    }
    for (const auto &[event, line] : {std::pair{OBS_FRONTEND_EVENT_STREAMING_STOPPED,
                                          "I Main stream stopped — stopping vertical output"},
             {OBS_FRONTEND_EVENT_EXIT, "I OBS exiting — stopping vertical output"}}) {
        EXPECT_TRUE(goes_live());
        EXPECT_THAT(log.take(), Contains("I Main stream starting — auto-starting vertical output"));
        send(OBS_FRONTEND_EVENT_STREAMING_STARTING);
        EXPECT_THAT(log.take(), IsEmpty());
        EXPECT_TRUE(ends_after(event));
        EXPECT_THAT(log.take(), Contains(line));
    }
    EXPECT_TRUE(goes_live());
    unload();
    EXPECT_FALSE(live());

    // The switch that is off is obeyed; it counts as on when no settings file is open.
    use_profile("off", small_profile(sink.url(), false));
    ASSERT_TRUE(load());
    log.clear();
    send(OBS_FRONTEND_EVENT_STREAMING_STARTING);
    EXPECT_THAT(log.take(), IsEmpty());
    frontend.profile_dir.clear();
    send(OBS_FRONTEND_EVENT_PROFILE_CHANGED);
    log.clear();
    send(OBS_FRONTEND_EVENT_STREAMING_STARTING);
    EXPECT_THAT(
        log.take(), ElementsAre("I Main stream starting — auto-starting vertical output",
                        testing::StartsWith("E Vertical output start failed: RTMP URL is empty.")));
}

// What is saved while the stream is live must count from its next start. With the type that keeps
// the connection no secret may get into the log on any of these ways.
TEST_F(EventsTest, stream_takes_saved_settings_at_its_next_start) {
    const std::string nobody = "rtmp://127.0.0.1:" + std::to_string(free_port()) + "/live";
    for (const bool resilient : {false, true}) {
        const std::string secret = resilient ? "hidden" : "shown";
        const std::string key = "key-" + secret;
        const auto url = [&](const std::string &server) {
            return std::format(
                "rtmp://user-{0}:word-{0}@{1}?token=query-{0}", secret, server.substr(7));
        };
        use_profile("P", small_profile(url(sink.url()), true, key) +
                             std::format("[Resilience]\nenabled={}", resilient));
        ASSERT_TRUE(load());
        EXPECT_TRUE(goes_live(key));
        const auto type = [&](QWidget &dialog) {
            type_over(child<QLineEdit>(dialog, "urlEdit"), QString::fromStdString(url(nobody)));
            type_over(child<QLineEdit>(dialog, "keyEdit"), QString::fromStdString("new-" + key));
        };
        answering("=>Save", frontend.tools_menu.back().second, type);
        EXPECT_TRUE(live());
        EXPECT_EQ(sink.ended(key), "");
        EXPECT_TRUE(ends_after(OBS_FRONTEND_EVENT_STREAMING_STOPPED));
        bool refused = false;
        const auto start = [&] {
            send(OBS_FRONTEND_EVENT_STREAMING_STARTING);
            EXPECT_TRUE(wait_until([&] { return refused && !live(); }));
        };
        answering("=>OK", start, [&](QWidget &) { refused = true; });
        unload();
        EXPECT_EQ(log.whole().find(secret) == std::string::npos, resilient);
    }
}

// A live switch must end the stream, carry the scenes over to the new canvas and leave the old
// profile's file alone.
TEST_F(EventsTest, profile_change_rebuilds) {
    const OBSSourceAutoRelease mic = obs_source_create("ffmpeg_source", "Mic", nullptr, nullptr);
    obs_source_set_audio_mixers(mic, 1);
    write_file(global_file, "[Scenes]\ncount=2\nactivescene=B\nscene_0_name=A\nscene_1_name=B\n"
                            "scene_1_source=Mic\n");
    use_profile("old", small_profile(sink.url()));
    const Lines old_text = read_lines(profile_file("old"));
    ASSERT_TRUE(load());
    send(OBS_FRONTEND_EVENT_FINISHED_LOADING);
    EXPECT_EQ(obs_source_get_audio_mixers(mic), 1 | 32);
    EXPECT_TRUE(goes_live());
    log.clear();

    use_profile(
        "new", "[VerticalCanvas]\ncanvaswidth=64\ncanvasheight=96\nuseactivesceneaudio=0\n");
    send(OBS_FRONTEND_EVENT_PROFILE_CHANGED);
    EXPECT_FALSE(live());
    Lines steps = log.take();
    // What else is logged in between, placements and file names, is told elsewhere.
    std::erase_if(steps, [](const std::string &line) {
        return line.find("laced") != line.npos || line.find("config") != line.npos ||
               line.starts_with("I Scene ");
    });
    EXPECT_THAT(
        steps, ElementsAre("I OBS profile changed — rebuilding profile-specific runtime",
                   "I Profile change — rebuilding vertical runtime",
                   "I Vertical output stop requested (obs_x264)", "I VerticalOutput destroyed",
                   "I Canvas shut down", "I Canvas initialised: 64x96 @ 30/1 fps",
                   "I VerticalOutput initialised (runtime encoder fallback enabled)",
                   "I Runtime created: 64x96 @ 30/1 fps", "I Active scene: B",
                   "I Restored 2 scene(s), active: B", "I Re-applying source 'Mic' → scene 'B'"));
    EXPECT_EQ(obs_source_get_audio_mixers(mic), 1);
    EXPECT_TRUE(obs_source_showing(mic));
    EXPECT_EQ(read_lines(profile_file("old")), old_text);
    unload();
    EXPECT_FALSE(obs_source_showing(mic));
}

// An event raised by the host from inside our own handling must be dropped, not handled twice
// over, and the next one must get through again.
TEST_F(EventsTest, events_raised_while_handling_are_dropped) {
    ASSERT_TRUE(load());
    log.clear();
    log.at_each_line([&](const std::string &line) {
        if (line.starts_with("I Main stream starting")) {
            send(OBS_FRONTEND_EVENT_FINISHED_LOADING);
        }
    });
    send(OBS_FRONTEND_EVENT_STREAMING_STARTING);
    log.at_each_line({});
    EXPECT_FALSE(log.has("No saved scenes"));
    send(OBS_FRONTEND_EVENT_FINISHED_LOADING);
    EXPECT_TRUE(log.has("I No saved scenes — keeping default Scene 1"));
}

} // namespace

} // namespace corvane::test
