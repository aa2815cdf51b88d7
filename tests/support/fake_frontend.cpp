// SPDX-License-Identifier: GPL-2.0-or-later
#include "support/fake_frontend.hpp"

#include <util/bmem.h>

#include <QDockWidget>
#include <QMainWindow>

using corvane::test::FakeFrontend;

char *obs_frontend_get_current_profile_path() {
    const std::string &dir = FakeFrontend::get().profile_dir;
    return dir.empty() ? nullptr : bstrdup(dir.c_str());
}

void obs_frontend_add_event_callback(obs_frontend_event_cb callback, void *data) {
    FakeFrontend::get().callbacks.emplace_back(callback, data);
}

void obs_frontend_remove_event_callback(obs_frontend_event_cb callback, void *data) {
    std::erase(FakeFrontend::get().callbacks, std::pair(callback, data));
}

void *obs_frontend_get_main_window() {
    return FakeFrontend::get().main_window;
}

bool obs_frontend_add_dock_by_id(const char *id, const char *title, void *widget) {
    QMainWindow *window = FakeFrontend::get().main_window;
    if (!window) {
        return false;
    }
    auto *dock = new QDockWidget(QString::fromUtf8(title), window);
    dock->setObjectName(QString::fromUtf8(id));
    dock->setWidget(static_cast<QWidget *>(widget));
    window->addDockWidget(Qt::RightDockWidgetArea, dock);
    dock->setVisible(false);
    return true;
}

void obs_frontend_add_tools_menu_item(const char *name, obs_frontend_cb callback, void *data) {
    FakeFrontend::get().tools_menu.emplace_back(name, [callback, data] { callback(data); });
}

void *obs_frontend_add_tools_menu_qaction(const char *name) {
    auto &action = FakeFrontend::get().tools_action;
    action = std::make_unique<QAction>(QString::fromUtf8(name));
    return action.get();
}

obs_source_t *obs_frontend_get_current_scene() {
    const auto &scenes = FakeFrontend::get().scenes;
    return scenes.empty() ? nullptr : obs_source_get_ref(scenes.front());
}

void obs_frontend_get_scenes(obs_frontend_source_list *sources) {
    for (obs_source_t *scene : FakeFrontend::get().scenes) {
        *da_push_back_new(sources->sources) = obs_source_get_ref(scene);
    }
}
