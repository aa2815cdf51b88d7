// SPDX-License-Identifier: GPL-2.0-or-later
#include "floor.hpp"

#include <obs.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

namespace corvane::bench {

namespace {

class Floor {
public:
    Floor(obs_data_t *settings, obs_output_t *output)
        : output_(output)
        , port_(static_cast<uint16_t>(obs_data_get_int(settings, "port"))) {}
    ~Floor() { end(); }
    Floor(const Floor &) = delete;
    Floor &operator=(const Floor &) = delete;

    bool start() {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port_);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socket_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (socket_ < 0 ||
            connect(socket_, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0 ||
            !obs_output_can_begin_data_capture(output_, 0) ||
            !obs_output_initialize_encoders(output_, 0)) {
            return false;
        }
        thread_ = std::thread([this] { send_all(); });
        return obs_output_begin_data_capture(output_, 0);
    }

    void stop() {
        obs_output_end_data_capture(output_);
        end();
    }

    void take(const encoder_packet &packet) {
        std::vector<uint8_t> copy(packet.data, packet.data + packet.size);
        {
            const std::scoped_lock lock(mutex_);
            packets_.push_back(std::move(copy));
        }
        changed_.notify_one();
    }

private:
    void send_all() {
        std::unique_lock lock(mutex_);
        while (true) {
            changed_.wait(lock, [this] { return ended_ || !packets_.empty(); });
            if (ended_) {
                return;
            }
            std::vector<uint8_t> packet = std::move(packets_.front());
            packets_.pop_front();
            lock.unlock();
            iovec piece{.iov_base = packet.data(), .iov_len = packet.size()};
            msghdr message{};
            message.msg_iov = &piece;
            message.msg_iovlen = 1;
            if (sendmsg(socket_, &message, MSG_NOSIGNAL) != static_cast<ssize_t>(packet.size())) {
                obs_output_signal_stop(output_, OBS_OUTPUT_DISCONNECTED);
                return;
            }
            packet = {};
            lock.lock();
        }
    }

    void end() {
        {
            const std::scoped_lock lock(mutex_);
            ended_ = true;
        }
        changed_.notify_one();
        if (thread_.joinable()) {
            thread_.join();
        }
        if (socket_ >= 0) {
            close(socket_);
            socket_ = -1;
        }
    }

    obs_output_t *const output_;
    const uint16_t port_;
    int socket_ = -1;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::vector<uint8_t>> packets_; // guarded by mutex_
    bool ended_ = false;                       // guarded by mutex_
    std::thread thread_;
};

} // namespace

void register_floor() {
    obs_output_info info = {};
    info.id = kFloorId;
    info.flags = OBS_OUTPUT_AV | OBS_OUTPUT_ENCODED | OBS_OUTPUT_MULTI_TRACK;
    info.get_name = [](void *) {
        return "Floor";
    };
    info.create = [](obs_data_t *settings, obs_output_t *output) -> void * {
        return new Floor(settings, output);
    };
    info.destroy = [](void *data) {
        delete static_cast<Floor *>(data);
    };
    info.start = [](void *data) {
        return static_cast<Floor *>(data)->start();
    };
    info.stop = [](void *data, uint64_t) {
        static_cast<Floor *>(data)->stop();
    };
    info.encoded_packet = [](void *data, encoder_packet *packet) {
        static_cast<Floor *>(data)->take(*packet);
    };
    obs_register_output_s(&info, sizeof(info));
}

} // namespace corvane::bench
