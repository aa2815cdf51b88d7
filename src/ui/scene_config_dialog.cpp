// SPDX-License-Identifier: GPL-2.0-or-later
#include "ui/scene_config_dialog.hpp"

#include "ui/widget_names.hpp"

#include <obs-frontend-api.h>

#include <QDialogButtonBox>
#include <QLabel>
#include <QListWidget>
#include <QVBoxLayout>

namespace corvane {

SceneConfigDialog::SceneConfigDialog(
    const QString &sceneName, const QString &currentSource, QWidget *parent)
    : QDialog(parent) {
    setObjectName(QStringLiteral("CorvaneSceneConfigDialog"));
    // "[*]" in a window title is Qt's placeholder for its "modified" mark; doubled, it is shown.
    const QString shown =
        QString(sceneName).replace(QStringLiteral("[*]"), QStringLiteral("[*][*]"));
    setWindowTitle(QStringLiteral("Assign OBS Scene — ") + shown);
    setMinimumSize(320, 400);
    auto *layout = new QVBoxLayout(this);

    auto *label =
        new QLabel(QStringLiteral("Select an OBS scene to render in this vertical slot.\n"
                                  "Build your 9:16 layout inside that OBS scene using\n"
                                  "OBS's normal scene editor — all changes appear live."));
    label->setWordWrap(true);
    label->setStyleSheet(QStringLiteral("font-size: 11px; color: #aaa; margin-bottom: 6px;"));
    layout->addWidget(label);

    sourceList = new QListWidget;
    name_widget(sourceList, "sourceList", "OBS scene");
    add_choice(QStringLiteral("(None)"), QString(), currentSource);
    list_host_scenes(currentSource);
    connect(
        sourceList, &QListWidget::itemDoubleClicked, this, &SceneConfigDialog::onItemDoubleClicked);

    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
    buttons->setObjectName(QStringLiteral("sceneConfigButtons"));
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    layout->addWidget(sourceList, 0);
    layout->addWidget(buttons, 0);
}

void SceneConfigDialog::add_choice(
    const QString &text, const QString &source, const QString &current_source) {
    auto *item = new QListWidgetItem(text, sourceList);
    item->setData(Qt::UserRole, source);
    if (source == current_source) {
        sourceList->setCurrentItem(item);
    }
}

void SceneConfigDialog::list_host_scenes(const QString &current_source) {
    obs_frontend_source_list scenes = {};
    obs_frontend_get_scenes(&scenes);
    for (size_t i = 0; i < scenes.sources.num; ++i) {
        const QString name = QString::fromUtf8(obs_source_get_name(scenes.sources.array[i]));
        add_choice(name, name, current_source);
    }
    obs_frontend_source_list_free(&scenes);
}

QString SceneConfigDialog::selectedSource() const {
    const QListWidgetItem *item = sourceList->currentItem();
    return item ? item->data(Qt::UserRole).toString() : QString();
}

void SceneConfigDialog::onItemDoubleClicked() {
    accept();
}

} // namespace corvane
