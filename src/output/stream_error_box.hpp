// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <callback/calldata.h>

namespace corvane {

// Handler of an output's "stop" signal; `data` is the obs_output_t. Stops with an output or
// encoder error show the output's last error in a message box, every other code is left alone.
// Runs on whichever thread libobs signals on and never waits for the box.
void on_output_stop(void *data, calldata_t *calldata);

} // namespace corvane
