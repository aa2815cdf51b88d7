// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

namespace corvane {

// The id under which the host knows the vertical stream's output type.
inline constexpr const char *kMuxOutputId = "cv_vertical_mux_rtmp";

// Registers the output type with libobs; called once, when the module loads.
void register_mux_output_type();

} // namespace corvane
