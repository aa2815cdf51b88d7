// SPDX-License-Identifier: GPL-2.0-or-later
// Runs every test of the program inside one host session; anything the host still holds
// afterwards is a failure.
#include "testbed/log_capture.hpp"
#include "testbed/obs_session.hpp"

#include <QApplication>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

// Libraries stay loaded to the end, so that a sanitizer's report can name those it speaks of.
extern "C" [[gnu::visibility("default")]] int dlclose(void *) {
    return 0;
}

namespace {

class LogOnFailure : public testing::EmptyTestEventListener {
    void OnTestPartResult(const testing::TestPartResult &result) override {
        if (result.failed()) {
            fprintf(stderr, "--- the host's log:\n%s---\n",
                corvane::test::LogCapture::get().tail().c_str());
        }
    }
};

} // namespace

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    testing::UnitTest::GetInstance()->listeners().Append(new LogOnFailure);
    const QApplication application(argc, argv);
    const QTemporaryDir config_dir;
    corvane::test::LogCapture::get();
    const corvane::test::ObsSession session(config_dir.path().toStdString());

    const int result = RUN_ALL_TESTS();
    const long leaks = corvane::test::ObsSession::shutdown();
    if (leaks != 0) {
        fprintf(stderr, "FAILED: %ld memory leaks in the host after its end\n%s", leaks,
            corvane::test::LogCapture::get().tail().c_str());
        return EXIT_FAILURE;
    }
    return result;
}
