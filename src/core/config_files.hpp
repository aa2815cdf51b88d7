// SPDX-License-Identifier: GPL-2.0-or-later
// The module's two config files: the global one, and that of the current profile. Both stay
// open in module_state; a file that cannot be opened is logged and leaves its handle null.
#pragma once

#include <string>

namespace corvane {

// (Re)open a file and register its defaults; what was open before is closed unsaved.
void load_global_config();
void load_profile_config();

// Save a file if it is open; a failure is logged and not tried again. save_profile_file() is
// the file alone: the settings' way out is save_profile_config().
void save_global_file();
void save_profile_file();

void close_config_files();

// The full path of the profile's file, empty when there is no profile folder.
std::string profile_config_path();

// Makes the folder that holds the path, with all its parents. Failure shows when the file is
// opened.
void ensure_parent_dir(const std::string &path);

} // namespace corvane
