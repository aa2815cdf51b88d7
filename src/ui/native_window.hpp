// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <graphics/graphics.h>

class QWidget;

namespace corvane {

// The handle under which the windowing system knows the widget's own window. False while it has
// none. One implementation for each platform, in a file of its own.
bool native_window_of(const QWidget &widget, gs_window &window);

} // namespace corvane
