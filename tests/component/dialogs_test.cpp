// SPDX-License-Identifier: GPL-2.0-or-later
#include "core/config_files.hpp"
#include "support/module_fixture.hpp"
#include "support/user_actions.hpp"
#include "ui/scene_config_dialog.hpp"
#include "ui/settings_dialog.hpp"

#include <QSpinBox>

namespace corvane::test {

namespace {

// What the dialog stores must be what it shows, numbers brought into range and texts as typed; a
// refused or cancelled one must store nothing.
TEST(Dialogs, settings_are_stored_as_shown) {
    const QTemporaryDir profile;
    FakeFrontend::get().profile_dir = profile.path().toStdString();
    const auto file = [](const std::string &url, const std::string &key, const std::string &preset,
                          const std::array<std::string, 5> &numbers) {
        const auto &[bitrate, width, height, fps_num, fps_den] = numbers;
        return Lines{"[VerticalCanvas]", "rtmpurl=" + url, "streamkey=" + key,
            "videobitrate=" + bitrate, "canvaswidth=" + width, "canvasheight=" + height,
            "fpsnum=" + fps_num, "fpsden=" + fps_den, "autostartwithmain=false",
            "useactivesceneaudio=true", "encoderpreset=" + preset};
    };
    const Lines low = file("x", "s", "Medium", {"100", "8000", "17", "0", "4294967295"});
    const Lines high = file("x", "s", "Medium", {"51001", "1", "7682", "241", "0"});
    const std::string url = " rtmp://矢/a?b=c&d ", key = "k\\\\n\"🎬\" ";
    for (const auto &[answers, width, before, after] :
        {std::tuple{
             "=>Save", "", low, file(url, key, "veryfast", {"500", "7680", "16", "1", "1000"})},
            {"=>Save", "361", high,
                file(url, key, "veryfast", {"51000", "360", "7680", "240", "1"})},
            {"=>Cancel", "", low, low}, {"  =>Save|=>OK|=>Cancel", "", low, low}}) {
        std::string text;
        for (const std::string &line : before) {
            text += line + "\n";
        }
        write_file(profile_config_path(), text);
        load_profile_config();
        const auto type = [typed = std::string(width)](QWidget &dialog) {
            type_over(child<QLineEdit>(dialog, "keyEdit"), QStringLiteral("k\\n\"🎬\" "));
            type_over(child<QLineEdit>(dialog, "urlEdit"), QStringLiteral(" rtmp://矢/a?b=c&d "));
            if (!typed.empty()) {
                type_over(child<QLineEdit>(child<QSpinBox>(dialog, "widthSpin")),
                    QString::fromStdString(typed));
            }
        };
        const std::string shown = answering(answers, [] { open_settings_dialog(); }, type);
        EXPECT_EQ(
            shown.find("/Validation|RTMP URL cannot be empty./") > shown.size(), *answers == '=');
        save_profile_file();
        EXPECT_EQ(read_lines(profile_config_path()), after);
    }
    close_config_files();
}

// The wrong scene preselected or returned would be streamed.
TEST(Dialogs, scene_is_chosen_exactly) {
    const HostScene upper("Main"), lower("main"), odd("<i>矢</i>");
    FakeFrontend::get().scenes = {upper.source(), lower.source(), odd.source()};
    for (const auto &[current, answers, preselected, selected] :
        {std::tuple{"", "=>OK", "(None)", ""}, {"main", "=>OK", "main", "main"},
            {"Gone", "=>OK", "-", ""}, {"", "2", "(None)", "main"},
            {"<i>矢</i>", "0", "<i>矢</i>", ""}, {"Main", "3=>OK", "Main", "<i>矢</i>"}}) {
        SceneConfigDialog dialog(QStringLiteral("A"), QString::fromUtf8(current), nullptr);
        EXPECT_EQ(answering(answers, [&] { dialog.exec(); }),
            std::string("Assign OBS Scene — A|") + preselected);
        EXPECT_EQ(dialog.result(), QDialog::Accepted);
        EXPECT_EQ(dialog.selectedSource().toStdString(), selected);
    }
    FakeFrontend::get().scenes.clear();
}

} // namespace

} // namespace corvane::test
