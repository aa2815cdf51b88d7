// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <QDialog>
#include <QString>

class QListWidget;

namespace corvane {

// Asks which of the host's scenes a vertical scene shows; changes nothing itself. Lists the scenes
// once, in the constructor. UI thread only.
class SceneConfigDialog : public QDialog {
    Q_OBJECT

public:
    // The vertical scene and its current source, empty for none.
    SceneConfigDialog(const QString &sceneName, const QString &currentSource, QWidget *parent);

    // The selected host scene; empty for none.
    QString selectedSource() const;

private Q_SLOTS:
    void onItemDoubleClicked();

private:
    void add_choice(const QString &text, const QString &source, const QString &current_source);
    void list_host_scenes(const QString &current_source);

    QListWidget *sourceList = nullptr;
};

} // namespace corvane
