// SPDX-License-Identifier: GPL-2.0-or-later
// The network connection of an open muxer, without time limits: these calls block as long as
// the network does.
#pragma once

#include "mux/muxer.hpp"

namespace corvane {

// The container's and the protocol's options. Each call below takes out what it understands.
Dictionary connection_options(const StreamUrl &url);

// Opens the context's I/O; 0 or an FFmpeg error code.
int open_connection(AVFormatContext &context, const StreamUrl &url, Dictionary &options);

// Closes the context's I/O, if it has any of its own.
void close_connection(AVFormatContext &context);

} // namespace corvane
