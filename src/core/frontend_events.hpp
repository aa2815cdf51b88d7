// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <obs-frontend-api.h>

namespace corvane {

// The module's answer to the host's life: the stream follows the main one, the runtime the
// profile, and the saved scenes are restored once the host has loaded its own. Runs on the UI
// thread with runtime_mutex held. An event raised while another is being handled is dropped.
void on_frontend_event(obs_frontend_event event, void *);

} // namespace corvane
