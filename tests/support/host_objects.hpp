// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "support/obs_session.hpp"

#include <obs.hpp>

#include <cstdint>
#include <vector>

namespace corvane::test {

// All that one of libobs's functions enumerates, such as all<OBSOutput>(obs_enum_outputs).
template <typename Handle, typename Enumerate>
std::vector<Handle> all(Enumerate enumerate) {
    std::vector<Handle> found;
    const auto add = [](void *list, auto *object) {
        static_cast<std::vector<Handle> *>(list)->emplace_back(object);
        return true;
    };
    enumerate(add, &found);
    return found;
}

// A plane of one colour, 0xAABBGGRR.
inline OBSSourceAutoRelease make_color(const char *name, int width, int height, uint32_t abgr) {
    const OBSDataAutoRelease settings = obs_data_create();
    obs_data_set_int(settings, "width", width);
    obs_data_set_int(settings, "height", height);
    obs_data_set_int(settings, "color", abgr);
    return obs_source_create("color_source_v3", name, settings, nullptr);
}

// One of the user's scenes. The host keeps a reference of its own until the scene is removed.
class HostScene {
public:
    explicit HostScene(const char *name)
        : scene_(obs_scene_create(name)) {}
    ~HostScene() {
        obs_source_remove(source());
        scene_ = nullptr;
        ObsSession::destroy_released_sources();
    }
    HostScene(const HostScene &) = delete;
    HostScene &operator=(const HostScene &) = delete;

    obs_scene_t *scene() const { return scene_; }
    obs_source_t *source() const { return obs_scene_get_source(scene_); }

private:
    OBSSceneAutoRelease scene_;
};

} // namespace corvane::test
