// SPDX-License-Identifier: GPL-2.0-or-later
#include "mux/resilient/resilient_output.hpp"

#include <exception>
#include <utility>

namespace corvane {

ResilientOutput::ResilientOutput(obs_data_t *settings, obs_output_t *output)
    : StreamOutput(output) {
    settings_.read(settings);
    proc_handler_add(obs_output_get_proc_handler(output_),
        "void connection_state(out string phase, out int failures, out string reason)",
        connection_state, this);
}

ResilientOutput::~ResilientOutput() {
    if (const auto last = session()) {
        last->end(OBS_OUTPUT_SUCCESS);
    }
    end_thread();
}

// libobs starts and destroys an output only after the session has reported its end. A "stop"
// handler that does so runs on the session's thread, which no longer uses this object then.
void ResilientOutput::end_thread() {
    if (thread_.get_id() == std::this_thread::get_id()) {
        thread_.detach();
    } else if (thread_.joinable()) {
        thread_.join();
    }
}

void ResilientOutput::update(obs_data_t *settings) {
    const std::scoped_lock lock(mutex_);
    settings_.read(settings);
}

bool ResilientOutput::start() {
    if (const auto last = session(); last && last->wanted()) {
        return false;
    }
    end_thread();
    if (settings().url.url.empty()) {
        obs_output_set_last_error(output_, kMissingUrl);
        return false;
    }
    if (!prepare_capture()) {
        return false;
    }
    const auto begun = std::make_shared<StreamSession>(output_, [this] { return settings(); });
    thread_ = std::thread([begun] { begun->run(); });
    {
        const std::scoped_lock lock(mutex_);
        session_ = begun;
    }
    const bool success = obs_output_begin_data_capture(output_, kVideoAndAudio);
    begun->capture_began(success);
    return success;
}

void ResilientOutput::stop(bool forced) {
    const auto current = session();
    if (current && current->stop(forced) && !obs_output_active(output_)) {
        // The stream ended between libobs's decision to stop it and this call, and libobs still
        // waits for an end.
        obs_output_end_data_capture(output_);
    }
}

void ResilientOutput::encoded_packet(const encoder_packet *packet) {
    const auto current = session();
    if (!current) {
        return;
    }
    if (packet) {
        current->push(*packet);
    } else {
        current->encoder_failed();
    }
}

void ResilientOutput::end_with_error() {
    if (const auto current = session()) {
        current->end(OBS_OUTPUT_ERROR);
    }
}

StreamOutput::Statistics ResilientOutput::statistics() const {
    const auto current = session();
    return current ? current->statistics() : Statistics{};
}

std::shared_ptr<StreamSession> ResilientOutput::session() const {
    const std::scoped_lock lock(mutex_);
    return session_;
}

StreamSettings ResilientOutput::settings() const {
    const std::scoped_lock lock(mutex_);
    return settings_;
}

// libobs is C: without memory the answer stays empty.
void ResilientOutput::connection_state(void *data, calldata_t *answer) {
    try {
        const auto current = static_cast<const ResilientOutput *>(data)->session();
        (current ? current->connection_state() : ConnectionState{}).write_to(answer);
    } catch (const std::exception &) {
        calldata_clear(answer);
    }
}

} // namespace corvane
