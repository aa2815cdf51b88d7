// SPDX-License-Identifier: GPL-2.0-or-later
#include "core/options.hpp"

#include "base/log.hpp"
#include "core/config_files.hpp"
#include "core/module_state.hpp"
#include "core/plugin_settings.hpp"
#include "core/runtime.hpp"
#include "output/vertical_output.hpp"

#include <algorithm>

namespace corvane {

bool reconnects() {
    return settings::resilience.get();
}

bool set_reconnects(bool enabled) {
    const std::scoped_lock lock(module_state.runtime_mutex);
    settings::resilience.set(enabled);
    save_profile_file();
    return apply_reconnects();
}

bool apply_reconnects() {
    const std::scoped_lock lock(module_state.runtime_mutex);
    const VerticalOutput *output = module_state.output;
    if (!output || output->resilient() == reconnects()) {
        return true;
    }
    if (output->is_active()) {
        return false;
    }
    log_info(
        "Reconnect Automatically %s — rebuilding vertical runtime", reconnects() ? "on" : "off");
    destroy_runtime(/*save_scenes=*/true);
    if (!create_and_show_runtime()) {
        log_error("Failed to rebuild vertical runtime — restart OBS");
    }
    return true;
}

bool follows_program() {
    return settings::followprogram.get();
}

void set_follows_program(bool enabled) {
    const std::scoped_lock lock(module_state.runtime_mutex);
    settings::followprogram.set(enabled);
    save_profile_file();
}

uint32_t audio_tracks() {
    const uint32_t stored = settings::audiotracks.get();
    return stored == 0 ? OutputConfig::kMaxAudioTracks
                       : std::min(stored, OutputConfig::kMaxAudioTracks);
}

bool sends_first_track_only() {
    return settings::audiotracks.get() == 1;
}

void set_sends_first_track_only(bool enabled) {
    settings::audiotracks.set(enabled ? 1 : OutputConfig::kMaxAudioTracks);
    save_profile_config();
}

} // namespace corvane
