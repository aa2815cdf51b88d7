// SPDX-License-Identifier: GPL-2.0-or-later
// The options of the Tools menu, and the hotkeys.
#include "support/local_server.hpp"
#include "support/module_fixture.hpp"
#include "support/user_actions.hpp"

#include <QMenu>

namespace corvane::test {

namespace {

using testing::Contains;

class OptionsTest : public ModuleFixture {
protected:
    OptionsTest() {
        frontend.main_window = &window;
        write_file(global_file, "[Scenes]\ncount=3\nactivescene=A\nscene_0_name=A\n"
                                "scene_1_name=B\nscene_1_source=Program\nscene_2_name=C\n"
                                "scene_2_source=Program\n");
        use_profile("P", small_profile(sink.url()));
        open();
    }
    ~OptionsTest() override { delete window.findChild<QWidget *>("corvane-vertical-canvas"); }

    void open() {
        EXPECT_TRUE(load());
        send(OBS_FRONTEND_EVENT_FINISHED_LOADING);
    }
    // Whether the entry was checked. It is switched.
    bool toggle(const QString &text) const {
        QMenu *menu = frontend.tools_action->menu();
        Q_EMIT menu->aboutToShow();
        for (QAction *action : menu->actions()) {
            if (action->text() == text) {
                const bool checked = action->isChecked();
                action->trigger();
                return checked;
            }
        }
        ADD_FAILURE() << "no entry " << text.toStdString();
        return false;
    }
    std::string active() const { return child<QLabel>(window, "sceneLabel").text().toStdString(); }
    std::string type() const {
        const auto outputs = all<OBSOutput>(obs_enum_outputs);
        return outputs.empty() ? "" : obs_output_get_id(outputs.front());
    }

