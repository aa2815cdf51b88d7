// SPDX-License-Identifier: GPL-2.0-or-later
#include "ui/native_window.hpp"

#include <QWidget>

namespace corvane {

bool native_window_of(const QWidget &widget, gs_window &window) {
    window.view = (__bridge id)reinterpret_cast<void *>(widget.internalWinId());
    return window.view != nil;
}

} // namespace corvane
