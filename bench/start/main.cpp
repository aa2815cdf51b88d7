// SPDX-License-Identifier: GPL-2.0-or-later
// usage: start_bench PREFERRED KEY STARTS [ID=KIND...]
// Starts the vertical stream of the default format so many times, each with a new output, to a
// real server behind a relay. IDs are encoders that libobs is to know besides its own. The last
// line is the result, with all times in ms from the call.
#include "canvas/vertical_canvas.hpp"
#include "encoder_kinds.hpp"
#include "mux/output_type.hpp"
#include "output/vertical_output.hpp"
#include "relay.hpp"
#include "testbed/local_sink.hpp"
#include "testbed/log_capture.hpp"
#include "testbed/obs_session.hpp"
#include "testbed/wait.hpp"

#include <QApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QUrl>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace corvane::bench {

namespace {

constexpr std::string_view kTrying = "I Trying vertical output encoder: ";
constexpr std::string_view kOpened = "I mux opened: ";

// The module's lines with their times. They come from several threads, all of which have ended
// before it does.
class TimedLog {
public:
    TimedLog() {
        test::LogCapture::get().at_each_line([this](const std::string &line) {
            const std::scoped_lock lock(mutex_);
            lines_.emplace_back(Clock::now(), line);
        });
    }
    ~TimedLog() { test::LogCapture::get().at_each_line({}); }
    TimedLog(const TimedLog &) = delete;
    TimedLog &operator=(const TimedLog &) = delete;

    void forget() {
        const std::scoped_lock lock(mutex_);
        lines_.clear();
    }

    // Those that begin with the text.
    std::vector<std::pair<Clock::time_point, std::string>> find(std::string_view text) {
        const std::scoped_lock lock(mutex_);
        auto found = lines_;
        std::erase_if(found, [&](const auto &line) { return !line.second.starts_with(text); });
        return found;
    }

private:
    std::mutex mutex_; // guards lines_
    std::vector<std::pair<Clock::time_point, std::string>> lines_;
};

double ms(Clock::duration time) {
    return std::chrono::duration<double, std::milli>(time).count();
}

// Each candidate lasts until the next one is tried, the last until the call returns.
QJsonArray candidates(TimedLog &log, Clock::time_point returned) {
    QJsonArray tried;
    const auto lines = log.find(kTrying);
    for (size_t i = 0; i < lines.size(); ++i) {
        const auto &[begin, line] = lines[i];
        const auto end = i + 1 < lines.size() ? lines[i + 1].first : returned;
        tried.append(QJsonObject{
            {"id", QString::fromStdString(line.substr(kTrying.size()))}, {"ms", ms(end - begin)}});
    }
    return tried;
}

QJsonObject measure_start(
    VerticalCanvas &canvas, const OutputConfig &config, Relay &relay, TimedLog &log) {
    VerticalOutput output(&canvas, config);
    output.init();
    relay.forget();
    log.forget();
    const auto begin = Clock::now();
    const bool started = output.start();
    const auto returned = Clock::now();
    QJsonObject result{{"started", started}, {"return_ms", ms(returned - begin)},
        {"candidates", candidates(log, returned)}};
    if (started) {
        if (!test::wait_until([&] { return !log.find(kOpened).empty(); })) {
            throw std::runtime_error("the stream was started but never opened");
        }
        result["first_byte_ms"] = ms(relay.first_byte() - begin);
        result["opened_ms"] = ms(log.find(kOpened).front().first - begin);
        output.stop();
        test::wait_until([&] { return !output.is_active(); });
    }
    return result;
}

QJsonArray measure(const std::vector<std::string> &words) {
    register_mux_output_types();
    for (size_t i = 3; i < words.size(); ++i) {
        const size_t sign = words[i].find('=');
        register_encoder(words[i].substr(0, sign), words[i].substr(sign + 1));
    }
    TimedLog log;
    const test::LocalSink server;
    Relay relay(QUrl(QString::fromStdString(server.url())).port());
    VerticalCanvas canvas({});
    if (!canvas.init()) {
        throw std::runtime_error("the canvas could not be made");
    }
    QJsonArray starts;
    for (int number = 0; number < std::stoi(words[2]); ++number) {
        starts.append(measure_start(canvas,
            {.url = relay.url(), .key = words[1], .preferred_encoder = words[0]}, relay, log));
    }
    return starts;
}

} // namespace

} // namespace corvane::bench

int main(int argc, char **argv) {
    const QApplication application(argc, argv);
    if (argc < 4) {
        fprintf(stderr, "usage: start_bench PREFERRED KEY STARTS [ID=KIND...]\n");
        return EXIT_FAILURE;
    }
    try {
        const QTemporaryDir config;
        corvane::test::LogCapture::get();
        const corvane::test::ObsSession session(config.path().toStdString());
        const QJsonObject result{{"starts", corvane::bench::measure({argv + 1, argv + argc})}};
        puts(QJsonDocument(result).toJson(QJsonDocument::Compact).constData());
    } catch (const std::exception &error) {
        fprintf(stderr, "start_bench: %s\n%s", error.what(),
            corvane::test::LogCapture::get().tail().c_str());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
