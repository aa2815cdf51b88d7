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
    stream = output ? output->state() : VerticalOutput::State{};
    shownText = output ? QStringLiteral("Stopped") : QStringLiteral("No output");
    disturbance.clear();
    isLive = false;
    if (!stream.active) {
        bytesSent.clear();
        return;
    }
    const auto now = Clock::now();
    bytesSent.emplace_back(now, stream.total_bytes);
    while (now - bytesSent.front().first > kBitrateSpan) {
        bytesSent.pop_front();
    }
    describe();
}

// The standard output type does not report its connection: it counts as live while it runs.
void StreamStatus::describe() {
    using enum ConnectionState::Phase;
    const ConnectionState connection = stream.connection.value_or(
        ConnectionState{.phase = kConnected, .failures = 0, .reason = {}});
    switch (connection.phase) {
    case kStopped: // ending
        break;
    case kConnecting:
        shownText = QStringLiteral("Connecting");
        break;
    case kListening:
        shownText = QStringLiteral("Waiting for a caller");
        disturbance =
            QStringLiteral("The stream begins when somebody connects to this SRT listener");
        break;
    case kReconnecting:
        shownText = QStringLiteral("Reconnecting (%1)").arg(connection.failures);
        disturbance = QString::fromStdString(connection.reason);
        break;
    case kStalled:
        shownText = QStringLiteral("Encoder stalled");
        disturbance = QStringLiteral("No packet from the encoders for 10 s");
        break;
    case kConnected:
        shownText = QStringLiteral("Streaming");
        isLive = true;
        break;
    }
}

double StreamStatus::kilobits_per_second() const {
    const auto &[from, earlier] = bytesSent.front();
    const auto &[to, total] = bytesSent.back();
    const double seconds = std::chrono::duration<double>(to - from).count();
    return seconds > 0 && total > earlier
               ? static_cast<double>(total - earlier) * 8 / 1000 / seconds
               : 0;
}

QString StreamStatus::details() const {
    if (!stream.active) {
        return {};
    }
    QStringList lines;
    if (!disturbance.isEmpty()) {
        lines << disturbance;
    }
    lines << QStringLiteral("On air for %1").arg(as_clock(stream.on_air));
    // The standard output type has no statistics.
    if (stream.connection) {
        lines << QStringLiteral("%1 kbit/s, %2 frames dropped")
                     .arg(qRound(kilobits_per_second()))
                     .arg(stream.dropped_frames);
    }
    lines << QStringLiteral("Encoder: %1").arg(QString::fromStdString(stream.encoder));
    lines << QStringLiteral("Reconnects automatically: %1")
                 .arg(stream.connection ? QStringLiteral("yes") : QStringLiteral("no"));
    lines << QStringLiteral("To %1").arg(QString::fromStdString(stream.destination));
    return lines.join(QLatin1Char('\n'));
}

} // namespace corvane
