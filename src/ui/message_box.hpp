// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <QMessageBox>

namespace corvane {

// Shows a modal box and returns the button that closed it; none when the parent went away
// meanwhile, so look before you touch anything then. The text is never taken for markup.
QMessageBox::StandardButton show_message(QWidget *parent, QMessageBox::Icon icon,
    const QString &title, const QString &text, QMessageBox::StandardButtons buttons);

} // namespace corvane
