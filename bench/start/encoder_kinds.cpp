// SPDX-License-Identifier: GPL-2.0-or-later
#include "encoder_kinds.hpp"

#include "testbed/scripted_encoder.hpp"

#include <deque>
#include <stdexcept>

namespace corvane::bench {

namespace {

using test::ScriptedEncoder;

obs_encoder_info info_of(const std::string &kind) {
    obs_encoder_info info = {};
    info.type = OBS_ENCODER_VIDEO;
    info.codec = "h264";
    info.get_name = [](void *) {
        return "Stand-in";
    };
    info.create = [](obs_data_t *, obs_encoder_t *) -> void * {
        return nullptr;
    };
    info.destroy = [](void *data) {
        delete static_cast<ScriptedEncoder *>(data);
    };
    info.encode = ScriptedEncoder::encode;
    info.get_extra_data = ScriptedEncoder::get_extra_data;
    if (kind == "works") {
        info.create = [](obs_data_t *, obs_encoder_t *) -> void * {
            return new ScriptedEncoder;
        };
    } else if (kind == "refused") {
        // libobs makes no video encoder of a sound encoder's id.
        info.type = OBS_ENCODER_AUDIO;
        info.get_frame_size = [](void *) -> size_t {
            return 1024;
        };
    } else if (kind != "fails") {
        throw std::runtime_error("no such kind of encoder: " + kind);
    }
    return info;
}

} // namespace

void register_encoder(const std::string &id, const std::string &kind) {
    static std::deque<std::string> ids; // libobs keeps the pointers
    obs_encoder_info info = info_of(kind);
    info.id = ids.emplace_back(id).c_str();
    obs_register_encoder_s(&info, sizeof(info));
}

} // namespace corvane::bench
