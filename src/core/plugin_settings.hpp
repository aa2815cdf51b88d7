// SPDX-License-Identifier: GPL-2.0-or-later
// The keys in the module's config files, each with its type and default. Defaults, getters and
// setters all follow from this one description.
#pragma once

#include "canvas/canvas_config.hpp"
#include "core/module_state.hpp"
#include "output/output_config.hpp"

#include <cstdint>
#include <type_traits>

namespace corvane::settings {

// The section of most keys, in both files.
inline constexpr const char *kSection = "VerticalCanvas";

// The config library's calls for each type of value.
template <typename T>
struct ConfigCalls;

template <>
struct ConfigCalls<bool> {
    static constexpr auto kGet = config_get_bool;
    static constexpr auto kSet = config_set_bool;
    static constexpr auto kSetDefault = config_set_default_bool;
};

template <>
struct ConfigCalls<uint32_t> {
    static constexpr auto kGet = config_get_uint;
    static constexpr auto kSet = config_set_uint;
    static constexpr auto kSetDefault = config_set_default_uint;
};

template <>
struct ConfigCalls<int32_t> {
    static constexpr auto kGet = config_get_int;
    static constexpr auto kSet = config_set_int;
    static constexpr auto kSetDefault = config_set_default_int;
};

template <>
struct ConfigCalls<const char *> {
    static constexpr auto kGet = config_get_string;
    static constexpr auto kSet = config_set_string;
    static constexpr auto kSetDefault = config_set_default_string;
};

// One key of one of the two files. Takes no lock.
template <typename T, config_t *ModuleState::*File>
struct Key {
    const char *name;
    T fallback;
    const char *section = kSection;

    // The stored value; the default without one or without an open file. A string belongs to the
    // file and is valid until the key is set again or the file is closed.
    T get() const {
        config_t *config = module_state.*File;
        return config ? static_cast<T>(Calls::kGet(config, section, name)) : fallback;
    }

    // Does nothing without an open file or for a null string. Never saves.
    void set(T value) const {
        if constexpr (std::is_pointer_v<T>) {
            if (!value) {
                return;
            }
        }
        if (config_t *config = module_state.*File) {
            Calls::kSet(config, section, name, value);
        }
    }

    // Whether the file itself has a value for the key.
    bool written() const {
        config_t *config = module_state.*File;
        return config && config_has_user_value(config, section, name);
    }

    // The file must be open.
    void register_default() const {
        Calls::kSetDefault(module_state.*File, section, name, fallback);
    }

private:
    using Calls = ConfigCalls<T>;
};

template <typename T>
using ProfileKey = Key<T, &ModuleState::profile_config>;
template <typename T>
using GlobalKey = Key<T, &ModuleState::global_config>;

// PluginConfig: the stream and the canvas, per profile. The canvas's five values are read only when
// the runtime is created; the stream's values are passed to the output with every save.
inline const ProfileKey<const char *> rtmpurl{"rtmpurl", ""};
inline const ProfileKey<const char *> streamkey{"streamkey", ""};
inline const ProfileKey<uint32_t> videobitrate{"videobitrate", OutputConfig::kDefaultBitrateKbps};
inline const ProfileKey<uint32_t> canvaswidth{"canvaswidth", CanvasConfig{}.width};
inline const ProfileKey<uint32_t> canvasheight{"canvasheight", CanvasConfig{}.height};
inline const ProfileKey<uint32_t> fpsnum{"fpsnum", CanvasConfig{}.fps_num};
inline const ProfileKey<uint32_t> fpsden{"fpsden", CanvasConfig{}.fps_den};
inline const ProfileKey<bool> autostartwithmain{"autostartwithmain", true};
inline const ProfileKey<const char *> encoderpreset{"encoderpreset", OutputConfig::kDefaultPreset};
inline const ProfileKey<bool> useactivesceneaudio{
    "useactivesceneaudio", CanvasConfig{}.use_active_scene_audio};

// Selects the resilient output type; an entry of the Tools menu. Read when the runtime is created.
// No default is registered, since the config library would write it into every file: a missing key
// reads as false.
inline const ProfileKey<bool> resilience{"enabled", false, "Resilience"};

// The keys of the Tools menu's options, like the one above. How many of the host's audio tracks are
// sent, 1 to 6; 0, as a missing key reads, means all.
inline const ProfileKey<uint32_t> audiotracks{"audiotracks", 0, "Options"};

// Whether the active vertical scene follows the host's program scene.
inline const ProfileKey<bool> followprogram{"followprogram", false, "Options"};

// DockState: the dock's placement, for all profiles. The area is a Qt::DockWidgetArea (2 is right),
// the geometry base64.
inline const GlobalKey<bool> dockvisible{"dockvisible", true};
inline const GlobalKey<bool> dockfloating{"dockfloating", true};
inline const GlobalKey<int32_t> dockarea{"dockarea", 2};
inline const GlobalKey<const char *> dockgeometry{"dockgeometry", ""};

template <typename... Keys>
void register_defaults(const Keys &...keys) {
    (keys.register_default(), ...);
}

// Register the defaults of an open file.
inline void register_profile_defaults() {
    register_defaults(rtmpurl, streamkey, videobitrate, canvaswidth, canvasheight, fpsnum, fpsden,
        autostartwithmain, encoderpreset, useactivesceneaudio);
}

inline void register_global_defaults() {
    register_defaults(dockvisible, dockfloating, dockarea, dockgeometry);
}

} // namespace corvane::settings
