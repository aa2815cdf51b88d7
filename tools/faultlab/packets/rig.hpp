// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <obs.hpp>

#include <QJsonObject>

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace corvane::lab {

using Milliseconds = std::chrono::milliseconds;

// One output of the policy's type with its encoders.
class Rig {
public:
    Rig(const std::string &policy, const std::string &server, const std::vector<size_t> &tracks);
    ~Rig();
    Rig(const Rig &) = delete;
    Rig &operator=(const Rig &) = delete;

    bool start() { return obs_output_start(output_); }
    bool active() const { return obs_output_active(output_); }

    // Each returns how long it took until the stream had ended, or the object was gone.
    Milliseconds stop();
    Milliseconds destroy();

    std::vector<int> stops();
    std::string message() const;

private:
    static void on_stop(void *rig, calldata_t *data);

    std::mutex mutex_; // guards stops_
    std::vector<int> stops_;
    std::vector<OBSEncoderAutoRelease> encoders_;
    OBSOutputAutoRelease output_;
};

// Prints the row's result, with the process's memory and the host's late frames, as one line.
void print_result(QJsonObject result);

// Prints "hangs at WHAT" as the result and ends the process when the object lives longer.
class Watchdog {
public:
    Watchdog(std::string what, Milliseconds limit);
    ~Watchdog();
    Watchdog(const Watchdog &) = delete;
    Watchdog &operator=(const Watchdog &) = delete;

private:
    struct State;
    std::shared_ptr<State> state_;
};

} // namespace corvane::lab
