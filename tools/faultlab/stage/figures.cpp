// SPDX-License-Identifier: GPL-2.0-or-later
#include "figures.hpp"

#include "main_stream.hpp"
#include "report.hpp"

#include <util/platform.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

namespace corvane::lab {

namespace {

constexpr std::chrono::milliseconds kBeat{5};
constexpr std::chrono::milliseconds kReport{250};
constexpr int64_t kNsPerMs = 1'000'000;

int64_t now_ns() {
    return static_cast<int64_t>(os_gettime_ns());
}

// A line such as "VmHWM:  1234 kB" of the process's own status.
void add_memory(QJsonObject &figures) {
    std::ifstream status("/proc/self/status");
    for (std::string name, rest; status >> name && std::getline(status, rest);) {
        if (name == "VmRSS:") {
            figures["rss_kb"] = std::stoi(rest);
        } else if (name == "VmHWM:") {
            figures["peak_kb"] = std::stoi(rest);
        }
    }
}

// The kernel's account of the thread: time on a processor, time waiting for one (ns), and turns.
std::filesystem::path graphics_thread_account() {
    for (const auto &thread : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        std::getline(std::ifstream(thread.path() / "comm"), name);
        if (name.starts_with("libobs: graphic")) {
            return thread.path() / "schedstat";
        }
    }
    return {};
}

void add_processor_time(QJsonObject &figures) {
    // libobs keeps the thread while it runs.
    static const std::filesystem::path account = graphics_thread_account();
    int64_t running = 0;
    int64_t waiting = 0;
    std::ifstream(account) >> running >> waiting;
    figures["graphics_wait_ms"] = static_cast<qint64>(waiting / kNsPerMs);
    figures["cpu_ms"] = static_cast<qint64>(std::clock() / (CLOCKS_PER_SEC / 1000));
}

void add_output(QJsonObject &figures, obs_output_t *output) {
    if (std::string_view(obs_output_get_id(output)) == kMainOutputType) {
        figures["main_frames"] = obs_output_get_total_frames(output);
        figures["main_bytes"] = static_cast<qint64>(obs_output_get_total_bytes(output));
    } else {
        figures["active"] = obs_output_active(output);
        figures["frames"] = obs_output_get_total_frames(output);
        figures["bytes"] = static_cast<qint64>(obs_output_get_total_bytes(output));
        figures["dropped"] = obs_output_get_frames_dropped(output);
        figures["congestion"] = obs_output_get_congestion(output);
        figures["connect_ms"] = obs_output_get_connect_time_ms(output);
    }
}

void add_outputs(QJsonObject &figures) {
    const auto visit = [](void *data, obs_output_t *output) {
        add_output(*static_cast<QJsonObject *>(data), output);
        return true;
    };
    obs_enum_outputs(visit, &figures);
}

} // namespace

Figures::Figures()
    : last_beat_ns_(now_ns()) {
    beat_.setTimerType(Qt::PreciseTimer);
    QObject::connect(&beat_, &QTimer::timeout, [this] {
        const int64_t now = now_ns();
        longest_pause_ns_ = std::max(longest_pause_ns_.load(), now - last_beat_ns_.exchange(now));
    });
    beat_.start(kBeat);
    thread_ = std::jthread([this](const std::stop_token &end) { run(end); });
}

Figures::~Figures() {
    thread_.request_stop();
    thread_.join();
}

int64_t Figures::take_longest_pause_ns() {
    return std::max(longest_pause_ns_.exchange(0), now_ns() - last_beat_ns_);
}

void Figures::run(const std::stop_token &end) {
    while (!end.stop_requested()) {
        QJsonObject figures{
            {"ui_pause_ms", static_cast<qint64>(take_longest_pause_ns() / kNsPerMs)},
            {"lagged", static_cast<qint64>(obs_get_lagged_frames())},
            {"rendered", static_cast<qint64>(obs_get_total_frames())}};
        add_memory(figures);
        add_processor_time(figures);
        add_outputs(figures);
        report({{"figures", figures}});
        std::this_thread::sleep_for(kReport);
    }
}

} // namespace corvane::lab
