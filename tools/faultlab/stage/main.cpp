// SPDX-License-Identifier: GPL-2.0-or-later
// usage: fault_stage CONFIG_FOLDER PROFILE_FOLDER PICTURE MAIN_SERVER
// Reads commands, a line each (see Stage::perform; "end" or the end of the input ends the
// program), and reports what happens as lines of JSON.
#include "figures.hpp"
#include "report.hpp"
#include "stage.hpp"
#include "testbed/obs_session.hpp"

#include <QApplication>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>
#include <thread>

namespace {

// Runs on a thread of its own, which ends with the process at the latest.
void read_commands(corvane::lab::Stage &stage) {
    const auto on_ui_thread = [&](auto task) {
        QMetaObject::invokeMethod(qApp, std::move(task), Qt::QueuedConnection);
    };
    for (std::string line; std::getline(std::cin, line) && line != "end";) {
        on_ui_thread([&stage, line = QString::fromStdString(line)] { stage.perform(line); });
    }
    on_ui_thread([] { QApplication::quit(); });
}

} // namespace

int main(int argc, char **argv) {
    const QApplication application(argc, argv);
    // A box that is closed is the last window: the main window is never shown.
    QApplication::setQuitOnLastWindowClosed(false);
    const QStringList arguments = QApplication::arguments();
    if (arguments.size() != 5) {
        fputs("usage: fault_stage CONFIG_FOLDER PROFILE_FOLDER PICTURE MAIN_SERVER\n", stderr);
        return EXIT_FAILURE;
    }
    try {
        corvane::lab::report_log(corvane::lab::Stage::on_log_line);
        const corvane::test::ObsSession session(arguments[1].toStdString());
        for (const char *name : {"obs-outputs", "rtmp-services"}) {
            corvane::test::ObsSession::load_host_module(name);
        }
        {
            corvane::lab::Stage stage(
                {.profile = arguments[2], .picture = arguments[3], .main_server = arguments[4]});
            const corvane::lab::Figures figures;
            std::thread reader([&] { read_commands(stage); });
            QApplication::exec();
            reader.join();
        }
        const long leaks = corvane::test::ObsSession::shutdown();
        corvane::lab::report({{"leaks", static_cast<qint64>(leaks)}});
    } catch (const std::exception &error) {
        fprintf(stderr, "fault_stage: %s\n", error.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
