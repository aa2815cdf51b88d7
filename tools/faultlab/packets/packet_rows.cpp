// SPDX-License-Identifier: GPL-2.0-or-later
// Faults of single packets and of encoders, in a stream that runs.
#include "encoders.hpp"
#include "rig.hpp"
#include "rows.hpp"
#include "server.hpp"
#include "tap.hpp"
#include "testbed/wait.hpp"

extern "C" {
#include <libavutil/avutil.h>
}

#include <QJsonArray>

#include <functional>
#include <map>
#include <stdexcept>
#include <thread>

namespace corvane::lab {

namespace {

using namespace std::chrono_literals;

constexpr Milliseconds kWatch = 4s; // how long the stream is watched after the fault
constexpr Milliseconds kHeaderWatch = 12s;
constexpr size_t kSilentSlot = 2;

// In units of the packet's own time base.
int64_t ticks(const encoder_packet &packet, double seconds) {
    return static_cast<int64_t>(seconds * packet.timebase_den / packet.timebase_num);
}

void shift(encoder_packet &packet, double seconds) {
    packet.pts += ticks(packet, seconds);
    packet.dts += ticks(packet, seconds);
}

void change_all(std::function<void(encoder_packet &)> change) {
    Tap::get().set_change([change = std::move(change)](encoder_packet &packet) {
        change(packet);
        return true;
    });
}

void silence_track() {
    Tap::get().set_change([](const encoder_packet &packet) {
        return packet.type == OBS_ENCODER_VIDEO || packet.track_idx != kSilentSlot;
    });
}

// What a row does before its stream starts and, once pictures arrive, to the running stream.
struct Fault {
    std::function<void()> before;
    std::function<void()> during;
};

Fault oddity(char kind) {
    return {{}, [kind] {
                VideoScript::oddity = kind;
                if (kind == 'b') { // one is enough
                    test::wait_until([] { return false; }, 50ms);
                    VideoScript::oddity = 0;
                }
            }};
}

const std::map<std::string, Fault> faults_by_name = {
    {"encoder-fails", {{}, [] { VideoScript::fails = true; }}},
    {"null-packet", {{}, [] { Tap::get().send(nullptr); }}},
    {"silent-track", {{}, silence_track}},
    {"silent-from-start", {silence_track, {}}},
    {"late-headers", {[] { AudioScript::late_frames = 60; }, {}}},
    {"no-headers", {[] { AudioScript::late_frames = 1 << 30; }, {}}},
    {"track-gap", {}},
    {"no-times", {{},
                     [] {
                         change_all([](encoder_packet &packet) {
                             packet.pts = packet.dts = AV_NOPTS_VALUE;
                         });
                     }}},
    {"times-back", {{}, [] { change_all([](encoder_packet &packet) { shift(packet, -10); }); }}},
    {"times-equal", {{},
                        [] {
                            change_all([](encoder_packet &packet) {
                                packet.pts = packet.dts = ticks(packet, 2);
                            });
                        }}},
    {"times-huge", {{},
                       [] {
                           change_all([](encoder_packet &packet) {
                               shift(packet, 2.0 * (1LL << 33U) / 90000);
                           });
                       }}},
    {"empty-packets", oddity('e')},
    {"four-bytes", oddity('4')},
    {"short-start-code", oddity('s')},
    {"20-mb", oddity('b')},
};

std::string outcome(Rig &rig, const Server &server, Milliseconds watch) {
    const uintmax_t before = server.received();
    test::wait_until([&] { return !rig.active(); }, watch);
    if (!rig.active()) {
        return "stops";
    }
    const uintmax_t middle = server.received();
    test::wait_until([&] { return server.received() > middle; }, 1s);
    return server.received() == middle
               ? (middle == before ? "nothing arrives" : "nothing arrives any more")
               : "streams on";
}

} // namespace

QJsonObject play_packet_row(const std::string &row, bool srt, const std::string &policy) {
    const Fault &fault = faults_by_name.at(row);
    if (fault.before) {
        fault.before();
    }
    const Server server(srt);
    Rig rig(policy, server.url(),
        row == "track-gap" ? std::vector<size_t>{0, 2, 5} : std::vector<size_t>{0, 1, 2});
    if (!rig.start()) {
        throw std::runtime_error("the stream does not start: " + rig.message());
    }
    if (fault.during) {
        if (!test::wait_until([&] { return server.received() > 20'000; })) {
            throw std::runtime_error("nothing arrives before the fault");
        }
        const Watchdog watchdog("the fault", 20s);
        fault.during();
    }
    const std::string seen = outcome(rig, server, row == "no-headers" ? kHeaderWatch : kWatch);
    QJsonArray faults;
    if (rig.active()) {
        const Watchdog watchdog("the stop, though it " + seen, 10s);
        const auto took = rig.stop();
        if (policy == "resilient" && took > 1s) {
            faults.append(QString("the stop took %1 ms").arg(took.count()));
        }
    }
    // Signals that follow the end of the stream are told on other threads.
    test::wait_until([] { return false; }, 200ms);
    QJsonArray stops;
    for (const int code : rig.stops()) {
        stops.append(code);
    }
    if (policy == "resilient" && stops.size() != 1) {
        faults.append(QString("%1 stop signals").arg(stops.size()));
    }
    const QString message = QString::fromStdString(rig.message());
    Tap::get().set_change({});
    const Watchdog watchdog("the destruction, though it " + seen, 10s);
    rig.destroy();
    return {{"seen", QString::fromStdString(seen)}, {"stops", stops}, {"message", message},
        {"faults", faults}};
}

} // namespace corvane::lab
