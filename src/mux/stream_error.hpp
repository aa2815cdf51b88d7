// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>

namespace corvane {

// Why a stream could not be opened or go on.
struct StreamError {
    const char *call = nullptr; // that failed; null when none did
    int code = 0;               // FFmpeg's, negative; 0 without one
    std::string message;        // for the user, never empty
};

} // namespace corvane
