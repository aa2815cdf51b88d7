// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

namespace corvane::bench {

using Clock = std::chrono::steady_clock;

// Stands before a server on loopback, one connection at a time, and notes when the first byte
// comes in. A thread of this process.
class Relay {
public:
    explicit Relay(int server_port); // throws when it cannot listen
    ~Relay();
    Relay(const Relay &) = delete;
    Relay &operator=(const Relay &) = delete;

    std::string url() const;

    // Of the connection that came first since the last forget(); the epoch while there was none.
    Clock::time_point first_byte() const { return first_byte_; }
    // Once the last connection has ended.
    void forget() {
        connected_.wait(true);
        first_byte_ = Clock::time_point();
    }

private:
    void serve();
    void pass_on(int client, int server);

    const int server_port_;
    int listener_;
    int port_ = 0;
    int end_[2] = {-1, -1}; // a pipe that is closed at the end
    std::atomic<bool> connected_ = false;
    std::atomic<Clock::time_point> first_byte_ = Clock::time_point();
    std::thread thread_;
};

} // namespace corvane::bench
