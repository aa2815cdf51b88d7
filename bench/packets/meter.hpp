// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "counting/counting.hpp"

#include <obs.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace corvane::bench {

// ns of CLOCK_MONOTONIC, the clock that all processes share.
int64_t now_ns();

// Sits between libobs and one output type, whoever registers it, and measures its packet callback.
class Meter {
public:
    struct Sample {
        uint64_t number; // the marker's
        bool video;
        uint32_t bytes;
        int64_t entered_ns;
        int64_t wall_ns;
        int64_t cpu_ns; // of the calling thread, what measuring takes itself taken off
        Counts counts;
    };

    static Meter &get();

    // Before the type is registered. With `marks`, a write that fails goes before and after every
    // callback, for whoever traces system calls.
    void watch(const std::string &type, bool marks);

    // Before begin(): takes the memory of so many packets' samples.
    void reserve(size_t packets);
    void begin();
    std::vector<Sample> end();
    uint64_t passed() const { return passed_; }

    // Hands the watched output a packet that libobs knows nothing of.
    void give(encoder_packet *packet);

    // What the watched type's record does.
    obs_output_info wrapped(const obs_output_info &info);
    void call(void *output, encoder_packet *packet);

private:
    int64_t own_cpu_ns() const; // of the readings around a callback

    std::string type_;
    bool marks_ = false;
    obs_output_info original_ = {};
    std::atomic<void *> output_ = nullptr;
    std::atomic<uint64_t> passed_ = 0;
    int64_t overhead_ns_ = 0;

    std::mutex mutex_; // guards what follows; not held while the output is called
    bool measuring_ = false;
    std::vector<Sample> samples_;
};

} // namespace corvane::bench
