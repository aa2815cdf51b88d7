// SPDX-License-Identifier: GPL-2.0-or-later
#include "threads.hpp"

#include <dlfcn.h>

#include <filesystem>
#include <fstream>

namespace corvane::bench {

namespace {

std::set<pid_t> living_threads() {
    std::set<pid_t> threads;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/task")) {
        threads.insert(std::stoi(entry.path().filename().string()));
    }
    return threads;
}

std::string thread_file(pid_t thread, const char *name) {
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/" + name);
    std::string line;
    std::getline(file, line);
    return line;
}

CountsOfThread *counter() {
    static auto *const found =
        reinterpret_cast<CountsOfThread *>(dlsym(RTLD_DEFAULT, kCountsOfThread));
    return found;
}

} // namespace

bool counting_is_on() {
    return counter() != nullptr;
}

Counts counts_of_thread(pid_t thread) {
    Counts counts;
    if (counter()) {
        counter()(thread, &counts);
    }
    return counts;
}

NewThreads::NewThreads()
    : earlier_(living_threads()) {}

std::map<pid_t, ThreadUse> NewThreads::use() const {
    std::map<pid_t, ThreadUse> found;
    for (const pid_t thread : living_threads()) {
        // The first figure is the time on a processor, in ns; a thread that has just ended has
        // none.
        const std::string times = thread_file(thread, "schedstat");
        if (!earlier_.contains(thread) && !times.empty()) {
            found[thread] = {.name = thread_file(thread, "comm"),
                .cpu_ns = std::stoll(times),
                .counts = counts_of_thread(thread)};
        }
    }
    return found;
}

std::map<pid_t, ThreadUse> use_between(
    const std::map<pid_t, ThreadUse> &begin, std::map<pid_t, ThreadUse> end) {
    for (auto &[thread, use] : end) {
        if (const auto earlier = begin.find(thread); earlier != begin.end()) {
            use.cpu_ns -= earlier->second.cpu_ns;
            use.counts -= earlier->second.counts;
        }
    }
    return end;
}

} // namespace corvane::bench
