// SPDX-License-Identifier: GPL-2.0-or-later
// What the user does to widgets with mouse and keyboard, modal dialogs included, and sees of them.
#pragma once

#include "support/wait.hpp"

#include <QApplication>
#include <QElapsedTimer>
#include <QInputDialog>
#include <QInputMethodEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>
#include <QTest>
#include <QTimer>

#include <gtest/gtest.h>

#include <functional>
#include <string>

namespace corvane::test {

template <typename Widget>
Widget &child(const QWidget &parent, const char *name = nullptr) {
    return *parent.findChild<Widget *>(QString::fromUtf8(name));
}

inline void click_row(QListWidget &list, int row, bool twice = false) {
    list.scrollToItem(list.item(row));
    const QPoint point = list.visualItemRect(list.item(row)).center();
    QTest::mouseClick(list.viewport(), Qt::LeftButton, {}, point);
    if (twice) {
        QTest::mouseDClick(list.viewport(), Qt::LeftButton, {}, point);
    }
}

// Replaces the field's text. Text beyond ASCII comes from an input method, whole.
inline void type_over(QLineEdit &edit, const QString &text) {
    QTest::keyClick(&edit, Qt::Key_A, Qt::ControlModifier);
    QInputMethodEvent event;
    event.setCommitString(text);
    QApplication::sendEvent(&edit, &event);
}

// By the keyboard: without a window manager a fresh dialog can have a wrong size, for a moment or
// for good, in which its buttons have no height for the mouse to hit.
inline void press(const QWidget &dialog, const QString &button_text) {
    for (QPushButton *button : dialog.findChildren<QPushButton *>()) {
        if (button->isVisible() && button->text().remove(u'&') == button_text) {
            return QTest::keyClick(button, Qt::Key_Space);
        }
    }
    ADD_FAILURE() << "no button " << button_text.toStdString();
}

// "title|text", with the content of its field or the row that is chosen in its list.
inline QString describe(const QWidget &dialog) {
    QString text;
    if (const auto *box = qobject_cast<const QMessageBox *>(&dialog)) {
        const bool markup = box->textFormat() != Qt::PlainText && Qt::mightBeRichText(box->text());
        text = (markup ? u"taken for markup: " : u"") + box->text();
    } else if (const auto *input = qobject_cast<const QInputDialog *>(&dialog)) {
        text = input->labelText() + input->textValue();
    } else if (const auto *list = dialog.findChild<QListWidget *>()) {
        text = list->selectedItems().isEmpty() ? QStringLiteral("-")
                                               : list->selectedItems().front()->text();
    }
    return dialog.windowTitle() + u'|' + text;
}

// Runs the action and answers the modal dialogs that it brings up, in turn; returns what each
// showed, '/' between. A dialog below another one comes up again when that is gone. Each of the '|'
// separated answers is "WHAT=>BUTTON": what is typed into the dialog's field or the row that is
// chosen in its list, if any, and the button pressed, if any; without one a row is clicked twice.
// The first one's answer can be preceded by something else.
inline std::string answering(const std::string &answers, const std::function<void()> &action,
    const std::function<void(QWidget &)> &first = {}) {
    QStringList left = QString::fromStdString(answers).split(u'|');
    QStringList shown;
    QPointer<QWidget> last;
    QElapsedTimer since;
    const auto look = [&] {
        const QPointer<QWidget> dialog = QApplication::activeModalWidget();
        if (dialog && dialog == last && since.durationElapsed() > kPatience) {
            ADD_FAILURE() << "nobody closed " << describe(*dialog).toStdString();
            dialog->close();
        }
        if (!dialog || dialog == last || !dialog->isVisible()) {
            return;
        }
        last = dialog;
        since.start();
        shown += describe(*dialog);
        const QStringList answer = (left.isEmpty() ? QString() : left.takeFirst()).split("=>");
        // Queued, so that the timer goes on while what this opens runs a loop of its own.
        const auto act = [&, dialog, what = answer.first(), button = answer.value(1)] {
            if (first && shown.size() == 1) {
                first(*dialog);
            }
            if (auto *list = dialog->findChild<QListWidget *>(); list && !what.isEmpty()) {
                click_row(*list, what.toInt(), button.isEmpty());
            } else if (!what.isEmpty()) {
                type_over(child<QLineEdit>(*dialog), what);
            }
            if (!button.isEmpty()) {
                press(*dialog, button);
            }
        };
        QMetaObject::invokeMethod(dialog, act, Qt::QueuedConnection);
    };
    QTimer watch;
    QObject::connect(&watch, &QTimer::timeout, look);
    watch.start(1);
    action();
    return shown.join(u'/').toStdString();
}

// All that the dock tells, '|' between: header, scenes (* for bold, @ for the current one), the
// first three letters of the buttons that can be pressed, status. It may be inside another widget.
inline std::string seen(const QWidget &dock) {
    QString all = child<QLabel>(dock, "sceneLabel").text() + u'|';
    const auto &list = child<QListWidget>(dock, "sceneList");
    for (int row = 0; row < list.count(); ++row) {
        const QListWidgetItem *item = list.item(row);
        all += item->text() + (item->font().bold() ? u"*" : u"") +
               (item == list.currentItem() ? u"@|" : u"|");
    }
    for (const QPushButton *button : dock.findChildren<QPushButton *>()) {
        all += button->isEnabled() ? button->text().first(3) : QString();
    }
    return (all + u'|' + child<QLabel>(dock, "statusLabel").text()).toStdString();
}

} // namespace corvane::test
