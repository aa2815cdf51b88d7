// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

namespace corvane {

// The ids of the vertical stream's output types: the standard one, and the one that reconnects.
inline constexpr const char *kMuxOutputId = "cv_vertical_mux_rtmp";
inline constexpr const char *kResilientOutputId = "cv_vertical_mux_resilient";

// Registers both with libobs; called once, when the module loads.
void register_mux_output_types();

// Waits up to 2 s for abandoned connections; called once, when the module unloads.
void finish_mux_outputs();

} // namespace corvane
