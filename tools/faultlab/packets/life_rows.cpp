// SPDX-License-Identifier: GPL-2.0-or-later
// Streams that are ended at random moments of one kind.
#include "encoders.hpp"
#include "rig.hpp"
#include "rows.hpp"
#include "server.hpp"
#include "testbed/wait.hpp"

#include <QJsonArray>

#include <algorithm>
#include <format>
#include <random>
#include <stdexcept>

namespace corvane::lab {

namespace {

using namespace std::chrono_literals;

// Brings streams to a moment and the server back from it.
class Moment {
public:
    Moment(const std::string &name, Server &server)
        : name_(name)
        , server_(server) {
        AudioScript::late_frames = name == "holding" ? 1 << 30 : name == "any" ? 5 : 0;
        // Enough to fill whatever lies between the two ends in a moment.
        VideoScript::slice_bytes = name == "stalled" ? 1 << 20 : 400;
    }

    void reach(Rig &rig) {
        if (name_ == "connecting") {
            server_.freeze();
        }
        const uintmax_t before = server_.received();
        if (!rig.start()) {
            throw std::runtime_error("the stream does not start: " + rig.message());
        }
        if (name_ == "stalled" || name_ == "reconnecting") {
            if (!test::wait_until([&] { return server_.received() != before; })) {
                throw std::runtime_error("nothing arrives");
            }
            name_ == "stalled" ? server_.freeze() : server_.kill();
        }
    }

    // What the system holds of the old streams would be taken for the next one.
    void leave() {
        if (name_ == "stalled" || name_ == "connecting") {
            server_.kill();
            server_.start();
        } else if (name_ == "reconnecting") {
            server_.start();
        }
    }

private:
    const std::string name_;
    Server &server_;
};

} // namespace

QJsonObject play_life_row(const std::string &row, const std::string &moment, bool srt, int times,
    const std::string &policy) {
    std::mt19937 random(1);
    std::uniform_int_distribution<int> delay(0, moment == "holding" || moment == "any" ? 400 : 600);
    Server server(srt);
    Moment state(moment, server);
    Milliseconds slowest{0};
    int told_wrong = 0;
    for (int number = 1; number <= times; ++number) {
        Rig rig(policy, server.url(), {0, 1});
        state.reach(rig);
        test::wait_until([] { return false; }, Milliseconds(delay(random)));
        {
            const Watchdog watchdog(std::format("{} {} of {}", row, number, times), 10s);
            slowest = std::max(slowest, row == "stop" ? rig.stop() : rig.destroy());
        }
        if (row == "stop") {
            test::wait_until([&] { return !rig.stops().empty(); }, 1s);
            told_wrong += rig.stops().size() != 1;
        }
        {
            const Watchdog watchdog(std::format("the destruction after stop {}", number), 10s);
            rig.destroy();
        }
        state.leave();
    }
    QJsonArray faults;
    if (policy == "resilient" && slowest > 1s) {
        faults.append(QString("the slowest took %1 ms").arg(slowest.count()));
    }
    if (policy == "resilient" && told_wrong > 0) {
        faults.append(QString("%1 streams did not tell their end once").arg(told_wrong));
    }
    return {
        {"seen", QString("ends %1 times, the slowest after %2 ms").arg(times).arg(slowest.count())},
        {"faults", faults}};
}

} // namespace corvane::lab
