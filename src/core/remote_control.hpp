// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "canvas/vertical_canvas.hpp"

#include <obs.h>

#include <QTimer>

#include <string>
#include <vector>

namespace corvane {

// The vendor "corvane-vertical-canvas" of obs-websocket, whose requests and events are in
// docs/REMOTE.md. Without a recent obs-websocket it does nothing.
//
// Requests arrive on obs-websocket's threads, run on the UI thread and are waited for, but not for
// long: that thread may be waiting for obs-websocket. Changes are looked for several times a
// second. UI thread.
class RemoteControl {
public:
    // Only when all modules have been loaded.
    RemoteControl();
    ~RemoteControl();
    RemoteControl(const RemoteControl &) = delete;
    RemoteControl &operator=(const RemoteControl &) = delete;

private:
    struct Seen {
        bool active = false;
        std::string phase = "stopped";
        std::string reason;
        long long attempts = 0;
        std::string active_scene;
        std::vector<SceneInfo> scenes;
    };

    static Seen look();
    void emit_changes();
    void emit_event(const char *name, obs_data_t *data) const;

    void *const vendor_; // null without obs-websocket
    Seen seen_;
    QTimer timer_;
};

} // namespace corvane
