// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "ui/tool_tip.hpp"

#include <QLabel>
#include <QPainter>
#include <QStyle>

namespace corvane {

// A line of plain text, painted elided in the middle where it does not fit; text() stays whole. Its
// tool tip has the host's look.
class ElidedLabel : public QLabel {
public:
    using QLabel::QLabel;

    // As narrow as the layout wants.
    QSize minimumSizeHint() const override { return {0, QLabel::minimumSizeHint().height()}; }

protected:
    bool event(QEvent *event) override {
        return show_tool_tip(*event, toolTip()) || QLabel::event(event);
    }

    void paintEvent(QPaintEvent *) override {
        QPainter painter(this);
        const QRect place = contentsRect();
        const QString shown = fontMetrics().elidedText(text(), Qt::ElideMiddle, place.width());
        style()->drawItemText(&painter, place, static_cast<int>(alignment()), palette(),
            isEnabled(), shown, foregroundRole());
    }
};

} // namespace corvane
