// SPDX-License-Identifier: GPL-2.0-or-later
// Scene lists of any names, and list files of any bytes: what is saved is what comes back.
#include "check.hpp"
#include "host_stand_in.hpp"

#include "canvas/vertical_canvas.hpp"
#include "core/module_state.hpp"
#include "core/scene_list_store.hpp"

#include <obs.hpp>

#include <dlfcn.h>

#include <fuzzer/FuzzedDataProvider.h>

#include <utility>
#include <vector>

using namespace corvane;
using corvane::fuzz::check;
using corvane::fuzz::HostStandIn;

namespace {

constexpr const char *kFile = "settings-global.ini";

// What a list is: name and source of each scene, and the active one.
struct SceneList {
    std::vector<std::pair<std::string, std::string>> scenes;
    std::string active;
    bool operator==(const SceneList &) const = default;
};

SceneList list_of(const VerticalCanvas &canvas) {
    SceneList list;
    list.active = canvas.active_scene_name();
    for (const std::string &name : canvas.scene_names()) {
        list.scenes.emplace_back(name, canvas.scene_source_name(name));
    }
    return list;
}

// A canvas and the global file for as long as the object lives. Without the host's video the
// canvas shows nothing; its list is the same.
class Session {
public:
    explicit Session(const std::string &file) {
        check(config_open(&module_state.global_config, file.c_str(), CONFIG_OPEN_ALWAYS) ==
                  CONFIG_SUCCESS,
            "the file opens");
        module_state.global_config_path = file;
        module_state.canvas = &canvas;
        canvas.create_scene("Scene 1");
    }
    ~Session() {
        module_state.canvas = nullptr;
        config_close(std::exchange(module_state.global_config, nullptr));
    }
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    VerticalCanvas canvas{CanvasConfig{}};
};

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

} // namespace

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
    const bool any_file = input.ConsumeBool();
    const std::string file =
        HostStandIn::get().write(kFile, any_file ? input.ConsumeRemainingBytesAsString() : "");
    SceneList saved;
    {
        Session session(file);
        if (any_file) {
            restore_scene_list();
        } else {
            fill(session.canvas, input);
        }
        saved = list_of(session.canvas);
        save_scene_list();
    }
    const Session session(file);
    restore_scene_list();
    if (!saved.scenes.empty()) {
        check(list_of(session.canvas) == saved, "the list comes back as it was saved");
    }
    reapply_scene_sources();
    check(saved.scenes.empty() || list_of(session.canvas) == saved,
        "assigning again changes nothing");
    return 0;
}
