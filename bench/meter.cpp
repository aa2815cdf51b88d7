// SPDX-License-Identifier: GPL-2.0-or-later
#include "meter.hpp"

#include <obs.h>

#include <dlfcn.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <ctime>
#include <map>
#include <span>
#include <string>

namespace corvane::bench {

namespace {

// Behind a slice's header. Every byte has its high bit set, so that none is part of a start code.
constexpr size_t kMarkerOffset = 8;
constexpr std::array<uint8_t, 8> kMagic = {0xC7, 0xA1, 0xE9, 0x93, 0xF5, 0x8B, 0xD3, 0xB7};
constexpr size_t kMarkerSize = kMagic.size() + 2;
constexpr uint32_t kNumbers = 1U << 14U; // 7 bits in each of those two bytes; then they repeat

// RTMP has the marker near the beginning of a chunk, SRT anywhere in a datagram.
constexpr size_t kSearchedInStream = 64;
constexpr size_t kSearchedInDatagram = 1500;

struct Times {
    std::atomic<int64_t> entered_ns;
    std::atomic<int64_t> left_ns;
};
std::array<Times, kNumbers> times;
std::atomic<int64_t> packets = 0;
std::atomic<int64_t> callback_cpu_ns = 0;

std::map<std::string, obs_output_info> registered;
const obs_output_info *created = nullptr;

int64_t read_clock(clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return time.tv_sec * 1'000'000'000 + time.tv_nsec;
}

// What reading the thread's clock adds to each measured time.
int64_t clock_overhead_ns() {
    std::array<int64_t, 1001> readings{};
    for (int64_t &reading : readings) {
        const int64_t before = read_clock(CLOCK_THREAD_CPUTIME_ID);
        reading = read_clock(CLOCK_THREAD_CPUTIME_ID) - before;
    }
    std::ranges::sort(readings);
    return readings[readings.size() / 2];
}

// Numbers the packet, so that it is recognised when it leaves; nobody decodes it.
void write_marker(uint8_t *at) {
    static std::atomic<uint32_t> number = 0;
    const uint32_t own = number++;
    at = std::ranges::copy(kMagic, at).out;
    at[0] = 0x80U | (own >> 7U & 0x7FU);
    at[1] = 0x80U | (own & 0x7FU);
}

Times &times_of(const uint8_t *marker) {
    return times[(marker[kMagic.size()] & 0x7FU) << 7U | (marker[kMagic.size() + 1] & 0x7FU)];
}

void look_for_markers(const void *data, size_t size) {
    const auto *at = static_cast<const uint8_t *>(data);
    const auto *end = at + size;
    while ((at = static_cast<const uint8_t *>(
                memmem(at, end - at, kMagic.data(), kMagic.size()))) != nullptr &&
           end - at >= static_cast<ptrdiff_t>(kMarkerSize)) {
        int64_t never = 0; // a datagram can be sent again
        times_of(at).left_ns.compare_exchange_strong(never, read_clock(CLOCK_MONOTONIC));
        at += kMarkerSize;
    }
}

template <typename Function>
Function *library_function(const char *name) {
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

} // namespace

// callgrind collects inside this function.
extern "C" [[gnu::noinline, gnu::visibility("default")]] void measured_callback(
    void *output, encoder_packet *packet) {
    created->encoded_packet(output, packet);
    __asm__ volatile(""); // keeps the call from becoming a jump
}

static void on_packet(void *output, encoder_packet *packet) {
    static const int64_t overhead_ns = clock_overhead_ns();
    if (!packet) {
        created->encoded_packet(output, packet);
        return;
    }
    write_marker(packet->data + kMarkerOffset);
    times_of(packet->data + kMarkerOffset).entered_ns = read_clock(CLOCK_MONOTONIC);
    const int64_t before_ns = read_clock(CLOCK_THREAD_CPUTIME_ID);
    measured_callback(output, packet);
    callback_cpu_ns += read_clock(CLOCK_THREAD_CPUTIME_ID) - before_ns - overhead_ns;
    ++packets;
}

void meter::begin() {
    for (Times &each : times) {
        each.entered_ns = each.left_ns = 0;
    }
    packets = callback_cpu_ns = 0;
}

meter::Reading meter::read() {
    Reading reading{.packets = static_cast<double>(packets),
        .callback_cpu_ns = static_cast<double>(callback_cpu_ns),
        .latencies_ms = {}};
    for (const auto &[entered_ns, left_ns] : times) {
        if (entered_ns != 0 && left_ns != 0) {
            reading.latencies_ms.push_back(static_cast<double>(left_ns - entered_ns) / 1e6);
        }
    }
    std::ranges::sort(reading.latencies_ms);
    return reading;
}

} // namespace corvane::bench

using namespace corvane::bench;

void obs_register_output_s(const obs_output_info *info, size_t size) {
    obs_output_info wrapped = registered[info->id] = *info;
    wrapped.encoded_packet = on_packet;
    wrapped.create = [](obs_data_t *settings, obs_output_t *output) {
        created = &registered[obs_output_get_id(output)];
        return created->create(settings, output);
    };
    library_function<decltype(obs_register_output_s)>("obs_register_output_s")(
        &wrapped, std::min(size, sizeof(wrapped)));
}

[[gnu::visibility("default")]] ssize_t send(int socket, const void *data, size_t size, int flags) {
    static auto *const original = library_function<decltype(send)>("send");
    look_for_markers(data, std::min(size, kSearchedInStream));
    return original(socket, data, size, flags);
}

[[gnu::visibility("default")]] ssize_t sendmsg(int socket, const msghdr *message, int flags) {
    static auto *const original = library_function<decltype(sendmsg)>("sendmsg");
    for (const iovec &piece : std::span(message->msg_iov, message->msg_iovlen)) {
        look_for_markers(piece.iov_base, std::min(piece.iov_len, kSearchedInDatagram));
    }
    return original(socket, message, flags);
}
