// SPDX-License-Identifier: GPL-2.0-or-later
#include "ui/elided_label.hpp"

#include "ui/tool_tip.hpp"

#include <QPainter>
#include <QStyle>

namespace corvane {

QSize ElidedLabel::minimumSizeHint() const {
    return {0, QLabel::minimumSizeHint().height()};
}

bool ElidedLabel::event(QEvent *event) {
    return show_tool_tip(*event, toolTip()) || QLabel::event(event);
}

void ElidedLabel::paintEvent(QPaintEvent *) {
    QPainter painter(this);
    const QRect place = contentsRect();
    const QString shown = fontMetrics().elidedText(text(), Qt::ElideMiddle, place.width());
    style()->drawItemText(&painter, place, static_cast<int>(alignment()), palette(), isEnabled(),
        shown, foregroundRole());
}

} // namespace corvane
