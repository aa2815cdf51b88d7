// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "mux/common/stream_output.hpp"
#include "mux/common/stream_url.hpp"
#include "mux/resilient/stream_session.hpp"

#include <obs.h>

#include <memory>
#include <mutex>
#include <thread>

namespace corvane {

// The resilient output type. Sends what MuxOutput sends, but does all network work on its own
// thread and reconnects until the stream is stopped. Each start makes a StreamSession; this class
// keeps the settings and forwards libobs's calls to the session.
class ResilientOutput final : public StreamOutput {
public:
    ResilientOutput(obs_data_t *settings, obs_output_t *output);
    ~ResilientOutput() override;

    void update(obs_data_t *settings) override;
    bool start() override;
    // Does not block; the stream ends within a second.
    void stop(bool forced) override;
    void encoded_packet(const encoder_packet *packet) override;
    void end_with_error() override;
    Statistics statistics() const override;

private:
    std::shared_ptr<StreamSession> session() const; // null before the first start
    StreamSettings settings() const;
    void end_thread();
    static void connection_state(void *data, calldata_t *answer);

    std::thread thread_; // of the last session; used by start() and the destructor

    mutable std::mutex mutex_; // guards everything below
    StreamSettings settings_;
    std::shared_ptr<StreamSession> session_; // of the last start
};

} // namespace corvane
