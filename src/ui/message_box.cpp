// SPDX-License-Identifier: GPL-2.0-or-later
#include "ui/message_box.hpp"

#include <QPointer>

namespace corvane {

// On the heap and watched: when the host's window is closed under an open box, the window takes
// its children with it before the box's own event loop returns.
QMessageBox::StandardButton show_message(QWidget *parent, QMessageBox::Icon icon,
    const QString &title, const QString &text, QMessageBox::StandardButtons buttons) {
    const QPointer<QMessageBox> box = new QMessageBox(icon, title, text, buttons, parent);
    box->setTextFormat(Qt::PlainText);
    const int button = box->exec();
    delete box;
    return static_cast<QMessageBox::StandardButton>(button);
}

} // namespace corvane
