// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

namespace corvane {

// Brings the module up, on the UI thread. On false the host refuses the module; the output
// type then stays registered and the config files stay open until unload_module().
bool load_module();

// Gives everything back, on the UI thread; safe after a failed load as well.
void unload_module();

} // namespace corvane
