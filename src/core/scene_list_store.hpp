// SPDX-License-Identifier: GPL-2.0-or-later
// The vertical scene list in the global config file: one list for all profiles, saved from
// whichever runtime is alive and restored into the next. Without an open file or a canvas
// nothing happens. The caller holds runtime_mutex except where said otherwise.
#pragma once

namespace corvane {

// Writes the list and saves the file; a stored list that has not been restored yet stays as it is.
void save_scene_list();

// The same, taking runtime_mutex itself.
void save_scene_list_locked();

// Replaces the canvas's default scene by the saved list; with nothing saved it stays.
void restore_scene_list();

// Assigns each scene's source once more, for those that the host had not yet made.
void reapply_scene_sources();

} // namespace corvane
