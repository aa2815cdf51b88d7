// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <callback/calldata.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace corvane {

// The connection of a resilient output, as its procedure "connection_state" reports it.
struct ConnectionState {
    enum class Phase : uint8_t {
        kStopped,
        kConnecting,
        kListening, // for an SRT caller
        kConnected,
        kReconnecting,
        kStalled
    };

    Phase phase = Phase::kStopped;
    uint32_t failures = 0; // in a row
    std::string reason;    // of the last failure; empty without one

    const char *phase_name() const { return kPhaseNames[static_cast<size_t>(phase)]; }

    void write_to(calldata_t *answer) const {
        calldata_set_string(answer, "phase", phase_name());
        calldata_set_int(answer, "failures", failures);
        calldata_set_string(answer, "reason", reason.c_str());
    }

    // An empty answer gives the default state.
    static ConnectionState read_from(const calldata_t *answer) {
        const auto text = [answer](const char *name) {
            const char *value = calldata_string(answer, name);
            return std::string(value ? value : "");
        };
        const auto *const name = std::ranges::find(kPhaseNames, text("phase"));
        return {
            .phase = name == kPhaseNames.end() ? Phase::kStopped
                                               : static_cast<Phase>(name - kPhaseNames.begin()),
            .failures = static_cast<uint32_t>(calldata_int(answer, "failures")),
            .reason = text("reason"),
        };
    }

private:
    // In the order of Phase.
    static constexpr std::array kPhaseNames = {
        "stopped", "connecting", "listening", "connected", "reconnecting", "stalled"};
};

} // namespace corvane
