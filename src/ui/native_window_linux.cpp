// SPDX-License-Identifier: GPL-2.0-or-later
// X11: the window id and the host's connection. Wayland: the window's surface.
#include "ui/native_window.hpp"

#include <obs-nix-platform.h>

#include <QGuiApplication>
#include <QWidget>
#include <QWindow>
#include <qpa/qplatformnativeinterface.h>

namespace corvane {

bool native_window_of(const QWidget &widget, gs_window &window) {
    QWindow *handle = widget.windowHandle();
    if (!handle) {
        return false;
    }
    if (obs_get_nix_platform() == OBS_NIX_PLATFORM_WAYLAND) {
        QPlatformNativeInterface *native = QGuiApplication::platformNativeInterface();
        window.display = native->nativeResourceForWindow("surface", handle);
        return window.display != nullptr;
    }
    window.id = static_cast<uint32_t>(handle->winId());
    window.display = obs_get_nix_platform_display();
    return window.id != 0;
}

} // namespace corvane
