// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <QString>
#include <QWidget>

namespace corvane {

// Names a widget for style sheets and tests, and for screen readers.
inline void name_widget(QWidget *widget, const char *object_name, const char *accessible_name) {
    widget->setObjectName(QString::fromUtf8(object_name));
    widget->setAccessibleName(QString::fromUtf8(accessible_name));
}

} // namespace corvane
