// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <QLabel>

namespace corvane {

// A line of plain text, painted elided in the middle where it does not fit; text() stays whole. Its
// tool tip has the host's look.
class ElidedLabel : public QLabel {
    Q_OBJECT

public:
    using QLabel::QLabel;

    // As narrow as the layout wants.
    QSize minimumSizeHint() const override;

protected:
    bool event(QEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
};

} // namespace corvane
