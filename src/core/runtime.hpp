// SPDX-License-Identifier: GPL-2.0-or-later
// The runtime: the canvas and the output that are built from one profile's settings. It is
// destroyed and built again when the profile changes.
#pragma once

namespace corvane {

// Builds the runtime from the open profile config, or from the defaults when none is open.
// The caller holds runtime_mutex. On false no runtime exists, except when one was alive
// already: that one is kept.
bool create_runtime_from_current_profile();

// Stops the output and gives canvas and output back; harmless without a runtime. The caller
// holds runtime_mutex.
void destroy_runtime(bool save_scenes);

// Hands the profile's stream settings to the live output, if any. The caller holds
// runtime_mutex.
void push_output_config();

// What follows a change of the settings: the live output gets them and the profile's file is
// written. Takes runtime_mutex.
void save_profile_config();

} // namespace corvane
