// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "mux/resilient/stream_session.hpp"
#include "mux/stream_output.hpp"
#include "mux/stream_settings.hpp"

#include <obs.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>

namespace corvane {

// The second output type. Sends what MuxOutput sends, but does all network work on a thread of its
// own and reconnects until the stream is to end. Each start makes a StreamSession; this class
// keeps the settings and forwards libobs's calls to the session.
class ResilientOutput final : public StreamOutput {
public:
    // The output handle is libobs's and outlives this object.
    ResilientOutput(obs_data_t *settings, obs_output_t *output);
    ~ResilientOutput() override;

    void update(obs_data_t *settings) override;
    bool start() override;
    // Returns at once; the stream ends within a second.
    void stop(bool forced) override;
    void encoded_packet(const encoder_packet *packet) override;
    void fail() override;
    obs_output_t *handle() const override { return output_; }

    // The host's statistics of the present or last stream. Thread-safe.
    uint64_t total_bytes() const;
    int dropped_frames() const;
    float congestion() const;
    int connect_time_ms() const;

private:
    std::shared_ptr<StreamSession> session() const; // null before the first start
    StreamSettings settings() const;
    void end_thread();
    static void report_state(void *self, calldata_t *answer);

    obs_output_t *const output_;
    std::thread thread_; // used by the threads that start and destroy

    mutable std::mutex mutex_; // guards everything below
    StreamSettings settings_;
    std::shared_ptr<StreamSession> session_; // of the last start
};

} // namespace corvane
