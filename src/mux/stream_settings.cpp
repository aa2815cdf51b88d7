// SPDX-License-Identifier: GPL-2.0-or-later
#include "mux/stream_settings.hpp"

namespace corvane {

void StreamSettings::read(obs_data_t *settings) {
    const char *server = obs_data_get_string(settings, "server");
    const char *key = obs_data_get_string(settings, "key");
    url = build_stream_url(server ? server : "", key ? key : "");
    const long long num = obs_data_get_int(settings, "fps_num");
    const long long den = obs_data_get_int(settings, "fps_den");
    if (num > 0) {
        frame_rate.num = static_cast<uint32_t>(num);
    }
    if (den >= 1) {
        frame_rate.den = static_cast<uint32_t>(den);
    }
}

} // namespace corvane
