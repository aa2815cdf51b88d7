// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <QDialog>
#include <QString>

class QListWidget;

namespace corvane {

// Asks which of the host's scenes a vertical scene shows. Changes nothing by itself. The scenes
// are listed once, when the dialog is built. UI thread only.
class SceneConfigDialog : public QDialog {
    Q_OBJECT

public:
    // The vertical scene and what it shows now, empty for nothing.
    SceneConfigDialog(const QString &sceneName, const QString &currentSource, QWidget *parent);

    // The chosen host scene; empty for none.
    QString selectedSource() const;

private Q_SLOTS:
    void onItemDoubleClicked();

private:
    void add_choice(const QString &text, const QString &source, const QString &current_source);
    void list_host_scenes(const QString &current_source);

    QListWidget *sourceList = nullptr;
};

} // namespace corvane
