// SPDX-License-Identifier: GPL-2.0-or-later
#include "mux/name_lookup.hpp"

extern "C" {
#include <libavutil/error.h>
}

#ifdef _WIN32
#include <ws2tcpip.h>
#else
#include <netdb.h>
#endif

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

namespace corvane {

namespace {

constexpr std::chrono::milliseconds kPoll{50};

// Shared with the thread that looks up, which may outlive the question.
struct Lookup {
    std::mutex mutex;
    std::condition_variable answered;
    std::optional<bool> found; // guarded by mutex
};

bool is_known(const std::string &host) {
    addrinfo *addresses = nullptr;
    if (getaddrinfo(host.c_str(), nullptr, nullptr, &addresses) != 0) {
        return false;
    }
    freeaddrinfo(addresses);
    return true;
}

} // namespace

int look_up(const std::string &host, const Interrupt &interrupt) {
    if (host.empty()) {
        return 0; // FFmpeg says what it thinks of such an address
    }
    const auto lookup = std::make_shared<Lookup>();
    std::thread([lookup, host] {
        const bool found = is_known(host);
        const std::scoped_lock lock(lookup->mutex);
        lookup->found = found;
        lookup->answered.notify_all();
    }).detach();

    std::unique_lock lock(lookup->mutex);
    while (!lookup->answered.wait_for(lock, kPoll, [&] { return lookup->found.has_value(); })) {
        if (interrupt.expired()) {
            return AVERROR_EXIT;
        }
    }
    return *lookup->found ? 0 : AVERROR(ENOENT);
}

} // namespace corvane
