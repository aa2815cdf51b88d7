// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "base/obs_handles.hpp"
#include "mux/common/muxer.hpp"
#include "mux/common/packet_path.hpp"
#include "mux/common/stream_error.hpp"
#include "mux/common/stream_output.hpp"
#include "mux/common/stream_url.hpp"
#include "mux/standard/write_queue.hpp"

#include <obs.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

namespace corvane {

// A copy of a packet, kept until the codec headers exist and the muxer opens.
class PendingPacket {
public:
    explicit PendingPacket(const EncodedPacket &packet)
        : data_(static_cast<uint8_t *>(bmemdup(packet.payload.data(), packet.payload.size())))
        , packet_(packet) {
        packet_.payload = Bytes(data_.get(), packet.payload.size());
    }

    // Valid as long as this object.
    const EncodedPacket &packet() const { return packet_; }

private:
    std::unique_ptr<uint8_t, ReleaseWith<bfree>> data_;
    EncodedPacket packet_;
};

// The standard output type: takes encoded packets from libobs and sends them as FLV over RTMP or
// MPEG-TS over SRT.
//
// The packet callback opens the connection once the encoders' headers exist; a write thread then
// sends the queued packets. Lock order: output lock, then the queue's mutex. The write thread takes
// the output lock only when a write has failed, see enter_reconnect_mode().
class MuxOutput final : public StreamOutput {
public:
    MuxOutput(obs_data_t *settings, obs_output_t *output);
    ~MuxOutput() override;

    void update(obs_data_t *settings) override;
    bool start() override;
    void stop(bool forced) override;
    void encoded_packet(const encoder_packet *packet) override;
    void end_with_error() override;

private:
    // libobs cannot end a capture that it is still beginning; start() then ends it.
    enum class Capture { kBeginning, kRunning, kStopped, kFailed };

    enum class OpenResult {
        kOpened,
        kNotReady, // codec headers are missing, try again with a later packet
        kFatal,    // the output's last error tells why
    };

    // Called without the output lock.
    bool begin_capture();
    bool claim_capture_end(Capture how);
    void end_capture_with_error();
    void write_thread_loop();
    void enter_reconnect_mode(int error);

    // Called with the output lock held.
    OpenResult open_muxer();
    OpenResult open_failed(const StreamError &error);
    void close_muxer();
    void deactivate_with_error(std::unique_lock<std::mutex> lock); // unlocks
    void free_pending_packets();
    void add_pending_packet(const encoder_packet &packet);
    void process_pending_packets();
    void process_packet(const encoder_packet &packet);
    void process_video_packet(const EncodedPacket &packet);
    void process_audio_packet(size_t slot, const EncodedPacket &packet);
    void signal_error_if_any(const std::optional<StreamError> &error);
    void attempt_reconnect(const encoder_packet &packet);

    WriteQueue queue_; // thread-safe
    std::atomic<Capture> capture_ = Capture::kStopped;

    std::mutex mutex_; // the output lock, guards everything below
    StreamSettings settings_;
    bool active_ = false; // between a successful start and stop
    bool fatal_ = false;  // opening the muxer failed
    // Changed only before the first packet is queued and after the write thread has ended: the
    // thread reads the context without the lock.
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
