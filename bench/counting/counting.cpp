// SPDX-License-Identifier: GPL-2.0-or-later
// Preloaded into a process it counts allocations and copies, thread by thread.
#include "counting.hpp"

#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>

// Takes the C library's place.
#define COUNTED extern "C" __attribute__((visibility("default")))

namespace {

using corvane::bench::Counts;

// Written by its thread only.
class Count {
public:
    void add(uint64_t number) { number_.store(get() + number, std::memory_order_relaxed); }
    uint64_t get() const { return number_.load(std::memory_order_relaxed); }

private:
    std::atomic<uint64_t> number_ = 0;
};

struct Slot {
    std::atomic<pid_t> thread = 0;
    Count allocations, allocated_bytes, copies, copied_bytes;
};

std::array<Slot, 4096> slots;
std::atomic<size_t> slots_taken = 0;
thread_local Slot *own_slot __attribute__((tls_model("initial-exec"))) = nullptr;

Slot &own() {
    if (!own_slot) {
        own_slot = &slots[slots_taken++ % slots.size()];
        own_slot->thread = gettid();
    }
    return *own_slot;
}

void count_allocation(size_t size) {
    own().allocations.add(1);
    own().allocated_bytes.add(size);
}

void count_copy(size_t size) {
    own().copies.add(1);
    own().copied_bytes.add(size);
}

} // namespace

// The C library's own entries that stay reachable beside those replaced here.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" void *__libc_malloc(size_t size);
extern "C" void *__libc_calloc(size_t count, size_t size);
extern "C" void *__libc_realloc(void *block, size_t size);
extern "C" void *__libc_memalign(size_t alignment, size_t size);
// NOLINTEND(bugprone-reserved-identifier)

COUNTED void *malloc(size_t size) {
    count_allocation(size);
    return __libc_malloc(size);
}

COUNTED void *calloc(size_t count, size_t size) {
    count_allocation(count * size);
    return __libc_calloc(count, size);
}

COUNTED void *realloc(void *block, size_t size) {
    count_allocation(size);
    return __libc_realloc(block, size);
}

COUNTED void *memalign(size_t alignment, size_t size) {
    count_allocation(size);
    return __libc_memalign(alignment, size);
}

COUNTED void *aligned_alloc(size_t alignment, size_t size) {
    return memalign(alignment, size);
}

COUNTED int posix_memalign(void **block, size_t alignment, size_t size) {
    *block = memalign(alignment, size);
    return *block ? 0 : ENOMEM;
}

// The loader copies with these before it can look up others, so they are plain loops of the
// processor's own.
COUNTED void *memcpy(void *to, const void *from, size_t size) {
    count_copy(size);
    void *out = to; // NOLINT(misc-const-correctness): the next line writes there
    __asm__ volatile("rep movsb" : "+D"(out), "+S"(from), "+c"(size) : : "memory");
    return to;
}

COUNTED void *memmove(void *to, const void *from, size_t size) {
    if (reinterpret_cast<uintptr_t>(to) - reinterpret_cast<uintptr_t>(from) >= size) {
        return memcpy(to, from, size);
    }
    count_copy(size);
    auto *out = static_cast<volatile unsigned char *>(to);
    const auto *in = static_cast<const volatile unsigned char *>(from);
    while (size-- > 0) {
        out[size] = in[size];
    }
    return to;
}

// What the compiler makes of copies into blocks whose size it knows, in libraries built so.
// NOLINTBEGIN(bugprone-reserved-identifier)
COUNTED void *__memcpy_chk(void *to, const void *from, size_t size, size_t room) {
    return size <= room ? memcpy(to, from, size) : (abort(), nullptr);
}

COUNTED void *__memmove_chk(void *to, const void *from, size_t size, size_t room) {
    return size <= room ? memmove(to, from, size) : (abort(), nullptr);
}
// NOLINTEND(bugprone-reserved-identifier)

COUNTED void corvane_counts_of_thread(pid_t thread, Counts *counts) {
    const pid_t wanted = thread == 0 ? gettid() : thread;
    *counts = {};
    for (const Slot &slot : slots) {
        if (slot.thread == wanted) {
            *counts = {.allocations = slot.allocations.get(),
                .allocated_bytes = slot.allocated_bytes.get(),
                .copies = slot.copies.get(),
                .copied_bytes = slot.copied_bytes.get()};
        }
    }
}
