// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

namespace corvane::bench {

// What the sink tells the program that sends, in a file that both have mapped.
struct Board {
    static constexpr size_t kMostPackets = 1U << 20U;

    std::atomic<uint64_t> bytes; // that came from the sender
    std::atomic<uint64_t> found; // markers
    // When the packet of this number came in, in ns of CLOCK_MONOTONIC; 0 when it has not.
    std::array<std::atomic<uint64_t>, kMostPackets> arrivals;
};

// Makes the file where it is missing; new boards are all 0. Throws when it cannot be mapped.
class MappedBoard {
public:
    explicit MappedBoard(const std::string &path) {
        const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        if (file >= 0 && ftruncate(file, sizeof(Board)) == 0) {
            memory_ = mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
        }
        if (file >= 0) {
            close(file);
        }
        if (memory_ == MAP_FAILED) {
            throw std::runtime_error("cannot map " + path);
        }
    }
    ~MappedBoard() { munmap(memory_, sizeof(Board)); }
    MappedBoard(const MappedBoard &) = delete;
    MappedBoard &operator=(const MappedBoard &) = delete;

    Board *operator->() const { return static_cast<Board *>(memory_); }

private:
    void *memory_ = MAP_FAILED;
};

} // namespace corvane::bench
