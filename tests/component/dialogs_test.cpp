// SPDX-License-Identifier: GPL-2.0-or-later
#include "testbed/dock_rig.hpp"
#include "ui/scene_config_dialog.hpp"
#include "ui/settings_dialog.hpp"

namespace corvane::test {

namespace {

// What the dialog stores must be what it shows, numbers brought into range and texts as typed; a
// refused or cancelled one must store nothing; the key must show only while it is asked for.
TEST(Dialogs, SettingsAreStoredAsShown) {
    const QTemporaryDir profile;
    StandInFrontend::get().profile_dir = profile.path().toStdString();
    const auto type = [](QWidget &dialog) {
        auto &key = child<QLineEdit>(dialog, "keyEdit");
        for (const char *button : {"Show", "Hide"}) {
            EXPECT_EQ(key.displayText() == key.text(), *button == 'H');
            press(dialog, QString::fromUtf8(button));
        }
        type_over(key, QStringLiteral("k\\n\"🎬\" "));
        type_over(child<QLineEdit>(dialog, "urlEdit"), QStringLiteral(" rtmp://矢/a?b=c&d "));
    };
    const Lines before{"[VerticalCanvas]", "rtmpurl=x", "streamkey=s", "videobitrate=100",
        "canvaswidth=8000", "canvasheight=17", "fpsnum=0", "fpsden=4294967295",
        "autostartwithmain=false", "useactivesceneaudio=true", "encoderpreset=Medium"};
    const Lines stored{"[VerticalCanvas]", "rtmpurl= rtmp://矢/a?b=c&d ", "streamkey=k\\\\n\"🎬\" ",
        "videobitrate=500", "canvaswidth=7680", "canvasheight=17", "fpsnum=1", "fpsden=1000",
        "autostartwithmain=false", "useactivesceneaudio=true", "encoderpreset=veryfast"};
    for (const auto &[answers, after] :
        {std::pair{"=>Save", stored}, {"=>Cancel", before}, {"  =>Save|=>OK|=>Cancel", before}}) {
        write_file(profile_config_path(), before);
        load_profile_config();
        const std::string shown = answering(answers, [] { open_settings_dialog(); }, type);
        EXPECT_EQ(
            shown.find("/Validation|RTMP URL cannot be empty./") > shown.size(), *answers == '=');
        save_profile_file();
        EXPECT_EQ(read_lines(profile_config_path()), after);
    }
    close_config_files();
}

// The wrong scene preselected or returned would go on air.
TEST(Dialogs, SceneIsChosenExactly) {
    const HostScene upper("Main"), lower("main"), odd("<i>矢</i>");
    StandInFrontend::get().scenes = {upper.source(), lower.source(), odd.source()};
    for (const auto &[current, answers, preselected, selected] :
        std::vector<std::array<std::string, 4>>{{"", "=>OK", "(None)", ""},
            {"main", "=>OK", "main", "main"}, {"Gone", "=>OK", "-", ""},
            {"", "2", "(None)", "main"}, {"<i>矢</i>", "0", "<i>矢</i>", ""},
            {"Main", "3=>OK", "Main", "<i>矢</i>"}}) {
        SceneConfigDialog dialog(QStringLiteral("A"), QString::fromStdString(current), nullptr);
        EXPECT_EQ(
            answering(answers, [&] { dialog.exec(); }), "Assign OBS Scene — A|" + preselected);
        EXPECT_EQ(dialog.result(), QDialog::Accepted);
        EXPECT_EQ(dialog.selectedSource().toStdString(), selected);
    }
    StandInFrontend::get().scenes.clear();
}

} // namespace

} // namespace corvane::test
