// SPDX-License-Identifier: GPL-2.0-or-later
// Runs every test of the program inside one host session; anything the host still holds
// afterwards is a failure.
#include "support/log_capture.hpp"
#include "support/obs_session.hpp"

#include <QApplication>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

// Libraries stay loaded to the end, so that a sanitizer's report can name those it speaks of.
extern "C" [[gnu::visibility("default")]] int dlclose(void *) {
    return 0;
}

namespace corvane::test {

namespace {

// Keeps a log for each test and prints that of a failed one.
class LogPerTest : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo &) override { LogCapture::get().restart(); }
    void OnTestEnd(const testing::TestInfo &test) override {
        if (test.result()->Failed()) {
            fprintf(stderr, "--- the host's log:\n%s---\n", LogCapture::get().whole().c_str());
        }
    }
};

} // namespace

} // namespace corvane::test

int main(int argc, char **argv) {
    using namespace corvane::test;
    testing::InitGoogleTest(&argc, argv);
    testing::UnitTest::GetInstance()->listeners().Append(new LogPerTest);
    const QApplication application(argc, argv);
    const QTemporaryDir config_dir;
    LogCapture::get();
    const ObsSession session(config_dir.path().toStdString());

    const int result = RUN_ALL_TESTS();
    const long leaks = ObsSession::shutdown();
    if (leaks != 0) {
        fprintf(stderr, "FAILED: %ld memory leaks in the host after its end\n%s", leaks,
            LogCapture::get().whole().c_str());
        return EXIT_FAILURE;
    }
    return result;
}
