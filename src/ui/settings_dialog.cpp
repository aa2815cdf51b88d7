// SPDX-License-Identifier: GPL-2.0-or-later
#include "ui/settings_dialog.hpp"

#include "core/plugin_settings.hpp"
#include "core/runtime.hpp"
#include "core/setting_limits.hpp"
#include "ui/message_box.hpp"
#include "ui/widget_names.hpp"

#include <obs-frontend-api.h>

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QScreen>
#include <QScrollArea>
#include <QScrollBar>
#include <QShowEvent>
#include <QSpinBox>
#include <QStyle>
#include <QVBoxLayout>

#include <algorithm>
#include <cstdint>

namespace corvane {

namespace {

constexpr int kGroupSpacing = 8;

QFormLayout *add_form(QGroupBox *group) {
    auto *form = new QFormLayout(group);
    form->setSpacing(kGroupSpacing);
    return form;
}

int even_below(int value) {
    return value - value % kSizeRange.step;
}

// The host's default colour format needs even sides. An odd number typed becomes the even one
// below.
class EvenSpinBox : public QSpinBox {
protected:
    int valueFromText(const QString &text) const override {
        return even_below(QSpinBox::valueFromText(text));
    }
};

template <typename Box = QSpinBox>
QSpinBox *make_spin(
    const SettingRange &range, const char *suffix, const char *object_name, const char *label) {
    auto *spin = new Box;
    spin->setRange(range.least, range.most);
    spin->setSingleStep(range.step);
    spin->setSuffix(QString::fromUtf8(suffix));
    name_widget(spin, object_name, label);
    return spin;
}

QCheckBox *make_check(const char *text, const char *object_name) {
    auto *check = new QCheckBox(QString::fromUtf8(text));
    name_widget(check, object_name, text);
    return check;
}

QLabel *make_note(const char *text) {
    auto *note = new QLabel(QString::fromUtf8(text));
    note->setWordWrap(true);
    return note;
}

// A spin box holds an int; larger stored numbers show as the largest int.
int shown(uint32_t value) {
    return static_cast<int>(std::min<uint32_t>(value, INT32_MAX));
}

} // namespace

SettingsDialog::SettingsDialog(QWidget *parent)
    : QDialog(parent) {
    setObjectName(QStringLiteral("CorvaneSettingsDialog"));
    setWindowTitle(QStringLiteral("Vertical Canvas — Settings"));
    setMinimumWidth(440);
    setModal(true);

    auto *layout = new QVBoxLayout(this);
    layout->setSpacing(12);
    layout->setContentsMargins(16, 16, 16, 16);
    layout->addWidget(build_stream_group(), 0);
    layout->addWidget(build_encoding_group(), 0);
    layout->addWidget(build_canvas_group(), 0);
    layout->addWidget(build_behaviour_group(), 0);

    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Save | QDialogButtonBox::Cancel);
    buttons->setObjectName(QStringLiteral("settingsButtons"));
    connect(buttons, &QDialogButtonBox::accepted, this, &SettingsDialog::on_save_clicked);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    layout->addWidget(buttons);

    load();
}

// Only now all rows have their final style and height.
void SettingsDialog::showEvent(QShowEvent *event) {
    if (!event->spontaneous()) {
        fit_to_screen();
    }
    QDialog::showEvent(event);
}

