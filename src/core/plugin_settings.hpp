// SPDX-License-Identifier: GPL-2.0-or-later
// The keys that the module keeps in the host's config files, each with its type and default.
// Defaults, getters and setters all follow from this one description.
#pragma once

#include "core/module_state.hpp"

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

    // The stored value, else the default, also when the file is not open. A string belongs to
    // the file and lives until the key is set again or the file closed.
    T get() const {
        config_t *config = module_state.*File;
        return config ? static_cast<T>(Calls::kGet(config, section, name)) : fallback;
    }

    // Does nothing when the file is not open or a string is null. Never saves.
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

    // Whether the file holds a value of its own for the key, so that the default is not meant.
    bool written() const {
        config_t *config = module_state.*File;
        return config && config_has_user_value(config, section, name);
    }

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
// the runtime is created; the stream's reach the live output with every save.
inline const ProfileKey<const char *> rtmpurl{"rtmpurl", ""};
inline const ProfileKey<const char *> streamkey{"streamkey", ""};
inline const ProfileKey<uint32_t> videobitrate{"videobitrate", 4000}; // kbit/s
inline const ProfileKey<uint32_t> canvaswidth{"canvaswidth", 1080};
inline const ProfileKey<uint32_t> canvasheight{"canvasheight", 1920};
inline const ProfileKey<uint32_t> fpsnum{"fpsnum", 30};
inline const ProfileKey<uint32_t> fpsden{"fpsden", 1};
inline const ProfileKey<bool> autostartwithmain{"autostartwithmain", true};
inline const ProfileKey<const char *> encoderpreset{"encoderpreset", "veryfast"};
inline const ProfileKey<bool> useactivesceneaudio{"useactivesceneaudio", true};

// The output type that keeps the connection, per profile and in the file only; read when the
// runtime is created. Has no registered default, which the config library would write into every
// file: what is missing reads as false.
inline const ProfileKey<bool> resilience{"enabled", false, "Resilience"};

// DockState: where the dock was, for all profiles. The area is the toolkit's number, 2 the right
// side; the geometry is base64.
inline const GlobalKey<bool> dockvisible{"dockvisible", true};
inline const GlobalKey<bool> dockfloating{"dockfloating", true};
inline const GlobalKey<int32_t> dockarea{"dockarea", 2};
inline const GlobalKey<const char *> dockgeometry{"dockgeometry", ""};

template <typename... Keys>
void register_defaults(const Keys &...keys) {
    (keys.register_default(), ...);
}

// Register the defaults of an open file, in the order of the description.
inline void register_profile_defaults() {
    register_defaults(rtmpurl, streamkey, videobitrate, canvaswidth, canvasheight, fpsnum, fpsden,
        autostartwithmain, encoderpreset, useactivesceneaudio);
}

inline void register_global_defaults() {
    register_defaults(dockvisible, dockfloating, dockarea, dockgeometry);
}

} // namespace corvane::settings
