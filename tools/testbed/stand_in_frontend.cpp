// SPDX-License-Identifier: GPL-2.0-or-later
#include "testbed/stand_in_frontend.hpp"

#include <util/bmem.h>

namespace corvane::test {

StandInFrontend &StandInFrontend::get() {
    static StandInFrontend frontend;
    return frontend;
}

void StandInFrontend::send(obs_frontend_event event) const {
    const std::vector<Callback> targets = callbacks;
    for (const auto &[callback, data] : targets) {
        callback(event, data);
    }
}

} // namespace corvane::test

using corvane::test::StandInFrontend;

char *obs_frontend_get_current_profile_path() {
    const std::string &dir = StandInFrontend::get().profile_dir;
    return dir.empty() ? nullptr : bstrdup(dir.c_str());
}

void obs_frontend_add_event_callback(obs_frontend_event_cb callback, void *data) {
    StandInFrontend::get().callbacks.emplace_back(callback, data);
}

void obs_frontend_remove_event_callback(obs_frontend_event_cb callback, void *data) {
    std::erase(StandInFrontend::get().callbacks, StandInFrontend::Callback{callback, data});
}
