// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <graphics/graphics.h>

class QWidget;

namespace corvane {

// Stores the handle of the widget's native window in `window`; false while there is none. Each
// platform has its own implementation file.
bool native_window_of(const QWidget &widget, gs_window &window);

} // namespace corvane
