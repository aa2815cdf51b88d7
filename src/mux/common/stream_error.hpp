// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>

namespace corvane {

// Why a stream could not be opened or cannot go on.
struct StreamError {
    const char *call = nullptr; // the function that failed, null if none did
    int code = 0;               // FFmpeg's error code (negative), or 0
    const char *message = "";   // shown to the user; static, as `call`
    std::string details = {};   // FFmpeg's words, without secrets; may be empty
};

} // namespace corvane
