// SPDX-License-Identifier: GPL-2.0-or-later
#include "meter.hpp"

#include "marker.hpp"
#include "threads.hpp"

#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <utility>

namespace corvane::bench {

namespace {

int64_t read_clock(clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return time.tv_sec * 1'000'000'000 + time.tv_nsec;
}

int64_t thread_cpu_ns() {
    return read_clock(CLOCK_THREAD_CPUTIME_ID);
}

void mark(const char *text) {
    (void)!write(-1, text, 1);
}

} // namespace

// A function of its own, by whose name an instruction counter finds the callbacks.
extern "C" __attribute__((noinline, visibility("default"))) void corvane_measured_callback(
    void (*callback)(void *, encoder_packet *), void *output, encoder_packet *packet) {
    callback(output, packet);
    __asm__ volatile(""); // keeps the call from becoming a jump
}

int64_t now_ns() {
    return read_clock(CLOCK_MONOTONIC);
}

Meter &Meter::get() {
    static Meter meter;
    return meter;
}

void Meter::watch(const std::string &type, bool marks) {
    type_ = type;
    marks_ = marks;
    overhead_ns_ = own_cpu_ns();
}

int64_t Meter::own_cpu_ns() const {
    std::array<int64_t, 1001> readings{};
    for (int64_t &reading : readings) {
        const int64_t before = thread_cpu_ns();
        now_ns();
        now_ns();
        reading = thread_cpu_ns() - before;
    }
    std::ranges::nth_element(readings, readings.begin() + readings.size() / 2);
    return readings[readings.size() / 2];
}

void Meter::reserve(size_t packets) {
    const std::scoped_lock lock(mutex_);
    samples_.resize(packets);
    samples_.clear();
}

void Meter::begin() {
    const std::scoped_lock lock(mutex_);
    measuring_ = true;
}

std::vector<Meter::Sample> Meter::end() {
    const std::scoped_lock lock(mutex_);
    measuring_ = false;
    return std::move(samples_);
}

void Meter::give(encoder_packet *packet) {
    call(output_, packet);
}

void Meter::call(void *output, encoder_packet *packet) {
    if (!packet) {
        original_.encoded_packet(output, packet);
        return;
    }
    Sample sample{.number = Marker::read({packet->data, packet->size}),
        .video = packet->type == OBS_ENCODER_VIDEO,
        .bytes = static_cast<uint32_t>(packet->size),
        .entered_ns = now_ns(),
        .wall_ns = 0,
        .cpu_ns = 0,
        .counts = {}};
    const Counts before = counts_of_thread(0);
    const int64_t cpu = thread_cpu_ns();
    if (marks_) {
        mark("(");
    }
    const int64_t begin = now_ns();
    corvane_measured_callback(original_.encoded_packet, output, packet);
    sample.wall_ns = now_ns() - begin;
    if (marks_) {
        mark(")");
    }
    sample.cpu_ns = thread_cpu_ns() - cpu - overhead_ns_;
    sample.counts = counts_of_thread(0);
    sample.counts -= before;
    const std::scoped_lock lock(mutex_);
    if (measuring_) {
        samples_.push_back(sample);
    }
    ++passed_;
}

obs_output_info Meter::wrapped(const obs_output_info &info) {
    if (info.id != type_) {
        return info;
    }
    original_ = info;
    obs_output_info wrapped = info;
    wrapped.create = [](obs_data_t *settings, obs_output_t *output) {
        Meter &meter = get();
        meter.output_ = meter.original_.create(settings, output);
        return meter.output_.load();
    };
    wrapped.encoded_packet = [](void *output, encoder_packet *packet) {
        get().call(output, packet);
    };
    return wrapped;
}

} // namespace corvane::bench

// Takes the place of libobs's function, for the host's own modules as well.
void obs_register_output_s(const obs_output_info *info, size_t size) {
    static const auto original = reinterpret_cast<decltype(&obs_register_output_s)>(
        dlsym(RTLD_NEXT, "obs_register_output_s"));
    const obs_output_info wrapped = corvane::bench::Meter::get().wrapped(*info);
    original(&wrapped, std::min(size, sizeof(wrapped)));
}
