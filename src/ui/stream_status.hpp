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

    bool active() const { return state_.active; }
    bool live() const { return live_; }
    const QString &text() const { return text_; }

    // The reason of a disturbance and figures of the running stream, one a line; empty without one.
    QString details() const;

private:
    using Clock = std::chrono::steady_clock;

    void describe();
    double kilobits_per_second() const;

    VerticalOutput::State state_;
    QString text_;
    QString reason_; // why a started stream is not live
    bool live_ = false;
    std::deque<std::pair<Clock::time_point, uint64_t>> bytes_; // of the last seconds
};

} // namespace corvane
