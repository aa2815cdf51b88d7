// SPDX-License-Identifier: GPL-2.0-or-later
// Finding and operating the host's widgets. UI thread.
#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QString>

class QWidget;

namespace livehost {

// The visible widget of that object name, or null.
QWidget *find_widget(const QString &name);

// The button with that text in the open dialog, or null.
QWidget *find_dialog_button(const QString &text);

// The text field of the open dialog, or null.
QWidget *find_dialog_field();

// What a person sees of a widget.
QJsonObject describe(QWidget *widget);

// Every visible window: class, title, message text, buttons.
QJsonArray describe_windows();

// Mouse and keyboard as a person uses them. A row is that of a list.
void click(QWidget *widget, int row, bool twice);
void type_text(QWidget *widget, const QString &text, bool replace);
void press_key(QWidget *widget, int key);

// Chooses the action of that text in any menu of the main window; false when there is none.
bool trigger_action(const QString &text);

// Docks the dock widget at an area of the main window's, makes it float somewhere, or puts another
// one's tab before it.
inline constexpr int kFloating = 0;
inline constexpr int kBelowAnother = -1;
void place_dock(QWidget *dock, int area);

} // namespace livehost
