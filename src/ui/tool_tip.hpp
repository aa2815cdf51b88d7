// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <QHelpEvent>
#include <QString>
#include <QTextDocument>
#include <QToolTip>

namespace corvane {

// For Qt, which reads a tool tip that looks like markup as such.
inline QString plain_tool_tip(const QString &text) {
    return Qt::mightBeRichText(text) ? Qt::convertFromPlainText(text, Qt::WhiteSpaceNormal) : text;
}

// Shows the text, plain, when the event asks for a tool tip; false for other events. Without a
// widget, whose style sheet and those of its parents would apply to the tool tip.
inline bool show_tool_tip(QEvent &event, const QString &text) {
    if (event.type() != QEvent::ToolTip) {
        return false;
    }
    QToolTip::showText(static_cast<QHelpEvent &>(event).globalPos(), plain_tool_tip(text));
    return true;
}

} // namespace corvane
