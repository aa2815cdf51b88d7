// SPDX-License-Identifier: GPL-2.0-or-later
// The module's part of the host's main window: the Tools menu item and the dock with its placement.
#include "base/log.hpp"
#include "core/module_state.hpp"
#include "core/plugin_settings.hpp"
#include "core/user_interface.hpp"
#include "ui/options_menu.hpp"
#include "ui/settings_dialog.hpp"
#include "ui/vertical_dock.hpp"

#include <obs-frontend-api.h>

#include <QAction>
#include <QByteArray>
#include <QDockWidget>
#include <QMainWindow>
#include <QPointer>
#include <QScreen>
#include <QWindow>

#include <algorithm>

namespace corvane {

namespace {

// Also the object name of the dock widget in which the host wraps the dock.
constexpr const char *kDockId = "corvane-vertical-canvas";

QMainWindow *main_window() {
    return static_cast<QMainWindow *>(obs_frontend_get_main_window());
}

QDockWidget *host_dock_widget(const QMainWindow &window) {
    return window.findChild<QDockWidget *>(QString::fromUtf8(kDockId));
}

const char *yes_no(bool value) {
    return value ? "yes" : "no";
}

// False without a valid one.
bool restore_geometry(QDockWidget &dock) {
    const char *geometry = settings::dockgeometry.get();
    return geometry && *geometry && dock.restoreGeometry(QByteArray::fromBase64(geometry));
}

// Without this the window manager would place the dock when it begins to float.
void keep_place(QDockWidget &dock) {
    dock.setAttribute(Qt::WA_Moved);
    if (QWindow *window = dock.windowHandle()) {
        window->setFramePosition(dock.pos());
    }
}

// For a dock without a saved place: beside the main window where the screen has room, else centred
// on it.
void place_first(const QMainWindow &window, QDockWidget &dock) {
    constexpr int kMargin = 8;
    constexpr QSize kSize(360, 760); // with a preview of about 270x480
    const QRect screen = window.screen()->availableGeometry();
    const QRect main = window.frameGeometry() & screen;
    QRect place(QPoint(), kSize.boundedTo(screen.size() * 9 / 10));
    if (screen.right() - main.right() >= place.width() + 2 * kMargin) {
        place.moveTopLeft(main.topRight() + QPoint(kMargin, 0));
    } else if (main.left() - screen.left() >= place.width() + 2 * kMargin) {
        place.moveTopRight(main.topLeft() - QPoint(kMargin, 0));
    } else {
        place.moveCenter(main.center());
    }
    place.moveTop(std::clamp(place.top(), screen.top(), screen.bottom() - place.height() + 1));
    dock.setGeometry(place);
}

// Any positive area goes to Qt unchecked.
void dock_into(QMainWindow &window, QDockWidget &dock, int area) {
    const auto target = area > 0 ? static_cast<Qt::DockWidgetArea>(area) : Qt::RightDockWidgetArea;
    window.removeDockWidget(&dock);
    window.addDockWidget(target, &dock);
    dock.setFloating(false);
}

// Restores the dock's saved placement. Without values written by the user it floats and is visible.
void restore_dock_placement(QMainWindow &window, QDockWidget &dock) {
    const bool placed = restore_geometry(dock);
    if (settings::dockfloating.written() && !settings::dockfloating.get()) {
        dock_into(window, dock, settings::dockarea.get());
    } else {
        dock.setFloating(true);
        if (!placed) {
            place_first(window, dock);
        }
        keep_place(dock);
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

class MainWindowUi : public UserInterface {
public:
    void add_tools_menu_item() override {
        obs_frontend_add_tools_menu_item(
            "Corvane Vertical Streaming Settings", [](void *) { open_settings_dialog(); }, nullptr);
        QMainWindow *window = main_window();
        if (!window) {
            return; // nobody would own the menu
        }
        auto *options =
            static_cast<QAction *>(obs_frontend_add_tools_menu_qaction("Corvane Vertical Options"));
        if (options) {
            options->setMenu(new OptionsMenu(window));
        }
    }

    void register_dock() override {
        QMainWindow *window = main_window();
        if (!window) {
            return;
        }
        if (dock) {
            attach_dock();
            return;
        }
        dock = new VerticalDock(module_state.canvas, module_state.output, window);
        obs_frontend_add_dock_by_id(kDockId, dock->windowTitle().toUtf8().constData(), dock);
        QDockWidget *host_dock = host_dock_widget(*window);
        if (host_dock && module_state.global_config) {
            restore_dock_placement(*window, *host_dock);
        }
        if (host_dock) {
            QObject::connect(
                host_dock, &QDockWidget::visibilityChanged, dock, &VerticalDock::setPreviewShown);
        }
        log_info("Vertical Canvas dock registered");
        attach_dock();
    }

    void attach_dock() override {
        if (dock) {
            dock->setRuntime(module_state.canvas, module_state.output);
            dock->refreshSceneList();
        }
    }

    void detach_dock() override {
        if (dock) {
            dock->setRuntime(nullptr, nullptr);
        }
    }

    void close_settings() override {
        const QMainWindow *window = main_window();
        if (auto *dialog = window ? window->findChild<SettingsDialog *>() : nullptr) {
            dialog->reject();
        }
    }

    void record_dock_state() override {
        QMainWindow *window = main_window();
        QDockWidget *host_dock = window ? host_dock_widget(*window) : nullptr;
        if (host_dock && module_state.global_config) {
            record_dock_placement(*window, *host_dock);
        }
    }

private:
    QPointer<VerticalDock> dock; // owned by the main window
};

} // namespace

std::unique_ptr<UserInterface> make_user_interface() {
    return std::make_unique<MainWindowUi>();
}

} // namespace corvane
