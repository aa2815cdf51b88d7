// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <QMessageBox>
#include <QPointer>

namespace corvane {

// Shows a modal box with plain text and returns the button that closed it. The parent may be gone
// when it returns (then no button): on the heap, since a host window that is closed meanwhile
// deletes its children before the box's event loop returns.
inline QMessageBox::StandardButton show_message(QWidget *parent, QMessageBox::Icon icon,
    const QString &title, const QString &text, QMessageBox::StandardButtons buttons) {
    const QPointer<QMessageBox> box = new QMessageBox(icon, title, text, buttons, parent);
    box->setTextFormat(Qt::PlainText);
    const int button = box->exec();
    delete box;
    return static_cast<QMessageBox::StandardButton>(button);
}

} // namespace corvane
