// SPDX-License-Identifier: GPL-2.0-or-later
#include "core/remote_control.hpp"

#include "base/log.hpp"
#include "base/obs_handles.hpp"
#include "core/module_state.hpp"
#include "core/remote_requests.hpp"
#include "output/vertical_output.hpp"

#include <obs-websocket-api.h>

#include <QCoreApplication>
#include <QMetaObject>
#include <QThread>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <utility>

namespace corvane {

namespace {

constexpr const char *kVendor = "corvane-vertical-canvas";
constexpr unsigned kLeastApiVersion = 2; // 1 cannot be asked for its version
constexpr int kLookIntervalMs = 200;
constexpr std::chrono::seconds kPatience{5};
constexpr std::chrono::seconds kLongestRun{20}; // a start may try seven encoders

// A request under way; shared, since the thread that waits for it may give up.
struct Job {
    const RemoteRequest *request;
    OBSData data;
    OBSDataAutoRelease answer = obs_data_create();
    std::promise<void> done;
    std::atomic<bool> claimed = false; // by the thread that runs it, or by the one that gives up

    void run() {
        const std::scoped_lock lock(module_state.runtime_mutex);
        try {
            if (!module_state.canvas || !module_state.output) {
                throw RequestError("There is no vertical canvas");
            }
            request->run({.canvas = *module_state.canvas,
                .output = *module_state.output,
                .request = data,
                .response = answer});
        } catch (const std::exception &error) {
            obs_data_set_string(answer, "error", error.what());
        }
    }
};

void *register_vendor() {
    if (obs_websocket_get_api_version() < kLeastApiVersion) {
        log_info("No remote control: obs-websocket is missing or too old");
        return nullptr;
    }
    return obs_websocket_register_vendor(kVendor);
}

// Any thread.
void on_request(obs_data_t *data, obs_data_t *answer, void *request) {
    const auto job = std::make_shared<Job>();
    job->request = static_cast<const RemoteRequest *>(request);
    job->data = data;
    if (QThread::currentThread() == QCoreApplication::instance()->thread()) {
        job->run();
    } else {
        const auto run = [job] {
            if (!job->claimed.exchange(true)) {
                job->run();
                job->done.set_value();
            }
        };
        QMetaObject::invokeMethod(QCoreApplication::instance(), run, Qt::QueuedConnection);
        const std::future<void> done = job->done.get_future();
        if (done.wait_for(kPatience) != std::future_status::ready) {
            if (!job->claimed.exchange(true)) {
                obs_data_set_string(answer, "error", "OBS is busy");
                return;
            }
            if (done.wait_for(kLongestRun) != std::future_status::ready) {
                obs_data_set_string(answer, "error", "OBS has not finished this request yet");
                return;
            }
        }
    }
    obs_data_apply(answer, job->answer);
}

} // namespace

RemoteControl::RemoteControl()
    : vendor_(register_vendor()) {
    if (!vendor_) {
        return;
    }
    for (const RemoteRequest &request : remote_requests()) {
        obs_websocket_vendor_register_request(
            vendor_, request.name, on_request, const_cast<RemoteRequest *>(&request));
    }
    seen_ = look();
    QObject::connect(&timer_, &QTimer::timeout, [this] { emit_changes(); });
    timer_.start(kLookIntervalMs);
}

RemoteControl::~RemoteControl() {
    if (vendor_) {
        for (const RemoteRequest &request : remote_requests()) {
            obs_websocket_vendor_unregister_request(vendor_, request.name);
        }
    }
}

RemoteControl::Seen RemoteControl::look() {
    const std::scoped_lock lock(module_state.runtime_mutex);
    if (!module_state.canvas || !module_state.output) {
        return {};
    }
    const OBSDataAutoRelease status = obs_data_create();
    write_status(*module_state.canvas, *module_state.output, status);
    return {.active = obs_data_get_bool(status, "active"),
        .phase = obs_data_get_string(status, "phase"),
        .reason = obs_data_get_string(status, "reason"),
        .attempts = obs_data_get_int(status, "attempts"),
        .active_scene = module_state.canvas->active_scene_name(),
        .scenes = module_state.canvas->scene_list()};
}

void RemoteControl::emit_changes() {
    const Seen before = std::exchange(seen_, look());
    if (seen_.active != before.active || seen_.phase != before.phase) {
        const OBSDataAutoRelease state = obs_data_create();
        obs_data_set_bool(state, "active", seen_.active);
        obs_data_set_string(state, "phase", seen_.phase.c_str());
        emit_event("StreamStateChanged", state);
    }
    if (seen_.attempts != before.attempts) {
        const OBSDataAutoRelease reconnecting = obs_data_create();
        obs_data_set_bool(reconnecting, "reconnecting", seen_.attempts > 0);
        obs_data_set_int(reconnecting, "attempts", seen_.attempts);
        obs_data_set_string(reconnecting, "reason", seen_.reason.c_str());
        emit_event("ReconnectingChanged", reconnecting);
    }
    if (seen_.active_scene != before.active_scene) {
        const OBSDataAutoRelease scene = obs_data_create();
        obs_data_set_string(scene, "sceneName", seen_.active_scene.c_str());
        emit_event("ActiveSceneChanged", scene);
    }
    if (seen_.scenes != before.scenes && module_state.canvas) {
        const OBSDataAutoRelease scenes = obs_data_create();
        write_scene_list(*module_state.canvas, scenes);
        emit_event("SceneListChanged", scenes);
    }
}

void RemoteControl::emit_event(const char *name, obs_data_t *data) const {
    obs_websocket_vendor_emit_event(vendor_, name, data);
}

} // namespace corvane
