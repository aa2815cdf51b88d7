// SPDX-License-Identifier: GPL-2.0-or-later
#include "ui/vertical_dock.hpp"

#include "canvas/vertical_canvas.hpp"
#include "core/config_files.hpp"
#include "core/module_state.hpp"
#include "core/scene_list_store.hpp"
#include "mux/resilient/stream_timeouts.hpp"
#include "output/vertical_output.hpp"
#include "support/local_server.hpp"
#include "support/module_fixture.hpp"
#include "support/scripted_stream.hpp"
#include "support/user_actions.hpp"
#include "ui/settings_dialog.hpp"
#include "ui/vertical_preview_widget.hpp"

#include <QNetworkProxy>
#include <QSpinBox>
#include <QTcpServer>

namespace corvane::test {

namespace {

// A dock on the screen with a small canvas, its output and the file its scenes are saved in.
class DockTest : public testing::Test {
protected:
    DockTest() {
        register_output_types();
        ObsSession::destroy_released_sources();
        open_runtime();
        dock.show();
        EXPECT_TRUE(QTest::qWaitForWindowExposed(&dock));
    }
    ~DockTest() override {
        close_runtime();
        FakeFrontend::get().scenes.clear();
    }

    // As the core does when the profile changes; what is not saved is lost.
    void open_runtime(const OutputConfig &config = {}) {
        const std::string path = dir_.filePath(QStringLiteral("list.ini")).toStdString();
        config_open(&module_state.global_config, path.c_str(), CONFIG_OPEN_ALWAYS);
        module_state.canvas = &canvas.emplace(CanvasConfig{.width = 72, .height = 128});
        EXPECT_TRUE(canvas->init());
        EXPECT_TRUE(output.emplace(&*canvas, config).init());
        restore_scene_list();
        dock.setRuntime(&*canvas, &*output);
        log.clear();
    }
    void close_runtime() {
        dock.setRuntime(nullptr, nullptr);
        output.reset();
        canvas.reset();
        module_state.canvas = nullptr;
        close_config_files();
    }
    // Without such a button the keys are used that activate the scene below.
    void click(const std::string &name) {
        if (auto *button = dock.findChild<QPushButton *>(QString::fromStdString(name))) {
            return QTest::mouseClick(button, Qt::LeftButton);
        }
        QTest::keyClick(&list, Qt::Key_Down);
        QTest::keyClick(&list, Qt::Key_Return);
    }
    // Clicks the button and answers the dialogs; returns what they showed.
    std::string click(const std::string &button, const std::string &answers) {
        return answering(answers, [&] { click(button); });
    }
    bool comes_to_show(const std::string &all) {
        return wait_until([&] { return seen(dock) == all; });
    }

    LogCapture &log = LogCapture::get();
    std::optional<VerticalCanvas> canvas;
    std::optional<VerticalOutput> output;
    VerticalDock dock{nullptr, nullptr, nullptr};
    QListWidget &list = child<QListWidget>(dock);

private:
    QTemporaryDir dir_;
};

// What the user does with the scenes must change the list as said and save it, nothing else may; a
// scene that the host renames must be shown and saved without an edit; and no name may be taken for
// anything but exactly that name, by the list, a dialog or the file.
TEST_F(DockTest, works_the_scene_list) {
    const HostScene upper("Main"), lower("main"), markup("<i>矢</i>");
    FakeFrontend::get().scenes = {upper.source(), lower.source(), markup.source()};
    const std::string odd = "► <b>矢</b> [Main] \"C:\\new\\r\" = %1 &Z #;";
    const std::string buttons = "+ A- RRenAssSta|Stopped";
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
            {"renameButton", odd + "=>OK", odd + "|► " + odd + "*@| B|"},
            {"assignButton", "2=>OK", odd + "|► " + odd + " [main]*@| B|"}}) {
        log.clear();
        click(button, answers);
        EXPECT_EQ(log.has("Scene list saved"), !answers.empty());
        EXPECT_EQ(seen(dock), "Scene: " + after + buttons);
    }
    log.clear();
    const std::string add = "Add Scene|Scene name:", rename = "Rename Scene|New name:" + odd;
    const std::string assign = "Assign OBS Scene — " + odd + "|";
    const std::string remove = "Remove Scene|Remove scene \"";
    const std::string before = seen(dock);
    for (const auto &[button, answers, shown] :
        Steps{{"addButton", "Z=>Cancel", add}, {"addButton", "  =>OK", add},
            {"renameButton", "=>OK", rename}, {"renameButton", "  =>OK", rename},
            {"renameButton", "Z=>Cancel", rename}, {"assignButton", "1=>Cancel", assign + "main"},
            {"removeButton", "=>Cancel", remove + odd + "\"? This cannot be undone."},
            {"addButton", " " + odd + " =>OK|=>OK",
                add + "/Add Scene|A scene named \" " + odd + " \" already exists."},
            {"renameButton", "B =>OK|=>OK",
                rename + "/Rename Scene|A scene named \"B \" already exists."}}) {
        EXPECT_EQ(click(button, answers), shown);
        EXPECT_EQ(seen(dock), before);
    }
    EXPECT_FALSE(log.has("Scene list saved"));

