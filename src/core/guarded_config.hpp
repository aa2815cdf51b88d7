// SPDX-License-Identifier: GPL-2.0-or-later
// The host's config library, kept from what it does not guard against: things in a file's place,
// files that are no settings, and full disks.
#pragma once

#include <util/config-file.h>

#include <string>

namespace corvane {

// Opens the file, and makes it where there is none. A damaged file is moved aside, with one line of
// warning. What else must not be opened is left as it is, also with one, and the result is false.
bool open_guarded_config(config_t *&config, const std::string &path);

// Saves an open file to its path. On false the file on the disk is as it was.
bool save_guarded_config(config_t *config, const std::string &path);

} // namespace corvane
