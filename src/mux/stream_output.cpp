// SPDX-License-Identifier: GPL-2.0-or-later
#include "mux/stream_output.hpp"

namespace corvane {

bool prepare_capture(obs_output_t *output) {
    if (!obs_output_can_begin_data_capture(output, kVideoAndAudio)) {
        obs_output_set_last_error(output, "obs_output_can_begin_data_capture failed");
        return false;
    }
    if (!obs_output_initialize_encoders(output, kVideoAndAudio)) {
        obs_output_set_last_error(output, "obs_output_initialize_encoders failed");
        return false;
    }
    return true;
}

} // namespace corvane
