// SPDX-License-Identifier: GPL-2.0-or-later
// The module's two config files: the global one and the current profile's. Both stay open in
// module_state; a file that cannot be opened is logged and leaves its handle null. Files that are
// no settings, damaged files and full disks, which the host's config library does not handle, are
// handled here.
#pragma once

#include <string>

namespace corvane {

// (Re)open a file and register its defaults. Closes the open one without saving.
void load_global_config();
void load_profile_config();

// Save a file if it is open; a failure is only logged. After a change of the settings call
// save_profile_config() instead.
void save_global_file();
void save_profile_file();

void close_config_files();

// Whether the disk has room for a new copy of the file. The host's libraries do not notice when the
// last bytes of a new file are refused, and would replace the old one by a truncated one.
bool has_room_for(const std::string &path);

// The full path of the profile's file, empty without a profile folder.
std::string profile_config_path();

// Creates the folder of the path with all its parents. Errors are ignored: opening fails then.
void ensure_parent_dir(const std::string &path);

} // namespace corvane
