// SPDX-License-Identifier: GPL-2.0-or-later
// The slots of the dock's buttons and its scene list.
#include "ui/vertical_dock.hpp"

#include "base/log.hpp"
#include "canvas/vertical_canvas.hpp"
#include "core/scene_list_store.hpp"
#include "output/vertical_output.hpp"
#include "ui/message_box.hpp"
#include "ui/scene_config_dialog.hpp"

#include <util/base.h>

#include <QInputDialog>
#include <QListWidget>
#include <QPointer>

namespace corvane {

namespace {

QString scene_of(const QListWidgetItem *item) {
    return item ? item->data(Qt::UserRole).toString() : QString();
}

// Quotes the name as typed, with any blanks around it.
void warn_name_taken(QWidget *dock, const QString &title, const QString &typed) {
    show_message(dock, QMessageBox::Warning, title,
        QStringLiteral("A scene named \"") + typed + QStringLiteral("\" already exists."),
        QMessageBox::Ok);
}

} // namespace

void VerticalDock::scenes_edited() {
    refreshSceneList();
    save_scene_list_locked();
}

// Does not save: the active scene is written with the next edit or at exit, see docs/DECISIONS.md.
void VerticalDock::onSceneItemClicked(QListWidgetItem *item) {
    if (!canvas || !item) {
        return;
    }
    canvas->set_active_scene(scene_of(item).toStdString());
    refreshSceneList();
}

void VerticalDock::onAddScene() {
    if (!canvas) {
        return;
    }
    const QString title = QStringLiteral("Add Scene");
    bool accepted = false;
    const QString typed = QInputDialog::getText(
        this, title, QStringLiteral("Scene name:"), QLineEdit::Normal, QString(), &accepted);
    const QString name = typed.trimmed();
    // The runtime may be destroyed while the dialog is open.
    if (!accepted || name.isEmpty() || !canvas) {
        return;
    }
    if (canvas->create_scene(name.toStdString())) {
        scenes_edited();
    } else {
        warn_name_taken(this, title, typed);
    }
}

void VerticalDock::onRemoveScene() {
    const QListWidgetItem *item = sceneList->currentItem();
    if (!canvas || !item) {
        return;
    }
    const QString name = scene_of(item);
    const auto answer = show_message(this, QMessageBox::Question, QStringLiteral("Remove Scene"),
        QStringLiteral("Remove scene \"") + name + QStringLiteral("\"? This cannot be undone."),
        QMessageBox::Yes | QMessageBox::Cancel);
    if (answer == QMessageBox::Yes && canvas) {
        canvas->remove_scene(name.toStdString());
        scenes_edited();
    }
}

void VerticalDock::onRenameScene() {
    const QListWidgetItem *item = sceneList->currentItem();
    if (!canvas || !item) {
        return;
    }
    const QString title = QStringLiteral("Rename Scene");
    const QString old_name = scene_of(item);
    bool accepted = false;
    const QString typed = QInputDialog::getText(
        this, title, QStringLiteral("New name:"), QLineEdit::Normal, old_name, &accepted);
    const QString name = typed.trimmed();
    if (!accepted || name.isEmpty() || name == old_name || !canvas) {
        return;
    }
    if (canvas->rename_scene(old_name.toStdString(), name.toStdString())) {
        scenes_edited();
    } else {
        warn_name_taken(this, title, typed);
    }
}

void VerticalDock::onConfigureScene() {
    if (!canvas) {
        return;
    }
    const QString scene = scene_of(sceneList->currentItem());
    if (scene.isEmpty()) {
        show_message(this, QMessageBox::Information, QStringLiteral("Configure Scene"),
            QStringLiteral("Select a scene from the list first."), QMessageBox::Ok);
        return;
    }
    const std::string name = scene.toStdString();
    const QString current = QString::fromStdString(canvas->scene_source_name(name));
    // On the heap for the same reason as in show_message().
    const QPointer<SceneConfigDialog> dialog = new SceneConfigDialog(scene, current, this);
    const bool accepted = dialog->exec() == QDialog::Accepted;
    if (!dialog) {
        return; // the dock, its parent, was destroyed, too
    }
    const std::string selected = dialog->selectedSource().toStdString();
    delete dialog;
    if (accepted && canvas) {
        canvas->assign_scene_source(name, selected);
        scenes_edited();
    }
}

void VerticalDock::onStartClicked() {
    if (!output) {
        return;
    }
    if (!output->start()) {
        log_widget(LOG_WARNING, "Dock: failed to start vertical output");
    }
    onStatusTick();
}

void VerticalDock::onStopClicked() {
    if (!output) {
        return;
    }
    output->stop();
    onStatusTick();
}

} // namespace corvane
