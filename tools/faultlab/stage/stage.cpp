// SPDX-License-Identifier: GPL-2.0-or-later
#include "stage.hpp"

#include "report.hpp"
#include "testbed/obs_session.hpp"
#include "testbed/stand_in_frontend.hpp"

#include <util/platform.h>

#include <QLabel>

#include <chrono>
#include <cmath>
#include <stdexcept>

namespace corvane::lab {

namespace {

constexpr std::chrono::milliseconds kFrame{33};

void on_stop(void *output, calldata_t *calldata) {
    const char *error = obs_output_get_last_error(static_cast<obs_output_t *>(output));
    report({{"stop", static_cast<int>(calldata_int(calldata, "code"))},
        {"message", QString::fromUtf8(error ? error : "")}});
}

template <typename Function>
Function *exported(void *library, const char *name) {
    return reinterpret_cast<Function *>(os_dlsym(library, name));
}

} // namespace

Stage::Stage(const Options &options)
    : main_server_(options.main_server.toStdString()) {
    test::StandInFrontend &frontend = test::StandInFrontend::get();
    frontend.profile_dir = options.profile.toStdString();
    frontend.main_window = &window_;
    build_scene(options.picture);
    main_stream_.emplace(main_server_);
    load_module();
    frontend.send(OBS_FRONTEND_EVENT_FINISHED_LOADING);
    QObject::connect(&frame_, &QTimer::timeout, [this] {
        move_picture();
        report_changes();
    });
    frame_.start(kFrame);
}

Stage::~Stage() {
    frame_.stop();
    test::StandInFrontend &frontend = test::StandInFrontend::get();
    frontend.send(OBS_FRONTEND_EVENT_EXIT);
    exported<void()>(library_, "obs_module_unload")();
    main_stream_.reset();
    frontend.scenes.clear();
    frontend.main_window = nullptr;
    item_ = nullptr;
    obs_set_output_source(0, nullptr);
    obs_source_remove(obs_scene_get_source(scene_));
}

void Stage::load_module() {
    obs_module_t *module = nullptr;
    if (obs_open_module(&module, CVC_MODULE, CVC_MODULE_DATA) != MODULE_SUCCESS) {
        throw std::runtime_error("the module cannot be opened");
    }
    library_ = obs_get_module_lib(module);
    if (!exported<bool()>(library_, "obs_module_load")()) {
        throw std::runtime_error("the module refuses to load");
    }
}

void Stage::build_scene(const QString &picture) {
    const OBSDataAutoRelease settings = obs_data_create();
    obs_data_set_string(settings, "file", picture.toUtf8());
    const OBSSourceAutoRelease source =
        obs_source_create("image_source", "Picture", settings, nullptr);
    scene_ = obs_scene_create("Stage");
    item_ = obs_scene_add(scene_, source);
    test::StandInFrontend::get().scenes = {obs_scene_get_source(scene_)};
    obs_set_output_source(0, obs_scene_get_source(scene_));
}

// Without motion the encoders would send next to nothing.
void Stage::move_picture() {
    const double seconds = static_cast<double>(os_gettime_ns()) / 1e9;
    vec2 place;
    vec2_set(&place, static_cast<float>(-80 + 60 * std::sin(seconds * 5)),
        static_cast<float>(-60 + 50 * std::cos(seconds * 3)));
    obs_sceneitem_set_pos(item_, &place);
}

void Stage::perform(const QString &line) {
    test::StandInFrontend &frontend = test::StandInFrontend::get();
    const QString verb = line.section(' ', 0, 0);
    const QString rest = line.section(' ', 1);
    if (verb == "start") {
        frontend.send(OBS_FRONTEND_EVENT_STREAMING_STARTING);
    } else if (verb == "stop") {
        frontend.send(OBS_FRONTEND_EVENT_STREAMING_STOPPED);
    } else if (verb == "profile") {
        frontend.profile_dir = rest.toStdString();
        frontend.send(OBS_FRONTEND_EVENT_PROFILE_CHANGED);
    } else if (verb == "video") {
        reset_video(rest.split(' '));
    } else {
        throw std::runtime_error("unknown command: " + line.toStdString());
    }
    report({{"done", line}});
}

// The host refuses a reset while any stream runs.
void Stage::reset_video(const QStringList &size) {
    main_stream_.reset();
    if (size.size() != 3 ||
        !test::ObsSession::reset_video(size[0].toUInt(), size[1].toUInt(), size[2].toUInt())) {
        throw std::runtime_error("the host's video cannot be reset");
    }
    main_stream_.emplace(main_server_);
}

// The module writes the first of the two lines between making an output and starting it, the second
// one before it gives up an output whose encoder does not start.
void Stage::on_log_line(std::string_view line) {
    const auto listen = [](void *, obs_output_t *output) {
        if (obs_output_get_id(output) != std::string_view(kMainOutputType)) {
            signal_handler_connect(obs_output_get_signal_handler(output), "stop", on_stop, output);
        }
        return true;
    };
    const auto forget = [](void *, obs_output_t *output) {
        signal_handler_disconnect(obs_output_get_signal_handler(output), "stop", on_stop, output);
        return true;
    };
    if (line.find("Output created with") != std::string_view::npos) {
        obs_enum_outputs(listen, nullptr);
    } else if (line.find("failed to start output:") != std::string_view::npos) {
        obs_enum_outputs(forget, nullptr);
    }
}

void Stage::report_changes() {
    const auto *label = window_.findChild<QLabel *>("statusLabel");
    if (label && label->text() != status_) {
        status_ = label->text();
        report({{"status", status_}, {"tip", label->toolTip()}});
    }
    for (; boxes_told_ < boxes_.boxes.size(); ++boxes_told_) {
        report({{"box", boxes_.boxes[boxes_told_].text}});
    }
}

} // namespace corvane::lab
