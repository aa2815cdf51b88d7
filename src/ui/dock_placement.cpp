// SPDX-License-Identifier: GPL-2.0-or-later
#include "ui/dock_placement.hpp"

#include "base/log.hpp"
#include "core/plugin_settings.hpp"

#include <QByteArray>
#include <QDockWidget>
#include <QMainWindow>
#include <QWindow>

namespace corvane {

namespace {

const char *yes_no(bool value) {
    return value ? "yes" : "no";
}

// Whether there was one to restore.
bool restore_geometry(QDockWidget &dock) {
    const char *geometry = settings::dockgeometry.get();
    return geometry && *geometry && dock.restoreGeometry(QByteArray::fromBase64(geometry));
}

// A dock that begins to float leaves its place to the window manager; the restored one is meant.
void keep_place(QDockWidget &dock) {
    dock.setAttribute(Qt::WA_Moved);
    if (QWindow *window = dock.windowHandle()) {
        window->setFramePosition(dock.pos());
    }
}

// Any positive number goes to the toolkit as it is.
void dock_into(QMainWindow &window, QDockWidget &dock, int area) {
    const auto target = area > 0 ? static_cast<Qt::DockWidgetArea>(area) : Qt::RightDockWidgetArea;
    window.removeDockWidget(&dock);
    window.addDockWidget(target, &dock);
    dock.setFloating(false);
}

} // namespace

void restore_dock_placement(QMainWindow &window, QDockWidget &dock) {
    const bool placed = restore_geometry(dock);
    if (settings::dockfloating.written() && !settings::dockfloating.get()) {
        dock_into(window, dock, settings::dockarea.get());
    } else {
        dock.setFloating(true);
        if (placed) {
            keep_place(dock);
        }
    }
    dock.setVisible(!settings::dockvisible.written() || settings::dockvisible.get());
}

void record_dock_placement(QMainWindow &window, QDockWidget &dock) {
    settings::dockvisible.set(dock.isVisible());
    settings::dockfloating.set(dock.isFloating());
    settings::dockarea.set(static_cast<int32_t>(window.dockWidgetArea(&dock)));
    settings::dockgeometry.set(dock.saveGeometry().toBase64().constData());
    log_info("Dock state saved (floating=%s, visible=%s)", yes_no(dock.isFloating()),
        yes_no(dock.isVisible()));
}

} // namespace corvane