    obs_source_set_name(lower.source(), "Renamed");
    const std::string renamed = "Scene: " + odd + "|► " + odd + " [Renamed]*@| B|" + buttons;
    EXPECT_TRUE(comes_to_show(renamed));
    close_runtime();
    open_runtime();
    EXPECT_EQ(seen(dock), renamed);
    FakeFrontend::get().scenes.clear();
    EXPECT_EQ(click("assignButton", "=>OK"), assign + "-");
    EXPECT_EQ(click("assignButton", "=>Cancel"), assign + "(None)");
    EXPECT_EQ(seen(dock), "Scene: " + odd + "|► " + odd + "*@| B|" + buttons);
    for ([[maybe_unused]] const int scene : {0, 1}) {
        EXPECT_TRUE(click("removeButton", "=>Yes").starts_with(remove));
    }
    EXPECT_EQ(seen(dock), "No active scene|+ ASta|Stopped");
}

// A dialog outlives the canvas when the profile changes below it; its answer must do nothing.
TEST_F(DockTest, loses_the_canvas_below_a_dialog) {
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
TEST_F(DockTest, follows_the_stream) {
    const LocalServer sink;
    click("startButton");
    EXPECT_TRUE(log.has("W [corvane] Dock: failed to start vertical output"));
    const std::string scenes = "Scene: Scene 1|► Scene 1*@|+ A- RRenAss";
    EXPECT_EQ(seen(dock), scenes + "Sta|Stopped");

    // The resilient type is on air only with a connection, and with pictures for it.
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
    EXPECT_TRUE(wait_until([&] { return silent.hasPendingConnections(); }));
    dock.setRuntime(&*canvas, &*output);
    EXPECT_EQ(seen(dock), scenes + "Sto|Connecting");
    start(sink.url());
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
    stream_timeouts = {};
}

// A canvas that goes with its profile must not be drawn any more.
TEST_F(DockTest, draws_only_what_is_there) {
    std::atomic<bool> drawing = false, asked = false;
    std::thread frame([&] {
        obs_enter_graphics();
        drawing = true;
        for (int left = 2000; left > 0; left -= asked) {
            std::this_thread::yield();
        }
        drawing = false;
        obs_leave_graphics();
    });
    EXPECT_TRUE(wait_until([&] { return drawing.load(); }));
    asked = true;
    dock.setRuntime(nullptr, nullptr);
    EXPECT_FALSE(drawing) << "a frame may still show the old canvas";
    frame.join();
}

// The preview must keep to 9:16, in the middle, its limit and the layout must not fight on, and a
// wrong viewport shows the stream distorted or off its place.
TEST_F(DockTest, preview_comes_to_rest_in_its_place) {
    auto &preview = child<VerticalPreviewWidget>(dock);
    for (const QSize size : {QSize(540, 420), {540, 900}, {270, 900}, {400, 430}, {540, 420}}) {
        dock.resize(size);
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
    using testing::FieldsAre;
    EXPECT_THAT(preview_viewport(500, 500, 1080, 1920), FieldsAre(109, 0, 281, 499));
    EXPECT_THAT(preview_viewport(135, 400, 1080, 1920), FieldsAre(0, 80, 135, 240));
    EXPECT_THAT(preview_viewport(300, 100, 1920, 1080), FieldsAre(61, 0, 177, 100));
}

// What the dialog stores must be what it shows, numbers brought into range and texts as typed; a
// refused or cancelled one must store nothing.
TEST(SettingsDialogTest, stores_what_it_shows) {
    const QTemporaryDir profile;
    FakeFrontend::get().profile_dir = profile.path().toStdString();
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
        write_file(profile_config_path(), before);
        load_profile_config();
        const auto type = [&, typed = QString::fromUtf8(width)](QWidget &dialog) {
            type_over(child<QLineEdit>(dialog, "keyEdit"), QString::fromStdString(key));
            type_over(child<QLineEdit>(dialog, "urlEdit"), QString::fromStdString(url));
            if (!typed.isEmpty()) {
                type_over(child<QLineEdit>(child<QSpinBox>(dialog, "widthSpin")), typed);
            }
        };
        const std::string shown = answering(answers, [] { open_settings_dialog(); }, type);
        EXPECT_EQ(shown.find("/Validation|") == shown.npos, *answers == '=');
        save_profile_file();
        EXPECT_EQ(read_text(profile_config_path()), after);
    }
    close_config_files();
}

} // namespace

} // namespace corvane::test
