// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "main_stream.hpp"
#include "testbed/box_catcher.hpp"

#include <obs.hpp>

#include <QMainWindow>
#include <QString>
#include <QStringList>
#include <QTimer>

#include <optional>
#include <string>
#include <string_view>

namespace corvane::lab {

// The host as the module finds it: a scene that moves, a main stream, a window for the dock, the
// front end's events. UI thread.
class Stage {
public:
    struct Options {
        QString profile;     // the first profile's folder
        QString picture;     // shown and moved about in the scene "Stage"
        QString main_server; // of the main stream
    };

    // Loads the module and starts the main stream; throws when either fails.
    explicit Stage(const Options &options);
    // Unloads the module.
    ~Stage();
    Stage(const Stage &) = delete;
    Stage &operator=(const Stage &) = delete;

    // One line of what to do:
    //   start | stop           the main stream's beginning and end, as far as the front end tells
    //   profile FOLDER         the user switches to the profile
    //   video WIDTH HEIGHT FPS the user changes the host's video settings
    // Answers with {"done": line} once it has returned.
    void perform(const QString &line);

    // Sees to it that no "stop" of an output is missed, however soon it comes.
    static void on_log_line(std::string_view line);

private:
    void load_module();
    void build_scene(const QString &picture);
    void move_picture();
    void reset_video(const QStringList &size);
    void report_changes();

    const std::string main_server_;
    QMainWindow window_;
    OBSSceneAutoRelease scene_;
    OBSSceneItem item_;
    std::optional<MainStream> main_stream_;
    test::BoxCatcher boxes_;
    void *library_ = nullptr;
    QString status_; // of the dock
    size_t boxes_told_ = 0;
    QTimer frame_;
};

} // namespace corvane::lab
