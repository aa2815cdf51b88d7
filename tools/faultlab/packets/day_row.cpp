// SPDX-License-Identifier: GPL-2.0-or-later
// A long stream in a short time.
#include "encoders.hpp"
#include "rig.hpp"
#include "rows.hpp"
#include "server.hpp"
#include "tap.hpp"
#include "testbed/wait.hpp"

#include <QJsonArray>

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
constexpr int kPacketsAhead = 2000; // of what has arrived
constexpr int kMostGrowthKb = 16 * 1024;

int resident_kb() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmRSS:")) {
            return std::stoi(line.substr(6));
        }
    }
    return 0;
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
        !test::wait_until([&] { return templates.complete() && server.received() > 2000; })) {
        throw std::runtime_error("the stream does not start: " + rig.message());
    }
    const int64_t frames = int64_t{hours} * 3600 * 30;
    const uintmax_t begin = server.received();
    uintmax_t bytes_per_frame = 0;
    int early_kb = 0;
    int late_kb = 0;
    int64_t sound = 0;
    for (int64_t frame = 60; frame < frames && rig.active(); ++frame) {
        templates.send(frame % 15 == 0 ? kTracks : kTracks + 1, frame);
        for (; sound * 1024 * 30 < (frame - 59) * 48000; ++sound) {
            for (int track = 0; track < kTracks; ++track) {
                templates.send(track, sound * 1024 + 96'000);
            }
        }
        if (frame == 60 + kPacketsAhead) {
            // How much a frame with its sound takes on the way.
            uintmax_t before = 0;
            test::wait_until([&] {
                return std::exchange(before, server.received()) == server.received() &&
                       before > begin;
            });
            test::wait_until([] { return false; }, 1s);
            bytes_per_frame = (server.received() - begin) / kPacketsAhead;
        } else if (bytes_per_frame > 0 && frame % 500 == 0) {
            const auto sent = static_cast<uintmax_t>(frame - 60) * bytes_per_frame;
            if (!test::wait_until([&] {
                    return server.received() - begin + kPacketsAhead * bytes_per_frame > sent ||
                           !rig.active();
                })) {
                return {{"seen", QString("nothing arrives any more after %1 h")
                                     .arg(static_cast<double>(frame) / 108'000)}};
            }
            if (frame % 50'000 == 0) {
                server.forget();
            }
        }
        if (frame == frames / 10) {
            early_kb = resident_kb();
        }
    }
    late_kb = resident_kb();
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
