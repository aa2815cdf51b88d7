// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "mux/interrupt.hpp"

#include <string>

namespace corvane {

// Whether the host's name is known: 0, or an FFmpeg error code; AVERROR_EXIT when interrupted.
//
// The system's lookup can take half a minute and cannot be interrupted, and FFmpeg makes it on the
// caller's thread. Asked here first, on a thread that may be left behind, FFmpeg's own finds an
// answer at once.
int look_up(const std::string &host, const Interrupt &interrupt);

} // namespace corvane
