// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <QJsonObject>

#include <string>

namespace corvane::lab {

// Each plays one row and returns the fields of its result. Throw when the row cannot be played.

// ROW is a fault of packets or encoders.
QJsonObject play_packet_row(const std::string &row, bool srt, const std::string &policy);

// ROW is "stop" or "destroy", MOMENT "connecting", "stalled", "reconnecting", "holding" or "any".
QJsonObject play_life_row(const std::string &row, const std::string &moment, bool srt, int times,
    const std::string &policy);

// So many hours of packets as fast as they go.
QJsonObject play_day_row(int hours, const std::string &policy);

} // namespace corvane::lab
