// SPDX-License-Identifier: GPL-2.0-or-later
#include "output/stream_error_box.hpp"

#include <obs.h>

#include <QCoreApplication>
#include <QMessageBox>
#include <QMetaObject>
#include <QString>

namespace corvane {

namespace {

// The three odd characters stand where a dash was meant; users know the box by them.
QString box_title() {
    return QStringLiteral("Vertical Canvas \u00E2\u20AC\u201D Stream Error");
}

QString message_for(obs_output_t *output) {
    const char *last_error = obs_output_get_last_error(output);
    if (last_error && *last_error) {
        return QString::fromUtf8(last_error);
    }
    return QStringLiteral(
        "Vertical output failed to connect.\nCheck your RTMP URL and stream key.");
}

void show_on_gui_thread(const QString &message) {
    QMetaObject::invokeMethod(
        QCoreApplication::instance(),
        [message] { QMessageBox::critical(nullptr, box_title(), message, QMessageBox::Ok); },
        Qt::QueuedConnection);
}

} // namespace

void on_output_stop(void *data, calldata_t *calldata) {
    long long code = 0;
    calldata_get_data(calldata, "code", &code, sizeof(code));
    if (code == OBS_OUTPUT_ERROR || code == OBS_OUTPUT_ENCODE_ERROR) {
        show_on_gui_thread(message_for(static_cast<obs_output_t *>(data)));
    }
}

} // namespace corvane
