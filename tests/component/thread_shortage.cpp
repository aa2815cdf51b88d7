// SPDX-License-Identifier: GPL-2.0-or-later
#include "component/thread_shortage.hpp"

#include <atomic>
#include <system_error>

namespace {

std::atomic<bool> shortage = false;

} // namespace

// The linker puts wrapped_start() in the place of the function behind std::thread's constructor and
// calls that one the real (see ../CMakeLists.txt).
void real_start(void *thread, void *state, void (*depend)()) asm(
    "__real__ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE");
void wrapped_start(void *thread, void *state, void (*depend)()) asm(
    "__wrap__ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE");

void wrapped_start(void *thread, void *state, void (*depend)()) {
    if (shortage) {
        throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
    }
    real_start(thread, state, depend);
}

namespace corvane::test {

ThreadShortage::ThreadShortage() {
    shortage = true;
}

ThreadShortage::~ThreadShortage() {
    shortage = false;
}

} // namespace corvane::test
