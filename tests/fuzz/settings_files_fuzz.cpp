// SPDX-License-Identifier: GPL-2.0-or-later
// Settings files of any bytes: each is read, or moved aside as it is, and what was read survives a
// save. Scene lists of any names come back as they were saved.
#include "check.hpp"

#include "canvas/vertical_canvas.hpp"
#include "core/config_files.hpp"
#include "core/module_state.hpp"
#include "core/plugin_settings.hpp"
#include "core/runtime.hpp"
#include "core/scene_list_store.hpp"
#include "mux/common/stream_url.hpp"
#include "output/vertical_output.hpp"

#include <obs-frontend-api.h>
#include <obs.hpp>

#include <QTemporaryDir>

#include <dlfcn.h>

#include <fuzzer/FuzzedDataProvider.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <tuple>
#include <vector>

using namespace corvane;
using corvane::fuzz::check;

namespace {

// The folder of both files, in memory. Starts libobs, without video; it needs a screen, but shows
// nothing.
const std::string &folder() {
    static const QTemporaryDir dir("/dev/shm/settings-XXXXXX");
    static const std::string path = [] {
        fuzz::drop_log();
        check(obs_startup("en-US", dir.path().toUtf8(), nullptr), "libobs starts");
        std::atexit(obs_shutdown);
        return dir.path().toStdString();
    }();
    return path;
}

void write_file(const std::string &file, const std::string &content) {
    std::filesystem::remove(file + ".damaged");
    std::ofstream(file, std::ios::binary) << content;
}

void check_damaged(const std::string &file, const std::string &content) {
    std::ifstream aside(file + ".damaged", std::ios::binary);
    check(!aside || std::string(std::istreambuf_iterator(aside), {}) == content,
        "a damaged file is kept as it was");
}

auto all_values() {
    return std::tuple(std::string(settings::rtmpurl.get()), std::string(settings::streamkey.get()),
        settings::videobitrate.get(), settings::canvaswidth.get(), settings::canvasheight.get(),
        settings::fpsnum.get(), settings::fpsden.get(), settings::autostartwithmain.get(),
        std::string(settings::encoderpreset.get()), settings::useactivesceneaudio.get());
}

void check_profile_file(const std::string &content) {
    const std::string file = folder() + "/corvane-vertical-canvas.ini";
    write_file(file, content);
    load_profile_config();
    check(module_state.profile_config, "there is a file to save to");
    check_damaged(file, content);
    const auto values = all_values();
    const StreamUrl url = rebuild_url(settings::rtmpurl.get(), settings::streamkey.get());
    check(url.url.empty() || !isspace(static_cast<unsigned char>(url.url.back())),
        "an address ends without blanks");
    check(url.is_srt() ? url.tc_url.empty() : url.url.starts_with(url.tc_url),
        "the application's address opens the stream's");
    check(!create_runtime_from_current_profile(), "no canvas without the host's video");

    VerticalOutput output(nullptr, {});
    module_state.output = &output;
    save_profile_config();
    module_state.output = nullptr;
    load_profile_config();
    check(all_values() == values, "a save keeps every value");
    close_config_files();
}

// Hands the function a canvas with the scenes of the global file. Without the host's video it shows
// nothing; its list is the same.
void with_restored_list(const auto &function) {
    load_global_config();
    check(module_state.global_config, "there is a file to save to");
    VerticalCanvas canvas{CanvasConfig{}};
    module_state.canvas = &canvas;
    canvas.create_scene("Scene 1");
    restore_scene_list();
    function(canvas);
    module_state.canvas = nullptr;
    close_config_files();
}

// The active scene, then name and source of each.
std::vector<std::string> list_of(const VerticalCanvas &canvas) {
    std::vector<std::string> list = {canvas.active_scene_name()};
    for (const SceneInfo &scene : canvas.scene_list()) {
        list.insert(list.end(), {scene.name, scene.source_name});
    }
    return list;
}

// Any bytes but the one that ends a string.
std::string text_of(const std::string &bytes) {
    return bytes.substr(0, bytes.find('\0'));
}

void fill(VerticalCanvas &canvas, FuzzedDataProvider &input) {
    const size_t few = input.ConsumeIntegral<uint16_t>();
    const size_t count = few == 0xFFFF && input.remaining_bytes() == 0 ? 10'000 : few % 32;
    canvas.remove_scene("Scene 1");
    for (size_t number = 0; number < count; ++number) {
        std::string name = text_of(input.ConsumeRandomLengthString(40));
        if (input.remaining_bytes() == 0) {
            // Of many lengths: every comparison of equal ones is looked at by the fuzzer.
            name = std::string(number % 300, 'n') + std::to_string(number);
        }
        if (!name.empty() && canvas.create_scene(name)) {
            canvas.assign_scene_source(name, text_of(input.ConsumeRandomLengthString(40)));
        }
    }
    canvas.set_active_scene(text_of(input.ConsumeRemainingBytesAsString()));
}

void check_scene_list(FuzzedDataProvider &input, bool any_file) {
    const std::string content = any_file ? input.ConsumeRemainingBytesAsString() : "";
    const std::string file = folder() + "/settings-global.ini";
    write_file(file, content);
    std::vector<std::string> saved;
    with_restored_list([&](VerticalCanvas &canvas) {
        check_damaged(file, content);
        if (!any_file) {
            fill(canvas, input);
        }
        save_scene_list();
        saved = list_of(canvas);
    });
    const bool empty = saved.size() == 1;
    with_restored_list([&](const VerticalCanvas &canvas) {
        check(empty || list_of(canvas) == saved, "the list comes back as it was saved");
        reapply_scene_sources();
        check(empty || list_of(canvas) == saved, "assigning again changes nothing");
    });
}

} // namespace

char *obs_frontend_get_current_profile_path() {
    return bstrdup(folder().c_str());
}

// Takes the place of libobs's function, which knows the folders of loaded modules only.
char *obs_module_get_config_path(obs_module_t *, const char *file) {
    return bstrdup((folder() + "/" + file).c_str());
}

// Takes the place of libobs's function: all vertical scenes share one private scene, since making
// one takes a millisecond here and lists are long.
obs_scene_t *obs_scene_create_private(const char *name) {
    static const auto create = reinterpret_cast<decltype(&obs_scene_create_private)>(
        dlsym(RTLD_NEXT, "obs_scene_create_private"));
    static const OBSSceneAutoRelease scene = create(name);
    return obs_scene_get_ref(scene);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider input(data, size);
    const int kind = input.ConsumeIntegralInRange(0, 2);
    kind == 0 ? check_profile_file(input.ConsumeRemainingBytesAsString())
              : check_scene_list(input, kind == 1);
    return 0;
}
