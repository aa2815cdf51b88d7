// SPDX-License-Identifier: GPL-2.0-or-later
// The vertical scene list in the global config file: one list for all profiles, saved from the
// current runtime and restored into the next. Does nothing without an open file or a canvas. The
// caller holds runtime_mutex unless noted.
#pragma once

namespace corvane {

// Writes the list and saves the file. Keeps a stored list that has not been restored yet.
void save_scene_list();

// The same after a change of the list, which the hotkeys follow. Takes runtime_mutex itself.
void save_scene_list_locked();

// Gives each scene of the canvas its hotkey.
void follow_scenes_with_hotkeys();

// Replaces the canvas's default scene by the saved list, if there is one.
void restore_scene_list();

// Assigns each scene's source again, for sources that the host had not created yet.
void reapply_scene_sources();

} // namespace corvane
