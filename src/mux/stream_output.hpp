// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <obs.h>

namespace corvane {

// What libobs asks of an output of either type. See the two types for their threads and locks.
class StreamOutput {
public:
    virtual ~StreamOutput() = default;

    // Takes new settings, which count from the next connection on.
    virtual void update(obs_data_t *settings) = 0;

    // False, with the output's last error set, without an address or when capture cannot begin.
    virtual bool start() = 0;

    // `forced` when libobs does not wait for a good moment: at a destruction, and for an encoder
    // that failed, which encoded_packet() is then told, too.
    virtual void stop(bool forced) = 0;

    // libobs's encoder threads; null when an encoder failed.
    virtual void encoded_packet(const encoder_packet *packet) = 0;
};

} // namespace corvane
