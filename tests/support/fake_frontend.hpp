// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <obs-frontend-api.h>
#include <obs.hpp>

#include <QAction>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

class QMainWindow;

namespace corvane::test {

// Takes the place of the host's front end: the program defines the obs_frontend_* functions that
// the module calls and exports them, so that the module's references bind to these.
struct FakeFrontend {
    static FakeFrontend &get() {
        static FakeFrontend frontend;
        return frontend;
    }

    // Calls every callback with the event, on this thread.
    void send(obs_frontend_event event) const {
        for (const auto &[callback, data] : std::vector(callbacks)) {
            callback(event, data);
        }
    }

    // The current profile's folder; empty makes the host report none.
    std::string profile_dir;
    std::vector<std::pair<obs_frontend_event_cb, void *>> callbacks;
    // Null for a host without a window, as before the start of a test and after it. Docks are
    // wrapped and put into it, hidden and on the right, as the host does.
    QMainWindow *main_window = nullptr;
    // What was added to the Tools menu: text and action.
    std::vector<std::pair<std::string, std::function<void()>>> tools_menu;
    // An action without callback that was added there; it may have a menu. Null in between.
    std::unique_ptr<QAction> tools_action;
    // What the host lists as its scenes, in its order; the first is the program's.
    std::vector<OBSSource> scenes;
};

} // namespace corvane::test
