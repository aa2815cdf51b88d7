// SPDX-License-Identifier: GPL-2.0-or-later
// The network connection of an open muxer. These calls block as long as the network does, or until
// the context's interrupt callback ends them.
#pragma once

#include "mux/muxer.hpp"

namespace corvane {

// What the user is told when the connection or the container's header fails.
inline constexpr const char *kConnectFailed = "Stream rejected — check server URL and stream key";
inline constexpr const char *kWriteHeaderFailed = "Stream rejected — write header failed";

// The container's and the protocol's options. Opening the connection and writing the header
// each take out what they understand.
Dictionary connection_options(const StreamUrl &url);

// Opens the context's I/O; 0 or an FFmpeg error code.
int open_connection(AVFormatContext &context, const StreamUrl &url, Dictionary &options);

// Closes the context's I/O, if it has any.
void close_connection(AVFormatContext &context);

} // namespace corvane
