// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

namespace corvane {

// Why a stream could not be opened or cannot go on. All texts are static.
struct StreamError {
    const char *call = nullptr; // the function that failed, null if none did
    int code = 0;               // FFmpeg's error code (negative), or 0
    const char *message = "";   // shown to the user
};

} // namespace corvane
