// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <obs.hpp>

#include <QJsonDocument>

#include <string>
#include <vector>

namespace corvane::test {

// All encoders / outputs that the host knows.
inline std::vector<OBSEncoder> encoders() {
    std::vector<OBSEncoder> found;
    const auto add = [](void *list, obs_encoder_t *encoder) {
        static_cast<std::vector<OBSEncoder> *>(list)->emplace_back(encoder);
        return true;
    };
    obs_enum_encoders(add, &found);
    return found;
}

inline std::vector<OBSOutput> outputs() {
    std::vector<OBSOutput> found;
    const auto add = [](void *list, obs_output_t *output) {
        static_cast<std::vector<OBSOutput> *>(list)->emplace_back(output);
        return true;
    };
    obs_enum_outputs(add, &found);
    return found;
}

// All that was set on the object, none of its type's defaults, in alphabetical order.
inline std::string own_settings(obs_data_t *settings) {
    const OBSDataAutoRelease owned = settings;
    return QJsonDocument::fromJson(obs_data_get_json(owned))
        .toJson(QJsonDocument::Compact)
        .toStdString();
}

// The one item of a vertical scene, which the host lists nowhere but here.
inline OBSSceneItem only_item(const std::string &scene_name) {
    struct Search {
        std::string name;
        std::vector<OBSSceneItem> items;
    } search{scene_name, {}};
    const auto visit = [](void *data, obs_source_t *source) {
        auto *found = static_cast<Search *>(data);
        if (obs_obj_is_private(source) && found->name == obs_source_get_name(source)) {
            const auto add = [](obs_scene_t *, obs_sceneitem_t *item, void *items) {
                static_cast<std::vector<OBSSceneItem> *>(items)->emplace_back(item);
                return true;
            };
            obs_scene_enum_items(obs_scene_from_source(source), add, &found->items);
        }
        return true;
    };
    obs_enum_all_sources(visit, &search);
    return search.items.size() == 1 ? search.items.front() : OBSSceneItem();
}

} // namespace corvane::test
