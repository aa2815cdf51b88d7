// SPDX-License-Identifier: GPL-2.0-or-later
#include "testbed/box_catcher.hpp"
#include "testbed/loaded_module.hpp"
#include "testbed/local_sink.hpp"
#include "testbed/person.hpp"
#include "testbed/ports.hpp"

#include <format>

namespace corvane::test {

namespace {

using testing::ElementsAre;

class EventsTest : public LoadedModule {
protected:
    bool went_live(const std::string &key = "k") const {
        const bool received = sink.wait_for_pictures(key, 5);
        sink.forget(key);
        return received && live();
    }
    bool ended() {
        return wait_until([] { return !live(); });
    }

    const LocalSink sink;
};

// The vertical stream must follow the main one, once, and nothing may be done twice or unasked.
TEST_F(EventsTest, FollowsTheMainStream) {
    use_profile("P", small_profile(sink.url()));
    ASSERT_TRUE(load());
    log.clear();
    send(OBS_FRONTEND_EVENT_STREAMING_STOPPED);
    send(OBS_FRONTEND_EVENT_EXIT);
    send(OBS_FRONTEND_EVENT_STREAMING_STARTED);
    EXPECT_THAT(log.take(), ElementsAre());

    send(OBS_FRONTEND_EVENT_STREAMING_STARTING);
    EXPECT_TRUE(went_live());
    EXPECT_EQ(log.take_first(), "I Main stream starting — auto-starting vertical output");
    send(OBS_FRONTEND_EVENT_STREAMING_STARTING);
    EXPECT_THAT(log.take(), ElementsAre());
    send(OBS_FRONTEND_EVENT_STREAMING_STOPPED);
    EXPECT_TRUE(log.has("I Main stream stopped — stopping vertical output"));
    EXPECT_TRUE(ended());

    send(OBS_FRONTEND_EVENT_STREAMING_STARTING);
    EXPECT_TRUE(went_live());
    send(OBS_FRONTEND_EVENT_EXIT);
    EXPECT_TRUE(log.has("I OBS exiting — stopping vertical output"));
    EXPECT_TRUE(ended());

    send(OBS_FRONTEND_EVENT_STREAMING_STARTING);
    EXPECT_TRUE(went_live());
    unload();
    EXPECT_FALSE(live());
}

// The switch must be obeyed when it is off and count as on when no settings file is open.
TEST_F(EventsTest, AutoStartSwitch) {
    use_profile("off", small_profile(sink.url(), false));
    ASSERT_TRUE(load());
    log.clear();
    send(OBS_FRONTEND_EVENT_STREAMING_STARTING);
    EXPECT_THAT(log.take(), ElementsAre());

    profile_dir.clear();
    send(OBS_FRONTEND_EVENT_PROFILE_CHANGED);
    log.clear();
    send(OBS_FRONTEND_EVENT_STREAMING_STARTING);
    EXPECT_THAT(log.take(),
        ElementsAre("I Main stream starting — auto-starting vertical output",
            "E Vertical output start failed: RTMP URL is empty. Configure it in Tools → Corvane "
            "Vertical Streaming Settings."));
}

// What is saved while the stream is live must count from its next start. With the type that keeps
// the connection no secret may get into the log on any of these ways.
TEST_F(EventsTest, SavesForTheNextStart) {
    for (const bool resilient : {false, true}) {
        const std::string secret = resilient ? "hidden" : "shown";
        const auto url = [&](const std::string &server) {
            return std::format(
                "rtmp://user-{0}:word-{0}@{1}?token=query-{0}", secret, server.substr(7));
        };
        const auto save = [&](const std::string &server, const std::string &key) {
            const auto type = [&](QWidget &dialog) {
                type_over(child<QLineEdit>(dialog, "urlEdit"), QString::fromStdString(url(server)));
                type_over(child<QLineEdit>(dialog, "keyEdit"), QString::fromStdString(key));
            };
            const auto &open = StandInFrontend::get().tools_menu.back().second;
            EXPECT_EQ(answering("=>Save", open, type), "Vertical Canvas — Settings|");
        };
        use_profile("P", small_profile(url(sink.url()), true, "key-1-" + secret) +
                             "[Resilience]\nenabled=" + (resilient ? "true" : "false"));
        ASSERT_TRUE(load());
        send(OBS_FRONTEND_EVENT_STREAMING_STARTING);
        EXPECT_TRUE(went_live("key-1-" + secret));
        save(sink.url(), "key-2-" + secret);
        EXPECT_TRUE(live());
        EXPECT_EQ(sink.ended("key-1-" + secret), "");
        send(OBS_FRONTEND_EVENT_STREAMING_STOPPED);
        EXPECT_TRUE(ended());
        send(OBS_FRONTEND_EVENT_STREAMING_STARTING);
        EXPECT_TRUE(went_live("key-2-" + secret));
        save("rtmp://127.0.0.1:" + std::to_string(free_port()) + "/live", "key-3-" + secret);
        send(OBS_FRONTEND_EVENT_STREAMING_STOPPED);
        EXPECT_TRUE(ended());
        BoxCatcher screen;
        send(OBS_FRONTEND_EVENT_STREAMING_STARTING);
        EXPECT_TRUE(wait_until([&] { return !screen.boxes.empty() && !live(); }));
        unload();
        EXPECT_EQ(log.whole().find(secret) == std::string::npos, resilient);
    }
}

// A live switch must end the stream, carry the scenes over to the new canvas and leave the old
// profile's file alone.
TEST_F(EventsTest, ProfileSwitchRebuilds) {
    const OBSSourceAutoRelease mic = obs_source_create("ffmpeg_source", "Mic", nullptr, nullptr);
    obs_source_set_audio_mixers(mic, 1);
    write_file(global_file(), "[Scenes]\ncount=2\nactivescene=B\nscene_0_name=A\nscene_1_name=B\n"
                              "scene_1_source=Mic\n");
    use_profile("old", small_profile(sink.url()));
    const Lines old_text = read_lines(profile_file("old"));
    ASSERT_TRUE(load());
    send(OBS_FRONTEND_EVENT_FINISHED_LOADING);
    EXPECT_EQ(obs_source_get_audio_mixers(mic), 1 | 32);
    send(OBS_FRONTEND_EVENT_STREAMING_STARTING);
    EXPECT_TRUE(went_live());
    log.clear();

    use_profile(
        "new", "[VerticalCanvas]\ncanvaswidth=64\ncanvasheight=96\nuseactivesceneaudio=0\n");
    send(OBS_FRONTEND_EVENT_PROFILE_CHANGED);
    EXPECT_FALSE(live());
    const Lines lines = log.take();
    // What else is logged in between, placements and file names, is told elsewhere.
    Lines steps;
    std::ranges::copy_if(lines, std::back_inserter(steps), [](const std::string &line) {
        return line.find("laced") == std::string::npos &&
               line.find("config") == std::string::npos && line.find("Scene ") != 2;
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
TEST_F(EventsTest, DropsEventsRaisedWhileHandling) {
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