    const LocalServer sink;
};

obs_hotkey_id hotkey(const std::string &description) {
    std::pair<std::string, obs_hotkey_id> wanted(description, OBS_INVALID_HOTKEY_ID);
    const auto look = [](void *data, obs_hotkey_id id, obs_hotkey_t *key) {
        auto &[text, found] = *static_cast<decltype(wanted) *>(data);
        found = text == obs_hotkey_get_description(key) ? id : found;
        return true;
    };
    obs_enum_hotkeys(look, &wanted);
    return wanted.second;
}

// As the host does. What the key does is queued to the event loop.
void press_key(const std::string &description) {
    ASSERT_NE(hotkey(description), OBS_INVALID_HOTKEY_ID) << description;
    obs_hotkey_enable_callback_rerouting(true);
    for (const bool pressed : {true, false}) {
        obs_hotkey_trigger_routed_callback(hotkey(description), pressed);
    }
    QCoreApplication::processEvents();
}

size_t bindings(const std::string &description) {
    const OBSDataArrayAutoRelease saved = obs_hotkey_save(hotkey(description));
    return obs_data_array_count(saved);
}

// Whoever streams must not lose the stream to an option, and yet get the option.
TEST_F(OptionsTest, reconnecting_begins_when_the_stream_has_ended) {
    EXPECT_EQ(frontend.tools_action->text(), "Corvane Vertical Options");
    press_key("Start vertical stream");
    ASSERT_TRUE(sink.wait_for_frames("k", 5));
    EXPECT_EQ(type(), "cv_vertical_mux_rtmp");
    EXPECT_FALSE(toggle("Reconnect Automatically"));
    EXPECT_TRUE(live());
    EXPECT_THAT(read_lines(profile_file("P")), Contains("enabled=true"));
    press_key("Start vertical stream");
    EXPECT_FALSE(log.has("already active"));
    press_key("Stop vertical stream");
    EXPECT_TRUE(log.wait_for("Reconnect Automatically on — rebuilding vertical runtime"));
    press_key("Start vertical stream");
    EXPECT_TRUE(wait_until([&] { return live() && type() == "cv_vertical_mux_resilient"; }));
    EXPECT_EQ(active(), "Scene: A") << "the scenes got lost";
    use_profile("other", small_profile(""));
    send(OBS_FRONTEND_EVENT_PROFILE_CHANGED);
    EXPECT_FALSE(toggle("Reconnect Automatically"));
    EXPECT_TRUE(toggle("Reconnect Automatically"));
}

TEST_F(OptionsTest, one_audio_track_is_sent) {
    for (const int tracks : {1, 6}) {
        EXPECT_EQ(toggle("Send Audio Track 1 Only"), tracks == 6);
        sink.forget("k");
        press_key("Start vertical stream");
        EXPECT_TRUE(sink.wait_for_frames("k", 5));
        EXPECT_EQ(sink.recording("k").audio_tracks, tracks);
        press_key("Stop vertical stream");
        EXPECT_TRUE(wait_until([] { return !live(); }));
    }
}

// The first scene that shows the program's becomes active, only then and only if asked for.
TEST_F(OptionsTest, the_active_scene_follows_the_program) {
    const HostScene program("Program"), other("Other");
    frontend.scenes = {program.source()};
    send(OBS_FRONTEND_EVENT_SCENE_CHANGED);
    EXPECT_EQ(active(), "Scene: A");
    EXPECT_FALSE(toggle("Follow the Program Scene"));
    send(OBS_FRONTEND_EVENT_PREVIEW_SCENE_CHANGED);
    EXPECT_EQ(active(), "Scene: A");
    send(OBS_FRONTEND_EVENT_SCENE_CHANGED);
    EXPECT_EQ(active(), "Scene: B");
    click_row(child<QListWidget>(window, "sceneList"), 2);
    frontend.scenes = {other.source()};
    send(OBS_FRONTEND_EVENT_SCENE_CHANGED);
    EXPECT_EQ(active(), "Scene: C");
    frontend.scenes.clear();
    send(OBS_FRONTEND_EVENT_SCENE_CHANGED);
    EXPECT_EQ(active(), "Scene: C");
    EXPECT_TRUE(toggle("Follow the Program Scene"));
}

// Every scene has its key, by whatever name; keys survive the module.
TEST_F(OptionsTest, hotkeys_follow_the_scenes) {
    for (const auto &[key, after] :
        {std::pair{"Previous vertical scene", "Scene: C"}, {"Next vertical scene", "Scene: A"},
            {"Next vertical scene", "Scene: B"}, {"Switch to vertical scene 'A'", "Scene: A"}}) {
        press_key(key);
        EXPECT_EQ(active(), after);
    }
    obs_key_combination_t combination{.modifiers = 0, .key = OBS_KEY_F7};
    for (const char *key : {"Switch to vertical scene 'A'", "Stop vertical stream"}) {
        obs_hotkey_load_bindings(hotkey(key), &combination, 1);
    }
    const auto rename = [&] {
        QTest::mouseClick(&child<QPushButton>(window, "renameButton"), Qt::LeftButton);
    };
    answering("Z=>OK", rename);
    EXPECT_EQ(hotkey("Switch to vertical scene 'A'"), OBS_INVALID_HOTKEY_ID);
    for ([[maybe_unused]] const bool again : {false, true}) {
        EXPECT_EQ(bindings("Switch to vertical scene 'Z'"), 1);
        EXPECT_EQ(bindings("Stop vertical stream"), 1);
        EXPECT_EQ(bindings("Start vertical stream"), 0);
        send(OBS_FRONTEND_EVENT_EXIT);
        unload();
        EXPECT_EQ(hotkey("Switch to vertical scene 'Z'"), OBS_INVALID_HOTKEY_ID);
        delete window.findChild<QWidget *>("corvane-vertical-canvas");
        // A host that fails before its end of loading must not cost the keys.
        EXPECT_TRUE(load());
        unload();
        open();
    }
    const auto remove = [&] {
        QTest::mouseClick(&child<QPushButton>(window, "removeButton"), Qt::LeftButton);
    };
    answering("=>Yes", remove);
    EXPECT_EQ(hotkey("Switch to vertical scene 'Z'"), OBS_INVALID_HOTKEY_ID);
}

} // namespace

} // namespace corvane::test