// As high as all rows need; on a lower screen they scroll above the buttons. By default Qt limits a
// dialog's height to a part of the screen.
void SettingsDialog::fit_to_screen() {
    const int width = std::max(minimumWidth(), layout()->minimumSize().width());
    const auto groups = findChildren<QGroupBox *>(Qt::FindDirectChildrenOnly);
    for (QGroupBox *group : groups) {
        // A form with wrapped text would accept less, at the expense of its fields.
        group->setMinimumHeight(group->sizeHint().height());
    }
    const int needed = layout()->totalHeightForWidth(width);
    const int title_bar = style()->pixelMetric(QStyle::PM_TitleBarHeight, nullptr, this);
    // Of the compositor's panels Wayland tells nothing.
    const int tenths =
        QGuiApplication::platformName().startsWith(QStringLiteral("wayland")) ? 9 : 10;
    const int room = screen()->availableGeometry().height() * tenths / 10 - title_bar;
    if (needed <= room) {
        resize(width, needed);
        return;
    }
    auto *form = new QWidget;
    auto *rows = new QVBoxLayout(form);
    rows->setContentsMargins(0, 0, 0, 0);
    rows->setSpacing(layout()->spacing());
    for (QGroupBox *group : groups) {
        rows->addWidget(group, 0);
    }
    auto *scroll = new QScrollArea;
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setWidgetResizable(true);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scroll->setWidget(form);
    static_cast<QVBoxLayout *>(layout())->insertWidget(0, scroll, 1);
    layout()->activate(); // or the old minimum height would hold
    urlEdit->setFocus();  // lost with the old place
    resize(width + scroll->verticalScrollBar()->sizeHint().width(), room);
}

QGroupBox *SettingsDialog::build_stream_group() {
    auto *group = new QGroupBox(QStringLiteral("Stream"));
    QFormLayout *form = add_form(group);

    urlEdit = new QLineEdit;
    urlEdit->setPlaceholderText(QStringLiteral("rtmp://live.example.com/app"));
    name_widget(urlEdit, "urlEdit", "RTMP URL");
    form->addRow(QStringLiteral("RTMP URL:"), urlEdit);

    keyEdit = new QLineEdit;
    keyEdit->setEchoMode(QLineEdit::Password);
    keyEdit->setPlaceholderText(QStringLiteral("your-stream-key"));
    name_widget(keyEdit, "keyEdit", "Stream key");
    keyToggle = new QPushButton(QStringLiteral("Show"));
    keyToggle->setCheckable(true);
    keyToggle->setFixedWidth(52);
    // With the padding of the host's themes the text would not fit.
    keyToggle->setStyleSheet(QStringLiteral("padding-left: 0px; padding-right: 0px;"));
    name_widget(keyToggle, "keyToggle", "Show the stream key");
    connect(keyToggle, &QPushButton::toggled, this, &SettingsDialog::on_toggle_key_visibility);
    auto *key_row = new QHBoxLayout;
    key_row->addWidget(keyEdit);
    key_row->addWidget(keyToggle);
    form->addRow(QStringLiteral("Stream Key:"), key_row);
    return group;
}

QGroupBox *SettingsDialog::build_encoding_group() {
    auto *group = new QGroupBox(QStringLiteral("Encoding"));
    QFormLayout *form = add_form(group);
    bitrateSpin = make_spin(kBitrateRange, " kbps", "bitrateSpin", "Video bitrate");
    form->addRow(QStringLiteral("Video Bitrate:"), bitrateSpin);

    presetCombo = new QComboBox;
    for (const char *preset : kEncoderPresets) {
        presetCombo->addItem(QString::fromUtf8(preset));
    }
    name_widget(presetCombo, "presetCombo", "Encoder preset");
    form->addRow(QStringLiteral("Encoder Preset:"), presetCombo);
    return group;
}

QGroupBox *SettingsDialog::build_canvas_group() {
    auto *group = new QGroupBox(QStringLiteral("Canvas"));
    QFormLayout *form = add_form(group);
    widthSpin = make_spin<EvenSpinBox>(kSizeRange, " px", "widthSpin", "Canvas width");
    heightSpin = make_spin<EvenSpinBox>(kSizeRange, " px", "heightSpin", "Canvas height");
    form->addRow(QStringLiteral("Width:"), widthSpin);
    form->addRow(QStringLiteral("Height:"), heightSpin);

    fpsNumSpin = make_spin(kFpsNumRange, "", "fpsNumSpin", "Frame rate numerator");
    fpsDenSpin = make_spin(kFpsDenRange, "", "fpsDenSpin", "Frame rate denominator");
    auto *slash = new QLabel(QStringLiteral("/"));
    slash->setFixedWidth(12);
    slash->setAlignment(Qt::AlignCenter);
    auto *fps_row = new QHBoxLayout;
    fps_row->addWidget(fpsNumSpin);
    fps_row->addWidget(slash);
    fps_row->addWidget(fpsDenSpin);
    form->addRow(QStringLiteral("FPS (num / den):"), fps_row);
    form->addRow(make_note("<small><i>Canvas size and FPS changes take effect after restarting "
                           "the vertical output.</i></small>"));
    return group;
}

