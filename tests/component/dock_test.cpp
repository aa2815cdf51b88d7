// SPDX-License-Identifier: GPL-2.0-or-later
#include "mux/resilient/stream_timeouts.hpp"
#include "testbed/dock_rig.hpp"
#include "testbed/local_sink.hpp"

#include <QNetworkProxy>
#include <QTcpServer>
#include <QTcpSocket>

#include <atomic>

namespace corvane::test {

namespace {

// What a person does with the scenes must change the list as said and save it; nothing else may.
TEST_F(DockRig, WorksTheSceneList) {
    const HostScene main("Main");
    StandInFrontend::get().scenes = {main.source()};
    using Steps = std::vector<std::array<std::string, 3>>;
    for (const auto &[button, answers, after] :
        Steps{{"addButton", "  A =>OK", "Scene 1|► Scene 1*@| A|"},
            {"Down and Return", "", "A| Scene 1|► A*@|"},
            {"renameButton", "Z =>OK", "Z| Scene 1|► Z*@|"},
            {"assignButton", "1=>OK", "Z| Scene 1|► Z [Main]*@|"},
            {"assignButton", "0=>OK", "Z| Scene 1|► Z*@|"},
            {"removeButton", "=>Yes", "Scene 1|► Scene 1*@|"},
            {"addButton", "B=>OK", "Scene 1|► Scene 1*@| B|"}}) {
        log.clear();
        answering(answers, [&, name = button] { click(name); });
        EXPECT_EQ(log.has("Scene list saved"), !answers.empty());
        EXPECT_EQ(seen(dock), "Scene: " + after + "+ A- RRenAssSta|Stopped");
    }
    log.clear();
    const std::string add = "Add Scene|Scene name:", rename = "Rename Scene|New name:Scene 1";
    for (const auto &[button, answers, shown] :
        Steps{{"addButton", "Z=>Cancel", add}, {"addButton", "  =>OK", add},
            {"renameButton", "=>OK", rename}, {"renameButton", "  =>OK", rename},
            {"renameButton", "Z=>Cancel", rename},
            {"assignButton", "1=>Cancel", "Assign OBS Scene — Scene 1|(None)"},
            {"removeButton", "=>Cancel",
                "Remove Scene|Remove scene \"Scene 1\"? This cannot be undone."},
            {"addButton", " B =>OK|=>OK", add + "/Add Scene|A scene named \" B \" already exists."},
            {"renameButton", "B =>OK|=>OK",
                rename + "/Rename Scene|A scene named \"B \" already exists."}}) {
        EXPECT_EQ(answering(answers, [&, name = button] { click(name); }), shown);
        EXPECT_EQ(seen(dock), "Scene: Scene 1|► Scene 1*@| B|+ A- RRenAssSta|Stopped");
    }
    EXPECT_FALSE(log.has("Scene list saved"));
}

// No name may be taken for anything but a name, by the list, a dialog or the file.
TEST_F(DockRig, KeepsNamesByteForByte) {
    const Lines names{"Scene 1", "► 矢 [Main]", "Ünï \"q\" 'r' = [ö]; #x", "العربية",
        "👩‍👩‍👧 🎬", "C:\\new\\r %1 %s &Save", std::string(300, 'x'), "[Scenes]",
        "<b>x</b>"};
    for (const std::string &name : names) {
        answering(name + "=>OK|=>OK", [&] { click("addButton"); });
        click_row(list, list.count() - 1);
        EXPECT_TRUE(seen(dock).starts_with("Scene: " + name + '|')) << seen(dock);
        EXPECT_NE(seen(dock).find("|► " + name + "*@|"), std::string::npos) << seen(dock);
    }
    close_runtime();
    open_runtime();
    EXPECT_EQ(canvas->scene_names(), names);
    for (const std::string &name : names) {
        click_row(list, 0);
        EXPECT_EQ(answering("=>Yes", [&] { click("removeButton"); }),
            "Remove Scene|Remove scene \"" + name + "\"? This cannot be undone.");
    }
    EXPECT_EQ(seen(dock), "No active scene|+ ASta|Stopped");
}

// A scene that the host renames must be shown and saved under its new name without an edit.
TEST_F(DockRig, FollowsARename) {
    const HostScene main("Main");
    ASSERT_TRUE(canvas->assign_scene_source("Scene 1", "Main"));
    obs_source_set_name(main.source(), "Stage");
    EXPECT_TRUE(wait_until([&] {
        return seen(dock).find("► Scene 1 [Stage]") != std::string::npos;
    })) << seen(dock);
    close_runtime();
    open_runtime();
    EXPECT_EQ(canvas->scene_source_name("Scene 1"), "Stage");
}

// A dialog outlives the canvas when the profile changes below it; its answer must do nothing.
TEST_F(DockRig, LosesTheCanvasBelowADialog) {
    for (const auto &[button, answer] : {std::pair{"removeButton", "=>Yes"}, {"addButton", "Z=>OK"},
             {"renameButton", "Z=>OK"}, {"assignButton", "0=>OK"}}) {
        const auto act = [&, name = button] {
            click(name);
        };
        EXPECT_NE(answering(answer, act, [&](QWidget &) { close_runtime(); }), "");
        EXPECT_EQ(seen(dock), "No active scene||No output");
        open_runtime();
    }
}

// The dock must show by itself what the stream does, and offer only what can be done.
TEST_F(DockRig, FollowsTheStream) {
    const LocalSink sink;
    click("startButton");
    EXPECT_EQ(log.take_last(), "W [corvane] Dock: failed to start vertical output");
    output->update_config({.url = sink.url(), .key = "k", .bitrate_kbps = 300});
    click("startButton");
    const std::string scenes = "Scene: Scene 1|► Scene 1*@|+ A- RRenAss";
    EXPECT_EQ(seen(dock), scenes + "Sto|Streaming");
    EXPECT_TRUE(sink.wait_for_pictures("k", 5));
    click("stopButton");
    EXPECT_TRUE(wait_until([&] { return seen(dock) == scenes + "Sta|Stopped"; }));

    // The other type is on air only with a connection, and with pictures for it.
    QTcpServer silent;
    silent.setProxy(QNetworkProxy::NoProxy);
    ASSERT_TRUE(silent.listen(QHostAddress::LocalHost));
    stream_timeouts.encoders = std::chrono::seconds(4);
    const auto start = [&](const std::string &url) {
        close_runtime();
        open_runtime({.url = url, .key = "r", .bitrate_kbps = 300, .resilient = true});
        click("startButton");
        EXPECT_EQ(seen(dock), scenes + "Sto|Connecting");
    };
    start("rtmp://127.0.0.1:" + std::to_string(silent.serverPort()) + "/live");
    EXPECT_TRUE(wait_until([&] { return silent.nextPendingConnection() != nullptr; }));
    dock.setRuntime(&*canvas, &*output);
    EXPECT_EQ(seen(dock), scenes + "Sto|Connecting");
    start(sink.url());
    EXPECT_TRUE(wait_until([&] { return seen(dock) == scenes + "Sto|Streaming"; }));
    std::atomic<bool> held = true; // the host composes no picture meanwhile
    const auto hold = [](void *still, float) {
        static_cast<std::atomic<bool> *>(still)->wait(true);
    };
    obs_add_tick_callback(hold, &held);
    EXPECT_TRUE(wait_until([&] { return seen(dock) == scenes + "Sto|Encoder stalled"; }));
    held = false;
    held.notify_all();
    obs_remove_tick_callback(hold, &held);
    EXPECT_TRUE(wait_until([&] { return seen(dock) == scenes + "Sto|Streaming"; }));
    close_runtime();
    stream_timeouts = {};
}

} // namespace

} // namespace corvane::test
