// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <obs-frontend-api.h>

#include <string>
#include <utility>
#include <vector>

namespace corvane::test {

// Takes the place of the host's front end: the program defines the obs_frontend_* functions that
// the module calls and exports them, so that the module's references bind to these.
class StandInFrontend {
public:
    static StandInFrontend &get();

    using Callback = std::pair<obs_frontend_event_cb, void *>;

    // Calls every callback with the event, on this thread.
    void send(obs_frontend_event event) const;

    // The current profile's folder; empty makes the host report none.
    std::string profile_dir;
    std::vector<Callback> callbacks;
};

} // namespace corvane::test
