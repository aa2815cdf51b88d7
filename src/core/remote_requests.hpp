// SPDX-License-Identifier: GPL-2.0-or-later
// The requests of remote control, see docs/REMOTE.md.
#pragma once

#include <obs.h>

#include <span>
#include <stdexcept>

namespace corvane {

class VerticalCanvas;
class VerticalOutput;

// Why a request is refused; the text is the answer's.
struct RequestError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct RequestContext {
    VerticalCanvas &canvas;
    VerticalOutput &output;
    obs_data_t *request;
    obs_data_t *response;
};

struct RemoteRequest {
    const char *name;
    // UI thread, with runtime_mutex held. Throws RequestError.
    void (*run)(const RequestContext &context);
};

std::span<const RemoteRequest> remote_requests();

// The scene list as answers and events have it, and the state of the stream.
void write_scene_list(const VerticalCanvas &canvas, obs_data_t *data);
void write_status(const VerticalCanvas &canvas, const VerticalOutput &output, obs_data_t *data);

} // namespace corvane
