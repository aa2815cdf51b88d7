// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <obs-frontend-api.h>

namespace corvane {

// Makes the stream follow the main one and the runtime the profile, and restores the saved scenes
// once the host has loaded its own. UI thread; takes runtime_mutex. Drops events raised while
// another is being handled.
void on_frontend_event(obs_frontend_event event, void *);

} // namespace corvane
