// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "ui/stream_status.hpp"

#include <QString>
#include <QWidget>

#include <cstdint>

class QBoxLayout;
class QKeySequence;
class QLabel;
class QListWidget;
class QListWidgetItem;
class QPushButton;
class QTimer;

namespace corvane {

class VerticalCanvas;
class VerticalPreviewWidget;
struct SceneInfo;

// The panel in the host's window: live preview, scene list, start and stop, status line. Has no
// model: everything it shows is read from the canvas and the output. UI thread only.
class VerticalDock : public QWidget {
    Q_OBJECT

public:
    // Neither is owned; either may be null. The list stays empty until setRuntime().
    VerticalDock(VerticalCanvas *canvas, VerticalOutput *output, QWidget *parent);

    // Switches to another runtime, or to none; call it before a runtime is destroyed.
    void setRuntime(VerticalCanvas *canvas, VerticalOutput *output);

    // Reads scenes and assignments from the canvas.
    void refreshSceneList();

    // Stops the preview while the dock is behind another tab, which Qt still counts as shown.
    void setPreviewShown(bool shown);

public Q_SLOTS:
    void onActiveSceneChanged(const QString &sceneName);
    void onSceneItemClicked(QListWidgetItem *item);
    void onAddScene();
    void onRemoveScene();
    void onRenameScene();
    void onConfigureScene();
    void onStartClicked();
    void onStopClicked();
    void onStatusTick();

private:
    void build_preview(QBoxLayout *layout);
    void build_scene_list(QBoxLayout *layout);
    void build_scene_buttons(QBoxLayout *layout);
    void build_stream_buttons(QBoxLayout *layout);
    void build_status(QBoxLayout *layout);
    void add_scene_item(const SceneInfo &scene, bool active);
    void add_list_action(
        const char *text, const QKeySequence &shortcut, void (VerticalDock::*slot)());
    void set_scene_buttons_enabled(bool add, bool others);
    void scenes_edited();

    VerticalCanvas *canvas;
    VerticalOutput *output;
    VerticalPreviewWidget *preview = nullptr;
    QLabel *sceneLabel = nullptr;
    QListWidget *sceneList = nullptr;
    QPushButton *addButton = nullptr;
    QPushButton *removeButton = nullptr;
    QPushButton *renameButton = nullptr;
    QPushButton *assignButton = nullptr;
    QPushButton *startButton = nullptr;
    QPushButton *stopButton = nullptr;
    QLabel *statusLabel = nullptr;
    QTimer *statusTimer = nullptr;
    StreamStatus status;
    // The canvas's source_renames() and source_changes() when the list was filled.
    uint32_t shownRenames = 0;
    uint32_t shownChanges = 0;
};

} // namespace corvane
