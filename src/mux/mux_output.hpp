// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "mux/encoded_packet.hpp"
#include "mux/muxer.hpp"
#include "mux/packet_path.hpp"
#include "mux/packet_queue.hpp"
#include "mux/stream_output.hpp"
#include "mux/stream_settings.hpp"

#include <obs.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

namespace corvane {

// One instance of the output type: takes encoded packets from libobs and sends them as FLV over
// RTMP or MPEG-TS over SRT.
//
// The connection is opened by the packet callback, once the encoders' headers exist; a write
// thread of its own then drains the queue to the network. Lock order: the output lock, then the
// queue's mutex. The write thread takes the output lock only when a write failed, see
// enter_reconnect_mode().
class MuxOutput final : public StreamOutput {
public:
    // The output handle is libobs's and outlives this object.
    MuxOutput(obs_data_t *settings, obs_output_t *output);
    ~MuxOutput() override;

    void update(obs_data_t *settings) override;
    bool start() override;
    void stop(bool forced) override;
    void encoded_packet(const encoder_packet *packet) override;
    void fail() override;
    obs_output_t *handle() const override { return output_; }

private:
    // libobs cannot end a capture that it is still beginning; whatever stops the stream then leaves
    // that to start().
    enum class Capture { kBeginning, kRunning, kStopped, kFailed };

    // Without the output lock.
    bool begin_capture();
    bool claim_capture_end(Capture how);
    void stop_with_error();
    void write_thread_loop();
    void enter_reconnect_mode(int error);

    // With the output lock held.
    OpenResult open_muxer();
    void close_muxer();
    void free_pending_packets();
    void hold_packet(const encoder_packet &packet);
    void replay_held_packets();
    void process_packet(const encoder_packet &packet);
    void process_video_packet(const EncodedPacket &packet);
    void process_audio_packet(size_t slot, const EncodedPacket &packet);
    void stop_on_failure(const char *failure);
    void attempt_reconnect(const encoder_packet &packet);

    obs_output_t *const output_;
    PacketQueue queue_; // thread-safe
    std::atomic<Capture> capture_ = Capture::kStopped;

    std::mutex mutex_; // the output lock, guards everything below
    StreamSettings settings_;
    bool active_ = false; // between a successful start and stop
    bool fatal_ = false;  // opening the muxer failed for good
    // Written before the first packet is queued and after the write thread has ended, so that
    // the thread may read the context without the lock.
    Muxer muxer_;
    std::thread write_thread_;
    PacketPath path_{[this](PacketHandle packet) { return queue_.push(std::move(packet)); }};
    std::optional<PendingPacket> pending_video_;
    std::array<std::optional<PendingPacket>, kAudioSlots> pending_audio_;
    bool reconnecting_ = false;
    uint64_t next_retry_ns_ = 0; // os_gettime_ns() clock
    uint32_t retry_count_ = 0;
};

} // namespace corvane
