// SPDX-License-Identifier: GPL-2.0-or-later
#include "core/remote_requests.hpp"

#include "base/obs_handles.hpp"
#include "canvas/vertical_canvas.hpp"
#include "core/module_state.hpp"
#include "core/remote_settings.hpp"
#include "core/scene_list_store.hpp"
#include "core/setting_limits.hpp"
#include "core/user_interface.hpp"
#include "output/vertical_output.hpp"

#include <array>
#include <string>

namespace corvane {

namespace {

// A field that must be there and be a text.
std::string text_field(obs_data_t *request, const char *name) {
    obs_data_item_t *item = obs_data_item_byname(request, name);
    const bool found = item != nullptr;
    const bool is_text = found && obs_data_item_gettype(item) == OBS_DATA_STRING;
    const std::string text = is_text ? obs_data_item_get_string(item) : "";
    obs_data_item_release(&item);
    if (!found) {
        throw RequestError(std::string("Missing field: ") + name);
    }
    if (!is_text) {
        throw RequestError(std::string("Not a text: ") + name);
    }
    return text;
}

// As in the dock, blanks around the name of a new scene do not count, and it is one line: the host
// writes the names of hotkeys into its profile's file as they are.
std::string new_name_field(obs_data_t *request, const char *name) {
    const std::string text = text_field(request, name);
    const size_t begin = text.find_first_not_of(" \t\r\n");
    if (begin == std::string::npos) {
        throw RequestError(std::string("Empty: ") + name);
    }
    if (text.size() > kLongestText) {
        throw RequestError(std::string("Too long: ") + name);
    }
    const std::string trimmed = text.substr(begin, text.find_last_not_of(" \t\r\n") - begin + 1);
    if (trimmed.find_first_of("\r\n") != std::string::npos) {
        throw RequestError(std::string("Not a single line: ") + name);
    }
    return trimmed;
}

std::string known_scene(const RequestContext &context) {
    std::string name = text_field(context.request, "sceneName");
    for (const SceneInfo &scene : context.canvas.scene_list()) {
        if (scene.name == name) {
            return name;
        }
    }
    throw RequestError("No such vertical scene: " + name);
}

void require_free(const RequestContext &context, const std::string &name) {
    for (const SceneInfo &scene : context.canvas.scene_list()) {
        if (scene.name == name) {
            throw RequestError("There is a vertical scene of this name: " + name);
        }
    }
}

// As after an edit in the dock.
void scenes_edited() {
    module_state.ui->attach_dock();
    save_scene_list_locked();
}

void get_version(const RequestContext &context) {
    obs_data_set_string(context.response, "version", CVC_VERSION);
    obs_data_set_int(context.response, "apiVersion", 1);
}

void get_status(const RequestContext &context) {
    write_status(context.canvas, context.output, context.response);
}

void start_stream(const RequestContext &context) {
    if (!context.output.start()) {
        throw RequestError("The vertical stream could not be started, see the log");
    }
}

void stop_stream(const RequestContext &context) {
    context.output.stop();
}

void toggle_stream(const RequestContext &context) {
    context.output.is_active() ? stop_stream(context) : start_stream(context);
}

void get_scene_list(const RequestContext &context) {
    write_scene_list(context.canvas, context.response);
}

void set_active_scene(const RequestContext &context) {
    context.canvas.set_active_scene(known_scene(context));
    module_state.ui->attach_dock();
}

void create_scene(const RequestContext &context) {
    const std::string name = new_name_field(context.request, "sceneName");
    require_free(context, name);
    if (!context.canvas.create_scene(name)) {
        throw RequestError("OBS refused the scene, see the log");
    }
    scenes_edited();
}

void remove_scene(const RequestContext &context) {
    context.canvas.remove_scene(known_scene(context));
    scenes_edited();
}

void rename_scene(const RequestContext &context) {
    const std::string name = known_scene(context);
    const std::string new_name = new_name_field(context.request, "newSceneName");
    if (new_name != name) {
        require_free(context, new_name);
        context.canvas.rename_scene(name, new_name);
        scenes_edited();
    }
}

void assign_scene(const RequestContext &context) {
    const std::string name = known_scene(context);
    const std::string source_name = text_field(context.request, "obsSceneName");
    if (!source_name.empty()) {
        const OBSSourceAutoRelease source = obs_get_source_by_name(source_name.c_str());
        if (!source || !obs_source_is_scene(source)) {
            throw RequestError("OBS has no such scene: " + source_name);
        }
    }
    context.canvas.assign_scene_source(name, source_name);
    scenes_edited();
}

void get_settings(const RequestContext &context) {
    write_settings(context.response);
}

void set_settings(const RequestContext &context) {
    store_settings(context.request);
}

constexpr std::array kRequests = {
    RemoteRequest{.name = "GetVersion", .run = get_version},
    RemoteRequest{.name = "GetStatus", .run = get_status},
    RemoteRequest{.name = "StartStream", .run = start_stream},
    RemoteRequest{.name = "StopStream", .run = stop_stream},
    RemoteRequest{.name = "ToggleStream", .run = toggle_stream},
    RemoteRequest{.name = "GetSceneList", .run = get_scene_list},
    RemoteRequest{.name = "SetActiveScene", .run = set_active_scene},
    RemoteRequest{.name = "CreateScene", .run = create_scene},
    RemoteRequest{.name = "RemoveScene", .run = remove_scene},
    RemoteRequest{.name = "RenameScene", .run = rename_scene},
    RemoteRequest{.name = "AssignScene", .run = assign_scene},
    RemoteRequest{.name = "GetSettings", .run = get_settings},
    RemoteRequest{.name = "SetSettings", .run = set_settings},
};

} // namespace

std::span<const RemoteRequest> remote_requests() {
    return kRequests;
}

void write_scene_list(const VerticalCanvas &canvas, obs_data_t *data) {
    const OBSDataArrayAutoRelease scenes = obs_data_array_create();
    for (const SceneInfo &scene : canvas.scene_list()) {
        const OBSDataAutoRelease entry = obs_data_create();
        obs_data_set_string(entry, "sceneName", scene.name.c_str());
        obs_data_set_string(entry, "obsSceneName", scene.source_name.c_str());
        obs_data_set_bool(entry, "obsSceneMissing", scene.source_missing);
        obs_data_array_push_back(scenes, entry);
    }
    obs_data_set_array(data, "scenes", scenes);
    obs_data_set_string(data, "activeScene", canvas.active_scene_name().c_str());
}

void write_status(const VerticalCanvas &canvas, const VerticalOutput &output, obs_data_t *data) {
    const VerticalOutput::State state = output.state();
    ConnectionState connection = state.connection.value_or(ConnectionState{});
    if (state.active && !state.connection) {
        connection.phase = ConnectionState::Phase::kConnected;
    }
    obs_data_set_bool(data, "active", state.active);
    obs_data_set_string(data, "phase", connection.phase_name());
    obs_data_set_int(data, "attempts", connection.failures);
    const std::string &reason = state.active ? connection.reason : state.last_error;
    obs_data_set_string(data, "reason", reason.c_str());
    obs_data_set_bool(data, "reconnectsAutomatically", output.resilient());
    obs_data_set_string(data, "encoder", state.encoder.c_str());
    obs_data_set_int(data, "secondsOnAir", state.on_air.count());
    obs_data_set_int(data, "bytes", static_cast<long long>(state.total_bytes));
    obs_data_set_int(data, "droppedFrames", state.dropped_frames);
    obs_data_set_double(data, "congestion", static_cast<double>(state.congestion));
    obs_data_set_int(data, "canvasWidth", canvas.width());
    obs_data_set_int(data, "canvasHeight", canvas.height());
    obs_data_set_int(data, "fpsNum", canvas.stream_fps_num());
    obs_data_set_int(data, "fpsDen", canvas.stream_fps_den());
}

} // namespace corvane
