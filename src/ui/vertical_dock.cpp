// SPDX-License-Identifier: GPL-2.0-or-later
// The dock's widgets, scene list and status line; its slots are in vertical_dock_actions.cpp.
#include "ui/vertical_dock.hpp"

#include "canvas/vertical_canvas.hpp"
#include "core/options.hpp"
#include "ui/elided_label.hpp"
#include "ui/tool_tip.hpp"
#include "ui/vertical_preview_widget.hpp"
#include "ui/widget_names.hpp"

#include <QAction>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QSignalBlocker>
#include <QTimer>
#include <QVBoxLayout>

#include <vector>

namespace corvane {

namespace {

constexpr int kStatusIntervalMs = 500;
constexpr const char *kIdleStyle = "font-size: 11px; color: #888;";
constexpr const char *kStreamingStyle = "font-size: 11px; color: #4caf50; font-weight: bold;";

constexpr const char *kEmptyPreview =
    "Nothing to show yet: press \"Assign OBS Scene\" and choose what this vertical scene shows";

struct Button {
    const char *text;
    const char *object_name;
    const char *accessible_name;
    const char *tool_tip;
};

constexpr Button kAdd{.text = "+ Add",
    .object_name = "addButton",
    .accessible_name = "Add scene",
    .tool_tip = "Add a new vertical scene"};
constexpr Button kRemove{.text = "- Remove",
    .object_name = "removeButton",
    .accessible_name = "Remove scene",
    .tool_tip = "Remove selected scene"};
constexpr Button kRename{.text = "Rename",
    .object_name = "renameButton",
    .accessible_name = "Rename scene",
    .tool_tip = "Rename selected scene"};
constexpr Button kAssign{.text = "Assign OBS Scene",
    .object_name = "assignButton",
    .accessible_name = "Assign OBS scene",
    .tool_tip = "Assign an OBS scene to this vertical slot. Build your 9:16 layout in OBS's scene "
                "editor -- changes appear live."};
constexpr Button kStart{.text = "Start",
    .object_name = "startButton",
    .accessible_name = "Start vertical stream",
    .tool_tip = "Start vertical stream"};
constexpr Button kStop{.text = "Stop",
    .object_name = "stopButton",
    .accessible_name = "Stop vertical stream",
    .tool_tip = "Stop vertical stream"};

QPushButton *make_button(QWidget *parent, const Button &description) {
    auto *button = new QPushButton(QString::fromUtf8(description.text), parent);
    button->setToolTip(QString::fromUtf8(description.tool_tip));
    name_widget(button, description.object_name, description.accessible_name);
    return button;
}

} // namespace

VerticalDock::VerticalDock(VerticalCanvas *canvas, VerticalOutput *output, QWidget *parent)
    : QWidget(parent)
    , canvas(canvas)
    , output(output) {
    setObjectName(QStringLiteral("CorvaneVerticalCanvasDock"));
    setWindowTitle(QStringLiteral("Vertical Canvas"));
    setMinimumWidth(270);
    setMaximumWidth(540);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(4, 4, 4, 4);
    layout->setSpacing(4);

    build_preview(layout);
    build_scene_list(layout);
    build_scene_buttons(layout);
    build_stream_buttons(layout);
    build_status(layout);
    onStatusTick();
}

void VerticalDock::build_preview(QBoxLayout *layout) {
    sceneLabel = new ElidedLabel(windowTitle(), this);
    sceneLabel->setObjectName(QStringLiteral("sceneLabel"));
    sceneLabel->setTextFormat(Qt::PlainText);
    sceneLabel->setAlignment(Qt::AlignCenter);
    sceneLabel->setStyleSheet(QStringLiteral("font-size: 11px; color: #aaa;"));
    layout->addWidget(sceneLabel);

    auto *container = new QWidget(this);
    container->setObjectName(QStringLiteral("previewContainer"));
    container->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
    container->setStyleSheet(QStringLiteral("background: #181818;"));
    auto *row = new QHBoxLayout(container);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(0);
    preview = new VerticalPreviewWidget(canvas, container);
    name_widget(preview, "verticalPreview", "Live preview of the vertical canvas");
    // The preview takes the width it can use, centred by the stretches.
    row->addStretch();
    row->addWidget(preview, 1);
    row->addStretch();
    layout->addWidget(container, 1);
}

void VerticalDock::build_scene_list(QBoxLayout *layout) {
    auto *title = new QLabel(QStringLiteral("Scenes"), this);
    title->setStyleSheet(QString::fromUtf8(kIdleStyle));
    layout->addWidget(title);

    sceneList = new QListWidget(this);
    name_widget(sceneList, "sceneList", "Vertical scenes");
    sceneList->setFixedHeight(84);
    sceneList->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    sceneList->setStyleSheet(
        QStringLiteral("QListWidget { font-size: 12px; }"
                       "QListWidget::item:selected { background: #2a6099; color: white; }"));
    connect(sceneList, &QListWidget::itemClicked, this, &VerticalDock::onSceneItemClicked);
    connect(sceneList, &QListWidget::itemActivated, this, &VerticalDock::onSceneItemClicked);

    // The buttons' commands as the list's context menu.
    sceneList->setContextMenuPolicy(Qt::ActionsContextMenu);
    add_list_action("Add Scene", {}, &VerticalDock::onAddScene);
    add_list_action("Remove Scene", QKeySequence::Delete, &VerticalDock::onRemoveScene);
    add_list_action("Rename Scene", Qt::Key_F2, &VerticalDock::onRenameScene);
    add_list_action("Assign OBS Scene", {}, &VerticalDock::onConfigureScene);
    layout->addWidget(sceneList);
}

void VerticalDock::add_list_action(
    const char *text, const QKeySequence &shortcut, void (VerticalDock::*slot)()) {
    auto *action = new QAction(QString::fromUtf8(text), sceneList);
    action->setShortcut(shortcut);
    action->setShortcutContext(Qt::WidgetShortcut);
    connect(action, &QAction::triggered, this, slot);
    sceneList->addAction(action);
}

void VerticalDock::build_scene_buttons(QBoxLayout *layout) {
    auto *grid = new QGridLayout;
    grid->setSpacing(4);
    grid->setContentsMargins(0, 0, 0, 0);
    addButton = make_button(this, kAdd);
    removeButton = make_button(this, kRemove);
    renameButton = make_button(this, kRename);
    assignButton = make_button(this, kAssign);
    connect(addButton, &QPushButton::clicked, this, &VerticalDock::onAddScene);
    connect(removeButton, &QPushButton::clicked, this, &VerticalDock::onRemoveScene);
    connect(renameButton, &QPushButton::clicked, this, &VerticalDock::onRenameScene);
    connect(assignButton, &QPushButton::clicked, this, &VerticalDock::onConfigureScene);
    grid->addWidget(addButton, 0, 0);
    grid->addWidget(removeButton, 0, 1);
    grid->addWidget(renameButton, 1, 0);
    grid->addWidget(assignButton, 1, 1);
    layout->addLayout(grid);
}

void VerticalDock::build_stream_buttons(QBoxLayout *layout) {
    auto *row = new QHBoxLayout;
    row->setSpacing(6);
    startButton = make_button(this, kStart);
    stopButton = make_button(this, kStop);
    connect(startButton, &QPushButton::clicked, this, &VerticalDock::onStartClicked);
    connect(stopButton, &QPushButton::clicked, this, &VerticalDock::onStopClicked);
    row->addWidget(startButton);
    row->addWidget(stopButton);
    layout->addLayout(row);
}

void VerticalDock::build_status(QBoxLayout *layout) {
    statusLabel = new ElidedLabel(QStringLiteral("Stopped"), this);
    statusLabel->setObjectName(QStringLiteral("statusLabel"));
    statusLabel->setAlignment(Qt::AlignCenter);
    statusLabel->setStyleSheet(QString::fromUtf8(kIdleStyle));
    layout->addWidget(statusLabel);

    statusTimer = new QTimer(this);
    statusTimer->setInterval(kStatusIntervalMs);
    connect(statusTimer, &QTimer::timeout, this, &VerticalDock::onStatusTick);
    statusTimer->start();
}

void VerticalDock::setRuntime(VerticalCanvas *new_canvas, VerticalOutput *new_output) {
    canvas = new_canvas;
    output = new_output;
    if (preview && preview->shown_canvas() != canvas) {
        preview->set_canvas(canvas);
        preview->update();
    }
    refreshSceneList();
    onStatusTick();
}

void VerticalDock::setPreviewShown(bool shown) {
    preview->setVisible(shown);
}

void VerticalDock::refreshSceneList() {
    const QSignalBlocker blocker(sceneList);
    sceneList->clear();
    shownRenames = canvas ? canvas->source_renames() : 0;
    shownChanges = canvas ? canvas->source_changes() : 0;
    if (!canvas) {
        onActiveSceneChanged(QString());
        set_scene_buttons_enabled(false, false);
        return;
    }
    const std::vector<SceneInfo> scenes = canvas->scene_list();
    preview->setToolTip(QString::fromUtf8(kEmptyPreview));
    const std::string active = canvas->active_scene_name();
    for (const SceneInfo &scene : scenes) {
        add_scene_item(scene, scene.name == active);
    }
    set_scene_buttons_enabled(true, !scenes.empty());
    onActiveSceneChanged(QString::fromStdString(active));
}

// The visible text is decorated; the plain name is the item's data.
void VerticalDock::add_scene_item(const SceneInfo &scene, bool active) {
    const QString name = QString::fromStdString(scene.name);
    const QString source = QString::fromStdString(scene.source_name);
    const QString suffix = source.isEmpty() ? QString() : QStringLiteral(" [%1]").arg(source);
    const QString mark = active ? QStringLiteral("► ") : QStringLiteral(" ");
    auto *item = new QListWidgetItem(mark + name + suffix, sceneList);
    item->setData(Qt::UserRole, name);
    QString tool_tip = name + suffix;
    if (active && !source.isEmpty() && !scene.source_missing) {
        preview->setToolTip(QString());
    }
    if (scene.source_missing) {
        tool_tip += QStringLiteral("\nOBS has no scene \"%1\": nothing is shown").arg(source);
    }
    item->setToolTip(plain_tool_tip(tool_tip));
    if (active) {
        QFont font = item->font();
        font.setBold(true);
        item->setFont(font);
        sceneList->setCurrentItem(item);
    }
}

void VerticalDock::set_scene_buttons_enabled(bool add, bool others) {
    addButton->setEnabled(add);
    for (QPushButton *button : {removeButton, renameButton, assignButton}) {
        button->setEnabled(others);
    }
    for (QAction *action : sceneList->actions()) {
        action->setEnabled(action == sceneList->actions().front() ? add : others);
    }
}

void VerticalDock::onActiveSceneChanged(const QString &sceneName) {
    const QString text = sceneName.isEmpty() ? QStringLiteral("No active scene")
                                             : QStringLiteral("Scene: ") + sceneName;
    sceneLabel->setText(text);
    sceneLabel->setToolTip(text);
}

void VerticalDock::onStatusTick() {
    if (output) {
        apply_reconnects();
    }
    if (canvas && canvas->source_renames() != shownRenames) {
        scenes_edited();
    } else if (canvas && canvas->source_changes() != shownChanges) {
        refreshSceneList();
    }
    status.update(output);
    startButton->setEnabled(output && !status.active());
    stopButton->setEnabled(status.active());
    statusLabel->setText(status.text());
    statusLabel->setToolTip(status.details());
    statusLabel->setStyleSheet(QString::fromUtf8(status.live() ? kStreamingStyle : kIdleStyle));
}

} // namespace corvane
