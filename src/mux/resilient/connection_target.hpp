// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "mux/common/av_handles.hpp"
#include "mux/common/stream_error.hpp"
#include "mux/common/stream_url.hpp"

#include <optional>
#include <string>

namespace corvane {

// What FFmpeg is given to connect: an address without the key, and options. Application and stream
// name are options of their own, so that FFmpeg sends them as entered instead of splitting an
// address, which fails for keys and applications that contain "/", "?" or blanks.
struct ConnectionTarget {
    std::string address;
    Dictionary options;
};

// Logs a warning for each query option that SRT does not know, and leaves it out.
ConnectionTarget connection_target(const StreamUrl &url);

// Why FFmpeg cannot send to the address at all, if it cannot.
std::optional<StreamError> objection_to(const StreamUrl &url);

} // namespace corvane
