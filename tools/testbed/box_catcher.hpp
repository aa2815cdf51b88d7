// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <QApplication>
#include <QMessageBox>
#include <QTimer>

#include <vector>

namespace corvane::test {

// What a person would have seen.
struct Box {
    QString title;
    QString text;
    QMessageBox::Icon icon;
    QMessageBox::StandardButtons buttons;
    bool has_parent;
    bool operator==(const Box &) const = default;
};

// Notes every message box that shows up on the screen and presses its default button. A timer,
// because a modal box runs an event loop of its own.
class BoxCatcher {
public:
    BoxCatcher() {
        QObject::connect(&timer_, &QTimer::timeout, [this] { catch_box(); });
        timer_.start(5);
    }

    std::vector<Box> boxes;

private:
    void catch_box() {
        auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
        if (box && box->isVisible()) {
            boxes.push_back({box->windowTitle(), box->text(), box->icon(), box->standardButtons(),
                box->parent() != nullptr});
            box->accept();
        }
    }

    QTimer timer_;
};

} // namespace corvane::test
