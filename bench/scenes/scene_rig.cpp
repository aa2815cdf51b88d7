// SPDX-License-Identifier: GPL-2.0-or-later
#include "scene_rig.hpp"

#include "core/config_files.hpp"
#include "core/module_state.hpp"
#include "core/scene_list_store.hpp"
#include "testbed/obs_session.hpp"
#include "testbed/wait.hpp"

#include <QWindow>

#include <malloc.h>

#include <stdexcept>

namespace corvane::bench {

namespace {

double heap_bytes() {
    const struct mallinfo2 heap = mallinfo2();
    return static_cast<double>(heap.uordblks + heap.hblkhd);
}

void require(bool done, const char *what) {
    if (!done) {
        throw std::runtime_error(std::string(what) + " failed");
    }
}

} // namespace

SceneRig::SceneRig(int count, bool active_audio)
    : count(count)
    , canvas({.width = 72, .height = 128, .use_active_scene_audio = active_audio}) {
    make_host_scenes();
    module_state.global_config_path = dir_.filePath("list.ini").toStdString();
    config_open(
        &module_state.global_config, module_state.global_config_path.c_str(), CONFIG_OPEN_ALWAYS);
    require(module_state.global_config && canvas.init(), "making the canvas");
    module_state.canvas = &canvas;
    VerticalOutput &stream = output.emplace(&canvas, OutputConfig{});
    require(stream.init(), "making the output");
    VerticalDock &shown = dock.emplace(&canvas, &stream, nullptr);
    shown.setPreviewShown(false); // what it draws is the same with any number of scenes
    shown.show();
    require(
        test::wait_until([&] { return shown.windowHandle()->isExposed(); }), "showing the dock");

    const double before = heap_bytes();
    fill();
    const double with_scenes = heap_bytes();
    shown.setRuntime(&canvas, &stream);
    scene_bytes = (with_scenes - before) / count;
    line_bytes = (heap_bytes() - with_scenes) / count;
    save_scene_list();
}

SceneRig::~SceneRig() {
    dock.reset();
    output.reset();
    canvas.shutdown();
    module_state.canvas = nullptr;
    close_config_files();
    for (const OBSSceneAutoRelease &scene : host_scenes_) {
        obs_source_remove(obs_scene_get_source(scene));
    }
    host_scenes_.clear();
    test::ObsSession::destroy_released_sources();
}

void SceneRig::make_host_scenes() {
    for (int index = 0; index < count; ++index) {
        host_scenes_.emplace_back(obs_scene_create(source(index).c_str()));
    }
}

void SceneRig::fill() {
    canvas.remove_scene("Scene 1");
    for (int index = 0; index < count; ++index) {
        require(canvas.create_scene(scene(index)) &&
                    canvas.assign_scene_source(scene(index), source(index)),
            "filling the canvas");
    }
}

void SceneRig::empty() {
    for (int index = count - 1; index >= 0; --index) {
        canvas.remove_scene(scene(index));
    }
    canvas.create_scene("Scene 1");
    test::ObsSession::destroy_released_sources();
}

} // namespace corvane::bench
