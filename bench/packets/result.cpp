// SPDX-License-Identifier: GPL-2.0-or-later
#include "result.hpp"

#include <QJsonArray>

#include <algorithm>
#include <fstream>
#include <stdexcept>
#include <string>

namespace corvane::bench {

namespace {

using Values = std::vector<double>;

double quantile(Values &values, double share) {
    const auto at = static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1));
    std::ranges::nth_element(values, values.begin() + at);
    return values[static_cast<size_t>(at)];
}

QJsonObject distribution(Values values) {
    if (values.empty()) {
        return {};
    }
    return {{"p50", quantile(values, 0.5)}, {"p99", quantile(values, 0.99)},
        {"p999", quantile(values, 0.999)}, {"max", std::ranges::max(values)}};
}

QJsonObject counted(const Counts &counts, double packets) {
    const auto each = [packets](uint64_t sum) {
        return static_cast<double>(sum) / packets;
    };
    return {{"allocations", each(counts.allocations)},
        {"allocated_bytes", each(counts.allocated_bytes)}, {"copies", each(counts.copies)},
        {"copied_bytes", each(counts.copied_bytes)}};
}

} // namespace

QJsonObject figures(const std::vector<Meter::Sample> &samples,
    const std::map<pid_t, ThreadUse> &threads, const MappedBoard &board) {
    double bytes = 0;
    double callback_ns = 0;
    Counts callback_counts;
    Values wall_us;
    Values latency_us;
    int video = 0;
    for (const Meter::Sample &sample : samples) {
        bytes += sample.bytes;
        video += sample.video ? 1 : 0;
        callback_ns += static_cast<double>(sample.cpu_ns);
        callback_counts += sample.counts;
        wall_us.push_back(static_cast<double>(sample.wall_ns) / 1e3);
        if (const uint64_t arrival = board->arrivals.at(sample.number % Board::kMostPackets)) {
            latency_us.push_back(
                (static_cast<double>(arrival) - static_cast<double>(sample.entered_ns)) / 1e3);
        }
    }
    double writer_ns = 0;
    Counts writer_counts;
    QJsonArray writers;
    for (const auto &[thread, use] : threads) {
        writer_ns += static_cast<double>(use.cpu_ns);
        writer_counts += use.counts;
        writers.append(QJsonObject{{"thread", thread}, {"name", QString::fromStdString(use.name)},
            {"cpu_us", static_cast<double>(use.cpu_ns) / 1e3}});
    }
    const double packets = std::max<double>(1, static_cast<double>(samples.size()));
    QJsonObject result = {{"packets", static_cast<int>(samples.size())}, {"video_packets", video},
        {"bytes", bytes / packets}, {"callback_cpu_us", callback_ns / packets / 1e3},
        {"writer_cpu_us", writer_ns / packets / 1e3},
        {"path_cpu_us", (callback_ns + writer_ns) / packets / 1e3}, {"writers", writers},
        {"callback_wall_us", distribution(std::move(wall_us))},
        {"arrived", static_cast<int>(latency_us.size())},
        {"latency_us", distribution(std::move(latency_us))}};
    if (counting_is_on()) {
        result["callback_counts"] = counted(callback_counts, packets);
        result["writer_counts"] = counted(writer_counts, packets);
    }
    return result;
}

int memory_kb(const char *name) {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with(name)) {
            return std::stoi(line.substr(std::string(name).size()));
        }
    }
    return 0;
}

void forget_memory_peak() {
    std::ofstream file("/proc/self/clear_refs");
    if (!(file << 5 << std::flush)) {
        throw std::runtime_error("the memory's peak cannot be forgotten");
    }
}

} // namespace corvane::bench
