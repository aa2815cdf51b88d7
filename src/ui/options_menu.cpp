// SPDX-License-Identifier: GPL-2.0-or-later
#include "ui/options_menu.hpp"

#include "core/options.hpp"

#include <QMainWindow>
#include <QStatusBar>

namespace corvane {

namespace {

constexpr int kMessageMs = 10'000;

} // namespace

OptionsMenu::OptionsMenu(QWidget *parent)
    : QMenu(parent) {
    setToolTipsVisible(true);
    add("Reconnect Automatically",
        "Keeps the vertical stream going: a lost connection is made again until you stop.",
        reconnects, [this](bool enabled) { change_reconnects(enabled); });
    add("Follow the Program Scene",
        "When OBS's program scene changes, the vertical scene that shows it becomes active.",
        follows_program, set_follows_program);
    add("Send Audio Track 1 Only",
        "For services whose viewers wait long for a stream with six audio tracks.",
        sends_first_track_only, set_sends_first_track_only);
}

void OptionsMenu::add(
    const char *text, const char *tool_tip, bool (*read)(), std::function<void(bool)> change) {
    QAction *action = addAction(QString::fromUtf8(text));
    action->setToolTip(QString::fromUtf8(tool_tip));
    action->setCheckable(true);
    // The profile may have changed since.
    connect(this, &QMenu::aboutToShow, action, [action, read] { action->setChecked(read()); });
    connect(action, &QAction::triggered, this, std::move(change));
}

void OptionsMenu::change_reconnects(bool enabled) {
    if (set_reconnects(enabled)) {
        return;
    }
    if (const auto *window = qobject_cast<QMainWindow *>(parentWidget())) {
        window->statusBar()->showMessage(
            QStringLiteral("Reconnect Automatically: changes when the vertical stream has ended"),
            kMessageMs);
    }
}

} // namespace corvane
