// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "output/vertical_output.hpp"

#include <QString>

#include <chrono>
#include <cstdint>
#include <deque>
#include <utility>

namespace corvane {

// The dock's words for the state of the vertical stream.
class StreamStatus {
public:
    // Reads the state; call it regularly, since the bitrate is that of the last seconds. Without an
    // output the text says so.
    void update(const VerticalOutput *output);

    bool active() const { return stream.active; }
    bool live() const { return isLive; }
    const QString &text() const { return shownText; }

    // The reason of a disturbance and figures of the running stream, one a line; empty without one.
    QString details() const;

private:
    using Clock = std::chrono::steady_clock;

    void describe();
    double kilobits_per_second() const;

    VerticalOutput::State stream;
    QString shownText;
    QString disturbance; // why a started stream is not live
    bool isLive = false;
    std::deque<std::pair<Clock::time_point, uint64_t>> bytesSent; // of the last seconds
};

} // namespace corvane
