// SPDX-License-Identifier: GPL-2.0-or-later
// The settings as remote control reads and writes them. UI thread, with runtime_mutex held.
#pragma once

#include <obs.h>

namespace corvane {

// All but the stream key; the URL without its secrets.
void write_settings(obs_data_t *data);

// Stores the fields that are there, as the settings dialog and the options menu would, or none:
// throws RequestError for an unknown field, a wrong type or a value out of range.
void store_settings(obs_data_t *request);

} // namespace corvane
