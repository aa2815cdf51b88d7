// SPDX-License-Identifier: GPL-2.0-or-later
// The runtime: the canvas and the output built from one profile's settings; rebuilt when the
// profile changes.
#pragma once

namespace corvane {

// Builds the runtime from the open profile config, or from the defaults when none is open.
// The caller holds runtime_mutex. On false there is no runtime, unless one was already alive, which
// is kept.
bool create_runtime_from_current_profile();

// Stops the output and frees both; does nothing without a runtime. The caller holds runtime_mutex.
void destroy_runtime(bool save_scenes);

// Creates and shows the runtime after the old one has been destroyed. The caller holds
// runtime_mutex.
bool create_and_show_runtime();

// Fills the canvas with the saved scenes and shows the runtime in the dock, which the first call
// creates. The caller holds runtime_mutex.
void show_runtime();

// Hands the profile's stream settings to the output, if any. The caller holds runtime_mutex.
void push_output_config();

// Hands changed settings to the output and writes the profile's file. Takes runtime_mutex.
void save_profile_config();

} // namespace corvane
