// SPDX-License-Identifier: GPL-2.0-or-later
#include "ui/stream_status.hpp"

#include <QStringList>

namespace corvane {

namespace {

constexpr std::chrono::seconds kBitrateSpan{5};

QString as_clock(std::chrono::seconds time) {
    const auto seconds = time.count();
    return QStringLiteral("%1:%2:%3")
        .arg(seconds / 3600)
        .arg(seconds / 60 % 60, 2, 10, QLatin1Char('0'))
        .arg(seconds % 60, 2, 10, QLatin1Char('0'));
}

} // namespace

void StreamStatus::update(const VerticalOutput *output) {
    state_ = output ? output->state() : VerticalOutput::State{};
    text_ = output ? QStringLiteral("Stopped") : QStringLiteral("No output");
    reason_.clear();
    live_ = false;
    if (!state_.active) {
        bytes_.clear();
        return;
    }
    const auto now = Clock::now();
    bytes_.emplace_back(now, state_.total_bytes);
    while (now - bytes_.front().first > kBitrateSpan) {
        bytes_.pop_front();
    }
    describe();
}

// The standard output type does not report its connection: it counts as live while it runs.
void StreamStatus::describe() {
    using enum ConnectionState::Phase;
    switch (state_.connection ? state_.connection->phase : kConnected) {
    case kStopped: // ending
        break;
    case kConnecting:
        text_ = QStringLiteral("Connecting");
        break;
    case kListening:
        text_ = QStringLiteral("Waiting for a caller");
        reason_ = QStringLiteral("The stream begins when somebody connects to this SRT listener");
        break;
    case kReconnecting:
        text_ = QStringLiteral("Reconnecting (%1)").arg(state_.connection->failures);
        reason_ = QString::fromStdString(state_.connection->reason);
        break;
    case kStalled:
        text_ = QStringLiteral("Encoder stalled");
        reason_ = QStringLiteral("No packet from the encoders for 10 s");
        break;
    case kConnected:
        text_ = QStringLiteral("Streaming");
        live_ = true;
        break;
    }
}

double StreamStatus::kilobits_per_second() const {
    const auto &[from, earlier] = bytes_.front();
    const auto &[to, total] = bytes_.back();
    const double seconds = std::chrono::duration<double>(to - from).count();
    return seconds > 0 && total > earlier
               ? static_cast<double>(total - earlier) * 8 / 1000 / seconds
               : 0;
}

QString StreamStatus::details() const {
    if (!state_.active) {
        return {};
    }
    QStringList lines;
    if (!reason_.isEmpty()) {
        lines << reason_;
    }
    lines << QStringLiteral("On air for %1").arg(as_clock(state_.on_air));
    // The standard output type has no statistics.
    if (state_.connection) {
        lines << QStringLiteral("%1 kbit/s, %2 frames dropped")
                     .arg(qRound(kilobits_per_second()))
                     .arg(state_.dropped_frames);
    }
    lines << QStringLiteral("Encoder: %1").arg(QString::fromStdString(state_.encoder));
    lines << QStringLiteral("Reconnects automatically: %1")
                 .arg(state_.connection ? QStringLiteral("yes") : QStringLiteral("no"));
    lines << QStringLiteral("To %1").arg(QString::fromStdString(state_.destination));
    return lines.join(QLatin1Char('\n'));
}

} // namespace corvane
