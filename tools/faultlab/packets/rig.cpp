// SPDX-License-Identifier: GPL-2.0-or-later
#include "rig.hpp"

#include "mux/output_type.hpp"
#include "testbed/wait.hpp"

#include <QJsonArray>
#include <QJsonDocument>

#include <unistd.h>

#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <thread>
#include <utility>

namespace corvane::lab {

namespace {

using Clock = std::chrono::steady_clock;

Milliseconds since(Clock::time_point begin) {
    return std::chrono::duration_cast<Milliseconds>(Clock::now() - begin);
}

} // namespace

Rig::Rig(const std::string &policy, const std::string &server, const std::vector<size_t> &tracks) {
    const OBSDataAutoRelease settings = obs_data_create();
    obs_data_set_string(settings, "server", server.c_str());
    obs_data_set_string(settings, "key", "lab");
    output_ = obs_output_create(
        policy == "resilient" ? kResilientOutputId : kMuxOutputId, "lab", settings, nullptr);
    encoders_.emplace_back(obs_video_encoder_create("lab_h264", "video", nullptr, nullptr));
    obs_encoder_set_video(encoders_.back(), obs_get_video());
    obs_output_set_video_encoder(output_, encoders_.back());
    for (const size_t track : tracks) {
        encoders_.emplace_back(
            obs_audio_encoder_create("lab_aac", "audio", nullptr, track, nullptr));
        obs_encoder_set_audio(encoders_.back(), obs_get_audio());
        obs_output_set_audio_encoder(output_, encoders_.back(), track);
    }
    signal_handler_connect(obs_output_get_signal_handler(output_), "stop", on_stop, this);
}

Rig::~Rig() {
    destroy();
}

void Rig::on_stop(void *rig, calldata_t *data) {
    auto *self = static_cast<Rig *>(rig);
    const std::scoped_lock lock(self->mutex_);
    self->stops_.push_back(static_cast<int>(calldata_int(data, "code")));
}

std::vector<int> Rig::stops() {
    const std::scoped_lock lock(mutex_);
    return stops_;
}

std::string Rig::message() const {
    const char *text = output_ ? obs_output_get_last_error(output_) : nullptr;
    return text ? text : "";
}

Milliseconds Rig::stop() {
    const auto begin = Clock::now();
    obs_output_stop(output_);
    test::wait_until([this] { return !active(); });
    return since(begin);
}

Milliseconds Rig::destroy() {
    const auto begin = Clock::now();
    output_ = nullptr;
    const Milliseconds took = since(begin);
    encoders_.clear();
    return took;
}

void print_result(QJsonObject result) {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmHWM:")) {
            result["memory_peak_mb"] = std::stoi(line.substr(6)) / 1024;
        }
    }
    result["main_lagged"] = static_cast<int>(obs_get_lagged_frames());
    const QByteArray line = QJsonDocument(result).toJson(QJsonDocument::Compact) + '\n';
    (void)!write(STDOUT_FILENO, line.constData(), static_cast<size_t>(line.size()));
}

struct Watchdog::State {
    std::mutex mutex;
    std::condition_variable changed;
    bool done = false; // guarded by mutex
};

Watchdog::Watchdog(std::string what, Milliseconds limit)
    : state_(std::make_shared<State>()) {
    std::thread([state = state_, what = std::move(what), limit] {
        std::unique_lock lock(state->mutex);
        if (!state->changed.wait_for(lock, limit, [&] { return state->done; })) {
            print_result({{"seen", QString::fromStdString("hangs at " + what)}});
            _exit(EXIT_SUCCESS);
        }
    }).detach();
}

Watchdog::~Watchdog() {
    const std::scoped_lock lock(state_->mutex);
    state_->done = true;
    state_->changed.notify_all();
}

} // namespace corvane::lab
