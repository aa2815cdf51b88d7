// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <QDialog>

class QCheckBox;
class QComboBox;
class QGroupBox;
class QLineEdit;
class QPushButton;
class QSpinBox;

namespace corvane {

// Edits the settings of the current profile: reads them in the constructor, writes them on Save.
// UI thread only.
class SettingsDialog : public QDialog {
    Q_OBJECT

public:
    explicit SettingsDialog(QWidget *parent = nullptr);

protected:
    void showEvent(QShowEvent *event) override;

private Q_SLOTS:
    void on_save_clicked();
    void on_toggle_key_visibility(bool shown);

private:
    QGroupBox *build_stream_group();
    QGroupBox *build_encoding_group();
    QGroupBox *build_canvas_group();
    QGroupBox *build_behaviour_group();
    void load();
    void fit_to_screen();

    QLineEdit *urlEdit = nullptr;
    QLineEdit *keyEdit = nullptr;
    QPushButton *keyToggle = nullptr;
    QSpinBox *bitrateSpin = nullptr;
    QSpinBox *widthSpin = nullptr;
    QSpinBox *heightSpin = nullptr;
    QSpinBox *fpsNumSpin = nullptr;
    QSpinBox *fpsDenSpin = nullptr;
    QCheckBox *autoStartCheck = nullptr;
    QCheckBox *sceneAudioCheck = nullptr;
    QComboBox *presetCombo = nullptr;
};

// Runs the dialog until it is closed. The parent defaults to the host's main window.
void open_settings_dialog(QWidget *parent = nullptr);

} // namespace corvane
