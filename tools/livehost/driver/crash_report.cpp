// SPDX-License-Identifier: GPL-2.0-or-later
#include "crash_report.hpp"

#include <csignal>
#include <execinfo.h>
#include <unistd.h>

namespace livehost {

namespace {

constexpr int kFatalSignals[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT};
constexpr int kMostFrames = 64;

// The signal's own action is back in force in here and ends the process as it would have.
void report(int signal) {
    void *frames[kMostFrames];
    const int count = backtrace(frames, kMostFrames);
    constexpr char kTitle[] = "crashed at:\n";
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, kTitle, sizeof(kTitle) - 1);
    backtrace_symbols_fd(frames, count, STDERR_FILENO);
    raise(signal);
}

} // namespace

void report_crashes() {
    // The first call loads a library, which is nothing to do in a signal handler.
    void *frame;
    backtrace(&frame, 1);
    struct sigaction action{};
    action.sa_handler = report;
    action.sa_flags = SA_RESETHAND;
    for (const int signal : kFatalSignals) {
        sigaction(signal, &action, nullptr);
    }
}

} // namespace livehost
