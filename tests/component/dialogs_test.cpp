// SPDX-License-Identifier: GPL-2.0-or-later
#include "testbed/dock_rig.hpp"
#include "ui/scene_config_dialog.hpp"
#include "ui/settings_dialog.hpp"

#include <QSpinBox>

namespace corvane::test {

namespace {

// What the dialog stores must be what it shows, numbers brought into range and texts as typed; a
// refused or cancelled one must store nothing; the key must show only while it is asked for.
TEST(Dialogs, SettingsAreStoredAsShown) {
    const QTemporaryDir profile;
    StandInFrontend::get().profile_dir = profile.path().toStdString();
    std::string width;
    const auto type = [&](QWidget &dialog) {
        auto &key = child<QLineEdit>(dialog, "keyEdit");
        for (const char *button : {"Show", "Hide"}) {
            EXPECT_EQ(key.displayText() == key.text(), *button == 'H');
            press(dialog, QString::fromUtf8(button));
        }
        type_over(key, QStringLiteral("k\\n\"🎬\" "));
        type_over(child<QLineEdit>(dialog, "urlEdit"), QStringLiteral(" rtmp://矢/a?b=c&d "));
        if (!width.empty()) {
            type_over(child<QLineEdit>(child<QSpinBox>(dialog, "widthSpin")),
                QString::fromStdString(width));
        }
    };
    const auto file = [](const char *texts, const char *numbers, const char *preset) {
        return "[VerticalCanvas]\n" + std::string(texts) + numbers +
               "autostartwithmain=false\nuseactivesceneaudio=true\nencoderpreset=" + preset + '\n';
    };
    const auto before = [&](const char *numbers) {
        return file("rtmpurl=x\nstreamkey=s\n", numbers, "Medium");
    };
    const auto stored = [&](const char *numbers) {
        return file("rtmpurl= rtmp://矢/a?b=c&d \nstreamkey=k\\\\n\"🎬\" \n", numbers, "veryfast");
    };
    const std::string low = before("videobitrate=100\ncanvaswidth=8000\ncanvasheight=17\n"
                                   "fpsnum=0\nfpsden=4294967295\n");
    for (const auto &[answers, typed, first, after] : std::vector<std::array<std::string, 4>>{
             {"=>Save", "", low,
                 stored("videobitrate=500\ncanvaswidth=7680\ncanvasheight=16\nfpsnum=1\n"
                        "fpsden=1000\n")},
             {"=>Save", "361",
                 before("videobitrate=51001\ncanvaswidth=1\ncanvasheight=7682\nfpsnum=241\n"
                        "fpsden=0\n"),
                 stored("videobitrate=51000\ncanvaswidth=360\ncanvasheight=7680\nfpsnum=240\n"
                        "fpsden=1\n")},
             {"=>Cancel", "", low, low}, {"  =>Save|=>OK|=>Cancel", "", low, low}}) {
        width = typed;
        write_file(profile_config_path(), first);
        load_profile_config();
        const std::string shown = answering(answers, [] { open_settings_dialog(); }, type);
        EXPECT_EQ(
            shown.find("/Validation|RTMP URL cannot be empty./") > shown.size(), answers[0] == '=');
        save_profile_file();
        std::string content;
        for (const std::string &line : read_lines(profile_config_path())) {
            content += line + '\n';
        }
        EXPECT_EQ(content, after);
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
