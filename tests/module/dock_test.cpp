// SPDX-License-Identifier: GPL-2.0-or-later
#include "support/local_server.hpp"
#include "support/module_fixture.hpp"
#include "support/user_actions.hpp"
#include "ui/vertical_preview_widget.hpp"

#include <QDockWidget>
#include <QSpinBox>

#include <thread>

namespace corvane::test {

namespace {

using testing::Contains;
using testing::FieldsAre;
using testing::IsEmpty;

// The module's dock on the screen, with a small canvas.
class DockTest : public ModuleFixture {
protected:
    DockTest() {
        frontend.main_window = &window;
        window.show();
        open();
    }

    void open() {
        EXPECT_TRUE(load());
        send(OBS_FRONTEND_EVENT_FINISHED_LOADING);
    }
    void close() {
        unload();
        delete &dock();
    }
    QDockWidget &dock() const { return child<QDockWidget>(window); }

    // Without such a button the keys are used that activate the scene below.
    void click(const std::string &name) {
        if (auto *button = window.findChild<QPushButton *>(QString::fromStdString(name))) {
            return QTest::mouseClick(button, Qt::LeftButton);
        }
        auto &list = child<QListWidget>(window, "sceneList");
        QTest::keyClick(&list, Qt::Key_Down);
        QTest::keyClick(&list, Qt::Key_Return);
    }
    // Clicks the button and answers the dialogs; returns what they showed.
    std::string click(const std::string &button, const std::string &answers) {
        return answering(answers, [&] { click(button); });
    }
    bool comes_to_show(const std::string &all) {
        return wait_until([&] { return seen(window) == all; });
    }
};

// What the user does with the scenes must change the list and save it, nothing else may; a
// scene that the host renames must be shown and saved without an edit; and no name may be taken for
// anything but exactly that name, by the list, a dialog or the file.
TEST_F(DockTest, works_the_scene_list) {
    const HostScene upper("Main"), lower("main"), markup("<i>矢</i>");
    frontend.scenes = {upper.source(), lower.source(), markup.source()};
    const std::string odd = "► <b>矢</b> [Main] \"C:\\new\\r\" = %1 &Z #;";
    const std::string buttons = "+ A- RRenAssSta|Stopped";
    const std::string odd_scene = odd + "|► " + odd;
    using Steps = std::vector<std::array<std::string, 3>>;
    for (const auto &[button, answers, after] :
        Steps{{"addButton", "  A =>OK", "Scene 1|► Scene 1*@| A|"},
            {"Down and Return", "", "A| Scene 1|► A*@|"},
            {"renameButton", "Z =>OK", "Z| Scene 1|► Z*@|"},
            {"assignButton", "1=>OK", "Z| Scene 1|► Z [Main]*@|"},
            {"assignButton", "3", "Z| Scene 1|► Z [<i>矢</i>]*@|"},
            {"assignButton", "0=>OK", "Z| Scene 1|► Z*@|"},
            {"removeButton", "=>Yes", "Scene 1|► Scene 1*@|"},
            {"addButton", "B=>OK", "Scene 1|► Scene 1*@| B|"},
            {"renameButton", odd + "=>OK", odd_scene + "*@| B|"},
            {"assignButton", "2=>OK", odd_scene + " [main]*@| B|"}}) {
        log.clear();
        click(button, answers);
        EXPECT_EQ(log.has("Scene list saved"), !answers.empty());
        EXPECT_EQ(seen(window), std::format("Scene: {}{}", after, buttons));
    }
    log.clear();
    const std::string add = "Add Scene|Scene name:", rename = "Rename Scene|New name:" + odd;
    const std::string assign = "Assign OBS Scene — " + odd + "|";
    const std::string remove = "Remove Scene|Remove scene \"";
    const std::string before = seen(window);
    for (const auto &[button, answers, shown] :
        Steps{{"addButton", "Z=>Cancel", add}, {"addButton", "  =>OK", add},
            {"renameButton", "=>OK", rename}, {"renameButton", "  =>OK", rename},
            {"renameButton", "Z=>Cancel", rename}, {"assignButton", "1=>Cancel", assign + "main"},
            {"removeButton", "=>Cancel", remove + odd + "\"? This cannot be undone."},
            {"addButton", " " + odd + " =>OK|=>OK",
                std::format("{}/Add Scene|A scene named \" {} \" already exists.", add, odd)},
            {"renameButton", "B =>OK|=>OK",
                rename + "/Rename Scene|A scene named \"B \" already exists."}}) {
        EXPECT_EQ(click(button, answers), shown);
        EXPECT_EQ(seen(window), before);
    }
    EXPECT_FALSE(log.has("Scene list saved"));

    obs_source_set_name(lower.source(), "Renamed");
    const std::string renamed = "Scene: " + odd_scene + " [Renamed]*@| B|" + buttons;
    EXPECT_TRUE(comes_to_show(renamed));
    EXPECT_THAT(read_lines(global_file), Contains("scene_0_source=Renamed"));
    close();
    open();
    EXPECT_EQ(seen(window), renamed);
    frontend.scenes.clear();
    auto &list = child<QListWidget>(window, "sceneList");
    EXPECT_TRUE(list.item(0)->toolTip().contains("&lt;b&gt;")) << "taken for markup";
    obs_source_remove(lower.source());
    EXPECT_TRUE(wait_until(
        [&] { return list.item(0)->toolTip().contains("OBS has no scene \"Renamed\""); }));
    EXPECT_TRUE(child<QWidget>(window, "verticalPreview").toolTip().contains("Assign OBS Scene"));
    EXPECT_EQ(click("assignButton", "=>OK"), assign + "-");
    EXPECT_EQ(click("assignButton", "=>Cancel"), assign + "(None)");
    EXPECT_EQ(seen(window), "Scene: " + odd_scene + "*@| B|" + buttons);
    for ([[maybe_unused]] const int scene : {0, 1}) {
        EXPECT_TRUE(click("removeButton", "=>Yes").starts_with(remove));
    }
    EXPECT_EQ(seen(window), "No active scene|+ ASta|Stopped");
}

// A dialog may outlive the canvas; its answer must then do nothing.
TEST_F(DockTest, loses_the_canvas_below_a_dialog) {
    for (const auto &[button, answer] : {std::pair{"removeButton", "=>Yes"}, {"addButton", "Z=>OK"},
             {"renameButton", "Z=>OK"}, {"assignButton", "0=>OK"}}) {
        const auto act = [&, name = button] {
            click(name);
        };
        EXPECT_NE(answering(answer, act, [&](QWidget &) { unload(); }), "");
        EXPECT_EQ(seen(window), "No active scene||No output");
        close();
        open();
    }
}

// The dock must show by itself what the stream does, and offer only what can be done: the resilient
// type is on air only with a connection, and with pictures for it.
TEST_F(DockTest, follows_the_stream) {
    const LocalServer sink, silent;
    silent.freeze();
    click("startButton");
    EXPECT_TRUE(log.has("W [corvane] Dock: failed to start vertical output"));
    const std::string scenes = "Scene: Scene 1|► Scene 1*@|+ A- RRenAss";
    EXPECT_EQ(seen(window), scenes + "Sta|Stopped");
    for (const LocalServer *server : {&silent, &sink}) {
        use_profile("R", small_profile(server->url()) + "[Resilience]\nenabled=true\n");
        send(OBS_FRONTEND_EVENT_PROFILE_CHANGED);
        click("startButton");
        EXPECT_EQ(seen(window), scenes + "Sto|Connecting");
    }
    EXPECT_TRUE(comes_to_show(scenes + "Sto|Streaming"));
    std::atomic<bool> held = true; // the host composes no picture meanwhile
    const auto hold = [](void *still, float) {
        static_cast<std::atomic<bool> *>(still)->wait(true);
    };
    obs_add_tick_callback(hold, &held);
    EXPECT_TRUE(comes_to_show(scenes + "Sto|Encoder stalled"));
    held = false;
    held.notify_all();
    obs_remove_tick_callback(hold, &held);
    EXPECT_TRUE(comes_to_show(scenes + "Sto|Streaming"));
    click("stopButton");
    EXPECT_TRUE(comes_to_show(scenes + "Sta|Stopped"));
}

// Between two profiles and after a failed change the dock must hold on to nothing, nor may a frame
// that is being drawn; the user must be told of it once the handler has returned, and events be
// answered; a good profile mends it all. What the old profile's settings dialog shows must not be
// saved into the new one.
TEST_F(DockTest, follows_the_profile) {
    close();
    write_file(global_file, "[Scenes]\ncount=2\nactivescene=B\nscene_0_name=A\nscene_1_name=B");
    open();
    const std::string shown = "Scene: B| A|► B*@|+ A- RRenAssSta|Stopped";
    const std::string dead = "No active scene||No output";
    std::atomic<bool> drawing = false, asked = false;
    std::thread frame([&] {
        obs_enter_graphics();
        drawing = true;
        for (int left = 20'000; left > 0; left -= asked) {
            std::this_thread::yield();
        }
        drawing = false;
        obs_leave_graphics();
    });
    EXPECT_TRUE(wait_until([&] { return drawing.load(); }));
    std::string between;
    log.at_each_line([&](const std::string &line) {
        asked = asked || line.starts_with("I Scene list saved");
        if (line == "I VerticalOutput destroyed") {
            between = seen(window) + (drawing ? " but in a frame" : "");
        }
    });
    const auto change = [&](const std::string &key) {
        use_profile("P" + key, "[VerticalCanvas]\n" + key);
        send(OBS_FRONTEND_EVENT_PROFILE_CHANGED);
    };
    change("canvaswidth=64");
    EXPECT_EQ(seen(window), shown);
    frame.join();
    log.at_each_line({});
    EXPECT_EQ(between, dead);
    bool returned = false;
    const auto fail = [&] {
        change("canvasheight=0");
        returned = true;
        EXPECT_EQ(seen(window), dead);
        EXPECT_EQ(log.take().back(), "E Failed to rebuild vertical runtime after profile change");
        send(OBS_FRONTEND_EVENT_STREAMING_STOPPED);
        send(OBS_FRONTEND_EVENT_STREAMING_STARTING);
        EXPECT_THAT(log.take(), IsEmpty());
        QCoreApplication::processEvents();
    };
    const std::string box =
        "Corvane Vertical Canvas|Failed to rebuild the vertical canvas after "
        "profile switch.\n\nRestart OBS before using the vertical output again.";
    EXPECT_EQ(answering("=>OK", fail, [&](QWidget &) { EXPECT_TRUE(returned); }), box);
    change("");
    EXPECT_EQ(seen(window), shown);
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
    EXPECT_THAT(read_lines(global_file), Contains("activescene=A"));
    EXPECT_THAT(read_lines(profile_file("other")), Contains("rtmpurl=rtmp://other/app"));
}

// The dock must be where the user left it, there once, and on a first run where it is noticed.
TEST_F(DockTest, comes_back_where_it_was) {
    const std::string docked = "dockfloating=false\ndockarea=";
    for (const auto &[file, state, area] : std::vector<std::tuple<std::string, std::string, int>>{
             {"", "floating=yes, visible=yes", 2}, {docked + "0", "floating=no, visible=yes", 2},
             {docked + "1", "floating=no, visible=yes", 1},
             {docked + "-8\ndockvisible=false", "floating=no, visible=no", 2},
             {"dockvisible=false\ndockgeometry=?!", "floating=yes, visible=no", 2}}) {
        close();
        write_file(global_file, "[VerticalCanvas]\n" + file);
        open();
        send(OBS_FRONTEND_EVENT_FINISHED_LOADING);
        ASSERT_EQ(window.findChildren<QDockWidget *>("corvane-vertical-canvas").size(), 1);
        EXPECT_EQ(window.dockWidgetArea(&dock()), area) << file;
        const std::string floating = dock().isFloating() ? "true" : "false";
        const std::string visible = dock().isVisible() ? "true" : "false";
        const std::string geometry = dock().saveGeometry().toBase64().toStdString();
        log.clear();
        send(OBS_FRONTEND_EVENT_EXIT);
        EXPECT_TRUE(log.has("I Dock state saved (" + state + ")")) << file;
        EXPECT_TRUE(!file.empty() || dock().screen()->geometry().contains(dock().geometry()));
        unload();
        EXPECT_THAT(read_lines(global_file),
            testing::IsSupersetOf({"dockfloating=" + floating, "dockvisible=" + visible,
                "dockarea=" + std::to_string(area), "dockgeometry=" + geometry}));
    }
}

// The preview must keep to 9:16, in the middle, its limit and the layout must not fight on, and a
// wrong viewport shows the stream distorted or off its place.
TEST_F(DockTest, preview_comes_to_rest_in_its_place) {
    auto &preview = child<QWidget>(window, "verticalPreview");
    for (const QSize size : {QSize(540, 420), {540, 900}, {270, 900}, {400, 430}, {540, 420}}) {
        dock().resize(size);
        int moves = 0;
        for (int turn = 0; turn < 200; ++turn) {
            const QRect before = preview.geometry();
            QCoreApplication::processEvents();
            moves += before != preview.geometry();
        }
        EXPECT_LT(moves, 10) << size.width() << 'x' << size.height();
        const int room = preview.parentWidget()->width();
        EXPECT_EQ(preview.width(), std::min(preview.height() * 9 / 16, room));
        EXPECT_LE(std::abs(room - 2 * preview.geometry().center().x()), 2);
    }
    EXPECT_THAT(preview_viewport(500, 500, 1080, 1920), FieldsAre(109, 0, 281, 499));
    EXPECT_THAT(preview_viewport(135, 400, 1080, 1920), FieldsAre(0, 80, 135, 240));
    EXPECT_THAT(preview_viewport(300, 100, 1920, 1080), FieldsAre(61, 0, 177, 100));
}

// What the dialog stores must be what it shows, numbers brought into range and texts as typed; a
// refused or cancelled one must store nothing.
TEST_F(DockTest, settings_are_stored_as_shown) {
    constexpr const char *kFile =
        "[VerticalCanvas]\nrtmpurl={}\nstreamkey={}\nvideobitrate={}\ncanvaswidth={}\n"
        "canvasheight={}\nfpsnum={}\nfpsden={}\nautostartwithmain=false\n"
        "useactivesceneaudio=true\nencoderpreset={}\n";
    const std::string low = std::format(kFile, "x", "s", 100, 8000, 17, 0, 4294967295, "Medium");
    const std::string high = std::format(kFile, "x", "s", 51001, 1, 7682, 241, 0, "Medium");
    const std::string url = " rtmp://矢/a?b=c&d ", key = "k\\n\"🎬\" ", escaped = "k\\\\n\"🎬\" ";
    for (const auto &[answers, width, before, after] :
        {std::tuple{"=>Save", "", low,
             std::format(kFile, url, escaped, 500, 7680, 16, 1, 1000, "veryfast")},
            {"=>Save", "361", high,
                std::format(kFile, url, escaped, 51000, 360, 7680, 240, 1, "veryfast")},
            {"=>Cancel", "", low, low}, {"  =>Save|=>OK|=>Cancel", "", low, low}}) {
        unload();
        use_profile("P", before);
        EXPECT_FALSE(load()) << "no canvas has such numbers";
        const auto type = [&, typed = QString::fromUtf8(width)](QWidget &dialog) {
            type_over(child<QLineEdit>(dialog, "keyEdit"), QString::fromStdString(key));
            type_over(child<QLineEdit>(dialog, "urlEdit"), QString::fromStdString(url));
            EXPECT_LE(dialog.height(), dialog.screen()->availableGeometry().height());
            EXPECT_FALSE(child<QWidget>(dialog, "settingsButtons").visibleRegion().isEmpty());
            if (!typed.isEmpty()) {
                type_over(child<QLineEdit>(child<QSpinBox>(dialog, "widthSpin")), typed);
            }
        };
        // On a screen that is too low.
        qApp->setStyleSheet(*width ? QStringLiteral("QAbstractSpinBox { min-height: 90px; }") : "");
        const std::string shown = answering(answers, frontend.tools_menu.back().second, type);
        qApp->setStyleSheet({});
        EXPECT_EQ(shown.find("/Validation|") == shown.npos, *answers == '=');
        unload();
        EXPECT_EQ(read_text(profile_file("P")), after);
    }
}

} // namespace

} // namespace corvane::test
