// SPDX-License-Identifier: GPL-2.0-or-later
// A long stream in a short time.
#include "encoders.hpp"
#include "rig.hpp"
#include "rows.hpp"
#include "server.hpp"
#include "tap.hpp"
#include "testbed/wait.hpp"

#include <QJsonArray>

#include <malloc.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <map>
#include <stdexcept>
#include <thread>

namespace corvane::lab {

namespace {

using namespace std::chrono_literals;

constexpr int kTracks = 2;
constexpr int kFramesAhead = 1200; // of what has arrived, at most; the buffer holds more
constexpr int kFramesKept = 60 * kFramesAhead;
constexpr int kMostGrowthKb = 16 * 1024;

int resident_kb() {
    malloc_trim(0);
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmRSS:")) {
            return std::stoi(line.substr(6));
        }
    }
    return 0;
}

double hours_of(int64_t frames) {
    return static_cast<double>(frames) / 108'000;
}

// Waits until all has arrived; false when nothing does.
bool drained(const Server &server) {
    static uintmax_t earlier = 0;
    const uintmax_t before = std::exchange(earlier, server.received());
    uintmax_t last = 0;
    const auto stands = [&] {
        const bool same = last == server.received() && last != before;
        last = server.received();
        test::wait_until([] { return false; }, 20ms);
        return same;
    };
    const bool arrived = test::wait_until(stands);
    earlier = last;
    return arrived;
}

// References to real packets, to be sent again with other times.
class Templates {
public:
    Templates() {
        Tap::get().set_change([this](encoder_packet &packet) {
            const int kind = packet.type == OBS_ENCODER_AUDIO ? static_cast<int>(packet.track_idx)
                             : packet.keyframe                ? kTracks
                                                              : kTracks + 1;
            if (!packets_.contains(kind)) {
                obs_encoder_packet_ref(&packets_[kind], &packet);
            }
            return packets_.size() < kTracks + 2; // from then on only what is sent from here
        });
    }
    ~Templates() {
        Tap::get().set_change({});
        for (auto &[kind, packet] : packets_) {
            obs_encoder_packet_release(&packet);
        }
    }
    Templates(const Templates &) = delete;
    Templates &operator=(const Templates &) = delete;

    bool complete() const { return packets_.size() == kTracks + 2; }

    void send(int kind, int64_t time) {
        encoder_packet packet = packets_.at(kind);
        packet.pts = packet.dts = time;
        packet.dts_usec = time * 1'000'000 * packet.timebase_num / packet.timebase_den;
        Tap::get().send(&packet);
    }

private:
    std::map<int, encoder_packet> packets_;
};

} // namespace

QJsonObject play_day_row(int hours, const std::string &policy) {
    Server server(false);
    Rig rig(policy, server.url(), {0, 1});
    Templates templates;
    if (!rig.start() ||
        !test::wait_until([&] { return templates.complete() && server.received() > 0; })) {
        throw std::runtime_error("the stream does not start: " + rig.message());
    }
    const int64_t frames = int64_t{hours} * 3600 * 30;
    int early_kb = 0;
    int64_t sound = 0;
    for (int64_t frame = 60; frame < frames && rig.active(); ++frame) {
        templates.send(frame % 15 == 0 ? kTracks : kTracks + 1, frame);
        for (; sound * 1024 * 30 < (frame - 59) * 48000; ++sound) {
            for (int track = 0; track < kTracks; ++track) {
                templates.send(track, sound * 1024 + 96'000);
            }
        }
        if (frame % kFramesAhead == 0 && rig.active() && !drained(server)) {
            return {{"seen", QString("nothing arrives any more after %1 h").arg(hours_of(frame))}};
        }
        if (frame % kFramesKept == 0) {
            server.forget();
        }
        if (frame == frames / 10) {
            early_kb = resident_kb();
        }
    }
    drained(server);
    const int late_kb = resident_kb();
    const bool lasted = rig.active();
    {
        const Watchdog watchdog("the stop", 10s);
        rig.stop();
    }
    QJsonArray faults;
    if (late_kb - early_kb > kMostGrowthKb) {
        faults.append(QString("memory grew by %1 KB").arg(late_kb - early_kb));
    }
    return {{"seen", lasted ? QString("streams on for %1 h").arg(hours) : QString("stops")},
        {"faults", faults}, {"message", QString::fromStdString(rig.message())},
        {"more", QJsonObject{{"memory_growth_kb", late_kb - early_kb}}}};
}

} // namespace corvane::lab
