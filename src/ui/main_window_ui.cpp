// SPDX-License-Identifier: GPL-2.0-or-later
// The module's part of the host's main window: the Tools menu item and the dock.
#include "base/log.hpp"
#include "core/module_state.hpp"
#include "core/user_interface.hpp"
#include "ui/dock_placement.hpp"
#include "ui/settings_dialog.hpp"
#include "ui/vertical_dock.hpp"

#include <obs-frontend-api.h>

#include <QDockWidget>
#include <QMainWindow>
#include <QPointer>

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

class MainWindowUi : public UserInterface {
public:
    void add_tools_menu_item() override {
        obs_frontend_add_tools_menu_item(
            "Corvane Vertical Streaming Settings", [](void *) { open_settings_dialog(); }, nullptr);
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
        obs_frontend_add_dock_by_id(kDockId, "Vertical Canvas", dock);
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
        // What an open settings dialog shows belongs to the profile that goes.
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
    // The main window owns the widget.
    QPointer<VerticalDock> dock;
};

} // namespace

std::unique_ptr<UserInterface> make_user_interface() {
    return std::make_unique<MainWindowUi>();
}

} // namespace corvane
