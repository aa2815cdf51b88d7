// SPDX-License-Identifier: GPL-2.0-or-later
#include "widgets.hpp"

#include <QAbstractButton>
#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QDockWidget>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMainWindow>
#include <QMessageBox>
#include <QSpinBox>
#include <QTest>

#include <algorithm>
#include <functional>

namespace livehost {

namespace {

template <typename Widget>
Widget *first(const QList<Widget *> &widgets, const std::function<bool(const Widget &)> &meant) {
    const auto found = std::ranges::find_if(
        widgets, [&](const Widget *widget) { return widget->isVisible() && meant(*widget); });
    return found == widgets.end() ? nullptr : *found;
}

} // namespace

QWidget *find_widget(const QString &name) {
    return first<QWidget>(QApplication::allWidgets(),
        [&](const QWidget &widget) { return widget.objectName() == name; });
}

QWidget *find_dialog_button(const QString &text) {
    const QWidget *modal = QApplication::activeModalWidget();
    return modal ? first<QAbstractButton>(modal->findChildren<QAbstractButton *>(),
                       [&](const QAbstractButton &button) {
                           return button.text().remove(u'&') == text;
                       })
                 : nullptr;
}

QWidget *find_dialog_field() {
    const QWidget *modal = QApplication::activeModalWidget();
    return modal ? modal->findChild<QLineEdit *>() : nullptr;
}

static QJsonArray list_items(const QListWidget &list) {
    QJsonArray items;
    for (int row = 0; row < list.count(); ++row) {
        const QListWidgetItem *item = list.item(row);
        items.append(QJsonObject{{"text", item->text()}, {"bold", item->font().bold()},
            {"current", item == list.currentItem()}});
    }
    return items;
}

QJsonObject describe(QWidget *widget) {
    const QPoint origin = widget->mapToGlobal(QPoint(0, 0));
    QJsonObject seen{{"class", widget->metaObject()->className()}, {"enabled", widget->isEnabled()},
        {"visible", widget->isVisible()}, {"tip", widget->toolTip()},
        {"style", widget->styleSheet()}, {"accessible", widget->accessibleName()},
        {"title", widget->windowTitle()}, {"x", origin.x()}, {"y", origin.y()},
        {"width", widget->width()}, {"height", widget->height()}};
    if (const auto *label = qobject_cast<QLabel *>(widget)) {
        seen["text"] = label->text();
    } else if (const auto *button = qobject_cast<QAbstractButton *>(widget)) {
        seen["text"] = button->text();
        seen["checked"] = button->isChecked();
    } else if (const auto *edit = qobject_cast<QLineEdit *>(widget)) {
        seen["text"] = edit->displayText();
    } else if (const auto *spin = qobject_cast<QSpinBox *>(widget)) {
        seen["text"] = spin->text();
    } else if (const auto *combo = qobject_cast<QComboBox *>(widget)) {
        seen["text"] = combo->currentText();
    } else if (const auto *list = qobject_cast<QListWidget *>(widget)) {
        seen["items"] = list_items(*list);
    } else if (const auto *dock = qobject_cast<QDockWidget *>(widget)) {
        seen["floating"] = dock->isFloating();
        if (auto *window = qobject_cast<QMainWindow *>(dock->parentWidget())) {
            seen["area"] = window->dockWidgetArea(const_cast<QDockWidget *>(dock));
        }
    }
    return seen;
}

QJsonArray describe_windows() {
    QJsonArray windows;
    for (QWidget *window : QApplication::topLevelWidgets()) {
        if (!window->isVisible()) {
            continue;
        }
        QJsonObject seen{{"class", window->metaObject()->className()},
            {"name", window->objectName()}, {"title", window->windowTitle()}};
        if (const auto *box = qobject_cast<QMessageBox *>(window)) {
            seen["text"] = box->text();
        }
        QJsonArray buttons;
        for (const QDialogButtonBox *box : window->findChildren<QDialogButtonBox *>()) {
            for (const QAbstractButton *button : box->buttons()) {
                buttons.append(button->text().remove(u'&'));
            }
        }
        seen["buttons"] = buttons;
        windows.append(seen);
    }
    return windows;
}

void click(QWidget *widget, int row, bool twice) {
    QWidget *target = widget;
    QPoint point = widget->rect().center();
    if (auto *list = qobject_cast<QListWidget *>(widget); list && row >= 0) {
        list->scrollToItem(list->item(row));
        target = list->viewport();
        point = list->visualItemRect(list->item(row)).center();
    }
    QTest::mouseClick(target, Qt::LeftButton, Qt::NoModifier, point);
    if (twice) {
        QTest::mouseDClick(target, Qt::LeftButton, Qt::NoModifier, point);
    }
}

void type_text(QWidget *widget, const QString &text, bool replace) {
    widget->setFocus();
    if (replace) {
        QTest::keyClick(widget, Qt::Key_A, Qt::ControlModifier);
        QTest::keyClick(widget, Qt::Key_Delete);
    }
    // Beyond Latin letters a person's input comes from an input method, whole.
    for (const uint character : text.toUcs4()) {
        if (character < 0x80) {
            QTest::keyClick(widget, static_cast<char>(character));
        } else {
            QInputMethodEvent event;
            event.setCommitString(
                QString::fromUcs4(reinterpret_cast<const char32_t *>(&character), 1));
            QApplication::sendEvent(widget, &event);
        }
    }
}

void press_key(QWidget *widget, int key) {
    QTest::keyClick(widget, static_cast<Qt::Key>(key));
}

bool trigger_action(const QString &text) {
    for (QWidget *window : QApplication::topLevelWidgets()) {
        if (!qobject_cast<QMainWindow *>(window)) {
            continue;
        }
        for (QAction *action : window->findChildren<QAction *>()) {
            if (action->text().remove(u'&') == text) {
                action->trigger();
                return true;
            }
        }
    }
    return false;
}

void place_dock(QWidget *widget, int area) {
    auto *dock = qobject_cast<QDockWidget *>(widget);
    auto *window = dock ? qobject_cast<QMainWindow *>(dock->parentWidget()) : nullptr;
    if (!window) {
        return;
    }
    if (area > 0) {
        window->addDockWidget(static_cast<Qt::DockWidgetArea>(area), dock);
    } else if (area == kBelowAnother) {
        auto *other = window->findChild<QDockWidget *>(QStringLiteral("controlsDock"));
        window->tabifyDockWidget(dock, other);
        other->raise();
    }
    dock->setFloating(area == kFloating);
    if (dock->isFloating()) {
        dock->setGeometry(500, 150, 300, 640);
    }
}

} // namespace livehost
