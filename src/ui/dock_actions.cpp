// SPDX-License-Identifier: GPL-2.0-or-later
// What the dock's buttons and its list do.
#include "base/log.hpp"
#include "canvas/vertical_canvas.hpp"
#include "core/scene_list_store.hpp"
#include "output/vertical_output.hpp"
#include "ui/scene_config_dialog.hpp"
#include "ui/vertical_dock.hpp"

#include <util/base.h>

#include <QInputDialog>
#include <QListWidget>
#include <QMessageBox>

namespace corvane {

namespace {

QString scene_of(const QListWidgetItem *item) {
    return item ? item->data(Qt::UserRole).toString() : QString();
}

// A name may look like markup, so no box may take its text for that.
QMessageBox::StandardButton ask(QWidget *dock, QMessageBox::Icon icon, const QString &title,
    const QString &text, QMessageBox::StandardButtons buttons) {
    QMessageBox box(icon, title, text, buttons, dock);
    box.setTextFormat(Qt::PlainText);
    return static_cast<QMessageBox::StandardButton>(box.exec());
}

// Quotes the name as typed, so that blanks around it show.
void warn_name_taken(QWidget *dock, const QString &title, const QString &typed) {
    ask(dock, QMessageBox::Warning, title,
        QStringLiteral("A scene named \"") + typed + QStringLiteral("\" already exists."),
        QMessageBox::Ok);
}

} // namespace

void VerticalDock::scenes_edited() {
    refreshSceneList();
    save_scene_list_locked();
}

// Does not save on purpose: the active scene goes into the file with the next edit.
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
    const auto answer = ask(this, QMessageBox::Question, QStringLiteral("Remove Scene"),
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
        QMessageBox::information(this, QStringLiteral("Configure Scene"),
            QStringLiteral("Select a scene from the list first."), QMessageBox::Ok);
        return;
    }
    const std::string name = scene.toStdString();
    SceneConfigDialog dialog(scene, QString::fromStdString(canvas->scene_source_name(name)), this);
    if (dialog.exec() == QDialog::Accepted && canvas) {
        canvas->assign_scene_source(name, dialog.selectedSource().toStdString());
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
