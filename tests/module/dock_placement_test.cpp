// SPDX-License-Identifier: GPL-2.0-or-later
#include "support/module_fixture.hpp"
#include "support/user_actions.hpp"

#include <QDockWidget>
#include <QMainWindow>

namespace corvane::test {

namespace {

class DockInWindowTest : public ModuleFixture {
protected:
    DockInWindowTest() { frontend.main_window = &window; }

    QMainWindow window;
};

// The dock must be where the user left it, there once, and on a first run where it is noticed.
TEST_F(DockInWindowTest, comes_back_where_it_was) {
    window.show();
    const std::string docked = "dockfloating=false\ndockarea=";
    for (const auto &[file, state, area] : std::vector<std::tuple<std::string, std::string, int>>{
             {"", "floating=yes, visible=yes", 2}, {docked + "0", "floating=no, visible=yes", 2},
             {docked + "1", "floating=no, visible=yes", 1},
             {docked + "-8\ndockvisible=false", "floating=no, visible=no", 2},
             {"dockvisible=false\ndockgeometry=?!", "floating=yes, visible=no", 2}}) {
        write_file(global_file, "[VerticalCanvas]\n" + file);
        ASSERT_TRUE(load());
        send(OBS_FRONTEND_EVENT_FINISHED_LOADING);
        send(OBS_FRONTEND_EVENT_FINISHED_LOADING);
        const auto docks = window.findChildren<QDockWidget *>("corvane-vertical-canvas");
        ASSERT_EQ(docks.size(), 1);
        QDockWidget &dock = *docks.front();
        EXPECT_EQ(window.dockWidgetArea(&dock), area) << file;
        const std::string floating = dock.isFloating() ? "true" : "false";
        const std::string visible = dock.isVisible() ? "true" : "false";
        const std::string geometry = dock.saveGeometry().toBase64().toStdString();
        send(OBS_FRONTEND_EVENT_EXIT);
        EXPECT_EQ(log.take_last(), "I Dock state saved (" + state + ")") << file;
        unload();
        delete &dock;
        EXPECT_THAT(read_lines(global_file),
            testing::IsSupersetOf({"dockfloating=" + floating, "dockvisible=" + visible,
                "dockarea=" + std::to_string(area), "dockgeometry=" + geometry}));
    }
}

// Between two profiles and after a failed change the dock must hold on to nothing; the user must be
// told of it once the handler has returned, and events be answered; a good profile mends it all.
// What the old profile's settings dialog shows must not be saved into the new one.
TEST_F(DockInWindowTest, follows_the_profile) {
    write_file(global_file, "[Scenes]\ncount=2\nactivescene=B\nscene_0_name=A\nscene_1_name=B");
    ASSERT_TRUE(load());
    send(OBS_FRONTEND_EVENT_FINISHED_LOADING);
    const std::string shown = "Scene: B| A|► B*@|+ A- RRenAssSta|Stopped";
    const std::string dead = "No active scene||No output";
    const std::string box =
        "Corvane Vertical Canvas|Failed to rebuild the vertical canvas after profile "
        "switch.\n\nRestart OBS before using the vertical output again.";
    std::string between;
    log.at_each_line([&](const std::string &line) {
        between = line == "I VerticalOutput destroyed" ? seen(window) : between;
    });
    for (const std::string ini :
        {"canvaswidth=64", "canvasheight=0", "canvaswidth=wide", "fpsden=0", ""}) {
        use_profile(ini, "[VerticalCanvas]\n" + ini);
        const bool good = ini.empty() || ini.ends_with("64");
        bool returned = false;
        EXPECT_EQ(answering(
                      "=>OK",
                      [&] {
                          send(OBS_FRONTEND_EVENT_PROFILE_CHANGED);
                          returned = true;
                          EXPECT_EQ(seen(window), good ? shown : dead) << ini;
                          EXPECT_EQ(log.take_last() ==
                                        "E Failed to rebuild vertical runtime after profile change",
                              !good);
                          send(OBS_FRONTEND_EVENT_STREAMING_STOPPED);
                          good ? void() : send(OBS_FRONTEND_EVENT_STREAMING_STARTING);
                          EXPECT_TRUE(log.take().empty());
                          QCoreApplication::processEvents();
                      },
                      [&](QWidget &) { EXPECT_TRUE(returned); }),
            good ? "" : box);
    }
    log.at_each_line({});
    EXPECT_EQ(between, dead);
    ASSERT_FALSE(frontend.tools_menu.empty());
    const auto &[text, open] = frontend.tools_menu.back();
    EXPECT_EQ(text, "Corvane Vertical Streaming Settings");
    EXPECT_EQ(answering("=>Cancel", open), "Vertical Canvas — Settings|");
    const auto switch_profile = [&](QWidget &dialog) {
        use_profile("other", "[VerticalCanvas]\nrtmpurl=rtmp://other/app\n");
        send(OBS_FRONTEND_EVENT_PROFILE_CHANGED);
        EXPECT_FALSE(dialog.isVisible());
    };
    EXPECT_EQ(answering("", open, switch_profile), "Vertical Canvas — Settings|");

    // A scene that was only chosen is active in the next profile, too.
    auto &list = child<QListWidget>(window, "sceneList");
    click_row(list, 0);
    send(OBS_FRONTEND_EVENT_PROFILE_CHANGED);
    EXPECT_EQ(seen(window), "Scene: A|► A*@| B|+ A- RRenAssSta|Stopped");
    EXPECT_THAT(read_lines(global_file), testing::Contains("activescene=A"));
    EXPECT_THAT(read_lines(profile_file("other")), testing::Contains("rtmpurl=rtmp://other/app"));
}

} // namespace

} // namespace corvane::test