QGroupBox *SettingsDialog::build_behaviour_group() {
    auto *group = new QGroupBox(QStringLiteral("Behaviour"));
    QFormLayout *form = add_form(group);
    autoStartCheck = make_check("Auto-start when main stream starts", "autoStartCheck");
    sceneAudioCheck = make_check("Use audio from active vertical scene", "sceneAudioCheck");
    form->addRow(autoStartCheck);
    form->addRow(sceneAudioCheck);
    form->addRow(
        make_note("Audio source changes take effect after restarting the vertical output."));
    return group;
}

// A stored number outside a box's range shows, and is saved, as the nearest one inside; an odd size
// as the even one below.
void SettingsDialog::load() {
    urlEdit->setText(QString::fromUtf8(settings::rtmpurl.get()));
    keyEdit->setText(QString::fromUtf8(settings::streamkey.get()));
    bitrateSpin->setValue(shown(settings::videobitrate.get()));
    widthSpin->setValue(even_below(shown(settings::canvaswidth.get())));
    heightSpin->setValue(even_below(shown(settings::canvasheight.get())));
    fpsNumSpin->setValue(shown(settings::fpsnum.get()));
    fpsDenSpin->setValue(shown(settings::fpsden.get()));
    autoStartCheck->setChecked(settings::autostartwithmain.get());
    sceneAudioCheck->setChecked(settings::useactivesceneaudio.get());
    // An unknown preset selects the default.
    presetCombo->setCurrentText(QString::fromUtf8(settings::encoderpreset.fallback));
    presetCombo->setCurrentText(QString::fromUtf8(settings::encoderpreset.get()));
}

void SettingsDialog::on_toggle_key_visibility(bool shown) {
    keyEdit->setEchoMode(shown ? QLineEdit::Normal : QLineEdit::Password);
    keyToggle->setText(shown ? QStringLiteral("Hide") : QStringLiteral("Show"));
}

// Stores the URL as typed: only the emptiness check trims it.
void SettingsDialog::on_save_clicked() {
    if (urlEdit->text().trimmed().isEmpty()) {
        show_message(this, QMessageBox::Warning, QStringLiteral("Validation"),
            QStringLiteral("RTMP URL cannot be empty."), QMessageBox::Ok);
        return;
    }
    settings::rtmpurl.set(urlEdit->text().toUtf8().constData());
    settings::streamkey.set(keyEdit->text().toUtf8().constData());
    settings::videobitrate.set(static_cast<uint32_t>(bitrateSpin->value()));
    settings::canvaswidth.set(static_cast<uint32_t>(widthSpin->value()));
    settings::canvasheight.set(static_cast<uint32_t>(heightSpin->value()));
    settings::fpsnum.set(static_cast<uint32_t>(fpsNumSpin->value()));
    settings::fpsden.set(static_cast<uint32_t>(fpsDenSpin->value()));
    settings::autostartwithmain.set(autoStartCheck->isChecked());
    settings::encoderpreset.set(presetCombo->currentText().toUtf8().constData());
    settings::useactivesceneaudio.set(sceneAudioCheck->isChecked());
    save_profile_config();
    accept();
}

void open_settings_dialog(QWidget *parent) {
    if (!parent) {
        parent = static_cast<QWidget *>(obs_frontend_get_main_window());
    }
    auto *dialog = new SettingsDialog(parent);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->exec();
}

} // namespace corvane
